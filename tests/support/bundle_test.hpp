// The fixture of every test that runs operations of the Bundle: a fresh heap, every write checked, traces collected,
// and no block alive behind the test.
#pragma once

#include "support/heap.hpp"
#include "support/library.hpp"
#include "support/recorder.hpp"
#include "support/write_checker.hpp"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <optional>

namespace epm::test {

class BundleTest : public testing::Test {
protected:
    void SetUp() override {
        heap().reset();
        checker.emplace();
    }
    void TearDown() override {
        checker.reset();
        EXPECT_EQ(heap().blocks().size(), 0u) << "blocks that nobody has released";
        heap().reset();
    }

    std::optional<WriteChecker> checker;
};

} // namespace epm::test
