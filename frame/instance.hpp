// Access to an Instance's memory, and the small steps that every operation shares: announcing a write, leaving an
// error, testing the variant, recording containment.
#pragma once

#include "frame/plain.hpp"

#include <zur/foreign.h>

#include <cstring>

namespace epm {

using catalogue::Enum;
using catalogue::Field;
using catalogue::Kind;
using catalogue::Record;

using Domain = zur_domain;
using Instance = zur_instance;

/// An enum Instance: the header, then the enumerator's number.
struct EnumInstance {
    const zur_type_info* type_info;
    std::int8_t variant;
    std::int8_t layout_variant;
    std::uint8_t flags;
    std::uint8_t unused;
    std::uint32_t value;
};
static_assert(sizeof(EnumInstance) == catalogue::enum_length &&
              offsetof(EnumInstance, value) == catalogue::header_length);

/// The link members of a list element.
struct Links {
    struct ListHead* list_head;
    void* next; ///< next element, or the head itself
    void* prev;
};
static_assert(sizeof(Links) == catalogue::link_length);

/// A list's sentinel, inside the owner. `first` and `last` refer to the head itself while the list is empty.
struct ListHead {
    void* first;
    void* last;
    Instance* owner;
    std::uint32_t count;
};
static_assert(offsetof(ListHead, count) + sizeof(std::uint32_t) == catalogue::list_head_length);

inline Instance* header(void* instance) {
    return static_cast<Instance*>(instance);
}
inline const Instance* header(const void* instance) {
    return static_cast<const Instance*>(instance);
}
inline bool has_flag(const Instance* x, std::uint8_t flag) {
    return (x->flags & flag) != 0;
}

template <class T = void>
T* at(void* base, std::size_t offset) {
    return reinterpret_cast<T*>(static_cast<unsigned char*>(base) + offset);
}
template <class T = void>
const T* at(const void* base, std::size_t offset) {
    return reinterpret_cast<const T*>(static_cast<const unsigned char*>(base) + offset);
}

/// The layout of an Instance's memory, as far as this build knows it. A store may hold Instances of a later layout; for
/// those the newest known one counts.
inline std::size_t known_layout(const Instance* x, std::int8_t top) {
    return std::min(static_cast<std::uint8_t>(x->layout_variant), static_cast<std::uint8_t>(top));
}

/// A field's storage inside the Instance.
template <const Record& R, std::size_t I, class T = void>
T* field(Instance* x) {
    return at<T>(x, catalogue::layout<R>.offset[I]);
}
template <const Record& R, std::size_t I, class T = void>
const T* field(const Instance* x) {
    return at<T>(x, catalogue::layout<R>.offset[I]);
}

inline constexpr std::uint32_t pointer_length = 8;

/// Announces a write of `length` bytes, which the caller does afterwards.
inline void announce(Domain* D, std::uint32_t S, void* address, std::uint32_t length, void* owner) {
    if (D->write_range_fn != plain::idle_hook) D->write_range_fn(D, address, length, S, owner);
}

/// Announces the write of one object, then stores it.
template <class T>
inline void store(Domain* D, std::uint32_t S, T* address, std::type_identity_t<T> value, void* owner) {
    announce(D, S, address, sizeof(T), owner);
    *address = value;
}

inline void* allocate(Domain* D, std::uint32_t S, std::size_t size) {
    return D->obj_alloc_fn(D->obj_store, S, size);
}
inline void release(Domain* D, std::uint32_t S, void* block) {
    D->obj_free_fn(D->obj_store, S, block);
}

/// Leaves an error in the status word and in the Domain.
[[gnu::cold, gnu::noinline]] inline void fail(Domain* D, std::uint32_t* st, std::uint32_t code) {
    *st = code;
    zur_store_err(D, code);
}

[[gnu::cold, gnu::noinline]] inline void fail_variant(Domain* D, std::uint32_t* st) {
    zur_store_epoch_err(D, ZUR_NOT_IN_VARIANT, st);
}

/// Checks that the Instance's variant has a field, otherwise leaves the error. `enumerated` says to the runtime whether
/// the field is a boolean or an enumeration.
inline bool in_variant(Domain* D, const void* x, std::int8_t since, int enumerated, std::uint32_t* st) {
    if (zur_get_instance_variant(x, 1, enumerated) >= since) return true;
    fail_variant(D, st);
    return false;
}

inline void record_containment(Domain* D, std::uint32_t S, const void* child, const void* parent) {
    if (D->containment_on != 0) zurdb_record_containment2(D, S, const_cast<void*>(child), const_cast<void*>(parent), 1);
}

/// Whether the store wants marks for Instances of this set.
inline bool marks_store(const Domain* D, std::uint32_t S) {
    return D->containment_on != 0 && S != ZUR_NO_SET && D->store_mode == 1;
}

/// The variant to give an Instance: the agreed one, capped at the type's highest. A negative answer stays.
constexpr std::int8_t capped(std::int32_t agreed, std::int8_t top) {
    return std::min(static_cast<std::int8_t>(agreed), top);
}

} // namespace epm
