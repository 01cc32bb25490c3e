// What a library file itself says: the symbols that it exports and imports, its SONAME, the version node of its
// exports, the digests of its types and traces. The platform finds the sections; all offsets in them are checked here.
#include "tool/compat/description.hpp"

#include "tool/failure.hpp"
#include "tool/library_file.hpp"

#include <cstring>
#include <elf.h>
#include <map>

namespace epm::tool::compat {

namespace {

/// A section that consists of entries of one type.
template <class Entry>
class Entries {
public:
    Entries(ByteView library, const char* name) : section_(section_named(library, name)) {
        if (section_.bytes.size() % sizeof(Entry) != 0)
            throw Damage{section_.offset, std::string(name) + " does not end with an entry"};
    }
    std::size_t size() const { return section_.bytes.size() / sizeof(Entry); }
    Entry operator[](std::size_t i) const {
        Entry entry;
        std::memcpy(&entry, section_.bytes.data() + i * sizeof entry, sizeof entry);
        return entry;
    }
    std::size_t offset(std::size_t i) const { return section_.offset + i * sizeof(Entry); }

private:
    Section section_;
};

/// The names of symbols, libraries and version nodes.
class Strings {
public:
    explicit Strings(ByteView library) : section_(section_named(library, ".dynstr")) {}
    std::string at(std::size_t start, std::size_t named_at) const {
        const std::string_view all = as_text(section_.bytes);
        const std::size_t end = start < all.size() ? all.find('\0', start) : all.npos;
        if (end == all.npos) throw Damage{named_at, "a name lies outside .dynstr"};
        return std::string(all.substr(start, end - start));
    }

private:
    Section section_;
};

/// The version nodes that the library defines, by their index.
std::map<unsigned, std::string> version_nodes(ByteView library, const Strings& strings) {
    std::map<unsigned, std::string> nodes;
    const Section section = section_named(library, ".gnu.version_d");
    const auto take = [&](auto& entry, std::size_t at) {
        if (at > section.bytes.size() || section.bytes.size() - at < sizeof entry)
            throw Damage{section.offset, "an entry lies outside .gnu.version_d"};
        std::memcpy(&entry, section.bytes.data() + at, sizeof entry);
    };
    for (std::size_t at = 0;;) {
        Elf64_Verdef node;
        Elf64_Verdaux name;
        take(node, at);
        take(name, at + node.vd_aux);
        nodes[node.vd_ndx] = strings.at(name.vda_name, section.offset + at + node.vd_aux);
        if (node.vd_next == 0) return nodes;
        at += node.vd_next;
    }
}

struct Symbols {
    std::map<std::string, std::string> functions, data; // name to version node
};

Symbols take_symbols(ByteView library, const Strings& strings, Needs& needs) {
    constexpr unsigned hidden = 0x8000;
    const Entries<Elf64_Sym> symbols(library, ".dynsym");
    const Entries<Elf64_Versym> versions(library, ".gnu.version");
    if (versions.size() != symbols.size()) throw Damage{versions.offset(0), "not one version for each symbol"};
    const std::map<unsigned, std::string> nodes = version_nodes(library, strings);
    Symbols exports;
    for (std::size_t i = 1; i < symbols.size(); ++i) {
        const Elf64_Sym symbol = symbols[i];
        const unsigned binding = ELF64_ST_BIND(symbol.st_info), type = ELF64_ST_TYPE(symbol.st_info);
        const std::string name = strings.at(symbol.st_name, symbols.offset(i));
        if (symbol.st_shndx == SHN_UNDEF) {
            (binding == STB_WEAK ? needs.weak_symbols : needs.symbols).insert(escaped(name));
        } else if (binding != STB_LOCAL && symbol.st_shndx != SHN_ABS) { // which version nodes are
            const auto node = nodes.find(versions[i] & ~hidden);
            (type == STT_FUNC ? exports.functions : exports.data)[name] = node != nodes.end() ? node->second : "";
        }
    }
    return exports;
}

[[noreturn]] void disagree(const std::string& how) {
    throw Failure{is_damaged, "the description is not of this file: " + how};
}

/// The names must be the same, and each export must have the version node.
template <class Names, class NameOf>
void check_exports(const Names& described, NameOf name_of, std::map<std::string, std::string> exported,
                   const std::string& node) {
    for (const auto& one : described) {
        const auto found = exported.find(name_of(one));
        if (found == exported.end()) disagree("it does not export " + name_of(one));
        if (found->second != node)
            disagree("it exports " + name_of(one) + " in another version node than " + escaped(node));
        exported.erase(found);
    }
    if (!exported.empty()) disagree("it also exports " + escaped(exported.begin()->first));
}

} // namespace

void check_against(ByteView library, Description& description) {
    const Strings strings(library);
    Needs needs;
    const Symbols symbols = take_symbols(library, strings, needs);
    check_exports(
        description.functions, [](const Function& f) { return f.name; }, symbols.functions, description.version_node);
    check_exports(
        description.data, [](const std::string& name) { return name; }, symbols.data, description.version_node);

    std::string soname;
    const Entries<Elf64_Dyn> dynamic(library, ".dynamic");
    for (std::size_t i = 0; i < dynamic.size() && dynamic[i].d_tag != DT_NULL; ++i) {
        const auto name = [&] { return strings.at(dynamic[i].d_un.d_val, dynamic.offset(i)); };
        if (dynamic[i].d_tag == DT_SONAME) soname = name();
        if (dynamic[i].d_tag == DT_NEEDED) needs.libraries.insert(escaped(name()));
    }
    if (soname != description.soname) disagree("its SONAME is " + escaped(soname));

    constexpr std::string_view traces = ".quelog_luids_";
    if (section_named(library, traces.data(), Match::start).name.substr(traces.size()) != description.trace_digest)
        disagree("its traces have another digest");
    const std::string_view manifest = as_text(section_named(library, ".corbe").bytes);
    for (const Type& type : description.types)
        if (manifest.find(type.identity + ":" + type.compatibility) == manifest.npos)
            disagree("its manifest has other digests of " + type.name);
    description.needs = std::move(needs);
}

} // namespace epm::tool::compat
