// The records that carry access-control lists: entries, applications, download results and refusals. All of them travel
// as arms of the service messages in message.hpp.
#pragma once

#include "catalogue/numbers.hpp"

namespace epm::catalogue {

// clang-format off

inline constexpr Record orlan_ial_svm_acl_data = record("orlan_ial_svm_acl_data", "Acl",
    "One entry of a named access-control list, and what to do with it.",
    {"62438151968d80c2a0cb2cdbfd820a43", "6836ab909de05b4d123e1566150e5dd6"}, {
    length(u_int32,     "max_acl_length", "Characters that acl_name holds now, without the NUL."),
    length(u_int32,     "max_ace_length", "Characters that ace_name holds now, without the NUL."),
    text  (             "acl_name",       "max_acl_length", "Name of the list."),
    text  (             "ace_name",       "max_ace_length", "Name of the entry."),
    value (u_int32,     "sequence",       "Place of the entry in the list."),
    value (u_int32,     "is_ipv4",        "1 when the entry is for IPv4, else 0."),
    value (u_int32,     "is_create",      "1 when the entry is to be created, else 0."),
    value (zur_boolean, "is_remove",      "True when the entry is to be removed."),
    value (u_int32,     "p_sequence",     "A second sequence number, not bound to sequence.").from_variant(1),
    value (zur_boolean, "is_dacl",        "True when the list is a downloadable one.").from_variant(1),
    value (u_int32,     "process_index",  "The process index, carried unchanged.").from_variant(1),
    value (zur_boolean, "is_domain",      "True when the entry stands for a domain name.").from_variant(2),
    value (u_int32,     "ip_addr",        "IPv4 address as a 32-bit number, not an address object.").from_variant(2),
});
static_assert(has_numbers<orlan_ial_svm_acl_data>({.used = {56, 68, 76}, .size = 96, .tracked = 107,
    .body = {64, 88, 96}, .block = {6, 9, 11}}));
static_assert(has_flag_offsets<orlan_ial_svm_acl_data>({{"acl_name", 0}, {"ace_name", 1}, {"ip_addr", 10}}));

inline constexpr Record orlan_ial_svm_acl_apply = record("orlan_ial_svm_acl_apply", "AclApply",
    "Applies a named access-control list to an interface, with a priority.",
    {"ee2eedd8b55601d10e32419362821c29", "f31d61751005cb1377b2bff47ef32085"}, {
    length(u_int32, "max_acl_length", "Characters that acl_name holds now, without the NUL."),
    text  (         "acl_name",       "max_acl_length", "Name of the list."),
    value (u_int64, "iif_id",         "Id of the interface, all 64 bits, carried unchanged."),
    value (u_int32, "priority",       "Priority of the list on the interface."),
    value (u_int32, "flag",           "Flags of the application, carried unchanged."),
});
static_assert(has_numbers<orlan_ial_svm_acl_apply>({.used = {40}, .size = 48, .tracked = 52}));

inline constexpr Record orlan_ial_svm_preauthacl_data = record("orlan_ial_svm_preauthacl_data", "PreauthAcl",
    "Marks the pre-authentication access-control list.",
    {"c5acb7cbec18d27816ab6d8162c9ca81", "28deb538d53645ebb5998d0c3ac4fef0"}, {
    value(u_int32, "is_create", "1 when the list is to be created, else 0."),
});
static_assert(has_numbers<orlan_ial_svm_preauthacl_data>({.used = {16}, .size = 24, .tracked = 25}));

inline constexpr Record orlan_ial_dacl_dnld_complete = record("orlan_ial_dacl_dnld_complete", "DaclDownloadComplete",
    "Tells whether the download of a named list has succeeded.",
    {"f49415f79cb8ac3c6d19fe7e30fd1704", "9f2f0a9f64fe5ba2344dfebce4c7fd45"}, {
    length(u_int32,     "max_length",      "Characters that acl_name holds now, without the NUL."),
    text  (             "acl_name",        "max_length", "Name of the list."),
    value (zur_boolean, "is_dnld_success", "True when the download has succeeded."),
});
static_assert(has_numbers<orlan_ial_dacl_dnld_complete>({.used = {28}, .size = 40, .tracked = 42}));

inline constexpr Record orlan_ial_port_acl_change = record("orlan_ial_port_acl_change", "PortAclChange",
    "Tells that a list has been attached to a port or removed from it.",
    {"fc9798b1a5b0cc6774a5cfa781209a35", "6942083d401c7b406f0f2a7382f7f49f"}, {
    value (u_int32, "gidb_handle",    "The port's gidb handle, carried unchanged."),
    value (u_int32, "is_removed",     "1 when the list has been removed, 0 when it has been attached."),
    length(u_int32, "max_acl_length", "Characters that acl_name holds now, without the NUL."),
    text  (         "acl_name",       "max_acl_length", "Name of the list."),
});
static_assert(has_numbers<orlan_ial_port_acl_change>({.used = {32}, .size = 40, .tracked = 43}));

inline constexpr Record orlan_ial_svm_epm_acl_name_sync = record("orlan_ial_svm_epm_acl_name_sync", "AclNameSync",
    "Adds or withdraws a list's name for one address family.",
    {"7e222c08374a3bda837c31a2b9aea258", "c808cdc779bda6a482bac478e5eb78b4"}, {
    length(u_int32, "max_length", "Characters that acl_name holds now, without the NUL."),
    text  (         "acl_name",   "max_length", "Name of the list."),
    value (u_int32, "is_ipv4",    "1 when the address family is IPv4, else 0."),
    value (u_int32, "is_add",     "1 when the name is added, 0 when it is withdrawn."),
});
static_assert(has_numbers<orlan_ial_svm_epm_acl_name_sync>({.used = {32}, .size = 40, .tracked = 43}));

inline constexpr Record orlan_ial_svm_dacl_nack = record("orlan_ial_svm_dacl_nack", "DaclNack",
    "Refuses a downloadable list.",
    {"914450312c98a0dfecca367b9a577620", "8c103a05b7ef412eb1b2c6778727367a"}, {
    length(u_int32, "max_length", "Characters that acl_name holds now, without the NUL."),
    text  (         "acl_name",   "max_length", "Name of the list."),
    value (u_int32, "retval",     "Code that goes with the refusal, carried unchanged."),
});
static_assert(has_numbers<orlan_ial_svm_dacl_nack>({.used = {28}, .size = 40, .tracked = 42}));

inline constexpr Record orlan_ial_svm_acl_appln_failure = record("orlan_ial_svm_acl_appln_failure", "AclApplyFailure",
    "Tells that the application of a list has failed on a handle.",
    {"2ddac5d9aa924fb676650dbc1747ab3e", "7372424bae0912a3efb98d92a3b50256"}, {
    length(u_int32, "max_length", "Characters that acl_name holds now, without the NUL."),
    text  (         "acl_name",   "max_length", "Name of the list."),
    value (u_int32, "handle",     "Handle on which the application failed, carried unchanged."),
});
static_assert(has_numbers<orlan_ial_svm_acl_appln_failure>({.used = {28}, .size = 40, .tracked = 42}));

// clang-format on

} // namespace epm::catalogue
