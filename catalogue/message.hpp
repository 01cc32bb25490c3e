// The two service messages, tagged unions that carry the other records between peers, and the refusal that travels in
// one of them. The wire order of the arms is fixed: a new arm goes to the end, whatever its tag.
#pragma once

#include "catalogue/acl.hpp"
#include "catalogue/context.hpp"
#include "catalogue/enums.hpp"
#include "catalogue/event.hpp"
#include "catalogue/fqdn.hpp"
#include "catalogue/numbers.hpp"
#include "catalogue/vlan.hpp"

namespace epm::catalogue {

// clang-format off

inline constexpr Record orlan_ial_svm_epm_data = record("orlan_ial_svm_epm_data", "Message",
    "The message that hands policy out: lists, grants, domain-name data and forwarding.",
    {"e3c5b1677083038bbf17a2557d818971", "7910e1d32de0cbe620edac762732d709"}, {
    value(orlan_ial_svm_epm_type_e,          "epm_type",            "Tag of the live arm; 0 and 9 select none."),
    arm  (1, orlan_ial_svm_acl_data,         "acl_data",            "An entry of a list."),
    arm  (2, orlan_ial_svm_acl_apply,        "apply_acl",           "The application of a list to an interface."),
    arm  (3, orlan_ial_svm_bm_data,          "bm_data",             "All grants to one client."),
    arm  (4, orlan_ial_svm_fqdn_data,        "fqdn_data",           "List names for an address."),
    arm  (7, orlan_ial_svm_port_fwd_info,    "port_info",           "A forwarding flag for a client's port."),
    arm  (5, orlan_ial_svm_fqdn_data_create, "fqdn_data_create",    "The creation of domain-name data."),
    arm  (6, orlan_ial_svm_fqdn_data_delete, "fqdn_data_delete",    "The deletion of domain-name data."),
    arm  (8, orlan_ial_svm_preauthacl_data,  "preauthacl_data",     "The pre-authentication list."),
    arm  (10, orlan_ial_dacl_dnld_complete,  "dacl_dnld_comp_data", "The result of a list's download.").from_variant(1),
});
static_assert(has_numbers<orlan_ial_svm_epm_data>({.used = {96, 104}, .size = 120, .tracked = 130,
    .body = {112, 120}, .block = {9, 10}}));
static_assert(has_flag_offsets<orlan_ial_svm_epm_data>({
    {"epm_type", 0}, {"acl_data", 1}, {"apply_acl", 2}, {"bm_data", 3}, {"fqdn_data", 4}, {"port_info", 5},
    {"fqdn_data_create", 6}, {"fqdn_data_delete", 7}, {"preauthacl_data", 8}, {"dacl_dnld_comp_data", 9}}));

inline constexpr Record orlan_ial_svm_epm_nack_info = record("orlan_ial_svm_epm_nack_info", "Nack",
    "Refuses one kind of assignment for one client on one interface.",
    {"4fb7b0c13612e124fb1da8d3058ec223", "76edf218bd00cb8dd5c2a5c493ff3222"}, {
    value (orlan_ial_svm_epm_nack_e, "nack_type", "The kind of assignment that is refused."),
    object(zur_mac_addr,             "mac",       "The client's Ethernet address."),
    value (u_int32,                  "if_num",    "Number of the interface, carried unchanged."),
});
static_assert(has_numbers<orlan_ial_svm_epm_nack_info>({.used = {44}, .size = 56, .tracked = 59}));

inline constexpr Record orlan_ial_in_svm_epm_data = record("orlan_ial_in_svm_epm_data", "Reply",
    "The message that comes back: port changes, VLAN information, refusals and timers.",
    {"5d39144dcc86c4f15dda4b87dc43636f", "64bab72e72be7e4f6f8e587d49b98fb8"}, {
    value(orlan_ial_svm_epm_in_e,              "epm_type",   "Tag of the live arm; 0 selects port_info."),
    arm  (0, orlan_ial_port_acl_change,        "port_info",  "A list attached to a port or removed from it."),
    arm  (1, orlan_ial_vlan_group_info,        "group_info", "A VLAN group."),
    arm  (2, orlan_ial_vlan_load_balance_info, "load_info",  "The load of a VLAN."),
    arm  (3, orlan_ial_vlan_notify_name,       "vlan_info",  "The name of a VLAN."),
    arm  (4, orlan_ial_svm_epm_nack_info,      "nack_info",  "A refused assignment."),
    arm  (5, orlan_ial_svm_dacl_nack,          "dacl_info",  "A refused downloadable list."),
    arm  (6, orlan_ial_svm_epm_acl_name_sync,  "acl_name",   "A list's name added or withdrawn; a whole record."),
    arm  (7, iaf_timer_expiry_event_info,      "iaf_info",   "An expired idle timer."),
    arm  (8, orlan_ial_svm_acl_appln_failure,  "appln_fail", "A list that could not be applied.").from_variant(1),
});
static_assert(has_numbers<orlan_ial_in_svm_epm_data>({.used = {96, 104}, .size = 120, .tracked = 130,
    .body = {112, 120}, .block = {9, 10}}));

// clang-format on

} // namespace epm::catalogue
