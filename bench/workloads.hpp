// The workloads: the form of their records, once for all who need it spelled out, and the data, which every peer fills
// its own records from. How a record is measured is not here.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace bench {

using Mac = std::array<std::uint8_t, 6>;

/// A holder says how a record keeps its parts. This one keeps them as values: the data, and what plain readers fill.
struct Plain {
    using Text = std::string;
    using Name = std::string; ///< a text whose length has 16 bits
    template <class T>
    using Array = std::vector<T>;
    template <class T>
    using List = std::vector<T>;
    template <class T>
    using Arm = std::optional<T>;
};

// ---- the records ----

template <class H>
struct EntryOf {
    typename H::Text acl_name, ace_name;
    std::uint32_t sequence, is_ipv4, is_create, is_remove, p_sequence, is_dacl, process_index, is_domain, ip_addr;
};

template <class H>
struct TemplateOf {
    std::uint32_t bind, gidb_handle;
    typename H::Text name;
};

struct Config {
    std::uint32_t is_url_redirect, feat_type, is_ipv6;
    std::array<std::uint8_t, 256> acl_name;
};

template <class H>
struct ContextOf {
    std::uint32_t handle;
    std::uint16_t priority;
    std::uint32_t status;
    typename H::template List<Config> configs;
};

template <class H>
struct TlvOf {
    std::uint32_t type;
    typename H::Text value;
};

template <class H>
struct GrantsOf {
    struct {
        std::uint32_t gidb_handle, pref, vlan_value;
        Mac ieee_mac, mac;
        std::uint32_t domain;
    } vlan;
    struct {
        std::uint32_t bind_value;
    } templ;
    struct {
        Mac mac;
        std::uint32_t gidb_handle;
        std::uint16_t vlan;
    } voice_vlan;
    struct {
        Mac mac;
        std::uint32_t gidb_handle, idle_timeout;
    } iaf;
    struct {
        typename H::template Array<TemplateOf<H>> data;
    } intf_templ_list;
    struct {
        std::uint32_t gidb_handle;
        Mac mac;
        std::uint32_t traf_class, apply;
        typename H::Text asp_trig_name;
    } autocfg;
    struct {
        std::uint64_t conn_hdl, label;
        TlvOf<H> session_identity;
        std::uint64_t cl_hdl, return_hdl;
        std::uint32_t result;
    } authz_ack;
    std::uint32_t is_authz_invoke;
    struct {
        std::uint32_t apply_flag, gidb_handle;
        typename H::Text cfg_macro_name;
    } cfg_macro_data;
    struct {
        Mac mac;
        std::uint32_t idb;
        typename H::template List<ContextOf<H>> contexts;
    } acl;
};

template <class H>
struct MessageOf {
    std::uint32_t epm_type;
    typename H::template Arm<EntryOf<H>> acl_data;
    typename H::template Arm<GrantsOf<H>> bm_data;
};

template <class H>
struct VlanGroupOf {
    std::uint32_t is_added;
    typename H::template Array<std::uint32_t> vlans;
    std::uint32_t num_of_vlans;
    typename H::Text gp_name;
};

template <class H>
struct NameOf {
    typename H::Name name;
};

template <class H>
struct DomainNamesOf {
    Mac mac;
    std::uint32_t wlclient_num;
    typename H::template Array<NameOf<H>> domain_names;
};

using Entry = EntryOf<Plain>;
using Template = TemplateOf<Plain>;
using Context = ContextOf<Plain>;
using Grants = GrantsOf<Plain>;
using Message = MessageOf<Plain>;
using VlanGroup = VlanGroupOf<Plain>;
using DomainNames = DomainNamesOf<Plain>;

// ---- their form ----
// A visitor is led through one record, or through several of one type side by side. Each field is told with its name; a
// record also with its variant on the wire and the bytes of its fixed fields there.

inline constexpr const char* message_types[] = {"", "ORLAN_IAL_SVM_EPM_TYPE_ACL", "", "ORLAN_IAL_SVM_EPM_TYPE_BM"};
inline constexpr const char* feature_types[] = {"SM_CORVANE_ACL_PROXY_ACL",    "SM_CORVANE_ACL_NAMED_ACL",
                                                "SM_CORVANE_ACL_REDIRECT_URL", "SM_CORVANE_ACL_INACL",
                                                "SM_CORVANE_ACL_FILTER_ID",    "SM_CORVANE_ACL_MAC_INACL"};
inline constexpr const char* context_states[] = {"SM_CORVANE_ACL_FEAT_CTX_UNCHANGED", "SM_CORVANE_ACL_FEAT_CTX_ADDED",
                                                 "SM_CORVANE_ACL_FEAT_CTX_UPDATED"};

#define NUMBER(record, name) v.number(#name, record.name...)
#define LENGTH(name, field) v.length(#name, field...)
#define TEXT(record, name) v.text(#name, record.name...)
#define MAC(record) v.mac("mac", record.mac...)

template <class V, class... X>
void visit_entry(V& v, X&... x) {
    LENGTH(max_acl_length, x.acl_name), LENGTH(max_ace_length, x.ace_name);
    TEXT(x, acl_name), TEXT(x, ace_name);
    NUMBER(x, sequence), NUMBER(x, is_ipv4), NUMBER(x, is_create), NUMBER(x, is_remove), NUMBER(x, p_sequence);
    NUMBER(x, is_dacl), NUMBER(x, process_index), NUMBER(x, is_domain), NUMBER(x, ip_addr);
}

template <class V, class... X>
void visit_context(V& v, X&... x) {
    NUMBER(x, handle), NUMBER(x, priority);
    v.enumerator("status", 0, context_states, x.status...);
    const auto visit_config = [&](auto&... e) {
        NUMBER(e, is_url_redirect);
        v.enumerator("feat_type", 0, feature_types, e.feat_type...);
        NUMBER(e, is_ipv6);
        v.run("acl_name", e.acl_name...);
    };
    v.list("bm_feat_conf_list", 0, 269, visit_config, x.configs...);
}

template <class V, class... X>
void visit_grants(V& v, X&... x) {
    v.record("vlan", 0, 29, [&] {
        NUMBER(x.vlan, gidb_handle), NUMBER(x.vlan, pref), NUMBER(x.vlan, vlan_value);
        v.six("ieee_mac", x.vlan.ieee_mac...);
        MAC(x.vlan), v.domain("domain", x.vlan.domain...);
    });
    v.record("templ", 0, 4, [&] { NUMBER(x.templ, bind_value); });
    v.record("voice_vlan", 0, 12,
             [&] { MAC(x.voice_vlan), NUMBER(x.voice_vlan, gidb_handle), NUMBER(x.voice_vlan, vlan); });
    v.record("iaf", 0, 14, [&] { MAC(x.iaf), NUMBER(x.iaf, gidb_handle), NUMBER(x.iaf, idle_timeout); });
    v.record("intf_templ_list", 0, 4, [&] {
        LENGTH(max_intf_templ, x.intf_templ_list.data);
        const auto visit_template = [&](auto&... e) {
            NUMBER(e, bind), NUMBER(e, gidb_handle), LENGTH(max_intf_templ_length, e.name), TEXT(e, name);
        };
        v.array("data", 0, 12, visit_template, x.intf_templ_list.data...);
    });
    v.record("autocfg", 0, 22, [&] {
        NUMBER(x.autocfg, gidb_handle), MAC(x.autocfg), NUMBER(x.autocfg, traf_class), NUMBER(x.autocfg, apply);
        LENGTH(max_asp_name_length, x.autocfg.asp_trig_name), TEXT(x.autocfg, asp_trig_name);
    });
    v.record("authz_ack", 0, 44, [&] {
        NUMBER(x.authz_ack, conn_hdl), NUMBER(x.authz_ack, label);
        v.tlv("session_identity", x.authz_ack.session_identity...);
        NUMBER(x.authz_ack, cl_hdl), NUMBER(x.authz_ack, return_hdl), NUMBER(x.authz_ack, result);
    });
    NUMBER(x, is_authz_invoke);
    v.record("cfg_macro_data", 0, 12, [&] {
        NUMBER(x.cfg_macro_data, apply_flag), NUMBER(x.cfg_macro_data, gidb_handle);
        v.vstring("cfg_macro_name", x.cfg_macro_data.cfg_macro_name...);
    });
    v.record("acl", 0, 14, [&] {
        MAC(x.acl), NUMBER(x.acl, idb);
        v.list(
            "bm_feat_ctx_list", 0, 15, [&](auto&... e) { visit_context(v, e...); }, x.acl.contexts...);
    });
}

template <class V, class H, class... X>
void visit(V& v, MessageOf<H>& first, X&... x) {
    v.record("orlan_ial_svm_epm_data", 1, 5, [&] {
        v.enumerator("epm_type", 1, message_types, first.epm_type, x.epm_type...);
        if (first.epm_type == 1)
            v.arm(
                "epm_type-acl_data", 2, 44, [&](auto&... e) { visit_entry(v, e...); }, first.acl_data, x.acl_data...);
        else if (first.epm_type == 3)
            v.arm(
                "epm_type-bm_data", 1, 4, [&](auto&... e) { visit_grants(v, e...); }, first.bm_data, x.bm_data...);
    });
}

template <class V, class... X>
void visit_vlan_group(V& v, X&... x) {
    v.record("orlan_ial_vlan_group_info", 0, 16, [&] {
        NUMBER(x, is_added), LENGTH(max_vlan, x.vlans), v.words("vlans", x.vlans...), NUMBER(x, num_of_vlans);
        LENGTH(max_acl_length, x.gp_name), TEXT(x, gp_name);
    });
}

template <class V, class... X>
void visit_domain_names(V& v, X&... x) {
    v.record("orlan_svm_epm_notify_domain_name", 0, 14, [&] {
        MAC(x), NUMBER(x, wlclient_num), LENGTH(domain_names_length, x.domain_names);
        v.array(
            "domain_names", 0, 2, [&](auto&... e) { LENGTH(name_len, e.name), TEXT(e, name); }, x.domain_names...);
    });
}

template <class V, class H, class... X>
void visit(V& v, VlanGroupOf<H>& first, X&... x) {
    visit_vlan_group(v, first, x...);
}

template <class V, class H, class... X>
void visit(V& v, DomainNamesOf<H>& first, X&... x) {
    visit_domain_names(v, first, x...);
}

#undef NUMBER
#undef LENGTH
#undef TEXT
#undef MAC

// ---- the data ----

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
    return {{1001, 2, 120, {'p', 'o', 'r', 't', '-', '7'}, mac(1), 1},
            {5},
            {mac(2), 1002, 300},
            {mac(3), 1003, 900},
            {{{1, 1004, "IP-PHONE-TEMPLATE-01"}, {0, 1005, "PRINTER-TEMPLATE-002"}, {1, 1006, "CAMERA-TEMPLATE-0003"}}},
            {1007, mac(4), 1, 0, "ASP-VOIP-DETECTED"},
            {0x1234567890, 21, {26, "user@campus.example"}, 22, 23, 3},
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
    DomainNames made{{0, 0x1B, 0x44, 0x11, 0x3A, 6}, 4711, std::vector<NameOf<Plain>>(count)};
    for (std::size_t i = 0; i < count; ++i) {
        const std::string number = std::to_string(100000 + i);
        made.domain_names[i].name = std::string("host-").append(i % 5, 'x') + number.substr(1) + ".example.net";
    }
    return made;
}

} // namespace bench
