/*
 * Values of imported types: an Ethernet address, an IP address, a byte string and a string object, set and read.
 */
#include <orlan_epm.h>
#include <platform/domain.h>
#include <platform/values.h>
#include <stdio.h>

#define S ZUR_NO_SET

static void ethernet_address(zur_domain* D, uint32_t* st) {
    static const uint8_t bytes[6] = {0x02, 0x00, 0x5e, 0x10, 0x00, 0x01};
    uint8_t back[6];
    struct zur_mac_addr value = {{0}};
    struct rcl_client_iaf_t* x = rcl_client_iaf_t_create(D, S);
    platform_zur_mac_addr_write(D, S, &value, bytes, st);
    rcl_client_iaf_t_mac_set(D, S, x, &value, st);
    platform_zur_mac_addr_read(rcl_client_iaf_t_mac_get(D, S, x, st), back);
    printf("mac: %02x:%02x:%02x:%02x:%02x:%02x\n", back[0], back[1], back[2], back[3], back[4], back[5]);
    rcl_client_iaf_t_destroy(D, S, x);
}

static void ip_addresses(zur_domain* D, uint32_t* st) {
    static const uint8_t four[4] = {192, 0, 2, 80};
    static const uint8_t six[16] = {0x20, 0x01, 0x0d, 0xb8, [15] = 1};
    struct webauth_watch_list* x = webauth_watch_list_create(D, S);
    uint8_t back[16];
    for (uint32_t family = 4; family <= 6; family += 2) {
        /* Writes into the record itself: no value of our own, and nothing to release. */
        struct ip_address* address = webauth_watch_list_wl_ip_get(D, S, x, st);
        platform_ip_address_write(D, S, address, family, family == 4 ? four : six, st);
        printf("wl_ip: family %u,", platform_ip_address_read(address, back));
        for (uint32_t i = 0; i < (family == 4 ? 4 : 16); ++i) printf(" %u", back[i]);
        puts("");
    }
    webauth_watch_list_destroy(D, S, x);
}

static void bytes_and_strings(zur_domain* D, uint32_t* st) {
    struct kesh_bytestr key = {0};
    struct linksec_eap_keys* keys = linksec_eap_keys_create(D, S);
    uint32_t length = 0;
    platform_kesh_bytestr_write(D, S, &key, (const uint8_t*)"\x01\x02\x03", 3, st);
    linksec_eap_keys_msk_set(D, S, keys, &key, st); /* moves: key is empty now */
    platform_kesh_bytestr_read(linksec_eap_keys_msk_get(D, S, keys, st), &length);
    printf("msk: %u bytes in the record", length);
    platform_kesh_bytestr_read(&key, &length);
    printf(", %u left in our value\n", length);
    linksec_eap_keys_destroy(D, S, keys);

    struct zur_vstring name = {0};
    platform_zur_vstring_write(D, S, &name, "uplink", 6, st);
    printf("string object: %s\n", platform_zur_vstring_read(&name, &length));
    zur_vstring_destroy_internal(D, S, &name, 0); /* it never moved into a record, so we release it */
}

int main(void) {
    zur_domain* D = platform_domain_create(NULL);
    uint32_t st = 0;
    ethernet_address(D, &st);
    ip_addresses(D, &st);
    bytes_and_strings(D, &st);
    platform_domain_destroy(D);
    return st != 0;
}
