// Wired tunnels: the requests to put a client on a tunnel and to take it off, and the answer to both.
#pragma once

#include "catalogue/enums.hpp"
#include "catalogue/numbers.hpp"

namespace epm::catalogue {

// clang-format off

inline constexpr Record wired_tunnel_client_add = record("wired_tunnel_client_add", "TunnelAdd",
    "Asks for a wired client to be put on a tunnel.",
    {"440665f466d7bd1c23d646b72dbfdc1a", "7f549147b85871e55caf4a3a49d0e048"}, {
    object(zur_mac_addr, "client_mac",            "The client's Ethernet address."),
    value (u_int32,      "client_iif_id",         "Id of the client's interface, 32 bits, carried unchanged."),
    value (u_int32,      "src_interface",         "Number of the source interface, carried unchanged."),
    value (u_int32,      "vlan_id",               "Id of the VLAN; its range is not checked."),
    length(u_int32,      "max_audit_sess_is_len", "Characters that audit_session_id holds now, without the NUL."),
    text  (              "audit_session_id",      "max_audit_sess_is_len", "Audit session id of the client."),
    length(u_int32,      "max_guest_prof_len",    "Characters that guest_profile holds now, without the NUL."),
    text  (              "guest_profile",         "max_guest_prof_len", "Guest profile of the client."),
});
static_assert(has_numbers<wired_tunnel_client_add>({.used = {64}, .size = 72, .tracked = 78}));

inline constexpr Record wired_tunnel_client_delete = record("wired_tunnel_client_delete", "TunnelDelete",
    "Asks for a wired client to be taken off its tunnel.",
    {"fd1ebcf71c805c72e06024e436ad7646", "c945cfa8ad6d613a273793d2f5d05c0b"}, {
    object(zur_mac_addr, "client_mac",            "The client's Ethernet address."),
    value (u_int32,      "client_iif_id",         "Id of the client's interface, 32 bits, carried unchanged."),
    length(u_int32,      "max_audit_sess_is_len", "Characters that audit_session_id holds now, without the NUL."),
    text  (              "audit_session_id",      "max_audit_sess_is_len", "Audit session id of the client."),
});
static_assert(has_numbers<wired_tunnel_client_delete>({.used = {40}, .size = 48, .tracked = 51}));

inline constexpr Record wired_tunnel_add_delete_response = record("wired_tunnel_add_delete_response", "TunnelResponse",
    "Answers a request to put a client on a tunnel or to take it off.",
    {"7795167eedaa5a3310e6036c968e8bf8", "bb7ea339989b495d2c3543df9ac18f1a"}, {
    value(u_int32,                       "client_iif_id", "Id of the client's interface, 32 bits, carried unchanged."),
    value(wired_tunnel_response_type,    "response_type", "The outcome."),
    value(wired_tunnel_add_failure_type, "failure_type",  "Cause of a failed add; travels with every outcome."),
    value(wired_tunnel_teardown_type,    "teardown_type", "Cause of a teardown; travels with every outcome."),
});
static_assert(has_numbers<wired_tunnel_add_delete_response>({.used = {64}, .size = 72, .tracked = 76}));

// clang-format on

} // namespace epm::catalogue
