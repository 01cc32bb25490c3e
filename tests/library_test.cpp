// What loading and unloading the library does to the runtime's list of modules. The test program is linked with the
// runtime alone and loads the Bundle itself.
#include <zur/runtime.h>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>

#include <string>
#include <vector>

namespace {

using Names = std::vector<std::string>;

/// The names in the list, which must be sound.
Names modules() {
    Names names;
    zur_module_node* const* link = &zur_module_tot_root.first;
    for (; *link != nullptr; link = &(*link)->next) {
        EXPECT_EQ((*link)->prev_link, link);
        names.emplace_back((*link)->name);
    }
    EXPECT_EQ(zur_module_tot_root.last_link, link);
    EXPECT_EQ(zur_module_tot_root.count, names.size());
    return names;
}

/// Another module's node, while it is there.
class Neighbour {
public:
    explicit Neighbour(const char* name) : node_{name, nullptr, nullptr, zur_module_tot_root.last_link} {
        *zur_module_tot_root.last_link = &node_;
        zur_module_tot_root.last_link = &node_.next;
        ++zur_module_tot_root.count;
    }
    ~Neighbour() {
        (node_.next != nullptr ? node_.next->prev_link : zur_module_tot_root.last_link) = node_.prev_link;
        *node_.prev_link = node_.next;
        --zur_module_tot_root.count;
    }
    Neighbour(const Neighbour&) = delete;
    Neighbour& operator=(const Neighbour&) = delete;

private:
    zur_module_node node_;
};

void* load() {
    void* library = dlopen(EPM_LIBRARY_FILE, RTLD_NOW);
    EXPECT_NE(library, nullptr) << dlerror();
    return library;
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

// Nothing else in the process is a Bundle with a node.
TEST(Library, IsInTheListOfModulesWhileItIsLoaded) {
    const Neighbour before("before");
    void* library = load();
    const Neighbour behind("behind");
    const Names all = {"before", "orlan_epm", "behind"};
    EXPECT_EQ(modules(), all);
    run_again(library, DT_INIT_ARRAY, DT_INIT_ARRAYSZ); // linked once
    EXPECT_EQ(modules(), all);
    EXPECT_EQ(dlclose(library), 0);
    EXPECT_EQ(dlopen(EPM_LIBRARY_FILE, RTLD_NOW | RTLD_NOLOAD), nullptr) << "the library stays loaded";
    EXPECT_EQ(modules(), (Names{"before", "behind"}));
}

TEST(Library, UnlinkedNodeIsLeftAlone) {
    void* library = load();
    EXPECT_STREQ(zur_module_tot_root.first->types[0]->name, "orlan_ial_svm_acl_data");
    // Once unlinked it is not linked again.
    run_again(library, DT_FINI_ARRAY, DT_FINI_ARRAYSZ);
    EXPECT_EQ(modules(), Names());
    run_again(library, DT_FINI_ARRAY, DT_FINI_ARRAYSZ);
    EXPECT_EQ(modules(), Names());
    run_again(library, DT_INIT_ARRAY, DT_INIT_ARRAYSZ);
    EXPECT_EQ(modules(), Names());
    EXPECT_EQ(dlclose(library), 0);
    EXPECT_EQ(modules(), Names());
}

} // namespace
