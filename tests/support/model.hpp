// A model of every record: a tree of plain values, and what each operation must make of it. It goes by the catalogue's
// tables alone, never through the library's templates, so that a rule is written down twice and a fault in one shows.
//     Tree t = draw(record, agreement, random);             // what an Instance is to hold
//     fill(D, t, x);                                        // through exported setters; notes the marks that they
//     leave written(t, agreement, is_tracked, room).written();    // the bytes that marshal() must write
// Cells above a Tree's variant are there but not shown: order and hash look at them.
#pragma once

#include "support/heap.hpp"
#include "support/text.hpp"

#include <zur/foreign.h>

#include <array>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace epm::test {

using catalogue::Foreign;

struct Tree;

/// What one field holds.
struct Cell {
    std::uint64_t number = 0; ///< of a value; a length follows from what it counts
    int variant = 0;          ///< of an enumerated value that is an Instance
    std::string bytes;        ///< text, characters, run; numbers of an array as in memory; an object in wire form
    std::vector<Tree> trees;  ///< embedded: one; arm: none or one; elements of an array or a list
    std::uint8_t flag = 0;    ///< state flag, or whole flag
    std::string flags;        ///< state flags of the elements
};

struct Tree {
    const Record* r = nullptr;
    int variant = 0;
    std::vector<Cell> cells;
    bool has_ra = false; ///< a block of the runtime's travels with it

    bool shows(std::size_t i) const { return r->fields[i].since <= variant; }
    bool selects(const Field& arm) const { return cells[0].number == arm.tag; }
    std::size_t count(const Field& f) const {
        const Cell& c = cells[r->index_of(f.name)];
        return f.is_of_record() ? c.trees.size() : c.bytes.size() / f.foreign->length;
    }
    /// Changes the last byte or element of a field, or one that is a nested record's; false when it has none.
    bool change_end(std::size_t i, const Cell& other) {
        Cell& c = cells[i];
        if (r->fields[i].kind == Kind::object) return false;
        if (!c.trees.empty() && !other.trees.empty()) c.trees.back() = other.trees.back();
        if (!c.bytes.empty() && c.bytes.back() != 0) c.bytes.back() ^= 1;
        return !(c.trees.empty() || other.trees.empty()) || (!c.bytes.empty() && c.bytes.back() != 0);
    }
    /// A number as it is in memory and on the wire.
    std::uint64_t number(std::size_t i) const {
        if (r->fields[i].kind != Kind::length) return cells[i].number;
        for (const Field& f : r->fields)
            if (f.companion != nullptr && r->index_of(f.companion) == i) return count(f);
        return 0;
    }
};

struct Random {
    std::mt19937 engine;

    std::uint32_t number() { return static_cast<std::uint32_t>(engine()); }
    unsigned below(unsigned n) { return number() % n; }
    bool once_in(unsigned n) { return below(n) == 0; }
};

/// The variants that two sides have agreed on.
struct Agreement {
    int of_others = PLATFORM_HIGHEST_VARIANT;
    std::map<std::string, int> by_type;

    int of(const char* type) const {
        const auto found = by_type.find(type);
        return found != by_type.end() ? found->second : of_others;
    }
    int of(const auto& type) const { return std::min<int>(of(type.name), type.top()); }
    void conclude(TestDomain& D) const {
        platform_domain_clear_agreement(D);
        D.agree_all(of_others);
        for (const auto& [type, variant] : by_type)
            if (variant != of_others) D.agree(type.c_str(), variant);
    }
};

inline bool is_auth_domain(const Field& f) {
    return f.foreign == &catalogue::sm_auth_domain;
}
/// Bytes of a field's number.
inline std::size_t width_of(const Field& f) {
    return f.is_own_enum() || is_auth_domain(f) ? 4 : f.foreign->length;
}
inline std::string big_endian(std::uint64_t number, std::size_t width) {
    std::string bytes;
    while (width-- != 0) bytes += static_cast<char>(width < 8 ? number >> 8 * width : 0);
    return bytes;
}
/// The machine's own order, in which bytes are compared and hashed.
inline std::string in_memory(std::uint64_t number, std::size_t width) {
    const std::string bytes = big_endian(number, width);
    return {bytes.rbegin(), bytes.rend()};
}

// ---- the runtime's part ----

/// A value of an imported type, made from its wire form, and what the runtime's own operations say of it.
class Imported {
public:
    static constexpr std::int32_t room = 1 << 18;
    std::uint32_t st = 0;

    Imported(const Foreign& type, const std::string& wire = "", zur_domain* D = domain()) : type_(type), D_(D) {
        if (!wire.empty())
            call<std::uint32_t>("unmarshal", wire.data(), memory_, static_cast<std::int32_t>(wire.size()), 0u, &st);
    }
    ~Imported() {
        if (type_.is_object()) call<void>("destroy_internal", memory_, 0u);
    }
    Imported(const Imported&) = delete;
    Imported& operator=(const Imported&) = delete;

    std::string wire() {
        return text([&](char* to) { return call<std::uint32_t>("marshal", to, memory_, room, &st); });
    }
    void* object() { return memory_; }
    std::int32_t compare(const Imported& other) const {
        return operation<std::int32_t(const void*, const void*)>("compare")(memory_, other.memory_);
    }
    std::uint32_t hash(std::uint32_t h) const {
        return operation<std::uint32_t(const void*, std::uint32_t)>("hash")(memory_, h);
    }
    /// In print form, or as an element where the indent is negative.
    std::string shown(const std::string& name, std::int32_t indent, std::uint8_t flag) {
        return text([&](char* to) {
            return indent < 0 ? call<std::uint32_t>("to_xml", name.c_str(), to, memory_, room, std::uint32_t{flag}, &st)
                              : call<std::uint32_t>("print", to, indent, name.c_str(), memory_, room, &st);
        });
    }
    /// A text of the Bundle's own, printed or as an element.
    static std::string characters(const Field& f, const std::string& text, std::int32_t indent, std::uint8_t flag) {
        const bool is_text = f.kind == Kind::text;
        const auto size = static_cast<std::uint32_t>(text.size());
        std::uint32_t st = 0;
        return Imported::text([&](char* to) {
            return indent < 0 ? (is_text ? var_string_to_xml : null_string_to_xml)(domain(), 0, f.name, to, text.data(),
                                                                                   room, size, flag, &st)
                              : (is_text ? var_string_print : null_string_print)(domain(), 0, to,
                                                                                 static_cast<std::uint32_t>(indent),
                                                                                 f.name, text.data(), room, size, &st);
        });
    }
    /// What is written into a buffer.
    template <class Write>
    static std::string text(Write write) {
        static std::string buffer(room, '\0');
        return buffer.substr(0, write(buffer.data()));
    }
    static zur_domain* domain() {
        static zur_domain* const D = platform_domain_create(nullptr);
        return D;
    }

private:
    template <class Signature>
    Signature* operation(const std::string& name) const {
        static std::map<std::string, void*> all;
        void*& found = all[type_.name + ("_" + name)];
        if (found == nullptr) found = dlsym(RTLD_NEXT, (type_.name + ("_" + name)).c_str());
        return reinterpret_cast<Signature*>(found);
    }
    template <class Result, class... A>
    Result call(const char* name, A... arguments) const {
        return operation<Result(zur_domain*, std::uint32_t, A...)>(name)(D_, ZUR_NO_SET, arguments...);
    }
    const Foreign& type_;
    zur_domain* D_;
    alignas(8) char memory_[64] = {};
};

// ---- trees ----

/// A record that nobody has set yet.
inline Tree blank(const Record& r, const Agreement& agreed) {
    Tree t{.r = &r, .variant = agreed.of(r), .cells = std::vector<Cell>(r.count)};
    for (std::size_t i = 0; i < r.count; ++i) {
        const Field& f = r.fields[i];
        Cell& c = t.cells[i];
        if (f.is_own_enum()) c.variant = agreed.of(*f.enumeration);
        if (is_auth_domain(f)) c.variant = std::min(agreed.of(f.foreign->name), 0);
        if (f.kind == Kind::embedded) c.trees = {blank(*f.record, agreed)};
        if (f.kind == Kind::characters || f.kind == Kind::run) c.bytes.resize(f.capacity);
        if (f.kind == Kind::run) c.flags.resize(f.capacity);
        if (f.kind == Kind::object) c.bytes = Imported(*f.foreign).wire();
    }
    return t;
}

/// Text in which every character may need an escape, but for NUL, which would end it.
inline std::string draw_text(Random& random, std::size_t length) {
    std::string text;
    while (text.size() < length)
        text += random.once_in(8) ? "<&>\\\n\x7F\xFF]"[random.below(8)] : static_cast<char>(' ' + random.below(95));
    return text;
}

/// An object in wire form: bytes, behind their length where they are counted.
inline std::string draw_object(const std::string& type, Random& random) {
    const bool is_counted = type == "zur_vstring" || type == "kesh_bytestr" || type == "aaa_tlv";
    std::string bytes(is_counted                            ? random.below(12)
                      : type == "zur_mac_addr"              ? 6
                      : type == "sess_mgr_authorize_result" ? 4
                                                            : 8,
                      '\0');
    for (char& byte : bytes) byte = static_cast<char>(random.number());
    if (type == "ip_address") return random.once_in(2) ? "\4" + bytes.substr(4) : "\6" + bytes + bytes;
    if (type == "zur_vstring") bytes = draw_text(random, bytes.size());
    return (type == "aaa_tlv" ? "type" : "") + (is_counted ? big_endian(bytes.size(), 4) : "") + bytes;
}

/// A record with random content in all cells that it shows, and random state flags where they are wanted. The numbers
/// of arms, elements and characters are random, too, and few of them are 0.
inline Tree draw(const Record& r, const Agreement& agreed, Random& random, bool has_flags = false) {
    Tree t = blank(r, agreed);
    t.has_ra = random.once_in(9);
    for (std::size_t i = 0; i < r.count; ++i) {
        const Field& f = r.fields[i];
        Cell& c = t.cells[i];
        if (!t.shows(i)) continue;
        const unsigned few = random.once_in(5) ? 0 : 1 + random.below(3);
        switch (f.kind) {
        case Kind::value:
            c.number = std::uint64_t{random.number()} << 32 | random.number();
            if (f.is_own_enum())
                c.number %= std::max(1u, f.enumeration->accepted(static_cast<std::int8_t>(c.variant)));
            else if (width_of(f) < 8)
                c.number %= std::uint64_t{1} << 8 * width_of(f);
            break;
        case Kind::object: c.bytes = draw_object(f.foreign->name, random); break;
        case Kind::text: c.bytes = draw_text(random, few * random.below(20)); break;
        case Kind::characters:
            c.bytes = draw_text(random, random.below(f.capacity + 1u));
            c.bytes.resize(f.capacity);
            break;
        case Kind::run:
            for (char& byte : c.bytes) byte = static_cast<char>(random.number());
            break;
        case Kind::embedded: c.trees = {draw(*f.record, agreed, random, has_flags)}; break;
        case Kind::array:
        case Kind::list:
            for (unsigned n = 0; n < few; ++n)
                if (f.is_of_record())
                    c.trees.push_back(draw(*f.record, agreed, random, has_flags));
                else
                    c.bytes += in_memory(random.number(), f.foreign->length);
            break;
        default: break;
        }
        if (f.kind == Kind::array) c.flags.resize(t.count(f));
        if (!has_flags || !f.is_tracked()) continue;
        c.flag = static_cast<std::uint8_t>(random.number());
        for (char& flag : c.flags) flag = static_cast<char>(random.number());
    }
    if (!r.is_union() || agreed.of(r) < 0) return t;
    // One arm that is selected, or none; and some that were selected before.
    const std::size_t selected = 1 + random.below(static_cast<unsigned>(r.count));
    for (std::size_t i = 1; i < r.count; ++i)
        if (t.shows(i) && (i == selected || random.once_in(6))) {
            t.cells[i].trees = {draw(*r.fields[i].record, agreed, random, has_flags)};
            if (i == selected) t.cells[0].number = r.fields[i].tag;
        }
    return t;
}

inline std::string hex(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) (text += "0123456789abcdef"[c >> 4 & 15]) += "0123456789abcdef"[c & 15];
    return text;
}

// ---- bytes ----

/// A field that is no record in wire form, or its element number n.
inline std::string wire_of(const Tree& t, std::size_t i, std::size_t n = 0) {
    const Field& f = t.r->fields[i];
    const Cell& c = t.cells[i];
    if (f.kind == Kind::object) return c.bytes;
    if (!f.has_element_flags() && f.kind != Kind::characters)
        return (is_auth_domain(f) ? big_endian(static_cast<std::uint64_t>(c.variant), 1) : "") +
               big_endian(t.number(i), width_of(f));
    const std::string bytes = c.bytes.substr(n * f.foreign->length, f.foreign->length);
    return {bytes.rbegin(), bytes.rend()};
}

// ---- reading ----

/// What a reader leaves in `to`, and in what it nests, of a record that was sent: no more than variant `cap`.
struct Receipt {
    const Agreement& agreed;
    std::uint8_t mark; ///< that a setter leaves; an element is appended with one
    bool has_flags;    ///< sent, and stored
    bool is_reuse;
    bool is_of_xml; ///< whose reader uses setters

    /// In an Instance that is made for it.
    Tree fresh(const Tree& from) const {
        Tree t = blank(*from.r, agreed);
        receive(t, from);
        return t;
    }
    void receive(Tree& to, const Tree& from, int cap = PLATFORM_HIGHEST_VARIANT) const {
        const int variant = std::min(from.variant, cap);
        for (std::size_t i = 0; i < to.cells.size(); ++i) {
            const Field& f = to.r->fields[i];
            if (f.since <= variant)
                field(f, to.cells[i], from.cells[i], from.selects(f));
            else if (to.shows(i))
                empty(f, to.cells[i]);
        }
        to.variant = variant;
        to.has_ra = to.has_ra || (from.has_ra && !is_of_xml);
    }

private:
    /// Fields that a lower variant hides give up what they own; numbers stay.
    void empty(const Field& f, Cell& c) const {
        if (f.kind == Kind::embedded) {
            for (std::size_t i = 0; i < f.record->count; ++i) empty(f.record->fields[i], c.trees[0].cells[i]);
        } else if (f.kind != Kind::value && f.kind != Kind::characters && f.kind != Kind::run) {
            c.bytes = f.kind == Kind::object ? Imported(*f.foreign).wire() : "";
            c.trees.clear();
            c.flags.clear();
        }
    }
    void field(const Field& f, Cell& to, const Cell& from, bool is_selected) const {
        const bool is_empty = from.bytes.empty() && from.trees.empty();
        bool is_flag_sent = has_flags, is_marked = false;
        switch (f.kind) {
        case Kind::embedded: receive(to.trees[0], from.trees[0]); break;
        case Kind::arm:
            if (!is_selected) break;
            if (to.trees.empty()) to.trees = {blank(*f.record, agreed)};
            if (!from.trees.empty()) receive(to.trees[0], from.trees[0]);
            break;
        case Kind::list:
            if (is_reuse && to.trees.size() == from.trees.size()) {
                for (std::size_t i = 0; i < to.trees.size(); ++i) receive(to.trees[i], from.trees[i]);
                break;
            }
            if (is_reuse) to.trees.clear();
            for (const Tree& t : from.trees) to.trees.push_back(fresh(t));
            is_marked = !is_empty;
            break;
        case Kind::array:
            to.trees.clear();
            for (const Tree& t : from.trees) to.trees.push_back(fresh(t));
            [[fallthrough]];
        case Kind::text:
            is_flag_sent = has_flags && !is_empty;
            is_marked = is_of_xml && !is_empty;
            [[fallthrough]];
        default:
            to.bytes = from.bytes;
            to.number = from.number;
            to.variant = from.variant;
        }
        const std::size_t count = from.flags.size();
        if (is_flag_sent || is_marked) to.flag = is_flag_sent ? from.flag : mark;
        if (is_flag_sent)
            to.flags = from.flags;
        else if (is_of_xml)
            to.flags = std::string(count, static_cast<char>(is_marked ? mark : 0));
        else // flags of more elements than before do not exist
            to.flags = count > to.flags.size() ? std::string(count, '\0') : to.flags.substr(0, count);
    }
};

// ---- writing ----

/// The writer into a buffer of some room. It goes on after a failure, as the library's does.
class Writer {
public:
    Writer(std::size_t room, const Agreement& agreement, bool is_tracked)
        : buffer(room + 1, '\xEE'), agreed_(agreement), is_tracked_(is_tracked) {}

    std::string buffer; ///< with the byte behind its end, in which a last flag may land
    std::size_t used = 0;
    std::uint32_t st = 0;
    /// Writes as a build that knows one variant more, and fields of it that nobody else does.
    bool is_of_future = false;
    unsigned later = 0; ///< records of such a variant

    std::string written() const { return buffer.substr(0, used); }

    /// `is_bound`: what was agreed limits the variant.
    void record(const Tree& t, bool is_bound) {
        if (!opens()) return;
        const int variant = bound(t.variant, agreed_.of(t.r->name), is_bound, t.r->top());
        const bool is_later = is_of_future && variant == t.r->top();
        later += is_later;
        part(big_endian(static_cast<std::uint64_t>(variant + is_later), 1));
        part(big_endian(8u * is_tracked_ + 32u * t.has_ra, 1));
        if (t.has_ra) part(big_endian(0, 9));
        const std::size_t jump = used;
        const bool has_jump = left() >= 4;
        part(big_endian(0, 4));
        for (std::size_t i = 0; i < t.r->count; ++i)
            if (t.r->fields[i].since <= variant) field(t, i);
        if (is_later) append("???");
        if (has_jump) buffer.replace(jump, 4, big_endian(used - jump, 4));
    }
    void enumeration(std::uint64_t number, int variant, const char* type, int top) {
        if (!opens()) return;
        part(big_endian(static_cast<std::uint64_t>(bound(variant, agreed_.of(type), true, top)), 1));
        codec(big_endian(number, 4));
    }

private:
    const Agreement& agreed_;
    bool is_tracked_;

    std::size_t left() const { return buffer.size() - 1 - used; }
    void append(std::string_view bytes) {
        buffer.replace(used, bytes.size(), bytes);
        used += bytes.size();
    }
    bool opens() {
        if (st == 0 && left() == 0) st = 90;
        return st == 0;
    }
    int bound(int variant, int agreed, bool is_bound, int top) {
        if (is_bound && variant > agreed) {
            st = 43;
            variant = agreed;
        }
        return std::min(variant, top);
    }
    /// Of the frame; also under a raised word.
    void part(std::string_view bytes) {
        if (left() >= bytes.size()) return append(bytes);
        if (st == 0) st = 90;
    }
    void codec(std::string_view bytes) {
        if (st == 0) part(bytes);
    }
    void flag(std::uint8_t flag) {
        if (!is_tracked_) return;
        buffer[used] = static_cast<char>(flag);
        used += left() != 0;
    }
    void flag_with_room(std::uint8_t flag) {
        if (is_tracked_ && left() >= 2) append({reinterpret_cast<const char*>(&flag), 1});
    }
    void field(const Tree& t, std::size_t i) {
        const Field& f = t.r->fields[i];
        const Cell& c = t.cells[i];
        const bool is_many = f.has_element_flags() || f.kind == Kind::characters;
        if ((f.kind == Kind::text || f.kind == Kind::array) && t.count(f) == 0) return;
        if (f.kind == Kind::text) {
            if (c.bytes.size() > left()) st = 90;
            append(std::string_view(c.bytes).substr(0, left()));
        } else if (f.is_own_enum()) {
            enumeration(c.number, c.variant, f.enumeration->name, f.enumeration->top());
        } else if (is_auth_domain(f)) {
            auth_domain(c);
        } else if (!f.is_of_record()) {
            for (std::size_t n = 0; n < (is_many ? t.count(f) : 1); ++n) codec(wire_of(t, i, n));
        }
        if (f.kind == Kind::length) return;
        if (f.kind == Kind::list) codec(big_endian(c.trees.size(), 4));
        if (f.kind == Kind::arm && t.selects(f) && c.trees.empty()) st = 2;
        for (const Tree& nested : c.trees)
            if (f.kind != Kind::arm || t.selects(f)) record(nested, true);
        if (f.kind == Kind::list || f.kind == Kind::arm) return flag_with_room(c.flag);
        flag(c.flag);
        if (is_tracked_) append(std::string_view(c.flags).substr(0, left()));
    }
    /// The runtime's own enumeration looks at its whole room first.
    void auth_domain(const Cell& c) {
        if (st == 0 && left() < 5) st = 90;
        if (st == 0) enumeration(c.number, c.variant, "sm_auth_domain", 0);
    }
};

inline Writer written(const Tree& t, const Agreement& agreed, bool is_tracked, std::size_t room = 1 << 16,
                      bool is_bound = true) {
    Writer out(room, agreed, is_tracked);
    out.record(t, is_bound);
    return out;
}

/// What len() counts: by the Instance's own variant, in tracked mode with a flag for each character of a text.
inline std::size_t length_of(const Tree& t, bool is_tracked) {
    std::size_t sum = 6;
    for (std::size_t i = 0; i < t.r->count; ++i) {
        if (!t.shows(i)) continue;
        const Field& f = t.r->fields[i];
        const Cell& c = t.cells[i];
        const bool is_counted = f.kind != Kind::arm || t.selects(f);
        for (const Tree& nested : c.trees) sum += is_counted ? length_of(nested, is_tracked) : 0;
        sum += f.kind == Kind::value || f.kind == Kind::length ? wire_of(t, i).size() + f.is_own_enum()
               : f.kind == Kind::list                          ? 4
                                                               : c.bytes.size();
        if (is_tracked && f.is_tracked()) sum += 1 + (f.companion != nullptr ? t.count(f) : f.capacity);
    }
    return sum;
}

// ---- order and hash ----

inline std::int32_t order_of(auto a, auto b) {
    return a < b ? -1 : a > b;
}

/// Only its sign is known.
inline std::int32_t compare(const Tree& a, const Tree& b) {
    std::int32_t order = 0;
    for (std::size_t i = 0; i < a.r->count && order == 0; ++i) {
        const Field& f = a.r->fields[i];
        const Cell& of_a = a.cells[i];
        const Cell& of_b = b.cells[i];
        if (f.kind == Kind::arm && !a.selects(f)) continue;
        if (f.is_own_enum())
            order = static_cast<std::int32_t>(of_a.number - of_b.number);
        else if (f.kind == Kind::value && f.foreign->length == 1)
            order = order_of(static_cast<std::int8_t>(of_a.number), static_cast<std::int8_t>(of_b.number));
        else if (f.kind == Kind::value || f.kind == Kind::length)
            order = order_of(a.number(i), b.number(i));
        else if (f.kind == Kind::object)
            order = Imported(*f.foreign, of_a.bytes).compare(Imported(*f.foreign, of_b.bytes));
        else if (f.is_of_record() && f.kind != Kind::array)
            order = order_of(of_a.trees.size(), of_b.trees.size());
        else if (!f.is_of_record())
            order = order_of(of_a.bytes.compare(of_b.bytes), 0);
        for (std::size_t n = 0; n < std::min(of_a.trees.size(), of_b.trees.size()) && order == 0; ++n)
            order = compare(of_a.trees[n], of_b.trees[n]);
    }
    return order;
}

inline std::uint32_t hash(std::string_view bytes, std::uint32_t h) {
    return SuperFastHash(bytes.data(), static_cast<std::uint32_t>(bytes.size()), h);
}

inline std::uint32_t hash(const Tree& t, std::uint32_t h) {
    for (std::size_t i = 0; i < t.r->count; ++i) {
        const Field& f = t.r->fields[i];
        const Cell& c = t.cells[i];
        if (f.companion != nullptr) {
            const std::size_t width = t.r->fields[t.r->index_of(f.companion)].foreign->length;
            h = hash(in_memory(t.count(f), width), h);
        }
        if (f.kind == Kind::list) h = hash(in_memory(c.trees.size(), 4), h);
        if (f.kind == Kind::arm) h = hash(in_memory(t.cells[0].number, 4), h);
        for (const Tree& nested : c.trees) h = hash(nested, h);
        if (f.kind == Kind::object) {
            h = Imported(*f.foreign, c.bytes).hash(h);
        } else if (f.kind == Kind::value || f.kind == Kind::length) {
            h = hash(in_memory(t.number(i), width_of(f)), h);
        } else {
            h = hash(c.bytes, h);
        }
    }
    return h;
}

// ---- texts ----

inline std::string blanks(std::int32_t n) {
    return std::string(static_cast<std::size_t>(std::max(n, 0)), ' ');
}
inline std::string shown(const Enum& e, const std::string& name, std::uint64_t number, std::int32_t indent) {
    const std::string known = number < e.count ? e.enumerators[number].name : "";
    if (indent < 0)
        return "<" + name + "><" + (known.empty() ? e.name + std::string(" value out of range") : known) + "/></" +
               name + ">";
    return blanks(indent) + name + "@" + e.name + ":" + (known.empty() ? "Enum value out of range" : known + "\n");
}

/// The print form, at an indent; the XML form with a flag in its tag where the indent is negative.
inline std::string shown(const Tree& t, const std::string& name, std::int32_t indent, std::uint8_t flag = 0) {
    const bool is_xml = indent < 0;
    const std::int32_t deeper = is_xml ? indent : indent + 2;
    std::string text = is_xml ? "<" + name + (flag != 0 ? " flag=\"" + std::to_string(flag) + "\">" : ">")
                              : blanks(indent) + name + "@" + t.r->name + ": {\n";
    for (std::size_t i = 0; i < t.r->count; ++i) {
        const Field& f = t.r->fields[i];
        const Cell& c = t.cells[i];
        if (!t.shows(i) && !is_xml) return text; // the block stays open
        if (!t.shows(i)) continue;
        std::string label = f.name;
        if (f.kind == Kind::arm) label = std::string("epm_type") + (is_xml ? "-" : ".") + f.name;
        if (f.kind == Kind::list && !is_xml) {
            label = "list " + label;
            text += blanks(deeper) + label + " count@u_int32:" + std::to_string(c.trees.size()) + "\n";
        }
        const std::size_t count = f.kind == Kind::arm && !t.selects(f)        ? 0
                                  : f.is_of_record() || f.has_element_flags() ? t.count(f)
                                                                              : 1;
        for (std::size_t n = 0; n < count; ++n) {
            const auto mark = static_cast<std::uint8_t>(f.has_element_flags() ? c.flags[n] : c.flag);
            const std::string each = f.has_element_flags() && !is_xml ? label + "[" + std::to_string(n) + "]" : label;
            if (f.is_own_enum())
                text += shown(*f.enumeration, each, c.number, deeper);
            else if (f.is_of_record())
                text += shown(c.trees[n], each, deeper, mark);
            else if (f.kind == Kind::text || f.kind == Kind::characters)
                text += Imported::characters(f, c.bytes, deeper, mark);
            else
                text += Imported(*f.foreign, wire_of(t, i, n)).shown(each, deeper, mark);
        }
    }
    if (is_xml) return text + "</" + name + ">";
    // The blanks of the last line go to the block's start; where they are missing there is the last terminator, and
    // what the buffer held.
    if (indent != 0) text += '\0' + std::string(static_cast<std::size_t>(indent) - 1, GuardedBuffer::filler);
    return text + "}\n";
}

// ---- setters ----

/// Whether a Domain tracks now; a test may take its handle away.
inline bool is_tracking(const zur_domain* D) {
    return D->tracking_handle != nullptr && D->tracking_handle->handle_kind == ZUR_TRACKED_MODE;
}

inline void fill(TestDomain& D, Tree& t, Instance* x);

inline void fill(TestDomain& D, const Tree& t, const Field& f, Cell& c, Instance* x) {
    if (f.kind == Kind::length) return;
    const std::uint8_t mark = is_tracking(D) ? 2 : 0;
    const bool is_set = !(f.kind == Kind::array || f.kind == Kind::list || f.kind == Kind::arm) ||
                        !(c.bytes.empty() && c.trees.empty());
    c.flag = is_set && f.kind != Kind::embedded ? mark : 0;
    c.flags.assign(c.flags.size(), static_cast<char>(f.is_of_record() ? mark : 0));
    const std::size_t width = f.has_element_flags() && !f.is_of_record() ? f.foreign->length : 1;
    const auto size = static_cast<std::uint32_t>(f.kind == Kind::characters ? strnlen(c.bytes.data(), f.capacity)
                                                                            : c.bytes.size() / width);
    if (f.kind == Kind::value) return call(D, *t.r, f, "set_value", x, c.number);
    if (f.kind == Kind::object) {
        Imported source(*f.foreign, c.bytes, D);
        D.st = source.st;
        return call(D, *t.r, f, "set", x, source.object());
    }
    if (f.kind == Kind::embedded) return fill(D, c.trees[0], call<Instance*>(D, *t.r, f, "get", x));
    if (is_set && !f.is_of_record())
        call(D, *t.r, f, f.has_element_flags() ? "set_mem" : "set", x, c.bytes.data(), size);
    for (std::uint32_t n = 0; n < c.trees.size() && D.st == 0; ++n) {
        auto* element = bare<Instance*>(D, *f.record, "create");
        if (element == nullptr) return void(D.st = ZUR_NO_MEMORY);
        fill(D, c.trees[n], element);
        if (D.st == 0 && f.kind == Kind::array)
            call(D, *t.r, f, "set", x, n, element, 1u); // moved
        else if (D.st == 0)
            call(D, *t.r, f, f.kind == Kind::list ? "set_last" : "set", x, element);
        if (f.kind == Kind::array || D.st != 0) bare(D, *f.record, "destroy", element);
    }
}

/// Fills an Instance through exported setters, and notes in the tree the marks that they leave. Every way to set and
/// get each field is played in calls/. Stops when the Domain's status word is raised.
inline void fill(TestDomain& D, Tree& t, Instance* x) {
    if (t.has_ra && x != nullptr) x->flags |= ZUR_RA_DATA;
    // In a union the selected arm comes last, because each arm selects itself; or the tag, where it selects none.
    std::size_t last = 0;
    for (std::size_t i = 0; i < t.r->count; ++i)
        if (!t.r->is_union() || (t.selects(t.r->fields[i]) && !t.cells[i].trees.empty())) last = i;
    for (std::size_t i = t.r->is_union(); i < t.r->count && D.st == 0; ++i)
        if (i != last && t.shows(i)) fill(D, t, t.r->fields[i], t.cells[i], x);
    if (t.shows(last) && D.st == 0) fill(D, t, t.r->fields[last], t.cells[last], x);
}

} // namespace epm::test
