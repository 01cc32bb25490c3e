// Which type, field and enumerator of the old description is which one of the new description.
#pragma once

#include "tool/compat/description.hpp"
#include "tool/compat/finding.hpp"

#include <algorithm>
#include <functional>
#include <unordered_map>

namespace epm::tool::compat {

inline constexpr std::size_t none = static_cast<std::size_t>(-1);

/// For each of the old members the place of its counterpart among the new ones, or none; and the other way round.
struct Partners {
    std::vector<std::size_t> of_old, of_now;
};

struct TypePair {
    const Type* old;
    const Type* now;
    Partners fields, enumerators;

    bool is_record() const { return old->kind == "record" && now->kind == "record"; }
    bool is_enum() const { return old->kind == "enum" && now->kind == "enum"; }
    std::size_t common_top() const { return std::min(old->top_variant, now->top_variant); }

    /// Calls body(old, new) for each field that both have.
    void for_each_field(const std::function<void(const Field&, const Field&)>& body) const {
        for (std::size_t i = 0; i < fields.of_old.size(); ++i)
            if (fields.of_old[i] != none) body(old->fields[i], now->fields[fields.of_old[i]]);
    }
    void for_each_enumerator(const std::function<void(const Enumerator&, const Enumerator&)>& body) const {
        for (std::size_t i = 0; i < enumerators.of_old.size(); ++i)
            if (enumerators.of_old[i] != none) body(old->enumerators[i], now->enumerators[enumerators.of_old[i]]);
    }
};

/// Both descriptions, with what belongs together.
struct Pairs {
    Pairs(const Description& old_description, const Description& new_description);

    const Description& old;
    const Description& now;
    std::vector<TypePair> types; ///< in the old order
    std::vector<const Type*> lost, added;
    std::unordered_map<std::string, std::string> new_names; ///< of types by the old ones, also of imported types

    /// Calls body(old, new) for each imported type that both know.
    void for_each_imported(const std::function<void(const Imported&, const Imported&)>& body) const;

    /// Whether both fields are of the same type, whatever its name is now.
    bool is_same_type(const Field& old_field, const Field& new_field) const;
};

/// Members of a list that have to move to get it into the order of another one: all but a longest rising sequence.
/// Takes the new places in the old order, and returns for each whether it has moved.
std::vector<bool> moved(const std::vector<std::size_t>& places);

/// What a level is told about.
void compare_abi(const Pairs& pairs, Findings& findings);
void compare_wire(const Pairs& pairs, Findings& findings);
void compare_xml(const Pairs& pairs, Findings& findings);
void compare_traces(const Pairs& pairs, Findings& findings);

} // namespace epm::tool::compat
