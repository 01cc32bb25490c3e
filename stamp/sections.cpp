// The sections of the library file that tools read: the trace catalogue, the type compatibility manifest, and the
// description as data. They are written as assembler source, because only the trace catalogue's identifiers may be
// loaded.
#include "stamp/file.hpp"
#include "stamp/outputs.hpp"
#include "stamp/trace_messages.hpp"
#include "stamp/words.hpp"

#include "catalogue/hex.hpp"

#include <bzlib.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <vector>

namespace epm::stamp {

namespace {

Bytes compressed(const std::string& text) {
    Bytes out(text.size() + text.size() / 100 + 600);
    auto length = static_cast<unsigned>(out.size());
    const int result =
        BZ2_bzBuffToBuffCompress(reinterpret_cast<char*>(out.data()), &length, const_cast<char*>(text.data()),
                                 static_cast<unsigned>(text.size()), 9, 0, 0);
    if (result != BZ_OK) {
        std::fprintf(stderr, "stamp: bzip2 fails with %d\n", result);
        std::exit(1);
    }
    out.resize(length);
    return out;
}

/// A section of bytes in assembler source.
void put_bytes(std::ostream& out, const Bytes& bytes) {
    for (std::size_t i = 0; i < bytes.size(); ++i)
        out << (i % 16 == 0 ? "    .byte " : ", ") << static_cast<int>(bytes[i])
            << (i % 16 == 15 || i + 1 == bytes.size() ? "\n" : "");
}

void begin_unloaded(std::ostream& out, const char* name) {
    out << "\n    .section " << name << ",\"\",@progbits\n";
}

/// No executable stack and, as <cet.h> marks the file, no indirect jump to anything but a landing pad.
void end_assembly(std::ostream& out) {
    out << "\n    .section .note.GNU-stack,\"\",@progbits\n"
        << "#ifdef __CET__\n#include <cet.h>\n#endif\n";
}

// ---- the manifest ----

std::string padded(std::size_t number, int width) {
    char text[16];
    std::snprintf(text, sizeof text, "%0*zu", width, number);
    return text;
}

template <class Type>
std::string manifest_line(const Type& t, const char* kind, std::size_t used_length) {
    return std::string(t.digests.identity) + ":" + t.digests.compatibility + kind +
           padded(static_cast<std::size_t>(t.top()), 3) + ":" + padded(catalogue::round_up(used_length, 8), 5) + "N\n";
}

std::string manifest() {
    std::vector<std::pair<std::string, std::string>> lines;
    for (const Record* r : catalogue::all_records)
        lines.emplace_back(r->name, manifest_line(*r, "type", catalogue::lay_out(*r).used[r->variants() - 1]));
    for (const Enum* e : catalogue::all_enums)
        lines.emplace_back(e->name, manifest_line(*e, "enum", catalogue::enum_length));
    std::ranges::sort(lines);
    std::string text = "# orlan_epm.tallyo\n";
    for (const auto& [name, line] : lines) text += line;
    return text;
}

/// A record of the section: length, kind, the text with its NUL, and padding to a multiple of 4.
void put_record(Bytes& section, std::uint32_t kind, const std::string& text) {
    const auto length = static_cast<std::uint32_t>(text.size() + 1);
    for (const std::uint32_t word : {length, kind})
        for (int i = 0; i < 4; ++i) section.push_back(static_cast<unsigned char>(word >> 8 * i));
    section.insert(section.end(), text.begin(), text.end());
    section.push_back(0);
    section.resize(catalogue::round_up(section.size(), 4));
}

} // namespace

void write_trace_catalogue(const std::filesystem::path& folder) {
    const std::vector<TraceMessage> messages = trace_messages();
    const Bytes digest = digest_of(messages);
    std::ostringstream out;
    out << "    .section .quelog_luids_" << catalogue::to_hex(digest) << ",\"a\",@progbits\n"
        << "    .balign 4\n    .globl epm_trace_catalogue\n    .hidden epm_trace_catalogue\n"
        << "    .type epm_trace_catalogue, @object\nepm_trace_catalogue:\n    .long 1\n";
    put_bytes(out, digest);
    std::string texts;
    for (const TraceMessage& m : messages) {
        out << "    .long " << m.identifier << "\n    .short " << m.text.size() << "\n";
        texts += m.text;
    }
    out << "    .size epm_trace_catalogue, . - epm_trace_catalogue\n";
    begin_unloaded(out, ".quelog_format_strings");
    put_bytes(out, compressed(texts));
    begin_unloaded(out, ".quelog_decoder");
    put_bytes(out, {1, 3, 4, 1, 1, 3, 4, 4, 4, 4, 4, 4, 4, 5, 4, 1, 2, 4});
    end_assembly(out);
    write_file(folder / "trace_catalogue.S", out.str());
}

void write_description_section(const std::filesystem::path& folder, const std::string& description) {
    std::ostringstream out;
    begin_unloaded(out, ".orlan_epm_description");
    put_bytes(out, compressed(description));
    end_assembly(out);
    write_file(folder / "description.S", out.str());
}

void write_manifest(const std::filesystem::path& folder, const std::string& build_record) {
    Bytes section;
    put_record(section, 2, manifest());
    put_record(section, 1, build_record);
    std::ostringstream out;
    begin_unloaded(out, ".corbe");
    put_bytes(out, section);
    end_assembly(out);
    write_file(folder / "manifest.S", out.str());
}

} // namespace epm::stamp
