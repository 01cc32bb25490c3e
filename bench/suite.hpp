// What a peer offers to be measured: the operations that it knows, on each workload. How an operation is measured is
// the driver's business, what is measured the peers'.
//
// To add a peer, write peers/NAME.cpp with a Peer in it and call bench_peer(NAME) in CMakeLists.txt. To add an
// operation, add a row to BENCH_OPERATIONS and the function to the subjects whose peers know it. To add a goal, add a
// row to goals.csv: a relation with one limit for all its workloads, or with one for each.
#pragma once

#include "bench/workloads.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <regex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bench {

/// Makes the compiler believe that value is used.
template <class T>
void keep(const T& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

/// Ends the program when something does not hold. Costs next to nothing when it does, so a loop may contain it.
inline void require(bool holds, std::string_view what) {
    if (holds) return;
    std::fprintf(stderr, "bench: %.*s\n", static_cast<int>(what.size()), what.data());
    std::exit(1);
}

/// The operations in the order of the report. A subject is one workload as a peer holds it. It has a function for each
/// operation that its peer knows, which does it once and returns the bytes that it reads or writes, or 0 where that
/// says nothing.
#define BENCH_OPERATIONS(ROW)                                                                                          \
    ROW(marshal)                                                                                                       \
    ROW(unmarshal)                                                                                                     \
    ROW(clone)                                                                                                         \
    ROW(compare)                                                                                                       \
    ROW(hash)                                                                                                          \
    ROW(fill)                                                                                                          \
    ROW(read)                                                                                                          \
    ROW(print)                                                                                                         \
    ROW(to_xml)                                                                                                        \
    ROW(from_xml)

using Operations = std::vector<std::string>;
#define BENCH_NAME_OF(operation) #operation,
inline const Operations all_operations = {BENCH_OPERATIONS(BENCH_NAME_OF)};
inline const Operations allocating = {"unmarshal", "clone", "fill"};

struct Loop {
    std::string workload, operation, peer;
    std::function<std::size_t(std::uint64_t)> run; ///< repeats the operation that often; returns the bytes of one
    std::string name() const { return workload + "/" + operation + "/" + peer; }
};

class Suite {
public:
    /// Holds the loops whose names match. Pooled, it has only the operations that allocate, and says so in the peers'
    /// names.
    Suite(std::regex wanted, bool pooled) : wanted_(std::move(wanted)), pooled_(pooled) {}
    /// Whether memory comes from lists of released blocks: the peers' by the preloaded pool, the library's by its
    /// Domain.
    bool is_pooled() const { return pooled_; }

    /// Makes a subject and adds those of the operations that it knows.
    template <class Subject>
    void add(const std::string& workload, const std::string& called, const Operations& operations,
             const auto&... from) {
        const std::string peer = called + (pooled_ ? "_pooled" : "");
        Operations chosen;
        for (const std::string& operation : operations)
            if ((!pooled_ || std::find(allocating.begin(), allocating.end(), operation) != allocating.end()) &&
                std::regex_search(workload + "/" + operation + "/" + peer, wanted_))
                chosen.push_back(operation);
        if (chosen.empty()) return;
        const auto subject = std::make_shared<Subject>(from...);
#define ADD(operation)                                                                                                 \
    if constexpr (requires { subject->operation(); })                                                                  \
        if (std::find(chosen.begin(), chosen.end(), #operation) != chosen.end())                                       \
            add_loop(workload, #operation, peer, [subject] { return subject->operation(); });
        BENCH_OPERATIONS(ADD)
#undef ADD
    }
    const std::vector<Loop>& loops() const {
        return loops_;
    }

private:
    /// The step is inlined into its loop, so that nothing but the step and a count is measured.
    template <class Step>
    void add_loop(const std::string& workload, const std::string& operation, const std::string& peer, Step step) {
        loops_.push_back({workload, operation, peer, [step = std::move(step)](std::uint64_t times) {
                              std::size_t bytes = 0;
                              for (; times != 0; --times) bytes = step();
                              return bytes;
                          }});
    }

    std::regex wanted_;
    bool pooled_;
    std::vector<Loop> loops_;
};

/// A peer: constructed once, in the peer's own file, with what it is called and the function that adds it.
using Adder = void (*)(Suite& suite, const std::string& peer, Workloads& workloads);
struct Peer {
    std::string name;
    Adder add;
    Peer(const char* called, Adder adder) : name(called), add(adder) { all().push_back(this); }
    static std::vector<const Peer*>& all() {
        static std::vector<const Peer*> peers;
        return peers;
    }
};

/// Adds all that a peer can do with each workload. Its subjects are told the data's type and the peer's own.
template <template <class Data, class Own> class Subject, class OwnMessage, class OwnVlanGroup, class OwnDomainNames>
void add_all(Suite& suite, const std::string& peer, Workloads& workloads) {
    suite.add<Subject<Message, OwnMessage>>(workloads.w1.name, peer, all_operations, workloads.w1);
    suite.add<Subject<Message, OwnMessage>>(workloads.w2.name, peer, all_operations, workloads.w2);
    suite.add<Subject<VlanGroup, OwnVlanGroup>>(workloads.w3.name, peer, all_operations, workloads.w3);
    suite.add<Subject<DomainNames, OwnDomainNames>>(workloads.w4.name, peer, all_operations, workloads.w4);
}

/// What a peer offers whose records are values: they are copied, compared and filled as a whole, by Fill::assign.
template <class Data, class X, class Fill>
struct Values {
    Data data;
    X x = filled(), equal = x;

    X filled() const {
        X y;
        Fill::assign(y, data);
        return y;
    }
    std::size_t clone() {
        const X y(x);
        keep(&y);
        return 0;
    }
    std::size_t fill() {
        const X y = filled();
        keep(&y);
        return 0;
    }
};

/// The library itself. It comes first, because it leaves in the workloads what it writes of them.
void add_ours(Suite& suite, Workloads& workloads);
/// W3 or W4 with another number of elements, for the operations whose cost must not grow with it.
void add_ours_scaled(Suite& suite, const std::string& workload, std::size_t elements);

} // namespace bench
