// Threads that create and destroy Instances of the same types, each in a Domain of its own: the counters, which they
// share, are exact afterwards.
#include <orlan_epm.h>
#include <platform/domain.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t threads = 8, rounds = 100000;

void expect_counted(const zur_type_info& type, std::vector<std::size_t> times) {
    for (std::size_t variant = 0; variant < times.size(); ++variant) {
        const zur_variant_record& record = type.variant_table->records[variant];
        EXPECT_EQ(record.created, times[variant] * rounds) << type.name << " " << variant;
        EXPECT_EQ(record.destroyed, times[variant] * rounds) << type.name << " " << variant;
    }
}

TEST(Threads, CountersAreExact) {
    std::atomic<std::size_t> ready = 0;
    std::vector<std::thread> all;
    for (std::size_t n = 0; n < threads; ++n)
        all.emplace_back([n, &ready] {
            // Tracked and untracked Domains, and peers of two levels.
            platform_domain_options options{};
            options.tracking = n % 2 == 0 ? ZUR_TRACKED_MODE : ZUR_UNTRACKED_MODE;
            zur_domain* D = platform_domain_create(&options);
            platform_domain_agree_all(D, static_cast<std::int8_t>(n % 4 < 2));
            ++ready;
            while (ready != threads) std::this_thread::yield();
            const auto run = [&](auto create, auto destroy) { destroy(D, ZUR_NO_SET, create(D, ZUR_NO_SET)); };
            for (std::size_t i = 0; i < rounds; ++i) {
                run(coa_request_type_create, coa_request_type_destroy);
                run(orlan_ial_svm_epm_in_e_create, orlan_ial_svm_epm_in_e_destroy);
                run(webauth_watch_list_create, webauth_watch_list_destroy);
                run(auth_mgr_linksec_event_create, auth_mgr_linksec_event_destroy);
            }
            platform_domain_destroy(D);
        });
    for (std::thread& thread : all) thread.join();
    expect_counted(_coa_request_type_type_info_internal, {threads});
    expect_counted(_orlan_ial_svm_epm_in_e_type_info_internal, {threads / 2, threads / 2});
    expect_counted(_webauth_watch_list_type_info_internal, {threads});
    expect_counted(_auth_mgr_linksec_event_type_info_internal, {threads / 2, threads / 2});
    expect_counted(_auth_mgr_linksec_event_fail_data_type_info_internal, {threads}); // nested in the event
}

} // namespace
