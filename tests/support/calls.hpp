// Exported operations in one line, for tests that need each only once; the signature follows from the arguments, which
// therefore have the types of the operation's own. D and its set go first; whole() and call() end with D's status word.
//     whole(D, "orlan_ial_svm_acl_data", "set", to, from);
//     const auto n = call<std::uint32_t>(D, record, field, "get_value", x);
//     bare(D, type, "destroy_internal", x, 0u);
#pragma once

#include "support/domains.hpp"
#include "support/library.hpp"

namespace epm::test {

/// An operation of a field.
template <class Result = void, class Type, class FieldType, class... A>
Result call(TestDomain& D, const Type& type, const FieldType& field, const std::string& name, A... arguments) {
    return operation<Result(zur_domain*, std::uint32_t, A..., std::uint32_t*)>(type, field, name)(D, D.set_id(),
                                                                                                  arguments..., &D.st);
}

/// An operation of a type.
template <class Result = void, class Type, class... A>
Result whole(TestDomain& D, const Type& type, const std::string& name, A... arguments) {
    return operation<Result(zur_domain*, std::uint32_t, A..., std::uint32_t*)>(type, name)(D, D.set_id(), arguments...,
                                                                                           &D.st);
}

/// An operation of a type that has no status word.
template <class Result = void, class Type, class... A>
Result bare(TestDomain& D, const Type& type, const std::string& name, A... arguments) {
    return operation<Result(zur_domain*, std::uint32_t, A...)>(type, name)(D, D.set_id(), arguments...);
}

} // namespace epm::test
