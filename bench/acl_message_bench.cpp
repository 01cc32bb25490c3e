// Costs of one access-list message, each beside a floor measured in the same run: a hand-written big-endian encoder and
// decoder of the same fields on one block. Prints the usual table, then each operation's ratio to its floor.
#include <orlan_epm.h>
#include <platform/domain.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr char acl_name[] = "GUEST-WEB-ACCESS-BLDG-04";
constexpr char ace_name[] = "permit-web-10-20";
constexpr std::uint32_t numbers[] = {10, 1, 1, 0, 20, 1, 7, 0, 0xC0000207};

// ---- the floor: the same thirteen fields behind the same two headers, byte by byte ----

struct FlatMessage {
    std::string acl_name, ace_name;
    std::uint32_t numbers[9];
};

unsigned char* put(unsigned char* to, std::uint32_t n) {
    n = __builtin_bswap32(n);
    std::memcpy(to, &n, sizeof n);
    return to + sizeof n;
}

const unsigned char* get(const unsigned char* from, std::uint32_t& n) {
    std::memcpy(&n, from, sizeof n);
    n = __builtin_bswap32(n);
    return from + sizeof n;
}

std::size_t flat_encode(const FlatMessage& m, unsigned char* buffer, std::size_t room) {
    const std::size_t length = 6 + 5 + 6 + 8 + m.acl_name.size() + m.ace_name.size() + sizeof m.numbers;
    if (length > room) return 0;
    unsigned char* to = buffer;
    *to++ = 1;
    *to++ = 0;
    to = put(to, static_cast<std::uint32_t>(length - 2));
    *to++ = 1;
    to = put(to, 1);
    *to++ = 2;
    *to++ = 0;
    to = put(to, static_cast<std::uint32_t>(length - 13));
    to = put(to, static_cast<std::uint32_t>(m.acl_name.size()));
    to = put(to, static_cast<std::uint32_t>(m.ace_name.size()));
    to = static_cast<unsigned char*>(std::memcpy(to, m.acl_name.data(), m.acl_name.size())) + m.acl_name.size();
    to = static_cast<unsigned char*>(std::memcpy(to, m.ace_name.data(), m.ace_name.size())) + m.ace_name.size();
    for (const std::uint32_t n : m.numbers) to = put(to, n);
    return static_cast<std::size_t>(to - buffer);
}

bool flat_decode(const unsigned char* from, std::size_t length, FlatMessage& m) {
    if (length < 25) return false;
    std::uint32_t acl_length, ace_length;
    const unsigned char* end = from + length;
    from = get(get(from + 17, acl_length), ace_length);
    if (std::size_t{acl_length} + ace_length + sizeof m.numbers > static_cast<std::size_t>(end - from)) return false;
    m.acl_name.assign(reinterpret_cast<const char*>(from), acl_length);
    m.ace_name.assign(reinterpret_cast<const char*>(from + acl_length), ace_length);
    from += acl_length + ace_length;
    for (std::uint32_t& n : m.numbers) from = get(from, n);
    return true;
}

// ---- the library's message ----

struct Message {
    zur_domain* D = platform_domain_create(nullptr);
    std::uint32_t st = 0;
    orlan_ial_svm_epm_data* envelope = nullptr;
    std::vector<unsigned char> wire;

    Message() {
        constexpr std::uint32_t S = ZUR_NO_SET;
        orlan_ial_svm_acl_data* acl = orlan_ial_svm_acl_data_create(D, S);
        orlan_ial_svm_acl_data_acl_name_set(D, S, acl, acl_name, sizeof acl_name - 1, &st);
        orlan_ial_svm_acl_data_ace_name_set(D, S, acl, ace_name, sizeof ace_name - 1, &st);
        orlan_ial_svm_acl_data_set_all(D, S, acl, numbers[0], numbers[1], numbers[2], numbers[3], numbers[4],
                                       numbers[5], numbers[6], numbers[7], numbers[8], &st);
        envelope = orlan_ial_svm_epm_data_create(D, S);
        orlan_ial_svm_epm_data_acl_data_set(D, S, envelope, acl, &st);
        wire.resize(orlan_ial_svm_epm_data_len(D, S, envelope));
        wire.resize(orlan_ial_svm_epm_data_marshal(D, S, wire.data(), envelope, static_cast<int>(wire.size()), &st));
        if (st != 0 || wire.empty()) std::fprintf(stderr, "the message cannot be built: %u\n", st), std::exit(1);
    }
    ~Message() {
        orlan_ial_svm_epm_data_destroy(D, ZUR_NO_SET, envelope);
        platform_domain_destroy(D);
    }
};

FlatMessage flat_message() {
    FlatMessage m{acl_name, ace_name, {}};
    std::memcpy(m.numbers, numbers, sizeof numbers);
    return m;
}

void floor_encode(benchmark::State& state) {
    const FlatMessage m = flat_message();
    unsigned char buffer[256];
    for (auto _ : state) {
        benchmark::DoNotOptimize(flat_encode(m, buffer, sizeof buffer));
        benchmark::ClobberMemory();
    }
}

void floor_decode(benchmark::State& state) {
    const Message message;
    for (auto _ : state) {
        auto* m = new FlatMessage;
        if (!flat_decode(message.wire.data(), message.wire.size(), *m)) state.SkipWithError("the floor cannot read it");
        benchmark::DoNotOptimize(m->numbers);
        delete m;
    }
}

void create_destroy(benchmark::State& state) {
    Message m;
    for (auto _ : state)
        orlan_ial_svm_epm_data_destroy(m.D, ZUR_NO_SET, orlan_ial_svm_epm_data_create(m.D, ZUR_NO_SET));
}

void len(benchmark::State& state) {
    Message m;
    for (auto _ : state) benchmark::DoNotOptimize(orlan_ial_svm_epm_data_len(m.D, ZUR_NO_SET, m.envelope));
}

void marshal(benchmark::State& state) {
    Message m;
    for (auto _ : state)
        benchmark::DoNotOptimize(orlan_ial_svm_epm_data_marshal(m.D, ZUR_NO_SET, m.wire.data(), m.envelope,
                                                                static_cast<int>(m.wire.size()), &m.st));
    if (m.st != 0) state.SkipWithError("marshal fails");
}

void unmarshal_destroy(benchmark::State& state) {
    Message m;
    for (auto _ : state) {
        orlan_ial_svm_epm_data* copy = orlan_ial_svm_epm_data_create(m.D, ZUR_NO_SET);
        orlan_ial_svm_epm_data_unmarshal(m.D, ZUR_NO_SET, m.wire.data(), copy, static_cast<int>(m.wire.size()), 0,
                                         &m.st);
        orlan_ial_svm_epm_data_destroy(m.D, ZUR_NO_SET, copy);
    }
    if (m.st != 0) state.SkipWithError("unmarshal fails");
}

BENCHMARK(floor_encode);
BENCHMARK(floor_decode);
BENCHMARK(create_destroy);
BENCHMARK(len);
BENCHMARK(marshal);
BENCHMARK(unmarshal_destroy);

struct RatioReporter : benchmark::ConsoleReporter {
    std::map<std::string, double> times;

    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) times[run.benchmark_name()] = run.GetAdjustedCPUTime();
    }
    void Finalize() override {
        const std::map<std::string, std::string> floors = {{"create_destroy", "floor_decode"},
                                                           {"len", "floor_encode"},
                                                           {"marshal", "floor_encode"},
                                                           {"unmarshal_destroy", "floor_decode"}};
        std::printf("\n%-20s %10s  %s\n", "operation", "ratio", "to");
        for (const auto& [name, floor] : floors)
            if (times.contains(name) && times.contains(floor))
                std::printf("%-20s %10.2f  %s\n", name.c_str(), times[name] / times[floor], floor.c_str());
    }
};

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}
