// The library as the loader and the linker see it: what it exports and imports, and what loading and unloading it do to
// the runtime's list of modules. The test program is linked with the runtime alone and loads the Bundle itself.
#include "support/elf_file.hpp"

#include <zur/runtime.h>

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>

namespace {

using epm::test::ElfFile;

/// The names behind a word in a list of exports.
std::set<std::string> listed(const std::string& path, std::initializer_list<std::string> words) {
    std::set<std::string> names;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        std::istringstream in(line);
        std::string word, name;
        in >> word >> name;
        if (std::ranges::find(words, word) != words.end()) names.insert(name);
    }
    return names;
}

std::string contents(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

const std::string kept = EPM_SOURCE_DIR "/tests/expected/exports.txt";
const std::string stamped = EPM_STAMPED_DIR "/exports.txt";

TEST(Library, ExportsWhatIsKeptInTheList) {
    const ElfFile file(EPM_LIBRARY_FILE);
    EXPECT_EQ(file.exported(), listed(kept, {"data", "function"}));
    EXPECT_EQ(listed(kept, {"function"}).size(), 3274u);
    EXPECT_EQ(listed(kept, {"data"}).size(), 61u);
    EXPECT_EQ(contents(stamped), contents(kept));
}

// Everything that another runtime would have to supply is declared in the contract's headers.
TEST(Library, ImportsOnlyTheContract) {
    const ElfFile file(EPM_LIBRARY_FILE);
    const std::set<std::string> of_the_platform = {"abort",    "memcmp",   "memcpy", "memset",
                                                   "snprintf", "strerror", "strncpy"};
    std::set<std::string> declared;
    for (const char* header : {"zur/runtime.h", "zur/foreign.h"}) {
        const std::string text = contents(std::string(EPM_SOURCE_DIR "/include/") + header);
        ASSERT_NE(text, "");
        std::string word;
        for (const char c : text)
            if (std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_')
                word += c;
            else if (!word.empty())
                declared.insert(std::exchange(word, {}));
    }
    // Operations of foreign types are declared by macros: a type that the header names, and an operation of its kind.
    const auto is_declared = [&](const std::string& name) {
        if (declared.contains(name)) return true;
        for (std::size_t at = name.find('_', 1); at != std::string::npos; at = name.find('_', at + 1)) {
            const std::string type = name.substr(name[0] == '_', at - (name[0] == '_'));
            if (declared.contains(type) && declared.contains(name.substr(at))) return true;
        }
        return false;
    };
    for (const std::string& name : file.imported())
        EXPECT_TRUE(of_the_platform.contains(name) || is_declared(name)) << name;
    for (const std::string& name : file.imported_weakly()) EXPECT_TRUE(name.ends_with("_run")) << name;
    EXPECT_GT(file.imported().size(), 200u);
    EXPECT_EQ(file.imported_weakly().size(), 6u);
}

// ---- the module node ----

const zur_module_node* node_of(const char* name) {
    const zur_module_node* node = zur_module_tot_root.first;
    while (node != nullptr && std::strcmp(node->name, name) != 0) node = node->next;
    return node;
}

void expect_sound_list(std::uint32_t count) {
    zur_module_node* const* link = &zur_module_tot_root.first;
    std::uint32_t n = 0;
    for (; *link != nullptr; link = &(*link)->next, ++n) EXPECT_EQ((*link)->prev_link, link);
    EXPECT_EQ(zur_module_tot_root.last_link, link);
    EXPECT_EQ(zur_module_tot_root.count, count);
    EXPECT_EQ(n, count);
}

void link_at_end(zur_module_node& node) {
    node.prev_link = zur_module_tot_root.last_link;
    *zur_module_tot_root.last_link = &node;
    zur_module_tot_root.last_link = &node.next;
    ++zur_module_tot_root.count;
}

void unlink(zur_module_node& node) {
    (node.next != nullptr ? node.next->prev_link : zur_module_tot_root.last_link) = node.prev_link;
    *node.prev_link = node.next;
    --zur_module_tot_root.count;
}

/// Runs the library's constructors or destructors once more.
void run_again(void* library, ElfW(Sxword) table, ElfW(Sxword) size) {
    link_map* map = nullptr;
    ASSERT_EQ(dlinfo(library, RTLD_DI_LINKMAP, &map), 0);
    ElfW(Addr) start = 0;
    std::size_t length = 0;
    for (const ElfW(Dyn)* d = map->l_ld; d->d_tag != DT_NULL; ++d) {
        if (d->d_tag == table) start = map->l_addr + d->d_un.d_ptr;
        if (d->d_tag == size) length = d->d_un.d_val;
    }
    ASSERT_NE(length, 0u);
    for (std::size_t i = 0; i < length / sizeof(void*); ++i) reinterpret_cast<void (**)()>(start)[i]();
}

TEST(Library, IsInTheListOfModulesWhileItIsLoaded) {
    // Nothing else in the process is a Bundle with a node, so the list begins and ends with ours.
    expect_sound_list(0);
    zur_module_node before{}, behind{};
    for (const bool has_before : {false, true}) {
        for (const bool has_behind : {false, true}) {
            const std::uint32_t others = (has_before ? 1u : 0u) + (has_behind ? 1u : 0u);
            if (has_before) link_at_end(before = {"before", nullptr, nullptr, nullptr});
            void* library = dlopen(EPM_LIBRARY_FILE, RTLD_NOW);
            ASSERT_NE(library, nullptr) << dlerror();
            if (has_behind) link_at_end(behind = {"behind", nullptr, nullptr, nullptr});
            expect_sound_list(others + 1);
            const zur_module_node* node = node_of("orlan_epm");
            ASSERT_NE(node, nullptr);
            EXPECT_STREQ(node->types[0]->name, "orlan_ial_svm_acl_data");

            run_again(library, DT_INIT_ARRAY, DT_INIT_ARRAYSZ); // linked once
            expect_sound_list(others + 1);
            EXPECT_EQ(dlclose(library), 0);
            EXPECT_EQ(dlopen(EPM_LIBRARY_FILE, RTLD_NOW | RTLD_NOLOAD), nullptr) << "the library stays loaded";
            expect_sound_list(others);
            EXPECT_EQ(node_of("orlan_epm"), nullptr);
            if (has_before) unlink(before);
            if (has_behind) unlink(behind);
            expect_sound_list(0);
        }
    }
}

TEST(Library, UnlinkedNodeIsLeftAlone) {
    void* library = dlopen(EPM_LIBRARY_FILE, RTLD_NOW);
    ASSERT_NE(library, nullptr) << dlerror();
    expect_sound_list(1);
    for (int time = 0; time < 2; ++time) {
        run_again(library, DT_FINI_ARRAY, DT_FINI_ARRAYSZ);
        expect_sound_list(0);
    }
    run_again(library, DT_INIT_ARRAY, DT_INIT_ARRAYSZ); // it has been linked once, and is not again
    expect_sound_list(0);
    EXPECT_EQ(dlclose(library), 0);
    expect_sound_list(0);
}

} // namespace
