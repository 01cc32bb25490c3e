// The heap storage of texts and arrays as a reader replaces it: what is given up, what is kept, what is asked of the
// Domain. A count from the wire is multiplied in 64 bits and is the Domain's to refuse.
#pragma once

#include "frame/instance.hpp"

#include <limits>

namespace epm::wire {

/// Frees what a field holds, if anything, and clears its pointer.
inline void drop(Domain* D, std::uint32_t S, void** storage, Instance* owner) {
    if (*storage != nullptr) release(D, S, *storage);
    store(D, S, storage, nullptr, owner);
}

/// Gives a field storage for `units` units: what it holds where that is `kept`, else new and not yet zeroed. The result
/// is the size in bytes, 0 when the Domain refuses.
template <class UnitSize>
std::size_t provide(Domain* D, std::uint32_t S, void** storage, bool kept, std::size_t units, UnitSize unit_size,
                    Instance* owner, std::uint32_t* st) {
    if (!kept) drop(D, S, storage, owner);
    const std::size_t size = units * unit_size(D);
    if (kept) {
        constexpr std::size_t longest = std::numeric_limits<std::uint32_t>::max();
        announce(D, S, *storage, static_cast<std::uint32_t>(std::min(size, longest)), owner);
        return size;
    }
    *storage = allocate(D, S, size);
    if (*storage != nullptr) return size;
    fail(D, st, ZUR_NO_MEMORY);
    return 0;
}

} // namespace epm::wire
