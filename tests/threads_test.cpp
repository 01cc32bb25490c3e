// Threads that create and destroy Instances of the same types, each in a Domain of its own: the counters, which they
// share, are exact afterwards.
#include <orlan_epm.h>
#include <platform/domain.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t threads = 8;
constexpr std::size_t rounds = 100000;

template <class Instance>
struct Type {
    const zur_type_info& info;
    Instance* (*create)(zur_domain*, std::uint32_t);
    void (*destroy)(zur_domain*, std::uint32_t, Instance*);
};

const Type<coa_request_type> an_enum = {_coa_request_type_type_info_internal, coa_request_type_create,
                                        coa_request_type_destroy};
const Type<orlan_ial_svm_epm_in_e> another_enum = {_orlan_ial_svm_epm_in_e_type_info_internal,
                                                   orlan_ial_svm_epm_in_e_create, orlan_ial_svm_epm_in_e_destroy};
const Type<webauth_watch_list> a_record = {_webauth_watch_list_type_info_internal, webauth_watch_list_create,
                                           webauth_watch_list_destroy};
const Type<auth_mgr_linksec_event> a_nested_record = {_auth_mgr_linksec_event_type_info_internal,
                                                      auth_mgr_linksec_event_create, auth_mgr_linksec_event_destroy};

template <class Instance>
void run(zur_domain* D, const Type<Instance>& type) {
    type.destroy(D, ZUR_NO_SET, type.create(D, ZUR_NO_SET));
}

void expect_counted(const zur_type_info& type, std::size_t variant, std::size_t times) {
    const zur_variant_record& record = type.variant_table->records[variant];
    EXPECT_EQ(record.created, times) << type.name << " " << variant;
    EXPECT_EQ(record.destroyed, times) << type.name << " " << variant;
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
            for (std::size_t i = 0; i < rounds; ++i) {
                run(D, an_enum);
                run(D, another_enum);
                run(D, a_record);
                run(D, a_nested_record);
            }
            platform_domain_destroy(D);
        });
    for (std::thread& thread : all) thread.join();
    expect_counted(an_enum.info, 0, threads * rounds);
    expect_counted(a_record.info, 0, threads * rounds);
    for (const std::size_t variant : {0u, 1u}) {
        expect_counted(another_enum.info, variant, threads / 2 * rounds);
        expect_counted(a_nested_record.info, variant, threads / 2 * rounds);
    }
    expect_counted(_auth_mgr_linksec_event_fail_data_type_info_internal, 0, threads * rounds);
}

} // namespace
