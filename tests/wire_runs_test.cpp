// The model once more, under a runtime that offers no runs of primitives: this program is linked with model_test.cpp
// and gives the runs the address null. That this holds is the test here.
#include "support/bundle_test.hpp"
#include "support/imports.hpp"

#include <orlan_epm.h>

namespace epm::test {
namespace {

using Runs = BundleTest;

TEST_F(Runs, AreAbsentAndEachElementIsWrittenByItself) {
    TestDomain D;
    auto* x = orlan_ial_vlan_group_info_create(D, D.set_id());
    const std::uint32_t vlans[] = {10, 20, 30};
    orlan_ial_vlan_group_info_vlans_set_mem(D, D.set_id(), x, vlans, 3, &D.st);
    int written = 0;
    const auto marshal = REPLACE(u_int32_marshal, [&](auto...) { return ++written, 4u; });
    char image[100];
    orlan_ial_vlan_group_info_marshal(D, D.set_id(), image, x, sizeof image, &D.st);
    EXPECT_EQ(written, 7); // four numbers, and three elements
    orlan_ial_vlan_group_info_destroy(D, D.set_id(), x);
}

} // namespace
} // namespace epm::test
