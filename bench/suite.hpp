// What a peer offers to be measured: named loops over one operation of one workload. How a loop is measured is the
// driver's business, what is measured the peers'.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
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

/// Costs nothing that is worth a mention where it holds, so that it may stand in a loop.
inline void require(bool holds, std::string_view what) {
    if (holds) return;
    std::fprintf(stderr, "bench: %.*s\n", static_cast<int>(what.size()), what.data());
    std::exit(1);
}

struct Loop {
    std::string workload, operation, peer;
    std::function<void(std::uint64_t)> run; ///< repeats the operation that often
    std::size_t bytes = 0;                  ///< what one operation reads or writes, where that says something
    std::string name() const { return workload + "/" + operation + "/" + peer; }
};

class Suite {
public:
    /// The step is inlined into its loop, so that nothing but the step and a count is measured.
    template <class Step>
    void add(const std::string& workload, const std::string& operation, const std::string& peer, Step step,
             std::size_t bytes = 0) {
        loops_.push_back({workload, operation, peer,
                          [step = std::move(step)](std::uint64_t times) {
                              for (; times != 0; --times) step();
                          },
                          bytes});
    }
    const std::vector<Loop>& loops() const { return loops_; }

private:
    std::vector<Loop> loops_;
};

void add_ours(Suite& suite);
/// W3 or W4 with another number of elements, for the operations whose cost must not grow with it.
void add_ours_scaled(Suite& suite, const std::string& workload, std::size_t elements);
/// What the library writes of a workload; the references must write the same.
std::vector<unsigned char> our_wire(const std::string& workload);
/// The workload as the library's XML.
std::string our_xml(const std::string& workload);
void add_references(Suite& suite);
void add_protobuf(Suite& suite);
void add_flatbuffers(Suite& suite);
void add_xdr(Suite& suite);
void add_pugixml(Suite& suite);

} // namespace bench
