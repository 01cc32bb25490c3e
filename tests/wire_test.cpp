// Wire images written by hand, and the rules that they show: which status, which bytes even then, which order. The
// corpus in wire_golden_test.cpp covers all types; this file tests what its images cannot show.
#include "support/bundle_test.hpp"
#include "support/imports.hpp"
#include "support/wire.hpp"

#include <orlan_epm.h>
#include <platform/values.h>

#include <cstring>

namespace epm::test {
namespace {

class Wire : public BundleTest {
protected:
    template <class Object>
    static Instance* instance(Object* x) {
        return reinterpret_cast<Instance*>(x);
    }
    /// The message writes these bytes, and another one reads them to the same bytes.
    static void expect_message(TestDomain& D, orlan_ial_svm_epm_data* x, const Bytes& image) {
        const WireType& type = wire_type("orlan_ial_svm_epm_data");
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
    const WireType& type = wire_type("orlan_ial_vlan_group_info");
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

TEST_F(Wire, VariantsThatThePeerDoesNotSpeak) {
    const WireType& type = wire_type("orlan_ial_svm_acl_data");
    TestDomain D;
    Instance* x = type.create(D, D.set_id());
    Bytes buffer(200);
    for (const int agreed : {1, 0, -1}) {
        D.agree(type.name.c_str(), agreed);
        D.st = 0;
        std::vector<int> variants;
        std::vector<const void*> jumps;
        std::uint32_t used = 0;
        {
            const auto variant =
                REPLACE(_zur_instance_variant_marshal, [&](auto*, auto, auto*, const std::int8_t* v, auto, auto*) {
                    variants.push_back(*v);
                    return 1u;
                });
            const auto jump = REPLACE(_zur_variant_jump_marshal, [&](auto*, auto, void* place, auto*, auto, auto*) {
                jumps.push_back(place);
                return 4u;
            });
            used = type.marshal(D, D.set_id(), buffer.data(), x, 200, &D.st);
        }
        EXPECT_EQ(D.st, 43u);
        EXPECT_EQ(D->last_error, 43u);
        // The worker goes on with the lower variant and patches the jump word, although codecs refuse.
        EXPECT_EQ(variants, std::vector<int>{agreed});
        ASSERT_EQ(jumps.size(), 2u);
        EXPECT_EQ(jumps[0], jumps[1]);
        D.st = 0;
        EXPECT_GT(exported(orlan_ial_svm_acl_data_marshal_for_clone)(
                      D, D.set_id(), buffer.data(), reinterpret_cast<orlan_ial_svm_acl_data*>(x), 200, &D.st),
                  used);
        EXPECT_EQ(D.st, 0u);
        EXPECT_EQ(buffer[0], 2) << "the copy keeps its variant";
    }
    // A record that the peer does not know at all is a frame without a body, in every mode.
    x->variant = -1;
    x->flags |= ZUR_EMBEDDED;
    EXPECT_EQ(type.marshal(D, D.set_id(), buffer.data(), x, 200, &D.st), 6u);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 6), (Bytes{0xFF, 0, 0, 0, 0, 4})) << "no flag but two travels";
    EXPECT_EQ(type.len(D, D.set_id(), x), 6u);
    x->variant = 9;
    D.agree_all(PLATFORM_HIGHEST_VARIANT);
    D.agree(type.name.c_str(), 100);
    EXPECT_EQ(type.marshal(D, D.set_id(), buffer.data(), x, 200, &D.st), 50u);
    EXPECT_EQ(buffer[0], 2);
    EXPECT_EQ(D.st, 0u);
    x->variant = 2;
    x->flags = static_cast<std::uint8_t>(x->flags & ~ZUR_EMBEDDED);
    type.destroy(D, D.set_id(), x);
}

// The block's content is skipped, but the record keeps that there was one, and a block without data is sent on.
TEST_F(Wire, ABlockThatTravelsWithTheRecord) {
    const WireType& type = wire_type("orlan_ial_svm_preauthacl_data");
    TestDomain D;
    Instance* x = type.create(D, D.set_id());
    const Bytes sent = {0, ZUR_RA_DATA, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 0, 0, 8, 0, 0, 0, 5};
    EXPECT_EQ(type.unmarshal(D, D.set_id(), sent.data(), x, 19, 0, &D.st), 19u);
    EXPECT_EQ(x->flags, ZUR_RA_DATA);
    EXPECT_EQ(marshalled(type, D, x), (Bytes{0, ZUR_RA_DATA, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 8, 0, 0, 0, 5}));
    EXPECT_EQ(D.st, 0u);
    type.destroy(D, D.set_id(), x);
}

TEST_F(Wire, ASelectedArmThatIsNotThere) {
    const WireType& type = wire_type("orlan_ial_in_svm_epm_data");
    TestDomain D;
    Instance* x = type.create(D, D.set_id()); // tag 0 selects port_info
    Bytes buffer(100);
    EXPECT_EQ(type.marshal(D, D.set_id(), buffer.data(), x, 100, &D.st), 11u);
    EXPECT_EQ(D.st, 2u);
    EXPECT_EQ(type.len(D, D.set_id(), x), 11u);
    type.destroy(D, D.set_id(), x);
}

// As long as a fresh record of variant 0 without flags, whatever the mode.
TEST_F(Wire, TheLengthOfNothing) {
    for (const Mode& mode : tracking_modes()) {
        TestDomain D(mode);
        TestDomain plain;
        plain.agree_all(0);
        for (const WireType& type : wire_types()) {
            if (type.is_enum()) continue;
            Instance* x = type.create(plain, plain.set_id());
            const bool has_arm = type.name == "orlan_ial_in_svm_epm_data"; // tag 0 selects one, which is not there
            std::uint32_t runs = 0;                                        // which only a record has
            for (const Field& f : type.record->fields) runs += f.kind == Kind::run ? f.capacity : 0u;
            EXPECT_EQ(type.len(D, D.set_id(), nullptr), has_arm ? 11u : type.len(plain, plain.set_id(), x) - runs)
                << type.name;
            type.destroy(plain, plain.set_id(), x);
        }
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

TEST_F(Wire, WhichFieldIdsAreValid) {
    struct Row {
        const char* type;
        std::vector<std::uint32_t> ends; ///< the first id that a variant does not have
    };
    const Row rows[] = {{"orlan_ial_svm_acl_data", {8, 12, 15}},
                        {"orlan_ial_svm_bm_data", {9, 11}},
                        {"orlan_ial_svm_epm_data", {9, 11}},
                        {"orlan_ial_in_svm_epm_data", {9, 11}},
                        {"auth_mgr_linksec_start_info", {7, 9}},
                        {"auth_mgr_linksec_event", {3, 6}},
                        {"webauth_watch_list", {1}},
                        {"rcl_client_vlan_t", {6}},
                        {"orlan_ial_vlan_group_info", {6}}};
    for (const Row& row : rows) {
        const WireType& type = wire_type(row.type);
        const auto is_valid =
            operation<std::uint32_t(zur_domain*, Instance*, std::uint32_t, std::uint32_t)>(type.name, "is_valid_cr");
        const int top = static_cast<int>(row.ends.size()) - 1;
        TestDomain D;
        Instance* x = type.create(D, D.set_id());
        for (int agreed = 0; agreed <= top; ++agreed)
            for (int own = 0; own <= top; ++own) {
                D.agree_all(agreed);
                x->variant = static_cast<std::int8_t>(own);
                for (std::uint32_t id = 0; id < 20; ++id) {
                    EXPECT_EQ(is_valid(D, x, id, 1), id < row.ends[static_cast<std::size_t>(agreed)])
                        << row.type << " " << id;
                    EXPECT_EQ(is_valid(D, x, id, 0), id < row.ends[static_cast<std::size_t>(std::min(agreed, own))])
                        << row.type << " " << id;
                }
            }
        x->variant = static_cast<std::int8_t>(top);
        type.destroy(D, D.set_id(), x);
    }
}

// The chains by hand: lengths twice, the tag between all arms, and arms that no tag selects.
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
    EXPECT_EQ(exported(orlan_ial_vlan_group_info_hash)(nullptr, seed), seed);

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
    EXPECT_EQ(compare(nullptr, y), -1);
    EXPECT_EQ(compare(y, nullptr), 1);
    EXPECT_EQ(compare(nullptr, nullptr), 0);
    orlan_ial_vlan_group_info_destroy(D, D.set_id(), x);
    orlan_ial_vlan_group_info_destroy(D, D.set_id(), y);

    const WireType& type = wire_type("orlan_ial_svm_epm_data");
    auto* a = orlan_ial_svm_epm_data_create(D, D.set_id());
    auto* b = orlan_ial_svm_epm_data_create(D, D.set_id());
    for (auto* message : {a, b}) {
        auto* mark = orlan_ial_svm_preauthacl_data_create(D, D.set_id());
        orlan_ial_svm_preauthacl_data_is_create_set_value(D, D.set_id(), mark, 7, &D.st);
        orlan_ial_svm_epm_data_preauthacl_data_set(D, D.set_id(), message, mark, &D.st);
    }
    h = number(8, number(8, seed));
    for (int position = 1; position < 8; ++position) h = number(8, h);
    h = number(8, number(7, h)); // the arm at position 8, and the tag before position 9
    EXPECT_EQ(type.hash(instance(a), seed), h);
    EXPECT_EQ(type.compare(instance(a), instance(b)), 0);
    // The tag as it is in memory, 4 bytes behind the embedded header: a peer's bytes may leave an arm behind.
    const Bytes without_arm = {1, 0, 0, 0, 0, 9, 1, 0, 0, 0, 9};
    type.unmarshal(D, D.set_id(), without_arm.data(), instance(a), 11, 0, &D.st);
    EXPECT_EQ(type.compare(instance(a), instance(b)), 1) << "tag 9 less tag 8";
    type.unmarshal(D, D.set_id(), Bytes{1, 0, 0, 0, 0, 9, 1, 0, 0, 0, 0}.data(), instance(b), 11, 0, &D.st);
    EXPECT_EQ(type.compare(instance(a), instance(b)), 9) << "the difference, not its sign";
    EXPECT_NE(type.hash(instance(a), seed), type.hash(instance(b), seed));
    type.unmarshal(D, D.set_id(), without_arm.data(), instance(b), 11, 0, &D.st);
    EXPECT_EQ(type.hash(instance(a), seed), type.hash(instance(b), seed));
    // A peer reads into one of the two arms that nobody selects, and takes the selection away again: equal by order,
    // not by hash.
    type.unmarshal(D, D.set_id(), Bytes{1, 0, 0, 0, 0, 19, 1, 0, 0, 0, 8, 0, 0, 0, 0, 0, 8, 0, 0, 0, 5}.data(),
                   instance(b), 21, 0, &D.st);
    type.unmarshal(D, D.set_id(), without_arm.data(), instance(b), 11, 0, &D.st);
    EXPECT_EQ(type.compare(instance(a), instance(b)), 0);
    EXPECT_NE(type.hash(instance(a), seed), type.hash(instance(b), seed));
    EXPECT_EQ(D.st, 0u);
    type.destroy(D, D.set_id(), instance(a));
    type.destroy(D, D.set_id(), instance(b));
}

} // namespace
} // namespace epm::test
