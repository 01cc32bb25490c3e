// What operations cost in runtime calls and allocations, measured: accessors one by one (accessors.cpp), whole-record
// operations by what a record is made of (parts.cpp). cost_test.cpp makes the page of them.
#pragma once

#include "support/calls.hpp"
#include "support/observation.hpp"
#include "support/types.hpp"

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace epm::test::cost {

/// Imported operations and Domain hooks in order, without traces, and how many blocks were asked for among them.
struct Cost {
    std::vector<std::string> calls;
    std::size_t allocations = 0;

    friend auto operator<=>(const Cost&, const Cost&) = default;
};

template <class Operation>
Cost cost_of(Operation operation) {
    struct Tally : Observer {
        Cost cost;
        void before_call(const char* function, const Arguments&) override {
            if (const std::string name = function; !name.starts_with("__QLf_")) cost.calls.push_back(name);
        }
        void allocated(void*, std::size_t, bool by_bundle) override { cost.allocations += by_bundle; }
    } tally;
    operation();
    return std::move(tally.cost);
}

/// The modes of a Domain that the page has columns for: no handle; tracked; containment and a store that wants marks.
const std::array<Mode, 3>& modes();

struct Accessor {
    std::string kind; ///< of the field
    std::string operation;
    std::string field;
    std::array<std::optional<Cost>, 3> in; ///< one for each mode; none where the operation is refused
};

/// Every accessor of every field, in the order of the page's kinds.
std::vector<Accessor> accessors();

/// Costs of the parts of a record in one operation: what each adds to the calls and to the allocations.
struct Parts {
    struct Sum {
        std::vector<long> calls;
        std::vector<long> allocations;
    };
    std::string operation;
    Sum untracked;
    Sum tracked;
};

const std::vector<const char*>& part_names();
/// Fails the test where the records do not cost what their parts do.
std::vector<Parts> parts();

} // namespace epm::test::cost
