// The heap storage of texts and arrays as a reader replaces it: what to release, what to keep, what to allocate. A
// count from the wire is multiplied in 64 bits, and the Domain may refuse the result.
#pragma once

#include "frame/instance.hpp"

#include <limits>

namespace epm::wire {

/// The storage behind a field's pointer member.
struct Storage {
    Domain* D;
    std::uint32_t S;
    void** pointer;
    Instance* owner;
    std::uint32_t* st;

    /// Frees the storage, if there is any, and clears the pointer.
    void drop() const {
        if (*pointer != nullptr) release(D, S, *pointer);
        store(D, S, pointer, nullptr, owner);
    }
    /// Makes room for `units` units: the present storage if `kept`, else new storage that is not zeroed. Returns the
    /// size in bytes, or 0 when the Domain refuses.
    template <class UnitSize>
    std::size_t provide(bool kept, std::size_t units, UnitSize unit_size) const {
        if (!kept) drop();
        const std::size_t size = units * unit_size(D);
        if (kept) {
            constexpr std::size_t longest = std::numeric_limits<std::uint32_t>::max();
            announce(D, S, *pointer, static_cast<std::uint32_t>(std::min(size, longest)), owner);
            return size;
        }
        *pointer = allocate(D, S, size);
        if (*pointer != nullptr) return size;
        fail(D, st, ZUR_NO_MEMORY);
        return 0;
    }
};

} // namespace epm::wire
