// Link-layer security between the authentication manager and the link-security side: session start, keys and
// events. Keys are plain byte strings here: print and XML show them.
#pragma once

#include "catalogue/numbers.hpp"

namespace epm::catalogue {

// clang-format off

inline constexpr Record linksec_ether_info = record("linksec_ether_info", "LinksecEthernet",
    "An Ethernet header.",
    {"3356d0a3b14671fdc50b44db12dc9dc9", "05b18d1f523c89a6d8c04199a3cf3f95"}, {
    object(zur_mac_addr, "daddr",     "Destination address."),
    object(zur_mac_addr, "saddr",     "Source address."),
    object(kesh_bytestr, "tag_bytes", "Bytes that stand between the addresses and type."),
    value (u_int16,      "type",      "Type word of the header."),
});
static_assert(has_numbers<linksec_ether_info>({.used = {42}, .size = 56, .tracked = 60}));

inline constexpr Record linksec_eap_keys = record("linksec_eap_keys", "LinksecKeys",
    "Key material of an EAP exchange.",
    {"a9cb4f813f9ae482988a2934412798fe", "195b27229122e6c263de69fd21c723e2"}, {
    object(kesh_bytestr, "msk",            "Master session key; print and XML show it."),
    object(kesh_bytestr, "emsk",           "Extended master session key; print and XML show it."),
    object(kesh_bytestr, "eap_session_id", "Id of the EAP session."),
});
static_assert(has_numbers<linksec_eap_keys>({.used = {64}, .size = 72, .tracked = 75}));

inline constexpr Record auth_mgr_linksec_start_info = record("auth_mgr_linksec_start_info", "LinksecStart",
    "Starts a link-security session.",
    {"b417e35c6127d7e6d22d4153749414c9", "af687c1c33ca402ebf7adc6cdaca36f3"}, {
    value   (zur_boolean,        "authenticator",       "True for the authenticator's role."),
    value   (u_int32,            "gidb_handle",         "The client's gidb handle, carried unchanged."),
    embedded(linksec_ether_info, "ether",               "The Ethernet header."),
    length  (u_int32,            "audit_ses_id_len",    "Characters that session_id holds now, without the NUL."),
    text    (                    "session_id",          "audit_ses_id_len", "Audit session id."),
    embedded(linksec_eap_keys,   "eap_keys",            "The key material."),
    value   (u_int32,            "handle",              "Handle of the session, carried unchanged."),
    object  (kesh_bytestr,       "macsec_cipher_suite", "The cipher suite, as bytes.").from_variant(1),
});
static_assert(has_numbers<auth_mgr_linksec_start_info>({.used = {172, 192}, .size = 208, .tracked = 222,
    .body = {192, 208}, .block = {13, 14}}));

inline constexpr Record auth_mgr_linksec_event_fail_data = record("auth_mgr_linksec_event_fail_data", "LinksecFailure",
    "Causes of a failure.",
    {"85fc1c67f037d700fa5f38668d9335ec", "290bdb2afc87b61cafe6475a004c5a24"}, {
    value(u_int64, "termination_cause", "Cause of the session's end, carried unchanged."),
    value(u_int64, "abort_cause",       "Cause of the abort, carried unchanged."),
});
static_assert(has_numbers<auth_mgr_linksec_event_fail_data>({.used = {32}, .size = 40, .tracked = 42}));

inline constexpr Record auth_mgr_linksec_event = record("auth_mgr_linksec_event", "LinksecEvent",
    "An event of a session, with its failure data.",
    {"e3598c84e5c64e861163b3ffa1eca65e", "75e4e25ff61575f0040db8e50d34a3a5"}, {
    value   (u_int32,                          "handle", "Handle of the session, carried unchanged."),
    value   (u_int32,                          "event",  "Number of the event, carried unchanged."),
    embedded(auth_mgr_linksec_event_fail_data, "data",   "Causes of a failure, present in every event."),
    object  (zur_mac_addr,                     "mac",    "The client's Ethernet address.").from_variant(1),
    value   (u_int32,                          "if_num", "Number of the interface, carried unchanged.").from_variant(1),
});
static_assert(has_numbers<auth_mgr_linksec_event>({.used = {64, 76}, .size = 96, .tracked = 103,
    .body = {72, 96}, .block = {5, 7}}));

inline constexpr Record auth_mgr_linksec_event_success = record("auth_mgr_linksec_event_success", "LinksecSuccess",
    "An event of a session, without data.",
    {"134303bd901162f95d8fe54583fe88f2", "cecefc5a84e406c8ec680e653e92a6fa"}, {
    value(u_int32, "handle", "Handle of the session, carried unchanged."),
    value(u_int32, "event",  "Number of the event, carried unchanged."),
});
static_assert(has_numbers<auth_mgr_linksec_event_success>({.used = {20}, .size = 32, .tracked = 34}));

inline constexpr Record auth_mgr_linksec_update = record("auth_mgr_linksec_update", "LinksecUpdate",
    "New key material for a session.",
    {"695b04c80107a6eef10790201ee9ada0", "797a16b1e7d60cbe638737c560eba00d"}, {
    value   (u_int32,          "handle",   "Handle of the session, carried unchanged."),
    value   (u_int32,          "event",    "Number of the event, carried unchanged."),
    embedded(linksec_eap_keys, "eap_keys", "The new key material."),
});
static_assert(has_numbers<auth_mgr_linksec_update>({.used = {96}, .size = 112, .tracked = 118}));

// clang-format on

} // namespace epm::catalogue
