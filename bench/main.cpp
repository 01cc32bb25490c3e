// Runs the loops: counts their instructions under callgrind, takes their times, or counts their allocations. One line
// for each loop, "name,value"; what the numbers mean together is the report's business.
#include "bench/suite.hpp"

#include <valgrind/callgrind.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <map>
#include <regex>

#include <dlfcn.h>

namespace {

using namespace bench;
using Clock = std::chrono::steady_clock;

constexpr std::size_t scale[] = {0, 10, 100, 1000, 10000, 100000};

double nanoseconds(const Loop& loop, std::uint64_t times) {
    const auto start = Clock::now();
    loop.run(times);
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

/// How often a loop must run to last about that long. The first run pays for page faults and for symbols that are bound
/// late, and another process can take the place of any other, so the shortest of a few counts.
std::uint64_t rounds(const Loop& loop, double wanted, std::uint64_t most) {
    double once = nanoseconds(loop, 1);
    for (int i = 0; i < 5 && once < 2e8; ++i) once = std::min(once, nanoseconds(loop, 1));
    return std::clamp(static_cast<std::uint64_t>(wanted / std::max(once, 1.0)), std::uint64_t{1}, most);
}

/// Writes each loop's instructions to a file of its own. The head of the file has the name and the number of runs.
void count(const std::vector<Loop>& loops) {
    for (const Loop& loop : loops) {
        const std::uint64_t times = rounds(loop, 2e7, 1000);
        const std::string head = loop.name() + " " + std::to_string(times) + " ";
        CALLGRIND_START_INSTRUMENTATION;
        CALLGRIND_ZERO_STATS;
        loop.run(times);
        CALLGRIND_DUMP_STATS_AT(head.c_str());
        CALLGRIND_STOP_INSTRUMENTATION;
    }
}

/// What is compared is measured by turns, so that a slow moment meets all of it: the peers of an operation, the sizes
/// of a scale. The medians.
void time(const std::vector<Loop>& loops) {
    constexpr std::size_t repetitions = 21;
    struct Measured {
        const Loop* loop;
        std::uint64_t times;
        std::vector<double> taken;
    };
    std::map<std::string, std::vector<Measured>> groups;
    for (const Loop& loop : loops)
        groups[loop.workload.substr(0, 2) + "/" + loop.operation].push_back({&loop, rounds(loop, 1e6, 1000000), {}});
    for (auto& [name, group] : groups) {
        for (std::size_t r = 0; r < repetitions; ++r)
            for (Measured& m : group)
                if (r < 3 || m.taken.back() < 2e7)
                    m.taken.push_back(nanoseconds(*m.loop, m.times) / static_cast<double>(m.times));
        for (Measured& m : group) {
            std::sort(m.taken.begin(), m.taken.end());
            std::printf("%s,%.1f\n", m.loop->name().c_str(), m.taken[m.taken.size() / 2]);
        }
        std::fflush(stdout);
    }
}

void allocations(const std::vector<Loop>& loops) {
    const auto counted = reinterpret_cast<std::uint64_t (*)()>(dlsym(RTLD_DEFAULT, "bench_allocations"));
    require(counted != nullptr, "the counting allocator is not preloaded");
    for (const Loop& loop : loops) {
        constexpr std::uint64_t times = 4;
        loop.run(1);
        const std::uint64_t before = counted();
        loop.run(times);
        std::printf("%s,%.1f\n", loop.name().c_str(), static_cast<double>(counted() - before) / times);
    }
}

void sizes(const std::vector<Loop>& loops) {
    for (const Loop& loop : loops)
        if (const std::size_t bytes = loop.run(1)) std::printf("%s,%zu\n", loop.name().c_str(), bytes);
}

} // namespace

int main(int argc, char** argv) {
    const std::map<std::string, void (*)(const std::vector<Loop>&)> modes = {
        {"count", count}, {"time", time}, {"allocations", allocations}, {"sizes", sizes}};
    const auto mode = modes.find(argc > 1 ? argv[1] : "");
    if (mode == modes.end() || argc > 3) {
        std::fprintf(stderr, "usage: %s count|time|allocations|sizes [PATTERN of WORKLOAD/OPERATION/PEER]\n", argv[0]);
        return 2;
    }
    const std::regex wanted(argc > 2 ? argv[2] : "");
    const bool pooled = dlsym(RTLD_DEFAULT, "bench_is_pooled") != nullptr;
    Workloads workloads;
    Suite suite(wanted, pooled);
    add_ours(suite, workloads);
    for (const Peer* peer : Peer::all()) peer->add(suite, peer->name, workloads);
    mode->second(suite.loops());
    if (pooled) return 0;
    for (const char* workload : {"W3", "W4"}) {
        Suite scaled(wanted, false);
        for (const std::size_t elements : scale) add_ours_scaled(scaled, workload, elements);
        mode->second(scaled.loops());
    }
    return 0;
}
