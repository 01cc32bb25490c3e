/*
 * State tracking: the program sends the application of a list to an interface, then changes one field and sends it
 * again, and the peer learns from the state flags which field changed. It also shows each write that the library
 * announces meanwhile.
 */
#include <orlan_epm.h>
#include <platform/domain.h>
#include <stdio.h>

#define S ZUR_NO_SET

typedef struct orlan_ial_svm_acl_apply application;

static const char* watched; /* the Instance whose writes are shown */

static void show_write(zur_domain* D, void* address, uint32_t length, uint32_t set_id, void* owner) {
    (void)D, (void)set_id, (void)owner;
    if (watched != NULL) printf("  announced: %u bytes at offset %td\n", length, (const char*)address - watched);
}

static zur_domain* domain(uint32_t tracking) {
    const platform_domain_options options = {.tracking = tracking};
    return platform_domain_create(&options);
}

/** Shows the mark of each field: 2 if a setter has written the field since the marks were cleared. */
static void show_marks(zur_domain* D, application* x) {
    uint32_t st = 0;
    printf("  marks: acl_name %u", orlan_ial_svm_acl_apply_acl_name_state_flag_get(D, S, x, &st));
    printf(", iif_id %u", orlan_ial_svm_acl_apply_iif_id_state_flag_get(D, S, x, &st));
    printf(", priority %u", orlan_ial_svm_acl_apply_priority_state_flag_get(D, S, x, &st));
    printf(", flag %u (status %u)\n", orlan_ial_svm_acl_apply_flag_state_flag_get(D, S, x, &st), st);
}

/** Sends x to a peer, which reads it into the record that it already has. */
static void deliver(zur_domain* D, const application* x, zur_domain* P, application* held) {
    uint8_t wire[128];
    uint32_t st = 0;
    /* In tracked mode marshal() may write one byte past a full buffer, and the reader may read the byte after the
     * message. */
    const uint32_t length = orlan_ial_svm_acl_apply_marshal(D, S, wire, x, sizeof wire - 1, &st);
    const uint32_t used = orlan_ial_svm_acl_apply_unmarshal(P, S, wire, held, (int32_t)length, 1, &st);
    if (st == 0 && used != length) st = ZUR_WRONG_LENGTH;
    printf("  sent: %u bytes, flag byte %#04x; the peer's priority is %u (status %u)\n", length, wire[1],
           orlan_ial_svm_acl_apply_priority_get_value(P, S, held, &st), st);
}

int main(void) {
    zur_domain *D = domain(ZUR_TRACKED_MODE), *tracking = domain(ZUR_TRACKED_MODE), *plain = domain(ZUR_UNTRACKED_MODE);
    application *x = orlan_ial_svm_acl_apply_create(D, S), *held = orlan_ial_svm_acl_apply_create(tracking, S),
                *untracked = orlan_ial_svm_acl_apply_create(plain, S);
    uint32_t st = 0;
    D->write_range_fn = show_write;
    printf("An Instance takes %u bytes here, and %u in a Domain that does not track.\n",
           orlan_ial_svm_acl_apply_sizeof(D), orlan_ial_svm_acl_apply_sizeof(plain));

    puts("Every setter marks its field:");
    orlan_ial_svm_acl_apply_acl_name_set(D, S, x, "guest-in", 8, &st);
    orlan_ial_svm_acl_apply_iif_id_set_value(D, S, x, 0x10000001, &st);
    orlan_ial_svm_acl_apply_priority_set_value(D, S, x, 5, &st);
    orlan_ial_svm_acl_apply_flag_set_value(D, S, x, 1, &st);
    show_marks(D, x);
    deliver(D, x, tracking, held);

    puts("Both sides start from here, so both clear the marks:");
    orlan_ial_svm_acl_apply_set_all_state_tracking_flag(D, S, x, 0);
    orlan_ial_svm_acl_apply_set_all_state_tracking_flag(tracking, S, held, 0);
    show_marks(D, x);

    puts("One field changes: its value is announced, then its mark.");
    watched = (const char*)x;
    orlan_ial_svm_acl_apply_priority_set_value(D, S, x, 7, &st);
    watched = NULL;
    show_marks(D, x);

    puts("The marks travel, and tell the peer what is new:");
    deliver(D, x, tracking, held);
    show_marks(tracking, held);

    puts("A peer that does not track reads the same bytes, and passes over the marks:");
    deliver(D, x, plain, untracked);
    show_marks(plain, untracked);

    orlan_ial_svm_acl_apply_destroy(D, S, x);
    orlan_ial_svm_acl_apply_destroy(tracking, S, held);
    orlan_ial_svm_acl_apply_destroy(plain, S, untracked);
    platform_domain_destroy(D);
    platform_domain_destroy(tracking);
    platform_domain_destroy(plain);
    return st != 0;
}
