// malloc and free with a Domain's lists of released blocks; preloaded so that the peers too get their memory from such
// lists. The C++ library's operator new ends here too. For one thread.
#include "platform/common/block_lists.hpp"

#include <cerrno>
#include <cstring>
#include <malloc.h>

namespace {

using platform::BlockLists;

constinit BlockLists kept;
constinit std::size_t room = 1u << 20; // as much as a Domain keeps

} // namespace

extern "C" {

extern const bool bench_is_pooled; // by which the program knows
const bool bench_is_pooled = true;

void* __libc_malloc(std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);

void* malloc(std::size_t request) {
    if (request > BlockLists::largest) return __libc_malloc(request);
    const std::size_t size = BlockLists::size_for(request);
    if (!kept.has(size)) return __libc_malloc(size);
    room += size;
    return kept.pop(size);
}

void free(void* block) {
    if (block == nullptr) return;
    const std::size_t usable = malloc_usable_size(block), size = BlockLists::size_of(usable);
    if (!BlockLists::takes(usable) || size > room) return __libc_free(block);
    room -= size;
    kept.push(size, block);
}

void* calloc(std::size_t count, std::size_t size) {
    std::size_t whole;
    if (__builtin_mul_overflow(count, size, &whole)) return errno = ENOMEM, nullptr;
    void* block = malloc(whole);
    return block != nullptr ? std::memset(block, 0, whole) : nullptr;
}

void* realloc(void* block, std::size_t size) {
    return __libc_realloc(block, size);
}
}
