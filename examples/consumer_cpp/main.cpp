// The smallest useful program in C++: it sends one access-control entry in wire form and prints it as XML. It needs
// only what is installed.
#include <orlan_epm.h>
#include <platform/domain.h>

#include <cstdint>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

int main() {
    constexpr std::uint32_t S = ZUR_NO_SET;
    constexpr std::string_view name = "guest-in";
    std::uint32_t st = 0;

    zur_domain* D = platform_domain_create(nullptr);
    orlan_ial_svm_acl_data* entry = orlan_ial_svm_acl_data_create(D, S);
    orlan_ial_svm_acl_data* received = orlan_ial_svm_acl_data_create(D, S);
    if (entry == nullptr || received == nullptr) return 1;

    orlan_ial_svm_acl_data_acl_name_set(D, S, entry, name.data(), static_cast<std::uint32_t>(name.size()), &st);
    orlan_ial_svm_acl_data_sequence_set_value(D, S, entry, 10, &st);
    std::vector<std::uint8_t> wire(orlan_ial_svm_acl_data_len(D, S, entry));
    wire.resize(orlan_ial_svm_acl_data_marshal(D, S, wire.data(), entry, static_cast<std::int32_t>(wire.size()), &st));

    const std::uint32_t used =
        orlan_ial_svm_acl_data_unmarshal(D, S, wire.data(), received, static_cast<std::int32_t>(wire.size()), 0, &st);
    if (st == 0 && used != wire.size()) st = ZUR_WRONG_LENGTH; // truncated, or more bytes than the message
    const bool same = orlan_ial_svm_acl_data_compare(entry, received) == 0;
    std::string xml(4096, '\0');
    xml.resize(orlan_ial_svm_acl_data_to_xml(D, S, "entry", xml.data(), received,
                                             static_cast<std::uint32_t>(xml.size()), 0, &st));

    std::cout << xml << '\n'
              << wire.size() << " bytes, " << (same ? "the same" : "another") << ", status " << st << '\n';
    orlan_ial_svm_acl_data_destroy(D, S, entry);
    orlan_ial_svm_acl_data_destroy(D, S, received);
    platform_domain_destroy(D);
    return st != 0 || !same;
}
