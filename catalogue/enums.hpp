// The enumerations, numbered from 0 in the order of their lines. The texts are part of the format: print and XML carry
// them, including the misspelt ones.
#pragma once

#include "catalogue/description.hpp"

namespace epm::catalogue {

// clang-format off

inline constexpr Enum orlan_ial_svm_epm_type_e = enumeration("orlan_ial_svm_epm_type_e", "MessageType",
    "Tag of the message that hands policy out.",
    {"517962b25c03686538bc35fc5a4f845f", "86741268c6f7ad36e9ee7245dd07b379"}, {
    {"ORLAN_IAL_SVM_EPM_TYPE_INVALID",            "Selects no arm; the tag of a new message."},
    {"ORLAN_IAL_SVM_EPM_TYPE_ACL",                "Selects acl_data."},
    {"ORLAN_IAL_SVM_EPM_TYPE_ACL_APPLY",          "Selects apply_acl."},
    {"ORLAN_IAL_SVM_EPM_TYPE_BM",                 "Selects bm_data."},
    {"ORLAN_IAL_SVM_EPM_TYPE_FQDN",               "Selects fqdn_data."},
    {"ORLAN_IAL_SVM_EPM_TYPE_FQDN_CREATE",        "Selects fqdn_data_create."},
    {"ORLAN_IAL_SVM_EPM_TYPE_FQDN_DELETE",        "Selects fqdn_data_delete."},
    {"ORLAN_IAL_SVM_EPM_PORT_FWD",                "Selects port_info."},
    {"ORLAN_IAL_SVM_EPM_TYPE_PREAUTH",            "Selects preauthacl_data."},
    {"ORLAN_IAL_SVM_EPM_TYPE_MAX",                "Selects no arm; an accepted value and no bound."},
    {"ORLAN_IAL_SVM_EPM_TYPE_DACL_DNLD_COMPLETE", "Selects dacl_dnld_comp_data.", 1},
});

inline constexpr Enum sm_corvane_acl_feature_type_e = enumeration("sm_corvane_acl_feature_type_e", "AclFeature",
    "Feature that refers to an access-control list.",
    {"43af80c0fbd392b7f8385b0bacfd61b7", "e4d0835a83b72492b43d5651ef71fb9d"}, {
    {"SM_CORVANE_ACL_PROXY_ACL",    "A proxy list."},
    {"SM_CORVANE_ACL_NAMED_ACL",    "A list by name."},
    {"SM_CORVANE_ACL_REDIRECT_URL", "A redirect to a URL."},
    {"SM_CORVANE_ACL_INACL",        "An inbound list."},
    {"SM_CORVANE_ACL_FILTER_ID",    "A filter by id."},
    {"SM_CORVANE_ACL_MAC_INACL",    "An inbound list of Ethernet addresses."},
    {"SM_CORVANE_ACL_OPEN_DIR_ACL", "A list of the open directive."},
    {"SM_CORVANE_ACL_FEAT_MAX",     "An accepted value and no bound."},
});

inline constexpr Enum sm_client_acl_feat_ctx_flag_e = enumeration("sm_client_acl_feat_ctx_flag_e", "AclFeatureChange",
    "What has become of a feature context.",
    {"3dfa7f3f025bc99aa1b1881ec20c8d8c", "7ce14abd6260ea7da0384de0ac500340"}, {
    {"SM_CORVANE_ACL_FEAT_CTX_UNCHANGED", "The context is as it was."},
    {"SM_CORVANE_ACL_FEAT_CTX_ADDED",     "The context is new."},
    {"SM_CORVANE_ACL_FEAT_CTX_UPDATED",   "The context has changed."},
    {"SM_CORVANE_ACL_FEAT_CTX_DELETED",   "The context is gone."},
    {"SM_CORVANE_ACL_FEAT_CTX_MAX",       "An accepted value and no bound."},
});

inline constexpr Enum orlan_ial_svm_epm_in_e = enumeration("orlan_ial_svm_epm_in_e", "ReplyType",
    "Tag of the message that comes back; every value selects an arm.",
    {"7bfac9b9a6bac001c9d02a485309158d", "e3da6e16e65e59c4ec867e5858812dba"}, {
    {"ORLAN_IAL_SVM_EPM_PORT_ACL_CHANGE", "Selects port_info; the tag of a new message."},
    {"ORLAN_IAL_SVM_EPM_VLAN_GROUP_INFO", "Selects group_info."},
    {"ORLAN_IAL_SVM_EPM_VLAN_LOAD_INFO",  "Selects load_info."},
    {"ORLAN_IAL_SVM_EPM_VLAN_NAME_INFO",  "Selects vlan_info."},
    {"ORLAN_IAL_SVM_EPM_NACK_MSG",        "Selects nack_info."},
    {"ORLAN_NACK_TYPE_DACL",              "Selects dacl_info; not a kind of refusal."},
    {"ORLAN_IAL_SVM_EPM_ACL_NAME_SYNC",   "Selects acl_name."},
    {"EPM_IAF_TIMER_EXPIRY_EVENT",        "Selects iaf_info."},
    {"ORLAN_ACL_APPLN_FAILURE",           "Selects appln_fail.", 1},
});

inline constexpr Enum orlan_ial_svm_epm_nack_e = enumeration("orlan_ial_svm_epm_nack_e", "NackType",
    "Kind of assignment that is refused.",
    {"92c3d379d102eee2f56d1458ae8ba4da", "098d2eec3ef55672973431d89d35df39"}, {
    {"ORLAN_NACK_TYPE_VLAN",  "A VLAN."},
    {"ORLAN_NACK_TYPE_IAF",   "An idle timeout."},
    {"ORLAN_NACK_TYPE_VVLAN", "A voice VLAN."},
    {"ORLAN_NACK_TYPE_ACL",   "An access-control list."},
});

inline constexpr Enum wired_tunnel_response_type = enumeration("wired_tunnel_response_type", "TunnelResponseType",
    "Outcome of a request about a wired tunnel.",
    {"f95ad2a39185f6ac917ebaab6679e973", "227e72446ba9cd69ec71f0ea31e3fe57"}, {
    {"TUNNEL_CLIENT_INVALID_RESP", "No valid outcome; the value of a new answer."},
    {"TUNNEL_CLIENT_ADD_SUCCESS",  "The client is on the tunnel."},
    {"TUNNEL_CLIENT_ADD_FAILURE",  "The client could not be put on the tunnel."},
    {"TUNNEL_TEAR_DOWN",           "The tunnel is torn down."},
});

inline constexpr Enum wired_tunnel_add_failure_type = enumeration("wired_tunnel_add_failure_type", "TunnelAddFailure",
    "Why a client could not be put on a tunnel.",
    {"09356b270f65eb08e05fb591fdda9c63", "94a7d94ddff7e70a71da84985fe66634"}, {
    {"TUNNEL_ADD_FAILURE_UNEFINED",           "No cause is given."},
    {"TUNNEL_ADD_FAILURE_PROFILE_NOT_FOUND",  "The guest profile was not found."},
    {"TUNNEL_ADD_FAILURE_NOT_WIRED_GLAN",     "The guest LAN is not a wired one."},
    {"TUNNEL_ADD_FAILURE_ANCHOR_NOT_FOUND",   "No anchor was found."},
    {"TUNNEL_ADD_FAILURE_CLIENT_CREATE_FAIL", "The client could not be created."},
    {"TUNNEL_ADD_FAILURE_ANCHOR_TIMEOUT",     "The anchor did not answer in time."},
    {"TUNNEL_ADD_FAILURE_DELETE_IN_PROGRESS", "The client is being deleted."},
});

inline constexpr Enum wired_tunnel_teardown_type = enumeration("wired_tunnel_teardown_type", "TunnelTeardown",
    "Why a tunnel was torn down.",
    {"9128df1af5ed9455100e1188af298a4b", "eb7796a197a4a6ca05a8e5a560112883"}, {
    {"TUNNEL_TEARDOWN_UNDEFINED", "No cause is given; the only value."},
});

inline constexpr Enum coa_request_type = enumeration("coa_request_type", "CoaRequestType",
    "What a change of authorization does to a client's port.",
    {"d789c984e21715ea6b95fe6e177c6f1d", "70a1fa7f2c9a7c91374fa786132103c5"}, {
    {"COA_BOUNCE_HOST_PORT",  "Bounces the port."},
    {"COA_DISABLE_HOST_PORT", "Disables the port."},
});

// clang-format on

} // namespace epm::catalogue
