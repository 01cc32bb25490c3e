// The catalogue as a whole: every record and every enumeration in the order of the type table, and the checks that the
// build depends on. The topics' files have the tables themselves.
#pragma once

#include "catalogue/acl.hpp"
#include "catalogue/check.hpp"
#include "catalogue/client.hpp"
#include "catalogue/context.hpp"
#include "catalogue/description.hpp"
#include "catalogue/enums.hpp"
#include "catalogue/event.hpp"
#include "catalogue/fqdn.hpp"
#include "catalogue/linksec.hpp"
#include "catalogue/message.hpp"
#include "catalogue/tunnel.hpp"
#include "catalogue/vlan.hpp"

namespace epm::catalogue {

/// Types in the order of the type table, as data and as template arguments.
template <class T, const T&... Types>
struct TypeList {
    static constexpr std::array<const T*, sizeof...(Types)> pointers{&Types...};

    template <class F>
    static constexpr void for_each(F&& f) {
        (f.template operator()<Types>(), ...);
    }
};

// In the order of the type table, which stores and peers know, so a new type goes to the end of its list.

// clang-format off

using Records = TypeList<Record,
    orlan_ial_svm_acl_data,
    orlan_ial_svm_acl_apply,
    rcl_client_vlan_t,
    rcl_sgt_info_t,
    rcl_template_info_t,
    rcl_client_voice_vlan_t,
    rcl_client_iaf_t,
    rcl_client_intf_templ,
    rcl_client_cfg_macro,
    rcl_client_intf_templ_list,
    rcl_client_autocfg_data,
    rcl_sess_mgr_authorize_ack,
    epm_client_acl_feat_config,
    epm_client_acl_feat_ctx,
    rcl_client_acl_t,
    orlan_ial_svm_bm_data,
    orlan_ial_svm_fqdn_data_create,
    orlan_ial_svm_fqdn_data_delete,
    orlan_ial_svm_fqdn_data,
    orlan_ial_svm_port_fwd_info,
    orlan_ial_svm_preauthacl_data,
    orlan_ial_dacl_dnld_complete,
    orlan_ial_svm_epm_data,
    orlan_ial_port_acl_change,
    orlan_ial_vlan_group_info,
    orlan_ial_vlan_load_balance_info,
    orlan_ial_vlan_notify_name,
    iaf_timer_expiry_event_info,
    orlan_ial_svm_epm_nack_info,
    orlan_ial_svm_epm_acl_name_sync,
    orlan_ial_svm_dacl_nack,
    orlan_ial_svm_acl_appln_failure,
    orlan_ial_in_svm_epm_data,
    fqdn_domain_name,
    orlan_svm_epm_notify_domain_name,
    orlan_svm_epm_ip_address_update_notify,
    orlan_svm_epm_fqdn_client_roam_reinit_ap,
    wired_tunnel_client_add,
    wired_tunnel_client_delete,
    wired_tunnel_add_delete_response,
    ch_coa_request_type,
    linksec_ether_info,
    linksec_eap_keys,
    auth_mgr_linksec_start_info,
    auth_mgr_linksec_event_fail_data,
    auth_mgr_linksec_event,
    auth_mgr_linksec_event_success,
    auth_mgr_linksec_update,
    webauth_watch_list>;

using Enums = TypeList<Enum,
    orlan_ial_svm_epm_type_e,
    sm_corvane_acl_feature_type_e,
    sm_client_acl_feat_ctx_flag_e,
    orlan_ial_svm_epm_in_e,
    orlan_ial_svm_epm_nack_e,
    wired_tunnel_response_type,
    wired_tunnel_add_failure_type,
    wired_tunnel_teardown_type,
    coa_request_type>;

// clang-format on

inline constexpr std::array all_records = Records::pointers;
inline constexpr std::array all_enums = Enums::pointers;

/// Calls f.template operator()<R>() for every record, R being a const Record&.
template <class F>
constexpr void for_each_record(F&& f) {
    Records::for_each(std::forward<F>(f));
}

/// Calls f.template operator()<E>() for every enumeration, E being a const Enum&.
template <class F>
constexpr void for_each_enum(F&& f) {
    Enums::for_each(std::forward<F>(f));
}

namespace detail {

/// The words of a fault as a template argument, so that the compiler's message shows them.
struct FaultWords {
    std::array<char, 96> text{};

    constexpr FaultWords(const char* words) {
        for (std::size_t i = 0; words != nullptr && words[i] != 0 && i + 1 < text.size(); ++i) text[i] = words[i];
    }
};

template <FaultWords Type, FaultWords Field, FaultWords Sentence>
struct Verdict {
    static_assert(Sentence.text[0] == 0, "the catalogue is faulty: see type, field and sentence in the arguments");
};

inline constexpr Fault fault = first_fault(all_records, all_enums);
template struct Verdict<fault.type, fault.field, fault.sentence>;

} // namespace detail

} // namespace epm::catalogue
