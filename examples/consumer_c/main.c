/*
 * The smallest useful program in C: it sends a VLAN group from one Domain to another in wire form, and shows its
 * members. It needs only what is installed.
 */
#include <orlan_epm.h>
#include <platform/domain.h>

#include <stdio.h>
#include <string.h>

int main(void) {
    static const char name[] = "guests";
    static const uint32_t vlans[] = {110, 120, 130};
    const uint32_t S = ZUR_NO_SET;
    uint32_t st = 0;
    uint8_t wire[256];
    char received_name[32] = "";
    uint32_t received_vlans[8] = {0};

    zur_domain* D = platform_domain_create(NULL);
    zur_domain* peer = platform_domain_create(NULL);
    struct orlan_ial_vlan_group_info* group = orlan_ial_vlan_group_info_create(D, S);
    struct orlan_ial_vlan_group_info* received = orlan_ial_vlan_group_info_create(peer, S);
    if (group == NULL || received == NULL) return 1;

    orlan_ial_vlan_group_info_is_added_set_value(D, S, group, 1, &st);
    orlan_ial_vlan_group_info_gp_name_set(D, S, group, name, (uint32_t)strlen(name), &st);
    orlan_ial_vlan_group_info_vlans_set_mem(D, S, group, vlans, 3, &st);
    const uint32_t length = orlan_ial_vlan_group_info_marshal(D, S, wire, group, sizeof wire, &st);

    const uint32_t used = orlan_ial_vlan_group_info_unmarshal(peer, S, wire, received, (int32_t)length, 0, &st);
    if (st == 0 && used != length) st = ZUR_WRONG_LENGTH; /* truncated, or more bytes than the message */
    orlan_ial_vlan_group_info_gp_name_get(peer, S, received, received_name, sizeof received_name, &st);
    const uint32_t count = orlan_ial_vlan_group_info_max_vlan_get_value(peer, S, received, &st);
    if (count <= sizeof received_vlans / sizeof received_vlans[0])
        orlan_ial_vlan_group_info_vlans_get_mem(peer, S, received, received_vlans, count, &st);

    printf("%s:", received_name);
    for (uint32_t i = 0; i < count && st == 0; ++i) printf(" %u", (unsigned)received_vlans[i]);
    printf(" (%u bytes, status %u)\n", (unsigned)length, (unsigned)st);

    orlan_ial_vlan_group_info_destroy(D, S, group);
    orlan_ial_vlan_group_info_destroy(peer, S, received);
    platform_domain_destroy(D);
    platform_domain_destroy(peer);
    return st != 0;
}
