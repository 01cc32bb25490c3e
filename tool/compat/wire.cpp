// What peers rely on: the bytes of each variant, in both directions, and what identifies a type. A peer skips the
// fields of variants that it does not know, and a variant that both know must be the same bytes.
#include "tool/compat/pairs.hpp"

namespace epm::tool::compat {

namespace {

constexpr const char* both_misread = " Peers of either library misread the other's records from there on.";

/// Bytes on the wire by kind and type, without the names.
class Forms {
public:
    explicit Forms(const Description& description) {
        for (const Type& type : description.types)
            framings_[type.name] = type.kind == "enum" ? "enumerated" : type.name;
        for (const Imported& type : description.imported)
            framings_[type.name] = type.framing == "number"      ? "number of " + std::to_string(type.wire_length)
                                   : type.framing == "character" ? "number of 1"
                                                                 : type.framing;
    }
    std::string of(const Field& f) const {
        const bool is_one = f.kind == "value" || f.kind == "length" || f.kind == "object";
        const bool is_fixed = f.kind == "characters" || f.kind == "run";
        const bool is_counted = f.kind == "text" || f.kind == "array";
        const std::string count = is_one ? "one " : is_fixed ? "fixed " : is_counted ? "counted " : f.kind + " ";
        // Behind it stand its state flags, in tracked mode.
        const bool has_element_flags = f.kind == "array" || f.kind == "run";
        return count + framings_.at(f.type) + (f.is_length() ? "" : has_element_flags ? ", flags" : ", flag");
    }

private:
    std::unordered_map<std::string, std::string> framings_;
};

class WireOf {
public:
    WireOf(const Pairs& pairs, Findings& findings)
        : pairs_(pairs), findings_(findings), old_forms_(pairs.old), new_forms_(pairs.now) {
        for (const Type& type : pairs.old.types)
            if (type.kind == "enum") enums_.insert(type.name);
    }

    void compare(const TypePair& pair) {
        type_ = pair.old->name;
        const Type &old = *pair.old, &now = *pair.now;
        if (old.name != now.name)
            add(rule("wire.type-renamed"), "", "It is called " + now.name + " now; peers know it by its identity.");
        if (old.kind != now.kind)
            add(rule("wire.kind"), "", "It was a " + old.kind + " and is a " + now.kind + "." + both_misread);
        compare_digests(pair);
        if (pair.is_record()) {
            compare_fields(pair);
            compare_variants(pair);
        } else if (pair.is_enum()) {
            compare_enumerators(pair);
        }
    }

private:
    void add(const Rule& rule, const std::string& field, std::string sentence, std::vector<std::string> details = {}) {
        findings_.push_back({&rule, type_, field, std::move(sentence), std::move(details)});
    }

    void compare_digests(const TypePair& pair) {
        const Type &old = *pair.old, &now = *pair.now;
        if (old.identity != now.identity)
            add(rule("wire.identity"), "",
                "Its identity has changed: peers and stores look it up by that, and take it for an unknown type.",
                {old.identity + ", now " + now.identity});
        const bool is_kept = old.compatibility == now.compatibility;
        if (is_kept && !is_same(pair, false))
            add(rule("wire.compatibility-kept"), "",
                "It has changed, but its compatibility digest has not: who compares manifests takes the two for the "
                "same.",
                {old.compatibility});
        if (!is_kept && is_same(pair, true))
            add(rule("wire.compatibility-changed"), "",
                "Its compatibility digest has changed, but it has not: who compares manifests sees a difference that "
                "is "
                "not there.",
                {old.compatibility + ", now " + now.compatibility});
    }

    /// Whether variants and bytes are the same; on request, also the names of fields and enumerators.
    bool is_same(const TypePair& pair, bool with_names) const {
        const auto is_same_field = [&](const Field& a, const Field& b) {
            return (!with_names || a.name == b.name) && a.kind == b.kind && pairs_.is_same_type(a, b) &&
                   a.since == b.since && a.elements == b.elements && a.tag == b.tag &&
                   (a.length_field == b.length_field || is_renamed_length(pair, a, b));
        };
        const auto is_same_enumerator = [&](const Enumerator& a, const Enumerator& b) {
            return (!with_names || a.name == b.name) && a.number == b.number && a.since == b.since;
        };
        return pair.old->kind == pair.now->kind && pair.old->top_variant == pair.now->top_variant &&
               std::ranges::equal(pair.old->fields, pair.now->fields, is_same_field) &&
               std::ranges::equal(pair.old->enumerators, pair.now->enumerators, is_same_enumerator);
    }

    void compare_fields(const TypePair& pair) {
        const Type &old = *pair.old, &now = *pair.now;
        std::vector<std::size_t> places;
        std::vector<const Field*> fields;
        for (std::size_t i = 0; i < old.fields.size(); ++i) {
            const Field& f = old.fields[i];
            if (pair.fields.of_old[i] == none) {
                if (f.since <= now.top_variant)
                    add(rule("wire.field-removed"), f.name,
                        "It is gone from variant " + std::to_string(f.since) + "." + both_misread);
                continue;
            }
            fields.push_back(&f);
            places.push_back(pair.fields.of_old[i]);
        }
        const std::vector<bool> has_moved = moved(places);
        for (std::size_t i = 0; i < fields.size(); ++i)
            if (has_moved[i])
                add(rule("wire.field-moved"), fields[i]->name, std::string("It has moved.") + both_misread);
        for (std::size_t j = 0; j < now.fields.size(); ++j) {
            const Field& f = now.fields[j];
            if (pair.fields.of_now[j] != none || f.since > old.top_variant) continue;
            add(rule("wire.field-inserted"), f.name,
                "It is new, but in variant " + std::to_string(f.since) +
                    ", which the old library knows without it; a new field needs a new variant." + both_misread);
        }
        pair.for_each_field([&](const Field& a, const Field& b) { compare_field(pair, a, b); });
    }

    void compare_field(const TypePair& pair, const Field& a, const Field& b) {
        if (a.name != b.name)
            add(rule("wire.field-renamed"), a.name, "It is called " + b.name + " now; bytes have no names.");
        if (a.since != b.since)
            add(rule("wire.field-variant"), a.name,
                "It came with variant " + std::to_string(a.since) + " and now comes with " + std::to_string(b.since) +
                    "." + both_misread);
        if (a.kind != b.kind || !pairs_.is_same_type(a, b)) {
            const bool is_record = a.kind == "embedded" || a.kind == "arm" || a.kind == "list";
            const bool is_other_enum = enums_.contains(a.type) && !pairs_.is_same_type(a, b);
            const std::string from = a.kind + " of " + a.type, to = b.kind + " of " + b.type;
            if (old_forms_.of(a) == new_forms_.of(b) && !is_record && !is_other_enum)
                add(rule("wire.same-bytes"), a.name,
                    "It was a " + from + " and is a " + to + "; the bytes are the same.");
            else
                add(rule("wire.field-retyped"), a.name, "It was a " + from + " and is a " + to + "." + both_misread);
        } else if (a.elements != b.elements) {
            add(rule("wire.capacity"), a.name,
                "It had " + std::to_string(a.elements) + " elements and has " + std::to_string(b.elements) +
                    ", and their number is not sent." + both_misread);
        }
        if (a.tag != b.tag)
            add(rule("wire.arm-tag"), a.name,
                "Tag " + std::to_string(a.tag.value_or(0)) + " selected it and tag " +
                    std::to_string(b.tag.value_or(0)) + " does now: peers take it for another arm.");
        if (a.length_field != b.length_field && !is_renamed_length(pair, a, b))
            add(rule("wire.length-field"), a.name,
                "Its length was in " + a.length_field + " and is in " + b.length_field + "." + both_misread);
    }

    static bool is_renamed_length(const TypePair& pair, const Field& a, const Field& b) {
        const auto found = std::ranges::find(pair.old->fields, a.length_field, &Field::name);
        if (found == pair.old->fields.end()) return false;
        const std::size_t place = pair.fields.of_old[static_cast<std::size_t>(found - pair.old->fields.begin())];
        return place != none && pair.now->fields[place].name == b.length_field;
    }

    void compare_variants(const TypePair& pair) {
        const Type &old = *pair.old, &now = *pair.now;
        const auto has_variant = [](const Type& type, std::size_t v) {
            return std::ranges::count(type.fields, v, &Field::since) != 0;
        };
        for (std::size_t v = 0; v <= now.top_variant; ++v) {
            const bool is_skipped = !has_variant(now, v);
            if (is_skipped && (v > old.top_variant || has_variant(old, v)))
                add(rule("wire.variant-skipped"), "",
                    "Variant " + std::to_string(v) +
                        " has no field of its own: peers that agree on it and on the one before mean the same by two "
                        "numbers, and the catalogue refuses it.");
            if (!is_skipped && v > old.top_variant) add_variant(v);
        }
        if (now.top_variant < old.top_variant) withdraw_variant(old, now);
    }

    void compare_enumerators(const TypePair& pair) {
        const Type &old = *pair.old, &now = *pair.now;
        for (std::size_t i = 0; i < old.enumerators.size(); ++i)
            if (pair.enumerators.of_old[i] == none && old.enumerators[i].since <= now.top_variant)
                add(rule("wire.enumerator-removed"), old.enumerators[i].name,
                    "It is gone, but peers of the old library send its number, which has no name or another one now.");
        for (std::size_t j = 0; j < now.enumerators.size(); ++j)
            if (pair.enumerators.of_now[j] == none && now.enumerators[j].since <= old.top_variant)
                add(rule("wire.enumerator-added"), now.enumerators[j].name,
                    "It is new, but in variant " + std::to_string(now.enumerators[j].since) +
                        ": it is sent to peers of the old library, which know that variant without it; it needs a new "
                        "one.");
        pair.for_each_enumerator([&](const Enumerator& a, const Enumerator& b) {
            if (a.number != b.number)
                add(rule("wire.enumerator-number"), a.name,
                    "It was number " + std::to_string(a.number) + " and is " + std::to_string(b.number) +
                        ": peers take it for another one.");
            if (a.since != b.since)
                add(rule("wire.enumerator-variant"), a.name,
                    "It came with variant " + std::to_string(a.since) + " and now comes with " +
                        std::to_string(b.since) + ": one library sends it to peers for which the other refuses it.");
            if (a.name != b.name)
                add(rule("wire.enumerator-renamed"), a.name, "It is called " + b.name + " now; bytes have no names.");
        });
        for (std::size_t v = old.top_variant + 1; v <= now.top_variant; ++v) add_variant(v);
        if (now.top_variant < old.top_variant) withdraw_variant(old, now);
    }

    void add_variant(std::size_t v) {
        add(rule("wire.variant-added"), "",
            "Variant " + std::to_string(v) +
                " is new: peers of the old library skip what it adds, and are not sent it once "
                "the variant is agreed.");
    }
    void withdraw_variant(const Type& old, const Type& now) {
        add(rule("wire.variant-withdrawn"), "",
            "Its top variant was " + std::to_string(old.top_variant) + " and is " + std::to_string(now.top_variant) +
                ": this library skips what peers of the old one send beyond that.");
    }

    const Pairs& pairs_;
    Findings& findings_;
    const Forms old_forms_, new_forms_;
    std::set<std::string> enums_;
    std::string type_;
};

void compare_imported(const Pairs& pairs, Findings& findings) {
    pairs.for_each_imported([&](const Imported& a, const Imported& b) {
        if (a.framing != b.framing || a.wire_length != b.wire_length)
            findings.push_back({&rule("wire.imported-framing"),
                                a.name,
                                "",
                                std::string("This imported type has other bytes.") + both_misread,
                                {a.framing + " " + std::to_string(a.wire_length) + ", now " + b.framing + " " +
                                 std::to_string(b.wire_length)}});
    });
}

} // namespace

void compare_wire(const Pairs& pairs, Findings& findings) {
    WireOf wire(pairs, findings);
    for (const TypePair& pair : pairs.types) wire.compare(pair);
    for (const Type* type : pairs.lost)
        findings.push_back({&rule("wire.type-lost"),
                            type->name,
                            "",
                            "It is gone: what peers of the old library send of it cannot be read.",
                            {}});
    std::unordered_map<std::string, std::string> old_identities;
    for (const Type& type : pairs.old.types) old_identities.emplace(type.identity, type.name);
    for (const Type& type : pairs.now.types) {
        const auto owner = old_identities.find(type.identity);
        const auto name = owner != old_identities.end() ? pairs.new_names.find(owner->second) : pairs.new_names.end();
        if (owner != old_identities.end() && (name == pairs.new_names.end() || name->second != type.name))
            findings.push_back(
                {&rule("wire.identity-reused"),
                 type.name,
                 "",
                 "It has the identity that " + owner->second + " had: peers and stores take one for the other.",
                 {}});
    }
    for (const Type* type : pairs.added)
        findings.push_back({&rule("wire.type-added"),
                            type->name,
                            "",
                            "It is new: peers of the old library do not know it, and it cannot be sent to them.",
                            {}});
    compare_imported(pairs, findings);
}

} // namespace epm::tool::compat
