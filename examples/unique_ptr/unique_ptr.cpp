// Records, enumerations, arms and failures with owned Instances. At the end, the counters that the library keeps for
// each type show whether everything that was created has been destroyed.
#include "instance.hpp"

#include <platform/domain.h>
#include <zur/runtime.h>

#include <cinttypes>
#include <cstdio>
#include <string>
#include <string_view>

namespace {

using Domain = std::unique_ptr<zur_domain, decltype(&platform_domain_destroy)>;

/// Returns early when the status word is raised, and still loses nothing.
uint32_t send_entry(zur_domain* D, std::string_view name) {
    uint32_t st = 0;
    auto entry = CREATE(orlan_ial_svm_acl_data, D);
    auto message = CREATE(orlan_ial_svm_epm_data, D);
    orlan_ial_svm_acl_data_acl_name_set(D, ZUR_NO_SET, entry.get(), name.data(), static_cast<uint32_t>(name.size()),
                                        &st);
    orlan_ial_svm_acl_data_is_dacl_set_value(D, ZUR_NO_SET, entry.get(), 1, &st);
    if (st != 0) return st;
    give(orlan_ial_svm_epm_data_acl_data_set, D, ZUR_NO_SET, message.get(), entry, &st);

    unsigned char wire[512];
    const uint32_t length =
        orlan_ial_svm_epm_data_marshal(D, ZUR_NO_SET, wire, message.get(), int32_t{sizeof wire}, &st);
    std::printf("  %s: %" PRIu32 " bytes, the entry is %s\n", std::string(name).c_str(), length,
                entry == nullptr ? "the message's" : "still ours");
    return st;
}

/// Adds up the library's own counters of its Instances.
void show_counts() {
    uint64_t created = 0;
    uint64_t destroyed = 0;
    for (const zur_module_node* module = zur_module_tot_root.first; module != nullptr; module = module->next) {
        if (std::string_view(module->name) != "orlan_epm") continue;
        for (const zur_type_info* const* type = module->types; *type != nullptr; ++type) {
            const zur_variant_table& table = *(*type)->variant_table;
            for (int8_t i = 0; i < table.count; ++i) {
                created += table.records[i].created;
                destroyed += table.records[i].destroyed;
            }
        }
    }
    std::printf("%" PRIu64 " Instances created, %" PRIu64 " destroyed\n", created, destroyed);
}

} // namespace

int main() {
    const Domain D(platform_domain_create(nullptr), platform_domain_destroy);
    const Domain older(platform_domain_create(nullptr), platform_domain_destroy);
    platform_domain_agree_all(older.get(), 0);

    std::puts("A message takes over what it is given:");
    std::printf("  status %" PRIu32 "\n", send_entry(D.get(), "guest-in"));
    std::puts("A field that the peer's variant lacks ends the function early:");
    std::printf("  status %" PRIu32 "\n", send_entry(older.get(), "guest-in"));

    std::puts("An arm that the peer's variant lacks is not taken:");
    uint32_t st = 0;
    auto message = CREATE(orlan_ial_svm_epm_data, older.get());
    auto result = CREATE(orlan_ial_dacl_dnld_complete, older.get());
    give(orlan_ial_svm_epm_data_dacl_dnld_comp_data_set, older.get(), ZUR_NO_SET, message.get(), result, &st);
    std::printf("  status %" PRIu32 ", the result is %s\n", st, result == nullptr ? "gone" : "still ours");

    std::puts("One template for all types, also where one type's name is another's function:");
    auto tag = CREATE(orlan_ial_svm_epm_type_e, D.get());
    auto names = CREATE(orlan_ial_svm_fqdn_data, D.get());
    auto creation = CREATE(orlan_ial_svm_fqdn_data_create, D.get());
    std::printf("  %s, %s, %s\n", zur_get_manifested_type_info(tag.get())->name,
                zur_get_manifested_type_info(names.get())->name, zur_get_manifested_type_info(creation.get())->name);

    message.reset();
    result.reset();
    tag.reset();
    names.reset();
    creation.reset();
    show_counts();
}
