// Requests and events of a single client: change of authorization, an expired idle timer, and the watch list of
// web authentication.
#pragma once

#include "catalogue/enums.hpp"
#include "catalogue/numbers.hpp"

namespace epm::catalogue {

// clang-format off

inline constexpr Record iaf_timer_expiry_event_info = record("iaf_timer_expiry_event_info", "IafTimerExpiry",
    "Tells that a client's idle timer has expired.",
    {"5e1f44c6d605e9b3b78f84853abb1181", "a46b6f9511ad2617e262bd0e33daf5b5"}, {
    object(zur_mac_addr, "mac",    "The client's Ethernet address."),
    value (u_int32,      "if_num", "Number of the client's interface, carried unchanged."),
});
static_assert(has_numbers<iaf_timer_expiry_event_info>({.used = {24}, .size = 32, .tracked = 34}));

inline constexpr Record ch_coa_request_type = record("ch_coa_request_type", "CoaRequest",
    "Asks for a change of authorization on a client's port.",
    {"5a3f61b3b32bfc15f3a4fc7d6c1369fc", "b8b23245a2296aa0e49a695c9f122d51"}, {
    value(u_int32,          "client_iif_id", "Id of the client's interface, 32 bits, carried unchanged."),
    value(coa_request_type, "request_type",  "What to do with the port."),
    value(zur_boolean,      "shutdown",      "True when the port is to be shut down."),
});
static_assert(has_numbers<ch_coa_request_type>({.used = {36}, .size = 48, .tracked = 51}));

inline constexpr Record webauth_watch_list = record("webauth_watch_list", "WebauthWatchList",
    "One address of the web-authentication watch list.",
    {"90a19dcdeafd82c37e43ade4d3705925", "cf1d6b2aa3123405d734d2fcd4e329dc"}, {
    object(ip_address, "wl_ip", "The address that is watched."),
});
static_assert(has_numbers<webauth_watch_list>({.used = {64}, .size = 72, .tracked = 73}));
static_assert(has_flag_offsets<webauth_watch_list>({{"wl_ip", 0}}));

// clang-format on

} // namespace epm::catalogue
