// Instances owned by std::unique_ptr. One template serves all types: it gets the type's create and destroy functions,
// and the compiler deduces the type from them. If you like the idiom, copy this file.
#pragma once

#include <orlan_epm.h>

#include <memory>
#include <type_traits>
#include <utility>

template <auto destroy>
struct Destroyer {
    zur_domain* D = nullptr;
    uint32_t S = ZUR_NO_SET;

    template <class Type>
    void operator()(Type* x) const {
        destroy(D, S, x);
    }
};

/// Returns null when the Domain refuses memory. The Domain must outlive what it has created.
template <auto create, auto destroy>
auto create_instance(zur_domain* D, uint32_t S = ZUR_NO_SET) {
    using Type = std::remove_pointer_t<decltype(create(D, S))>;
    return std::unique_ptr<Type, Destroyer<destroy>>(create(D, S), {D, S});
}

/// CREATE(rcl_client_vlan_t, D) or CREATE(rcl_client_vlan_t, D, S) creates an owned Instance of the type.
#define CREATE(type, ...) (create_instance<&type##_create, &type##_destroy>(__VA_ARGS__))

/// Hands an Instance to a setter that takes it, such as an arm's or a list's. The setter does not take it when it
/// leaves 43 or when the status word was raised before; then the Instance stays with its owner.
template <class Setter, class Record, class Owned>
void give(Setter set, zur_domain* D, uint32_t S, Record* x, Owned&& owned, uint32_t* st) {
    if (*st != 0) return;
    set(D, S, x, owned.get(), st);
    if (*st != 43) owned.release();
}
