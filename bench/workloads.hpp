// The data of the workloads, once and plainly: every peer fills its own records from here. How a record is measured
// is not here.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

using Mac = std::array<std::uint8_t, 6>;

struct Entry {
    std::string acl_name, ace_name;
    std::uint32_t sequence, is_ipv4, is_create, is_remove, p_sequence, is_dacl, process_index, is_domain, ip_addr;
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

struct Grants {
    struct {
        std::uint32_t gidb_handle, pref, vlan_value;
        std::string ieee_mac;
        Mac mac;
        std::uint32_t domain;
    } vlan;
    std::uint32_t bind_value;
    struct {
        Mac mac;
        std::uint32_t gidb_handle;
        std::uint16_t vlan;
    } voice_vlan;
    struct {
        Mac mac;
        std::uint32_t gidb_handle, idle_timeout;
    } iaf;
    std::vector<Template> templates;
    struct {
        std::uint32_t gidb_handle;
        Mac mac;
        std::uint32_t traf_class, apply;
        std::string asp_trig_name;
    } autocfg;
    struct {
        std::uint64_t conn_hdl, label;
        std::uint32_t identity_type;
        std::string identity;
        std::uint64_t cl_hdl, return_hdl;
        std::uint32_t result;
    } authz_ack;
    std::uint32_t is_authz_invoke;
    struct {
        std::uint32_t apply_flag, gidb_handle;
        std::string name;
    } macro;
    struct {
        Mac mac;
        std::uint32_t idb;
        std::vector<Context> contexts;
    } acl;
};

struct VlanGroup {
    std::uint32_t is_added;
    std::vector<std::uint32_t> vlans;
    std::uint32_t num_of_vlans;
    std::string gp_name;
};

struct DomainNames {
    Mac mac;
    std::uint32_t wlclient_num;
    std::vector<std::string> names;
};

/// W1: one entry of an access-control list, all 13 fields set (the two lengths follow the names).
inline Entry entry() {
    return {"GUEST-WEB-ACCESS-BLDG-04", "permit-web-10-20", 10, 1, 1, 0, 20, 1, 7, 1, 0xC0000207};
}

inline Config config(std::uint32_t number, const std::string& name) {
    Config made{number & 1, 1 + number % 5, ~number & 1, {}};
    for (std::size_t i = 0; i < name.size(); ++i) made.acl_name[i] = static_cast<std::uint8_t>(name[i]);
    return made;
}

/// W2: all grants to one client; 3 templates, 2 contexts of 2 configurations.
inline Grants grants() {
    const auto mac = [](std::uint8_t last) { return Mac{0, 0x1B, 0x44, 0x11, 0x3A, last}; };
    return {{1001, 2, 120, "port-7", mac(1), 1},
            5,
            {mac(2), 1002, 300},
            {mac(3), 1003, 900},
            {{1, 1004, "IP-PHONE-TEMPLATE-01"}, {0, 1005, "PRINTER-TEMPLATE-002"}, {1, 1006, "CAMERA-TEMPLATE-0003"}},
            {1007, mac(4), 1, 0, "ASP-VOIP-DETECTED"},
            {0x1234567890, 21, 26, "user@campus.example", 22, 23, 3},
            1,
            {1, 1008, "edge-port-macro"},
            {mac(5),
             1009,
             {{77, 100, 1, {config(1, "GUEST-INBOUND-LIST"), config(2, "GUEST-REDIRECT-LIST")}},
              {78, 200, 2, {config(3, "STAFF-INBOUND-LIST"), config(4, "STAFF-FILTER-LIST")}}}}};
}

/// W3: a VLAN group; 4,094 VLANs, or another number for the measurements of scale.
inline VlanGroup vlan_group(std::size_t count = 4094) {
    VlanGroup made{1, std::vector<std::uint32_t>(count), 4094, "campus-staff"};
    for (std::size_t i = 0; i < count; ++i) made.vlans[i] = static_cast<std::uint32_t>(1 + i % 4094);
    return made;
}

/// W4: the domain names of a client; 200 of 22 to 26 characters, or another number.
inline DomainNames domain_names(std::size_t count = 200) {
    DomainNames made{{0, 0x1B, 0x44, 0x11, 0x3A, 6}, 4711, std::vector<std::string>(count)};
    for (std::size_t i = 0; i < count; ++i) {
        const std::string number = std::to_string(100000 + i);
        made.names[i] = std::string("host-").append(i % 5, 'x') + number.substr(number.size() - 5) + ".example.net";
    }
    return made;
}

} // namespace bench
