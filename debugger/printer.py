# Shows Instances of the Bundle in gdb field by field: print *instance. It uses the tables at the end of the loaded
# script and reads memory only; it calls nothing in the program, so a core file will do. It does not trust the memory:
# what cannot be read is reported in its place, and no count beyond gdb's own limits is believed.
import collections
import itertools
import struct

import gdb
import gdb.printing

Record = collections.namedtuple("Record", "top links size fields")
Field = collections.namedtuple(
    "Field", "name kind type offset since width companion companion_width capacity tag")

TYPE_INFO_MAGIC = 0xBEEFF00D
TYPE_INFO_NAME = 53
TYPE_INFO_BUNDLE = 117
OWN_HEADER = 0x80
HEADER_LENGTH = 12
NEXT_LINK = 8
LIST_COUNT = 24
MOST_ELEMENTS = 100000  # if gdb itself has no limit
MOST_RECORDS = 1000  # in one value


class Fault(Exception):
    """Why something cannot be shown."""


def read(address, length):
    try:
        return bytes(gdb.selected_inferior().read_memory(address, length)) if length else b""
    except (gdb.error, OverflowError):
        raise Fault("cannot be read at %#x" % address)


def number(address, width):
    return int.from_bytes(read(address, width), "little")


def name_at(address):
    return read(address, 64).split(b"\0")[0].decode("ascii", "replace")


def own_type(type_word):
    """The name of one of the Bundle's types, when the word leads to its TypeInfo."""
    if type_word == 0:
        raise Fault("no TypeInfo: destroyed, or the null Instance")
    try:
        name = name_at(type_word + TYPE_INFO_NAME)
        if number(type_word, 4) == TYPE_INFO_MAGIC and name_at(type_word + TYPE_INFO_BUNDLE) == "orlan_epm":
            return name
    except Fault:
        pass
    raise Fault("damaged: no TypeInfo at %#x" % type_word)


def quoted(text, is_cut):
    escapes = {0x22: '\\"', 0x5C: "\\\\", 0x0A: "\\n", 0x09: "\\t", 0x0D: "\\r"}
    shown = "".join(escapes.get(c) or (chr(c) if 0x20 <= c < 0x7F else "\\%03o" % c) for c in text)
    return '"%s"%s' % (shown, "..." if is_cut else "")


class Group:
    """Values in braces, with or without names."""

    def __init__(self, head, items):
        self.head, self.items = head, items

    def text(self, is_pretty, depth=0):
        shown = []
        for name, value in self.items:
            text = value.text(is_pretty, depth + 1) if isinstance(value, Group) else value
            shown.append(text if name is None else "%s = %s" % (name, text))
        head = self.head + " " if self.head else ""
        if not is_pretty or not any(name for name, _ in self.items) and all(isinstance(v, str) for _, v in self.items):
            return "%s{%s}" % (head, ", ".join(shown))
        inner = "  " * (depth + 1)
        return "%s{\n%s%s\n%s}" % (head, inner, (",\n" + inner).join(shown), "  " * depth)


class View:
    """One value on its way to the screen."""

    def __init__(self):
        self.limit = gdb.parameter("print elements") or MOST_ELEMENTS
        self.repeats = gdb.parameter("print repeats") or MOST_ELEMENTS
        self.records = 0

    def guarded(self, show, *arguments):
        try:
            return show(*arguments)
        except Fault as fault:
            return "<%s>" % fault

    def enumerator(self, name, x):
        value = number(x + HEADER_LENGTH, 4)
        names = ENUMS[name]
        return names[value] if value < len(names) else "%d <no %s>" % (value, name)

    def record(self, name, x):
        self.records += 1
        if self.records > MOST_RECORDS:
            raise Fault("not shown: more than %d records" % MOST_RECORDS)
        type_word, variant, layout, flags = struct.unpack("<QbbB", read(x, 11))
        # In a separate header block of the runtime's, the type is the one that the record is declared with.
        known = name if flags & OWN_HEADER else own_type(type_word)
        if known != name:
            raise Fault("of type %s, not %s" % (known, name))
        record = RECORDS[name]
        head = name
        if record.top > 0 or variant != 0:
            head += " variant %d of %d" % (variant, record.top)
        if layout != record.top:
            head += ", laid out for %d" % layout
        if variant < 0:
            return Group(head, [(None, "<no field is in force>")])
        items = []
        for f in record.fields:
            if f.kind == "length":
                continue
            if f.since > min(variant, layout):
                value = "<not in variant %d>" % variant if f.since > variant else "<not laid out>"
            else:
                value = self.guarded(getattr(self, f.kind), record, f, x, x + f.offset)
            if value is not None:
                items.append((f.name, value))
        return Group(head, items)

    def instance(self, name, x):
        return self.record(name, x) if name in RECORDS else self.enumerator(name, x)

    # One function for each kind of field; None leaves the field out.

    def value(self, record, f, x, place):
        if f.type in ENUMS:
            return self.enumerator(f.type, place)
        if f.type == "zur_boolean":
            value = number(place, f.width)
            return ("false", "true")[value] if value < 2 else str(value)
        if f.type == "sm_auth_domain":
            return str(number(place + HEADER_LENGTH, 4))
        return self.numbers(f, read(place, f.width))[0]

    def object(self, record, f, x, place):
        data = read(place, f.width)
        if f.type == "zur_mac_addr":
            return ":".join("%02x" % byte for byte in data)
        # The content is the runtime's, which may come with debug information.
        try:
            of_runtime = gdb.lookup_type("struct " + f.type)
            if of_runtime.fields() and of_runtime.sizeof == f.width:
                return gdb.Value(place).cast(of_runtime.pointer()).dereference().format_string(pretty_structs=False)
        except gdb.error:
            pass
        return "<%s: %s>" % (f.type, data.hex(" ", 4))

    def text(self, record, f, x, place):
        length = number(x + f.companion, f.companion_width)
        storage = number(place, 8)
        if storage == 0:
            return '""' if length == 0 else "<no storage for %d characters>" % length
        return quoted(read(storage, min(length, self.limit)), length > self.limit)

    def characters(self, record, f, x, place):
        return quoted(read(place, f.capacity).split(b"\0")[0], False)

    def numbers(self, f, data):
        width = f.width
        values = [int.from_bytes(data[i:i + width], "little") for i in range(0, len(data), width)]
        return ["%d %s" % (v, "'%c'" % v if 0x20 <= v < 0x7F else "'\\%03o'" % v) if f.type == "char" else str(v)
                for v in values]

    def records_until_fault(self, name, addresses):
        items = []
        for address in addresses:
            items.append(self.guarded(self.record, name, address))
            if not isinstance(items[-1], Group):
                break
        return items

    def sequence(self, f, storage, count):
        shown = min(count, self.limit)
        items = []
        if f.type in RECORDS:
            size = RECORDS[f.type].size
            items = self.records_until_fault(f.type, (storage + i * size for i in range(shown)))
            shown = len(items)
        else:
            for value, same in itertools.groupby(self.numbers(f, read(storage, shown * f.width))):
                n = len(list(same))
                items += ["%s <repeats %d times>" % (value, n)] if n > self.repeats else [value] * n
        if shown < count:
            items.append("...")
        return Group("[%d]" % count, [(None, item) for item in items])

    def array(self, record, f, x, place):
        count = number(x + f.companion, f.companion_width)
        storage = number(place, 8)
        if storage == 0 and count != 0:
            return "<no storage for %d elements>" % count
        return self.sequence(f, storage, count)

    def run(self, record, f, x, place):
        return self.sequence(f, place, f.capacity)

    def embedded(self, record, f, x, place):
        return self.record(f.type, place)

    def arm(self, record, f, x, place):
        held = number(place, 8)
        if number(x + record.fields[0].offset + HEADER_LENGTH, 4) == f.tag:
            return self.record(f.type, held) if held else "<empty>"
        return "<not selected, at %#x>" % held if held else None

    def list(self, record, f, x, place):
        def elements():
            element = number(place, 8)
            while element not in (0, place):
                yield element
                element = number(element + RECORDS[f.type].links + NEXT_LINK, 8)

        items = self.records_until_fault(f.type, itertools.islice(elements(), self.limit))
        if len(items) == self.limit:
            items.append("...")
        return Group("[%d]" % number(place + LIST_COUNT, 4), [(None, item) for item in items])


class InstancePrinter:
    def __init__(self, name, address):
        self.name, self.address = name, address

    def to_string(self):
        try:
            view = View()
            shown = view.guarded(view.instance, self.name, self.address)
            return shown.text(gdb.parameter("print pretty")) if isinstance(shown, Group) else shown
        except Exception as error:  # gdb would show a printer's failure instead of everything else
            return "<%s cannot be shown: %s>" % (self.name, error)


class Printers(gdb.printing.PrettyPrinter):
    def __init__(self):
        super().__init__("orlan_epm")

    def __call__(self, value):
        type = value.type.strip_typedefs()
        if type.code != gdb.TYPE_CODE_STRUCT or value.address is None:
            return None
        name = type.tag
        if name == "zur_instance":
            try:
                name = own_type(number(int(value.address), 8))
            except Fault:
                return None
        if name not in RECORDS and name not in ENUMS:
            return None
        return InstancePrinter(name, int(value.address))
