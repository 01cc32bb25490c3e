// Members belong together by their names. A member that has no counterpart by its name has been renamed if a new one
// stands in its place and differs in nothing else; a type, if a new one has its identity.
#include "tool/compat/pairs.hpp"

namespace epm::tool::compat {

namespace {

template <class Member>
std::unordered_map<std::string, std::size_t> places(const std::vector<Member>& members) {
    std::unordered_map<std::string, std::size_t> places;
    for (std::size_t i = 0; i < members.size(); ++i) places.emplace(members[i].name, i);
    return places;
}

template <class Member, class IsRenamed>
Partners partners(const std::vector<Member>& old, const std::vector<Member>& now, IsRenamed is_renamed) {
    Partners all{std::vector(old.size(), none), std::vector(now.size(), none)};
    const auto join = [&](std::size_t i, std::size_t j) {
        all.of_old[i] = j;
        all.of_now[j] = i;
    };
    const auto new_places = places(now);
    for (std::size_t i = 0; i < old.size(); ++i)
        if (const auto found = new_places.find(old[i].name); found != new_places.end()) join(i, found->second);
    for (std::size_t i = 0; i < old.size(); ++i) {
        if (all.of_old[i] != none || (i > 0 && all.of_old[i - 1] == none)) continue;
        const std::size_t j = i == 0 ? 0 : all.of_old[i - 1] + 1;
        if (j < now.size() && all.of_now[j] == none && is_renamed(old[i], now[j])) join(i, j);
    }
    return all;
}

} // namespace

Pairs::Pairs(const Description& old_description, const Description& new_description)
    : old(old_description), now(new_description) {
    std::unordered_map<std::string, std::size_t> by_identity;
    for (std::size_t i = 0; i < now.types.size(); ++i) by_identity.emplace(now.types[i].identity, i);
    const auto old_places = places(old.types), new_places = places(now.types);
    std::vector<bool> is_paired(now.types.size());
    for (const Type& type : old.types) {
        std::size_t place = none;
        if (const auto named = new_places.find(type.name); named != new_places.end())
            place = named->second;
        else if (const auto found = by_identity.find(type.identity);
                 found != by_identity.end() && !old_places.contains(now.types[found->second].name) &&
                 !is_paired[found->second])
            place = found->second;
        if (place == none) {
            lost.push_back(&type);
            continue;
        }
        is_paired[place] = true;
        new_names[type.name] = now.types[place].name;
        types.push_back({&type, &now.types[place], {}, {}});
    }
    for (std::size_t i = 0; i < now.types.size(); ++i)
        if (!is_paired[i]) added.push_back(&now.types[i]);
    for (const Imported& type : old.imported) new_names[type.name] = type.name;
    for (TypePair& pair : types) {
        pair.fields = partners(pair.old->fields, pair.now->fields, [this](const Field& a, const Field& b) {
            return a.kind == b.kind && is_same_type(a, b) && a.since == b.since && a.elements == b.elements &&
                   a.tag == b.tag;
        });
        pair.enumerators =
            partners(pair.old->enumerators, pair.now->enumerators, [](const Enumerator& a, const Enumerator& b) {
                return a.number == b.number && a.since == b.since;
            });
    }
}

void Pairs::for_each_imported(const std::function<void(const Imported&, const Imported&)>& body) const {
    const auto new_places = places(now.imported);
    for (const Imported& type : old.imported)
        if (const auto found = new_places.find(type.name); found != new_places.end())
            body(type, now.imported[found->second]);
}

bool Pairs::is_same_type(const Field& old_field, const Field& new_field) const {
    const auto found = new_names.find(old_field.type);
    return found != new_names.end() && found->second == new_field.type;
}

std::vector<bool> moved(const std::vector<std::size_t>& places) {
    std::vector<std::size_t> ends, length_at(places.size()); // of the rising sequences by their length
    for (std::size_t i = 0; i < places.size(); ++i) {
        const auto at = std::ranges::lower_bound(ends, places[i]);
        length_at[i] = static_cast<std::size_t>(at - ends.begin());
        if (at == ends.end())
            ends.push_back(places[i]);
        else
            *at = places[i];
    }
    std::vector<bool> result(places.size(), true);
    std::size_t wanted = ends.size(), below = none;
    for (std::size_t i = places.size(); i-- > 0;)
        if (wanted != 0 && length_at[i] == wanted - 1 && places[i] < below) {
            result[i] = false;
            below = places[i];
            --wanted;
        }
    return result;
}

} // namespace epm::tool::compat
