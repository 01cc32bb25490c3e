// Deep copies: a record travels through its wire form in a workspace. There is no other copying code.
#pragma once

#include "wire/marshal.hpp"
#include "wire/unmarshal.hpp"

namespace epm::wire {

/// Clones into the Instance that the reference holds, or into a new one. Destroys a destination that cannot be filled,
/// even the caller's own. `reference` is the address of the caller's pointer, whose type is the record's own.
template <const Record& R>
void clone_internal(Domain* D, std::uint32_t S, const Instance* source, void* reference, void* workspace,
                    std::int32_t length, std::uint32_t* st) {
    if (*st != 0) return;
    zur_clear_last_error(D);
    if (reference == nullptr || workspace == nullptr) return fail(D, st, ZUR_ABSENT);
    auto** destination = static_cast<Instance**>(reference);
    const std::uint32_t used = marshal_worker<R>(D, S, workspace, source, length, 0, st);
    if (*st != 0) return;
    if (*destination == nullptr) {
        trace::init();
        *destination = lifecycle::create_internal<R>(D, S);
        if (*destination == nullptr) return fail(D, st, ZUR_NO_MEMORY);
    }
    unmarshal<R>(D, S, workspace, *destination, static_cast<std::int32_t>(used), 0, st);
    if (*st == 0) return;
    if (*destination != lifecycle::null_instance<R>()) lifecycle::destroy_internal<R>(D, S, *destination, 1);
    *destination = nullptr;
}

template <const Record& R>
void clone(Domain* D, std::uint32_t S, const Instance* source, void* reference, void* workspace, std::int32_t length,
           std::uint32_t* st) {
    if (reference != nullptr) *static_cast<Instance**>(reference) = nullptr;
    clone_internal<R>(D, S, source, reference, workspace, length, st);
}

/// A deep copy into an element, as a clone into an Instance of the caller's is made; only that an element which cannot
/// be filled stays in its place, because its memory is the array's.
template <const Record& E>
void clone_into(Domain* D, std::uint32_t S, Instance* element, const Instance* source, std::uint32_t* st) {
    void* workspace = nullptr;
    std::uint32_t length = 0;
    zurlib_get_handle_ws(D, &workspace, &length, nullptr);
    if (*st != 0) return;
    zur_clear_last_error(D);
    if (workspace == nullptr) return fail(D, st, ZUR_ABSENT);
    constexpr std::uint32_t longest = std::numeric_limits<std::int32_t>::max();
    const std::uint32_t used =
        marshal_worker<E>(D, S, workspace, source, static_cast<std::int32_t>(std::min(length, longest)), 0, st);
    if (*st == 0) unmarshal<E>(D, S, workspace, element, static_cast<std::int32_t>(used), 0, st);
}

/// In the workspace that the runtime hands out for `request`.
template <const Record& R>
Instance* clone_chained(Domain* D, const Instance* source, void* request) {
    void* workspace = nullptr;
    std::uint32_t length = 0;
    zurlib_get_handle_ws(D, &workspace, &length, request);
    Instance* copy = nullptr;
    constexpr std::uint32_t longest = std::numeric_limits<std::int32_t>::max();
    clone_internal<R>(D, D->cr_set_id, source, &copy, workspace, static_cast<std::int32_t>(std::min(length, longest)),
                      &D->last_error);
    return copy;
}

} // namespace epm::wire
