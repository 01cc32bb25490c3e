// Runs the tool orlan-epm on arbitrary files. The first byte chooses the input: a message, a document, a dump, a
// library file, or the content of its sections, for which a library file is made here. The second byte chooses the
// type. The tool's report must have no gap and, as JSON, be well-formed. What the tool's own walk accepts, the library
// must accept. A message made from a document without a loss must read back. The seeds are the images of the tests'
// golden corpus and small library files.
#include "fuzz/target.hpp"
#include "tool/annotate.hpp"
#include "tool/failure.hpp"
#include "tool/hex_dump.hpp"
#include "tool/manifest.hpp"
#include "tool/message.hpp"
#include "tool/traces.hpp"
#include "tool/walk.hpp"

#include <bzlib.h>
#include <nlohmann/json.hpp>

#include <cstring>
#include <elf.h>
#include <sstream>

namespace {

using namespace epm::tool;
using epm::fuzz::demand;
namespace test = epm::test;

enum Subject : std::uint8_t {
    a_message,
    a_document,
    a_library,
    a_manifest,
    a_trace_table,
    packed_texts,
    a_dump,
    subjects
};

std::string packed(std::string_view text) {
    std::string stream(text.size() + text.size() / 100 + 600, 0);
    auto length = static_cast<unsigned>(stream.size());
    BZ2_bzBuffToBuffCompress(stream.data(), &length, const_cast<char*>(text.data()), static_cast<unsigned>(text.size()),
                             1, 0, 0);
    stream.resize(length);
    return stream;
}

struct Section {
    std::string name, bytes;
};

/// A library file of nothing but a few sections.
std::string small_library(std::vector<Section> sections) {
    std::string names(1, '\0'), contents;
    sections.insert(sections.begin(), Section{});
    sections.push_back({".shstrtab", {}});
    std::vector<Elf64_Shdr> table(sections.size());
    Elf64_Ehdr header{};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS64;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_version = header.e_ident[EI_VERSION] = EV_CURRENT;
    header.e_type = ET_DYN;
    header.e_machine = EM_X86_64;
    header.e_shoff = header.e_ehsize = sizeof header;
    header.e_shentsize = sizeof table[0];
    header.e_shnum = static_cast<std::uint16_t>(table.size());
    header.e_shstrndx = static_cast<std::uint16_t>(table.size() - 1);
    for (std::size_t i = 1; i < table.size(); ++i) {
        table[i].sh_name = static_cast<std::uint32_t>(names.size());
        names += sections[i].name + '\0';
        const std::string& bytes = i == header.e_shstrndx ? names : sections[i].bytes;
        table[i].sh_type = i == header.e_shstrndx ? SHT_STRTAB : SHT_PROGBITS;
        table[i].sh_offset = sizeof header + table.size() * sizeof table[0] + contents.size();
        table[i].sh_size = bytes.size();
        table[i].sh_addralign = 1;
        contents += bytes;
    }
    return std::string(reinterpret_cast<const char*>(&header), sizeof header) +
           std::string(reinterpret_cast<const char*>(table.data()), table.size() * sizeof table[0]) + contents;
}

/// The first half of the bytes is the table. Its digest is part of the section's name.
std::string library_with_traces(std::string_view data, bool is_packed) {
    const std::string_view table = data.substr(0, data.size() / 2), texts = data.substr(data.size() / 2);
    const std::string_view digest = table.substr(std::min<std::size_t>(4, table.size()), 16);
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(digest.data());
    return small_library({{".quelog_luids_" + to_hex(ByteView(bytes, digest.size())), std::string(table)},
                          {".quelog_format_strings", is_packed ? std::string(texts) : packed(texts)}});
}

/// Runs something that may refuse. Returns false when it does.
template <class Body>
bool accepts(Body body) {
    try {
        return body(), true;
    } catch (const Damage&) {
        return false;
    } catch (const Failure&) {
        return false;
    }
}

/// A message made from a document without a loss reads back as a document that gives the same message.
void look_into_document(const Type& type, const std::string& xml, bool is_decoded) {
    Encoded made, again;
    if (!accepts([&] { made = encode(type, xml, {}, true); })) return;
    const bool has_nul = xml.find("\\00") != xml.npos; // a NUL ends a text
    demand(!is_decoded || has_nul || made.losses.empty(), "nothing of a decoded document is lost");
    if (!made.losses.empty()) return;
    again = encode(type, decode(type, made.message, TextForm::xml, {}), {});
    demand(again.losses.empty() && again.message == made.message, "a document is carried whole");
}

void look_into_message(const Type& type, ByteView message) {
    std::size_t told_to = 0;
    const bool is_sound = accepts([&] {
        walk(type, message, [&](const Part& part) {
            demand(part.offset == told_to, "parts are without a gap");
            told_to += part.length;
        });
    });
    demand(is_sound ? told_to == message.size() : told_to <= message.size(), "all bytes are told of");
    std::ostringstream text, json;
    accepts([&] { annotate(type, message, false, text); });
    accepts([&] { annotate(type, message, true, json); });
    demand(nlohmann::json::accept(json.str()), "JSON is sound");
    demand(is_sound == accepts([&] { decode(type, message, TextForm::print, {}); }), "tool and library agree");
    std::string xml;
    if (accepts([&] { xml = decode(type, message, TextForm::xml, {}); })) look_into_document(type, xml, true);
}

void look_into_library(std::string_view content) {
    const ByteView file(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
    for (const bool is_json : {false, true}) {
        std::ostringstream manifest, traces, one;
        const bool has_manifest = accepts([&] { show_manifest(file, is_json, manifest); });
        accepts([&] { show_traces(file, {}, is_json, traces); });
        accepts([&] { show_traces(file, 1, is_json, one); });
        demand(!has_manifest || !manifest.str().empty(), "a manifest is shown");
        for (const std::ostringstream* out : {&manifest, &traces, &one})
            demand(!is_json || nlohmann::json::accept(out->str()), "JSON is sound");
    }
}

} // namespace

void epm::fuzz::write_seeds(const Seeds& write) {
    const auto seed = [&](Subject subject, std::size_t type, std::string_view bytes) {
        const char start[] = {static_cast<char>(subject), static_cast<char>(type)};
        write(std::string(start, 2) += bytes);
    };
    for (std::size_t t = 0; t < all_types().size(); ++t)
        for (const test::Image& image : test::images_of(all_types()[t].name)) {
            seed(a_message, t, as_text(image.bytes));
            seed(a_document, t, decode(all_types()[t], image.bytes, TextForm::xml, {}));
        }
    const std::string line = std::string(32, 'a') + ":" + std::string(32, '0') + "type002:00080N\n";
    // 19 bytes of title, 80 of line and a NUL; the build record has 11 bytes, and one of padding.
    std::string manifest = std::string("\x64\0\0\0\2\0\0\0", 8) + "# orlan_epm.tallyo\n" + line + '\0';
    manifest += std::string("\x0b\0\0\0\1\0\0\0orlan_epm\n\0\0", 20);
    std::string traces("\1\0\0\0", 4);
    traces += std::string(16, '\7') + std::string("\1\0\0\0\x06\0\2\0\0\0\x07\0", 12) + " one %s two %u";
    traces.resize(64, ' ');
    seed(a_library, 0, library_with_traces(traces, false));
    seed(a_library, 0, small_library({{".corbe", manifest}}));
    seed(a_manifest, 0, manifest);
    seed(a_trace_table, 0, traces);
    seed(packed_texts, 0, traces);
    seed(a_dump, 0, "00000000: 0100  ..\n00000002: 41    A\n*\n00000004: 00    .\n");
    seed(a_dump, 0, "00000000  01 00 |..|\n*\n00000004  41 |A|\n00000005\n");
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const Type& type = all_types()[data[1] % all_types().size()];
    const ByteView bytes(data + 2, size - 2);
    switch (data[0] % subjects) {
    case a_message: look_into_message(type, bytes); break;
    case a_document: look_into_document(type, std::string(as_text(bytes)), false); break;
    case a_dump:
        accepts([&] { from_hex(as_text(bytes)); });
        demand(from_hex(to_hex(bytes)) == Bytes(bytes.begin(), bytes.end()), "digits are their bytes");
        break;
    case a_library: look_into_library(as_text(bytes)); break;
    case a_manifest: look_into_library(small_library({{".corbe", std::string(as_text(bytes))}})); break;
    case a_trace_table: look_into_library(library_with_traces(as_text(bytes), false)); break;
    case packed_texts: look_into_library(library_with_traces(as_text(bytes), true)); break;
    }
    return 0;
}
