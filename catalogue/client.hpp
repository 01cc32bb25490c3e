// What a client has been granted: VLANs, templates, macro, timer, automatic configuration, and the acknowledgement of
// an authorization. context.hpp has the record that holds these grants together.
#pragma once

#include "catalogue/numbers.hpp"

namespace epm::catalogue {

// clang-format off

inline constexpr Record rcl_client_vlan_t = record("rcl_client_vlan_t", "ClientVlan",
    "A client's VLAN with a preference, for one authentication domain.",
    {"6b2c18ea35dc59fb3f8c919585856049", "13248fee8d395f35528940ff2d9be1c5"}, {
    value     (u_int32,        "gidb_handle", "The client's gidb handle, carried unchanged."),
    value     (u_int32,        "pref",        "Preference of the assignment, carried unchanged."),
    value     (u_int32,        "vlan_value",  "Number of the VLAN; its range is not checked."),
    characters(6,              "ieee_mac",    "An address as six characters, cut at a zero byte; not bound to mac."),
    object    (zur_mac_addr,   "mac",         "The client's Ethernet address; not bound to ieee_mac."),
    value     (sm_auth_domain, "domain",      "Authentication domain that the assignment is for."),
});
static_assert(has_numbers<rcl_client_vlan_t>({.used = {56}, .size = 64, .tracked = 70}));
static_assert(has_flag_offsets<rcl_client_vlan_t>({
    {"gidb_handle", 0}, {"pref", 1}, {"vlan_value", 2}, {"ieee_mac", 3}, {"mac", 4}, {"domain", 5}}));

inline constexpr Record rcl_sgt_info_t = record("rcl_sgt_info_t", "SgtInfo",
    "A security-group tag with a generation number.",
    {"8fbe9d7fbc5048d11fd35f605576c0b9", "65fc9ba84ab360a664b6ccf7ff24ba1f"}, {
    value     (u_int32,   "tag",         "The security-group tag."),
    value     (character, "flag",        "A byte of flags, carried unchanged."),
    value     (character, "gen_num_len", "Carried as it is; it neither bounds gen_num nor follows it."),
    characters(64,        "gen_num",     "The generation number; all 64 characters travel, whatever gen_num_len says."),
});
static_assert(has_numbers<rcl_sgt_info_t>({.used = {82}, .size = 104, .tracked = 108}));

inline constexpr Record rcl_template_info_t = record("rcl_template_info_t", "TemplateInfo",
    "The bind value of a template.",
    {"83d35cb4c751911526d5095511e7c9ac", "1ac060104e382ac364e02ee6d0236959"}, {
    value(u_int32, "bind_value", "The bind value, carried unchanged."),
});
static_assert(has_numbers<rcl_template_info_t>({.used = {16}, .size = 24, .tracked = 25}));

inline constexpr Record rcl_client_voice_vlan_t = record("rcl_client_voice_vlan_t", "ClientVoiceVlan",
    "A client's voice VLAN.",
    {"aee18283b559d28c37926129b4de73a2", "54f27cfe3f188678f38027c1ab2c3a0c"}, {
    object(zur_mac_addr, "mac",         "The client's Ethernet address."),
    value (u_int32,      "gidb_handle", "The client's gidb handle, carried unchanged."),
    value (u_int16,      "vlan",        "Number of the voice VLAN, 16 bits; its range is not checked."),
});
static_assert(has_numbers<rcl_client_voice_vlan_t>({.used = {26}, .size = 40, .tracked = 43}));

inline constexpr Record rcl_client_iaf_t = record("rcl_client_iaf_t", "ClientIaf",
    "A client's idle timeout.",
    {"e91e7957ea4941512eaefeb6810ef48c", "30903e2b8b1f7da6363e4efa77b973c1"}, {
    object(zur_mac_addr, "mac",          "The client's Ethernet address."),
    value (u_int32,      "gidb_handle",  "The client's gidb handle, carried unchanged."),
    value (u_int32,      "idle_timeout", "The idle timeout, carried unchanged in the unit that the peers agree on."),
});
static_assert(has_numbers<rcl_client_iaf_t>({.used = {28}, .size = 40, .tracked = 43}));

inline constexpr Record rcl_client_intf_templ = record("rcl_client_intf_templ", "ClientTemplate",
    "One interface template by name, bound or not.",
    {"b09e3e2e1f263ea4f5ac3741742b0a27", "2221c4d50b9ef26d916f06f40d9b5791"}, {
    value (zur_boolean, "bind",                  "True when the template is bound."),
    value (u_int32,     "gidb_handle",           "The client's gidb handle, carried unchanged."),
    length(u_int32,     "max_intf_templ_length", "Characters that name holds now, without the NUL."),
    text  (             "name",                  "max_intf_templ_length", "Name of the template."),
});
static_assert(has_numbers<rcl_client_intf_templ>({.used = {32}, .size = 40, .tracked = 43}));

inline constexpr Record rcl_client_cfg_macro = record("rcl_client_cfg_macro", "ClientMacro",
    "A configuration macro to apply.",
    {"8bed6c96a62dd028e07624a7580d0eff", "b877505ff0d0b1d6f9cbd71d67a4fb22"}, {
    value (zur_boolean, "apply_flag",     "True when the macro is to be applied."),
    value (u_int32,     "gidb_handle",    "The client's gidb handle, carried unchanged."),
    object(zur_vstring, "cfg_macro_name", "Name of the macro, a string object that keeps its own length."),
});
static_assert(has_numbers<rcl_client_cfg_macro>({.used = {40}, .size = 48, .tracked = 51}));

inline constexpr Record rcl_client_intf_templ_list = record("rcl_client_intf_templ_list", "ClientTemplateList",
    "A client's interface templates, in an array that grows on demand.",
    {"e7a0d1557930106b9b6276bfb927fdd9", "47680fd41843013d90b6e709b53ae9a2"}, {
    length(u_int32,               "max_intf_templ", "Elements that data holds now."),
    array (rcl_client_intf_templ, "data",           "max_intf_templ", "The interface templates."),
});
static_assert(has_numbers<rcl_client_intf_templ_list>({.used = {24}, .size = 32, .tracked = 48}));

inline constexpr Record rcl_client_autocfg_data = record("rcl_client_autocfg_data", "ClientAutoconfig",
    "Automatic configuration of a client by a named trigger.",
    {"9a08661d223d32d2777c3526ec403e80", "92023157abb7111884062155efab603e"}, {
    value (u_int32,      "gidb_handle",         "The client's gidb handle, carried unchanged."),
    object(zur_mac_addr, "mac",                 "The client's Ethernet address."),
    value (zur_boolean,  "traf_class",          "A truth value for the traffic class, not its number."),
    value (zur_boolean,  "apply",               "True when the configuration is to be applied."),
    length(u_int32,      "max_asp_name_length", "Characters that asp_trig_name holds now, without the NUL."),
    text  (              "asp_trig_name",       "max_asp_name_length", "Name of the trigger."),
});
static_assert(has_numbers<rcl_client_autocfg_data>({.used = {48}, .size = 56, .tracked = 61}));

inline constexpr Record rcl_sess_mgr_authorize_ack = record("rcl_sess_mgr_authorize_ack", "AuthorizeAck",
    "Acknowledges an authorization.",
    {"afa66542c0e42268cbf1777c9d0cbc67", "e1e555bcac8700950bb0b74b90ee7081"}, {
    object(sess_mgr_conn_hdl,         "conn_hdl",         "The session manager's handle of the connection."),
    object(sess_mgr_session_label,    "label",            "Label of the session."),
    object(aaa_tlv,                   "session_identity", "Identity of the session, as type, length and value."),
    object(sess_mgr_client_hdl,       "cl_hdl",           "The session manager's handle of the client."),
    object(sess_mgr_client_hdl,       "return_hdl",       "The client handle to return, not bound to cl_hdl."),
    object(sess_mgr_authorize_result, "result",           "Result of the authorization."),
});
static_assert(has_numbers<rcl_sess_mgr_authorize_ack>({.used = {168}, .size = 184, .tracked = 216}));
static_assert(has_flag_offsets<rcl_sess_mgr_authorize_ack>({
    {"conn_hdl", 0}, {"label", 2}, {"session_identity", 4, 8}, {"cl_hdl", 24}, {"return_hdl", 26}, {"result", 28}}));

// clang-format on

} // namespace epm::catalogue
