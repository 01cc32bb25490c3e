// What the Bundle is to its runtime before any Instance exists: the type tables, their copies in a store, the usage
// report. What operations do is in the scenes of calls/.
#include "support/bundle_test.hpp"

#include <zur/runtime.h>

#include <cstdio>
#include <cstring>

namespace epm::test {
namespace {

using Lifecycle = BundleTest;

// The tables, as the runtime finds them through the module node.
TEST_F(Lifecycle, TypeTableHoldsAllTypesInOrder) {
    const zur_module_node* node = zur_module_tot_root.first;
    while (node != nullptr && std::strcmp(node->name, "orlan_epm") != 0) node = node->next;
    ASSERT_NE(node, nullptr);
    const zur_type_info* const* type = node->types;
    for (const TypeNumbers& t : all_types()) {
        SCOPED_TRACE(t.name);
        ASSERT_EQ(*type, t.info);
        const zur_type_info& info = **type++;
        EXPECT_EQ(info.magic, 0xBEEFF00Du);
        EXPECT_EQ(std::string(info.name, sizeof info.name), t.name + std::string(sizeof info.name - t.name.size(), 0));
        EXPECT_STREQ(info.bundle, "orlan_epm");
        EXPECT_STREQ(info.kind, t.is_enum ? "enum" : "type");
        for (std::size_t d = 0; d < sizeof info.digest; ++d)
            EXPECT_EQ(std::stoul(std::string(&info.hex_digest[2 * d], 2), nullptr, 16), info.digest[d]);
        EXPECT_EQ(info.type_index, -1);
        EXPECT_EQ(info.plain_counters, 0u);
        for (std::size_t v = 0; v < t.used.size(); ++v) // their lengths are in the usage report
            EXPECT_EQ(info.variant_table->records[v].index, v);
    }
    EXPECT_EQ(*type, nullptr);
}

// If a copy is refused, those before it stay, and the next call makes the rest and refreshes the others.
TEST_F(Lifecycle, TypesAreCopiedOnceAndThenRefreshed) {
    TestDomain D({.store_mode = 2});
    Recorder recorder(D);
    std::string first, second, refreshed;
    for (std::size_t i = 0; i < all_types().size(); ++i) {
        const std::string& name = all_types()[i].name;
        const std::string look = "type_lookup(S, \"" + name + "\")\n";
        const std::string make = look + "type_alloc(no_set, 288)\ntype_insert(S, \"" + name + "\")\n";
        const std::string update = "zur_update_variant_info(S, copy of " + name + ", " + name;
        first += i < 20 ? make + update + ", 1)\n" : i == 20 ? look + "zur_store_err(12)\n" : "";
        second += i < 20 ? look + update + ", 0)\n" : make + update + ", 1)\n";
        refreshed += look + update + ", 0)\n";
    }
    static auto* const allocate = D->type_alloc_fn;
    static std::size_t allocations = 0;
    D->type_alloc_fn = [](void* type_store, std::uint32_t S, std::size_t size) {
        return ++allocations == 21 ? nullptr : allocate(type_store, S, size);
    };
    for (const auto& [calls, status] : {std::pair{first, 12u}, {second, 0u}, {refreshed, 0u}}) {
        bundle_operation<void(zur_domain*, std::uint32_t, std::uint32_t*)>("orlan_epm_typeinfo_initialize")(
            D, D.set_id(), &D.st);
        EXPECT_EQ(std::exchange(D.st, 0), status);
        EXPECT_EQ(recorder.take(), calls);
    }
    for (const zur_type_info* copy : D.copies()) {
        EXPECT_EQ(copy->plain_counters, 2u);
        EXPECT_EQ(std::memcmp(copy, type_info_of(std::string(copy->name)), offsetof(zur_type_info, variant_table)), 0);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(copy + 1), 16), std::string(16, '\0'));
    }
}

TEST_F(Lifecycle, UsageReportListsVariantsInTableOrder) {
    std::string text;
    for (const TypeNumbers& t : all_types()) {
        text += "n_variants " + std::to_string(t.used.size()) + "\n";
        for (std::size_t v = 0; v < t.used.size(); ++v)
            text += "variant " + std::to_string(v) + " used length " + std::to_string(t.used[v]) + " alloc slop " +
                    std::to_string(t.size - t.used[v]) + "\n";
    }
    testing::internal::CaptureStdout();
    bundle_operation<void(int (*)(const char*, ...))>("orlan_epm_type_variant_dump")(std::printf);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), text);
}

TEST_F(Lifecycle, HandlerIsKnownBeforeDependantsAreTold) {
    static auto* const* const word = static_cast<void**>(dlsym(library(), "orlan_epm_bundle_registered_handler"));
    static void* word_then = nullptr;
    struct Witness : Observer {
        void before_call(const char*, const Arguments&) override { word_then = *word; }
    } witness;
    bundle_operation<void*(void*)>("orlan_epm_bundle_handler_register")(&word_then);
    EXPECT_EQ(word_then, &word_then);
    bundle_operation<void*()>("orlan_epm_bundle_handler_unregister")();
}

} // namespace
} // namespace epm::test
