// The tables for Wireshark's dissector, as Lua: enumerators by number, fields with how they are written.
// wireshark/dissector.lua uses them.
#include "stamp/file.hpp"
#include "stamp/outputs.hpp"
#include "stamp/words.hpp"

#include <iomanip>
#include <sstream>

namespace epm::stamp {

namespace {

/// How the wire has the field's value, or that of an element.
const char* framing_of(const Field& f) {
    if (f.is_own_enum()) return "enumeration";
    if (f.is_of_record()) return "record";
    if (f.kind == Kind::text || f.kind == Kind::characters) return "text";
    if (f.kind == Kind::run) return "bytes";
    return catalogue::framing_name(f.foreign->framing);
}

void write_field(std::ostream& out, const Field& f) {
    const std::string_view framing = framing_of(f);
    out << "        { name = \"" << f.name << "\", kind = \"" << catalogue::kind_name(f.kind) << "\", framing = \""
        << framing << "\", type = \"" << f.type_name() << "\", since = " << int{f.since};
    if (framing == "number") out << ", width = " << int{f.foreign->wire_length};
    if (f.companion != nullptr) out << ", companion = \"" << f.companion << "\"";
    if (f.capacity != 0) out << ", capacity = " << f.capacity;
    if (f.kind == Kind::arm) out << ", tag = " << f.tag;
    out << ",\n          doc = " << std::quoted(f.doc) << " },\n";
}

} // namespace

void write_wireshark_tables(const std::filesystem::path& folder) {
    std::ostringstream out;
    out << "-- Messages of orlan_epm in Wireshark: first what the types are, then the dissector.\nlocal ENUMS = {\n";
    for (const Enum* e : catalogue::all_enums) {
        out << "    { name = \"" << e->name << "\", doc = " << std::quoted(e->doc) << ", names = {\n";
        for (std::size_t i = 0; i < e->count; ++i)
            out << "        [" << i << "] = \"" << e->enumerators[i].name << "\",\n";
        out << "    } },\n";
    }
    out << "}\nlocal RECORDS = {\n";
    for (const Record* r : catalogue::all_records) {
        out << "    { name = \"" << r->name << "\", top = " << int{r->top()} << ", doc = " << std::quoted(r->doc)
            << ", fields = {\n";
        for (std::size_t i = 0; i < r->count; ++i) write_field(out, r->fields[i]);
        out << "    } },\n";
    }
    out << "}\n\n";
    write_file(folder / "wireshark_tables.lua", out.str());
}

} // namespace epm::stamp
