// Loads libpmemobj.
#include "pmemobj.hpp"

#include <cstdlib>
#include <dlfcn.h>

namespace durable {

Pmemobj pmemobj;

namespace {

constexpr char hint[] = "PMEM_MMAP_HINT";

// Between the addresses of sanitizers and the 32 TiB that valgrind offers; programs and libraries lie far above.
constexpr char address[] = "110000000000";

// Runs when the library is loaded, when a process hardly has threads that use the environment.
[[gnu::constructor]] void load() {
    const char* chosen = std::getenv(hint);
    pmemobj.first_address = std::strtoull(chosen != nullptr ? chosen : address, nullptr, 16);
    if (chosen == nullptr) setenv(hint, address, 1);
    void* library = dlopen("libpmemobj.so.1", RTLD_NOW | RTLD_LOCAL);
    if (chosen == nullptr) unsetenv(hint);
    if (library == nullptr) return;
    pmemobj.is_loaded = true;
#define DURABLE_LOAD(name)                                                                                             \
    pmemobj.name = reinterpret_cast<decltype(pmemobj.name)>(dlsym(library, "pmemobj_" #name));                         \
    pmemobj.is_loaded = pmemobj.is_loaded && pmemobj.name != nullptr;
    DURABLE_PMEMOBJ(DURABLE_LOAD)
#undef DURABLE_LOAD
}

} // namespace
} // namespace durable
