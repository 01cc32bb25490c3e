// The tree of everything that is applied to one client: all its grants, its feature contexts, and the configurations of
// each context. client.hpp has the single grants.
#pragma once

#include "catalogue/client.hpp"
#include "catalogue/enums.hpp"
#include "catalogue/numbers.hpp"

namespace epm::catalogue {

// clang-format off

inline constexpr Record epm_client_acl_feat_config = record("epm_client_acl_feat_config", "AclFeatureConfig",
    "One list reference of a feature, an element of a feature context's list.",
    {"ac9b1be2221f7caaf9e5848329c480f2", "5cff405bd420c715eb44958c6f9af434"}, {
    value(zur_boolean,                   "is_url_redirect", "True when the list redirects to a URL."),
    value(sm_corvane_acl_feature_type_e, "feat_type",       "Feature that refers to the list."),
    value(zur_boolean,                   "is_ipv6",         "True when the list is for IPv6."),
    run  (u_int8, 256,                   "acl_name",        "The list's name; all 256 bytes travel."),
}).linked("is_url_redirect");
static_assert(has_numbers<epm_client_acl_feat_config>({.used = {324}, .size = 344, .tracked = 604}));
static_assert(has_flag_offsets<epm_client_acl_feat_config>({
    {"is_url_redirect", 0}, {"feat_type", 1}, {"is_ipv6", 2}, {"acl_name", 3, 4}}));

inline constexpr Record epm_client_acl_feat_ctx = record("epm_client_acl_feat_ctx", "AclFeatureContext",
    "One feature context of a client, an element of the client's list.",
    {"4608f6428d9c093526191e43d70416bd", "44f0ba733b9d364fb0d2c7173f835b60"}, {
    value(u_int32,                       "handle",            "Handle of the context, carried unchanged."),
    value(u_int16,                       "priority",          "Priority of the context, 16 bits."),
    value(sm_client_acl_feat_ctx_flag_e, "status",            "What has become of the context."),
    list (epm_client_acl_feat_config,    "bm_feat_conf_list", "The context's configurations; it owns them."),
}).linked("bm_feat_conf_list");
static_assert(has_numbers<epm_client_acl_feat_ctx>({.used = {92}, .size = 112, .tracked = 116}));

inline constexpr Record rcl_client_acl_t = record("rcl_client_acl_t", "ClientAcl",
    "The access-control lists applied to one client, by feature context.",
    {"572ff852023962b02c1434913c12f82c", "d0445681977f32befe2481499732844a"}, {
    object(zur_mac_addr,            "mac",              "The client's Ethernet address."),
    value (u_int32,                 "idb",              "A number carried unchanged."),
    list  (epm_client_acl_feat_ctx, "bm_feat_ctx_list", "The client's feature contexts; the record owns them."),
});
static_assert(has_numbers<rcl_client_acl_t>({.used = {52}, .size = 64, .tracked = 67}));
static_assert(has_flag_offsets<rcl_client_acl_t>({{"mac", 0}, {"idb", 1}, {"bm_feat_ctx_list", 2}}));

inline constexpr Record orlan_ial_svm_bm_data = record("orlan_ial_svm_bm_data", "Grant",
    "All grants to one client.",
    {"8a738430f72d8a853e59f1e9397f9a7b", "8f42ba210559bae815e0e3d97d338076"}, {
    embedded(rcl_client_vlan_t,          "vlan",            "The VLAN."),
    embedded(rcl_template_info_t,        "templ",           "The template's bind value."),
    embedded(rcl_client_voice_vlan_t,    "voice_vlan",      "The voice VLAN."),
    embedded(rcl_client_iaf_t,           "iaf",             "The idle timeout."),
    embedded(rcl_client_intf_templ_list, "intf_templ_list", "The interface templates."),
    embedded(rcl_client_autocfg_data,    "autocfg",         "The automatic configuration."),
    embedded(rcl_sess_mgr_authorize_ack, "authz_ack",       "The acknowledgement of the authorization."),
    value   (zur_boolean,                "is_authz_invoke", "True when the authorization is to be invoked."),
    embedded(rcl_client_cfg_macro,       "cfg_macro_data",  "The configuration macro."),
    embedded(rcl_client_acl_t,           "acl",             "The access-control lists.").from_variant(1),
});
static_assert(has_numbers<orlan_ial_svm_bm_data>({.used = {512, 576}, .size = 592, .tracked = 688,
    .body = {528, 592}, .block = {88, 96}}));
static_assert(has_flag_offsets<orlan_ial_svm_bm_data>({
    {"vlan", 0, 1}, {"templ", 7, 8}, {"voice_vlan", 9, 10}, {"iaf", 13, 14}, {"intf_templ_list", 17, 24},
    {"autocfg", 40, 41}, {"authz_ack", 46, 48}, {"is_authz_invoke", 80}, {"cfg_macro_data", 81, 82}, {"acl", 85, 86}}));

// clang-format on

} // namespace epm::catalogue
