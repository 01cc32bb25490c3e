// The credbase Bundle: type-length-value objects.
#include "../common/traits.hpp"

PLATFORM_TYPE_INFO(aaa_tlv, "credbase", "type", 32)

namespace {

using namespace platform;

// Wire: u_int32 type, u_int32 length, the bytes. Text: 26:0a0b0c, the type in decimal.
struct Tlv {
    struct Value : Bytes {
        uint32_t type;
    };
    using Object = aaa_tlv;
    static constexpr char name[] = "aaa_tlv";
    static constexpr Shape shape = Shape::record;
    static constexpr bool moves = true;
    static constexpr bool owns_buffer = true;
    static constexpr bool may_be_empty = true;
    static constexpr uint32_t terminator = 0;
    static constexpr uint32_t content_size = offsetof(Object, unused) - offsetof(Object, type);

    static constexpr const zur_type_info& type_info() { return _aaa_tlv_type_info_internal; }
    static void* content(Object* object) { return &object->type; }
    static Value load(const Object* object) {
        return object != nullptr ? Value{{object->bytes, object->length}, object->type} : Value{};
    }
    static void store(Object* object, const Value& value, uint8_t* buffer) {
        object->type = value.type;
        object->bytes = buffer;
        object->length = value.length;
    }
    static uint32_t length(const Value& value) { return static_cast<uint32_t>(2 * sizeof(uint32_t)) + value.length; }
    static void encode(uint8_t* to, const Value& value) {
        put_number(to, value.type);
        encode_bytes(to + sizeof value.type, value);
    }
    static uint32_t decode(const uint8_t* from, uint32_t room, Value& value, uint32_t& used) {
        if (room < sizeof value.type) return ZUR_WRONG_LENGTH;
        value.type = get_number<uint32_t>(from);
        const uint32_t code = decode_bytes(from + sizeof value.type, room - 4, value, used);
        used += static_cast<uint32_t>(sizeof value.type);
        return code;
    }
    static void text(TextWriter& writer, const Value& value, bool) {
        writer.number(value.type);
        writer.put(':');
        writer.hex(value.bytes, value.length);
    }
    static bool parse(char* characters, uint32_t size, Value& value) {
        const std::string_view whole = trimmed(characters, size);
        const std::size_t colon = whole.find(':');
        if (colon == whole.npos || !parse_number(whole.substr(0, colon), value.type)) return false;
        const std::string_view digits = whole.substr(colon + 1);
        value.bytes = reinterpret_cast<uint8_t*>(characters);
        value.length = static_cast<uint32_t>(digits.size() / 2);
        return parse_hex(digits, reinterpret_cast<uint8_t*>(characters));
    }
    static int32_t compare(const Value& a, const Value& b) {
        return a.type != b.type ? order(a.type, b.type) : order(static_cast<Bytes>(a), static_cast<Bytes>(b));
    }
    static uint32_t hash(const Value& value, uint32_t seed) {
        return SuperFastHash(value.bytes, value.length, SuperFastHash(&value.type, sizeof value.type, seed));
    }
};

} // namespace

PLATFORM_PLACED_RECORD(aaa_tlv, Tlv)
PLATFORM_BUNDLE(credbase)

void platform_aaa_tlv_write(zur_domain* D, uint32_t S, aaa_tlv* object, uint32_t type, const uint8_t* bytes,
                            uint32_t length, uint32_t* st) {
    Field<Tlv>::write(D, S, object, {{bytes, length}, type}, st);
}

const uint8_t* platform_aaa_tlv_read(const aaa_tlv* object, uint32_t* type, uint32_t* length) {
    *type = object->type;
    *length = object->length;
    return object->bytes;
}
