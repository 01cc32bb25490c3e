// The traits that more than one foreign type is made of: numbers and byte runs.
#pragma once

#include "field.hpp"

namespace platform {

// Wire: the number in network order.
template <class Number>
struct NumberValue {
    using Value = Number;
    static constexpr Shape shape = Shape::plain;
    static constexpr bool moves = false;
    static constexpr bool owns_buffer = false;
    static constexpr bool may_be_empty = false;
    static constexpr uint32_t content_size = sizeof(Number);

    static uint32_t length(Value) { return sizeof(Number); }
    static void encode(uint8_t* to, Value value) { put_number(to, value); }
    static uint32_t decode(const uint8_t* from, uint32_t room, Value& value, uint32_t& used) {
        if (room < sizeof(Number)) return ZUR_WRONG_LENGTH;
        value = get_number<Number>(from);
        used = sizeof(Number);
        return 0;
    }
    static constexpr uint32_t longest_text = longest_number;
    // A character is shown as its number.
    static char* append_text(char* to, Value value) {
        if constexpr (sizeof(Number) == 1)
            return append_number(to, static_cast<int>(value));
        else
            return append_number(to, value);
    }
    static void text(TextWriter& writer, Value value, bool) {
        char characters[longest_text];
        writer.put({characters, append_text(characters, value)});
    }
    static bool parse(const char* characters, uint32_t size, Value& value) {
        using Digits = std::conditional_t<std::is_same_v<Number, char>, signed char, Number>;
        Digits digits{};
        const bool whole = parse_number(trimmed(characters, size), digits);
        value = static_cast<Number>(digits);
        return whole;
    }
    static int32_t compare(Value a, Value b) { return order(a, b); }
    static uint32_t hash(Value value, uint32_t seed) { return SuperFastHash(&value, sizeof value, seed); }
};

// A number that is the whole object.
template <class Number>
struct Primitive : NumberValue<Number> {
    using Object = Number;
    static void* content(Object* object) { return object; }
    static Number load(const Object* object) { return object != nullptr ? *object : Number{}; }
    static void store(Object* object, Number value) { *object = value; }
};

// A number in an object's member `value`.
template <class Type, class Number>
struct Wrapped : NumberValue<Number> {
    using Object = Type;
    static void* content(Object* object) { return &object->value; }
    static Number load(const Object* object) { return object != nullptr ? object->value : Number{}; }
    static void store(Object* object, Number value) { object->value = value; }
};

struct Bytes {
    const uint8_t* bytes;
    uint32_t length;
};

inline int32_t order(Bytes a, Bytes b) {
    const uint32_t common = std::min(a.length, b.length);
    const int bytes = common != 0 ? std::memcmp(a.bytes, b.bytes, common) : 0;
    return bytes != 0 ? order(bytes, 0) : order(a.length, b.length);
}

inline uint32_t decode_bytes(const uint8_t* from, uint32_t room, Bytes& value, uint32_t& used) {
    if (room < sizeof(uint32_t)) return ZUR_WRONG_LENGTH;
    const auto length = get_number<uint32_t>(from);
    if (length > room - sizeof(uint32_t)) return ZUR_WRONG_LENGTH;
    value = {from + sizeof(uint32_t), length};
    used = static_cast<uint32_t>(sizeof(uint32_t)) + length;
    return 0;
}

inline void encode_bytes(uint8_t* to, Bytes value) {
    put_number(to, value.length);
    if (value.length != 0) std::memcpy(to + sizeof(uint32_t), value.bytes, value.length);
}

// Wire: u_int32 length, the bytes. Text: the bytes in hexadecimal.
template <class Type>
struct ByteRun {
    using Object = Type;
    using Value = Bytes;
    static constexpr Shape shape = Shape::plain;
    static constexpr bool moves = true;
    static constexpr bool owns_buffer = true;
    static constexpr bool may_be_empty = true;
    static constexpr uint32_t terminator = 0;
    static constexpr uint32_t content_size = sizeof(uint8_t*) + sizeof(uint32_t);

    static void* content(Object* object) { return &object->bytes; }
    static Value load(const Object* object) {
        return object != nullptr ? Value{object->bytes, object->length} : Value{};
    }
    static void store(Object* object, Value value, uint8_t* buffer) {
        object->bytes = buffer;
        object->length = value.length;
    }
    static uint32_t length(Value value) { return static_cast<uint32_t>(sizeof(uint32_t)) + value.length; }
    static void encode(uint8_t* to, Value value) { encode_bytes(to, value); }
    static uint32_t decode(const uint8_t* from, uint32_t room, Value& value, uint32_t& used) {
        return decode_bytes(from, room, value, used);
    }
    static void text(TextWriter& writer, Value value, bool) { writer.hex(value.bytes, value.length); }
    static bool parse(char* characters, uint32_t size, Value& value) {
        const std::string_view digits = trimmed(characters, size);
        auto* bytes = reinterpret_cast<uint8_t*>(characters);
        value = {bytes, static_cast<uint32_t>(digits.size() / 2)};
        return parse_hex(digits, bytes);
    }
    static int32_t compare(Value a, Value b) { return order(a, b); }
    static uint32_t hash(Value value, uint32_t seed) { return SuperFastHash(value.bytes, value.length, seed); }
};

} // namespace platform
