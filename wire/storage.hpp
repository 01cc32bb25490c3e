// The heap storage of texts and arrays as a reader replaces it: what to release, what to keep, what to allocate. A
// count from the wire is multiplied in 64 bits, and the Domain may refuse the result.
#pragma once

#include "frame/instance.hpp"

#include <limits>

namespace epm::wire {

/// Frees what a field holds, if anything, and clears its pointer.
inline void drop(Domain* D, std::uint32_t S, void** storage, Instance* owner) {
    if (*storage != nullptr) release(D, S, *storage);
    store(D, S, storage, nullptr, owner);
}

/// Gives a field storage for `units` units: the present storage if `kept`, else new storage that is not zeroed. Returns
/// the size in bytes, or 0 when the Domain refuses.
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
