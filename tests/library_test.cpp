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

// Nothing else in the process is a Bundle with a node. It is linked and unlinked once, however often that is asked for.
TEST(Library, IsInTheListOfModulesWhileItIsLoaded) {
    void* library = dlopen(EPM_LIBRARY_FILE, RTLD_NOW);
    ASSERT_NE(library, nullptr) << dlerror();
    EXPECT_EQ(modules(), Names{"orlan_epm"});
    EXPECT_STREQ(zur_module_tot_root.first->types[0]->name, "orlan_ial_svm_acl_data");
    zur_module_node behind = {"behind", nullptr, nullptr, zur_module_tot_root.last_link};
    *zur_module_tot_root.last_link = &behind;
    zur_module_tot_root.last_link = &behind.next;
    ++zur_module_tot_root.count;
    run_again(library, DT_INIT_ARRAY, DT_INIT_ARRAYSZ);
    EXPECT_EQ(modules(), (Names{"orlan_epm", "behind"}));
    for (int i = 0; i < 2; ++i) {
        run_again(library, DT_FINI_ARRAY, DT_FINI_ARRAYSZ);
        EXPECT_EQ(modules(), Names{"behind"});
    }
    run_again(library, DT_INIT_ARRAY, DT_INIT_ARRAYSZ);
    EXPECT_EQ(dlclose(library), 0);
    EXPECT_EQ(modules(), Names{"behind"});
    EXPECT_EQ(dlopen(EPM_LIBRARY_FILE, RTLD_NOW | RTLD_NOLOAD), nullptr) << "the library stays loaded";
}

} // namespace
