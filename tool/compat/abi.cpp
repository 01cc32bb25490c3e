// What programs that are linked with the library rely on, and what Instances in a store rely on: a store outlives the
// library that has written it, so the layout of each variant must stay as it is. Structures are opaque to programs.
#include "tool/compat/pairs.hpp"

#include <map>
#include <tuple>

namespace epm::tool::compat {

namespace {

std::string number(std::size_t n) {
    return std::to_string(n);
}

std::string change(const std::string& what, std::size_t from, std::size_t to) {
    return what + " " + number(from) + ", now " + number(to);
}

// ---- exports ----

/// Which type and field a function is for.
class Owners {
public:
    explicit Owners(const Description& description) {
        for (const Type& type : description.types) types_.emplace(type.name, &type);
    }
    std::pair<std::string, std::string> of(const std::string& function) const {
        for (std::size_t end = function.size(); end != function.npos && end != 0; end = function.rfind('_', end - 1)) {
            const auto found = types_.find(function.substr(0, end));
            if (found == types_.end()) continue;
            const std::string rest = function.substr(std::min(end + 1, function.size()));
            std::string longest;
            for (const Field& field : found->second->fields)
                if (field.name.size() > longest.size() && (rest + "_").starts_with(field.name + "_"))
                    longest = field.name;
            return {found->first, longest};
        }
        return {};
    }

    /// The same of a data object.
    std::pair<std::string, std::string> of_data(const std::string& name) const {
        constexpr std::string_view ending = "_type_info_internal";
        if (!name.starts_with('_') || !name.ends_with(ending)) return {};
        const std::string type = name.substr(1, name.size() - 1 - ending.size());
        return {types_.contains(type) ? type : "", ""};
    }

private:
    std::unordered_map<std::string, const Type*> types_;
};

/// Findings that differ only in the export become one.
class ExportFindings {
public:
    void add(const Rule& rule, const std::pair<std::string, std::string>& owner, std::string detail) {
        found_[{&rule, owner.first, owner.second}].push_back(std::move(detail));
    }
    void move_to(Findings& findings, const Rule& rule, const char* sentence) {
        for (auto& [key, details] : found_)
            if (std::get<0>(key) == &rule) {
                const std::string start = number(details.size()) + (details.size() == 1 ? " export" : " exports");
                findings.push_back({&rule, std::get<1>(key), std::get<2>(key), start + sentence, std::move(details)});
            }
    }

private:
    std::map<std::tuple<const Rule*, std::string, std::string>, std::vector<std::string>> found_;
};

/// Without the names of the parameters, which no program depends on.
std::string without_names(const std::string& signature) {
    std::string result, word;
    const auto end_parameter = [&] {
        const std::size_t blank = word.find_last_of(" *");
        result += blank == word.npos ? word : word.substr(0, blank + 1);
        word.clear();
    };
    for (const char c : signature) {
        if (c == ',' || c == ')')
            end_parameter();
        else
            word += c;
        if (c == '(') std::swap(result, word); // the result's type comes first
        if (c == ',' || c == ')') result += c;
    }
    return result;
}

void compare_exports(const Pairs& pairs, Findings& findings) {
    ExportFindings found;
    const Owners old_owners(pairs.old), new_owners(pairs.now);
    std::unordered_map<std::string, const Function*> now;
    for (const Function& f : pairs.now.functions) now.emplace(f.name, &f);
    for (const Function& f : pairs.old.functions) {
        const auto there = now.find(f.name);
        if (there == now.end())
            found.add(rule("abi.export-lost"), old_owners.of(f.name), f.name);
        else if (without_names(there->second->signature) != without_names(f.signature))
            found.add(rule("abi.signature"), old_owners.of(f.name),
                      f.name + ": was " + f.signature + ", now " + there->second->signature);
        now.erase(f.name);
    }
    for (const Function& f : pairs.now.functions)
        if (now.contains(f.name)) found.add(rule("abi.export-added"), new_owners.of(f.name), f.name);
    const std::set<std::string> old_data(pairs.old.data.begin(), pairs.old.data.end());
    const std::set<std::string> new_data(pairs.now.data.begin(), pairs.now.data.end());
    for (const std::string& name : old_data)
        if (!new_data.contains(name)) found.add(rule("abi.export-lost"), old_owners.of_data(name), name);
    for (const std::string& name : new_data)
        if (!old_data.contains(name)) found.add(rule("abi.export-added"), new_owners.of_data(name), name);

    found.move_to(findings, rule("abi.export-lost"), " lost: a program that uses one is not loaded.");
    found.move_to(findings, rule("abi.signature"),
                  " with another signature: a program built for the old one passes or takes the wrong arguments.");
    found.move_to(findings, rule("abi.export-added"),
                  " added: a program that uses one needs this library or a later one.");
}

// ---- the file ----

void compare_files(const Pairs& pairs, Findings& findings) {
    const auto& [old, now] = std::tie(pairs.old, pairs.now);
    if (old.soname != now.soname)
        findings.push_back({&rule("abi.soname"),
                            "",
                            "",
                            "The SONAME was " + escaped(old.soname) + " and is " + escaped(now.soname) +
                                ": programs linked with the old library do not look for this one.",
                            {}});
    if (old.version_node != now.version_node)
        findings.push_back({&rule("abi.version-node"),
                            "",
                            "",
                            "The version node was " + escaped(old.version_node) + " and is " +
                                escaped(now.version_node) +
                                ": programs linked with the old library find none of their functions.",
                            {}});
    if (!old.needs || !now.needs) return;
    const auto tell = [&](const Rule& rule, const std::set<std::string>& before, const std::set<std::string>& after,
                          const char* sentence) {
        std::vector<std::string> details;
        std::ranges::set_difference(after, before, std::back_inserter(details));
        if (!details.empty()) findings.push_back({&rule, "", "", sentence, std::move(details)});
    };
    std::set<std::string> known = old.needs->symbols;
    known.insert(old.needs->weak_symbols.begin(), old.needs->weak_symbols.end());
    tell(rule("abi.import"), known, now.needs->symbols,
         "It imports more: beside a runtime that lacks one of these, it is not loaded.");
    tell(rule("abi.import-weak"), known, now.needs->weak_symbols,
         "It uses more if the runtime offers it, and does without otherwise.");
    tell(rule("abi.needed"), old.needs->libraries, now.needs->libraries,
         "It needs more libraries: where one is missing, it is not loaded.");
}

// ---- layout ----

void compare_layout(const TypePair& pair, Findings& findings) {
    const Type &old = *pair.old, &now = *pair.now;
    std::vector<std::string> lengths, offsets, places;
    const Field *first_offset = nullptr, *first_place = nullptr;
    for (std::size_t v = 0; v <= pair.common_top(); ++v) {
        const std::string in = "variant " + number(v) + ": ";
        const Variant &a = old.variants[v], &b = now.variants[v];
        if (a.used_length != b.used_length) lengths.push_back(change(in + "used length", a.used_length, b.used_length));
        if (a.size != b.size) lengths.push_back(change(in + "size", a.size, b.size));
        if (a.state_flags != b.state_flags)
            lengths.push_back(change(in + "bytes of state flags", a.state_flags, b.state_flags));
    }
    pair.for_each_field([&](const Field& a, const Field& b) {
        if (a.offset != b.offset) {
            if (first_offset == nullptr) first_offset = &a;
            offsets.push_back(change(a.name + ": offset", a.offset, b.offset));
        }
        if (a.state_flag && b.state_flag && (a.state_flag != b.state_flag || a.nested_flags != b.nested_flags)) {
            if (first_place == nullptr) first_place = &a;
            places.push_back(a.state_flag != b.state_flag
                                 ? change(a.name + ": state flag", *a.state_flag, *b.state_flag)
                                 : change(a.name + ": flags of what it holds", a.nested_flags.value_or(0),
                                          b.nested_flags.value_or(0)));
        }
    });
    if (!offsets.empty())
        findings.push_back({&rule("abi.offset"), old.name, first_offset->name,
                            "Fields lie elsewhere in an Instance: Instances in a store are misread.", offsets});
    if (!places.empty())
        findings.push_back({&rule("abi.flag-place"), old.name, first_place->name,
                            "State flags lie elsewhere: those of Instances in a store are misread.", places});
    if (!lengths.empty())
        findings.push_back(
            {&rule("abi.length"), old.name, "",
             "A variant that the old library knows has other lengths: the state flags of Instances in a "
             "store lie elsewhere, and records of other libraries that hold this one have the wrong room.",
             lengths});
    if (old.links != now.links)
        findings.push_back({&rule("abi.links"),
                            old.name,
                            "",
                            "The links of a list's element lie elsewhere or are gone: lists in a store are misread.",
                            {change("offset of the links", old.links.value_or(0), now.links.value_or(0))}});
    if (now.top_variant > old.top_variant)
        findings.push_back({&rule("abi.variant-added"),
                            old.name,
                            "",
                            now.size == old.size
                                ? "It has a further variant, for which an Instance has room already."
                                : "It has a further variant, and an Instance is larger. Only the "
                                  "library makes Instances, so programs do not notice; another library "
                                  "that places this record inside its own has to be built anew.",
                            {change("size", old.size, now.size)}});
    if (now.top_variant < old.top_variant)
        findings.push_back({&rule("abi.variant-withdrawn"),
                            old.name,
                            "",
                            "A variant is gone: Instances in a store that have its layout are misread.",
                            {change("top variant", old.top_variant, now.top_variant)}});
}

void compare_constants(const TypePair& pair, Findings& findings) {
    const Type& old = *pair.old;
    for (std::size_t i = 0; i < old.enumerators.size(); ++i) {
        const Enumerator& a = old.enumerators[i];
        const std::size_t place = pair.enumerators.of_old[i];
        const Enumerator* b = place != none ? &pair.now->enumerators[place] : nullptr;
        if (b == nullptr || a.number != b->number)
            findings.push_back({&rule("abi.enumerator"),
                                old.name,
                                a.name,
                                "Programs have its number, " + number(a.number) + ", compiled in; it " +
                                    (b == nullptr ? "is gone." : "is " + number(b->number) + " now."),
                                {}});
        else if (a.name != b->name)
            findings.push_back({&rule("abi.enumerator-name"),
                                old.name,
                                a.name,
                                "It is called " + b->name +
                                    " now: programs run on, but must be changed before they "
                                    "compile again.",
                                {}});
    }
}

void compare_imported(const Pairs& pairs, Findings& findings) {
    pairs.for_each_imported([&](const Imported& a, const Imported& b) {
        std::vector<std::string> details;
        if (a.size != b.size) details.push_back(change("size", a.size, b.size));
        if (a.alignment != b.alignment) details.push_back(change("alignment", a.alignment, b.alignment));
        if (a.state_flags != b.state_flags)
            details.push_back(change("bytes of state flags", a.state_flags, b.state_flags));
        if (a.shape != b.shape) details.push_back("shape " + a.shape + ", now " + b.shape);
        if (!details.empty())
            findings.push_back({&rule("abi.imported"), a.name, "",
                                "It expects another layout of this imported type than the runtime that served the old "
                                "library has.",
                                std::move(details)});
    });
}

void compare_order(const Pairs& pairs, Findings& findings) {
    std::vector<std::size_t> places;
    for (const TypePair& pair : pairs.types)
        places.push_back(static_cast<std::size_t>(pair.now - pairs.now.types.data()));
    std::vector<std::string> details;
    const std::vector<bool> has_moved = moved(places);
    for (std::size_t i = 0; i < places.size(); ++i)
        if (has_moved[i]) details.push_back(pairs.types[i].now->name + " has moved");
    std::unordered_map<std::string, const Type*> last; // enumerations follow the records
    for (const TypePair& pair : pairs.types) last[pair.now->kind] = std::max(last[pair.now->kind], pair.now);
    for (const Type* type : pairs.added)
        if (type < last[type->kind]) details.push_back(type->name + " is new, and not the last of its kind");
    if (!details.empty())
        findings.push_back({&rule("abi.type-order"), "", "",
                            "The table of types has another order: the runtime finds types by their identity, so only "
                            "the order of lists changes.",
                            std::move(details)});
}

} // namespace

void compare_abi(const Pairs& pairs, Findings& findings) {
    compare_files(pairs, findings);
    compare_exports(pairs, findings);
    compare_imported(pairs, findings);
    compare_order(pairs, findings);
    for (const TypePair& pair : pairs.types) {
        if (pair.is_record()) compare_layout(pair, findings);
        if (pair.is_enum()) compare_constants(pair, findings);
        if (pair.old->title != pair.now->title)
            findings.push_back({&rule("abi.title"),
                                pair.old->name,
                                "",
                                "Its title was " + pair.old->title + " and is " + pair.now->title +
                                    ": other languages name the type by it, the library does not.",
                                {}});
    }
}

} // namespace epm::tool::compat
