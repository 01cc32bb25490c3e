// The public headers with default visibility, so that a library exports what they declare and nothing else; and the few
// lines of error convention that start and end every operation here.
#pragma once

#pragma GCC visibility push(default)
#include "../include/platform/domain.h"
#include "../include/platform/store.h"
#include "../include/platform/trace.h"
#include "../include/platform/values.h"
#include "../include/platform/xml.h"
#include <zur/foreign.h>
#include <zur/plain.h>
#include <zur/runtime.h>
#pragma GCC visibility pop

#include <cstddef>
#include <cstdint>

namespace platform {

inline void fail(zur_domain* D, uint32_t code, uint32_t* st) {
    *st = code;
    D->last_error = code;
}

// True when an operation must do nothing because an earlier one of the chain has failed.
inline bool raised(zur_domain* D, const uint32_t* st) {
    if (*st != 0) return true;
    D->last_error = 0;
    return false;
}

inline void announce(zur_domain* D, uint32_t S, void* address, std::size_t length) {
    D->write_range_fn(D, address, static_cast<uint32_t>(length), S, nullptr);
}

// Runs code that may ask the C++ run-time library for memory, and catches everything it throws: all of that means lack
// of memory, or a length that no memory can have.
template <class Body>
uint32_t guarded(const Body& body) noexcept {
    try {
        body();
        return 0;
    } catch (...) {
        return ZUR_NO_MEMORY;
    }
}

inline uint32_t unsigned_room(int32_t room) {
    return room < 0 ? 0 : static_cast<uint32_t>(room);
}

} // namespace platform
