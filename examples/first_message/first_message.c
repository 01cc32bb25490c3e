#include <orlan_epm.h>
#include <platform/domain.h>
#include <stdio.h>
#include <sys/socket.h>

int main(void) {
    zur_domain *D = platform_domain_create(NULL), *P = platform_domain_create(NULL); /* our Domain, and the peer's */
    uint32_t S = ZUR_NO_SET, st = 0;
    char wire[512], text[2048] = {0};
    int ends[2];
    if (D == NULL || P == NULL || socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0) return 1;

    /* Build. The message owns the entry from acl_data_set() on. */
    struct orlan_ial_svm_acl_data* entry = orlan_ial_svm_acl_data_create(D, S);
    orlan_ial_svm_acl_data_acl_name_set(D, S, entry, "guest-in", 8, &st);
    orlan_ial_svm_acl_data_sequence_set_value(D, S, entry, 10, &st);
    struct orlan_ial_svm_epm_data* message = orlan_ial_svm_epm_data_create(D, S);
    orlan_ial_svm_epm_data_acl_data_set(D, S, message, entry, &st);

    /* Send. */
    uint32_t length = orlan_ial_svm_epm_data_marshal(D, S, wire, message, sizeof wire, &st);
    orlan_ial_svm_epm_data_destroy(D, S, message);
    if (st != 0 || send(ends[0], wire, length, 0) < 0) return 1;

    /* Receive. */
    struct orlan_ial_svm_epm_data* received = orlan_ial_svm_epm_data_create(P, S);
    int32_t room = (int32_t)recv(ends[1], wire, sizeof wire - 1, 0);
    uint32_t used = orlan_ial_svm_epm_data_unmarshal(P, S, wire, received, room, 0, &st);
    if (st == 0 && used != (uint32_t)room) st = ZUR_WRONG_LENGTH; /* a truncated message may show only here */

    /* Print. Rely on the returned length: print() skips a few bytes before a brace, so the text may contain NULs. */
    uint32_t shown = orlan_ial_svm_epm_data_print(P, S, text, 0, "received", received, sizeof text, &st);
    for (uint32_t i = 0; st == 0 && i < shown; ++i) putchar(text[i] ? text[i] : ' ');
    orlan_ial_svm_epm_data_destroy(P, S, received);
    platform_domain_destroy(D);
    platform_domain_destroy(P);
    return st != 0;
}
