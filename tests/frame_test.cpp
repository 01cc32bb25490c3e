// What the Bundle is to its runtime before any Instance exists: the type tables, their copies in a store, registration,
// the usage report, and the reference and luid operations that every type has. How the library is loaded and what its
// file holds is tested in library_test.cpp and sections_test.cpp.
#include "support/bundle_test.hpp"
#include "support/calls.hpp"
#include "support/imports.hpp"
#include "support/types.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>

namespace epm::test {
namespace {

const auto& root = zur_module_tot_root;

const zur_module_node* own_node() {
    const zur_module_node* node = root.first;
    while (node != nullptr && std::strcmp(node->name, "orlan_epm") != 0) node = node->next;
    return node;
}

// ---- the tables, as the runtime finds them through the module node ----

TEST(TypeTable, HoldsAllTypesInOrder) {
    const zur_module_node* node = own_node();
    ASSERT_NE(node, nullptr);
    std::size_t i = 0;
    for (; node->types[i] != nullptr; ++i) {
        ASSERT_LT(i, all_types().size());
        const TypeNumbers& t = all_types()[i];
        SCOPED_TRACE(t.name);
        const zur_type_info& info = *node->types[i];
        EXPECT_EQ(&info, type_info_of(t.name));
        EXPECT_EQ(info.magic, 0xBEEFF00Du);
        EXPECT_EQ(info.name, t.name);
        EXPECT_STREQ(info.bundle, "orlan_epm");
        EXPECT_STREQ(info.kind, t.is_enum ? "enum" : "type");
        for (std::size_t d = 0; d < sizeof info.digest; ++d)
            EXPECT_EQ(std::stoul(std::string(&info.hex_digest[2 * d], 2), nullptr, 16), info.digest[d]);
        EXPECT_EQ(info.type_index, -1);
        EXPECT_EQ(info.plain_counters, 0u);
        for (std::size_t c = t.name.size(); c < sizeof info.name; ++c) ASSERT_EQ(info.name[c], 0);
        ASSERT_EQ(static_cast<std::size_t>(info.variant_table->count), t.used.size());
        for (std::size_t v = 0; v < t.used.size(); ++v) {
            const zur_variant_record& record = info.variant_table->records[v];
            EXPECT_EQ(record.index, v);
            EXPECT_EQ(record.used_length, t.used[v]);
            EXPECT_EQ(record.used_length + record.alloc_slop, t.size);
            EXPECT_EQ(record.reserved, 0u);
        }
    }
    EXPECT_EQ(i, 58u);
}

class Frame : public BundleTest {};

// ---- copies in a store ----

TEST_F(Frame, TypeTableIsCopiedOnceAndThenRefreshed) {
    TestDomain D({.store_mode = 2});
    const auto initialize =
        bundle_operation<void(zur_domain*, std::uint32_t, std::uint32_t*)>("orlan_epm_typeinfo_initialize");
    Recorder recorder(D);
    std::string expected;
    for (const TypeNumbers& t : all_types())
        expected += "type_lookup(S, \"" + t.name + "\")\n" + "type_alloc(no_set, 288)\n" + "type_insert(S, \"" +
                    t.name + "\")\n" + "zur_update_variant_info(S, copy of " + t.name + ", " + t.name + ", 1)\n";
    initialize(D, D.set_id(), &D.st);
    EXPECT_EQ(recorder.take(), expected);
    EXPECT_EQ(D.st, 0u);

    expected.clear();
    for (const TypeNumbers& t : all_types())
        expected += "type_lookup(S, \"" + t.name + "\")\n" + "zur_update_variant_info(S, copy of " + t.name + ", " +
                    t.name + ", 0)\n";
    initialize(D, D.set_id(), &D.st);
    EXPECT_EQ(recorder.take(), expected);

    for (const TypeNumbers& t : all_types()) {
        SCOPED_TRACE(t.name);
        const zur_type_info* type = type_info_of(t.name);
        const zur_type_info* copy = D->type_lookup_fn(D->type_table, D.set_id(), type->hex_digest);
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(copy->plain_counters, 2u);
        EXPECT_EQ(copy->type_index, -1);
        EXPECT_EQ(std::memcmp(copy, type, offsetof(zur_type_info, type_index)), 0);
        std::uint64_t further_words[2];
        std::memcpy(further_words, copy + 1, sizeof further_words);
        EXPECT_EQ(further_words[0] | further_words[1], 0u);
    }
}

// Whichever copy is refused, those before it stay, and the next call makes the rest.
TEST_F(Frame, RefusedTypeCopyLeavesThoseBefore) {
    const auto initialize =
        bundle_operation<void(zur_domain*, std::uint32_t, std::uint32_t*)>("orlan_epm_typeinfo_initialize");
    for (const std::size_t refused : {1u, 20u, 58u}) {
        TestDomain D({.store_mode = 1});
        D.refuse_type_copy(refused);
        initialize(D, D.set_id(), &D.st);
        EXPECT_EQ(std::exchange(D.st, 0), 12u);
        EXPECT_EQ(D->last_error, 12u);
        EXPECT_EQ(D.copies().size(), refused - 1);
        Recorder recorder(D);
        for (const char* call : {"type_lookup", "type_insert", "type_alloc"}) recorder.leave_out(call);
        initialize(D, D.set_id(), &D.st);
        std::string expected;
        for (std::size_t i = 0; i < all_types().size(); ++i)
            expected += "zur_update_variant_info(S, copy of " + all_types()[i].name + ", " + all_types()[i].name +
                        (i + 1 < refused ? ", 0)\n" : ", 1)\n");
        EXPECT_EQ(recorder.take(), expected);
        EXPECT_EQ(D.copies().size(), 58u);
    }
}

// ---- the usage report ----

std::string printed;

int print(const char* format, ...) {
    char line[200];
    std::va_list arguments;
    va_start(arguments, format);
    const int n = std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    printed += line;
    return n;
}

TEST_F(Frame, UsageReportListsVariantsInTableOrder) {
    const auto dump = bundle_operation<void(int (*)(const char*, ...))>("orlan_epm_type_variant_dump");
    const auto report = [&](std::string_view without) {
        std::string text;
        for (const TypeNumbers& t : all_types()) {
            if (t.name == without) continue;
            text += "n_variants " + std::to_string(t.used.size()) + "\n";
            for (std::size_t v = 0; v < t.used.size(); ++v)
                text += "variant " + std::to_string(v) + " used length " + std::to_string(t.used[v]) + " alloc slop " +
                        std::to_string(t.size - t.used[v]) + "\n";
        }
        return text;
    };
    Traces traces;
    printed.clear();
    dump(print);
    EXPECT_EQ(printed, report(""));
    EXPECT_EQ(traces.take(), "");
    // The tables are read-only memory otherwise.
    auto* info = const_cast<zur_type_info*>(type_info_of("rcl_template_info_t"));
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const std::uintptr_t start = reinterpret_cast<std::uintptr_t>(info) & ~(page - 1);
    const std::size_t length = reinterpret_cast<std::uintptr_t>(info + 1) - start;
    ASSERT_EQ(mprotect(reinterpret_cast<void*>(start), length, PROT_READ | PROT_WRITE), 0);
    const zur_variant_table* table = std::exchange(info->variant_table, nullptr);
    printed.clear();
    dump(print);
    info->variant_table = table;
    EXPECT_EQ(mprotect(reinterpret_cast<void*>(start), length, PROT_READ), 0);
    EXPECT_EQ(printed, report("rcl_template_info_t"));
    EXPECT_EQ(traces.take(), "3 \" type variant cached info is NULL during usage dump\"\n");
}

// ---- registration ----

TEST_F(Frame, HandlerIsHandedOnInAFixedOrder) {
    TestDomain D;
    Recorder recorder(D);
    const auto enter = bundle_operation<void*(void*)>("orlan_epm_bundle_handler_register");
    const auto leave = bundle_operation<void*()>("orlan_epm_bundle_handler_unregister");
    auto* const* word = static_cast<void* const*>(dlsym(library(), "orlan_epm_bundle_registered_handler"));
    ASSERT_NE(word, nullptr);
    char handlers[2];
    recorder.name(&handlers[0], 1, "first");
    recorder.name(&handlers[1], 1, "second");
    // The word is stored before the dependants are told.
    void* word_then = nullptr;
    const auto witness = REPLACE(kesh_comm_bundle_handler_register, [&](void*) -> void* {
        word_then = *word;
        return nullptr;
    });

    EXPECT_EQ(*word, nullptr);
    EXPECT_EQ(enter(&handlers[0]), nullptr);
    EXPECT_EQ(word_then, &handlers[0]);
    EXPECT_EQ(enter(&handlers[1]), &handlers[0]);
    EXPECT_EQ(*word, &handlers[1]);
    const auto each = [](const std::string& call) {
        std::string calls;
        for (const char* bundle : {"kesh_comm", "portbase", "credbase", "credrelay", "orlan_sm"})
            calls += bundle + ("_bundle_handler_" + call) + "\n";
        return calls;
    };
    EXPECT_EQ(recorder.take(), each("register(first)") + each("register(second)"));
    const std::string told = each("unregister()");
    EXPECT_EQ(leave(), &handlers[1]);
    EXPECT_EQ(*word, nullptr);
    EXPECT_EQ(recorder.take(), told);
    EXPECT_EQ(leave(), nullptr);
    EXPECT_EQ(recorder.take(), told);
}

TEST_F(Frame, TraceIdIsFetchedAsOftenAsAsked) {
    TestDomain D;
    Recorder recorder(D);
    const auto init = bundle_operation<int()>("zur_orlan_epm_trace_init");
    const auto* id = static_cast<std::uint16_t*>(dlsym(library(), "g_zur_orlan_epm_trace_module_id"));
    const std::string call = "quelog_module_init_fn(\"zur_orlan_epm\", g_zur_orlan_epm_trace_module_id, bundle)\n";
    EXPECT_EQ(init(), 0);
    EXPECT_EQ(init(), 0);
    EXPECT_EQ(recorder.take(), call + call);
    EXPECT_STREQ(platform_trace_module_name(*id), "zur_orlan_epm");
    const auto refusal = REPLACE(quelog_module_init_fn, [](const char*, std::uint16_t*, std::uint32_t*) { return 7; });
    EXPECT_EQ(init(), 7);
}

// ---- operations that every type has, and that only pass on or only trace ----

TEST_F(Frame, NoTypeHoldsReferences) {
    TestDomain D;
    Traces traces;
    char somewhere[16] = {};
    const struct {
        std::uint32_t before, after, last_error;
        const void* x;
        const char* told;
    } cases[] = {
        {0, 0, 3, somewhere, ""},
        {43, 43, 3, nullptr,
         "3 \" Error already present in call to get object oid count\"\n"
         "3 \" Error present in call to get table references from object\"\n"},
        {0, 22, 22, nullptr,
         "3 \" Invalid object passed in to get object oid count\"\n"
         "3 \" Cannot get table references. Invalid object passed on\"\n"},
    };
    for (const TypeNumbers& t : all_types())
        for (const auto& c : cases) {
            SCOPED_TRACE(t.name);
            std::uint64_t oids[2] = {5, 6};
            D.st = c.before;
            D->last_error = 3;
            EXPECT_EQ(whole<std::uint32_t>(D, t.name, "get_oid_count", c.x), 0u);
            EXPECT_EQ(std::exchange(D.st, c.before), c.after);
            EXPECT_EQ(std::exchange(D->last_error, 3), c.last_error);
            whole(D, t.name, "get_object_references", c.x, &oids[0], 2u);
            EXPECT_EQ(D.st, c.after);
            EXPECT_EQ(D->last_error, c.last_error);
            EXPECT_EQ(traces.take(), c.told);
            EXPECT_EQ(oids[0] + oids[1], 11u);
        }
}

TEST_F(Frame, VariantIndexIsCappedInItsLowByte) {
    for (const TypeNumbers& t : all_types()) {
        SCOPED_TRACE(t.name);
        const auto cap = operation<std::uint32_t(std::uint32_t)>(t.name, "variant_data_index_cap");
        const auto top = static_cast<std::uint32_t>(t.used.size() - 1);
        for (const std::uint32_t upper : {0u, 0x100u, 0xABCDEF00u}) {
            for (const std::uint32_t low : {0u, 1u, 2u, 3u, 0x7Fu})
                EXPECT_EQ(cap(upper + low), upper + std::min(low, top)) << low;
            for (const std::uint32_t low : {0x80u, 0xFEu, 0xFFu}) EXPECT_EQ(cap(upper + low), upper + low);
        }
    }
}

TEST_F(Frame, LuidAndVariantAreAskedOfTheRuntime) {
    TestDomain D;
    for (const TypeNumbers& t : all_types()) {
        SCOPED_TRACE(t.name);
        Instance* x = create(t.name, D);
        Recorder recorder(D);
        recorder.name(x, t.size, "x");
        const auto luid = REPLACE(zur_get_luid, [](auto...) { return 0xC0FFEEu; });
        const auto adjusted = REPLACE(zurlib_adjust_variant, [](auto...) { return -7; });
        using Adjust = std::int32_t(zur_domain*, std::uint32_t, void*, std::uint32_t*);
        const auto adjust = operation<Adjust>(t.name, "adjust_variant");
        D.st = 90; // handed on, and not looked at
        EXPECT_EQ((whole<std::uint32_t>(D, t.name, "get_luid", x)), 0xC0FFEEu);
        EXPECT_EQ(adjust(D, D.set_id(), x, &D.st), -7);
        EXPECT_EQ(adjust(D, D.set_id(), nullptr, &D.st), -7);
        const std::string top = std::to_string(t.used.size() - 1);
        EXPECT_EQ(recorder.take(), "zur_get_luid(S, x, st)\n" +
                                       std::string(t.is_enum ? "" : "zur_get_manifested_type_info(x)\n") +
                                       "zurlib_adjust_variant(S, x, " + t.name + ", " + top + ", st)\n" +
                                       "zurlib_adjust_variant(S, null, null, " + top + ", st)\n");
        destroy(t.name, D, x);
    }
}

} // namespace
} // namespace epm::test
