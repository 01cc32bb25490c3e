// One exported operation as the stamp knows it: its name, its C signature, the template that does the work, and its
// documentation. The entries are in operations/, one file for each subject.
#pragma once

#include "catalogue/catalogue.hpp"

#include <zur/types.h>

#include <optional>
#include <string>
#include <vector>

namespace epm::stamp {

using catalogue::Enum;
using catalogue::Field;
using catalogue::Foreign;
using catalogue::Kind;
using catalogue::Record;

// Each text of an entry may name the type and field that it is stamped for by the words in braces that words.cpp lists:
// "Read {field}."

struct Parameter {
    std::string type; ///< C type, as it is written before the name
    std::string name;
    std::string doc;
};

/// Parameters that differ in number from type to type; the template takes them as one array.
struct Pack {
    std::string element; ///< C++ type of the array's elements
    std::size_t first;   ///< index of the first packed parameter
    std::size_t count;
};

/// A sentence that is printed only where it applies to the type or field.
struct Sentence {
    std::string text;
    bool applies = true;
};

/// Stands for every number that something outside of the Bundle may leave.
inline constexpr auto any_status = zur_error{};

/// A number that the operation can leave in the status word or, in a `_cr` form, in last_error.
struct Status {
    zur_error number;
    std::string when;
    bool applies = true; ///< to the type or field; only then it is printed
};

struct Operation {
    std::string name;            ///< what follows `<type>_` or `<type>_<field>_`; a global operation's whole name
    std::string result = "void"; ///< C type
    std::vector<Parameter> parameters = {};
    std::string call = {}; ///< the template; empty: `<family>::<name>`, with `_chained` where the name has `_cr`
    std::string brief;     ///< what it does, in one sentence
    std::vector<Sentence> details = {};
    std::string returns = {};   ///< empty for void
    std::string ownership = {}; ///< what it takes and gives, and whose a result stays; all else is borrowed
    std::vector<Status> statuses = {};
    std::string cost;
    std::string template_arguments = {}; ///< further ones, behind the type and the field
    std::optional<Pack> pack = {};
};

// ---- the parts that entries share ----

inline const Parameter domain{"zur_domain*", "D", "the Domain"};
inline const Parameter chain_domain{"zur_domain*", "D", "the Domain; its cr_set_id names the store set"};
inline const Parameter set_id{"uint32_t", "S", "store set of the Instance, passed on as it is; ZUR_NO_SET: none"};
inline const Parameter status{"uint32_t*", "st", "status word; nothing happens unless it is 0 on entry"};

inline Parameter argument(std::string type, std::string name, std::string doc) {
    return {std::move(type), std::move(name), std::move(doc)};
}
inline Parameter instance(std::string doc) {
    return {"struct {type}*", "x", std::move(doc)};
}
inline Parameter const_instance(std::string doc) {
    return {"const struct {type}*", "x", std::move(doc)};
}

/// Whether the record, or a record inside it or owned by it, has such a field.
template <class Predicate>
bool holds(const Record& r, Predicate predicate) {
    return r.any([&](const Field& f) { return predicate(f) || (f.is_of_record() && holds(*f.record, predicate)); });
}

using Operations = std::vector<Operation>;

inline void append(Operations& to, const Operations& more) {
    to.insert(to.end(), more.begin(), more.end());
}

} // namespace epm::stamp
