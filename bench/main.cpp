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
constexpr const char* scaling[] = {"marshal", "unmarshal", "compare", "hash", "print", "to_xml", "from_xml"};

double nanoseconds(const Loop& loop, std::uint64_t times) {
    const auto start = Clock::now();
    loop.run(times);
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

/// How often a loop must run to last about that long; found by a second run, since the first one pays for page faults
/// and for symbols that are bound late.
std::uint64_t rounds(const Loop& loop, double wanted, std::uint64_t least, std::uint64_t most) {
    if (nanoseconds(loop, 1) > wanted) return least;
    const double once = std::max(nanoseconds(loop, 1), 20.0);
    return std::clamp(static_cast<std::uint64_t>(wanted / once), least, most);
}

/// Each loop's instructions go into a file of their own, whose head tells the name and how often the loop ran.
void count(const std::vector<Loop>& loops) {
    for (const Loop& loop : loops) {
        const std::uint64_t times = rounds(loop, 2e7, 2, 1000);
        const std::string head = loop.name() + " " + std::to_string(times) + " ";
        CALLGRIND_START_INSTRUMENTATION;
        CALLGRIND_ZERO_STATS;
        loop.run(times);
        CALLGRIND_DUMP_STATS_AT(head.c_str());
        CALLGRIND_STOP_INSTRUMENTATION;
    }
}

/// The medians of rounds that alternate between the loops of one operation, so that a slow moment meets all of them.
void time(const std::vector<Loop>& loops) {
    constexpr std::size_t repetitions = 21;
    std::map<std::string, std::vector<const Loop*>> rivals;
    for (const Loop& loop : loops) rivals[loop.workload + "/" + loop.operation].push_back(&loop);
    for (const auto& [name, group] : rivals) {
        std::vector<std::vector<double>> taken(group.size());
        std::vector<std::uint64_t> times;
        for (const Loop* loop : group) times.push_back(rounds(*loop, 1e6, 1, 1000000));
        for (std::size_t r = 0; r < repetitions; ++r)
            for (std::size_t i = 0; i < group.size(); ++i)
                if (r < 3 || times[i] > 1 || taken[i].back() < 1e7)
                    taken[i].push_back(nanoseconds(*group[i], times[i]) / static_cast<double>(times[i]));
        for (std::size_t i = 0; i < group.size(); ++i) {
            std::sort(taken[i].begin(), taken[i].end());
            std::printf("%s,%.1f\n", group[i]->name().c_str(), taken[i][taken[i].size() / 2]);
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
        if (loop.bytes != 0) std::printf("%s,%zu\n", loop.name().c_str(), loop.bytes);
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
    const auto run = [&](const Suite& suite) {
        std::vector<Loop> chosen;
        for (const Loop& loop : suite.loops())
            if (std::regex_search(loop.name(), wanted)) chosen.push_back(loop);
        mode->second(chosen);
    };
    Suite suite;
    add_ours(suite);
    add_references(suite);
#ifdef BENCH_PROTOBUF
    add_protobuf(suite);
#endif
#ifdef BENCH_FLATBUFFERS
    add_flatbuffers(suite);
#endif
#ifdef BENCH_XDR
    add_xdr(suite);
#endif
#ifdef BENCH_PUGIXML
    add_pugixml(suite);
#endif
    run(suite);
    for (const char* workload : {"W3", "W4"})
        for (const std::size_t elements : scale) {
            const std::string name = workload + std::string("x") + std::to_string(elements);
            if (std::none_of(std::begin(scaling), std::end(scaling), [&](const std::string& operation) {
                    return std::regex_search(name + "/" + operation + "/ours", wanted);
                }))
                continue;
            Suite scaled;
            add_ours_scaled(scaled, workload, elements);
            run(scaled);
        }
    return 0;
}
