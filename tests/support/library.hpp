// Exported operations by type, field and operation, for tests that loop over the catalogue:
//     const auto create = operation<Instance*(zur_domain*, std::uint32_t)>(type, "create");
//     Instance* x = create(D, S);
// An export that is not there fails the test and yields an operation that does nothing. For operations that a test
// needs only once there are one-line calls, whose signature follows from the arguments, which therefore have the types
// of the operation's own. D and its set go first; whole() and call() end with D's status word.
//     whole(D, "orlan_ial_svm_acl_data", "set", to, from);
//     const auto n = call<std::uint32_t>(D, record, field, "get_value", x);
//     bare(D, type, "destroy_internal", x, 0u);
// The types come with their numbers, records first.
#pragma once

#include "catalogue/catalogue.hpp"
#include "stamp/names.hpp"
#include "support/domains.hpp"
#include "support/observation.hpp"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <string>
#include <vector>

namespace epm::test {

using catalogue::Enum;
using catalogue::Field;
using catalogue::Kind;
using catalogue::Record;
using Instance = zur_instance;

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

/// A name, or that of a description.
struct Name : std::string {
    using std::string::string;
    Name(const std::string& name) : std::string(name) {}
    Name(const auto& description) requires requires { description.name; } : std::string(description.name) {
    }
};

template <class Signature>
Operation<Signature> fetch(const std::string& symbol, const Export& e) {
    void* function = dlsym(library(), symbol.c_str());
    EXPECT_NE(function, nullptr) << "the library exports no " << symbol;
    return {reinterpret_cast<Signature*>(function), e};
}

/// Operation of a type.
template <class Signature>
Operation<Signature> operation(const Name& type, const std::string& name) {
    return fetch<Signature>(stamp::operation_name(type, name), {type, {}, name});
}

/// Operation of a field.
template <class Signature>
Operation<Signature> operation(const Name& type, const Name& field, const std::string& name) {
    return fetch<Signature>(stamp::operation_name(type, field, name), {type, field, name});
}

/// Operation of the Bundle itself.
template <class Signature>
Operation<Signature> bundle_operation(const std::string& name) {
    return fetch<Signature>(name, {{}, {}, name});
}

inline const zur_type_info* type_info_of(const Name& type) {
    return static_cast<const zur_type_info*>(dlsym(library(), stamp::type_info_name(type).c_str()));
}

/// An operation of a field.
template <class Result = void, class... A>
Result call(TestDomain& D, const Name& type, const Name& field, const std::string& name, A... arguments) {
    return operation<Result(zur_domain*, std::uint32_t, A..., std::uint32_t*)>(type, field, name)(D, D.set_id(),
                                                                                                  arguments..., &D.st);
}

/// An operation of a type.
template <class Result = void, class... A>
Result whole(TestDomain& D, const Name& type, const std::string& name, A... arguments) {
    return operation<Result(zur_domain*, std::uint32_t, A..., std::uint32_t*)>(type, name)(D, D.set_id(), arguments...,
                                                                                           &D.st);
}

/// An operation of a type that has no status word.
template <class Result = void, class... A>
Result bare(TestDomain& D, const Name& type, const std::string& name, A... arguments) {
    return operation<Result(zur_domain*, std::uint32_t, A...)>(type, name)(D, D.set_id(), arguments...);
}

struct TypeNumbers {
    std::string name;
    bool is_enum = false;
    std::vector<std::size_t> used; ///< used length by variant
    std::size_t size = 0;
    std::size_t tracked = 0; ///< size with state flags
    const zur_type_info* info = type_info_of(name);
};

/// In type-table order.
inline const std::vector<TypeNumbers>& all_types() {
    static const std::vector<TypeNumbers> all = [] {
        std::vector<TypeNumbers> list;
        for (const Record* r : catalogue::all_records) {
            const catalogue::Layout l = catalogue::lay_out(*r);
            const auto end = l.used.begin() + r->top() + 1;
            list.push_back({r->name, false, {l.used.begin(), end}, l.size(*r), l.size(*r) + l.block_length(*r)});
        }
        for (const Enum* e : catalogue::all_enums)
            list.push_back(
                {e->name, true, std::vector<std::size_t>(static_cast<std::size_t>(e->top()) + 1, 16), 16, 16});
        return list;
    }();
    return all;
}

/// The description of a record; null for an enumeration.
inline const Record* record_named(const std::string& type) {
    for (const Record* r : catalogue::all_records)
        if (type == r->name) return r;
    return nullptr;
}

inline Instance* create(const std::string& type, TestDomain& D) {
    return bare<Instance*>(D, type, "create");
}

inline void destroy(const std::string& type, TestDomain& D, Instance* x) {
    bare(D, type, "destroy", x);
}

} // namespace epm::test
