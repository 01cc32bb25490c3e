// A library file as a tool sees it, by libelf: its sections with their bytes, and its dynamic symbols.
#pragma once

#include <gtest/gtest.h>

#include <fcntl.h>
#include <gelf.h>
#include <unistd.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace epm::test {

class ElfFile {
public:
    struct Section {
        GElf_Shdr header;
        std::string bytes;
        bool is_loaded() const { return (header.sh_flags & SHF_ALLOC) != 0; }
        bool is_writable() const { return (header.sh_flags & SHF_WRITE) != 0; }
    };

    explicit ElfFile(const std::string& path) {
        elf_version(EV_CURRENT);
        const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        Elf* elf = elf_begin(file, ELF_C_READ, nullptr);
        std::size_t names = 0;
        EXPECT_EQ(elf_getshdrstrndx(elf, &names), 0) << path;
        for (Elf_Scn* scn = nullptr; (scn = elf_nextscn(elf, scn)) != nullptr;) read(elf, scn, names);
        elf_end(elf);
        close(file);
    }

    /// The section of this name; its bytes are empty when there is none.
    const Section& section(const std::string& name) { return sections_[name]; }
    /// The names of all sections that begin so.
    std::vector<std::string> sections_named(const std::string& start) const {
        std::vector<std::string> found;
        for (const auto& [name, s] : sections_)
            if (name.starts_with(start)) found.push_back(name);
        return found;
    }
    const std::map<std::string, Section>& sections() const { return sections_; }
    const std::set<std::string>& exported() const { return exported_; }
    /// What another library must supply; those marked weak may be missing.
    const std::set<std::string>& imported() const { return imported_; }
    const std::set<std::string>& imported_weakly() const { return weak_; }

private:
    void read(Elf* elf, Elf_Scn* scn, std::size_t names) {
        Section s{};
        gelf_getshdr(scn, &s.header);
        Elf_Data* data = elf_rawdata(scn, nullptr);
        if (s.header.sh_type != SHT_NOBITS && data != nullptr && data->d_buf != nullptr)
            s.bytes.assign(static_cast<const char*>(data->d_buf), data->d_size);
        if (s.header.sh_type == SHT_DYNSYM) read_symbols(elf, scn, s);
        const char* name = elf_strptr(elf, names, s.header.sh_name);
        sections_.emplace(name != nullptr ? name : "", std::move(s));
    }

    void read_symbols(Elf* elf, Elf_Scn* scn, const Section& s) {
        Elf_Data* data = elf_getdata(scn, nullptr);
        for (std::size_t i = 1; i < s.header.sh_size / s.header.sh_entsize; ++i) {
            GElf_Sym symbol;
            gelf_getsym(data, static_cast<int>(i), &symbol);
            const std::string name = elf_strptr(elf, s.header.sh_link, symbol.st_name);
            const int binding = GELF_ST_BIND(symbol.st_info);
            if (symbol.st_shndx == SHN_UNDEF)
                (binding == STB_WEAK ? weak_ : imported_).insert(name);
            else if (binding != STB_LOCAL && GELF_ST_TYPE(symbol.st_info) != STT_SECTION &&
                     symbol.st_shndx != SHN_ABS) // an absolute symbol is the version's own
                exported_.insert(name);
        }
    }

    std::map<std::string, Section> sections_;
    std::set<std::string> exported_;
    std::set<std::string> imported_;
    std::set<std::string> weak_;
};

} // namespace epm::test
