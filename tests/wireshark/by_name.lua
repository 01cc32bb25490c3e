-- A transport for the tests: a packet is the name of a type, a NUL and a message.
local by_name = Proto("by_name", "By name")

function by_name.dissector(tvb, pinfo, tree)
    local name = tvb:range():stringz()
    pinfo.private.orlan_epm_type = name
    Dissector.get("orlan_epm"):call(tvb:range(#name + 1):tvb(), pinfo, tree)
end

DissectorTable.get("wtap_encap"):add(wtap.USER0, by_name)
