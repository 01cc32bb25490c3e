/* What gdb is asked to show: records of all kinds of fields, as documents have them. The session stops at the end and
 * damages some. */
#include <orlan_epm.h>
#include <platform/domain.h>
#include <platform/xml.h>
#include <string.h>

/* Global, so that the debugger finds them from everywhere. */
static zur_domain* D;
static uint32_t st;

/* RECORD(name, type, the variant agreed on, content) */
#define RECORDS                                                                                                        \
    RECORD(unknown, orlan_ial_svm_acl_data, -1, "")                                                                    \
    RECORD(older, orlan_ial_svm_acl_data, 1, "<acl_name>guest-in</acl_name><ace_name/><sequence>10</sequence>")        \
    RECORD(entry, orlan_ial_svm_acl_data, 2,                                                                           \
           "<acl_name>a \"quoted\"\\0a\\c3\\a4 name</acl_name><ace_name/><sequence>20</sequence>"                      \
           "<is_remove>1</is_remove><ip_addr>167772161</ip_addr>")                                                     \
    RECORD(message, orlan_ial_svm_epm_data, 2,                                                                         \
           "<epm_type><ORLAN_IAL_SVM_EPM_TYPE_PREAUTH/></epm_type><epm_type-preauthacl_data/>")                        \
    RECORD(group, orlan_ial_vlan_group_info, 2,                                                                        \
           "<vlans>10</vlans><vlans>11</vlans><vlans>7</vlans><vlans>7</vlans><gp_name>office</gp_name>")              \
    RECORD(tag, rcl_sgt_info_t, 2, "<flag>120</flag><gen_num>0042</gen_num>")                                          \
    RECORD(watch, webauth_watch_list, 2, "")                                                                           \
    RECORD(request, coa_request_type, 2, "<COA_DISABLE_HOST_PORT/>")                                                   \
    RECORD(grants, orlan_ial_svm_bm_data, 2,                                                                           \
           "<vlan><ieee_mac>abcdef</ieee_mac><mac>02:00:00:00:5a:01</mac></vlan>"                                      \
           "<intf_templ_list><data><name>uplink</name></data><data><name>access</name></data></intf_templ_list>")      \
    RECORD(lists, rcl_client_acl_t, 2,                                                                                 \
           "<bm_feat_ctx_list><handle>100</handle></bm_feat_ctx_list>"                                                 \
           "<bm_feat_ctx_list><handle>101</handle><bm_feat_conf_list><acl_name>112</acl_name></bm_feat_conf_list>"     \
           "</bm_feat_ctx_list>")

zur_instance* header;
#define RECORD(name, type, variant, content) struct type* name;
RECORDS
#undef RECORD

int main(void) {
    const char* text;
    D = platform_domain_create(NULL);
#define RECORD(name, type, variant, content)                                                                           \
    platform_domain_agree_all(D, variant);                                                                             \
    name = type##_create(D, ZUR_NO_SET);                                                                               \
    text = "<" #type ">" content "</" #type ">";                                                                       \
    type##_from_xml(D, ZUR_NO_SET, #type, platform_xml_parse(text, strlen(text), NULL, NULL, 0), name, &st, NULL, 0);
    RECORDS
    /* Its first arm stays, not selected. */
    orlan_ial_svm_epm_data_acl_data_set(D, ZUR_NO_SET, message, orlan_ial_svm_acl_data_create(D, ZUR_NO_SET), &st);
    header = (zur_instance*)group;
    return st != 0;
}
