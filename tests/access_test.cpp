// What the accessors leave behind: every accessor of every field is driven once and counted, every failure is provoked
// once, and every allocation is refused once. Which runtime calls they make, in which order, is tested in
// access_order_test.cpp.
#include "access/bulk_fields.hpp"
#include "support/bundle_test.hpp"
#include "support/calls.hpp"
#include "support/fill.hpp"
#include "support/imports.hpp"
#include "support/types.hpp"

#include <cstring>

namespace epm::test {
namespace {

constexpr auto acl = "orlan_ial_svm_acl_data";
constexpr auto message = "orlan_ial_svm_epm_data";
constexpr auto group = "orlan_ial_vlan_group_info";
constexpr auto config = "epm_client_acl_feat_config";
constexpr auto context = "epm_client_acl_feat_ctx";
constexpr auto client_vlan = "rcl_client_vlan_t";
constexpr auto templates = "rcl_client_intf_templ_list";
constexpr auto one_template = "rcl_client_intf_templ";
constexpr auto bound_list = "bm_feat_conf_list";

template <class Result = std::uint32_t, class Type, class FieldType, class... A>
Result chain(TestDomain& D, const Type& type, const FieldType& field, const char* name, A... arguments) {
    D->last_error = 0;
    return operation<Result(zur_domain*, A...)>(type, field, name)(D, arguments...);
}
std::uint32_t number(TestDomain& D, const char* type, const char* field, Instance* x) {
    return call<std::uint32_t>(D, type, field, "get_value", x);
}
/// The status word, which is lowered again.
std::uint32_t status(TestDomain& D) {
    return std::exchange(D.st, 0u);
}
std::string text(TestDomain& D, const char* type, const char* field, Instance* x) {
    char found[64];
    call(D, type, field, "get", x, &found[0], static_cast<std::uint32_t>(sizeof found));
    return found;
}

class Access : public BundleTest {};

// ---- every accessor ----

/// What a record's accessors do besides setting and reading values, which Fill does in all their ways.
class Walk {
public:
    Walk(TestDomain& domain, const Record& record, unsigned seed) : D(domain), r(record), seed_(seed) {}

    void run() {
        x = create(r.name, D);
        Fill fill(D, seed_);
        ASSERT_TRUE(fill.fill(r, x));
        for (const Field& f : r.fields)
            if (f.kind == Kind::list)
                list(f);
            else if (f.kind == Kind::arm)
                arm(f);
        EXPECT_TRUE(fill.check(r, x));
        for (const Field& f : r.fields)
            if (f.name != nullptr && f.is_tracked()) flags(f);
        EXPECT_EQ(operation<Instance*(zur_domain*, std::uint32_t, Instance*)>(r, "get")(D, D.set_id(), x), x);
        Instance *z = create(r.name, D), *silent = create(r.name, D);
        whole(D, r, "set", z, x);
        EXPECT_EQ(status(D), 0u);
        EXPECT_TRUE(fill.check(r, z));
        if (D.mode().is_tracking())
            for (const Field& f : {r.fields[0], r.fields[r.count - 1]})
                if (f.is_tracked() && !f.has_element_flags()) {
                    EXPECT_EQ(call<std::uint8_t>(D, r, f, "state_flag_get", z), 9) << r.name << "." << f.name;
                }
        all_at_once(z, silent);
        for (const Field& f : r.fields)
            if (f.kind == Kind::array) {
                operation<void(zur_domain*, std::uint32_t, Instance*)>(r, f, "remove_elements")(D, D.set_id(), z);
                EXPECT_EQ(number(D, r.name, f.companion, z), 0u);
            }
        for (Instance* instance : {silent, z, x}) destroy(r.name, D, instance);
    }

private:
    void arm(const Field& f) {
        auto* held = call<Instance*>(D, r, f, "get", x);
        EXPECT_EQ(call<Instance*>(D, r, f, "get_detach", x), held);
        if (held == nullptr) return;
        expect_flag(f, call<std::uint8_t>(D, r, f, "state_flag_get", x), 0);
        EXPECT_EQ(call<Instance*>(D, r, f, "get", x), nullptr);
        call(D, r, f, "set", x, held);
        EXPECT_EQ(call<Instance*>(D, r, f, "get_detach", x), held);
        EXPECT_EQ(chain(D, r, f, "set_cr", x, held), 0u);
        // The tag alone can be set, too.
        call(D, r, r.fields[0], "set_value", x, f.tag);
        call(D, r, r.fields[0], "set", x, call<void*>(D, r, r.fields[0], "get", x));
        EXPECT_EQ(status(D), 0u);
    }
    void list(const Field& f) {
        auto* a = call<Instance*>(D, r, f, "get_first", x);
        auto* b = call<Instance*>(D, r, f, "get_last", x);
        const auto get_cr = [&](int flag, Instance* of) { return chain<Instance*>(D, r, f, "get_cr", x, flag, of); };
        EXPECT_EQ(get_cr(0, nullptr), a);
        EXPECT_EQ(get_cr(1, nullptr), b);
        EXPECT_EQ(get_cr(2, b), a);
        EXPECT_EQ(get_cr(3, a), b);
        call(D, r, f, "remove", x, a);
        EXPECT_EQ(call<Instance*>(D, *f.record, f, "get_parent", a), nullptr);
        EXPECT_EQ(chain(D, r, f, "remove_cr", x, b), 0u);
        for (const char* name : {"get_first", "get_last"}) EXPECT_EQ(call<Instance*>(D, r, f, name, x), nullptr);
        EXPECT_EQ(call<std::uint32_t>(D, r, f, "get_count", x), 0u);
        call(D, r, f, "set_last", x, b);
        EXPECT_EQ(chain(D, r, f, "add_cr", x, a, 2, b), 0u);
    }

    void expect_flag(const Field& f, std::uint8_t found, std::uint8_t wanted) {
        const bool has_flags = D.mode().is_tracking();
        EXPECT_EQ(status(D), has_flags ? 0u : 22u) << r.name << "." << f.name;
        EXPECT_EQ(found, has_flags ? wanted : 0) << r.name << "." << f.name;
    }
    void flags(const Field& f) {
        const bool is_set = f.kind != Kind::arm || call<Instance*>(D, r, f, "get", x) != nullptr;
        const std::uint8_t whole_flag = is_set ? 2 : 0;
        if (!f.has_element_flags()) {
            // An embedded record may have been filled in its place, which marks its own fields alone.
            const auto found = call<std::uint8_t>(D, r, f, "state_flag_get", x);
            expect_flag(f, found, f.kind == Kind::embedded ? found : whole_flag);
            call(D, r, f, "state_flag_set", x, 0x109u);
            D.st = 0;
            return expect_flag(f, call<std::uint8_t>(D, r, f, "state_flag_get", x), 9);
        }
        std::uint8_t* run = nullptr;
        call(D, r, f, "state_flag_get_arr", x, &run);
        // A setter of the whole run marks no element.
        const std::uint8_t mark = run != nullptr && run[1] == 0 && !f.is_of_record() ? 0 : 2;
        expect_flag(f, run != nullptr ? run[0] : 0, mark);
        expect_flag(f, call<std::uint8_t>(D, r, f, "state_flag_whole_get", x), whole_flag);
        expect_flag(f, call<std::uint8_t>(D, r, f, "state_flag_get", x, 1u), mark);
        call(D, r, f, "state_flag_set", x, 1u, 7u);
        D.st = 0;
        expect_flag(f, call<std::uint8_t>(D, r, f, "state_flag_get", x, 1u), 7);
        EXPECT_TRUE(run == nullptr || run[1] == 7);
        call(D, r, f, "state_flag_whole_set", x, 3u);
        D.st = 0;
        expect_flag(f, call<std::uint8_t>(D, r, f, "state_flag_whole_get", x), 3);
        // A wrong count changes nothing. The right count is tried only where the write overlaps no pointer.
        std::vector<std::uint8_t> all(256, 6);
        call(D, r, f, "state_flag_set_arr", x, all.data(), 255u);
        EXPECT_EQ(status(D), D.mode().is_tracking() ? 2u : 22u);
        expect_flag(f, call<std::uint8_t>(D, r, f, "state_flag_whole_get", x), 3);
    }

    /// The numbers of z are read at once and written at once into a fresh Instance, which keeps its flags.
    void all_at_once(Instance* z, Instance* silent) {
        std::vector<std::uint64_t> read(r.count, 0), again(r.count, 0), written;
        std::vector<void*> outs, outs_again;
        for (std::size_t i = 0; i < r.count; ++i) {
            if (!access::is_read_at_once(r.fields[i])) continue;
            outs.push_back(&read[i]);
            outs_again.push_back(&again[i]);
        }
        spread(D, r, "get_all", z, outs);
        for (std::size_t i = 0; i < r.count; ++i)
            if (access::is_written_at_once(r, r.fields[i])) written.push_back(read[i]);
        spread(D, r, "set_all", silent, written);
        spread(D, r, "get_all", silent, outs_again);
        EXPECT_EQ(status(D), 0u);
        for (std::size_t i = 0; i < r.count; ++i) {
            const Field& f = r.fields[i];
            if (!access::is_read_at_once(f)) continue;
            SCOPED_TRACE(r.name + std::string(".") + f.name);
            const bool is_wide = !f.is_enumerated() && f.foreign->length == 8;
            const bool is_short = !f.is_enumerated() && f.foreign->length < 4;
            EXPECT_EQ(is_wide    ? call<std::uint64_t>(D, r, f, "get_value", z)
                      : is_short ? read[i]
                                 : call<std::uint32_t>(D, r, f, "get_value", z),
                      read[i]);
            EXPECT_EQ(again[i], access::is_written_at_once(r, f) ? read[i] : 0u);
            if (D.mode().is_tracking() && f.kind == Kind::value) {
                EXPECT_EQ(call<std::uint8_t>(D, r, f, "state_flag_get", silent), 0);
            }
        }
    }

    TestDomain& D;
    const Record& r;
    unsigned seed_;
    Instance* x = nullptr;
};

// 90 values with 6 accessors, 25 lengths with 2, 29 objects and 14 embedded records with 4, 24 texts with 5, 18 arms
// with 6, arrays with 15, 13, 10 and 10, two lists with 15 and one on the element's side.
constexpr std::size_t accessors = 90 * 6 + 25 * 2 + (29 + 14) * 4 + 24 * 5 + 18 * 6 + 15 + 13 + 10 + 10 + 2 * 16;

TEST_F(Access, EveryAccessorOfEveryField) {
    for (auto& [name, e] : fetched_exports()) e.is_called = false;
    std::size_t fields = 0;
    for (const Mode& mode : tracking_modes())
        for (const Record* r : catalogue::all_records) {
            TestDomain D(mode);
            for (unsigned seed = 1; seed <= 10; ++seed) {
                Walk(D, *r, seed).run();
                if (HasFailure()) FAIL() << r->name << ", seed " << seed << ", " << mode.text();
                ASSERT_EQ(heap().blocks().size(), 0u) << r->name << ", seed " << seed << ", " << mode.text();
            }
            fields += r->count;
        }
    EXPECT_EQ(fields, 206u * tracking_modes().size());
    std::size_t driven = 0;
    for (const auto& [name, e] : fetched_exports()) driven += e.is_called && !e.field.empty();
    EXPECT_EQ(driven, accessors);
}

// ---- plain fields ----

TEST_F(Access, AFieldAboveTheVariantIsRefused) {
    TestDomain D;
    D.agree(acl, 1);
    Instance* x = create(acl, D);
    EXPECT_EQ(call<void*>(D, acl, "ip_addr", "get", x), nullptr);
    EXPECT_EQ(status(D), 43u);
    EXPECT_EQ(number(D, acl, "ip_addr", x), 0u);
    EXPECT_EQ(status(D), 43u);
    call(D, acl, "ip_addr", "set_value", x, 5u);
    EXPECT_EQ(status(D), 43u);
    EXPECT_EQ(x->variant, 1);
    // An old field raises as far as the runtime allows; a new one succeeds then.
    D.agree(acl, 2);
    call(D, acl, "sequence", "set_value", x, 6u);
    EXPECT_EQ(x->variant, 2);
    x->variant = 1;
    call(D, acl, "ip_addr", "set_value", x, 5u);
    EXPECT_EQ(number(D, acl, "ip_addr", x), 5u);
    x->variant = -1; // unknown to the peer: no field is there
    D.agree(acl, -1);
    call(D, acl, "acl_name", "set", x, "a", 1u);
    EXPECT_EQ(status(D), 43u);
    x->variant = 2;
    destroy(acl, D, x);

    D.agree_all(0);
    Instance* m = create(message, D);
    Instance* arm = create("orlan_ial_dacl_dnld_complete", D);
    call(D, message, "dacl_dnld_comp_data", "set", m, arm);
    EXPECT_EQ(status(D), 43u);
    EXPECT_EQ(number(D, message, "epm_type", m), 0u);
    // The tag's own variant bounds its value.
    call(D, message, "epm_type", "set_value", m, 9u);
    EXPECT_EQ(status(D), 0u);
    call(D, message, "epm_type", "set_value", m, 10u);
    EXPECT_EQ(status(D), 43u);
    EXPECT_EQ(number(D, message, "epm_type", m), 9u);
    destroy("orlan_ial_dacl_dnld_complete", D, arm);
    destroy(message, D, m);
}

// An Instance without state flags in a Domain that tracks: the value is stored, the flag is not, and 22 is left. No
// containment is recorded then.
TEST_F(Access, AnUntrackedInstanceInATrackingDomain) {
    TestDomain D({.tracking = ZUR_TRACKED_MODE, .containment = true});
    const std::string refusal = "3 \" The object is not state tracked\"\n";
    Traces traces;
    Recorder recorder(D);
    const auto untracked = [&](const char* type) {
        Instance* x = create(type, D);
        x->flags &= static_cast<std::uint8_t>(~ZUR_TRACKED);
        recorder.take();
        return x;
    };
    const auto expect_refused = [&](const std::string& trace) {
        EXPECT_EQ(status(D), 22u);
        EXPECT_EQ(D->last_error, 22u);
        EXPECT_EQ(traces.take(), trace);
    };
    const auto refused = [&](const char* type, const char* field, const char* name, Instance* x, auto... arguments) {
        SCOPED_TRACE(std::string(type) + "_" + field + "_" + name);
        call(D, type, field, name, x, arguments...);
        expect_refused(refusal);
    };
    std::uint32_t seven = 7;
    Instance* x = untracked(acl);
    refused(acl, "sequence", "set", x, &seven);
    refused(acl, "acl_name", "set", x, "guest", 5u);
    EXPECT_EQ(recorder.take().find("containment"), std::string::npos);
    EXPECT_EQ(number(D, acl, "sequence", x), 7u);
    EXPECT_EQ(text(D, acl, "acl_name", x), "guest");
    refused(acl, "sequence", "set_value", x, 8u);
    EXPECT_EQ(number(D, acl, "sequence", x), 8u);

    Instance* v = untracked(client_vlan);
    auto* characters = reinterpret_cast<char*>(v) + 24;
    std::memcpy(characters, "uvwxyz", 6);
    refused(client_vlan, "ieee_mac", "set", v, "abc", 3);
    EXPECT_EQ(std::string(characters, 6), "abcxyz"); // without the closing NUL

    // The arm is in its place, whichever of the two lacks the flags.
    Instance* m = untracked(message);
    Instance* entry = create(acl, D);
    refused(message, "acl_data", "set", m, entry);
    EXPECT_EQ(call<Instance*>(D, message, "acl_data", "get", m), entry);
    EXPECT_EQ(number(D, message, "epm_type", m), 1u);
    EXPECT_EQ(call<Instance*>(D, message, "acl_data", "get_detach", m), nullptr); // nobody gets it
    expect_refused(refusal);
    EXPECT_EQ(call<Instance*>(D, message, "acl_data", "get", m), nullptr);
    EXPECT_EQ(number(D, message, "epm_type", m), 0u);
    m->flags |= ZUR_TRACKED;
    call(D, message, "acl_data", "set", m, x);
    expect_refused("3 \" The val object is not state tracked\"\n");
    EXPECT_EQ(call<Instance*>(D, message, "acl_data", "get", m), x);
    EXPECT_EQ(call<std::uint8_t>(D, message, "acl_data", "state_flag_get", m), 0);

    // Arrays are refused before anything changes.
    Instance* g = untracked(group);
    refused(group, "vlans", "set", g, 0u, &seven);
    refused(group, "vlans", "set_mem", g, &seven, 1u);
    EXPECT_EQ(number(D, group, "max_vlan", g), 0u);
    EXPECT_EQ(heap().block_of(*reinterpret_cast<void**>(reinterpret_cast<char*>(g) + 24)), nullptr);
    Instance* c = untracked(config);
    refused(config, "acl_name", "set_mem", c, reinterpret_cast<std::uint8_t*>(&seven), 2);
    EXPECT_EQ(call<std::uint8_t>(D, config, "acl_name", "get_value", c, 0u), 0u);
    Instance* t = create(templates, D);
    Instance* element = untracked(one_template);
    refused(templates, "data", "set", t, 0u, element, 0u);
    EXPECT_EQ(number(D, templates, "max_intf_templ", t), 0u);

    // A list takes the element all the same.
    Instance* owner = untracked(context);
    refused(context, bound_list, "set_first", owner, c);
    EXPECT_EQ(call<std::uint32_t>(D, context, bound_list, "get_count", owner), 1u);

    for (const auto& [type, instance] : {std::pair(context, owner),
                                         {one_template, element},
                                         {templates, t},
                                         {group, g},
                                         {message, m},
                                         {client_vlan, v},
                                         {acl, entry}})
        destroy(type, D, instance);
}

TEST_F(Access, NumbersWithoutAPlaceOrAHandle) {
    TestDomain D({.tracking = ZUR_TRACKED_MODE});
    Instance* x = create(acl, D);
    {
        const auto nothing = REPLACE(u_int32_get, [](auto...) { return nullptr; });
        call(D, acl, "sequence", "set_value", x, 4u);
        EXPECT_EQ(status(D), 2u);
        EXPECT_EQ(number(D, acl, "sequence", x), 0u);
        EXPECT_EQ(status(D), 0u);
    }
    EXPECT_EQ(number(D, acl, "sequence", x), 0u);
    // Flags can be read without a handle, but are not raised.
    call(D, acl, "sequence", "set_value", x, 1u);
    const auto handle = std::exchange(D->tracking_handle, nullptr);
    call(D, acl, "is_ipv4", "set_value", x, 1u);
    EXPECT_EQ(call<std::uint8_t>(D, acl, "sequence", "state_flag_get", x), 2);
    EXPECT_EQ(call<std::uint8_t>(D, acl, "is_ipv4", "state_flag_get", x), 0);
    EXPECT_EQ(status(D), 0u);
    D->tracking_handle = handle;
    destroy(acl, D, x);
}

// ---- texts ----

TEST_F(Access, TextsAndTheirLengths) {
    TestDomain D({.tracking = ZUR_TRACKED_MODE});
    Instance* x = create(acl, D);
    EXPECT_EQ(text(D, acl, "acl_name", x), "");
    call(D, acl, "acl_name", "set", x, "guest-in", 8u);
    char found[16] = "X";
    call(D, acl, "acl_name", "get", x, &found[0], 0u);
    EXPECT_EQ(status(D), 22u);
    EXPECT_EQ(found[0], 'X');
    for (const auto& [size, cut] : {std::pair(1u, ""), {6u, "guest"}, {8u, "guest-i"}}) {
        call(D, acl, "acl_name", "get", x, &found[0], size);
        EXPECT_EQ(status(D), 28u);
        EXPECT_STREQ(found, cut);
    }
    call(D, acl, "acl_name", "get", x, &found[0], 9u);
    EXPECT_STREQ(found, "guest-in");
    // A source that ends early counts by the length that was given.
    call(D, acl, "acl_name", "set", x, "ab", 5u);
    EXPECT_EQ(number(D, acl, "max_acl_length", x), 5u);
    EXPECT_EQ(text(D, acl, "acl_name", x), "ab");
    call(D, acl, "acl_name", "set", x, "", 0u);
    EXPECT_EQ(number(D, acl, "max_acl_length", x), 0u);
    EXPECT_EQ(text(D, acl, "acl_name", x), "");
    // Where memory is refused, there is no text any more.
    call(D, acl, "ace_name", "set", x, "entry", 5u);
    call(D, acl, "ace_name", "state_flag_set", x, 0u);
    heap().refuse_nth(1);
    call(D, acl, "ace_name", "set", x, "longer", 6u);
    EXPECT_EQ(status(D), 12u);
    EXPECT_EQ(number(D, acl, "max_ace_length", x), 0u);
    EXPECT_EQ(text(D, acl, "ace_name", x), "");
    EXPECT_EQ(call<std::uint8_t>(D, acl, "ace_name", "state_flag_get", x), 0);
    destroy(acl, D, x);

    // 16 bits of the length count.
    Instance* name = create("fqdn_domain_name", D);
    const std::string source(0x10002, 'n');
    for (const std::uint32_t length : {0x10002u, 0x10000u}) {
        call(D, "fqdn_domain_name", "name", "set", name, source.data(), length);
        EXPECT_EQ(call<std::uint16_t>(D, "fqdn_domain_name", "name_len", "get_value", name), length - 0x10000);
        EXPECT_EQ(text(D, "fqdn_domain_name", "name", name), source.substr(0, length - 0x10000));
    }
    destroy("fqdn_domain_name", D, name);

    // Fixed characters, which need no terminator.
    Instance* v = create(client_vlan, D);
    call(D, client_vlan, "ieee_mac", "set", v, "abcdef", 6);
    EXPECT_EQ(status(D), 0u);
    call(D, client_vlan, "ieee_mac", "get", v, &found[0], 6u);
    EXPECT_EQ(status(D), 28u);
    EXPECT_STREQ(found, "abcde");
    call(D, client_vlan, "ieee_mac", "get", v, &found[0], 0u);
    EXPECT_EQ(status(D), 22u);
    call(D, client_vlan, "ieee_mac", "set", v, "1234567", 7);
    EXPECT_EQ(status(D), 22u);
    EXPECT_EQ(text(D, client_vlan, "ieee_mac", v), "abcdef");
    call(D, client_vlan, "ieee_mac", "set", v, "12", 2);
    EXPECT_EQ(std::memcmp(reinterpret_cast<char*>(v) + 24, "12\0def", 6), 0); // what is behind stays
    destroy(client_vlan, D, v);
}

// ---- arrays ----

TEST_F(Access, ArrayOfNumbers) {
    TestDomain D({.tracking = ZUR_TRACKED_MODE});
    Instance* x = create(group, D);
    call(D, group, "num_of_vlans", "set_value", x, 99u);
    call(D, group, "vlans", "set_value", x, 5u, 55u);
    EXPECT_EQ(number(D, group, "max_vlan", x), 6u);
    std::uint32_t found[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    call(D, group, "vlans", "get_mem", x, &found[0], 6u);
    EXPECT_EQ(std::vector(found, found + 8), (std::vector<std::uint32_t>{0, 0, 0, 0, 0, 55, 9, 9}));
    EXPECT_EQ(number(D, group, "num_of_vlans", x), 99u);
    call(D, group, "vlans", "get_mem", x, &found[0], 7u);
    EXPECT_EQ(status(D), 22u);
    for (const char* name : {"get", "get_value", "state_flag_get"}) {
        EXPECT_EQ(call<void*>(D, group, "vlans", name, x, 6u), nullptr);
        EXPECT_EQ(status(D), 2u) << name;
    }
    call(D, group, "vlans", "state_flag_set", x, 6u, 1u);
    EXPECT_EQ(status(D), 2u);
    // With no source the array grows and nothing is marked; the flags that are there move along.
    call(D, group, "vlans", "state_flag_whole_set", x, 0u);
    call(D, group, "vlans", "set", x, 7u, static_cast<void*>(nullptr));
    EXPECT_EQ(number(D, group, "max_vlan", x), 8u);
    EXPECT_EQ(call<std::uint8_t>(D, group, "vlans", "state_flag_whole_get", x), 0);
    EXPECT_EQ(call<std::uint8_t>(D, group, "vlans", "state_flag_get", x, 7u), 0);
    EXPECT_EQ(call<std::uint8_t>(D, group, "vlans", "state_flag_get", x, 5u), 2);
    // As many as there are go to the start of the record's block, not to the element flags.
    call(D, group, "vlans", "set_mem", x, &found[0], 2u);
    std::uint8_t* flags = nullptr;
    call(D, group, "vlans", "state_flag_get_arr", x, &flags);
    const std::uint8_t source[3] = {7, 8, 9};
    call(D, group, "vlans", "state_flag_set_arr", x, &source[0], 3u);
    EXPECT_EQ(status(D), 2u);
    call(D, group, "vlans", "state_flag_set_arr", x, &source[0], 2u);
    EXPECT_EQ(call<std::uint8_t>(D, group, "is_added", "state_flag_get", x), 7);
    EXPECT_EQ(call<std::uint8_t>(D, group, "vlans", "state_flag_whole_get", x), 8);
    EXPECT_EQ(std::vector(flags, flags + 2), (std::vector<std::uint8_t>{0, 0}));
    destroy(group, D, x);
}

TEST_F(Access, FixedRun) {
    TestDomain D({.tracking = ZUR_TRACKED_MODE});
    Instance* x = create(config, D);
    std::uint8_t bytes[256];
    for (std::size_t i = 0; i < 256; ++i) bytes[i] = static_cast<std::uint8_t>(255 - i);
    call(D, config, "acl_name", "set_mem", x, &bytes[0], 256);
    call(D, config, "acl_name", "set_mem", x, &bytes[1], 2);
    EXPECT_EQ(call<std::uint8_t>(D, config, "acl_name", "get_value", x, 0u), 254);
    EXPECT_EQ(call<std::uint8_t>(D, config, "acl_name", "get_value", x, 2u), 253);
    for (const char* name : {"set_mem", "get_mem"}) {
        call(D, config, "acl_name", name, x, &bytes[0], 257);
        EXPECT_EQ(status(D), 22u) << name;
    }
    call(D, config, "acl_name", "get_value", x, 256u);
    EXPECT_EQ(status(D), 2u);
    // All 256 flags at once go to the block's start; the last four bytes of the block keep theirs.
    call(D, config, "acl_name", "state_flag_set", x, 255u, 99u);
    call(D, config, "acl_name", "state_flag_set_arr", x, &bytes[0], 256u);
    EXPECT_EQ(call<std::uint8_t>(D, config, "is_url_redirect", "state_flag_get", x), 255);
    EXPECT_EQ(call<std::uint8_t>(D, config, "acl_name", "state_flag_whole_get", x), 252);
    EXPECT_EQ(call<std::uint8_t>(D, config, "acl_name", "state_flag_get", x, 0u), 251);
    EXPECT_EQ(call<std::uint8_t>(D, config, "acl_name", "state_flag_get", x, 255u), 99);
    EXPECT_EQ(status(D), 0u);
    destroy(config, D, x);
}

// Elements keep their content while the array grows; their flags move with them, to the place behind all elements.
TEST_F(Access, ArrayOfRecords) {
    TestDomain D({.tracking = ZUR_TRACKED_MODE});
    Instance* x = create(templates, D);
    for (std::uint32_t i = 0; i < 5; ++i) {
        Instance* source = create(one_template, D);
        call(D, one_template, "name", "set", source, ("port-" + std::to_string(i)).c_str(), 6u);
        call(D, templates, "data", "set", x, i, source, i % 2);
        EXPECT_EQ(text(D, one_template, "name", source).empty(), i % 2 != 0); // moved or copied
        destroy(one_template, D, source);
    }
    for (std::uint32_t i = 0; i < 5; ++i) {
        auto* element = call<Instance*>(D, templates, "data", "get", x, i);
        EXPECT_EQ(text(D, one_template, "name", element), "port-" + std::to_string(i));
        EXPECT_EQ(call<std::uint8_t>(D, one_template, "name", "state_flag_get", element), 2);
        EXPECT_EQ(call<std::uint8_t>(D, one_template, "bind", "state_flag_get", element), 0);
        call(D, one_template, "bind", "state_flag_set", element, 40 + i);
        EXPECT_EQ(reinterpret_cast<std::uint8_t*>(call<Instance*>(D, templates, "data", "get", x, 0u))[200 + 3 * i],
                  40 + i);
    }
    EXPECT_EQ(status(D), 0u);
    destroy(templates, D, x);
}

// ---- arms and lists ----

TEST_F(Access, ArmsStayInTheirSlots) {
    TestDomain D;
    Instance* m = create(message, D);
    Instance* entry = create(acl, D);
    Instance* grants = create("orlan_ial_svm_bm_data", D);
    call(D, message, "acl_data", "set", m, entry);
    call(D, message, "bm_data", "set", m, grants);
    EXPECT_EQ(number(D, message, "epm_type", m), 3u);
    EXPECT_EQ(call<Instance*>(D, message, "acl_data", "get_detach", m), nullptr); // not the selected one
    EXPECT_EQ(call<Instance*>(D, message, "acl_data", "get", m), entry);
    call(D, message, "epm_type", "set_value", m, 1u); // selects alone
    EXPECT_EQ(call<Instance*>(D, message, "bm_data", "get", m), grants);
    EXPECT_EQ(call<Instance*>(D, message, "acl_data", "get_detach", m), entry);
    EXPECT_EQ(call<Instance*>(D, message, "acl_data", "get_detach", m), nullptr);
    EXPECT_EQ(number(D, message, "epm_type", m), 0u);
    EXPECT_EQ(call<Instance*>(D, message, "acl_data", "get_detach", static_cast<Instance*>(nullptr)), nullptr);
    EXPECT_EQ(status(D), 0u);
    destroy(acl, D, entry);
    destroy(message, D, m); // with bm_data
}

TEST_F(Access, ListsCountAndUnlink) {
    TestDomain D;
    Instance* x = create(context, D);
    Instance* e[3];
    for (Instance*& element : e) call(D, context, bound_list, "set_last", x, element = create(config, D));
    EXPECT_EQ(chain(D, context, bound_list, "add_cr", x, e[0], 4, e[1]), 22u);
    EXPECT_EQ(
        operation<Instance*(zur_domain*, Instance*, int, Instance*)>(context, bound_list, "get_cr")(D, x, 0, e[1]),
        nullptr); // under a raised last_error
    D->last_error = 0;
    // Destroyed while in the list: the neighbours close up, the count is one too high.
    destroy(config, D, e[1]);
    EXPECT_EQ(call<Instance*>(D, context, bound_list, "get_next", x, e[0]), e[2]);
    EXPECT_EQ(call<Instance*>(D, context, bound_list, "get_prev", x, e[2]), e[0]);
    EXPECT_EQ(call<std::uint32_t>(D, context, bound_list, "get_count", x), 3u);
    // Removed twice: the second time there is no neighbour, and the head stays empty.
    constexpr auto client_acl = "rcl_client_acl_t";
    Instance* owner = create(client_acl, D);
    call(D, client_acl, "bm_feat_ctx_list", "set_last", owner, x);
    for (int times = 0; times < 2; ++times) {
        call(D, client_acl, "bm_feat_ctx_list", "remove", owner, x);
        EXPECT_EQ(call<Instance*>(D, client_acl, "bm_feat_ctx_list", "get_first", owner), nullptr);
    }
    EXPECT_EQ(status(D), 0u);
    destroy(client_acl, D, owner);
    destroy(context, D, x);
}

// ---- whole records ----

TEST_F(Access, MovesBetweenVariants) {
    TestDomain D;
    Instance* newer = create(acl, D);
    call(D, acl, "acl_name", "set", newer, "a", 1u);
    D.agree(acl, 0);
    Instance* older = create(acl, D);
    call(D, acl, "sequence", "set_value", older, 3u);
    older->layout_variant = newer->layout_variant; // as one that was made under another agreement
    whole(D, acl, "set", older, newer);
    EXPECT_EQ(status(D), 43u);
    EXPECT_EQ(number(D, acl, "sequence", older), 3u);
    EXPECT_EQ(text(D, acl, "acl_name", newer), "a");
    // The other way round the header comes along.
    call(D, acl, "acl_name", "set", newer, "", 0u);
    whole(D, acl, "set", newer, older);
    EXPECT_EQ(newer->variant, 0);
    EXPECT_EQ(number(D, acl, "sequence", newer), 3u);
    // With itself: only the variant may rise. A raised status word does not stop a move.
    D.agree(acl, 2);
    whole(D, acl, "set", older, older);
    EXPECT_EQ(older->variant, 2);
    D.st = 5;
    whole(D, acl, "set", older, older);
    EXPECT_EQ(status(D), 5u);
    // Of a variant-0 Instance six values are read, and the others are left alone.
    std::vector<std::uint32_t> values(11, 0xABCD);
    std::vector<void*> outs;
    for (std::uint32_t& value : values) outs.push_back(&value);
    spread(D, catalogue::orlan_ial_svm_acl_data, "get_all", newer, outs);
    EXPECT_EQ(status(D), 0u);
    EXPECT_EQ(std::ranges::count(values, 0xABCDu), 5);
    EXPECT_EQ(values[2], 3u);
    for (Instance* x : {newer, older}) destroy(acl, D, x);
}

} // namespace
} // namespace epm::test
