// libpmemobj, loaded by name. It reads the address for its mappings from the environment, once, when it is loaded. So
// it is not linked: this library sets the variable first.
#pragma once

#include <libpmemobj.h>

#include <cstdint>

namespace durable {

#define DURABLE_PMEMOBJ(X)                                                                                             \
    X(check)                                                                                                           \
    X(close)                                                                                                           \
    X(create)                                                                                                          \
    X(errormsg)                                                                                                        \
    X(first)                                                                                                           \
    X(alloc_usable_size)                                                                                               \
    X(next)                                                                                                            \
    X(open)                                                                                                            \
    X(root)                                                                                                            \
    X(tx_abort)                                                                                                        \
    X(tx_begin)                                                                                                        \
    X(tx_commit)                                                                                                       \
    X(tx_end)                                                                                                          \
    X(tx_stage)                                                                                                        \
    X(tx_xadd_range_direct)                                                                                            \
    X(tx_xalloc)                                                                                                       \
    X(tx_xfree)

struct Pmemobj {
#define DURABLE_MEMBER(name) decltype(&::pmemobj_##name) name = nullptr;
    DURABLE_PMEMOBJ(DURABLE_MEMBER)
#undef DURABLE_MEMBER

    bool is_loaded = false;
    std::uintptr_t first_address = 0; ///< where libpmemobj begins to look for room
};

/// Loaded when this library is.
extern Pmemobj pmemobj;

} // namespace durable
