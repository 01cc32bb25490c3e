-- Shows messages of orlan_epm in Wireshark and tshark. It reads with the tables above it, ENUMS and RECORDS, and makes
-- a display filter field of each of their fields: orlan_epm.<record>.<field>. It trusts no length: a message that ends
-- too early, or has a value that cannot be, is shown up to there and gets an expert item with the reason.
--
-- A message comes from a UDP datagram, from a stream of frames over TCP, or from another dissector, which names its
-- type in pinfo.private.orlan_epm_type.
local TRACKED, RA_BLOCK, RA_BLOCK_LENGTH = 0x08, 0x20, 9
local FRAME_HEADER = 8
local TCP = 2 -- a type of port
local MOST_ITEMS = 200000 -- of one message; Wireshark gives a packet up beyond a million

local proto = Proto("orlan_epm", "Client policy (orlan_epm)")

-- ---- fields ----

local common = {
    frame_length = ProtoField.uint32("orlan_epm.frame_length", "frame length", base.DEC, nil, nil,
        "Length of the message in this frame."),
    line = ProtoField.uint32("orlan_epm.line", "line", base.DEC, nil, nil,
        "Line of the policy file that the message comes from; 0 for none."),
    variant = ProtoField.int8("orlan_epm.variant", "variant", base.DEC, nil, nil,
        "Variant that a record or enumeration is written in; a negative one has no fields."),
    flags = ProtoField.uint8("orlan_epm.flags", "flags", base.HEX, nil, nil, "Flag byte of a record."),
    tracked = ProtoField.bool("orlan_epm.flags.tracked", "state-tracked", 8, nil, TRACKED,
        "State flags follow the fields."),
    has_ra_block = ProtoField.bool("orlan_epm.flags.ra_block", "ra block", 8, nil, RA_BLOCK,
        "An ra block follows the flag byte."),
    ra_block = ProtoField.bytes("orlan_epm.ra_block", "ra block", base.NONE, "Written by the runtime."),
    jump_word = ProtoField.uint32("orlan_epm.jump_word", "jump word", base.DEC, nil, nil,
        "Bytes from here to the end of the record."),
    count = ProtoField.uint32("orlan_epm.count", "count", base.DEC, nil, nil, "Elements of a list."),
    content_length = ProtoField.uint32("orlan_epm.content_length", "length", base.DEC, nil, nil,
        "Length of an object that keeps its own."),
    type_word = ProtoField.uint32("orlan_epm.type_word", "type", base.DEC, nil, nil,
        "Type of an object that says its own."),
    family = ProtoField.uint8("orlan_epm.family", "family", base.DEC, { [0] = "none", [4] = "IPv4", [6] = "IPv6" }, nil,
        "Family of an address."),
    passed_over = ProtoField.bytes("orlan_epm.passed_over", "passed over", base.NONE,
        "Bytes that a reader of this version skips."),
    elements = ProtoField.none("orlan_epm.elements", "elements", "All elements of an array or list."),
}

local experts = {
    damaged = ProtoExpert.new("orlan_epm.damaged", "The message is damaged", expert.group.MALFORMED,
        expert.severity.ERROR),
    cut = ProtoExpert.new("orlan_epm.cut", "The capture has only a part of the message", expert.group.UNDECODED,
        expert.severity.WARN),
    leads_back = ProtoExpert.new("orlan_epm.leads_back", "A jump word leads back", expert.group.PROTOCOL,
        expert.severity.WARN),
    not_known = ProtoExpert.new("orlan_epm.not_known", "Bytes that are not known here", expert.group.UNDECODED,
        expert.severity.NOTE),
}

local types = {} -- by name
local all_fields = {}

local function register(field)
    all_fields[#all_fields + 1] = field
    return field
end

for _, field in pairs(common) do register(field) end

local function number_field(abbreviation, name, width, names, doc)
    return ProtoField["uint" .. 8 * width](abbreviation, name, base.DEC, names, nil, doc)
end

-- The display filter field of a value, by how it is framed.
local field_makers = {
    record = function(a, f) return ProtoField.none(a, f.name, f.doc) end,
    enumeration = function(a, f) return number_field(a, f.name, 4, types[f.type].names, f.doc) end,
    enumerated = function(a, f) return number_field(a, f.name, 4, nil, f.doc) end,
    character = function(a, f) return ProtoField.int8(a, f.name, base.DEC, nil, nil, f.doc) end,
    mac = function(a, f) return ProtoField.ether(a, f.name, f.doc) end,
    address = function(a, f) return ProtoField.ipv4(a, f.name, f.doc) end,
    text = function(a, f) return ProtoField.string(a, f.name, base.NONE, f.doc) end,
    bytes = function(a, f) return ProtoField.bytes(a, f.name, base.NONE, f.doc) end,
    number = function(a, f)
        if f.type ~= "zur_boolean" then return number_field(a, f.name, f.width, nil, f.doc) end
        return ProtoField.bool(a, f.name, base.NONE, { "true", "false" }, nil, f.doc)
    end,
}
field_makers.typed = field_makers.bytes

for _, e in ipairs(ENUMS) do
    types[e.name] = e
    e.value = register(number_field("orlan_epm." .. e.name, "value", 4, e.names, e.doc))
end

for _, r in ipairs(RECORDS) do
    types[r.name] = r
    r.header = register(ProtoField.none("orlan_epm." .. r.name, r.name, r.doc))
    for _, f in ipairs(r.fields) do
        local abbreviation = "orlan_epm." .. r.name .. "." .. f.name
        f.value = register(field_makers[f.framing](abbreviation, f))
        if f.framing == "address" then
            f.ipv6 = register(ProtoField.ipv6(abbreviation .. ".ipv6", f.name, f.doc))
        end
        f.has_element_flags = f.kind == "array" or f.kind == "run"
        local doc = "State flags of " .. f.name .. "."
        if f.has_element_flags then
            f.state = register(ProtoField.bytes(abbreviation .. ".state_flags", "state flags", base.NONE, doc))
        elseif f.kind ~= "length" then
            f.state = register(ProtoField.uint8(abbreviation .. ".state_flags", "state flag", base.HEX, nil, nil, doc))
        end
    end
end

proto.fields = all_fields
proto.experts = { experts.damaged, experts.cut, experts.leads_back, experts.not_known }

-- ---- the walk over one message ----

local function bytes_text(length)
    return string.format("%.0f byte%s", length, length == 1 and "" or "s")
end

local Walk = {}
Walk.__index = Walk

-- Ends the walk. The error is a table, which tells it from an error in this script.
function Walk:damaged(format, ...)
    error({ reason = string.format(format, ...) }, 0)
end

function Walk:rest()
    return self.length - self.offset
end

function Walk:take(length, path, what)
    if length > self:rest() then
        self:damaged("%s%s: needs %s, %s left", path, what or "", bytes_text(length), bytes_text(self:rest()))
    end
    local range = self.tvb:range(self.offset, length)
    self.offset = self.offset + length
    return range
end

function Walk:add(tree, field, range)
    self.items = self.items + 1
    if self.items > MOST_ITEMS then self:damaged("not shown: more than %d items", MOST_ITEMS) end
    return tree:add(field, range)
end

-- Adds what stands in front of a value: a variant, length, type or family.
function Walk:prefix(tree, field, length, label, path, what)
    local range = self:take(length, path, what)
    self:add(tree, field, range):prepend_text(label .. ", ")
    return range
end

function Walk:value(tree, f, length, label, path, field)
    local range = self:take(length, path)
    local item = self:add(tree, field or f.value, range)
    if length == 0 then
        item:set_text(label .. ":")
    elseif label ~= f.name then
        -- Items that are only filtered, not displayed, have no text of their own.
        local shown = item.text and item.text:match(":.*")
        if shown then item:set_text(label .. shown) end
    end
    return item, range
end

-- One function for each way to frame a value. They return its item; those of an enumeration or number also the value.
-- The label is the name of the field or the number of the element.

local read = {}

function read.enumeration(walk, tree, f, label, path)
    walk:prefix(tree, common.variant, 1, label, path, ", variant byte")
    local item, range = walk:value(tree, f, 4, label, path)
    return item, range:uint()
end
read.enumerated = read.enumeration
function read.number(walk, tree, f, label, path)
    local item, range = walk:value(tree, f, f.width, label, path)
    local number = f.width <= 4 and range:uint()
    if f.type == "zur_boolean" and number > 1 then item:append_text(string.format(" (%.0f)", number)) end
    return item, number
end
function read.character(walk, tree, f, label, path) return walk:value(tree, f, 1, label, path) end
function read.mac(walk, tree, f, label, path) return walk:value(tree, f, 6, label, path) end
function read.address(walk, tree, f, label, path)
    local start = walk.offset
    local family = walk:take(1, path):uint()
    walk.offset = start
    if family ~= 0 and family ~= 4 and family ~= 6 then
        walk:damaged("%s: family %d is none of 0, 4 and 6", path, family)
    end
    walk:prefix(tree, common.family, 1, label, path)
    if family == 0 then return tree end
    return walk:value(tree, f, family == 4 and 4 or 16, label, path, family == 6 and f.ipv6)
end
function read.bytes(walk, tree, f, label, path)
    local length = walk:prefix(tree, common.content_length, 4, label, path):uint()
    return walk:value(tree, f, length, label, path)
end
read.text = read.bytes
function read.typed(walk, tree, f, label, path)
    walk:prefix(tree, common.type_word, 4, label, path)
    return read.bytes(walk, tree, f, label, path)
end
function read.record(walk, tree, f, label, path)
    if walk:rest() == 0 then walk:take(1, path, ", variant byte") end
    local start = walk.offset
    local item = walk:add(tree, f.value, walk.tvb:range(start))
    local variant = walk.tvb:range(start, 1):int()
    item:set_text(label .. ": " .. f.type .. ", variant " .. variant)
    walk:record(item, types[f.type], path .. ".")
    item:set_len(walk.offset - start)
    return item
end

-- One function for each kind of field. They return the item that the field's state flags belong to.

local kinds = {}

function kinds.value(walk, tree, f, path) return read[f.framing](walk, tree, f, f.name, path) end
kinds.object = kinds.value
kinds.length = kinds.value
kinds.embedded = kinds.value
function kinds.arm(walk, tree, f, path, present, tag)
    if tag ~= f.tag then return tree end
    if walk.depth == 1 then walk.title = walk.title .. ": " .. f.name end
    return read.record(walk, tree, f, f.name, path)
end
function kinds.text(walk, tree, f, path, present) return walk:value(tree, f, present, f.name, path) end
kinds.characters = kinds.text
kinds.run = kinds.text
-- The number of elements may be a lie, which shows when the bytes end.
function kinds.array(walk, tree, f, path, count)
    local start = walk.offset
    local item = tree
    if walk:rest() > 0 then
        item = walk:add(tree, common.elements, walk.tvb:range(start))
        item:set_text(string.format("%s: %.0f element%s", f.name, count, count == 1 and "" or "s"))
    end
    if f.kind == "list" then walk:add(item, common.count, walk:take(4, path, ", count")) end
    local e = 0
    while e < count do
        local label = "[" .. e .. "]"
        read[f.framing](walk, item, f, label, path .. label)
        e = e + 1
    end
    if item ~= tree then item:set_len(walk.offset - start) end
    return item
end
function kinds.list(walk, tree, f, path)
    local count = walk:take(4, path, ", count"):uint()
    walk.offset = walk.offset - 4
    return kinds.array(walk, tree, f, path, count)
end

-- A writer leaves out the last flags when its buffer is full; the jump word shows whether more is missing.
function Walk:state_flags(tree, f, present, goal)
    if (f.kind == "text" or f.kind == "array") and present == 0 then return end
    -- After a list, the last byte of a message is the flag only if the record's jump word reaches that far.
    if f.kind == "list" and self:rest() == 1 and goal <= self.offset then return end
    local length = math.min(f.has_element_flags and 1 + present or 1, self:rest())
    if length == 0 then return end
    local item = self:add(tree, f.state, self:take(length))
    if f.framing == "record" then item:prepend_text(f.name .. ", ") end
end

function Walk:fields(tree, r, prefix, variant, is_tracked, goal)
    local lengths, tag = {}, 0
    for _, f in ipairs(r.fields) do
        if variant >= f.since then
            local present = f.companion and (lengths[f.companion] or 0) or f.capacity
            local item, number = kinds[f.kind](self, tree, f, prefix .. f.name, present, tag)
            if f.kind == "length" then
                lengths[f.name] = number
            else
                if f.framing == "enumeration" then tag = number end
                if is_tracked then self:state_flags(item, f, present, goal) end
            end
        end
    end
end

function Walk:finish(tree, r, path, variant, jump_word, goal)
    if goal < self.offset then
        tree:add_proto_expert_info(experts.leads_back,
            string.format("the jump word at %d leads back to %d, the fields end here", jump_word, goal))
        return
    end
    local unknown = goal - self.offset
    if unknown > self:rest() then
        self:damaged("%s: the jump word at %d leads to %.0f, the message ends at %d", path, jump_word, goal,
            self.length)
    end
    if unknown == 0 then return end
    local item = self:add(tree, common.passed_over, self:take(unknown))
    item:add_proto_expert_info(experts.not_known, variant > r.top and "fields of a later variant than is known here"
        or variant < 0 and "a body in spite of the variant" or "no field of this record")
end

function Walk:record(tree, r, prefix)
    local path = prefix == "" and r.name or prefix:sub(1, -2)
    local start = self.offset
    local variant_range = self:take(1, path, ", variant byte")
    local variant = variant_range:int()
    local header = self:add(tree, r.header, variant_range)
    header:set_text("header: " .. r.name .. ", variant " .. variant)
    self:add(header, common.variant, variant_range)
    local flags_range = self:take(1, path, ", flag byte")
    local flags = flags_range:uint()
    local is_tracked, has_ra_block = bit.band(flags, TRACKED) ~= 0, bit.band(flags, RA_BLOCK) ~= 0
    local flags_item = self:add(header, common.flags, flags_range)
    flags_item:add(common.tracked, flags_range)
    flags_item:add(common.has_ra_block, flags_range)
    if is_tracked then header:append_text(", state-tracked") end
    if has_ra_block then
        self:add(header, common.ra_block, self:take(RA_BLOCK_LENGTH, path, ", ra block"))
        header:append_text(", ra block")
    end
    local jump_word = self.offset
    local jump_range = self:take(4, path, ", jump word")
    local goal = jump_word + jump_range:uint()
    self:add(header, common.jump_word, jump_range):append_text(string.format(", to offset %.0f", goal))
    header:set_len(self.offset - start)

    self.depth = self.depth + 1
    self:fields(tree, r, prefix, variant, is_tracked, goal)
    self:finish(tree, r, path, variant, jump_word, goal)
    self.depth = self.depth - 1
end

function Walk:whole(tree, type)
    if type.names then
        read.enumeration(self, tree, type, "value", "value")
    else
        self:record(tree, type, "")
    end
    if self:rest() ~= 0 then
        self:damaged("%s behind the end of the %s", bytes_text(self:rest()),
            type.names and "value" or "outermost record")
    end
end

-- Shows the message below the tree. Returns its title.
local function show_message(tvb, tree, type_name, is_cut)
    local walk = setmetatable(
        { tvb = tvb, length = tvb:len(), offset = 0, depth = 0, items = 0, title = type_name }, Walk)
    local type = types[type_name]
    if not type then
        tree:add_proto_expert_info(experts.damaged, "there is no type " .. type_name)
        return type_name
    end
    local is_sound, damage = pcall(walk.whole, walk, tree, type)
    if not is_sound then
        if _G.type(damage) ~= "table" then error(damage, 0) end
        if is_cut then
            tree:add_proto_expert_info(experts.cut, "captured up to here: " .. damage.reason)
        else
            tree:add_proto_expert_info(experts.damaged, damage.reason)
            walk.title = walk.title .. " [damaged]"
        end
    end
    tree:append_text(", " .. walk.title)
    return walk.title
end

-- ---- where messages come from ----

local choices = {}
for _, list in ipairs({ RECORDS, ENUMS }) do
    for _, type in ipairs(list) do
        types[type.name].number = #choices + 1
        choices[#choices + 1] = { type.name, type.name, #choices + 1 }
    end
end

proto.prefs.type = Pref.enum("Type of a message", types.orlan_ial_svm_epm_data.number,
    "Type of the messages that are sent to the port below, or come without a port", choices, false)
proto.prefs.reply_type = Pref.enum("Type of a reply", types.orlan_ial_in_svm_epm_data.number,
    "Type of the messages that are sent from the port below", choices, false)
proto.prefs.ports = Pref.range("TCP and UDP ports", "20358", "Ports that messages are sent to", 65535)
proto.prefs.longest = Pref.uint("Longest message", 65536, "A frame over TCP that claims more bytes is none")

local function type_of(pinfo)
    local named = pinfo.private.orlan_epm_type
    pinfo.private.orlan_epm_type = nil
    if named then return named end
    local is_reply = pinfo.match == pinfo.src_port and pinfo.match ~= pinfo.dst_port
    return choices[is_reply and proto.prefs.reply_type or proto.prefs.type][1]
end

local function is_frame(length)
    return length > 0 and length <= proto.prefs.longest
end

-- If this is no frame, the start of the next one is not known, so it takes all bytes that are there.
local function frame_length(tvb, _, offset)
    local length = tvb:range(offset, 4):uint()
    return is_frame(length) and FRAME_HEADER + length or tvb:len() - offset
end

local function is_cut(tvb)
    return tvb:len() < tvb:reported_len()
end

local function show_frame(tvb, tree, type_name)
    local item = tree:add(proto, tvb())
    local range = tvb:range(0, 4)
    local length_item = item:add(common.frame_length, range)
    item:add(common.line, tvb:range(4, 4))
    if not is_frame(range:uint()) then
        length_item:add_proto_expert_info(experts.damaged,
            string.format("a frame of %s; 1 to %d are allowed", bytes_text(range:uint()), proto.prefs.longest))
        return "no frame"
    end
    if tvb:len() == FRAME_HEADER then
        item:add_proto_expert_info(experts.cut, "captured up to here")
        return type_name
    end
    return show_message(tvb:range(FRAME_HEADER):tvb(), item, type_name, is_cut(tvb))
end

function proto.dissector(tvb, pinfo, tree)
    local is_named = pinfo.private.orlan_epm_type ~= nil
    local type_name = type_of(pinfo)
    pinfo.cols.protocol = "orlan_epm"
    if is_named or pinfo.port_type ~= TCP then
        pinfo.cols.info = show_message(tvb, tree:add(proto, tvb()), type_name, is_cut(tvb))
        return tvb:len()
    end
    local titles = {}
    dissect_tcp_pdus(tvb, tree, FRAME_HEADER, frame_length, function(frame, _, parent)
        titles[#titles + 1] = show_frame(frame, parent, type_name)
        pinfo.cols.info = table.concat(titles, ", ")
        return frame:len()
    end)
    return tvb:len()
end

local tables = { DissectorTable.get("tcp.port"), DissectorTable.get("udp.port") }
local ports = ""

local function listen()
    if ports == proto.prefs.ports then return end
    for _, table in ipairs(tables) do
        if ports ~= "" then table:remove(ports, proto) end
        if proto.prefs.ports ~= "" then table:add(proto.prefs.ports, proto) end
    end
    ports = proto.prefs.ports
end

for _, table in ipairs(tables) do table:add_for_decode_as(proto) end
listen()
proto.prefs_changed = listen
