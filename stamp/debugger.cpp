// The tables for gdb's printer of Instances, as Python: enumerators by number, fields with their places.
// debugger/printer.py uses them.
#include "stamp/file.hpp"
#include "stamp/outputs.hpp"
#include "stamp/words.hpp"

#include <sstream>

namespace epm::stamp {

namespace {

void write_field(std::ostream& out, const Record& r, const catalogue::Layout& l, std::size_t i) {
    const Field& f = r.fields[i];
    const std::size_t companion = f.companion != nullptr ? r.index_of(f.companion) : i;
    const int width = f.of == catalogue::Of::foreign ? f.foreign->length : 0;
    const int companion_width = f.companion != nullptr ? r.fields[companion].foreign->length : 0;
    out << "        Field(\"" << f.name << "\", \"" << catalogue::kind_name(f.kind) << "\", \"" << f.type_name()
        << "\", " << l.offset[i] << ", " << int{f.since} << ", " << width << ", " << l.offset[companion] << ", "
        << companion_width << ", " << f.capacity << ", " << f.tag << "),\n";
}

} // namespace

void write_debugger_tables(const std::filesystem::path& folder) {
    std::ostringstream out;
    out << "\nENUMS = {\n";
    for (const Enum* e : catalogue::all_enums) {
        out << "    \"" << e->name << "\": (\n";
        for (std::size_t i = 0; i < e->count; ++i) out << "        \"" << e->enumerators[i].name << "\",\n";
        out << "    ),\n";
    }
    out << "}\n\nRECORDS = {\n";
    for (const Record* r : catalogue::all_records) {
        const catalogue::Layout l = catalogue::lay_out(*r);
        out << "    \"" << r->name << "\": Record(" << int{r->top()} << ", " << l.links << ", " << l.size(*r)
            << ", (\n";
        for (std::size_t i = 0; i < r->count; ++i) write_field(out, *r, l, i);
        out << "    )),\n";
    }
    out << "}\n\ngdb.printing.register_pretty_printer(gdb.current_objfile(), Printers(), replace=True)\n";
    write_file(folder / "debugger_tables.py", out.str());
}

} // namespace epm::stamp
