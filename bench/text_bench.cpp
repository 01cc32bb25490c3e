// What reading a VLAN group from XML costs, beside writing it: the same record both ways, with numbers of VLANs that
// double up to all 4,094, and what of it is parsing, looking up, and growing the array by one element at a time.
// Prints the usual table, then the ratio of reading to writing for each number.
#include <orlan_epm.h>
#include <platform/domain.h>
#include <platform/xml.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace {

void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "text_bench: %s\n", what);
    std::abort();
}

constexpr const char* type = "orlan_ial_vlan_group_info";
constexpr std::uint32_t S = ZUR_NO_SET;

struct Group {
    zur_domain* D = platform_domain_create(nullptr);
    std::uint32_t st = 0;
    orlan_ial_vlan_group_info* x = orlan_ial_vlan_group_info_create(D, S);
    std::vector<char> xml = std::vector<char>(200000);
    std::uint32_t length = 0;

    explicit Group(std::uint32_t vlans) {
        for (std::uint32_t i = 0; i < vlans; ++i) orlan_ial_vlan_group_info_vlans_set_value(D, S, x, i, i + 1, &st);
        orlan_ial_vlan_group_info_gp_name_set(D, S, x, "staff", 5, &st);
        write();
        require(st == 0, "the group cannot be written");
    }
    ~Group() {
        orlan_ial_vlan_group_info_destroy(D, S, x);
        platform_domain_destroy(D);
    }
    void write() {
        length =
            orlan_ial_vlan_group_info_to_xml(D, S, type, xml.data(), x, static_cast<std::uint32_t>(xml.size()), 0, &st);
    }
    zur_xml_document* parse() const { return platform_xml_parse(xml.data(), length, nullptr, nullptr, 0); }
};

void write(benchmark::State& state) {
    Group group(static_cast<std::uint32_t>(state.range(0)));
    for (auto _ : state) group.write();
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void read(benchmark::State& state) {
    Group group(static_cast<std::uint32_t>(state.range(0)));
    for (auto _ : state) {
        zur_xml_document* document = group.parse();
        auto* y = orlan_ial_vlan_group_info_create(group.D, S);
        orlan_ial_vlan_group_info_from_xml(group.D, S, type, document, y, &group.st, nullptr, 0);
        require(group.st == 0 && orlan_ial_vlan_group_info_compare(group.x, y) == 0, "what was read is something else");
        orlan_ial_vlan_group_info_destroy(group.D, S, y);
        platform_xml_free(document);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void parse(benchmark::State& state) {
    Group group(static_cast<std::uint32_t>(state.range(0)));
    for (auto _ : state) platform_xml_free(group.parse());
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void look_up(benchmark::State& state) {
    Group group(static_cast<std::uint32_t>(state.range(0)));
    zur_xml_document* document = group.parse();
    const std::string start = std::string(type) + "/vlans[";
    char path[256];
    for (auto _ : state)
        for (long i = 1; i <= state.range(0); ++i) {
            std::uint32_t value = 0;
            std::snprintf(path, sizeof path, "%s%ld]", start.c_str(), i);
            u_int32_from_xml(group.D, S, path, document, &value, &group.st, nullptr, 0);
            require(value == i, "another VLAN");
        }
    platform_xml_free(document);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void grow(benchmark::State& state) {
    Group group(0);
    for (auto _ : state) {
        auto* y = orlan_ial_vlan_group_info_create(group.D, S);
        for (std::uint32_t i = 0; i < state.range(0); ++i)
            orlan_ial_vlan_group_info_vlans_set(group.D, S, y, i, &i, &group.st);
        orlan_ial_vlan_group_info_destroy(group.D, S, y);
    }
    require(group.st == 0, "the array does not grow");
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(write)->Arg(256)->Arg(512)->Arg(1024)->Arg(2048)->Arg(4094);
BENCHMARK(read)->Arg(256)->Arg(512)->Arg(1024)->Arg(2048)->Arg(4094);
BENCHMARK(parse)->Arg(4094);
BENCHMARK(look_up)->Arg(4094);
BENCHMARK(grow)->Arg(256)->Arg(1024)->Arg(4094);

/// Prints the table and keeps the times.
class Ratios : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Iteration) times_[run.benchmark_name()] = run.GetAdjustedCPUTime();
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        for (const auto& [name, time] : times_) {
            const std::size_t slash = name.find('/');
            const auto writing = times_.find("write" + name.substr(slash));
            if (name.starts_with("read/") && writing != times_.end())
                std::printf("%s costs %.1f times what writing does\n", name.c_str(), time / writing->second);
        }
    }

private:
    std::map<std::string, double> times_;
};

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    Ratios ratios;
    benchmark::RunSpecifiedBenchmarks(&ratios);
    benchmark::Shutdown();
    return 0;
}
