// Instances from creation to destruction, for all types: headers and sizes in every mode and variant, the order of the
// runtime calls, what a refused allocation or a failing runtime leaves behind, references, separate header blocks,
// embedding and the places of nested state flags. The flags themselves are tested in tracking_test.cpp, traces and the
// ends of the process in traces_test.cpp.
#include "support/bundle_test.hpp"
#include "support/calls.hpp"
#include "support/fill.hpp"
#include "support/imports.hpp"
#include "support/types.hpp"

#include <platform/store.h>

#include <array>
#include <cstring>
#include <map>
#include <regex>

namespace epm::test {
namespace {

using CreateChained = Instance*(zur_domain*);
using Destroy = void(zur_domain*, std::uint32_t, Instance*);
using DestroyChained = void(zur_domain*, Instance*);

class Lifecycle : public BundleTest {};

const std::vector<TypeNumbers>& all_records() {
    static const std::vector<TypeNumbers> all(all_types().begin(), all_types().begin() + 49);
    return all;
}

/// Sets up an Instance in memory that is there.
void* initialize(TestDomain& D, const std::string& type, void* x, const zur_type_info* info, bool is_announced = false,
                 bool is_uncounted = false, int flags = 0, void* block = nullptr) {
    return whole<void*>(D, type, "initialize", x, info, std::uint32_t{is_announced}, std::uint32_t{is_uncounted},
                        static_cast<std::uint32_t>(flags), block);
}

const zur_type_info* stored_type(TestDomain& D, const TypeNumbers& t) {
    const zur_type_info* own = type_info_of(t.name);
    return D->store_mode == 0 ? own : D->type_lookup_fn(D->type_table, D.set_id(), own->hex_digest);
}

/// How many of one variant were created and destroyed, by the Bundle's tables or by the Domain's copy.
using Counters = std::pair<std::uint64_t, std::uint64_t>;
Counters counters(TestDomain& D, const TypeNumbers& t, std::size_t variant) {
    const zur_variant_record& record = stored_type(D, t)->variant_table->records[variant];
    return {record.created, record.destroyed};
}

// ---- what an Instance is like ----

TEST_F(Lifecycle, EveryTypeInEveryModeAndVariant) {
    std::size_t made = 0;
    for (const Mode& mode : all_modes()) {
        SCOPED_TRACE(mode.text());
        TestDomain D(mode);
        for (const TypeNumbers& t : all_types()) {
            SCOPED_TRACE(t.name);
            const int top = static_cast<int>(t.used.size()) - 1;
            for (const int agreed : {-1, 0, 1, 2, 5, 127}) {
                D.agree(t.name.c_str(), agreed);
                const std::size_t size = mode.is_tracking() ? t.tracked : t.size;
                EXPECT_EQ(t.is_enum ? operation<std::uint32_t()>(t.name, "sizeof")()
                                    : operation<std::uint32_t(zur_domain*)>(t.name, "sizeof")(D),
                          size);
                const auto variant = static_cast<std::size_t>(std::max(std::min(agreed, top), 0));
                destroy(t.name, D, create(t.name, D)); // a store has its TypeInfos now
                const Counters before = counters(D, t, variant);
                const std::size_t counted = agreed >= 0 ? 1 : 0;
                heap().reset();
                Instance* x = create(t.name, D);
                ++made;
                ASSERT_NE(x, nullptr);
                EXPECT_EQ(heap().allocations(), 1u);
                EXPECT_EQ(heap().block_of(x)->second.size, size);
                EXPECT_EQ(x->type_info, stored_type(D, t));
                EXPECT_EQ(x->variant, std::min(agreed, top));
                EXPECT_EQ(x->layout_variant, top);
                EXPECT_EQ(x->flags, mode.is_tracking() && !t.is_enum ? ZUR_TRACKED : 0);
                EXPECT_EQ(x->unused, 0);
                EXPECT_EQ(counters(D, t, variant), Counters(before.first + counted, before.second));
                destroy(t.name, D, x);
                EXPECT_EQ(counters(D, t, variant), Counters(before.first + counted, before.second + counted));
            }
        }
    }
    EXPECT_EQ(made, 27u * 58 * 6);
}

// A fresh record holds no value, and in tracked mode no mark: its getters say so, with a prefilled heap behind them.
TEST_F(Lifecycle, FreshMemoryIsZeroBehindTheHeaders) {
    for (const Mode& mode : tracking_modes()) {
        TestDomain D(mode);
        for (const Record* r : catalogue::all_records) {
            SCOPED_TRACE(r->name);
            const catalogue::Layout l = catalogue::lay_out(*r);
            const TypeNumbers& t = *std::ranges::find(all_types(), r->name, &TypeNumbers::name);
            Instance* x = create(r->name, D);
            const auto* bytes = reinterpret_cast<const unsigned char*>(x);
            const auto is_zero = [&](std::size_t from, std::size_t to) {
                return std::all_of(bytes + from, bytes + to, [](unsigned char b) { return b == 0; });
            };
            for (std::size_t i = 0; i < r->count; ++i) {
                const Field& f = r->fields[i];
                const auto* nested = reinterpret_cast<const Instance*>(bytes + l.offset[i]);
                if (f.is_own_enum()) {
                    EXPECT_EQ(nested->type_info, type_info_of(*f.enumeration));
                    EXPECT_EQ(nested->layout_variant, f.enumeration->top());
                    EXPECT_EQ(nested->flags, ZUR_NESTED);
                    EXPECT_TRUE(is_zero(l.offset[i] + 12u, l.offset[i] + 16u));
                } else if (f.kind == Kind::embedded) {
                    EXPECT_EQ(nested->type_info, type_info_of(*f.record));
                    EXPECT_EQ(nested->layout_variant, f.record->top());
                    EXPECT_EQ(nested->flags,
                              mode.is_tracking() ? ZUR_NESTED | ZUR_TRACKED | ZUR_MOVED_FLAGS : ZUR_NESTED);
                } else if (f.kind == Kind::list) {
                    const auto* head = reinterpret_cast<void* const*>(nested);
                    EXPECT_EQ(head[0], head);
                    EXPECT_EQ(head[1], head);
                    EXPECT_EQ(head[2], x);
                    EXPECT_TRUE(is_zero(l.offset[i] + 24u, l.offset[i] + 28u));
                } else if (!f.is_placed_object() && !f.is_enumerated()) {
                    EXPECT_TRUE(is_zero(l.offset[i], l.offset[i] + catalogue::detail::extent(f).length)) << f.name;
                }
            }
            EXPECT_TRUE(is_zero(t.used.back(), mode.is_tracking() ? t.tracked : t.size));
            destroy(r->name, D, x);
        }
    }
}

// ---- the order of the calls ----

TEST_F(Lifecycle, OrderOfAnEnumeration) {
    const std::string type = "orlan_ial_svm_epm_in_e";
    {
        TestDomain D;
        Recorder recorder(D);
        Instance* x = create(type, D);
        destroy(type, D, x);
        EXPECT_EQ(recorder.take(), lines(R"(
            obj_alloc(S, 16) = #1; zur_domain_lookup_variant(D.variant_context, orlan_ial_svm_epm_in_e, local)
            write_range(#1+9, 1, S, #1); write_range(#1+8, 1, S, #1); write_range(#1, 8, S, #1)
            write_range(#1+10, 1, S, #1); counter_range(orlan_ial_svm_epm_in_e[1].created, 1, S)
            counter_range(orlan_ial_svm_epm_in_e[1].destroyed, 1, S); obj_free(S, #1))"));
    }
    TestDomain D({.tracking = ZUR_TRACKED_MODE, .store_mode = 1, .containment = true});
    destroy(type, D, create(type, D)); // the set has its table now
    Recorder recorder(D);
    Instance* x = create(type, D);
    EXPECT_EQ(x->type_info->plain_counters, 1u);
    destroy(type, D, x);
    EXPECT_EQ(recorder.take(), lines(R"(
        obj_alloc(S, 16) = #1; zur_domain_lookup_variant(D.variant_context, orlan_ial_svm_epm_in_e, local)
        write_range(#1+9, 1, S, #1); write_range(#1+8, 1, S, #1); write_range(#1, 8, S, #1)
        zur_type_info_ptr_get(S, orlan_ial_svm_epm_in_e, orlan_epm_typeinfo_initialize); write_range(#1+10, 1, S, #1)
        counter_range(copy of orlan_ial_svm_epm_in_e[1].created, 1, S); zurdb_record_containment2(S, #1, null, 1)
        zurdb_plat_set_dirty(S, #1); counter_range(copy of orlan_ial_svm_epm_in_e[1].destroyed, 1, S)
        zurdb_plat_set_destroy(S, #1); obj_free(S, #1))"));
}

TEST_F(Lifecycle, OrderOfARecordWithAnEnumeration) {
    const std::string type = "orlan_ial_svm_epm_nack_info";
    TestDomain D;
    D.agree(type.c_str(), 0);
    Recorder recorder(D);
    destroy(type, D, create(type, D));
    EXPECT_EQ(recorder.take(), lines(R"(
        quelog_module_init_fn("zur_orlan_epm", g_zur_orlan_epm_trace_module_id, bundle); obj_alloc(S, 56) = #1
        zur_clear_last_error(); zur_domain_lookup_variant(D.variant_context, orlan_ial_svm_epm_nack_info, local)
        write_range(#1+9, 1, S, #1); write_range(#1+8, 1, S, #1); zur_get_manifested_type_info_ptr_mem(#1)
        write_range(#1, 8, S, #1); write_range(#1+10, 1, S, #1)
        zurlib_type_stats_create_object(S, orlan_ial_svm_epm_nack_info, orlan_ial_svm_epm_nack_info[0].created, local)
        zur_domain_lookup_variant(D.variant_context, orlan_ial_svm_epm_nack_e, local); write_range(#1+25, 1, S, #1+16)
        write_range(#1+24, 1, S, #1+16); write_range(#1+16, 8, S, #1+16); write_range(#1+26, 1, S, #1+16)
        zur_mac_addr_initialize(S, #1+32, zur_mac_addr, 1, 0, 4, null, local); zur_get_instance_variant(#1, 1, 0)
        zur_mac_addr_get_oid_count(S, #1+32, local); zur_mac_addr_destroy_internal(S, #1+32, 0)
        zur_get_manifested_type_info(#1)
        zurlib_type_stats_destroy_object(S, orlan_ial_svm_epm_nack_info, orlan_ial_svm_epm_nack_info[0].created, local)
        write_range(#1, 8, S, null); obj_free(S, #1))"));
}

TEST_F(Lifecycle, OrderOfANestedRecordInAStore) {
    const std::string type = "auth_mgr_linksec_event";
    TestDomain D({.tracking = ZUR_TRACKED_MODE, .store_mode = 1, .containment = true});
    destroy(type, D, create(type, D));
    Recorder recorder(D);
    Instance* x = create(type, D);
    EXPECT_EQ(recorder.take(), lines(R"(
        quelog_module_init_fn("zur_orlan_epm", g_zur_orlan_epm_trace_module_id, bundle); obj_alloc(S, 103) = #1
        zur_clear_last_error(); zur_domain_lookup_variant(D.variant_context, auth_mgr_linksec_event, local)
        write_range(#1+9, 1, S, #1); write_range(#1+8, 1, S, #1); zur_get_manifested_type_info_ptr_mem(#1)
        write_range(#1, 8, S, #1); zur_type_info_ptr_get(S, auth_mgr_linksec_event, orlan_epm_typeinfo_initialize)
        write_range(#1+10, 1, S, #1); write_range(#1+10, 1, S, #1)
        zurlib_type_stats_create_object(S, copy of auth_mgr_linksec_event, copy of auth_mgr_linksec_event[1].created, local)
        zurlib_update_sttr_offset(S, #1+24, 75); zur_clear_last_error()
        zur_domain_lookup_variant(D.variant_context, auth_mgr_linksec_event_fail_data, local)
        write_range(#1+33, 1, S, #1+24); write_range(#1+32, 1, S, #1+24); zur_get_manifested_type_info_ptr_mem(#1+24)
        write_range(#1+24, 8, S, #1+24)
        zur_type_info_ptr_get(S, auth_mgr_linksec_event_fail_data, orlan_epm_typeinfo_initialize)
        write_range(#1+34, 1, S, #1+24); write_range(#1+34, 1, S, #1+24)
        zurlib_type_stats_create_object(S, copy of auth_mgr_linksec_event_fail_data, copy of auth_mgr_linksec_event_fail_data[0].created, local)
        zur_mac_addr_initialize(S, #1+64, zur_mac_addr, 1, 0, 4, #1+96, local)
        zurdb_record_containment2(S, #1, null, 1); zurdb_plat_set_dirty(S, #1))"));
    destroy(type, D, x);
    EXPECT_EQ(recorder.take(), lines(R"(
        zur_get_instance_variant(#1, 1, 0); zur_get_instance_variant(#1+24, 1, 0); zurlib_get_sttr_offset(S, #1+24)
        zur_get_manifested_type_info(#1+24)
        zurlib_type_stats_destroy_object(S, copy of auth_mgr_linksec_event_fail_data, copy of auth_mgr_linksec_event_fail_data[0].created, local)
        zur_hd_mapping_destroy(S, #1+24, local); zur_mac_addr_get_oid_count(S, #1+64, local)
        zur_mac_addr_destroy_internal(S, #1+64, 0); zur_get_manifested_type_info(#1)
        zurlib_type_stats_destroy_object(S, copy of auth_mgr_linksec_event, copy of auth_mgr_linksec_event[1].created, local)
        zurdb_plat_set_destroy(S, #1); write_range(#1, 8, S, null); obj_free(S, #1))"));
}

// The fields of an older variant, buffers and arms: what is freed, announced and zeroed, and in which order.
TEST_F(Lifecycle, OrderOfTearingFieldsDown) {
    TestDomain D;
    Instance* message = create("orlan_ial_svm_epm_data", D);
    Instance* arm = create("orlan_ial_svm_acl_apply", D);
    Instance* late = create("orlan_ial_dacl_dnld_complete", D);
    call(D, "orlan_ial_svm_acl_apply", "acl_name", "set", arm, "guest", 5u);
    call(D, "orlan_ial_svm_epm_data", "apply_acl", "set", message, arm);
    call(D, "orlan_ial_svm_epm_data", "dacl_dnld_comp_data", "set", message, late);
    ASSERT_EQ(D.st, 0u);
    Recorder recorder(D);
    recorder.name(message, 120, "message");
    recorder.name(arm, 48, "arm");
    recorder.name(late, 40, "late");
    char* text;
    std::memcpy(&text, reinterpret_cast<char*>(arm) + 16, sizeof text);
    recorder.name(text, 6, "text");
    message->variant = 0; // an older peer's: the arm of the later variant is not served, and stays
    destroy("orlan_ial_svm_epm_data", D, message);
    EXPECT_EQ(recorder.take(), lines(R"(
        zur_get_instance_variant(message, 1, 0); zur_get_instance_variant(arm, 1, 0); obj_free(S, text)
        write_range(arm+16, 8, S, null); zur_get_manifested_type_info(arm)
        zurlib_type_stats_destroy_object(S, orlan_ial_svm_acl_apply, orlan_ial_svm_acl_apply[0].created, local)
        write_range(arm, 8, S, null); obj_free(S, arm); write_range(message+40, 8, S, null)
        zur_get_manifested_type_info(message)
        zurlib_type_stats_destroy_object(S, orlan_ial_svm_epm_data, orlan_ial_svm_epm_data[0].created, local)
        write_range(message, 8, S, null); obj_free(S, message))"));
    EXPECT_EQ(heap().blocks().size(), 1u);
    destroy("orlan_ial_dacl_dnld_complete", D, late);
}

// ---- embedded Instances ----

TEST_F(Lifecycle, InitializeHonoursItsArguments) {
    for (const Mode& mode : tracking_modes())
        for (const TypeNumbers& t : all_types())
            for (const bool is_announced : {false, true})
                for (const bool is_counted : {false, true}) {
                    SCOPED_TRACE(t.name + ", " + mode.text());
                    TestDomain D(mode);
                    // The Instance, and behind it the flags of the record that it is a field of.
                    std::vector<std::uint64_t> memory(200);
                    auto* x = reinterpret_cast<Instance*>(memory.data());
                    void* const block = &memory[100];
                    const auto before = counters(D, t, t.used.size() - 1);
                    const bool is_flagged = mode.is_tracking() && !t.is_enum;
                    D->last_error = 5;
                    Recorder recorder(D);
                    EXPECT_EQ(initialize(D, t.name, x, type_info_of(t.name), is_announced, !is_counted,
                                         ZUR_NESTED | ZUR_RA_DATA, block),
                              block);
                    EXPECT_EQ(recorder.take().find("write_range") != std::string::npos, is_announced);
                    EXPECT_EQ(D.st, 0u);
                    EXPECT_EQ(D->last_error, t.is_enum ? 5u : 0u);
                    EXPECT_EQ(x->type_info, type_info_of(t.name));
                    EXPECT_EQ(x->flags & ~ZUR_MOVED_FLAGS, ZUR_NESTED | ZUR_RA_DATA | (is_flagged ? ZUR_TRACKED : 0));
                    // An enumeration that is not created by itself is not counted.
                    EXPECT_EQ(counters(D, t, t.used.size() - 1).first, before.first + (is_counted && !t.is_enum));
                    if (is_flagged) {
                        zurlib_update_sttr_offset(D, D.set_id(), x, 800);
                        whole(D, t.name, "offset_update", x, block);
                    }
                    bare(D, t.name, "destroy_internal", x, 0u);
                    EXPECT_EQ(counters(D, t, t.used.size() - 1).second, before.second + !t.is_enum);
                    EXPECT_EQ(x->type_info, type_info_of(t.name)); // only freed memory loses its type
                }
}

TEST_F(Lifecycle, RecordIsNotSetUpUnderARaisedStatusOrWithoutAPlaceForItsFlags) {
    TestDomain D({.tracking = ZUR_TRACKED_MODE});
    Traces traces;
    for (const TypeNumbers& t : all_records()) {
        SCOPED_TRACE(t.name);
        std::vector<std::uint64_t> memory(t.tracked / 8 + 1);
        D.st = 21;
        D->last_error = 7;
        {
            Recorder recorder(D);
            EXPECT_EQ(initialize(D, t.name, memory.data(), type_info_of(t.name), true, false, 0, &D), &D);
            EXPECT_EQ(recorder.take(), "");
        }
        EXPECT_EQ(std::exchange(D.st, 0), 21u);
        EXPECT_EQ(D->last_error, 7u);
        EXPECT_EQ(std::ranges::count(memory, 0u), std::ssize(memory));

        EXPECT_EQ(initialize(D, t.name, memory.data(), type_info_of(t.name), true, false, ZUR_NESTED), nullptr);
        EXPECT_EQ(std::exchange(D.st, 0), 22u);
        EXPECT_EQ(D->last_error, 22u);
        EXPECT_EQ(traces.take(), "3 \" sttr_base can not be NULL in NESTED case. Please check the parent object and "
                                 "provide the correct state tracking base pointer\"\n");
        auto* x = reinterpret_cast<Instance*>(memory.data());
        EXPECT_EQ(x->flags, ZUR_NESTED | ZUR_TRACKED);
        EXPECT_EQ(std::count(memory.begin() + 2, memory.end(), 0u), std::ssize(memory) - 2); // no field is set up
        x->variant = -1;
        bare(D, t.name, "destroy_internal", x, 0u);
    }
}

TEST_F(Lifecycle, EmbeddedFlagGoesToChildrenFirst) {
    TestDomain D;
    {
        Instance* x = create("auth_mgr_linksec_start_info", D);
        Recorder recorder(D);
        recorder.name(x, 208, "x");
        bare(D, "auth_mgr_linksec_start_info", "set_instance_embedded", x);
        EXPECT_EQ(recorder.take(), lines(R"(
            zur_boolean_set_instance_embedded(S, x+12); zur_mac_addr_set_instance_embedded(S, x+36)
            zur_mac_addr_set_instance_embedded(S, x+42); kesh_bytestr_set_instance_embedded(S, x+48)
            write_range(x+34, 1, S, x+24); kesh_bytestr_set_instance_embedded(S, x+112)
            kesh_bytestr_set_instance_embedded(S, x+128); kesh_bytestr_set_instance_embedded(S, x+144)
            write_range(x+106, 1, S, x+96); kesh_bytestr_set_instance_embedded(S, x+176); write_range(x+10, 1, S, x))"));
        destroy("auth_mgr_linksec_start_info", D, x);
    }
    Traces traces;
    for (const TypeNumbers& t : all_types()) {
        SCOPED_TRACE(t.name);
        const auto embed = operation<Destroy>(t.name, "set_instance_embedded");
        Instance* x = create(t.name, D);
        x->flags |= ZUR_RA_DATA;
        embed(D, D.set_id(), x);
        EXPECT_EQ(x->flags, ZUR_EMBEDDED | ZUR_RA_DATA);
        const Record* r = record_named(t.name);
        for (std::size_t i = 0; r != nullptr && i < r->count; ++i) {
            if (r->fields[i].kind != Kind::embedded && !r->fields[i].is_own_enum()) continue;
            const auto* nested =
                reinterpret_cast<Instance*>(reinterpret_cast<char*>(x) + catalogue::lay_out(*r).offset[i]);
            EXPECT_EQ(nested->flags & ZUR_EMBEDDED, ZUR_EMBEDDED);
        }
        x->flags = 0;
        destroy(t.name, D, x);
        EXPECT_EQ(traces.take(), "");
        embed(D, D.set_id(), nullptr);
        EXPECT_EQ(traces.take(), t.is_enum ? "3 \" Invalid object handle passed to set embedded flag\"\n"
                                           : "3 \" Invalid object pointer passed in to set instance flag\"\n");
    }
}

// ---- sizes, by layout variant ----

TEST_F(Lifecycle, SizeOfPartsFollowsTheLayoutVariant) {
    // Body and flags of each variant, where there are several.
    const std::map<std::string, std::vector<std::pair<std::uint32_t, std::uint32_t>>> several = {
        {"orlan_ial_svm_acl_data", {{64, 6}, {88, 9}, {96, 11}}}, {"orlan_ial_svm_bm_data", {{528, 88}, {592, 96}}},
        {"orlan_ial_svm_epm_data", {{112, 9}, {120, 10}}},        {"orlan_ial_in_svm_epm_data", {{112, 9}, {120, 10}}},
        {"auth_mgr_linksec_start_info", {{192, 13}, {208, 14}}},  {"auth_mgr_linksec_event", {{72, 5}, {96, 7}}},
    };
    TestDomain none;
    TestDomain untracked({.tracking = ZUR_UNTRACKED_MODE});
    TestDomain tracked({.tracking = ZUR_TRACKED_MODE});
    std::size_t layouts = 0;
    for (const TypeNumbers& t : all_records()) {
        SCOPED_TRACE(t.name);
        const auto parts = operation<std::uint32_t(zur_domain*, const Instance*, std::uint32_t, std::uint32_t)>(
            t.name, "sizeof_internal");
        const auto expect = [&](const Instance* x, std::uint32_t body, std::uint32_t flags) {
            for (const bool with_flags : {false, true}) {
                EXPECT_EQ(parts(none, x, with_flags, 0), t.size); // the one case without a look at the layout variant
                EXPECT_EQ(parts(none, x, with_flags, 1), 0u);
                EXPECT_EQ(parts(untracked, x, with_flags, 0), body);
                EXPECT_EQ(parts(untracked, x, with_flags, 1), 0u);
                EXPECT_EQ(parts(tracked, x, with_flags, 0), body + (with_flags ? flags : 0));
                EXPECT_EQ(parts(tracked, x, with_flags, 1), flags);
            }
        };
        const auto size = static_cast<std::uint32_t>(t.size);
        const auto flags = static_cast<std::uint32_t>(t.tracked - t.size);
        expect(nullptr, size, flags);
        // A later layout than is known counts as the newest known.
        for (std::size_t layout = 0; layout < 3; ++layout) {
            const std::size_t v = std::min(layout, t.used.size() - 1);
            layouts += v == layout;
            Instance x{};
            x.variant = -1;
            x.layout_variant = static_cast<std::int8_t>(layout);
            ASSERT_EQ(several.contains(t.name), t.used.size() > 1);
            const auto [body, own_flags] = t.used.size() > 1 ? several.at(t.name).at(v) : std::pair(size, flags);
            expect(&x, body, own_flags);
        }
    }
    EXPECT_EQ(layouts, 56u);
}

// ---- the places of nested state flags ----

TEST_F(Lifecycle, PlacesOfNestedFlagsAreToldInOrder) {
    const std::map<std::string, std::string> places = {
        {"rcl_sess_mgr_authorize_ack",
         R"(
             zurlib_update_sttr_offset(S, x+16, 169); sess_mgr_conn_hdl_offset_update(S, x+16, x+185, st)
             zurlib_update_sttr_offset(S, x+40, 147); sess_mgr_session_label_offset_update(S, x+40, x+187, st)
             zurlib_update_sttr_offset(S, x+64, 128); aaa_tlv_offset_update(S, x+64, x+192, st)
             zurlib_update_sttr_offset(S, x+96, 113); sess_mgr_client_hdl_offset_update(S, x+96, x+209, st)
             zurlib_update_sttr_offset(S, x+120, 91); sess_mgr_client_hdl_offset_update(S, x+120, x+211, st)
             zurlib_update_sttr_offset(S, x+144, 69); sess_mgr_authorize_result_offset_update(S, x+144, x+213, st))"},
        // The block begins at 592; its members stand at 1, 8, 10, 14, 24, 41, 48, 82 and 86.
        {"orlan_ial_svm_bm_data",
         R"(
             zurlib_update_sttr_offset(S, x+16, 577); zurlib_update_sttr_offset(S, x+80, 520)
             zurlib_update_sttr_offset(S, x+104, 498); zurlib_update_sttr_offset(S, x+144, 462)
             zurlib_update_sttr_offset(S, x+184, 432); zurlib_update_sttr_offset(S, x+216, 417)
             zurlib_update_sttr_offset(S, x+272, 368); zurlib_update_sttr_offset(S, x+288, 353)
             sess_mgr_conn_hdl_offset_update(S, x+288, x+641, st); zurlib_update_sttr_offset(S, x+312, 331)
             sess_mgr_session_label_offset_update(S, x+312, x+643, st); zurlib_update_sttr_offset(S, x+336, 312)
             aaa_tlv_offset_update(S, x+336, x+648, st); zurlib_update_sttr_offset(S, x+368, 297)
             sess_mgr_client_hdl_offset_update(S, x+368, x+665, st); zurlib_update_sttr_offset(S, x+392, 275)
             sess_mgr_client_hdl_offset_update(S, x+392, x+667, st); zurlib_update_sttr_offset(S, x+416, 253)
             sess_mgr_authorize_result_offset_update(S, x+416, x+669, st); zurlib_update_sttr_offset(S, x+464, 210)
             zurlib_update_sttr_offset(S, x+512, 166))"},
        {"auth_mgr_linksec_start_info",
         "zurlib_update_sttr_offset(S, x+24, 187); zurlib_update_sttr_offset(S, x+96, 121)"},
        {"auth_mgr_linksec_event", "zurlib_update_sttr_offset(S, x+24, 75)"},
        {"auth_mgr_linksec_update", "zurlib_update_sttr_offset(S, x+24, 91)"},
        {"orlan_svm_epm_ip_address_update_notify", "zurlib_update_sttr_offset(S, x+32, 44)"},
    };
    TestDomain D({.tracking = ZUR_TRACKED_MODE});
    for (const TypeNumbers& t : all_records()) {
        SCOPED_TRACE(t.name);
        const auto known = places.find(t.name);
        const std::string told = known == places.end() ? "" : lines(known->second);
        Instance* x = create(t.name, D);
        Recorder recorder(D);
        recorder.name(x, t.tracked, "x");
        whole(D, t.name, "offset_update", x, reinterpret_cast<char*>(x) + t.size);
        EXPECT_EQ(recorder.take(), told);
        whole(D, t.name, "offset_remove", x);
        // The same fields, each without its place.
        std::string removed = std::regex_replace(told, std::regex("zurlib_update_sttr_offset(.*), \\d+\\)"),
                                                 "zur_hd_mapping_destroy$1, st)");
        removed = std::regex_replace(removed, std::regex("offset_update(.*), x\\+\\d+, st"), "offset_remove$1, st");
        EXPECT_EQ(recorder.take(), removed);
        destroy(t.name, D, x);
    }
}

// ---- refused memory, and a runtime that fails ----

TEST_F(Lifecycle, RefusedMemory) {
    for (const Mode& mode : {Mode{}, Mode{ZUR_UNTRACKED_MODE, 0, true}, Mode{ZUR_TRACKED_MODE, 1, true},
                             Mode{ZUR_TRACKED_MODE, 1, true, false, ZUR_NO_SET}}) {
        SCOPED_TRACE(mode.text());
        TestDomain D(mode);
        for (const TypeNumbers& t : all_types()) {
            SCOPED_TRACE(t.name);
            Recorder recorder(D);
            recorder.leave_out("quelog_module_init_fn");
            const std::string refused =
                "obj_alloc(S, " + std::to_string(mode.is_tracking() ? t.tracked : t.size) + ") = null\n";
            const auto handed_out = [&](const std::string& what) {
                return (mode.containment ? "zurdb_record_containment2(S, " + what + ", null, 1)\n" : "") +
                       (mode.marks() ? "zurdb_plat_set_dirty(S, " + what + ")\n" : "");
            };
            // Outside a chain nothing is stored, and null is handed out.
            D->last_error = 77;
            heap().refuse_nth(1);
            EXPECT_EQ(create(t.name, D), nullptr);
            EXPECT_EQ(D->last_error, 77u);
            EXPECT_EQ(recorder.take(), refused + handed_out("null"));

            // In a chain the null Instance is returned instead. An error that is there already stays, and no memory is
            // requested.
            const auto create_chained = operation<CreateChained>(t.name, "create_cr");
            Instance* null_instance = create_chained(D);
            ASSERT_NE(null_instance, nullptr);
            EXPECT_EQ(D->last_error, 77u);
            EXPECT_EQ(D->cr_active, 0u);
            recorder.name(null_instance, t.size, "null Instance");
            recorder.take();
            EXPECT_EQ(create_chained(D), null_instance);
            EXPECT_EQ(recorder.take(), handed_out("null Instance"));

            D->last_error = 0;
            heap().refuse_nth(1);
            EXPECT_EQ(create_chained(D), null_instance);
            EXPECT_EQ(D->last_error, 12u);
            EXPECT_EQ(recorder.take(), refused + "zur_store_err(12)\n" + handed_out("null Instance"));

            // It is all zero, and destroying it, like destroying nothing, does nothing.
            const auto* bytes = reinterpret_cast<const unsigned char*>(null_instance);
            EXPECT_TRUE(std::all_of(bytes, bytes + t.size, [](unsigned char b) { return b == 0; }));
            for (Instance* nothing : {null_instance, static_cast<Instance*>(nullptr)}) {
                destroy(t.name, D, nothing);
                operation<DestroyChained>(t.name, "destroy_cr")(D, nothing);
                bare(D, t.name, "destroy_internal", nothing, 0u);
            }
            EXPECT_EQ(recorder.take(), "");
            D->last_error = 0;
            Instance* x = create_chained(D);
            EXPECT_NE(x, null_instance);
            operation<DestroyChained>(t.name, "destroy_cr")(D, x);
        }
    }
}

TEST_F(Lifecycle, ChainIsMarkedActiveWhileItRuns) {
    TestDomain D;
    std::uint32_t active = 9;
    const auto witness = REPLACE(zur_domain_lookup_variant, [&](zur_domain* domain, auto*, auto*, auto*) {
        active = domain->cr_active;
        return 0;
    });
    for (const char* type : {"webauth_watch_list", "coa_request_type"}) {
        active = 9;
        Instance* x = operation<CreateChained>(type, "create_cr")(D);
        EXPECT_EQ(active, 1u);
        EXPECT_EQ(D->cr_active, 0u);
        operation<DestroyChained>(type, "destroy_cr")(D, x);
    }
}

// A record that cannot be set up is freed, also in a chain; an enumeration is kept.
TEST_F(Lifecycle, VariantThatCannotBeAskedFor) {
    for (const Mode& mode : {Mode{}, Mode{ZUR_TRACKED_MODE}, Mode{ZUR_TRACKED_MODE, 1, true, true}}) {
        TestDomain D(mode);
        destroy("coa_request_type", D, create("coa_request_type", D)); // a store has its TypeInfos now
        for (const TypeNumbers& t : all_types()) {
            SCOPED_TRACE(t.name + ", " + mode.text());
            Traces traces;
            Recorder recorder(D);
            for (const bool is_chained : {false, true}) {
                std::size_t asked = 0;
                Instance* x;
                {
                    const auto failure =
                        REPLACE(zur_domain_lookup_variant, [&](auto*, auto*, auto*, std::uint32_t* st) {
                            if (asked++ == 0) *st = 5;
                            return 0;
                        });
                    recorder.take();
                    x = is_chained ? operation<CreateChained>(t.name, "create_cr")(D) : create(t.name, D);
                }
                EXPECT_EQ(traces.take(),
                          "3 \" error in " + t.name + " create" + (t.is_enum ? " " : ": ") + std::strerror(5) + "\"\n");
                const std::string calls = recorder.take();
                EXPECT_EQ(x != nullptr, t.is_enum);
                EXPECT_EQ(calls.find("containment2") != std::string::npos, t.is_enum && mode.containment);
                EXPECT_EQ(calls.find("zur_store_err"), std::string::npos);
                EXPECT_EQ(heap().blocks().size(), t.is_enum ? 1u : 0u);
                if (t.is_enum) destroy(t.name, D, x);
            }
        }
    }
}

// ---- variants that the peer does not know ----

TEST_F(Lifecycle, NegativeVariantCountsInFrontOfTheFirstRecord) {
    TestDomain D;
    static std::vector<const void*> counted;
    const auto count_in = [&](auto*, auto, const zur_type_info* type, std::uint64_t* created, auto*) {
        if (std::string_view(type->bundle) == "orlan_epm") counted.push_back(created);
    };
    const auto in = REPLACE(zurlib_type_stats_create_object, count_in);
    const auto out = REPLACE(zurlib_type_stats_destroy_object, count_in);
    D->counter_range_fn = [](void*, void* address, std::uint32_t, std::uint32_t) { counted.push_back(address); };
    for (const TypeNumbers& t : all_types())
        for (const int variant : {-1, -128}) {
            SCOPED_TRACE(t.name);
            D.agree(t.name.c_str(), variant);
            counted.clear();
            Instance* x = create(t.name, D);
            EXPECT_EQ(x->variant, variant);
            Recorder recorder(D);
            destroy(t.name, D, x);
            EXPECT_EQ(std::ranges::count(recorder.take(), '\n'), t.is_enum ? 1 : 5) << "no field is visited";
            const auto* first = reinterpret_cast<const char*>(type_info_of(t.name)->variant_table->records);
            const auto* expected = first + offsetof(zur_variant_record, created) + variant * 40;
            ASSERT_GE(counted.size(), 2u);
            EXPECT_EQ(counted.front(), expected);
            EXPECT_EQ(counted.back(), expected + (t.is_enum ? 8 : 0));
            Dl_info info{}; // that memory is there, and is the Bundle's own
            ASSERT_NE(dladdr(expected, &info), 0);
            EXPECT_NE(std::strstr(info.dli_fname, "liborlan_epm"), nullptr);
        }
}

TEST_F(Lifecycle, VariantBeyondTheTableIsNotedAndClamped) {
    TestDomain D;
    Traces traces;
    zur_type_info type = *type_info_of("orlan_ial_svm_acl_data");
    zur_variant_record records[3] = {};
    const zur_variant_table table = {1, records};
    type.variant_table = &table;
    std::array<std::uint64_t, 14> memory{};
    auto* x = reinterpret_cast<Instance*>(memory.data());
    const std::string note = "6 \" variant 2 requested only 1 variants present\"\n";
    const std::uint64_t* counted = nullptr;
    const auto count = [&](auto*, auto, auto*, std::uint64_t* created, auto*) { counted = created; };
    const auto in = REPLACE(zurlib_type_stats_create_object, count);
    const auto out = REPLACE(zurlib_type_stats_destroy_object, count);
    initialize(D, "orlan_ial_svm_acl_data", x, &type);
    EXPECT_EQ(traces.take(), note);
    EXPECT_EQ(std::exchange(counted, nullptr), &records[2].created);
    bare(D, "orlan_ial_svm_acl_data", "destroy_internal", x, 0u);
    EXPECT_EQ(traces.take(), note);
    EXPECT_EQ(counted, &records[2].created);

    // An enumeration's table can only be another one in a store.
    zur_type_info enum_type = *type_info_of("orlan_ial_svm_epm_in_e");
    const zur_variant_table no_variant = {0, records};
    enum_type.variant_table = &no_variant;
    checker.reset(); // it would not take this for a type
    TestDomain stored({.store_mode = 1});
    const auto copy = REPLACE(zur_type_info_ptr_get, [&](auto...) { return &enum_type; });
    Instance* e = create("orlan_ial_svm_epm_in_e", stored);
    EXPECT_EQ(traces.take(), "6 \" variant 1 requested only 0 variants present\"\n");
    EXPECT_EQ(records[1].created, 1u);
    destroy("orlan_ial_svm_epm_in_e", stored, e);
    EXPECT_EQ(traces.take(), "6 \" variant 1 requested only 0 variants present\"\n");
    EXPECT_EQ(records[1].destroyed, 1u);
}

// ---- references ----

using References = Lifecycle;

TEST_F(References, ObjectLivesUntilTheLastReferenceGoes) {
    TestDomain D;
    Traces traces;
    Instance* x = create("webauth_watch_list", D);
    ASSERT_EQ(platform_oid_assign(D, D.set_id(), x, 9,
                                  [](zur_domain* domain, std::uint32_t S, void* instance) {
                                      operation<Destroy>("webauth_watch_list",
                                                         "destroy")(domain, S, static_cast<Instance*>(instance));
                                  }),
              0u);
    for (int i = 0; i < 2; ++i) ASSERT_EQ(platform_oid_add_reference(D, 9), 0u);
    Fill fill(D, 4);
    ASSERT_TRUE(fill.fill(catalogue::webauth_watch_list, x));
    destroy("webauth_watch_list", D, x);
    EXPECT_EQ(traces.take(),
              "6 \" webauth_watch_list destroy: Object has references and will be cleaned up when all of "
              "them are released\"\n");
    EXPECT_EQ(x->type_info, type_info_of("webauth_watch_list"));
    EXPECT_TRUE(fill.check(catalogue::webauth_watch_list, x));
    for (const char* then : {"", "7 \" webauth_watch_list destroy: Successfully removed OID mapping\"\n"}) {
        zurlib_lookup_and_update_oid_ref_count(D, D.set_id(), 9, 0, &D.st);
        EXPECT_EQ(traces.take(), then);
    }
    EXPECT_EQ(D.st, 0u);
    EXPECT_EQ(heap().blocks().size(), 0u);
}

/// What is left of a mapping that could not be removed: a trace, and the code in the Domain.
std::string not_removed(const std::string& type, int code) {
    return "trace(3 \" " + type + " destroy: Failed to remove oid mapping for object. Error " + std::strerror(code) +
           "\")\nzur_store_err(" + std::to_string(code) + ")\n";
}

TEST_F(References, MappingThatCannotBeRemovedKeepsTheObject) {
    TestDomain D;
    for (const TypeNumbers& t : all_records()) {
        Instance* x = create(t.name, D);
        x->flags |= ZUR_HAS_OID; // with no mapping behind it
        Recorder recorder(D);
        recorder.name(x, t.size, "x");
        destroy(t.name, D, x);
        EXPECT_EQ(recorder.take(), "zur_request_oid_mapping_destroy(S, x, local)\n" + not_removed(t.name, 2));
        EXPECT_EQ(D->last_error, 2u);
        x->flags = 0;
        destroy(t.name, D, x);
    }
}

TEST_F(References, EachReferenceOfAFieldIsDropped) {
    TestDomain D;
    Instance* others[2] = {create("webauth_watch_list", D), create("webauth_watch_list", D)};
    for (std::uint64_t i = 0; i < 2; ++i) {
        ASSERT_EQ(platform_oid_assign(D, D.set_id(), others[i], 71 + i, nullptr), 0u);
        ASSERT_EQ(platform_oid_add_reference(D, 71 + i), 0u);
    }
    for (const char* type : {"linksec_ether_info", "auth_mgr_linksec_start_info"}) {
        // The first of three OIDs names nothing: its release fails, the others go on.
        const std::size_t field = std::string_view(type) == "linksec_ether_info" ? 18 : 42; // the second address
        Instance* x = create(type, D);
        for (std::uint64_t oid : {71u, 72u})
            while (platform_oid_references(D, oid) == 0) platform_oid_add_reference(D, oid);
        const std::uint64_t oids[] = {0xABC, 71, 72};
        platform_field_set_oids(D, reinterpret_cast<char*>(x) + field, oids, 3);
        Traces traces;
        destroy(type, D, x);
        EXPECT_EQ(traces.take(), "3 \" linksec_ether_info destroy: Failed to decrement ref count of oid 0xabc. Error " +
                                     std::string(std::strerror(2)) + "\"\n");
        EXPECT_EQ(platform_oid_references(D, 71), 0u);
        EXPECT_EQ(platform_oid_references(D, 72), 0u);
    }
    for (Instance* other : others) destroy("webauth_watch_list", D, other);
}

TEST_F(References, UnreadableReferencesStopTheDestruction) {
    TestDomain D;
    Instance* x = create("linksec_ether_info", D);
    Fill fill(D, 6);
    ASSERT_TRUE(fill.fill(catalogue::linksec_ether_info, x));
    const std::uint64_t unreadable[] = {5, 0};
    platform_field_set_oids(D, reinterpret_cast<char*>(x) + 12, unreadable, 2);
    Recorder recorder(D);
    recorder.name(x, 56, "x");
    destroy("linksec_ether_info", D, x);
    EXPECT_EQ(recorder.take(), lines(R"(
        zur_get_instance_variant(x, 1, 0); zur_mac_addr_get_oid_count(S, x+12, local)
        zur_mac_addr_get_object_references(S, x+12, local, 2, local))") +
                                   "trace(3 \" linksec_ether_info destroy: Failed to get oid references from object. "
                                   "Error " +
                                   std::strerror(22) + "\")\n");
    EXPECT_TRUE(fill.check(catalogue::linksec_ether_info, x));
    platform_field_set_oids(D, reinterpret_cast<char*>(x) + 12, nullptr, 0);
    destroy("linksec_ether_info", D, x);
}

// A code that a field's count has left meets the next embedded record, which says so and is destroyed all the same.
TEST_F(References, ErrorOfAFieldIsNotedByTheNextRecord) {
    TestDomain D;
    Traces traces;
    Instance* x = create("orlan_svm_epm_ip_address_update_notify", D);
    const auto failure = REPLACE(zur_mac_addr_get_oid_count, [](auto*, auto, auto*, std::uint32_t* st) {
        *st = 5;
        return 0u;
    });
    destroy("orlan_svm_epm_ip_address_update_notify", D, x);
    EXPECT_EQ(traces.take(), "3 \" Error already present in call to get object oid count\"\n");
}

// ---- what a runtime has moved out of the Instance ----

TEST_F(Lifecycle, OwnHeaderBlockIsFreedWithTheInstance) {
    for (const Mode& mode : all_modes()) {
        SCOPED_TRACE(mode.text());
        TestDomain D(mode);
        for (const TypeNumbers& t : all_records()) {
            Instance* x = create(t.name, D);
            ASSERT_EQ(platform_instance_separate_header(D, D.set_id(), x), 0u);
            Recorder recorder(D);
            recorder.name(x, t.tracked, "x");
            recorder.name(x->type_info, 8, "header");
            destroy(t.name, D, x);
            const std::string calls = recorder.take();
            const std::string end = std::string(mode.marks() ? "zurdb_plat_set_destroy(S, x)\n" : "") +
                                    "obj_free(S, header)\nwrite_range(x, 8, S, null)\nobj_free(S, x)\n";
            EXPECT_TRUE(calls.ends_with(end)) << t.name << "\n" << calls;
        }
    }
}

TEST_F(Lifecycle, MappingOfAMovedInstanceIsRemoved) {
    TestDomain D({.tracking = ZUR_TRACKED_MODE});
    for (const int flag : {ZUR_RA_DATA, ZUR_MOVED_FLAGS})
        for (const TypeNumbers& t : all_records()) {
            SCOPED_TRACE(t.name);
            Instance* x = create(t.name, D);
            zurlib_update_sttr_offset(D, D.set_id(), x, static_cast<std::uint32_t>(t.size)); // and the root is not zero
            x->flags = static_cast<std::uint8_t>(ZUR_TRACKED | flag);
            Recorder recorder(D);
            recorder.name(x, t.tracked, "x");
            {
                // The removal fails: the fields are gone, the memory stays.
                const auto failure =
                    REPLACE(zur_hd_mapping_destroy, [&](auto*, auto, void* address, std::uint32_t* st) {
                        if (address == x) *st = 5;
                    });
                destroy(t.name, D, x);
            }
            const std::string calls = recorder.take();
            EXPECT_TRUE(calls.ends_with("zur_hd_mapping_destroy(S, x, local)\n" + not_removed(t.name, 5))) << calls;
            EXPECT_EQ(calls.find("zurlib_get_sttr_offset(S, x)") != std::string::npos, flag == ZUR_MOVED_FLAGS);
            EXPECT_EQ(D->last_error, 5u);
            EXPECT_EQ(heap().blocks().size(), 1u);
            destroy(t.name, D, x);
            EXPECT_TRUE(recorder.take().ends_with("zur_hd_mapping_destroy(S, x, local)\nwrite_range(x, 8, S, null)\n"
                                                  "obj_free(S, x)\n"));
            // Without mappings in the Domain, none is asked for.
            x = create(t.name, D);
            x->flags |= ZUR_RA_DATA;
            D->hd_mapping_root = 0;
            recorder.take();
            destroy(t.name, D, x);
            EXPECT_EQ(recorder.take().find("zur_hd_mapping_destroy"), std::string::npos);
        }
}

} // namespace
} // namespace epm::test
