// Walks over the wire form. Nested records, arms, elements of arrays and lists are whole records:
//
//   1  variant byte        1  flag byte        9  ra block, with flag 0x20        4  jump word        fields
//
// With flag 0x08 each field is followed by its state flags. Imported types are framed as in the platform library.
#include "tool/walk.hpp"

#include "tool/failure.hpp"

#include <zur/types.h>

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace epm::tool {

namespace {

using Framing = Foreign::Framing;

std::string bytes_text(std::size_t length) {
    return std::to_string(length) + (length == 1 ? " byte" : " bytes");
}

std::string signed_text(std::uint64_t byte) {
    return std::to_string(static_cast<int>(static_cast<std::int8_t>(byte)));
}

std::string quoted(ByteView bytes) {
    return '"' + escaped(bytes) + '"';
}

class MessageWalk {
public:
    MessageWalk(const Type& type, ByteView message, Listener& listener)
        : type_(type), message_(message), listener_(listener) {}

    void whole() {
        if (type_.is_enum())
            enumeration(*type_.enumeration, "value");
        else
            record(*type_.record, "");
        if (rest() != 0)
            throw Damage{offset_, bytes_text(rest()) + " behind the end of the " +
                                      (type_.is_enum() ? "value" : "outermost record")};
    }

private:
    using PartKind = Part::Kind;

    std::size_t rest() const { return message_.size() - offset_; }

    /// The next bytes, without moving past them.
    ByteView next(std::size_t length, const std::string& path, const char* what = "") const {
        if (length > rest())
            throw Damage{offset_, path + what + ": needs " + bytes_text(length) + ", " + bytes_text(rest()) + " left"};
        return message_.subspan(offset_, length);
    }

    void put(PartKind kind, std::size_t length, const std::string& path, std::string type, std::string value) {
        if (length == 0 && kind != PartKind::remark) return;
        listener_.part({kind, offset_, length, path, std::move(type), std::move(value)});
        offset_ += length;
    }

    /// Takes a number that needs no remark.
    std::uint64_t take_number(PartKind kind, std::size_t length, const std::string& path, const char* type) {
        const std::uint64_t value = number(next(length, path, kind == PartKind::count ? ", count" : ""));
        put(kind, length, path, type, std::to_string(value));
        return value;
    }

    std::int8_t take_variant(const std::string& path, const char* type) {
        const std::uint64_t byte = number(next(1, path, ", variant byte"));
        put(PartKind::variant, 1, path, type, signed_text(byte));
        return static_cast<std::int8_t>(byte);
    }

    std::uint32_t enumeration(const Enum& e, const std::string& path) {
        const std::int8_t variant = take_variant(path, e.name);
        const auto value = static_cast<std::uint32_t>(number(next(4, path)));
        put(PartKind::value, 4, path, e.name,
            std::to_string(value) + " " + (value < e.count ? e.enumerators[value].name : "(no enumerator)"));
        listener_.enumerator(e, variant, value);
        return value;
    }

    /// Where a record must end.
    struct End {
        std::size_t jump_word;
        std::size_t goal;
    };

    void record(const Record& r, const std::string& prefix) {
        const std::string path = prefix.empty() ? r.name : prefix.substr(0, prefix.size() - 1);
        const std::int8_t variant = take_variant(path, r.name);
        const std::uint64_t flags = number(next(1, path, ", flag byte"));
        const bool is_tracked = (flags & ZUR_TRACKED) != 0, has_ra_block = (flags & ZUR_RA_DATA) != 0;
        put(PartKind::flags, 1, path, r.name,
            "0x" + to_hex(message_.subspan(offset_, 1)) + (is_tracked ? " state tracked" : "") +
                (has_ra_block ? " ra block" : ""));
        const ByteView ra_block = has_ra_block ? next(ra_block_length, path, ", ra block") : ByteView();
        put(PartKind::ra_block, ra_block.size(), path, r.name, to_hex(ra_block));
        const std::uint64_t jump = number(next(4, path, ", jump word"));
        const End end{offset_, offset_ + static_cast<std::size_t>(jump)};
        put(PartKind::jump_word, 4, path, r.name, std::to_string(jump) + ", to offset " + std::to_string(end.goal));
        listener_.begin(r, {variant, static_cast<std::uint8_t>(flags), ra_block});
        fields(r, prefix, variant, is_tracked, end);
        listener_.end(r, finish(r, path, variant, end));
    }

    void fields(const Record& r, const std::string& prefix, std::int8_t variant, bool is_tracked, const End& end) {
        std::array<std::uint32_t, catalogue::most_fields> lengths{};
        std::uint64_t tag = 0;
        for (std::size_t i = 0; i < r.count; ++i) {
            const Field& f = r.fields[i];
            if (variant < f.since) continue;
            const std::string path = prefix + f.name;
            const std::uint32_t present = f.companion != nullptr ? lengths[r.index_of(f.companion)] : f.capacity;
            if (f.kind == Kind::length) {
                lengths[i] =
                    static_cast<std::uint32_t>(take_number(PartKind::value, f.foreign->length, path, f.foreign->name));
                continue; // the one kind without a state flag
            }
            if (f.kind != Kind::arm || tag == f.tag) {
                listener_.begin(f);
                if (f.is_own_enum())
                    tag = enumeration(*f.enumeration, path);
                else
                    content(f, path, present);
                listener_.end(f);
            }
            if (is_tracked) state_flags(f, path, present, end);
        }
    }

    void content(const Field& f, const std::string& path, std::uint32_t present) {
        switch (f.kind) {
        case Kind::text:
        case Kind::characters: {
            const ByteView bytes = next(present, path);
            put(PartKind::value, present, path, "char", quoted(bytes));
            listener_.text(bytes);
            break;
        }
        case Kind::run: {
            const ByteView bytes = next(present, path);
            put(PartKind::value, present, path, f.foreign->name, to_hex(bytes));
            listener_.run(bytes);
            break;
        }
        case Kind::array:
            for (std::uint32_t e = 0; e < present; ++e) element(f, path + "[" + std::to_string(e) + "]");
            break;
        case Kind::list: list(f, path); break;
        default: element(f, path);
        }
    }

    void element(const Field& f, const std::string& path) {
        if (f.is_of_record())
            record(*f.record, path + ".");
        else
            foreign(*f.foreign, path);
    }

    void list(const Field& f, const std::string& path) {
        const std::uint64_t count = take_number(PartKind::count, 4, path, f.record->name);
        for (std::uint64_t e = 0; e < count; ++e) element(f, path + "[" + std::to_string(e) + "]");
    }

    /// A writer leaves out the last flags when its buffer is full; the jump word shows whether more is missing.
    void state_flags(const Field& f, const std::string& path, std::uint32_t present, const End& end) {
        if ((f.kind == Kind::text || f.kind == Kind::array) && present == 0) return;
        // After a list, the last byte of a message is the flag only if the record's jump word reaches that far.
        if (f.kind == Kind::list && rest() == 1 && end.goal <= offset_) return;
        const std::uint64_t wanted = f.has_element_flags() ? std::uint64_t{1} + present : 1;
        const ByteView flags = message_.subspan(offset_, std::min<std::uint64_t>(wanted, rest()));
        put(PartKind::state_flags, flags.size(), path, "state flag", to_hex(flags));
        listener_.state_flags(f, flags);
    }

    /// Returns the bytes that it passes over.
    ByteView finish(const Record& r, const std::string& path, std::int8_t variant, const End& end) {
        const std::string jump_word = "the jump word at " + std::to_string(end.jump_word);
        if (end.goal < offset_) {
            put(PartKind::remark, 0, path, r.name,
                jump_word + " leads back to " + std::to_string(end.goal) + ", the fields end here");
            return {};
        }
        const std::size_t unknown = end.goal - offset_;
        if (unknown > rest())
            throw Damage{offset_, path + ": " + jump_word + " leads to " + std::to_string(end.goal) +
                                      ", the message ends at " + std::to_string(message_.size())};
        put(PartKind::passed_over, unknown, path, r.name,
            variant > r.top() ? "fields of a later variant than is known here"
            : variant < 0     ? "a body in spite of the variant"
                              : "no field of this record");
        return message_.subspan(offset_ - unknown, unknown);
    }

    /// Takes numbers and everything else that another library supplies.
    void foreign(const Foreign& type, const std::string& path) {
        const char* name = type.name;
        std::int64_t front = 0;
        std::size_t length = 0;
        switch (type.framing) {
        case Framing::number: take_number(PartKind::value, length = type.wire_length, path, name); break;
        case Framing::character:
            length = 1;
            put(PartKind::value, length, path, name, signed_text(number(next(length, path))));
            break;
        case Framing::enumerated:
            front = take_variant(path, name);
            take_number(PartKind::value, length = 4, path, name);
            break;
        case Framing::mac:
            length = 6;
            put(PartKind::value, length, path, name, mac_text(next(length, path)));
            break;
        case Framing::address:
            front = static_cast<std::int64_t>(number(next(1, path)));
            if (front != 0 && front != 4 && front != 6)
                throw Damage{offset_, path + ": family " + std::to_string(front) + " is none of 0, 4 and 6"};
            put(PartKind::prefix, 1, path, "family", std::to_string(front));
            length = front == 4 ? 4 : front == 6 ? 16 : 0;
            put(PartKind::value, length, path, name, address_text(next(length, path)));
            break;
        case Framing::typed:
            front = static_cast<std::int64_t>(take_number(PartKind::prefix, 4, path, "type"));
            [[fallthrough]];
        case Framing::text:
        case Framing::bytes: {
            length = static_cast<std::size_t>(take_number(PartKind::prefix, 4, path, "length"));
            const ByteView bytes = next(length, path);
            put(PartKind::value, length, path, name, type.framing == Framing::text ? quoted(bytes) : to_hex(bytes));
            break;
        }
        }
        listener_.imported(type, front, message_.subspan(offset_ - length, length));
    }

    const Type& type_;
    const ByteView message_;
    Listener& listener_;
    std::size_t offset_ = 0;
};

/// Hands the parts on.
class PartTeller : public Listener {
public:
    explicit PartTeller(const std::function<void(const Part&)>& tell) : tell_(tell) {}
    void part(const Part& part) override { tell_(part); }

private:
    const std::function<void(const Part&)>& tell_;
};

} // namespace

std::uint64_t number(ByteView bytes) {
    std::uint64_t value = 0;
    for (const std::uint8_t b : bytes) value = value << 8 | b;
    return value;
}

std::string mac_text(ByteView bytes) {
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) text += (i != 0 ? ":" : "") + to_hex(bytes.subspan(i, 1));
    return text;
}

std::string address_text(ByteView bytes) {
    char text[INET6_ADDRSTRLEN] = "";
    if (!bytes.empty()) inet_ntop(bytes.size() == 4 ? AF_INET : AF_INET6, bytes.data(), text, sizeof text);
    return text;
}

void walk(const Type& type, ByteView message, Listener& listener) {
    MessageWalk(type, message, listener).whole();
}

void walk(const Type& type, ByteView message, const std::function<void(const Part&)>& tell) {
    PartTeller teller(tell);
    walk(type, message, teller);
}

std::vector<Part> passed_over(const Type& type, ByteView message) {
    std::vector<Part> parts;
    try {
        walk(type, message, [&](const Part& part) {
            if (part.kind == Part::Kind::passed_over) parts.push_back(part);
        });
    } catch (const Damage&) {
        return parts;
    }
    return parts;
}

} // namespace epm::tool
