// The library itself: how the workloads' records are filled and read through its accessors, and each of its
// operations as a loop.
#include "bench/suite.hpp"
#include "bench/workloads.hpp"

#include <orlan_epm.h>
#include <platform/domain.h>
#include <platform/values.h>
#include <platform/xml.h>

#include <algorithm>
#include <cstring>

namespace bench {
namespace {

constexpr std::uint32_t S = ZUR_NO_SET;

class Domain {
public:
    explicit Domain(bool tracked) : tracked_(tracked) {
        platform_domain_options options{};
        options.tracking = tracked ? ZUR_TRACKED_MODE : PLATFORM_NO_HANDLE;
        options.block_limit = options.memory_limit = SIZE_MAX; // the largest workloads hold more than strangers may
        domain_ = platform_domain_create(&options);
    }
    ~Domain() { platform_domain_destroy(domain_); }
    Domain(const Domain&) = delete;
    Domain& operator=(const Domain&) = delete;
    operator zur_domain*() const { return domain_; }
    bool tracked() const { return tracked_; }

private:
    zur_domain* domain_;
    bool tracked_;
};

std::uint32_t size_of(const std::string& text) {
    return static_cast<std::uint32_t>(text.size());
}

// ---- filling ----

zur_mac_addr mac_of(const Mac& bytes) {
    zur_mac_addr made;
    std::memcpy(made.bytes, bytes.data(), bytes.size());
    return made;
}

/// A handle of the session manager, set by a move as every object field is.
template <class Handle, class Value, class Write, class Set>
void move_handle(zur_domain* D, rcl_sess_mgr_authorize_ack* x, Value value, Write write, Set set, std::uint32_t* st) {
    Handle made{};
    write(D, S, &made, value, st);
    set(D, S, x, &made, st);
}

orlan_ial_svm_epm_data* fill(const Domain& D, const Entry& entry, std::uint32_t* st) {
    orlan_ial_svm_acl_data* x = orlan_ial_svm_acl_data_create(D, S);
    orlan_ial_svm_acl_data_acl_name_set(D, S, x, entry.acl_name.data(), size_of(entry.acl_name), st);
    orlan_ial_svm_acl_data_ace_name_set(D, S, x, entry.ace_name.data(), size_of(entry.ace_name), st);
    orlan_ial_svm_acl_data_sequence_set_value(D, S, x, entry.sequence, st);
    orlan_ial_svm_acl_data_is_ipv4_set_value(D, S, x, entry.is_ipv4, st);
    orlan_ial_svm_acl_data_is_create_set_value(D, S, x, entry.is_create, st);
    orlan_ial_svm_acl_data_is_remove_set_value(D, S, x, entry.is_remove, st);
    orlan_ial_svm_acl_data_p_sequence_set_value(D, S, x, entry.p_sequence, st);
    orlan_ial_svm_acl_data_is_dacl_set_value(D, S, x, entry.is_dacl, st);
    orlan_ial_svm_acl_data_process_index_set_value(D, S, x, entry.process_index, st);
    orlan_ial_svm_acl_data_is_domain_set_value(D, S, x, entry.is_domain, st);
    orlan_ial_svm_acl_data_ip_addr_set_value(D, S, x, entry.ip_addr, st);
    orlan_ial_svm_epm_data* message = orlan_ial_svm_epm_data_create(D, S);
    orlan_ial_svm_epm_data_acl_data_set(D, S, message, x, st);
    return message;
}

epm_client_acl_feat_ctx* fill(const Domain& D, const Context& context, std::uint32_t* st) {
    epm_client_acl_feat_ctx* x = epm_client_acl_feat_ctx_create(D, S);
    epm_client_acl_feat_ctx_handle_set_value(D, S, x, context.handle, st);
    epm_client_acl_feat_ctx_priority_set_value(D, S, x, context.priority, st);
    epm_client_acl_feat_ctx_status_set_value(D, S, x, context.status, st);
    for (const Config& config : context.configs) {
        epm_client_acl_feat_config* y = epm_client_acl_feat_config_create(D, S);
        epm_client_acl_feat_config_is_url_redirect_set_value(D, S, y, config.is_url_redirect, st);
        epm_client_acl_feat_config_feat_type_set_value(D, S, y, config.feat_type, st);
        epm_client_acl_feat_config_is_ipv6_set_value(D, S, y, config.is_ipv6, st);
        epm_client_acl_feat_config_acl_name_set_mem(D, S, y, config.acl_name.data(), 256, st);
        epm_client_acl_feat_ctx_bm_feat_conf_list_set_last(D, S, x, y, st);
    }
    return x;
}

void fill(const Domain& D, rcl_sess_mgr_authorize_ack* x, const decltype(Grants::authz_ack)& ack, std::uint32_t* st) {
    move_handle<sess_mgr_conn_hdl>(D, x, ack.conn_hdl, platform_sess_mgr_conn_hdl_write,
                                   rcl_sess_mgr_authorize_ack_conn_hdl_set, st);
    move_handle<sess_mgr_session_label>(D, x, ack.label, platform_sess_mgr_session_label_write,
                                        rcl_sess_mgr_authorize_ack_label_set, st);
    aaa_tlv identity{};
    platform_aaa_tlv_write(D, S, &identity, ack.session_identity.type,
                           reinterpret_cast<const std::uint8_t*>(ack.session_identity.value.data()),
                           size_of(ack.session_identity.value), st);
    rcl_sess_mgr_authorize_ack_session_identity_set(D, S, x, &identity, st);
    move_handle<sess_mgr_client_hdl>(D, x, ack.cl_hdl, platform_sess_mgr_client_hdl_write,
                                     rcl_sess_mgr_authorize_ack_cl_hdl_set, st);
    move_handle<sess_mgr_client_hdl>(D, x, ack.return_hdl, platform_sess_mgr_client_hdl_write,
                                     rcl_sess_mgr_authorize_ack_return_hdl_set, st);
    move_handle<sess_mgr_authorize_result>(D, x, ack.result, platform_sess_mgr_authorize_result_write,
                                           rcl_sess_mgr_authorize_ack_result_set, st);
}

void fill(const Domain& D, rcl_client_intf_templ_list* list, const std::vector<Template>& templates,
          std::uint32_t* st) {
    // The last one first, so that the array grows once. An empty source, because tracked mode asks for one.
    rcl_client_intf_templ* empty = rcl_client_intf_templ_create(D, S);
    rcl_client_intf_templ_list_data_set(D, S, list, static_cast<std::uint32_t>(templates.size() - 1), empty, 1, st);
    rcl_client_intf_templ_destroy(D, S, empty);
    for (std::uint32_t i = 0; i < templates.size(); ++i) {
        rcl_client_intf_templ* x = rcl_client_intf_templ_list_data_get(D, S, list, i, st);
        rcl_client_intf_templ_bind_set_value(D, S, x, templates[i].bind, st);
        rcl_client_intf_templ_gidb_handle_set_value(D, S, x, templates[i].gidb_handle, st);
        rcl_client_intf_templ_name_set(D, S, x, templates[i].name.data(), size_of(templates[i].name), st);
    }
}

orlan_ial_svm_epm_data* fill(const Domain& D, const Grants& grants, std::uint32_t* st) {
    orlan_ial_svm_bm_data* x = orlan_ial_svm_bm_data_create(D, S);
    zur_mac_addr mac = mac_of(grants.vlan.mac);
    rcl_client_vlan_t* vlan = orlan_ial_svm_bm_data_vlan_get(D, S, x, st);
    rcl_client_vlan_t_gidb_handle_set_value(D, S, vlan, grants.vlan.gidb_handle, st);
    rcl_client_vlan_t_pref_set_value(D, S, vlan, grants.vlan.pref, st);
    rcl_client_vlan_t_vlan_value_set_value(D, S, vlan, grants.vlan.vlan_value, st);
    rcl_client_vlan_t_ieee_mac_set(D, S, vlan, reinterpret_cast<const char*>(grants.vlan.ieee_mac.data()), 6, st);
    rcl_client_vlan_t_mac_set(D, S, vlan, &mac, st);
    rcl_client_vlan_t_domain_set_value(D, S, vlan, grants.vlan.domain, st);
    rcl_template_info_t_bind_value_set_value(D, S, orlan_ial_svm_bm_data_templ_get(D, S, x, st),
                                             grants.templ.bind_value, st);
    rcl_client_voice_vlan_t* voice = orlan_ial_svm_bm_data_voice_vlan_get(D, S, x, st);
    mac = mac_of(grants.voice_vlan.mac);
    rcl_client_voice_vlan_t_mac_set(D, S, voice, &mac, st);
    rcl_client_voice_vlan_t_gidb_handle_set_value(D, S, voice, grants.voice_vlan.gidb_handle, st);
    rcl_client_voice_vlan_t_vlan_set_value(D, S, voice, grants.voice_vlan.vlan, st);
    rcl_client_iaf_t* iaf = orlan_ial_svm_bm_data_iaf_get(D, S, x, st);
    mac = mac_of(grants.iaf.mac);
    rcl_client_iaf_t_mac_set(D, S, iaf, &mac, st);
    rcl_client_iaf_t_gidb_handle_set_value(D, S, iaf, grants.iaf.gidb_handle, st);
    rcl_client_iaf_t_idle_timeout_set_value(D, S, iaf, grants.iaf.idle_timeout, st);
    fill(D, orlan_ial_svm_bm_data_intf_templ_list_get(D, S, x, st), grants.intf_templ_list.data, st);
    rcl_client_autocfg_data* autocfg = orlan_ial_svm_bm_data_autocfg_get(D, S, x, st);
    mac = mac_of(grants.autocfg.mac);
    rcl_client_autocfg_data_gidb_handle_set_value(D, S, autocfg, grants.autocfg.gidb_handle, st);
    rcl_client_autocfg_data_mac_set(D, S, autocfg, &mac, st);
    rcl_client_autocfg_data_traf_class_set_value(D, S, autocfg, grants.autocfg.traf_class, st);
    rcl_client_autocfg_data_apply_set_value(D, S, autocfg, grants.autocfg.apply, st);
    rcl_client_autocfg_data_asp_trig_name_set(D, S, autocfg, grants.autocfg.asp_trig_name.data(),
                                              size_of(grants.autocfg.asp_trig_name), st);
    fill(D, orlan_ial_svm_bm_data_authz_ack_get(D, S, x, st), grants.authz_ack, st);
    orlan_ial_svm_bm_data_is_authz_invoke_set_value(D, S, x, grants.is_authz_invoke, st);
    rcl_client_cfg_macro* macro = orlan_ial_svm_bm_data_cfg_macro_data_get(D, S, x, st);
    rcl_client_cfg_macro_apply_flag_set_value(D, S, macro, grants.cfg_macro_data.apply_flag, st);
    rcl_client_cfg_macro_gidb_handle_set_value(D, S, macro, grants.cfg_macro_data.gidb_handle, st);
    zur_vstring name{};
    platform_zur_vstring_write(D, S, &name, grants.cfg_macro_data.cfg_macro_name.data(),
                               size_of(grants.cfg_macro_data.cfg_macro_name), st);
    rcl_client_cfg_macro_cfg_macro_name_set(D, S, macro, &name, st);
    rcl_client_acl_t* acl = orlan_ial_svm_bm_data_acl_get(D, S, x, st);
    mac = mac_of(grants.acl.mac);
    rcl_client_acl_t_mac_set(D, S, acl, &mac, st);
    rcl_client_acl_t_idb_set_value(D, S, acl, grants.acl.idb, st);
    for (const Context& context : grants.acl.contexts)
        rcl_client_acl_t_bm_feat_ctx_list_set_last(D, S, acl, fill(D, context, st), st);
    orlan_ial_svm_epm_data* message = orlan_ial_svm_epm_data_create(D, S);
    orlan_ial_svm_epm_data_bm_data_set(D, S, message, x, st);
    return message;
}

orlan_ial_vlan_group_info* fill(const Domain& D, const VlanGroup& group, std::uint32_t* st) {
    orlan_ial_vlan_group_info* x = orlan_ial_vlan_group_info_create(D, S);
    orlan_ial_vlan_group_info_is_added_set_value(D, S, x, group.is_added, st);
    if (!group.vlans.empty())
        orlan_ial_vlan_group_info_vlans_set_mem(D, S, x, group.vlans.data(),
                                                static_cast<std::uint32_t>(group.vlans.size()), st);
    orlan_ial_vlan_group_info_num_of_vlans_set_value(D, S, x, group.num_of_vlans, st);
    orlan_ial_vlan_group_info_gp_name_set(D, S, x, group.gp_name.data(), size_of(group.gp_name), st);
    return x;
}

orlan_svm_epm_notify_domain_name* fill(const Domain& D, const DomainNames& names, std::uint32_t* st) {
    orlan_svm_epm_notify_domain_name* x = orlan_svm_epm_notify_domain_name_create(D, S);
    zur_mac_addr mac = mac_of(names.mac);
    orlan_svm_epm_notify_domain_name_mac_set(D, S, x, &mac, st);
    orlan_svm_epm_notify_domain_name_wlclient_num_set_value(D, S, x, names.wlclient_num, st);
    const auto count = static_cast<std::uint32_t>(names.domain_names.size());
    if (count == 0) return x;
    fqdn_domain_name* empty = fqdn_domain_name_create(D, S);
    orlan_svm_epm_notify_domain_name_domain_names_set(D, S, x, count - 1, empty, 1, st);
    fqdn_domain_name_destroy(D, S, empty);
    for (std::uint32_t i = 0; i < count; ++i)
        fqdn_domain_name_name_set(D, S, orlan_svm_epm_notify_domain_name_domain_names_get(D, S, x, i, st),
                                  names.domain_names[i].name.data(),
                                  static_cast<std::uint16_t>(names.domain_names[i].name.size()), st);
    return x;
}

// ---- reading every field; texts are copied into the caller's buffer, as their accessors do ----

struct Texts {
    char characters[512];
    std::uint64_t sum = 0;
    template <class Get, class X>
    void text(Get get, zur_domain* D, const X* x, std::uint32_t length, std::uint32_t* st) {
        get(D, S, x, characters, length + 1, st);
        sum += static_cast<unsigned char>(characters[0]) + length;
    }
    void mac(const zur_mac_addr* object) {
        platform_zur_mac_addr_read(object, reinterpret_cast<std::uint8_t*>(characters));
        sum += static_cast<unsigned char>(characters[5]);
    }
};

std::uint64_t read(zur_domain* D, orlan_ial_svm_acl_data* x, std::uint32_t* st) {
    Texts texts;
    texts.text(orlan_ial_svm_acl_data_acl_name_get, D, x, orlan_ial_svm_acl_data_max_acl_length_get_value(D, S, x, st),
               st);
    texts.text(orlan_ial_svm_acl_data_ace_name_get, D, x, orlan_ial_svm_acl_data_max_ace_length_get_value(D, S, x, st),
               st);
    return texts.sum + orlan_ial_svm_acl_data_sequence_get_value(D, S, x, st) +
           orlan_ial_svm_acl_data_is_ipv4_get_value(D, S, x, st) +
           orlan_ial_svm_acl_data_is_create_get_value(D, S, x, st) +
           orlan_ial_svm_acl_data_is_remove_get_value(D, S, x, st) +
           orlan_ial_svm_acl_data_p_sequence_get_value(D, S, x, st) +
           orlan_ial_svm_acl_data_is_dacl_get_value(D, S, x, st) +
           orlan_ial_svm_acl_data_process_index_get_value(D, S, x, st) +
           orlan_ial_svm_acl_data_is_domain_get_value(D, S, x, st) +
           orlan_ial_svm_acl_data_ip_addr_get_value(D, S, x, st);
}

std::uint64_t read(zur_domain* D, rcl_client_acl_t* acl, std::uint32_t* st) {
    Texts texts;
    texts.mac(rcl_client_acl_t_mac_get(D, S, acl, st));
    texts.sum += rcl_client_acl_t_idb_get_value(D, S, acl, st);
    std::uint32_t contexts = rcl_client_acl_t_bm_feat_ctx_list_get_count(D, S, acl, st);
    for (epm_client_acl_feat_ctx* x = rcl_client_acl_t_bm_feat_ctx_list_get_first(D, S, acl, st); contexts-- != 0;) {
        texts.sum += epm_client_acl_feat_ctx_handle_get_value(D, S, x, st) +
                     epm_client_acl_feat_ctx_priority_get_value(D, S, x, st) +
                     epm_client_acl_feat_ctx_status_get_value(D, S, x, st);
        std::uint32_t configs = epm_client_acl_feat_ctx_bm_feat_conf_list_get_count(D, S, x, st);
        for (auto* y = epm_client_acl_feat_ctx_bm_feat_conf_list_get_first(D, S, x, st); configs-- != 0;) {
            std::uint8_t name[256];
            epm_client_acl_feat_config_acl_name_get_mem(D, S, y, name, 256, st);
            keep(name);
            texts.sum += name[0] + epm_client_acl_feat_config_is_url_redirect_get_value(D, S, y, st) +
                         epm_client_acl_feat_config_feat_type_get_value(D, S, y, st) +
                         epm_client_acl_feat_config_is_ipv6_get_value(D, S, y, st);
            if (configs != 0) y = epm_client_acl_feat_ctx_bm_feat_conf_list_get_next(D, S, x, y, st);
        }
        if (contexts != 0) x = rcl_client_acl_t_bm_feat_ctx_list_get_next(D, S, acl, x, st);
    }
    return texts.sum;
}

std::uint64_t read(zur_domain* D, orlan_ial_svm_bm_data* x, std::uint32_t* st) {
    Texts texts;
    rcl_client_vlan_t* vlan = orlan_ial_svm_bm_data_vlan_get(D, S, x, st);
    texts.sum +=
        rcl_client_vlan_t_gidb_handle_get_value(D, S, vlan, st) + rcl_client_vlan_t_pref_get_value(D, S, vlan, st) +
        rcl_client_vlan_t_vlan_value_get_value(D, S, vlan, st) + rcl_client_vlan_t_domain_get_value(D, S, vlan, st);
    texts.text(rcl_client_vlan_t_ieee_mac_get, D, vlan, 6, st);
    texts.mac(rcl_client_vlan_t_mac_get(D, S, vlan, st));
    texts.sum += rcl_template_info_t_bind_value_get_value(D, S, orlan_ial_svm_bm_data_templ_get(D, S, x, st), st);
    rcl_client_voice_vlan_t* voice = orlan_ial_svm_bm_data_voice_vlan_get(D, S, x, st);
    texts.mac(rcl_client_voice_vlan_t_mac_get(D, S, voice, st));
    texts.sum += rcl_client_voice_vlan_t_gidb_handle_get_value(D, S, voice, st) +
                 rcl_client_voice_vlan_t_vlan_get_value(D, S, voice, st);
    rcl_client_iaf_t* iaf = orlan_ial_svm_bm_data_iaf_get(D, S, x, st);
    texts.mac(rcl_client_iaf_t_mac_get(D, S, iaf, st));
    texts.sum +=
        rcl_client_iaf_t_gidb_handle_get_value(D, S, iaf, st) + rcl_client_iaf_t_idle_timeout_get_value(D, S, iaf, st);
    rcl_client_intf_templ_list* list = orlan_ial_svm_bm_data_intf_templ_list_get(D, S, x, st);
    const std::uint32_t templates = rcl_client_intf_templ_list_max_intf_templ_get_value(D, S, list, st);
    for (std::uint32_t i = 0; i < templates; ++i) {
        rcl_client_intf_templ* y = rcl_client_intf_templ_list_data_get(D, S, list, i, st);
        texts.sum += rcl_client_intf_templ_bind_get_value(D, S, y, st) +
                     rcl_client_intf_templ_gidb_handle_get_value(D, S, y, st);
        texts.text(rcl_client_intf_templ_name_get, D, y,
                   rcl_client_intf_templ_max_intf_templ_length_get_value(D, S, y, st), st);
    }
    rcl_client_autocfg_data* autocfg = orlan_ial_svm_bm_data_autocfg_get(D, S, x, st);
    texts.mac(rcl_client_autocfg_data_mac_get(D, S, autocfg, st));
    texts.sum += rcl_client_autocfg_data_gidb_handle_get_value(D, S, autocfg, st) +
                 rcl_client_autocfg_data_traf_class_get_value(D, S, autocfg, st) +
                 rcl_client_autocfg_data_apply_get_value(D, S, autocfg, st);
    texts.text(rcl_client_autocfg_data_asp_trig_name_get, D, autocfg,
               rcl_client_autocfg_data_max_asp_name_length_get_value(D, S, autocfg, st), st);
    rcl_sess_mgr_authorize_ack* ack = orlan_ial_svm_bm_data_authz_ack_get(D, S, x, st);
    std::uint32_t type = 0, length = 0;
    keep(platform_aaa_tlv_read(rcl_sess_mgr_authorize_ack_session_identity_get(D, S, ack, st), &type, &length));
    texts.sum += type + length +
                 platform_sess_mgr_conn_hdl_read(rcl_sess_mgr_authorize_ack_conn_hdl_get(D, S, ack, st)) +
                 platform_sess_mgr_session_label_read(rcl_sess_mgr_authorize_ack_label_get(D, S, ack, st)) +
                 platform_sess_mgr_client_hdl_read(rcl_sess_mgr_authorize_ack_cl_hdl_get(D, S, ack, st)) +
                 platform_sess_mgr_client_hdl_read(rcl_sess_mgr_authorize_ack_return_hdl_get(D, S, ack, st)) +
                 platform_sess_mgr_authorize_result_read(rcl_sess_mgr_authorize_ack_result_get(D, S, ack, st)) +
                 orlan_ial_svm_bm_data_is_authz_invoke_get_value(D, S, x, st);
    rcl_client_cfg_macro* macro = orlan_ial_svm_bm_data_cfg_macro_data_get(D, S, x, st);
    keep(platform_zur_vstring_read(rcl_client_cfg_macro_cfg_macro_name_get(D, S, macro, st), &length));
    return texts.sum + length + rcl_client_cfg_macro_apply_flag_get_value(D, S, macro, st) +
           rcl_client_cfg_macro_gidb_handle_get_value(D, S, macro, st) +
           read(D, orlan_ial_svm_bm_data_acl_get(D, S, x, st), st);
}

std::uint64_t read(zur_domain* D, orlan_ial_svm_epm_data* x, std::uint32_t* st) {
    return orlan_ial_svm_epm_data_epm_type_get_value(D, S, x, st) == ORLAN_IAL_SVM_EPM_TYPE_ACL
               ? read(D, orlan_ial_svm_epm_data_acl_data_get(D, S, x, st), st)
               : read(D, orlan_ial_svm_epm_data_bm_data_get(D, S, x, st), st);
}

std::uint64_t read(zur_domain* D, orlan_ial_vlan_group_info* x, std::uint32_t* st) {
    Texts texts;
    texts.sum += orlan_ial_vlan_group_info_is_added_get_value(D, S, x, st) +
                 orlan_ial_vlan_group_info_num_of_vlans_get_value(D, S, x, st);
    const std::uint32_t count = orlan_ial_vlan_group_info_max_vlan_get_value(D, S, x, st);
    for (std::uint32_t i = 0; i < count; ++i) texts.sum += orlan_ial_vlan_group_info_vlans_get_value(D, S, x, i, st);
    texts.text(orlan_ial_vlan_group_info_gp_name_get, D, x,
               orlan_ial_vlan_group_info_max_acl_length_get_value(D, S, x, st), st);
    return texts.sum;
}

std::uint64_t read(zur_domain* D, orlan_svm_epm_notify_domain_name* x, std::uint32_t* st) {
    Texts texts;
    texts.mac(orlan_svm_epm_notify_domain_name_mac_get(D, S, x, st));
    texts.sum += orlan_svm_epm_notify_domain_name_wlclient_num_get_value(D, S, x, st);
    const std::uint32_t count = orlan_svm_epm_notify_domain_name_domain_names_length_get_value(D, S, x, st);
    for (std::uint32_t i = 0; i < count; ++i) {
        fqdn_domain_name* y = orlan_svm_epm_notify_domain_name_domain_names_get(D, S, x, i, st);
        texts.text(fqdn_domain_name_name_get, D, y, fqdn_domain_name_name_len_get_value(D, S, y, st), st);
    }
    return texts.sum;
}

// ---- each operation of a type as a loop ----

#define OPERATIONS(type)                                                                                               \
    template <>                                                                                                        \
    struct Type<type> {                                                                                                \
        static constexpr const char* name = #type;                                                                     \
        static constexpr auto create = type##_create;                                                                  \
        static constexpr auto destroy = type##_destroy;                                                                \
        static constexpr auto len = type##_len;                                                                        \
        static constexpr auto marshal = type##_marshal;                                                                \
        static constexpr auto unmarshal = type##_unmarshal;                                                            \
        static constexpr auto clone = type##_clone;                                                                    \
        static constexpr auto compare = type##_compare;                                                                \
        static constexpr auto hash = type##_hash;                                                                      \
        static constexpr auto print = type##_print;                                                                    \
        static constexpr auto to_xml = type##_to_xml;                                                                  \
        static constexpr auto from_xml = type##_from_xml;                                                              \
    }

template <class X>
struct Type;
OPERATIONS(orlan_ial_svm_epm_data);
OPERATIONS(orlan_ial_vlan_group_info);
OPERATIONS(orlan_svm_epm_notify_domain_name);

template <class X>
struct Subject {
    using T = Type<X>;
    Domain D;
    std::uint32_t st = 0;
    X* x;
    X* equal = nullptr;
    std::vector<unsigned char> wire, workspace;

    template <class Data>
    Subject(bool tracked, const Data& data) : D(tracked), x(fill(D, data, &st)) {
        // One byte more than the length in tracked mode: the last flag may lie right behind it.
        wire.resize(T::len(D, S, x) + 1);
        wire.resize(T::marshal(D, S, wire.data(), x, static_cast<int>(wire.size()), &st));
        workspace.resize(wire.size() + 1);
        T::clone(D, S, x, &equal, workspace.data(), static_cast<int>(workspace.size()), &st);
        require(st == 0 && equal != nullptr && T::compare(x, equal) == 0, std::string(T::name) + " cannot be built");
    }
    ~Subject() {
        // A raised status would have made every further call return at once, and all numbers worthless.
        require(st == 0, std::string(T::name) + ": an operation has failed with " + std::to_string(st));
        T::destroy(D, S, equal);
        T::destroy(D, S, x);
    }
    Subject(const Subject&) = delete;
    Subject& operator=(const Subject&) = delete;

    void marshal() {
        keep(T::marshal(D, S, workspace.data(), x, static_cast<int>(workspace.size()), &st));
        keep(st);
    }
    void unmarshal() {
        X* y = T::create(D, S);
        T::unmarshal(D, S, wire.data(), y, static_cast<int>(wire.size()), 0, &st);
        keep(st);
        T::destroy(D, S, y);
    }
};

template <class X>
using Shared = std::shared_ptr<Subject<X>>;

template <class X>
std::uint32_t to_xml(Subject<X>& s, char* buffer, std::size_t size) {
    return Type<X>::to_xml(s.D, S, Type<X>::name, buffer, s.x, static_cast<std::uint32_t>(size), 0, &s.st);
}

template <class X>
std::uint32_t print(Subject<X>& s, char* buffer, std::size_t size) {
    return Type<X>::print(s.D, S, buffer, 0, "x", s.x, static_cast<std::uint32_t>(size), &s.st);
}

/// What a writer writes, in a buffer that is large enough.
template <class X>
std::string written(Subject<X>& s, std::uint32_t (*write)(Subject<X>&, char*, std::size_t)) {
    std::string text(4096, 0);
    for (;;) {
        const std::uint32_t length = write(s, text.data(), text.size());
        if (std::exchange(s.st, 0) == 0) {
            text.resize(length);
            return text;
        }
        require(text.size() < (1u << 30), "a text does not end");
        text.resize(text.size() * 2);
    }
}

template <class X, class Data>
std::string xml_of(const Data& data) {
    Subject<X> s(false, data);
    return written(s, to_xml<X>);
}

/// The operations whose cost must stay flat over the number of elements.
template <class X>
void add_scaling(Suite& suite, const std::string& workload, const Shared<X>& s, bool reads_xml) {
    using T = Type<X>;
    const auto add = [&](const char* operation, std::size_t bytes, auto step) {
        step();
        require(s->st == 0, workload + "/" + operation + " fails");
        suite.add(workload, operation, "ours", std::move(step), bytes);
    };
    add("marshal", s->wire.size(), [s] { s->marshal(); });
    add("unmarshal", s->wire.size(), [s] { s->unmarshal(); });
    add("compare", s->wire.size(), [s] { keep(T::compare(s->x, s->equal)); });
    add("hash", s->wire.size(), [s] { keep(T::hash(s->x, 0)); });

    const auto xml = std::make_shared<const std::string>(written(*s, to_xml<X>));
    const auto printed = std::make_shared<const std::string>(written(*s, print<X>));
    const auto buffer = std::make_shared<std::string>(std::max(xml->size(), printed->size()) + 64, 0);
    add("print", printed->size(), [=] { keep(print(*s, buffer->data(), buffer->size())); });
    add("to_xml", xml->size(), [=] { keep(to_xml(*s, buffer->data(), buffer->size())); });
    if (!reads_xml) return;
    const platform_xml_limits limits = {xml->size() + 1, 0, 1u << 21};
    const auto from_xml = [=] {
        zur_xml_document* document = platform_xml_parse(xml->data(), xml->size(), &limits, nullptr, 0);
        X* y = T::create(s->D, S);
        T::from_xml(s->D, S, T::name, document, y, &s->st, nullptr, 0);
        platform_xml_free(document);
        return y;
    };
    X* back = from_xml();
    require(T::compare(back, s->x) == 0, workload + ": the library does not read its XML");
    T::destroy(s->D, S, back);
    add("from_xml", xml->size(), [=] { T::destroy(s->D, S, from_xml()); });
}

template <class X, class Data>
void add_type(Suite& suite, const std::string& workload, const Data& data) {
    using T = Type<X>;
    const auto s = std::make_shared<Subject<X>>(false, data);
    add_scaling(suite, workload, s, true);
    suite.add(workload, "clone", "ours", [s] {
        X* copy;
        T::clone(s->D, S, s->x, &copy, s->workspace.data(), static_cast<int>(s->workspace.size()), &s->st);
        T::destroy(s->D, S, copy);
    });
    suite.add(workload, "fill", "ours", [s, data] { T::destroy(s->D, S, fill(s->D, data, &s->st)); });
    suite.add(workload, "read", "ours", [s] { keep(read(s->D, s->x, &s->st)); });
    const auto tracked = std::make_shared<Subject<X>>(true, data);
    suite.add(
        workload, "marshal_tracked", "ours", [tracked] { tracked->marshal(); }, tracked->wire.size());
    suite.add(
        workload, "unmarshal_tracked", "ours", [tracked] { tracked->unmarshal(); }, tracked->wire.size());
}

} // namespace

std::vector<unsigned char> our_wire(const std::string& workload) {
    if (workload == "W1") return Subject<orlan_ial_svm_epm_data>(false, entry()).wire;
    if (workload == "W2") return Subject<orlan_ial_svm_epm_data>(false, grants()).wire;
    if (workload == "W3") return Subject<orlan_ial_vlan_group_info>(false, vlan_group()).wire;
    return Subject<orlan_svm_epm_notify_domain_name>(false, domain_names()).wire;
}

std::string our_xml(const std::string& workload) {
    if (workload == "W1") return xml_of<orlan_ial_svm_epm_data>(entry());
    if (workload == "W2") return xml_of<orlan_ial_svm_epm_data>(grants());
    if (workload == "W3") return xml_of<orlan_ial_vlan_group_info>(vlan_group());
    return xml_of<orlan_svm_epm_notify_domain_name>(domain_names());
}

void add_ours(Suite& suite) {
    add_type<orlan_ial_svm_epm_data>(suite, "W1", entry());
    add_type<orlan_ial_svm_epm_data>(suite, "W2", grants());
    add_type<orlan_ial_vlan_group_info>(suite, "W3", vlan_group());
    add_type<orlan_svm_epm_notify_domain_name>(suite, "W4", domain_names());
}

void add_ours_scaled(Suite& suite, const std::string& workload, std::size_t elements) {
    const std::string name = workload + "x" + std::to_string(elements);
    const bool reads_xml = elements <= 10000;
    if (workload == "W3")
        add_scaling(suite, name, std::make_shared<Subject<orlan_ial_vlan_group_info>>(false, vlan_group(elements)),
                    reads_xml);
    else
        add_scaling(suite, name,
                    std::make_shared<Subject<orlan_svm_epm_notify_domain_name>>(false, domain_names(elements)),
                    reads_xml);
}

} // namespace bench
