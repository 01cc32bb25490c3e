/* What gdb is asked to show: records of all kinds of fields, and records whose memory is damaged. */
#include <orlan_epm.h>
#include <platform/domain.h>
#include <stdlib.h>
#include <string.h>

static zur_domain* D;
static const uint32_t S = ZUR_NO_SET;
static uint32_t st;

/* Global, so that the debugger finds them from everywhere. */
struct orlan_ial_svm_acl_data *entry, *older, *unknown, *damaged_entry, *garbage, *wild, *none;
struct orlan_ial_svm_epm_data* message;
struct orlan_ial_vlan_group_info *group, *damaged_group, *not_a_group;
struct orlan_ial_svm_bm_data* grants;
struct rcl_client_acl_t *lists, *damaged_lists, *looped_lists;
struct rcl_sgt_info_t* tag;
struct webauth_watch_list* watch;
struct coa_request_type *request, *no_request;
zur_instance *header, *damaged_header;

void stop_here(void);
void stop_here(void) {}

/* A copy of a record that can be damaged without harm. */
static void* copy_of(const void* record, size_t size) {
    void* copy = calloc(1, size);
    return memcpy(copy, record, size);
}
static void damage(void* record, size_t offset, const void* bytes, size_t length) {
    memcpy((char*)record + offset, bytes, length);
}

static struct orlan_ial_svm_acl_data* new_entry(const char* name, uint32_t sequence) {
    struct orlan_ial_svm_acl_data* x = orlan_ial_svm_acl_data_create(D, S);
    orlan_ial_svm_acl_data_acl_name_set(D, S, x, name, (uint32_t)strlen(name), &st);
    orlan_ial_svm_acl_data_sequence_set_value(D, S, x, sequence, &st);
    orlan_ial_svm_acl_data_is_remove_set_value(D, S, x, 1, &st);
    return x;
}

static void fill_entries(void) {
    platform_domain_agree_all(D, -1);
    unknown = orlan_ial_svm_acl_data_create(D, S);
    platform_domain_agree_all(D, 1);
    older = new_entry("guest-in", 10);
    platform_domain_clear_agreement(D);
    entry = new_entry("a \"quoted\"\n\xC3\xA4 name", 20);
    orlan_ial_svm_acl_data_ip_addr_set_value(D, S, entry, 0x0A000001, &st);
    request = coa_request_type_create(D, S);
    coa_request_type_set_value(D, S, request, 1, &st);
    tag = rcl_sgt_info_t_create(D, S);
    rcl_sgt_info_t_flag_set_value(D, S, tag, 'x', &st);
    rcl_sgt_info_t_gen_num_set(D, S, tag, "0042", 4, &st);
    watch = webauth_watch_list_create(D, S);
}

static void fill_message(void) {
    message = orlan_ial_svm_epm_data_create(D, S);
    orlan_ial_svm_epm_data_preauthacl_data_set(D, S, message, orlan_ial_svm_preauthacl_data_create(D, S), &st);
    orlan_ial_svm_epm_data_acl_data_set(D, S, message, new_entry("inner", 30), &st);
}

static void fill_group(void) {
    uint32_t vlans[300];
    for (uint32_t i = 0; i < 300; ++i) vlans[i] = i < 3 ? 10 + i : i < 30 ? 7 : i;
    group = orlan_ial_vlan_group_info_create(D, S);
    orlan_ial_vlan_group_info_vlans_set_mem(D, S, group, vlans, 300, &st);
    orlan_ial_vlan_group_info_gp_name_set(D, S, group, "office", 6, &st);
}

static void fill_grants(void) {
    grants = orlan_ial_svm_bm_data_create(D, S);
    struct rcl_client_vlan_t* vlan = orlan_ial_svm_bm_data_vlan_get(D, S, grants, &st);
    const uint8_t mac[6] = {2, 0, 0, 0, 0x5A, 1};
    rcl_client_vlan_t_mac_set(D, S, vlan, (void*)mac, &st);
    rcl_client_vlan_t_ieee_mac_set(D, S, vlan, "abcdef", 6, &st);
    struct rcl_client_intf_templ_list* all = orlan_ial_svm_bm_data_intf_templ_list_get(D, S, grants, &st);
    for (uint32_t i = 0; i < 2; ++i) {
        struct rcl_client_intf_templ* one = rcl_client_intf_templ_create(D, S);
        rcl_client_intf_templ_name_set(D, S, one, i == 0 ? "uplink" : "access", 6, &st);
        rcl_client_intf_templ_list_data_set(D, S, all, i, one, 1, &st);
        rcl_client_intf_templ_destroy(D, S, one);
    }
}

static void fill_lists(void) {
    lists = rcl_client_acl_t_create(D, S);
    for (uint32_t i = 0; i < 2; ++i) {
        struct epm_client_acl_feat_ctx* context = epm_client_acl_feat_ctx_create(D, S);
        epm_client_acl_feat_ctx_handle_set_value(D, S, context, 100 + i, &st);
        epm_client_acl_feat_ctx_status_set_value(D, S, context, 1 + i, &st);
        rcl_client_acl_t_bm_feat_ctx_list_set_last(D, S, lists, context, &st);
        if (i == 0) continue;
        struct epm_client_acl_feat_config* config = epm_client_acl_feat_config_create(D, S);
        epm_client_acl_feat_config_acl_name_set_mem(D, S, config, (const uint8_t*)"pre", 3, &st);
        epm_client_acl_feat_ctx_bm_feat_conf_list_set_last(D, S, context, config, &st);
    }
}

static void do_damage(void) {
    const uint32_t huge = 0xFFFFFFFF;
    void* const nowhere = (void*)0x1234;
    damaged_entry = copy_of(entry, 96);
    damage(damaged_entry, 24, &nowhere, 8);
    damage(damaged_entry, 16, &huge, 4); /* ace_name has a length and no storage */
    damage(damaged_entry, 9, "\x01", 1);
    damaged_group = copy_of(group, 56);
    damage(damaged_group, 16, &huge, 4);
    damaged_lists = copy_of(lists, 64);
    damage(damaged_lists, 24, &nowhere, 8);
    looped_lists = copy_of(lists, 64);
    void* element;
    memcpy(&element, (char*)lists + 24, 8);
    element = copy_of(element, 112);
    damage(looped_lists, 24, &element, 8);
    damage(element, 48, &element, 8); /* its next one is itself */
    no_request = copy_of(request, 16);
    damage(no_request, 12, &huge, 4);
    damaged_header = copy_of(entry, 96);
    memset(damaged_header, 0x5A, 96);
    garbage = (void*)damaged_header;
    wild = nowhere;
    not_a_group = (void*)entry;
    header = (void*)group;
}

int main(void) {
    D = platform_domain_create(NULL);
    fill_entries();
    fill_message();
    fill_group();
    fill_grants();
    fill_lists();
    do_damage();
    stop_here();
    return st != 0;
}
