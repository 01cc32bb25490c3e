// The data of the workloads, once and plainly: every peer fills its own records from here. How a record is measured
// is not here.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

using Mac = std::array<std::uint8_t, 6>;

/// W1: one entry of an access-control list, all 13 fields set (the two lengths follow the names).
struct Entry {
    std::string acl_name = "GUEST-WEB-ACCESS-BLDG-04";
    std::string ace_name = "permit-web-10-20";
    std::uint32_t sequence = 10, is_ipv4 = 1, is_create = 1, is_remove = 0, p_sequence = 20, is_dacl = 1,
                  process_index = 7, is_domain = 1, ip_addr = 0xC0000207;
};

struct Template {
    std::uint32_t bind, gidb_handle;
    std::string name;
};

struct Config {
    std::uint32_t is_url_redirect, feat_type, is_ipv6;
    std::array<std::uint8_t, 256> acl_name;
};

struct Context {
    std::uint32_t handle;
    std::uint16_t priority;
    std::uint32_t status;
    std::vector<Config> configs;
};

inline Config config(std::uint32_t number, const std::string& name) {
    Config made{number & 1, 1 + number % 5, ~number & 1, {}};
    for (std::size_t i = 0; i < name.size(); ++i) made.acl_name[i] = static_cast<std::uint8_t>(name[i]);
    return made;
}

/// W2: all grants to one client, the embedded records one after the other.
struct Grants {
    struct {
        std::uint32_t gidb_handle = 1001, pref = 2, vlan_value = 120;
        std::string ieee_mac = "port-7";
        Mac mac = {0, 0x1B, 0x44, 0x11, 0x3A, 0xB7};
        std::uint32_t domain = 1;
    } vlan;
    std::uint32_t bind_value = 5;
    struct {
        Mac mac = {0, 0x1B, 0x44, 0x11, 0x3A, 0xB8};
        std::uint32_t gidb_handle = 1002;
        std::uint16_t vlan = 300;
    } voice_vlan;
    struct {
        Mac mac = {0, 0x1B, 0x44, 0x11, 0x3A, 0xB9};
        std::uint32_t gidb_handle = 1003, idle_timeout = 900;
    } iaf;
    std::vector<Template> templates = {
        {1, 1004, "IP-PHONE-TEMPLATE-01"}, {0, 1005, "PRINTER-TEMPLATE-002"}, {1, 1006, "CAMERA-TEMPLATE-0003"}};
    struct {
        std::uint32_t gidb_handle = 1007;
        Mac mac = {0, 0x1B, 0x44, 0x11, 0x3A, 0xBA};
        std::uint32_t traf_class = 1, apply = 0;
        std::string asp_trig_name = "ASP-VOIP-DETECTED";
    } autocfg;
    struct {
        std::uint64_t conn_hdl = 0x1234567890, label = 21;
        std::uint32_t identity_type = 26;
        std::string identity = "user@campus.example";
        std::uint64_t cl_hdl = 22, return_hdl = 23;
        std::uint32_t result = 3;
    } authz_ack;
    std::uint32_t is_authz_invoke = 1;
    struct {
        std::uint32_t apply_flag = 1, gidb_handle = 1008;
        std::string name = "edge-port-macro";
    } macro;
    struct {
        Mac mac = {0, 0x1B, 0x44, 0x11, 0x3A, 0xBB};
        std::uint32_t idb = 1009;
        std::vector<Context> contexts = {
            {77, 100, 1, {config(1, "GUEST-INBOUND-LIST"), config(2, "GUEST-REDIRECT-LIST")}},
            {78, 200, 2, {config(3, "STAFF-INBOUND-LIST"), config(4, "STAFF-FILTER-LIST")}}};
    } acl;
};

/// W3: a VLAN group; 4,094 VLANs, or another number for the measurements of scale.
struct VlanGroup {
    explicit VlanGroup(std::size_t count = 4094) : vlans(count) {
        for (std::size_t i = 0; i < count; ++i) vlans[i] = static_cast<std::uint32_t>(1 + i % 4094);
    }
    std::uint32_t is_added = 1;
    std::vector<std::uint32_t> vlans;
    std::uint32_t num_of_vlans = 4094;
    std::string gp_name = "campus-staff";
};

/// W4: the domain names of a client; 200 of 22 to 26 characters, or another number.
struct DomainNames {
    explicit DomainNames(std::size_t count = 200) : names(count) {
        for (std::size_t i = 0; i < count; ++i) {
            const std::string number = std::to_string(100000 + i);
            names[i] = std::string("host-").append(i % 5, 'x') + number.substr(number.size() - 5) + ".example.net";
        }
    }
    Mac mac = {0, 0x1B, 0x44, 0x11, 0x3A, 0xBC};
    std::uint32_t wlclient_num = 4711;
    std::vector<std::string> names;
};

} // namespace bench
