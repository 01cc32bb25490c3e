// A library file of nothing but a few sections, for what reads library files that come from anybody.
#pragma once

#include <cstring>
#include <elf.h>
#include <string>
#include <vector>

namespace epm::test {

struct SmallSection {
    std::string name, bytes;
};

inline std::string small_library(std::vector<SmallSection> sections) {
    std::string names(1, '\0'), contents;
    sections.insert(sections.begin(), SmallSection{});
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

} // namespace epm::test
