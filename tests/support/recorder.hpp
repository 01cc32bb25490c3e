// The calls that the Bundle makes of its runtime, in order and with their arguments, one line each:
//     Recorder recorder(domain);
//     recorder.name(acl, 96, "acl");
//     set_value(D, S, acl, 7, &domain.st);
//     EXPECT_EQ(recorder.take(), lines(R"(
//         zur_clear_last_error()
//         zurlib_adjust_variant(S, acl, orlan_ial_svm_acl_data, 2, st)
//     )"));
// Hooks appear as obj_alloc, obj_free, write_range, counter_range, type_alloc, type_insert, type_lookup, without the
// context that they are given. Traces appear as trace(level " text"). Calls that the runtime itself makes do not
// appear.
#pragma once

#include "support/names.hpp"
#include "support/observation.hpp"

#include <string>

namespace epm::test {

class Recorder : public Observer, public Names {
public:
    using Names::Names;

    /// The lines since the last call of this, each with a line feed.
    std::string take();

    void before_call(const char* function, const Arguments& arguments) override;
    void allocated(void* block, std::size_t size, bool by_bundle) override;
    void releasing(void* block) override;

private:
    std::string text_;
    std::size_t allocations_ = 0;
    void* released_ = nullptr;
};

/// A hand-written list of lines, several of which may stand in one with semicolons between; indentation and empty lines
/// are dropped.
std::string lines(const std::string& text);

} // namespace epm::test
