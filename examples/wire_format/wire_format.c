/*
 * Shows one message byte by byte, untracked and tracked: the bytes that the library writes, and next to them the names
 * of what a reader of the format expects there. Every byte must have a name, and every name its bytes.
 */
#include <orlan_epm.h>
#include <platform/domain.h>
#include <stdio.h>

#define S ZUR_NO_SET

/** The parts of the message, in order: bytes of the field, and of the state flags that follow it in tracked mode. */
static const struct part {
    const char* name;
    uint32_t length, flags;
} parts[] = {
    {"variant byte", 1, 0},
    {"flag byte", 1, 0},
    {"jump word", 4, 0},
    {"epm_type: variant byte", 1, 0},
    {"epm_type", 4, 1},
    {"port_info", 0, 1},
    {"group_info: variant byte", 1, 0},
    {"group_info: flag byte", 1, 0},
    {"group_info: jump word", 4, 0},
    {"group_info.is_added", 4, 1},
    {"group_info.max_vlan", 4, 0},
    {"group_info.vlans", 8, 3},
    {"group_info.num_of_vlans", 4, 1},
    {"group_info.max_acl_length", 4, 0},
    {"group_info.gp_name", 3, 1},
    {"group_info", 0, 1},
    {"the seven arms behind it", 0, 7},
};

static void show(const uint8_t* bytes, uint32_t offset, uint32_t length, const char* name, const char* what) {
    if (length == 0) return;
    printf("%6u  ", offset);
    for (uint32_t i = 0; i < length; ++i) printf("%02x ", bytes[offset + i]);
    printf("%*s %s%s\n", 24 - 3 * (int)length, "", name, what);
}

/** Builds the message in a Domain of that mode and shows its bytes. Returns 0 when every byte has a name. */
static int show_message(uint32_t tracking) {
    const platform_domain_options options = {.tracking = tracking};
    zur_domain* D = platform_domain_create(&options);
    const uint32_t vlans[] = {10, 20};
    uint8_t wire[128];
    uint32_t st = 0, offset = 0;

    struct orlan_ial_vlan_group_info* group = orlan_ial_vlan_group_info_create(D, S);
    orlan_ial_vlan_group_info_is_added_set_value(D, S, group, 1, &st);
    orlan_ial_vlan_group_info_vlans_set_mem(D, S, group, vlans, 2, &st);
    orlan_ial_vlan_group_info_vlans_set_value(D, S, group, 1, 20, &st);
    orlan_ial_vlan_group_info_num_of_vlans_set_value(D, S, group, 2, &st);
    orlan_ial_vlan_group_info_gp_name_set(D, S, group, "abc", 3, &st);
    struct orlan_ial_in_svm_epm_data* message = orlan_ial_in_svm_epm_data_create(D, S);
    orlan_ial_in_svm_epm_data_group_info_set(D, S, message, group, &st);

    const uint32_t length = orlan_ial_in_svm_epm_data_marshal(D, S, wire, message, sizeof wire - 1, &st);
    printf("%s, %u bytes, status %u\n", tracking == ZUR_TRACKED_MODE ? "tracked" : "untracked", length, st);
    for (size_t i = 0; i < sizeof parts / sizeof *parts; ++i) {
        const uint32_t flags = tracking == ZUR_TRACKED_MODE ? parts[i].flags : 0;
        show(wire, offset, parts[i].length, parts[i].name, "");
        show(wire, offset + parts[i].length, flags, parts[i].name, flags == 1 ? ": state flag" : ": state flags");
        offset += parts[i].length + flags;
    }
    orlan_ial_in_svm_epm_data_destroy(D, S, message);
    platform_domain_destroy(D);
    return st != 0 || offset != length;
}

int main(void) {
    const int untracked = show_message(ZUR_UNTRACKED_MODE);
    putchar('\n');
    return show_message(ZUR_TRACKED_MODE) || untracked;
}
