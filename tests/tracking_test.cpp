// State flags as bytes: where each lies, in every record, nested ones in the outermost record's block, in older layouts
// and in blocks that the runtime has moved; what a flag write announces; and all flags at once.
#include "support/bundle_test.hpp"
#include "support/calls.hpp"
#include "support/types.hpp"

#include <cstring>
#include <map>

namespace epm::test {
namespace {

class Tracking : public BundleTest {
protected:
    /// Writes a flag, and gives the place of the one byte that changes in the memory that begins at `start`.
    template <class Write>
    static std::size_t place_of(const void* start, std::size_t length, Write write) {
        const auto* now = static_cast<const unsigned char*>(start);
        const std::vector<unsigned char> before(now, now + length);
        write();
        std::size_t place = length;
        for (std::size_t i = 0; i < length; ++i) {
            if (now[i] == before[i]) continue;
            EXPECT_EQ(place, length) << "bytes " << place << " and " << i;
            place = i;
        }
        return place;
    }

    /// The places of all flags of the Instance, nested ones behind their record's, in declaration order.
    static void add_places(TestDomain& D, const Record& r, Instance* x, const void* start, std::size_t length,
                           std::vector<std::size_t>& places) {
        static std::uint32_t value = 0;
        const auto add = [&](auto write) {
            value = value % 255 + 1;
            places.push_back(place_of(start, length, write));
            EXPECT_EQ(D.st, 0u);
            EXPECT_EQ(static_cast<const unsigned char*>(start)[places.back()], value) << r.name;
        };
        for (std::size_t i = 0; i < r.count; ++i) {
            const Field& f = r.fields[i];
            if (!f.is_tracked() || f.since > x->variant) continue;
            add([&] { call(D, r, f, f.has_element_flags() ? "state_flag_whole_set" : "state_flag_set", x, value); });
            for (const std::uint32_t element : {0u, 255u})
                if (f.kind == Kind::run) add([&] { call(D, r, f, "state_flag_set", x, element, value); });
            if (f.kind == Kind::embedded)
                add_places(D, *f.record, call<Instance*>(D, r, f, "get", x), start, length, places);
        }
    }
};

// Every flag has a byte of its own behind the record's fields, in declaration order, a nested record's right behind the
// flag of the field that holds it.
TEST_F(Tracking, FlagsLieInTheOutermostRecordsBlock) {
    const std::map<std::string, std::vector<std::size_t>> stated = {
        {"webauth_watch_list", {0}},
        {"rcl_client_vlan_t", {0, 1, 2, 3, 4, 5}},
        {"orlan_ial_vlan_group_info", {0, 1, 16, 17}},
        {"epm_client_acl_feat_config", {0, 1, 2, 3, 4, 259}},
        {"rcl_client_acl_t", {0, 1, 2}},
        {"rcl_sess_mgr_authorize_ack", {0, 2, 4, 24, 26, 28}},
        {"orlan_ial_svm_epm_data", {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}},
        {"orlan_ial_svm_bm_data", {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16, 17, 24, 40, 41,
                                   42, 43, 44, 45, 46, 48, 50, 52, 72, 74, 76, 80, 81, 82, 83, 84, 85, 86, 87, 88}},
    };
    std::size_t flags = 0;
    for (const Record* r : catalogue::all_records) {
        SCOPED_TRACE(r->name);
        const TypeNumbers& t = *std::ranges::find(all_types(), r->name, &TypeNumbers::name);
        TestDomain D({.tracking = ZUR_TRACKED_MODE});
        Instance* x = create(r->name, D);
        std::vector<std::size_t> places;
        add_places(D, *r, x, x, t.tracked, places);
        EXPECT_TRUE(std::ranges::is_sorted(places, std::ranges::less_equal())); // no two alike
        for (std::size_t& place : places) {
            EXPECT_GE(place, t.size);
            EXPECT_LT(place, t.tracked);
            place -= t.size;
        }
        if (stated.contains(r->name)) {
            EXPECT_EQ(places, stated.at(r->name));
        }
        // Nothing but what is built from placed objects or pointers leaves room between its flags.
        const bool is_dense = !r->any([](const Field& f) {
            return f.is_placed_object() || f.has_element_flags() ||
                   (f.kind == Kind::embedded &&
                    f.record->any([](const Field& n) { return n.is_placed_object() || n.has_element_flags(); }));
        });
        EXPECT_TRUE(!is_dense || places.size() == t.tracked - t.size);
        flags += places.size();
        std::memset(reinterpret_cast<char*>(x) + t.size, 0, t.tracked - t.size); // some name element flags
        destroy(r->name, D, x);
    }
    EXPECT_EQ(flags, 181u + 44 + 2); // fields, fields of embedded records, two elements of a fixed run
}

// An Instance that an older build has left in a store has its block where its layout ends.
TEST_F(Tracking, OlderLayoutsHaveTheirBlockEarlier) {
    for (const Record* record : catalogue::all_records) {
        const Record& r = *record;
        if (r.top() == 0) continue;
        SCOPED_TRACE(r.name);
        const auto body_of = operation<std::uint32_t(zur_domain*, const Instance*, std::uint32_t, std::uint32_t)>(
            r, "sizeof_internal"); // which has a test of its own
        TestDomain D({.tracking = ZUR_TRACKED_MODE});
        for (std::int8_t older = 0; older <= r.top(); ++older) {
            Instance* x = create(r.name, D);
            const std::size_t length = heap().block_of(x)->second.size;
            x->variant = x->layout_variant = older;
            const Field& first = r.fields[0].is_tracked() ? r.fields[0] : r.fields[2];
            const auto get = [&] { return call<std::uint8_t>(D, r, first, "state_flag_get", x); };
            EXPECT_EQ(place_of(x, length, [&] { call(D, r, first, "state_flag_set", x, 7u); }), body_of(D, x, 0, 0));
            EXPECT_EQ(get(), 7);
            // Without a handle the newest layout's place is taken.
            zur_tracking_handle* handle = std::exchange(D->tracking_handle, nullptr);
            EXPECT_EQ(get(), older == r.top() ? 7 : 0);
            D->tracking_handle = handle;
            EXPECT_EQ(D.st, 0u);
            x->variant = x->layout_variant = r.top();
            destroy(r.name, D, x);
        }
    }
}

TEST_F(Tracking, MovedBlockIsFoundThroughTheRuntime) {
    TestDomain D({.tracking = ZUR_TRACKED_MODE});
    for (const TypeNumbers& t : all_types()) {
        const Record* r = record_named(t.name);
        if (r == nullptr || !r->fields[0].is_tracked()) continue;
        SCOPED_TRACE(t.name);
        std::vector<std::uint64_t> memory(1000);
        auto* x = reinterpret_cast<Instance*>(memory.data());
        const auto* block = reinterpret_cast<const unsigned char*>(&memory[500]);
        whole<void*>(D, t.name, "initialize", x, type_info_of(t.name), 0u, 0u, 0u, static_cast<void*>(nullptr));
        zurlib_update_sttr_offset(D, D.set_id(), x, 4000);
        Recorder recorder(D);
        recorder.name(x, 4000, "x");
        recorder.name(block, 4000, "block");
        call(D, *r, r->fields[0], "state_flag_set", x, 0x1FEu);
        const std::string kind = r->fields[0].is_enumerated() ? "1" : "0";
        EXPECT_EQ(recorder.take(), "zur_get_manifested_type_info(x)\nzurlib_adjust_variant(S, x, " + t.name + ", " +
                                       std::to_string(t.used.size() - 1) + ", st)\nzur_get_instance_variant(x, 1, " +
                                       kind + ")\nzurlib_get_sttr_offset(S, x)\nwrite_range(block, 1, S, null)\n");
        EXPECT_EQ(block[0], 0xFE);
        EXPECT_EQ(call<std::uint8_t>(D, *r, r->fields[0], "state_flag_get", x), 0xFE);
        EXPECT_EQ(recorder.take(), "zurlib_get_sttr_offset(S, x)\n");
        bare(D, t.name, "destroy_internal", x, 0u);
    }
}

TEST_F(Tracking, AllFlagsAtOnce) {
    for (const Mode& mode : tracking_modes()) {
        for (const TypeNumbers& t : all_types()) {
            if (t.is_enum) continue;
            SCOPED_TRACE(t.name + ", " + mode.text());
            TestDomain D(mode);
            Instance* x = create(t.name, D);
            const auto set_all = [&](std::uint32_t flag) { bare(D, t.name, "set_all_state_tracking_flag", x, flag); };
            const auto* bytes = reinterpret_cast<const unsigned char*>(x);
            const std::size_t length = heap().block_of(x)->second.size;
            std::vector<unsigned char> expected(bytes, bytes + length);
            Recorder recorder(D);
            set_all(0x105);
            std::fill(expected.begin() + static_cast<std::ptrdiff_t>(t.size), expected.end(), 5);
            EXPECT_EQ(std::vector<unsigned char>(bytes, bytes + length), expected);
            // An Instance without flags, in a tracking Domain, stays as it is.
            x->flags = static_cast<std::uint8_t>(x->flags & ~ZUR_TRACKED);
            set_all(9);
            EXPECT_TRUE(std::all_of(bytes + t.size, bytes + length, [](unsigned char b) { return b == 5; }));
            EXPECT_EQ(recorder.take(), "");
            x->flags = static_cast<std::uint8_t>(expected[10]);
            destroy(t.name, D, x);
        }
    }
}

// Both flag operations of every field, where they are refused: the Domain does not track, the Instance does not.
TEST_F(Tracking, RefusedFlagOperations) {
    std::size_t fields = 0;
    Traces traces;
    for (const Record* r : catalogue::all_records) {
        TestDomain D({.tracking = ZUR_TRACKED_MODE});
        TestDomain untracked({.tracking = ZUR_UNTRACKED_MODE});
        Instance* x = create(r->name, D);
        Instance* plain = create(r->name, untracked);
        for (std::size_t i = 0; i < r->count; ++i) {
            const Field& f = r->fields[i];
            if (!f.is_tracked()) continue;
            ++fields;
            SCOPED_TRACE(std::string(r->name) + "." + f.name);
            const std::string kind = f.has_element_flags() ? "state_flag_whole_" : "state_flag_";
            const auto get = [&](TestDomain& in, Instance* of) {
                return call<std::uint8_t>(in, *r, f, kind + "get", of);
            };
            const auto set = [&](TestDomain& in, Instance* of) { call(in, *r, f, kind + "set", of, 1u); };
            const auto expect_refused = [&](TestDomain& in, std::uint32_t code, const std::string& trace) {
                EXPECT_EQ(std::exchange(in.st, 0), code);
                EXPECT_EQ(std::exchange(in->last_error, 0), code);
                EXPECT_EQ(traces.take(), trace);
            };
            EXPECT_EQ(get(untracked, x), 0);
            expect_refused(untracked, 22, "");
            set(untracked, x);
            expect_refused(untracked, 22, "");
            EXPECT_EQ(get(D, plain), 0);
            expect_refused(D, 22, "3 \" The object is non state tracked\"\n");
            set(D, plain);
            expect_refused(D, 22, "3 \" The object is not state tracked\"\n");
            D.agree(r->name, -1);
            x->variant = -1;
            set(D, x);
            expect_refused(D, 43, "");
            EXPECT_EQ(get(D, x), 0); // a read does not look at the variant
            expect_refused(D, 0, "");
        }
        x->variant = r->top();
        destroy(r->name, D, x);
        destroy(r->name, untracked, plain);
    }
    EXPECT_EQ(fields, 181u);
}

} // namespace
} // namespace epm::test
