// Reads the section table by hand, because the tool must say where a damaged file is damaged.
#include "tool/library_file.hpp"

#include "tool/failure.hpp"

#include <elf.h>

#include <cstring>

namespace epm::tool {

namespace {

constexpr std::size_t longest_name = 64;

/// The bytes at a place that the file itself names.
ByteView range(ByteView file, std::uint64_t offset, std::uint64_t length, std::size_t named_at, const char* what) {
    if (offset > file.size() || length > file.size() - offset)
        throw Damage{named_at, std::string(what) + " lies outside the file"};
    return file.subspan(static_cast<std::size_t>(offset), static_cast<std::size_t>(length));
}

Elf64_Shdr header_at(ByteView table, std::size_t index) {
    Elf64_Shdr header;
    std::memcpy(&header, table.data() + index * sizeof header, sizeof header);
    return header;
}

} // namespace

Section section_named(ByteView file, std::string_view name, Match match) {
    Elf64_Ehdr header;
    if (file.size() < sizeof header || std::memcmp(file.data(), ELFMAG, SELFMAG) != 0 || file[EI_CLASS] != ELFCLASS64 ||
        file[EI_DATA] != ELFDATA2LSB)
        throw Failure{is_damaged, "not a 64-bit little-endian ELF file"};
    std::memcpy(&header, file.data(), sizeof header);
    constexpr std::size_t table_named_at = offsetof(Elf64_Ehdr, e_shoff);
    constexpr std::size_t width = sizeof(Elf64_Shdr);
    if (header.e_shentsize != width)
        throw Damage{offsetof(Elf64_Ehdr, e_shentsize), "not the size of a section header"};
    // Numbers that are too large for the file's header are in the first section's header.
    const Elf64_Shdr first = header_at(range(file, header.e_shoff, width, table_named_at, "the section table"), 0);
    const std::uint64_t count = header.e_shnum != 0 ? header.e_shnum : first.sh_size;
    if (count > file.size() / width) throw Damage{table_named_at, "the section table lies outside the file"};
    const ByteView table = range(file, header.e_shoff, count * width, table_named_at, "the section table");
    const auto place = [&](std::size_t index) { return static_cast<std::size_t>(header.e_shoff) + index * width; };
    const std::uint32_t names_index = header.e_shstrndx != SHN_XINDEX ? header.e_shstrndx : first.sh_link;
    if (names_index >= count) throw Damage{offsetof(Elf64_Ehdr, e_shstrndx), "not the number of a section"};
    const Elf64_Shdr names_header = header_at(table, names_index);
    const ByteView names = range(file, names_header.sh_offset, names_header.sh_size, place(names_index), "a section");

    for (std::size_t i = 0; i < count; ++i) {
        const Elf64_Shdr section = header_at(table, i);
        if (section.sh_name >= names.size() || section.sh_type == SHT_NOBITS) continue;
        const std::string_view from_start = as_text(names.subspan(section.sh_name)).substr(0, longest_name);
        const std::string_view own_name = from_start.substr(0, from_start.find('\0'));
        if (match == Match::whole ? own_name != name : !own_name.starts_with(name)) continue;
        const ByteView bytes = range(file, section.sh_offset, section.sh_size, place(i), "a section");
        return {own_name, static_cast<std::size_t>(section.sh_offset), bytes};
    }
    throw Failure{is_damaged, "no section " + std::string(name)};
}

std::uint32_t little_endian(ByteView bytes, std::size_t at, std::size_t width) {
    std::uint32_t number = 0;
    for (std::size_t i = width; i-- > 0;) number = number << 8 | bytes[at + i];
    return number;
}

} // namespace epm::tool
