// Deep copies: a record travels through its wire form in a workspace. There is no other copying code.
#pragma once

#include "wire/marshal.hpp"
#include "wire/plain_reader.hpp"

namespace epm::wire {

/// The operations that copy a record of one type.
struct Cloning {
    decltype(&marshal<*catalogue::all_records[0]>) marshal;
    decltype(&marshal_worker<*catalogue::all_records[0]>) marshal_by_calls;
    decltype(&unmarshal<*catalogue::all_records[0]>) unmarshal;
    decltype(&lifecycle::create_internal<*catalogue::all_records[0]>) create;
    decltype(&lifecycle::destroy_internal<*catalogue::all_records[0]>) destroy;
    void* null;
};
template <const Record& R>
inline constexpr Cloning cloning = {marshal<R>,
                                    marshal_worker<R>,
                                    unmarshal<R>,
                                    lifecycle::create_internal<R>,
                                    lifecycle::destroy_internal<R>,
                                    lifecycle::null_record<R>};

/// Marshals for a copy in the same process, so the Domain's variant does not cap the outermost record's.
inline std::uint32_t marshal_for_clone(Domain* D, std::uint32_t S, void* buffer, const Instance* x, std::int32_t length,
                                       std::uint32_t* st, const Cloning& type) {
    if (x != nullptr && plain::is_open(D) && x->variant <= plain::agreed(D)) [[likely]]
        return type.marshal(D, S, buffer, x, length, st);
    return type.marshal_by_calls(D, S, buffer, x, length, 0, st);
}
template <const Record& R>
std::uint32_t marshal_for_clone(Domain* D, std::uint32_t S, void* buffer, const Instance* x, std::int32_t length,
                                std::uint32_t* st) {
    return marshal_for_clone(D, S, buffer, x, length, st, cloning<R>);
}

/// Clones into the Instance that the reference holds, or into a new one. Destroys a destination that cannot be filled,
/// even the caller's own. `reference` is the address of the caller's pointer, whose type is the record's own.
[[gnu::noinline]] inline void clone_internal(Domain* D, std::uint32_t S, const Instance* source, void* reference,
                                             void* workspace, std::int32_t length, std::uint32_t* st,
                                             const Cloning& type) {
    if (*st != 0) return;
    zur_clear_last_error(D);
    if (reference == nullptr || workspace == nullptr) return fail(D, st, ZUR_ABSENT);
    auto** destination = static_cast<Instance**>(reference);
    const std::uint32_t used = marshal_for_clone(D, S, workspace, source, length, st, type);
    if (*st != 0) return;
    if (*destination == nullptr) {
        trace::init();
        *destination = type.create(D, S);
        if (*destination == nullptr) return fail(D, st, ZUR_NO_MEMORY);
    }
    type.unmarshal(D, S, workspace, *destination, static_cast<std::int32_t>(used), 0, st);
    if (*st == 0) return;
    if (*destination != type.null) type.destroy(D, S, *destination, 1);
    *destination = nullptr;
}
template <const Record& R>
void clone_internal(Domain* D, std::uint32_t S, const Instance* source, void* reference, void* workspace,
                    std::int32_t length, std::uint32_t* st) {
    clone_internal(D, S, source, reference, workspace, length, st, cloning<R>);
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
        marshal_for_clone<E>(D, S, workspace, source, static_cast<std::int32_t>(std::min(length, longest)), st);
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
