// What one element costs on the wire: an array of VLANs and a list of contexts, of several sizes. The last column is
// the time for each element, which must not grow with their number.
#include <orlan_epm.h>
#include <platform/domain.h>

#include <benchmark/benchmark.h>

#include <numeric>
#include <vector>

namespace {

constexpr std::uint32_t S = ZUR_NO_SET;

void per_element(benchmark::State& state, std::uint32_t st) {
    if (st != 0) state.SkipWithError("an operation fails");
    state.counters["element"] = benchmark::Counter(static_cast<double>(state.iterations() * state.range(0)),
                                                   benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.SetComplexityN(state.range(0));
}

void marshal_vlans(benchmark::State& state) {
    zur_domain* D = platform_domain_create(nullptr);
    std::uint32_t st = 0;
    std::vector<std::uint32_t> vlans(static_cast<std::size_t>(state.range(0)));
    std::iota(vlans.begin(), vlans.end(), 1);
    orlan_ial_vlan_group_info* group = orlan_ial_vlan_group_info_create(D, S);
    orlan_ial_vlan_group_info_vlans_set_mem(D, S, group, vlans.data(), static_cast<std::uint32_t>(vlans.size()), &st);
    std::vector<unsigned char> wire(orlan_ial_vlan_group_info_len(D, S, group));
    for (auto _ : state)
        benchmark::DoNotOptimize(
            orlan_ial_vlan_group_info_marshal(D, S, wire.data(), group, static_cast<int>(wire.size()), &st));
    per_element(state, st);
    orlan_ial_vlan_group_info_destroy(D, S, group);
    platform_domain_destroy(D);
}

void marshal_contexts(benchmark::State& state) {
    zur_domain* D = platform_domain_create(nullptr);
    std::uint32_t st = 0;
    rcl_client_acl_t* acl = rcl_client_acl_t_create(D, S);
    for (std::int64_t i = 0; i < state.range(0); ++i)
        rcl_client_acl_t_bm_feat_ctx_list_set_last(D, S, acl, epm_client_acl_feat_ctx_create(D, S), &st);
    std::vector<unsigned char> wire(rcl_client_acl_t_len(D, S, acl));
    for (auto _ : state)
        benchmark::DoNotOptimize(rcl_client_acl_t_marshal(D, S, wire.data(), acl, static_cast<int>(wire.size()), &st));
    per_element(state, st);
    rcl_client_acl_t_destroy(D, S, acl);
    platform_domain_destroy(D);
}

BENCHMARK(marshal_vlans)->Arg(64)->Arg(512)->Arg(4094)->Complexity(benchmark::oN);
BENCHMARK(marshal_contexts)->Arg(10)->Arg(100)->Arg(1000)->Complexity(benchmark::oN);

} // namespace
