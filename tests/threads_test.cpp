// Threads that create and destroy Instances of the same types, each in a Domain of its own: the counters, which they
// share, are exact afterwards.
#include <orlan_epm.h>
#include <platform/domain.h>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

constexpr std::size_t threads = 8, rounds = 100000;

TEST(Threads, CountersAreExact) {
    std::vector<std::thread> all;
    for (std::size_t n = 0; n < threads; ++n)
        all.emplace_back([n] {
            // Tracked and untracked Domains, and peers of two levels.
            platform_domain_options options{};
            options.tracking = n % 2 == 0 ? ZUR_TRACKED_MODE : ZUR_UNTRACKED_MODE;
            zur_domain* D = platform_domain_create(&options);
            platform_domain_agree_all(D, static_cast<std::int8_t>(n % 4 < 2));
            const auto run = [&](auto create, auto destroy) { destroy(D, ZUR_NO_SET, create(D, ZUR_NO_SET)); };
            for (std::size_t i = 0; i < rounds; ++i) {
                run(orlan_ial_svm_epm_in_e_create, orlan_ial_svm_epm_in_e_destroy);
                run(auth_mgr_linksec_event_create, auth_mgr_linksec_event_destroy);
            }
            platform_domain_destroy(D);
        });
    for (std::thread& thread : all) thread.join();
    const auto expect_counted = [](const zur_type_info& type, int variant, std::size_t times) {
        const zur_variant_record& record = type.variant_table->records[variant];
        EXPECT_EQ(record.created, times * rounds) << type.name << " " << variant;
        EXPECT_EQ(record.destroyed, times * rounds) << type.name << " " << variant;
    };
    for (const int variant : {0, 1}) {
        expect_counted(_orlan_ial_svm_epm_in_e_type_info_internal, variant, threads / 2);
        expect_counted(_auth_mgr_linksec_event_type_info_internal, variant, threads / 2);
    }
    expect_counted(_auth_mgr_linksec_event_fail_data_type_info_internal, 0, threads); // nested in the event
}

} // namespace
