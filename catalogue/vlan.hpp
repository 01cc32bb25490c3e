// What the two sides exchange about VLANs: groups, load and names. client.hpp has a client's own VLAN.
#pragma once

#include "catalogue/numbers.hpp"

namespace epm::catalogue {

// clang-format off

inline constexpr Record orlan_ial_vlan_group_info = record("orlan_ial_vlan_group_info", "VlanGroup",
    "A VLAN group with its member VLANs.",
    {"e067fdbee1f669c8c9cadef24313f976", "8a558080ec2de96544ab00395ef4e9fe"}, {
    value (u_int32, "is_added",       "1 when the group appears, 0 when it goes."),
    length(u_int32, "max_vlan",       "Elements that vlans holds now."),
    array (u_int32, "vlans",          "max_vlan", "The member VLANs, ids 1 to 4094; their range is not checked."),
    value (u_int32, "num_of_vlans",   "Carried as it is; vlans does not follow it."),
    length(u_int32, "max_acl_length", "Characters that gp_name holds now, without the NUL."),
    text  (         "gp_name",        "max_acl_length", "Name of the group."),
});
static_assert(has_numbers<orlan_ial_vlan_group_info>({.used = {48}, .size = 56, .tracked = 80}));
static_assert(has_flag_offsets<orlan_ial_vlan_group_info>({
    {"is_added", 0}, {"vlans", 1, 8}, {"num_of_vlans", 16}, {"gp_name", 17}}));

inline constexpr Record orlan_ial_vlan_load_balance_info = record("orlan_ial_vlan_load_balance_info", "VlanLoadBalance",
    "Load information of a VLAN.",
    {"e6bcbd3bd3f7bd65a747a2d034e0f530", "c7d9b4b861abdc126c205a57ec32d901"}, {
    value(u_int32, "vlan_num",       "Number of the VLAN; its range is not checked."),
    value(u_int32, "vlan_load_info", "Load of the VLAN, carried unchanged."),
    value(u_int32, "is_added",       "1 when the VLAN appears, 0 when it goes."),
});
static_assert(has_numbers<orlan_ial_vlan_load_balance_info>({.used = {24}, .size = 32, .tracked = 35}));

inline constexpr Record orlan_ial_vlan_notify_name = record("orlan_ial_vlan_notify_name", "VlanName",
    "A VLAN's name and the name it had before.",
    {"da3dc144a756e4f6bbb2953c20257a3f", "e2bf691d9d411ce6ee44e9234d4ffbd0"}, {
    value (u_int32, "vlan_id",            "Id of the VLAN; its range is not checked."),
    value (u_int32, "is_added",           "1 when the name appears, 0 when it goes."),
    length(u_int32, "vlan_name_length",   "Characters that vlan_name holds now, without the NUL."),
    text  (         "vlan_name",          "vlan_name_length", "Present name of the VLAN."),
    length(u_int32, "prev_vlan_name_len", "Characters that prev_vlan_name holds now, without the NUL."),
    text  (         "prev_vlan_name",     "prev_vlan_name_len", "Name that the VLAN had before."),
});
static_assert(has_numbers<orlan_ial_vlan_notify_name>({.used = {48}, .size = 56, .tracked = 60}));

// clang-format on

} // namespace epm::catalogue
