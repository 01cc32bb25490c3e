// Tests of the test helpers: a filled record reads back whole in every mode, and each check notices what it is there
// for.
#include "support/bundle_test.hpp"
#include "support/fill.hpp"
#include "support/types.hpp"

#include <gtest/gtest-spi.h>

#include <cstring>
#include <set>

namespace epm::test {
namespace {

class Support : public BundleTest {};

TEST_F(Support, EveryRecordIsFilledAndReadBackInEveryModeAndVariant) {
    std::size_t most_fields = 0;
    for (const Mode& mode : all_modes()) {
        SCOPED_TRACE(mode.text());
        for (const Record* r : catalogue::all_records) {
            for (int variant = -1; variant <= r->top(); ++variant) {
                for (const unsigned seed : {1u, 8u}) {
                    TestDomain D(mode);
                    D.agree(r->name, variant);
                    Instance* x = create(r->name, D);
                    Fill fill(D, seed);
                    ASSERT_TRUE(fill.fill(*r, x)) << r->name;
                    ASSERT_TRUE(fill.check(*r, x)) << r->name;
                    EXPECT_EQ(fill.fields() != 0, variant >= 0) << r->name;
                    most_fields = std::max(most_fields, fill.fields());
                    destroy(r->name, D, x);
                }
            }
        }
    }
    EXPECT_GT(most_fields, 50u); // the grants to a client, inside a message
    EXPECT_GT(checker->bytes_seen(), 100000u);
}

// Without its hook the setter's three writes (pointer, length, flag) are seen, and nothing else is.
TEST_F(Support, UnannouncedWritesAreFound) {
    TestDomain D({.tracking = ZUR_TRACKED_MODE});
    Instance* x = create("orlan_ial_svm_acl_apply", D);
    const auto set = operation<void(zur_domain*, std::uint32_t, Instance*, const char*, std::uint32_t, std::uint32_t*)>(
        "orlan_ial_svm_acl_apply", "acl_name", "set");
    const auto hook = std::exchange(D->write_range_fn, [](zur_domain*, void*, std::uint32_t, std::uint32_t, void*) {});
    testing::TestPartResultArray found;
    {
        const testing::ScopedFakeTestPartResultReporter listener(&found);
        set(D, D.set_id(), x, "guest", 5, &D.st);
    }
    // The pointer at 16, the length at 12, the flag at 48; of the pointer not all bytes change.
    std::set<int> bytes;
    for (int i = 0; i < found.size(); ++i) {
        int byte = -1;
        std::sscanf(std::strstr(found.GetTestPartResult(i).message(), "of byte "), "of byte %d", &byte);
        bytes.insert(byte);
        EXPECT_TRUE(byte == 12 || byte == 48 || (byte >= 16 && byte < 24)) << byte;
    }
    EXPECT_TRUE(bytes.contains(12) && bytes.contains(48) && bytes.size() >= 6);
    D->write_range_fn = hook;
    set(D, D.set_id(), x, "guests", 6, &D.st);
    destroy("orlan_ial_svm_acl_apply", D, x);
}

} // namespace
} // namespace epm::test
