// The workloads: the fields of their records, once for all, and the data, which every peer fills its own records from.
// How a record is measured is not here.
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

// ---- the fields of the records ----

using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;

inline constexpr const char* message_types[] = {"", "ORLAN_IAL_SVM_EPM_TYPE_ACL", "", "ORLAN_IAL_SVM_EPM_TYPE_BM"};
inline constexpr const char* feature_types[] = {"SM_CORVANE_ACL_PROXY_ACL",    "SM_CORVANE_ACL_NAMED_ACL",
                                                "SM_CORVANE_ACL_REDIRECT_URL", "SM_CORVANE_ACL_INACL",
                                                "SM_CORVANE_ACL_FILTER_ID",    "SM_CORVANE_ACL_MAC_INACL"};
inline constexpr const char* context_states[] = {"SM_CORVANE_ACL_FEAT_CTX_UNCHANGED", "SM_CORVANE_ACL_FEAT_CTX_ADDED",
                                                 "SM_CORVANE_ACL_FEAT_CTX_UPDATED"};
inline constexpr std::nullptr_t no_names = nullptr;

// clang-format off

// One row for each field in the order of the wire: FIELD(T, kind, name, more), T being the library's type of the record.
// LENGTH(T, name, field) marks the position of a text's or an array's count on the wire. A user passes a macro for FIELD,
// usually one that calls a macro for each kind. The kinds and their further arguments:
//   NUMBER   its type
//   ENUM     the names of its values
//   HANDLE   its type; the library's type, a number in an object
//   TEXT     the length's name; the form in a holder
//   SIX      six bytes that the library keeps as a text
//   MAC      six bytes that the library keeps as an object
//   VSTRING  a text that the library keeps as an object
//   TLV      a number and a text that the library keeps as an object
//   RUN      256 bytes
//   WORDS    numbers: the length's name
//   PART     a record inside: its name, the bytes of its fixed fields on the wire
//   ARRAY    records: as PART; the length's name; the library's type of an element
//   LIST     records: as PART; the library's name of the list; the library's type of an element

#define BENCH_ENTRY(FIELD, LENGTH, T) \
    LENGTH(T, max_acl_length, acl_name)             LENGTH(T, max_ace_length, ace_name) \
    FIELD(T, TEXT, acl_name, max_acl_length, Text)  FIELD(T, TEXT, ace_name, max_ace_length, Text) \
    FIELD(T, NUMBER, sequence, u32)       FIELD(T, NUMBER, is_ipv4, u32)      FIELD(T, NUMBER, is_create, u32) \
    FIELD(T, NUMBER, is_remove, u32)      FIELD(T, NUMBER, p_sequence, u32)   FIELD(T, NUMBER, is_dacl, u32) \
    FIELD(T, NUMBER, process_index, u32)  FIELD(T, NUMBER, is_domain, u32)    FIELD(T, NUMBER, ip_addr, u32)

#define BENCH_CLIENT_VLAN(FIELD, LENGTH, T) \
    FIELD(T, NUMBER, gidb_handle, u32)  FIELD(T, NUMBER, pref, u32)  FIELD(T, NUMBER, vlan_value, u32) \
    FIELD(T, SIX, ieee_mac)             FIELD(T, MAC, mac)           FIELD(T, ENUM, domain, no_names)

#define BENCH_TEMPLATE_INFO(FIELD, LENGTH, T) \
    FIELD(T, NUMBER, bind_value, u32)

#define BENCH_VOICE_VLAN(FIELD, LENGTH, T) \
    FIELD(T, MAC, mac)  FIELD(T, NUMBER, gidb_handle, u32)  FIELD(T, NUMBER, vlan, u16)

#define BENCH_IAF(FIELD, LENGTH, T) \
    FIELD(T, MAC, mac)  FIELD(T, NUMBER, gidb_handle, u32)  FIELD(T, NUMBER, idle_timeout, u32)

#define BENCH_TEMPLATE(FIELD, LENGTH, T) \
    FIELD(T, NUMBER, bind, u32)  FIELD(T, NUMBER, gidb_handle, u32) \
    LENGTH(T, max_intf_templ_length, name)  FIELD(T, TEXT, name, max_intf_templ_length, Text)

#define BENCH_TEMPLATE_LIST(FIELD, LENGTH, T) \
    LENGTH(T, max_intf_templ, data)  FIELD(T, ARRAY, data, Template, 12, max_intf_templ, rcl_client_intf_templ)

#define BENCH_AUTOCFG(FIELD, LENGTH, T) \
    FIELD(T, NUMBER, gidb_handle, u32)  FIELD(T, MAC, mac) \
    FIELD(T, NUMBER, traf_class, u32)   FIELD(T, NUMBER, apply, u32) \
    LENGTH(T, max_asp_name_length, asp_trig_name)  FIELD(T, TEXT, asp_trig_name, max_asp_name_length, Text)

#define BENCH_AUTHORIZE_ACK(FIELD, LENGTH, T) \
    FIELD(T, HANDLE, conn_hdl, u64, sess_mgr_conn_hdl)  FIELD(T, HANDLE, label, u64, sess_mgr_session_label) \
    FIELD(T, TLV, session_identity)                     FIELD(T, HANDLE, cl_hdl, u64, sess_mgr_client_hdl) \
    FIELD(T, HANDLE, return_hdl, u64, sess_mgr_client_hdl) \
    FIELD(T, HANDLE, result, u32, sess_mgr_authorize_result)

#define BENCH_MACRO(FIELD, LENGTH, T) \
    FIELD(T, NUMBER, apply_flag, u32)  FIELD(T, NUMBER, gidb_handle, u32)  FIELD(T, VSTRING, cfg_macro_name)

#define BENCH_CONFIG(FIELD, LENGTH, T) \
    FIELD(T, NUMBER, is_url_redirect, u32)  FIELD(T, ENUM, feat_type, feature_types) \
    FIELD(T, NUMBER, is_ipv6, u32)          FIELD(T, RUN, acl_name)

#define BENCH_CONTEXT(FIELD, LENGTH, T) \
    FIELD(T, NUMBER, handle, u32)  FIELD(T, NUMBER, priority, u16)  FIELD(T, ENUM, status, context_states) \
    FIELD(T, LIST, configs, Config, 269, bm_feat_conf_list, epm_client_acl_feat_config)

#define BENCH_CLIENT_ACL(FIELD, LENGTH, T) \
    FIELD(T, MAC, mac)  FIELD(T, NUMBER, idb, u32) \
    FIELD(T, LIST, contexts, Context, 15, bm_feat_ctx_list, epm_client_acl_feat_ctx)

#define BENCH_GRANTS(FIELD, LENGTH, T) \
    FIELD(T, PART, vlan, ClientVlan, 29)            FIELD(T, PART, templ, TemplateInfo, 4) \
    FIELD(T, PART, voice_vlan, VoiceVlan, 12)       FIELD(T, PART, iaf, Iaf, 14) \
    FIELD(T, PART, intf_templ_list, TemplateList, 4) \
    FIELD(T, PART, autocfg, Autocfg, 22)            FIELD(T, PART, authz_ack, AuthorizeAck, 44) \
    FIELD(T, NUMBER, is_authz_invoke, u32) \
    FIELD(T, PART, cfg_macro_data, Macro, 12)       FIELD(T, PART, acl, ClientAcl, 14)

#define BENCH_VLAN_GROUP(FIELD, LENGTH, T) \
    FIELD(T, NUMBER, is_added, u32) \
    LENGTH(T, max_vlan, vlans)           FIELD(T, WORDS, vlans, max_vlan)  FIELD(T, NUMBER, num_of_vlans, u32) \
    LENGTH(T, max_acl_length, gp_name)   FIELD(T, TEXT, gp_name, max_acl_length, Text)

#define BENCH_NAME(FIELD, LENGTH, T) \
    LENGTH(T, name_len, name)  FIELD(T, TEXT, name, name_len, Name)

#define BENCH_DOMAIN_NAMES(FIELD, LENGTH, T) \
    FIELD(T, MAC, mac)  FIELD(T, NUMBER, wlclient_num, u32) \
    LENGTH(T, domain_names_length, domain_names) \
    FIELD(T, ARRAY, domain_names, Name, 2, domain_names_length, fqdn_domain_name)

/// The records: their name here and in the peers' schemas, the library's type, the fields. A WRAPPER is a record that
/// the peers do not have; they have its fields instead.
#define BENCH_RECORDS(RECORD, WRAPPER) \
    RECORD(Entry, orlan_ial_svm_acl_data, BENCH_ENTRY) \
    RECORD(ClientVlan, rcl_client_vlan_t, BENCH_CLIENT_VLAN) \
    RECORD(TemplateInfo, rcl_template_info_t, BENCH_TEMPLATE_INFO) \
    RECORD(VoiceVlan, rcl_client_voice_vlan_t, BENCH_VOICE_VLAN) \
    RECORD(Iaf, rcl_client_iaf_t, BENCH_IAF) \
    RECORD(Template, rcl_client_intf_templ, BENCH_TEMPLATE) \
    WRAPPER(TemplateList, rcl_client_intf_templ_list, BENCH_TEMPLATE_LIST) \
    RECORD(Autocfg, rcl_client_autocfg_data, BENCH_AUTOCFG) \
    RECORD(AuthorizeAck, rcl_sess_mgr_authorize_ack, BENCH_AUTHORIZE_ACK) \
    RECORD(Macro, rcl_client_cfg_macro, BENCH_MACRO) \
    RECORD(Config, epm_client_acl_feat_config, BENCH_CONFIG) \
    RECORD(Context, epm_client_acl_feat_ctx, BENCH_CONTEXT) \
    RECORD(ClientAcl, rcl_client_acl_t, BENCH_CLIENT_ACL) \
    RECORD(Grants, orlan_ial_svm_bm_data, BENCH_GRANTS) \
    RECORD(VlanGroup, orlan_ial_vlan_group_info, BENCH_VLAN_GROUP) \
    WRAPPER(Name, fqdn_domain_name, BENCH_NAME) \
    RECORD(DomainNames, orlan_svm_epm_notify_domain_name, BENCH_DOMAIN_NAMES)

#define BENCH_SKIP(...)

// ---- the records as structures, for any holder ----

template <class H>
struct TlvOf {
    u32 type;
    typename H::Text value;
};

#define MEMBER_NUMBER(name, type) type name;
#define MEMBER_ENUM(name, names) u32 name;
#define MEMBER_HANDLE(name, type, theirs) type name;
#define MEMBER_TEXT(name, length, form) typename H::form name;
#define MEMBER_SIX(name) Mac name;
#define MEMBER_MAC(name) Mac name;
#define MEMBER_VSTRING(name) typename H::Text name;
#define MEMBER_TLV(name) TlvOf<H> name;
#define MEMBER_RUN(name) std::array<std::uint8_t, 256> name;
#define MEMBER_WORDS(name, length) typename H::template Array<u32> name;
#define MEMBER_PART(name, Record, ...) Record##Of<H> name;
#define MEMBER_ARRAY(name, Record, ...) typename H::template Array<Record##Of<H>> name;
#define MEMBER_LIST(name, Record, ...) typename H::template List<Record##Of<H>> name;
#define MEMBER(T, kind, ...) MEMBER_##kind(__VA_ARGS__)
#define DEFINE(Record, T, FIELDS) \
    template <class H> struct Record##Of { FIELDS(MEMBER, BENCH_SKIP, T) }; \
    using Record = Record##Of<Plain>;
BENCH_RECORDS(DEFINE, DEFINE)

template <class H>
struct MessageOf {
    u32 epm_type;
    typename H::template Arm<EntryOf<H>> acl_data;
    typename H::template Arm<GrantsOf<H>> bm_data;
};
using Message = MessageOf<Plain>;

// ---- their form on the wire and in XML ----
// A visitor is led through one record, or through several of one type side by side. Each field is told with its name; a
// record also with its variant on the wire and the bytes of its fixed fields there.

#define EACH(name) first.name, x.name...
#define VISIT_NUMBER(name, type) v.number(#name, EACH(name));
#define VISIT_ENUM(name, names) v.enumerator(#name, 0, names, EACH(name));
#define VISIT_HANDLE(name, type, theirs) v.number(#name, EACH(name));
#define VISIT_TEXT(name, length, form) v.text(#name, EACH(name));
#define VISIT_SIX(name) v.six(#name, EACH(name));
#define VISIT_MAC(name) v.mac(#name, EACH(name));
#define VISIT_VSTRING(name) v.vstring(#name, EACH(name));
#define VISIT_TLV(name) v.tlv(#name, EACH(name));
#define VISIT_RUN(name) v.run(#name, EACH(name));
#define VISIT_WORDS(name, length) v.words(#name, EACH(name));
#define VISIT_PART(name, Record, fixed) v.record(#name, 0, fixed, [&] { visit_fields(v, EACH(name)); });
#define VISIT_ELEMENTS [&](auto&... elements) { visit_fields(v, elements...); }
#define VISIT_ARRAY(name, Record, fixed, ...) v.array(#name, 0, fixed, VISIT_ELEMENTS, EACH(name));
#define VISIT_LIST(name, Record, fixed, theirs, element) v.list(#theirs, 0, fixed, VISIT_ELEMENTS, EACH(name));
#define VISIT(T, kind, ...) VISIT_##kind(__VA_ARGS__)
#define VISIT_LENGTH(T, name, field) v.length(#name, EACH(field));
#define DEFINE_VISIT(Record, T, FIELDS) \
    template <class V, class H, class... X> void visit_fields(V& v, Record##Of<H>& first, X&... x) { \
        FIELDS(VISIT, VISIT_LENGTH, T) \
    }
BENCH_RECORDS(DEFINE_VISIT, DEFINE_VISIT)

// clang-format on

template <class V, class H, class... X>
void visit(V& v, MessageOf<H>& first, X&... x) {
    v.record("orlan_ial_svm_epm_data", 1, 5, [&] {
        const auto visit_arm = [&](auto&... arms) { visit_fields(v, arms...); };
        v.enumerator("epm_type", 1, message_types, EACH(epm_type));
        if (first.epm_type == 1)
            v.arm("epm_type-acl_data", 2, 44, visit_arm, EACH(acl_data));
        else if (first.epm_type == 3)
            v.arm("epm_type-bm_data", 1, 4, visit_arm, EACH(bm_data));
    });
}

template <class V, class H, class... X>
void visit(V& v, VlanGroupOf<H>& first, X&... x) {
    v.record("orlan_ial_vlan_group_info", 0, 16, [&] { visit_fields(v, first, x...); });
}

template <class V, class H, class... X>
void visit(V& v, DomainNamesOf<H>& first, X&... x) {
    v.record("orlan_svm_epm_notify_domain_name", 0, 14, [&] { visit_fields(v, first, x...); });
}

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
    DomainNames made{{0, 0x1B, 0x44, 0x11, 0x3A, 6}, 4711, std::vector<Name>(count)};
    for (std::size_t i = 0; i < count; ++i) {
        const std::string number = std::to_string(100000 + i);
        made.domain_names[i].name = std::string("host-").append(i % 5, 'x') + number.substr(1) + ".example.net";
    }
    return made;
}

/// One workload: its data, and what the library writes of it, for who must write or read the same.
template <class D>
struct Workload {
    using Data = D;
    std::string name;
    Data data;
    std::vector<unsigned char> wire;
    std::string xml;
};

struct Workloads {
    Workload<Message> w1{"W1", {1, entry(), {}}, {}, {}}, w2{"W2", {3, {}, grants()}, {}, {}};
    Workload<VlanGroup> w3{"W3", vlan_group(), {}, {}};
    Workload<DomainNames> w4{"W4", domain_names(), {}, {}};

    void for_each(auto use) { use(w1), use(w2), use(w3), use(w4); }
};

} // namespace bench
