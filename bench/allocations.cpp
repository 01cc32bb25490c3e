// Counts what is allocated; preloaded before the program whose allocations are to be known. The C++ library's
// operator new ends here too.
#include <atomic>
#include <cstddef>
#include <cstdint>

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

static std::atomic<std::uint64_t> allocations;

std::uint64_t bench_allocations() {
    return allocations;
}

void* malloc(std::size_t size) {
    ++allocations;
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    ++allocations;
    return __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
    ++allocations;
    return __libc_realloc(block, size);
}
}
