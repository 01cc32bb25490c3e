// Exported operations by type, field and operation, for tests that loop over the catalogue:
//     const auto create = operation<Instance*(zur_domain*, std::uint32_t)>(type, "create");
//     Instance* x = create(D, S);
// An export that is not there fails the test and yields an operation that does nothing.
#pragma once

#include "catalogue/catalogue.hpp"
#include "stamp/names.hpp"
#include "support/observation.hpp"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <string>

namespace epm::test {

using catalogue::Enum;
using catalogue::Field;
using catalogue::Kind;
using catalogue::Record;

/// The library file that is tested; it is the one that the program is linked with.
inline void* library() {
    static void* const handle = dlopen(EPM_LIBRARY_FILE, RTLD_NOW);
    return handle;
}

template <class Signature>
class Operation;

template <class Result, class... Parameters>
class Operation<Result(Parameters...)> {
public:
    using Function = Result (*)(Parameters...);

    Operation() = default;
    Operation(Function f, const Export& e) : function_(f), export_(e) {}

    /// The bare function, which is neither watched nor counted; for threads.
    Function function() const { return function_; }

    __attribute__((no_sanitize("undefined"))) // scenes call everything with words
    Result
    operator()(Parameters... arguments) const {
        if (function_ == nullptr) {
            ADD_FAILURE() << "call of an export that is not there";
            return Result();
        }
        if (export_.operation.empty()) return function_(arguments...);
        const BundleCall call(&export_);
        return function_(arguments...);
    }

private:
    Function function_ = nullptr;
    Export export_;
};

namespace detail {

template <class Signature>
Operation<Signature> fetch(const std::string& name, const std::string& type, const std::string& field,
                           const std::string& operation) {
    void* symbol = library() != nullptr ? dlsym(library(), name.c_str()) : nullptr;
    if (symbol == nullptr) {
        ADD_FAILURE() << "the library exports no " << name;
        return {};
    }
    return {reinterpret_cast<Signature*>(symbol), {type, field, operation}};
}

inline std::string name_of(const std::string& name) {
    return name;
}
std::string name_of(const auto& type) requires requires {
    type.name;
}
{ return type.name; }

} // namespace detail

/// Operation of a type; the type may be given as its description.
template <class Signature, class Type>
Operation<Signature> operation(const Type& type, const std::string& name) {
    const std::string t = detail::name_of(type);
    return detail::fetch<Signature>(stamp::operation_name(t, name), t, {}, name);
}

/// Operation of a field; type and field may be given as their descriptions.
template <class Signature, class Type, class FieldType>
Operation<Signature> operation(const Type& type, const FieldType& field, const std::string& name) {
    const std::string t = detail::name_of(type);
    const std::string f = detail::name_of(field);
    return detail::fetch<Signature>(stamp::operation_name(t, f, name), t, f, name);
}

/// Operation of the Bundle itself.
template <class Signature>
Operation<Signature> bundle_operation(const std::string& name) {
    return detail::fetch<Signature>(name, {}, {}, name);
}

template <class Type>
const zur_type_info* type_info_of(const Type& type) {
    const std::string name = stamp::type_info_name(detail::name_of(type));
    return static_cast<const zur_type_info*>(dlsym(library(), name.c_str()));
}

} // namespace epm::test
