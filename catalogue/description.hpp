// The vocabulary of the catalogue: Record, Field, Enum, Foreign as plain constexpr data, and everything that follows
// from them by rule: offsets, used lengths, sizes and the state-flag block.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <utility>

namespace epm::catalogue {

inline constexpr std::size_t header_length = 12;
inline constexpr std::size_t link_length = 24;      // list_head, next, prev
inline constexpr std::size_t list_head_length = 28; // first, last, owner, count
inline constexpr std::size_t enum_length = 16;      // header and a 32-bit value
inline constexpr std::size_t most_fields = 13;
inline constexpr std::size_t most_variants = 3;
inline constexpr std::size_t most_enumerators = 11;

/// A field type that is supplied from outside the Bundle.
struct Foreign {
    enum class Shape : std::uint8_t {
        primitive, ///< a bare number
        value,     ///< an enumerated value that is set up and compared by its own operations
        object,    ///< may own memory and hold references
        placed,    ///< an object with a state-flag block of its own, placed inside its parent's block
    };
    /// How a value is framed on the wire. The library leaves that to the imported operations; programs that read
    /// messages without them need to know it. Numbers are big-endian.
    enum class Framing : std::uint8_t {
        number,     ///< wire_length bytes
        character,  ///< one byte, a signed number
        enumerated, ///< variant byte, number of 4 bytes
        mac,        ///< six bytes
        address,    ///< family 0, 4 or 6, then 0, 4 or 16 bytes
        text,       ///< length of 4 bytes, characters
        bytes,      ///< length of 4 bytes, bytes
        typed,      ///< type word of 4 bytes, length of 4 bytes, bytes
    };
    const char* name;
    Shape shape;
    std::uint8_t length;
    std::uint8_t alignment;
    Framing framing;
    std::uint8_t wire_length = length; ///< of a number
    std::uint8_t block_length = 0;
    std::uint8_t block_alignment = 1;

    constexpr bool is_object() const { return shape == Shape::object || shape == Shape::placed; }
    constexpr bool is_placed() const { return shape == Shape::placed; }
    constexpr bool is_initialized() const { return shape != Shape::primitive; }
};

constexpr const char* framing_name(Foreign::Framing framing) {
    constexpr const char* names[] = {"number", "character", "enumerated", "mac", "address", "text", "bytes", "typed"};
    return names[static_cast<std::size_t>(framing)];
}

inline constexpr Foreign u_int8{"u_int8", Foreign::Shape::primitive, 1, 1, Foreign::Framing::number};
inline constexpr Foreign u_int16{"u_int16", Foreign::Shape::primitive, 2, 2, Foreign::Framing::number};
inline constexpr Foreign u_int32{"u_int32", Foreign::Shape::primitive, 4, 4, Foreign::Framing::number};
inline constexpr Foreign u_int64{"u_int64", Foreign::Shape::primitive, 8, 8, Foreign::Framing::number};
inline constexpr Foreign character{"char", Foreign::Shape::primitive, 1, 1, Foreign::Framing::character};
inline constexpr Foreign zur_boolean{"zur_boolean", Foreign::Shape::value, 4, 4, Foreign::Framing::number};
inline constexpr Foreign sm_auth_domain{"sm_auth_domain", Foreign::Shape::value, 16, 8, Foreign::Framing::enumerated};
inline constexpr Foreign zur_mac_addr{"zur_mac_addr", Foreign::Shape::object, 6, 1, Foreign::Framing::mac};
inline constexpr Foreign zur_vstring{"zur_vstring", Foreign::Shape::object, 16, 8, Foreign::Framing::text};
inline constexpr Foreign kesh_bytestr{"kesh_bytestr", Foreign::Shape::object, 16, 8, Foreign::Framing::bytes};
inline constexpr Foreign ip_address{"ip_address", Foreign::Shape::object, 48, 8, Foreign::Framing::address};
inline constexpr Foreign aaa_tlv{"aaa_tlv", Foreign::Shape::placed, 32, 8, Foreign::Framing::typed, 0, 16, 8};
inline constexpr Foreign sess_mgr_conn_hdl{
    "sess_mgr_conn_hdl", Foreign::Shape::placed, 24, 8, Foreign::Framing::number, 8, 1};
inline constexpr Foreign sess_mgr_client_hdl{
    "sess_mgr_client_hdl", Foreign::Shape::placed, 24, 8, Foreign::Framing::number, 8, 1};
inline constexpr Foreign sess_mgr_session_label{
    "sess_mgr_session_label", Foreign::Shape::placed, 24, 8, Foreign::Framing::number, 8, 1};
inline constexpr Foreign sess_mgr_authorize_result{
    "sess_mgr_authorize_result", Foreign::Shape::placed, 24, 8, Foreign::Framing::number, 4, 1};

/// Identity of a type: `identity` goes into its TypeInfo, both go into the manifest. 32 lower-case hexadecimal digits.
struct Digests {
    const char* identity;
    const char* compatibility;
};

struct Enumerator {
    const char* name;
    const char* doc;
    std::int8_t since = 0;
};

/// An enumeration. Enumerators are numbered from 0 in the order of their lines.
struct Enum {
    const char* name;
    const char* title; ///< as a Record's
    const char* doc;
    Digests digests;
    std::array<Enumerator, most_enumerators> enumerators{};
    std::size_t count = 0;

    constexpr std::int8_t top() const { return enumerators[count - 1].since; }
    /// How many enumerators a variant has.
    constexpr std::uint32_t accepted(std::int8_t variant) const {
        std::uint32_t n = 0;
        while (n < count && enumerators[n].since <= variant) ++n;
        return n;
    }
};

constexpr Enum enumeration(const char* name, const char* title, const char* doc, Digests digests,
                           std::initializer_list<Enumerator> enumerators) {
    Enum result{name, title, doc, digests, {}, enumerators.size()};
    std::copy(enumerators.begin(), enumerators.end(), result.enumerators.begin());
    return result;
}

enum class Kind : std::uint8_t {
    value,      ///< a number or enumerated value, read and written as such
    length,     ///< the present length of a string or array; only that field's setters write it
    object,     ///< an imported object inside the record
    text,       ///< counted characters on the heap
    characters, ///< a fixed run of characters inside the record
    array,      ///< counted elements on the heap: primitives, or records
    run,        ///< a fixed run of primitives inside the record
    embedded,   ///< a record inside the record
    arm,        ///< one arm of a tagged union: an owned pointer
    list,       ///< the head of an intrusive list of records
};

/// The kind as the catalogue's lines spell it.
constexpr const char* kind_name(Kind kind) {
    constexpr const char* names[] = {"value", "length", "object",   "text", "characters",
                                     "array", "run",    "embedded", "arm",  "list"};
    return names[static_cast<std::size_t>(kind)];
}

/// Which of its three type pointers a field uses. Ask this instead of testing the pointers: under
/// UndefinedBehaviorSanitizer g++ does not know at compile time that an inline variable's address is not null.
enum class Of : std::uint8_t { foreign, enumeration, record };

struct Record;

struct Field {
    Kind kind;
    Of of = Of::foreign;
    const char* name;
    const char* doc;
    const Foreign* foreign = nullptr;  ///< type of a value, length, object; element of an array or run
    const Enum* enumeration = nullptr; ///< type of an enumerated value
    const Record* record = nullptr;    ///< type of an embedded record or arm; element of an array or list
    std::uint16_t capacity = 0;        ///< elements of a fixed run
    const char* companion = nullptr;   ///< the length field of a text or array
    std::uint32_t tag = 0;             ///< selector value of an arm
    std::int8_t since = 0;             ///< first variant that holds the field

    /// The same field, first present in a later variant.
    constexpr Field from_variant(std::int8_t variant) const {
        Field later = *this;
        later.since = variant;
        return later;
    }
    /// Whether the field has a state flag.
    constexpr bool is_tracked() const { return kind != Kind::length; }
    /// Whether the field has several elements with a flag each, behind a whole flag.
    constexpr bool has_element_flags() const { return kind == Kind::array || kind == Kind::run; }
    constexpr bool is_own_enum() const { return of == Of::enumeration; }
    /// Whether the field's type, or its element's, is a record of this Bundle.
    constexpr bool is_of_record() const { return of == Of::record; }
    /// Name of the field's type, or of its elements' type.
    constexpr const char* type_name() const;
    /// Whether the field is of an enumerated kind, imported or of this Bundle.
    constexpr bool is_enumerated() const {
        return is_own_enum() || (kind == Kind::value && foreign->shape == Foreign::Shape::value);
    }
    /// Whether the field is an imported object with a state-flag block of its own.
    constexpr bool is_placed_object() const { return kind == Kind::object && foreign->is_placed(); }
    /// Whether the field holds a nested Instance whose state-flag block lies in this record's block.
    constexpr bool has_nested_block() const { return kind == Kind::embedded || is_placed_object(); }
    /// Whether the field is of an imported type that sets itself up.
    constexpr bool is_foreign_initialized() const {
        return (kind == Kind::value || kind == Kind::object) && foreign != nullptr && foreign->is_initialized();
    }
};

struct Record {
    const char* name;
    const char* title; ///< for languages where types are named in this way; may change, unlike the name
    const char* doc;
    Digests digests;
    std::array<Field, most_fields> fields{};
    std::size_t count = 0;
    const char* linked_before = nullptr; ///< the field that follows the link members of a list element

    /// The same record, with link members for the list that holds it.
    constexpr Record linked(const char* before_field) const {
        Record member = *this;
        member.linked_before = before_field;
        return member;
    }
    constexpr bool is_linked() const { return linked_before != nullptr; }
    constexpr std::int8_t top() const { return fields[count - 1].since; }
    constexpr std::size_t variants() const { return static_cast<std::size_t>(top()) + 1; }
    constexpr std::size_t index_of(std::string_view field) const {
        std::size_t i = 0;
        while (i < count && field != fields[i].name) ++i;
        return i;
    }
    template <class Predicate>
    constexpr bool any(Predicate predicate) const {
        return std::any_of(fields.begin(), fields.begin() + count, predicate);
    }
    constexpr bool is_union() const {
        return any([](const Field& f) { return f.kind == Kind::arm; });
    }
};

constexpr const char* Field::type_name() const {
    if (is_own_enum()) return enumeration->name;
    return is_of_record() ? record->name : foreign->name;
}

constexpr Record record(const char* name, const char* title, const char* doc, Digests digests,
                        std::initializer_list<Field> fields) {
    Record result{name, title, doc, digests, {}, fields.size()};
    std::copy(fields.begin(), fields.end(), result.fields.begin());
    return result;
}

// One function for each kind, so that a catalogue line reads as a sentence.

constexpr Field value(const Foreign& type, const char* name, const char* doc) {
    return {.kind = Kind::value, .name = name, .doc = doc, .foreign = &type};
}
constexpr Field value(const Enum& type, const char* name, const char* doc) {
    return {.kind = Kind::value, .of = Of::enumeration, .name = name, .doc = doc, .enumeration = &type};
}
constexpr Field length(const Foreign& type, const char* name, const char* doc) {
    return {.kind = Kind::length, .name = name, .doc = doc, .foreign = &type};
}
constexpr Field object(const Foreign& type, const char* name, const char* doc) {
    return {.kind = Kind::object, .name = name, .doc = doc, .foreign = &type};
}
constexpr Field text(const char* name, const char* companion, const char* doc) {
    return {.kind = Kind::text, .name = name, .doc = doc, .foreign = &character, .companion = companion};
}
constexpr Field characters(std::uint16_t capacity, const char* name, const char* doc) {
    return {.kind = Kind::characters, .name = name, .doc = doc, .foreign = &character, .capacity = capacity};
}
constexpr Field array(const Foreign& element, const char* name, const char* companion, const char* doc) {
    return {.kind = Kind::array, .name = name, .doc = doc, .foreign = &element, .companion = companion};
}
constexpr Field array(const Record& element, const char* name, const char* companion, const char* doc) {
    return {
        .kind = Kind::array, .of = Of::record, .name = name, .doc = doc, .record = &element, .companion = companion};
}
constexpr Field run(const Foreign& element, std::uint16_t capacity, const char* name, const char* doc) {
    return {.kind = Kind::run, .name = name, .doc = doc, .foreign = &element, .capacity = capacity};
}
constexpr Field embedded(const Record& type, const char* name, const char* doc) {
    return {.kind = Kind::embedded, .of = Of::record, .name = name, .doc = doc, .record = &type};
}
constexpr Field arm(std::uint32_t tag, const Record& type, const char* name, const char* doc) {
    return {.kind = Kind::arm, .of = Of::record, .name = name, .doc = doc, .record = &type, .tag = tag};
}
constexpr Field list(const Record& element, const char* name, const char* doc) {
    return {.kind = Kind::list, .of = Of::record, .name = name, .doc = doc, .record = &element};
}

constexpr std::size_t round_up(std::size_t n, std::size_t alignment) {
    return (n + alignment - 1) / alignment * alignment;
}

/// Where everything of a record lies. Arrays by variant are indexed by layout variant.
struct Layout {
    std::array<std::uint16_t, most_fields> offset{};  ///< of the field, from the Instance's start
    std::array<std::uint16_t, most_fields> flag{};    ///< of the field's state flag, from the block's start
    std::array<std::uint16_t, most_fields> nested{};  ///< of what lies behind that flag: a nested block, element flags
    std::array<std::uint16_t, most_variants> used{};  ///< used length
    std::array<std::uint16_t, most_variants> body{};  ///< length of an Instance without its block
    std::array<std::uint16_t, most_variants> block{}; ///< length of the state-flag block
    std::uint16_t links = 0;                          ///< of the link members of a list element
    std::uint8_t block_alignment = 1;

    constexpr std::size_t size(const Record& r) const { return body[r.variants() - 1]; }
    constexpr std::size_t block_length(const Record& r) const { return block[r.variants() - 1]; }
};

constexpr Layout lay_out(const Record& r); // for a record known at compile time, use layout<R>

namespace detail {

struct Extent {
    std::size_t length;
    std::size_t alignment;
};

constexpr Extent extent(const Field& f) {
    switch (f.kind) {
    case Kind::text:
    case Kind::array:
    case Kind::arm: return {8, 8};
    case Kind::list: return {list_head_length, 8};
    case Kind::embedded: return {lay_out(*f.record).size(*f.record), 8};
    case Kind::characters:
    case Kind::run: return {std::size_t{f.capacity} * f.foreign->length, f.foreign->alignment};
    default: break;
    }
    return f.is_own_enum() ? Extent{enum_length, 8} : Extent{f.foreign->length, f.foreign->alignment};
}

/// What follows a field's own flag in the block.
constexpr Extent nested_extent(const Field& f) {
    if (f.kind == Kind::embedded) {
        const Layout l = lay_out(*f.record);
        return {l.block_length(*f.record), l.block_alignment};
    }
    if (f.is_placed_object()) return {f.foreign->block_length, f.foreign->block_alignment};
    if (f.kind == Kind::array) return {8, 8};
    if (f.kind == Kind::run) return {f.capacity, 1};
    return {0, 1};
}

/// The allocation is larger than the used length by an amount that grows with the record, so that a later variant may
/// fit.
constexpr std::size_t body_length(std::size_t used) {
    return round_up(used, 8) + (used > 64 ? 16 : 8);
}

} // namespace detail

constexpr Layout lay_out(const Record& r) {
    Layout l;
    std::size_t offset = header_length;
    std::size_t flag = 0;
    for (std::size_t i = 0; i < r.count; ++i) {
        const Field& f = r.fields[i];
        if (r.is_linked() && std::string_view(r.linked_before) == f.name) {
            offset = round_up(offset, 8);
            l.links = static_cast<std::uint16_t>(offset);
            offset += link_length;
        }
        const detail::Extent e = detail::extent(f);
        offset = round_up(offset, e.alignment);
        l.offset[i] = static_cast<std::uint16_t>(offset);
        offset += e.length;
        if (f.is_tracked()) {
            l.flag[i] = static_cast<std::uint16_t>(flag++);
            const detail::Extent n = detail::nested_extent(f);
            flag = round_up(flag, n.alignment);
            l.nested[i] = static_cast<std::uint16_t>(flag);
            flag += n.length;
            l.block_alignment = std::max(l.block_alignment, static_cast<std::uint8_t>(n.alignment));
        }
        const auto variant = static_cast<std::size_t>(f.since);
        l.used[variant] = static_cast<std::uint16_t>(offset);
        l.body[variant] = static_cast<std::uint16_t>(detail::body_length(offset));
        l.block[variant] = static_cast<std::uint16_t>(round_up(flag, l.block_alignment));
    }
    return l;
}

/// Bytes that a field takes in an Instance.
constexpr std::size_t length_of(const Field& f) {
    return detail::extent(f).length;
}

template <const Record& R>
inline constexpr Layout layout = lay_out(R);

template <const Record& R>
inline constexpr std::size_t size = layout<R>.size(R);

template <const Record& R>
inline constexpr std::size_t block_length = layout<R>.block_length(R);

/// Index of the length field of a text or array.
template <const Record& R, std::size_t I>
inline constexpr std::size_t companion = R.index_of(R.fields[I].companion);

/// Index of the text or array that a length field counts.
template <const Record& R, std::size_t I>
inline constexpr std::size_t counted_field = [] {
    std::size_t i = I;
    while (R.fields[i].companion == nullptr || R.index_of(R.fields[i].companion) != I) ++i;
    return i;
}();

/// Whether nested Instances of the record have state flags whose offsets must be registered with the runtime.
constexpr bool has_nested_blocks(const Record& r) {
    return r.any([](const Field& f) { return f.has_nested_block(); });
}

/// Calls f.template operator()<I>() for every field of R, in declaration order.
template <const Record& R, class F>
constexpr void for_each_field(F&& f) {
    [&]<std::size_t... I>(std::index_sequence<I...>) {
        (f.template operator()<I>(), ...);
    }
    (std::make_index_sequence<R.count>{});
}

} // namespace epm::catalogue
