// Wire images written by hand and images that were kept, and what the model (model_test.cpp) does not say: the
// arguments of a clone, the ids of fields, and bytes that ask for far more than they hold.
#include "support/bundle_test.hpp"
#include "support/images.hpp"
#include "support/model.hpp"
#include "support/traces.hpp"

#include <cstring>
#include <orlan_epm.h>

namespace epm::test {
namespace {

class Wire : public BundleTest {
protected:
    template <class Object>
    static Instance* instance(Object* x) {
        return reinterpret_cast<Instance*>(x);
    }
    static Bytes marshalled(const Operations& type, TestDomain& D, const Instance* x) {
        Bytes buffer(type.len(D, D.set_id(), x) + 16u);
        const auto room = static_cast<std::int32_t>(buffer.size());
        buffer.resize(type.marshal(D, D.set_id(), buffer.data(), x, room, &D.st));
        EXPECT_EQ(D.st, 0u) << type.text.type;
        return buffer;
    }
    /// The message writes these bytes, and another one reads them to the same bytes.
    static void expect_message(TestDomain& D, orlan_ial_svm_epm_data* x, const Bytes& image) {
        const Operations type("orlan_ial_svm_epm_data");
        EXPECT_EQ(D.st, 0u);
        EXPECT_EQ(marshalled(type, D, instance(x)), image);
        Instance* copy = type.create(D, D.set_id());
        EXPECT_EQ(exported(orlan_ial_svm_epm_data_unmarshal)(D, D.set_id(), image.data(),
                                                             reinterpret_cast<orlan_ial_svm_epm_data*>(copy),
                                                             static_cast<std::int32_t>(image.size()), 0, &D.st),
                  image.size());
        EXPECT_EQ(marshalled(type, D, copy), image);
        type.destroy(D, D.set_id(), copy);
        type.destroy(D, D.set_id(), instance(x));
        EXPECT_EQ(D.st, 0u);
        // If the arm cannot be made, the positions behind it are not read.
        auto* armless = orlan_ial_svm_epm_data_create(D, D.set_id());
        heap().refuse_nth(1);
        orlan_ial_svm_epm_data_unmarshal(D, D.set_id(), image.data(), armless, static_cast<std::int32_t>(image.size()),
                                         0, &D.st);
        EXPECT_EQ(std::exchange(D.st, 0), 12u);
        if (D.mode().is_tracking()) {
            EXPECT_EQ(orlan_ial_svm_epm_data_dacl_dnld_comp_data_state_flag_get(D, D.set_id(), armless, &D.st), 0);
        }
        orlan_ial_svm_epm_data_destroy(D, D.set_id(), armless);
    }
    static orlan_ial_vlan_group_info* vlan_group(TestDomain& D) {
        auto* x = orlan_ial_vlan_group_info_create(D, D.set_id());
        exported(orlan_ial_vlan_group_info_is_added_set_value)(D, D.set_id(), x, 1, &D.st);
        const std::uint32_t vlans[] = {10, 20};
        exported(orlan_ial_vlan_group_info_vlans_set_mem)(D, D.set_id(), x, vlans, 2, &D.st);
        exported(orlan_ial_vlan_group_info_num_of_vlans_set_value)(D, D.set_id(), x, 2, &D.st);
        exported(orlan_ial_vlan_group_info_gp_name_set)(D, D.set_id(), x, "abc", 3, &D.st);
        EXPECT_EQ(D.st, 0u);
        return x;
    }
};

const Bytes vlan_group_untracked = {0,  0, 0, 0, 0,  31, 0, 0, 0, 1, 0, 0, 0, 2,   0,   0,  0,
                                    10, 0, 0, 0, 20, 0,  0, 0, 2, 0, 0, 0, 3, 'a', 'b', 'c'};
// Every flag is 2, as the setters left them; the elements' flags get a value of their own, to differ from the whole
// flag.
const Bytes vlan_group_tracked = {0, 8, 0,  0, 0, 37, 0, 0, 0, 1, 2, 0, 0, 0, 2, 0,   0,   0,   10, 0,
                                  0, 0, 20, 2, 7, 9,  0, 0, 0, 2, 2, 0, 0, 0, 3, 'a', 'b', 'c', 2};

TEST_F(Wire, AVlanGroup) {
    const Operations type("orlan_ial_vlan_group_info");
    for (const Mode& mode : tracking_modes()) {
        TestDomain D(mode);
        orlan_ial_vlan_group_info* x = vlan_group(D);
        if (mode.is_tracking()) {
            exported(orlan_ial_vlan_group_info_vlans_state_flag_set)(D, D.set_id(), x, 0, 7, &D.st);
            exported(orlan_ial_vlan_group_info_vlans_state_flag_set)(D, D.set_id(), x, 1, 9, &D.st);
            exported(orlan_ial_vlan_group_info_vlans_state_flag_whole_set)(D, D.set_id(), x, 2, &D.st);
        }
        const Bytes& image = mode.is_tracking() ? vlan_group_tracked : vlan_group_untracked;
        EXPECT_EQ(marshalled(type, D, instance(x)), image) << mode.text();
        // The length counts a flag for each character, of which only one is written.
        EXPECT_EQ(type.len(D, D.set_id(), instance(x)), mode.is_tracking() ? 42u : 33u);
        // In a buffer that is full the last flag lands directly behind the end and is not counted.
        Bytes buffer(image.size() + 1, 0xEE);
        const auto length = static_cast<std::int32_t>(image.size()) - (mode.is_tracking() ? 1 : 0);
        EXPECT_EQ(type.marshal(D, D.set_id(), buffer.data(), instance(x), length, &D.st),
                  static_cast<std::uint32_t>(length));
        EXPECT_EQ(buffer[static_cast<std::size_t>(length)], mode.is_tracking() ? 2 : 0xEE);
        EXPECT_EQ(D.st, 0u);
        // A reader of as many takes the flag from there.
        auto* copy = orlan_ial_vlan_group_info_create(D, D.set_id());
        type.unmarshal(D, D.set_id(), image.data(), instance(copy), length, 0, &D.st);
        if (mode.is_tracking()) {
            EXPECT_EQ(orlan_ial_vlan_group_info_gp_name_state_flag_get(D, D.set_id(), copy, &D.st), 2);
        }
        orlan_ial_vlan_group_info_destroy(D, D.set_id(), copy);
        // One byte less, and the text does not fit: what fits is written, and so is the jump word.
        EXPECT_EQ(type.marshal(D, D.set_id(), buffer.data(), instance(x), length - 1, &D.st),
                  static_cast<std::uint32_t>(length - 1));
        EXPECT_EQ(std::exchange(D.st, 0), 90u);
        EXPECT_EQ(D->last_error, 90u);
        EXPECT_EQ(type.marshal(D, D.set_id(), buffer.data(), instance(x), 0, &D.st), 0u);
        EXPECT_EQ(D.st, 90u);
        EXPECT_EQ(type.marshal(D, D.set_id(), buffer.data(), instance(x), 100, &D.st), 0u) << "the word is raised";
        EXPECT_EQ(type.len(D, D.set_id(), instance(x)), mode.is_tracking() ? 42u : 33u);
        EXPECT_EQ(exported(orlan_ial_vlan_group_info_len_cr)(D, x), 0u) << "the chain has failed";
        D->last_error = 0;
        EXPECT_NE(exported(orlan_ial_vlan_group_info_len_cr)(D, x), 0u);
        type.destroy(D, D.set_id(), instance(x));
    }
}

// Untracked and tracked: each arm's position has a flag, in wire order and not in the order of the tags.
TEST_F(Wire, AMessageWithAMarkOfPreauthentication) {
    for (const bool is_tracked : {false, true}) {
        TestDomain D({.tracking = is_tracked ? ZUR_TRACKED_MODE : PLATFORM_NO_HANDLE});
        auto* message = orlan_ial_svm_epm_data_create(D, D.set_id());
        auto* mark = orlan_ial_svm_preauthacl_data_create(D, D.set_id());
        orlan_ial_svm_preauthacl_data_is_create_set_value(D, D.set_id(), mark, 0x11223344, &D.st);
        orlan_ial_svm_epm_data_preauthacl_data_set(D, D.set_id(), message, mark, &D.st);
        if (is_tracked) {
            orlan_ial_svm_epm_data_epm_type_state_flag_set(D, D.set_id(), message, 0x70, &D.st);
            orlan_ial_svm_epm_data_acl_data_state_flag_set(D, D.set_id(), message, 0x71, &D.st);
            orlan_ial_svm_epm_data_port_info_state_flag_set(D, D.set_id(), message, 0x75, &D.st);
            orlan_ial_svm_epm_data_preauthacl_data_state_flag_set(D, D.set_id(), message, 0x78, &D.st);
            orlan_ial_svm_epm_data_dacl_dnld_comp_data_state_flag_set(D, D.set_id(), message, 0x79, &D.st);
        }
        if (is_tracked)
            expect_message(D, message,
                           {1, 8, 0, 0, 0, 30, 1,    0,    0,    0,    8, 0x70, 0x71, 0, 0, 0, 0x75, 0, 0, //
                            0, 8, 0, 0, 0, 9,  0x11, 0x22, 0x33, 0x44, 2, 0x78, 0x79});
        else
            expect_message(D, message, {1, 0, 0, 0, 0, 19, 1, 0, 0, 0, 8, 0, 0, 0, 0, 0, 8, 0x11, 0x22, 0x33, 0x44});
    }
}

TEST_F(Wire, KeptImagesAreReadAndWrittenAsTheyAre) {
    checker.reset(); // it would look at every block at every call
    const auto check = [](const std::string& name) {
        const Operations type(name);
        for (const Image& image : images_of(name)) {
            SCOPED_TRACE(image.name);
            const bool is_tracked = image.name.find(", tracked") != std::string::npos;
            TestDomain D({.tracking = is_tracked ? ZUR_TRACKED_MODE : PLATFORM_NO_HANDLE});
            Instance* x = type.create(D, D.set_id());
            EXPECT_EQ(type.unmarshal(D, D.set_id(), image.bytes.data(), x,
                                     static_cast<std::int32_t>(image.bytes.size()), 0, &D.st),
                      image.bytes.size());
            EXPECT_EQ(marshalled(type, D, x), image.bytes);
            type.destroy(D, D.set_id(), x);
        }
        EXPECT_FALSE(images_of(name).empty()) << name;
    };
    for (const Record* r : catalogue::all_records) check(r->name);
    for (const Enum* e : catalogue::all_enums) check(e->name);
}

// The codec announces and writes the enumerator; the reader announces it once more.
TEST_F(Wire, AnEnumeratorIsAnnouncedTwice) {
    TestDomain D;
    auto* x = coa_request_type_create(D, D.set_id());
    static std::vector<void*> announced;
    D->write_range_fn = [](zur_domain*, void* address, std::uint32_t length, std::uint32_t, void*) {
        if (length == 4) announced.push_back(address);
    };
    const Bytes image = {0, 0, 0, 0, 1};
    EXPECT_EQ(coa_request_type_unmarshal(D, D.set_id(), image.data(), x, 5, 0, &D.st), 5u);
    EXPECT_EQ(announced, std::vector<void*>(2, reinterpret_cast<char*>(x) + catalogue::header_length));
    coa_request_type_destroy(D, D.set_id(), x);
}

// In a Domain that does not track and does not know where a nested array's flags are, the array does not grow.
TEST_F(Wire, AnArrayWhoseFlagsAreOutOfReach) {
    checker.reset(); // it knows of one Domain only
    TestDomain tracking({.tracking = ZUR_TRACKED_MODE}), plain;
    const auto made = [](TestDomain& D, std::uint32_t count) {
        auto* x = orlan_ial_svm_bm_data_create(D, D.set_id());
        auto* list = orlan_ial_svm_bm_data_intf_templ_list_get(D, D.set_id(), x, &D.st);
        for (std::uint32_t i = 0; i < count; ++i) {
            auto* element = rcl_client_intf_templ_create(D, D.set_id());
            rcl_client_intf_templ_list_data_set(D, D.set_id(), list, i, element, 1, &D.st);
            rcl_client_intf_templ_destroy(D, D.set_id(), element);
        }
        EXPECT_EQ(D.st, 0u);
        return x;
    };
    auto* x = made(tracking, 1);
    auto* longer = made(plain, 2);
    const Bytes image = marshalled(Operations("orlan_ial_svm_bm_data"), plain, instance(longer));
    orlan_ial_svm_bm_data_unmarshal(plain, plain.set_id(), image.data(), x, static_cast<std::int32_t>(image.size()), 1,
                                    &plain.st);
    EXPECT_EQ(plain.st, 22u);
    auto* list = orlan_ial_svm_bm_data_intf_templ_list_get(tracking, tracking.set_id(), x, &tracking.st);
    EXPECT_EQ(rcl_client_intf_templ_list_max_intf_templ_get_value(tracking, tracking.set_id(), list, &tracking.st), 1u);
    orlan_ial_svm_bm_data_destroy(tracking, tracking.set_id(), x);
    orlan_ial_svm_bm_data_destroy(plain, plain.set_id(), longer);
}

// A jump word may lead anywhere; one that leads backwards, or further than a signed offset, is no error and ignored.
TEST_F(Wire, JumpWordsThatLie) {
    const Operations type("orlan_ial_svm_preauthacl_data");
    const Bytes image = {0, 0, 0, 0, 0, 8, 0x90, 0x30, 0x30, 0x30};
    for (const auto& [jump, offset] : {std::pair{0u, 10u},
                                       {4u, 10u},
                                       {8u, 10u},
                                       {9u, 11u},
                                       {0x7FFFFFF0u, 0x7FFFFFF2u},
                                       {0x80000000u, 10u},
                                       {0xFFFFFFFFu, 10u}}) {
        Bytes lying = image;
        for (std::size_t byte = 0; byte < 4; ++byte)
            lying[2 + byte] = static_cast<std::uint8_t>(jump >> (24 - 8 * byte));
        TestDomain D;
        Instance* x = type.create(D, D.set_id());
        Traces traces;
        EXPECT_EQ(type.unmarshal(D, D.set_id(), lying.data(), x, 10, 0, &D.st), offset) << jump;
        EXPECT_EQ(D.st, 0u) << jump;
        EXPECT_EQ(traces.take().empty(), offset == 10) << jump;
        EXPECT_EQ(marshalled(type, D, x), image);
        type.destroy(D, D.set_id(), x);
    }
}

// A few bytes that announce very much: the reader stops where they end, and asks for memory once at most.
TEST_F(Wire, CountsAndLengthsThatLie) {
    checker.reset();
    const std::pair<const char*, Bytes> rows[] = {
        {"orlan_ial_vlan_group_info", {0, 0, 0, 0, 0, 40, 0, 0, 0, 1}},                          // vlans
        {"rcl_client_intf_templ_list", {0, 0, 0, 0, 0, 40}},                                     // data
        {"epm_client_acl_feat_ctx", {0, 0, 0, 0, 0, 40, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0, 1}}, // bm_feat_conf_list
        {"orlan_ial_dacl_dnld_complete", {0, 0, 0, 0, 0, 40}},                                   // acl_name
        {"linksec_eap_keys", {0, 0, 0, 0, 0, 40}},                                               // msk
    };
    for (const auto& [name, start] : rows)
        for (const int high : {0x00, 0x7F, 0x80, 0xFF}) {
            const Operations type(name);
            TestDomain D;
            Instance* x = type.create(D, D.set_id());
            Bytes image = start;
            for (const int byte : {high, 0xFF, 0xFF, 0xFF}) image.push_back(static_cast<std::uint8_t>(byte));
            image.push_back(0);
            heap().refuse_beyond(1 << 20);
            const std::size_t allocations = heap().allocations();
            type.unmarshal(D, D.set_id(), image.data(), x, static_cast<std::int32_t>(image.size()), 0, &D.st);
            EXPECT_TRUE(D.st == 12 || D.st == 90) << name << " " << D.st;
            EXPECT_LE(heap().allocations(), allocations + 1) << name;
            heap().stop_refusing();
            type.destroy(D, D.set_id(), x);
        }
}

TEST_F(Wire, Clones) {
    TestDomain D;
    orlan_ial_vlan_group_info* x = vlan_group(D);
    const auto clone = exported(orlan_ial_vlan_group_info_clone);
    const auto clone_internal = exported(orlan_ial_vlan_group_info_clone_internal);
    const auto compare = exported(orlan_ial_vlan_group_info_compare);
    Bytes workspace(100);
    orlan_ial_vlan_group_info* copy = x; // is cleared first, not overwritten
    clone(D, D.set_id(), x, &copy, workspace.data(), 100, &D.st);
    EXPECT_EQ(D.st, 0u);
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, x);
    EXPECT_EQ(compare(x, copy), 0);

    // Into one that is there; without a workspace or a reference; in one that is too small.
    orlan_ial_vlan_group_info* same = copy;
    clone_internal(D, D.set_id(), x, &same, workspace.data(), 100, &D.st);
    EXPECT_EQ(same, copy);
    clone_internal(D, D.set_id(), x, &same, nullptr, 100, &D.st);
    EXPECT_EQ(std::exchange(D.st, 0), 2u);
    clone_internal(D, D.set_id(), x, nullptr, workspace.data(), 100, &D.st);
    EXPECT_EQ(std::exchange(D.st, 0), 2u);
    clone_internal(D, D.set_id(), x, &same, workspace.data(), 20, &D.st);
    EXPECT_EQ(std::exchange(D.st, 0), 90u);
    EXPECT_EQ(same, copy) << "nothing has been read yet";

    // A destination that cannot be filled is destroyed, also the caller's own.
    heap().refuse_nth(1);
    clone_internal(D, D.set_id(), x, &same, workspace.data(), 100, &D.st);
    EXPECT_EQ(std::exchange(D.st, 0), 12u);
    EXPECT_EQ(same, nullptr);
    heap().refuse_nth(1);
    clone(D, D.set_id(), x, &same, workspace.data(), 100, &D.st);
    EXPECT_EQ(std::exchange(D.st, 0), 12u);
    EXPECT_EQ(same, nullptr);

    D->last_error = 0;
    same = exported(orlan_ial_vlan_group_info_clone_cr)(D, x, nullptr);
    ASSERT_NE(same, nullptr);
    EXPECT_EQ(compare(x, same), 0);
    orlan_ial_vlan_group_info_destroy(D, D.set_id(), same);
    orlan_ial_vlan_group_info_destroy(D, D.set_id(), x);
}

// Ids count the declared fields from 0, and each later variant opens with one that stands for no field.
TEST_F(Wire, WhichFieldIdsAreValid) {
    checker.reset();
    for (const Record* r : catalogue::all_records) {
        const auto end_of = [&](int variant) {
            auto end = static_cast<std::uint32_t>(variant);
            for (std::size_t i = 0; i < r->count; ++i) end += r->fields[i].since <= variant;
            return end;
        };
        const auto is_valid =
            operation<std::uint32_t(zur_domain*, Instance*, std::uint32_t, std::uint32_t)>(*r, "is_valid_cr");
        TestDomain D;
        auto* x = bare<Instance*>(D, *r, "create");
        for (int agreed = 0; agreed <= r->top(); ++agreed)
            for (int own = 0; own <= r->top(); ++own) {
                D.agree_all(agreed);
                x->variant = static_cast<std::int8_t>(own);
                for (std::uint32_t id = 0; id < 20; ++id) {
                    EXPECT_EQ(is_valid(D, x, id, 1), id < end_of(agreed)) << r->name << " " << id;
                    EXPECT_EQ(is_valid(D, x, id, 0), id < end_of(std::min(agreed, own))) << r->name << " " << id;
                }
            }
        x->variant = r->top();
        bare(D, *r, "destroy", x);
    }
}

// A chain by hand: lengths are in it twice.
TEST_F(Wire, OrderAndHash) {
    TestDomain D;
    const std::uint32_t seed = 99;
    const auto number = [](std::uint32_t n, std::uint32_t h) { return SuperFastHash(&n, sizeof n, h); };
    orlan_ial_vlan_group_info* x = vlan_group(D);
    const std::uint32_t vlans[] = {10, 20};
    std::uint32_t h = number(2, number(2, number(1, seed)));
    h = number(2, SuperFastHash(vlans, sizeof vlans, h));
    h = SuperFastHash("abc", 3, number(3, number(3, h)));
    EXPECT_EQ(exported(orlan_ial_vlan_group_info_hash)(x, seed), h);

    // By the bytes of memory, in which 256 comes before 1.
    orlan_ial_vlan_group_info* y = vlan_group(D);
    const auto compare = exported(orlan_ial_vlan_group_info_compare);
    const std::uint32_t one = 1;
    const std::uint32_t two_five_six = 256;
    orlan_ial_vlan_group_info_vlans_set_mem(D, D.set_id(), x, &one, 1, &D.st);
    EXPECT_EQ(compare(x, y), -1) << "the count comes first";
    orlan_ial_vlan_group_info_vlans_set_mem(D, D.set_id(), y, &two_five_six, 1, &D.st);
    EXPECT_GT(compare(x, y), 0);
    EXPECT_LT(compare(y, x), 0);
    orlan_ial_vlan_group_info_destroy(D, D.set_id(), x);
    orlan_ial_vlan_group_info_destroy(D, D.set_id(), y);
}

} // namespace
} // namespace epm::test
