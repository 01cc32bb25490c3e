// Costs of reading and writing one number of a record, each beside a floor measured in the same run: the runtime calls
// that the accessor is bound to make, made directly. Prints the usual table, then the two ratios.
#include <orlan_epm.h>
#include <platform/domain.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

namespace {

constexpr std::uint32_t S = 7;
constexpr std::size_t sequence = 40; // its place in the record

struct Fixture {
    zur_domain* D = platform_domain_create(nullptr);
    orlan_ial_svm_acl_data* x = orlan_ial_svm_acl_data_create(D, S);
    std::uint32_t st = 0;

    Fixture() {
        if (x == nullptr) std::abort();
    }
    ~Fixture() {
        orlan_ial_svm_acl_data_destroy(D, S, x);
        platform_domain_destroy(D);
    }
    void* field() const { return reinterpret_cast<char*>(x) + sequence; }
};

void check(benchmark::State& state, const Fixture& f, std::uint32_t wanted) {
    std::uint32_t st = f.st;
    if (orlan_ial_svm_acl_data_sequence_get_value(f.D, S, f.x, &st) != wanted || st != 0)
        state.SkipWithError("the record does not hold what was written");
}

void get_value(benchmark::State& state) {
    Fixture f;
    orlan_ial_svm_acl_data_sequence_set_value(f.D, S, f.x, 3, &f.st);
    std::uint32_t sum = 0;
    for (auto _ : state) sum += orlan_ial_svm_acl_data_sequence_get_value(f.D, S, f.x, &f.st);
    benchmark::DoNotOptimize(sum);
    check(state, f, 3);
}

void get_value_floor(benchmark::State& state) {
    Fixture f;
    std::uint32_t sum = 0;
    for (auto _ : state) {
        zur_clear_last_error(f.D);
        if (zur_get_instance_variant(f.x, 1, 0) >= 0)
            sum += u_int32_get_value(f.D, S, u_int32_get(f.D, S, f.field(), &f.st), &f.st);
    }
    benchmark::DoNotOptimize(sum);
    check(state, f, 0);
}

void set_value(benchmark::State& state) {
    Fixture f;
    for (auto _ : state) orlan_ial_svm_acl_data_sequence_set_value(f.D, S, f.x, 5, &f.st);
    check(state, f, 5);
}

void set_value_floor(benchmark::State& state) {
    Fixture f;
    for (auto _ : state) {
        zur_clear_last_error(f.D);
        zurlib_adjust_variant(f.D, S, f.x, zur_get_manifested_type_info(f.x), 2, &f.st);
        if (zur_get_instance_variant(f.x, 1, 0) < 0) continue;
        zur_clear_last_error(f.D);
        if (zur_get_instance_variant(f.x, 1, 0) < 0) continue;
        u_int32_set_value(f.D, S, u_int32_get(f.D, S, f.field(), &f.st), 5, &f.st);
    }
    check(state, f, 5);
}

BENCHMARK(get_value);
BENCHMARK(get_value_floor);
BENCHMARK(set_value);
BENCHMARK(set_value_floor);

/// Keeps the times, for the ratios.
class Times : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) times_[run.benchmark_name()] = run.GetAdjustedCPUTime();
        ConsoleReporter::ReportRuns(runs);
    }
    void print_ratios() const {
        for (const auto& [name, time] : times_)
            if (const auto floor = times_.find(name + "_floor"); floor != times_.end() && floor->second > 0)
                std::printf("%s: %.2f times its floor\n", name.c_str(), time / floor->second);
    }

private:
    std::map<std::string, double> times_;
};

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    Times times;
    benchmark::RunSpecifiedBenchmarks(&times);
    times.print_ratios();
    return 0;
}
