/*
 * A list, an array of numbers and an array of records: insert at all places, walk, remove, move, grow, and the flags of
 * elements in tracked mode.
 */
#include <orlan_epm.h>
#include <platform/domain.h>
#include <stdio.h>

#define S ZUR_NO_SET

typedef struct rcl_client_acl_t client;
typedef struct epm_client_acl_feat_ctx context;
typedef struct orlan_ial_vlan_group_info group;
typedef struct rcl_client_intf_templ interface_template;

static context* context_of(zur_domain* D, uint32_t handle, uint32_t* st) {
    context* element = epm_client_acl_feat_ctx_create(D, S);
    epm_client_acl_feat_ctx_handle_set_value(D, S, element, handle, st);
    return element;
}

static void show_list(zur_domain* D, client* x, const char* what, uint32_t* st) {
    printf("  %-28s %u:", what, rcl_client_acl_t_bm_feat_ctx_list_get_count(D, S, x, st));
    for (context* at = rcl_client_acl_t_bm_feat_ctx_list_get_first(D, S, x, st); at != NULL;
         at = rcl_client_acl_t_bm_feat_ctx_list_get_next(D, S, x, at, st))
        printf(" %u", epm_client_acl_feat_ctx_handle_get_value(D, S, at, st));
    puts("");
}

static void lists(zur_domain* D, uint32_t* st) {
    client* x = rcl_client_acl_t_create(D, S);
    puts("A list owns its elements, and each is an Instance of its own:");
    rcl_client_acl_t_bm_feat_ctx_list_set_last(D, S, x, context_of(D, 20, st), st);
    show_list(D, x, "set_last(20)", st);
    rcl_client_acl_t_bm_feat_ctx_list_set_first(D, S, x, context_of(D, 10, st), st);
    show_list(D, x, "set_first(10)", st);
    context* twenty = rcl_client_acl_t_bm_feat_ctx_list_get_last(D, S, x, st);
    rcl_client_acl_t_bm_feat_ctx_list_set_before(D, S, x, twenty, context_of(D, 15, st), st);
    show_list(D, x, "set_before(20, 15)", st);
    rcl_client_acl_t_bm_feat_ctx_list_set_after(D, S, x, twenty, context_of(D, 25, st), st);
    show_list(D, x, "set_after(20, 25)", st);

    puts("Removing gives the element back; to move it, insert it again:");
    rcl_client_acl_t_bm_feat_ctx_list_remove(D, S, x, twenty, st);
    show_list(D, x, "remove(20)", st);
    rcl_client_acl_t_bm_feat_ctx_list_set_first(D, S, x, twenty, st);
    show_list(D, x, "set_first(20)", st);

    puts("Remove while walking, from the end: take the neighbour first.");
    for (context *at = rcl_client_acl_t_bm_feat_ctx_list_get_last(D, S, x, st), *before; at != NULL; at = before) {
        before = rcl_client_acl_t_bm_feat_ctx_list_get_prev(D, S, x, at, st);
        if (epm_client_acl_feat_ctx_handle_get_value(D, S, at, st) % 2 == 0) continue;
        rcl_client_acl_t_bm_feat_ctx_list_remove(D, S, x, at, st);
        epm_client_acl_feat_ctx_destroy(D, S, at);
    }
    show_list(D, x, "without the odd ones", st);

    puts("A record that moves takes its list along:");
    client* other = rcl_client_acl_t_create(D, S);
    rcl_client_acl_t_set(D, S, other, x, st);
    show_list(D, other, "the destination", st);
    show_list(D, x, "the source", st);
    rcl_client_acl_t_destroy(D, S, other);
    rcl_client_acl_t_destroy(D, S, x);
}

static void show_array(zur_domain* D, group* x, const char* what, uint32_t* st) {
    const uint32_t count = orlan_ial_vlan_group_info_max_vlan_get_value(D, S, x, st);
    printf("  %-28s %u:", what, count);
    for (uint32_t i = 0; i < count; ++i) printf(" %u", orlan_ial_vlan_group_info_vlans_get_value(D, S, x, i, st));
    printf("   flags %u:", orlan_ial_vlan_group_info_vlans_state_flag_whole_get(D, S, x, st));
    for (uint32_t i = 0; i < count; ++i) printf(" %u", orlan_ial_vlan_group_info_vlans_state_flag_get(D, S, x, i, st));
    puts("");
}

static void arrays(zur_domain* D, uint32_t* st) {
    static const uint32_t vlans[] = {100, 200, 300};
    group* x = orlan_ial_vlan_group_info_create(D, S);
    puts("An array of numbers; behind it the flag of the whole array, then one for each element:");
    orlan_ial_vlan_group_info_vlans_set_mem(D, S, x, vlans, 3, st);
    show_array(D, x, "set_mem(100, 200, 300)", st);
    orlan_ial_vlan_group_info_vlans_set_value(D, S, x, 1, 250, st);
    show_array(D, x, "element 1 := 250", st);
    orlan_ial_vlan_group_info_vlans_state_flag_set(D, S, x, 1, 0, st);
    show_array(D, x, "flag of element 1 := 0", st);
    orlan_ial_vlan_group_info_vlans_set_value(D, S, x, 5, 600, st);
    show_array(D, x, "element 5 := 600: it grows", st);

    uint32_t wrong = 0;
    orlan_ial_vlan_group_info_vlans_get_value(D, S, x, 6, &wrong);
    printf("  %-28s status %u\n", "element 6", wrong);

    puts("There is no operation to remove one element: copy out, change, and set them all.");
    uint32_t copy[6];
    orlan_ial_vlan_group_info_vlans_get_mem(D, S, x, copy, 6, st);
    copy[1] = copy[5];
    orlan_ial_vlan_group_info_vlans_set_mem(D, S, x, copy, 3, st);
    show_array(D, x, "set_mem(100, 600, 300)", st);
    orlan_ial_vlan_group_info_vlans_remove_elements(D, S, x);
    printf("  %-28s %u\n", "remove_elements()", orlan_ial_vlan_group_info_max_vlan_get_value(D, S, x, st));
    orlan_ial_vlan_group_info_destroy(D, S, x);
}

static void arrays_of_records(zur_domain* D, uint32_t* st) {
    struct rcl_client_intf_templ_list* x = rcl_client_intf_templ_list_create(D, S);
    interface_template* source = rcl_client_intf_templ_create(D, S);
    puts("An array of records holds them itself; it takes a copy of the source, or its content:");
    rcl_client_intf_templ_name_set(D, S, source, "voice", 5, st);
    rcl_client_intf_templ_list_data_set(D, S, x, 0, source, 0, st); /* a deep copy */
    rcl_client_intf_templ_list_data_set(D, S, x, 1, source, 1, st); /* moves the content */
    const uint32_t count = rcl_client_intf_templ_list_max_intf_templ_get_value(D, S, x, st);
    for (uint32_t i = 0; i < count; ++i) {
        char name[16] = "";
        interface_template* element = rcl_client_intf_templ_list_data_get(D, S, x, i, st);
        rcl_client_intf_templ_name_get(D, S, element, name, sizeof name, st);
        printf("  element %u: %s\n", i, name);
    }
    printf("  the source has %u characters left\n",
           rcl_client_intf_templ_max_intf_templ_length_get_value(D, S, source, st));
    rcl_client_intf_templ_destroy(D, S, source);
    rcl_client_intf_templ_list_destroy(D, S, x); /* with its elements: they are never destroyed alone */
}

int main(void) {
    const platform_domain_options options = {.tracking = ZUR_TRACKED_MODE};
    zur_domain* D = platform_domain_create(&options);
    uint32_t st = 0;
    lists(D, &st);
    arrays(D, &st);
    arrays_of_records(D, &st);
    platform_domain_destroy(D);
    return st != 0;
}
