/*
 * A process that keeps its Instances in its own memory and sees each write before it happens, as a persistent store
 * must. It has an allocator with a limit, the Domain's write hook, and the judge of list links. Each of them prints
 * what it is called with, by block and offset.
 */
#include <orlan_epm.h>
#include <platform/domain.h>
#include <platform/store.h>
#include <stdio.h>
#include <stdlib.h>

#define S 7u /* the store set of all calls here; every hook receives it */

/** The store: blocks by number, and how many bytes may be in use. */
struct store {
    struct block {
        char* start;
        size_t size;
    } blocks[32];
    unsigned count;
    size_t in_use, limit;
};

static const struct block* block_of(const struct store* store, const void* address) {
    for (unsigned i = 0; i < store->count; ++i) {
        const struct block* block = &store->blocks[i];
        const char* at = address;
        if (block->start != NULL && at >= block->start && at < block->start + block->size) return block;
    }
    return NULL;
}

static void* allocate(void* obj_store, uint32_t set_id, size_t size) {
    struct store* store = obj_store;
    const int is_refused = store->in_use + size > store->limit || store->count == 32;
    void* memory = is_refused ? NULL : malloc(size);
    printf("  set %u: %zu bytes -> ", set_id, size);
    if (memory == NULL) {
        puts("refused");
        return NULL;
    }
    store->in_use += size;
    store->blocks[store->count] = (struct block){memory, size};
    printf("block %u\n", store->count++);
    return memory;
}

static void release(void* obj_store, uint32_t set_id, void* memory) {
    struct store* store = obj_store;
    struct block* block = (struct block*)block_of(store, memory);
    if (block == NULL) abort(); /* not ours, or already released */
    printf("  set %u: block %td goes\n", set_id, block - store->blocks);
    store->in_use -= block->size;
    block->start = NULL;
    free(memory);
}

static void show_range(const struct store* store, const char* what, uint32_t set_id, void* address, uint32_t length) {
    const struct block* block = block_of(store, address);
    if (block == NULL) abort(); /* a write outside of every block would be lost */
    printf("  set %u: %s block %td + %td, %u bytes\n", set_id, what, block - store->blocks,
           (char*)address - block->start, length);
}

static void announce_write(zur_domain* D, void* address, uint32_t length, uint32_t set_id, void* owner) {
    (void)owner;
    show_range(D->obj_store, "write", set_id, address, length);
}

static int judge_link(void* context, void* store, void* address, uint32_t length, uint32_t set_id) {
    (void)context;
    show_range(store, "link", set_id, address, length);
    return 1; /* 0 would end the process: a store that loses links is damaged */
}

int main(void) {
    struct store store = {.limit = 400};
    const platform_domain_options options = {.obj_store = &store, .obj_alloc_fn = allocate, .obj_free_fn = release};
    zur_domain* D = platform_domain_create(&options);
    if (D == NULL) return 1;
    D->write_range_fn = announce_write;
    platform_set_range_judge(judge_link, NULL);
    uint32_t st = 0;

    puts("A VLAN group: the Instance is one block, each text and array another.");
    struct orlan_ial_vlan_group_info* group = orlan_ial_vlan_group_info_create(D, S);
    puts(" a number:");
    orlan_ial_vlan_group_info_is_added_set_value(D, S, group, 1, &st);
    puts(" a text, and another in its place:");
    orlan_ial_vlan_group_info_gp_name_set(D, S, group, "guests", 6, &st);
    orlan_ial_vlan_group_info_gp_name_set(D, S, group, "staff", 5, &st);
    puts(" an array:");
    const uint32_t vlans[] = {10, 20, 30};
    orlan_ial_vlan_group_info_vlans_set_mem(D, S, group, vlans, 3, &st);
    printf(" status %u, %zu bytes in use\n", st, store.in_use);

    puts("A client's lists: an element is linked, and its links are judged as well.");
    struct rcl_client_acl_t* lists = rcl_client_acl_t_create(D, S);
    struct epm_client_acl_feat_ctx* context = epm_client_acl_feat_ctx_create(D, S);
    rcl_client_acl_t_bm_feat_ctx_list_set_last(D, S, lists, context, &st);
    printf(" status %u, %zu bytes in use\n", st, store.in_use);

    puts("More than the store has: the call leaves 12, and what has been stored stays.");
    orlan_ial_vlan_group_info_vlans_set_value(D, S, group, 99, 40, &st);
    printf(" status %u\n", st);
    st = 0;
    printf(" vlans[2] is %u\n", orlan_ial_vlan_group_info_vlans_get_value(D, S, group, 2, &st));

    puts("Destruction gives everything back.");
    rcl_client_acl_t_destroy(D, S, lists);
    orlan_ial_vlan_group_info_destroy(D, S, group);
    printf(" %zu bytes in use\n", store.in_use);
    platform_domain_destroy(D);
    return st != 0 || store.in_use != 0;
}
