// Domain names: lists bound to an address, names and addresses of a client, and the forwarding flag that travels
// among them.
#pragma once

#include "catalogue/numbers.hpp"

namespace epm::catalogue {

// clang-format off

inline constexpr Record fqdn_domain_name = record("fqdn_domain_name", "DomainName",
    "One domain name.",
    {"9830f99837a5ca59b41edf08c50c9cba", "a5f74d65dbe02848549d8d76c9499fee"}, {
    length(u_int16, "name_len", "Characters that name holds now, without the NUL, 0 to 65535."),
    text  (         "name",     "name_len", "The domain name; a length above 65535 counts by its low 16 bits."),
});
static_assert(has_numbers<fqdn_domain_name>({.used = {24}, .size = 32, .tracked = 33}));

inline constexpr Record orlan_ial_svm_fqdn_data_create = record("orlan_ial_svm_fqdn_data_create", "FqdnCreate",
    "Creates the domain-name data of a list.",
    {"5cbd2a880d9a8ca6b4f929e7bdfac97d", "376d976366c6cfd0b6ddb5db868c8535"}, {
    length(u_int32, "max_length", "Characters that acl_name holds now, without the NUL."),
    text  (         "acl_name",   "max_length", "Name of the list."),
});
static_assert(has_numbers<orlan_ial_svm_fqdn_data_create>({.used = {24}, .size = 32, .tracked = 33}));

inline constexpr Record orlan_ial_svm_fqdn_data_delete = record("orlan_ial_svm_fqdn_data_delete", "FqdnDelete",
    "Deletes the domain-name data of a list.",
    {"2a054074c08655bc0321b4a036fffd12", "8b1e1441cdb9c47ecca7cff2a532413f"}, {
    length(u_int32, "max_length", "Characters that acl_name holds now, without the NUL."),
    text  (         "acl_name",   "max_length", "Name of the list."),
});
static_assert(has_numbers<orlan_ial_svm_fqdn_data_delete>({.used = {24}, .size = 32, .tracked = 33}));

inline constexpr Record orlan_ial_svm_fqdn_data = record("orlan_ial_svm_fqdn_data", "Fqdn",
    "Names of a list and of a template list for one address.",
    {"752dd5339223f46de21ac0441298dd29", "773cecc776a58d82c19e8844d6378c03"}, {
    value (u_int32, "ip_address",     "IPv4 address as a 32-bit number, not an address object."),
    length(u_int32, "max_length",     "Characters that acl_name holds now, without the NUL."),
    text  (         "acl_name",       "max_length", "Name of the list."),
    length(u_int32, "templ_length",   "Characters that templ_acl_name holds now, without the NUL."),
    text  (         "templ_acl_name", "templ_length", "Name of the template list."),
});
static_assert(has_numbers<orlan_ial_svm_fqdn_data>({.used = {48}, .size = 56, .tracked = 59}));

inline constexpr Record orlan_ial_svm_port_fwd_info = record("orlan_ial_svm_port_fwd_info", "PortForwarding",
    "A forwarding flag for a client's port.",
    {"c8f8d91d5c5fd4e090d5f753948ef75a", "3203508ecd260048bc452d24757aa3ab"}, {
    object(zur_mac_addr, "mac",         "The client's Ethernet address."),
    value (u_int32,      "gidb_handle", "The port's gidb handle, carried unchanged."),
    value (u_int32,      "flag",        "The forwarding flag, carried unchanged."),
});
static_assert(has_numbers<orlan_ial_svm_port_fwd_info>({.used = {28}, .size = 40, .tracked = 43}));

inline constexpr Record orlan_svm_epm_notify_domain_name = record("orlan_svm_epm_notify_domain_name", "DomainNamesNotice",
    "The domain names of a client, in an array that grows on demand.",
    {"3776d73b87df22e990d0441257f94d5a", "637f2d32dee2ebcef2bfd6c6e09792ca"}, {
    object(zur_mac_addr,     "mac",                 "The client's Ethernet address."),
    value (u_int32,          "wlclient_num",        "Number of the client, carried unchanged."),
    length(u_int32,          "domain_names_length", "Elements that domain_names holds now; not a length in bytes."),
    array (fqdn_domain_name, "domain_names",        "domain_names_length", "The domain names."),
});
static_assert(has_numbers<orlan_svm_epm_notify_domain_name>({.used = {40}, .size = 48, .tracked = 64}));

inline constexpr Record orlan_svm_epm_ip_address_update_notify = record("orlan_svm_epm_ip_address_update_notify", "IpAddressNotice",
    "A domain name's new address for a client.",
    {"8d0a1e50b989ebe2316fef1297f4aa9c", "edd9e5994c309ff6a2edd7c6d5e32e5c"}, {
    object  (zur_mac_addr,     "mac",          "The client's Ethernet address."),
    value   (u_int32,          "wlclient_num", "Number of the client, carried unchanged."),
    value   (u_int32,          "ip_addr",      "The new IPv4 address as a 32-bit number, not an address object."),
    embedded(fqdn_domain_name, "domain_name",  "The domain name whose address is new."),
});
static_assert(has_numbers<orlan_svm_epm_ip_address_update_notify>({.used = {64}, .size = 72, .tracked = 77}));

inline constexpr Record orlan_svm_epm_fqdn_client_roam_reinit_ap = record("orlan_svm_epm_fqdn_client_roam_reinit_ap", "FqdnRoamReinit",
    "A client to reinitialise after a roam.",
    {"57d05127f062efca3477a5127dfd0b25", "469c1822e0e5ba1f5920112cbebecd58"}, {
    object(zur_mac_addr, "mac",          "The client's Ethernet address."),
    value (u_int32,      "wlclient_num", "Number of the client, carried unchanged."),
});
static_assert(has_numbers<orlan_svm_epm_fqdn_client_roam_reinit_ap>({.used = {24}, .size = 32, .tracked = 34}));

// clang-format on

} // namespace epm::catalogue
