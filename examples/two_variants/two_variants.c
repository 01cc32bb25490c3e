/*
 * Sends one access-control entry between peers at different software levels, and shows what each of them writes, reads
 * and refuses. In between it shows the library's own traces as sentences.
 */
#define _GNU_SOURCE /* dladdr() */
#include <dlfcn.h>
#include <orlan_epm.h>
#include <platform/domain.h>
#include <platform/trace.h>
#include <stdio.h>
#include <string.h>

#define TYPE "orlan_ial_svm_acl_data"
#define S ZUR_NO_SET

typedef struct orlan_ial_svm_acl_data entry;

/** Shows one field of each variant of an entry. Fields that the variant in force lacks are refused with 43. */
static void show(zur_domain* D, const char* who, const entry* x) {
    uint32_t st[3] = {0, 0, 0};
    const uint32_t sequence = orlan_ial_svm_acl_data_sequence_get_value(D, S, x, &st[0]);
    const uint32_t p_sequence = orlan_ial_svm_acl_data_p_sequence_get_value(D, S, x, &st[1]);
    const uint32_t ip_addr = orlan_ial_svm_acl_data_ip_addr_get_value(D, S, x, &st[2]);
    const zur_instance* header = (const zur_instance*)(const void*)x;
    printf("  %s: variant %d, layout variant %d; sequence %u (status %u), p_sequence %u (%u), ip_addr %u (%u)\n", who,
           header->variant, header->layout_variant, sequence, st[0], p_sequence, st[1], ip_addr, st[2]);
}

/** Creates an entry with all three fields, as far as the Domain's variant has them. */
static entry* filled(zur_domain* D) {
    entry* x = orlan_ial_svm_acl_data_create(D, S);
    uint32_t st[4] = {0, 0, 0, 0};
    orlan_ial_svm_acl_data_acl_name_set(D, S, x, "guest-in", 8, &st[0]);
    orlan_ial_svm_acl_data_sequence_set_value(D, S, x, 10, &st[1]);
    orlan_ial_svm_acl_data_p_sequence_set_value(D, S, x, 20, &st[2]);
    orlan_ial_svm_acl_data_ip_addr_set_value(D, S, x, 30, &st[3]);
    printf("  set: sequence status %u, p_sequence %u, ip_addr %u\n", st[1], st[2], st[3]);
    return x;
}

/** Writes the entry in D and reads it in P, into an Instance of a build that knows the type up to `level`. */
static void exchange(zur_domain* D, const entry* x, zur_domain* P, int8_t level) {
    uint8_t wire[256];
    uint32_t st = 0;
    const uint32_t length = orlan_ial_svm_acl_data_marshal(D, S, wire, x, sizeof wire - 1, &st);
    printf("  written: %u bytes, variant byte %d, status %u\n", length, (int8_t)wire[0], st);
    if (st != 0) return; /* the bytes are incomplete: do not send them */

    entry* received = orlan_ial_svm_acl_data_create(P, S);
    zur_instance* header = (zur_instance*)(void*)received;
    if (header->layout_variant > level) header->variant = header->layout_variant = level;
    const uint32_t consumed = orlan_ial_svm_acl_data_unmarshal(P, S, wire, received, (int32_t)length, 0, &st);
    if (st == 0 && consumed != length) st = ZUR_WRONG_LENGTH; /* skipped bytes count as well */
    printf("  read: %u bytes, status %u\n", consumed, st);
    show(P, "received", received);
    orlan_ial_svm_acl_data_destroy(P, S, received);
}

static void show_trace(void* reader, const platform_trace_record* record) {
    char text[256];
    if (platform_trace_join(reader, record, text, sizeof text) > 0)
        printf("  trace, level %u:%s\n", record->level, text);
}

int main(void) {
    char message[256] = "";
    Dl_info library; /* the file has the traces' texts */
    platform_trace_reader* reader = dladdr(dlsym(RTLD_DEFAULT, TYPE "_create"), &library) != 0
                                        ? platform_trace_open(library.dli_fname, message, sizeof message)
                                        : NULL;
    if (reader == NULL) {
        fprintf(stderr, "%s\n", message);
        return 2;
    }
    platform_trace_set_sink(show_trace, reader);
    zur_domain* newer = platform_domain_create(NULL); /* speaks the highest variants */
    zur_domain* older = platform_domain_create(NULL);
    platform_domain_agree(older, TYPE, 0); /* speaks variant 0 of this type */

    puts("Two new peers: every field arrives.");
    entry* x = filled(newer);
    exchange(newer, x, newer, 2);

    puts("A new writer, a reader whose build knows variant 0: it jumps over what it does not know.");
    exchange(newer, x, older, 0);

    puts("The writer learns that its peer speaks variant 0: the entry is too new to be written for it.");
    platform_domain_agree(newer, TYPE, 0);
    exchange(newer, x, older, 0);
    orlan_ial_svm_acl_data_destroy(newer, S, x);

    puts("An entry created for that peer holds variant 0 only, and goes through.");
    x = filled(newer);
    exchange(newer, x, older, 0);

    puts("An old writer, a new reader: the fields of later variants are absent.");
    exchange(older, x, newer, 2);

    puts("The peer is upgraded: the next setter raises the Instance.");
    platform_domain_agree(newer, TYPE, 2);
    show(newer, "before", x);
    uint32_t st = 0;
    orlan_ial_svm_acl_data_ip_addr_set_value(newer, S, x, 30, &st);
    show(newer, "after", x);
    orlan_ial_svm_acl_data_destroy(newer, S, x);

    platform_domain_destroy(newer);
    platform_domain_destroy(older);
    platform_trace_set_sink(NULL, NULL);
    platform_trace_close(reader);
    return st != 0;
}
