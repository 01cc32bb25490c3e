// The golden corpus once more, under a runtime that offers no runs of primitives: this program is linked with the tests
// of the corpus and gives the runs the address null. That this holds is the test here.
#include "support/bundle_test.hpp"
#include "support/imports.hpp"
#include "support/wire.hpp"

namespace epm::test {
namespace {

using Runs = BundleTest;

TEST_F(Runs, AreAbsentAndEachElementIsWrittenAndReadByItself) {
    const WireType& type = wire_type("orlan_ial_vlan_group_info");
    TestDomain D;
    Instance* x = make({&type, 0, false, 3, ""}, D);
    Instance* copy = type.create(D, D.set_id());
    int written = 0;
    int read = 0;
    Bytes image;
    {
        const auto marshal = REPLACE(u_int32_marshal, [&](auto... a) {
            ++written;
            static auto* const next = reinterpret_cast<decltype(&u_int32_marshal)>(following("u_int32_marshal"));
            return next(a...);
        });
        const auto unmarshal = REPLACE(u_int32_unmarshal, [&](auto... a) {
            ++read;
            static auto* const next = reinterpret_cast<decltype(&u_int32_unmarshal)>(following("u_int32_unmarshal"));
            return next(a...);
        });
        image = marshalled(type, D, x);
        type.unmarshal(D, D.set_id(), image.data(), copy, static_cast<std::int32_t>(image.size()), 0, &D.st);
    }
    // Four numbers, and three elements.
    EXPECT_EQ(written, 7);
    EXPECT_EQ(read, 7);
    EXPECT_EQ(type.compare(x, copy), 0);
    type.destroy(D, D.set_id(), copy);
    type.destroy(D, D.set_id(), x);
}

} // namespace
} // namespace epm::test
