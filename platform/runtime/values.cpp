// The runtime's own field types: primitives, truth values, Ethernet addresses, strings; and the runs of primitives.
#include "../common/swap.hpp"
#include "../common/traits.hpp"

namespace {

using namespace platform;

struct UInt8 : Primitive<uint8_t> {
    static constexpr char name[] = "u_int8";
};
struct UInt16 : Primitive<uint16_t> {
    static constexpr char name[] = "u_int16";
};
struct UInt32 : Primitive<uint32_t> {
    static constexpr char name[] = "u_int32";
};
struct UInt64 : Primitive<uint64_t> {
    static constexpr char name[] = "u_int64";
};
struct Char : Primitive<char> {
    static constexpr char name[] = "char";
};
struct Boolean : Wrapped<zur_boolean, uint32_t> {
    static constexpr char name[] = "zur_boolean";
};

// Wire: the six bytes. Text: 00:1b:44:11:3a:b7.
struct MacAddr {
    using Object = zur_mac_addr;
    using Value = zur_mac_addr;
    static constexpr char name[] = "zur_mac_addr";
    static constexpr Shape shape = Shape::plain;
    static constexpr bool moves = true;
    static constexpr bool owns_buffer = false;
    static constexpr bool may_be_empty = false;
    static constexpr uint32_t content_size = sizeof(Object);

    static void* content(Object* object) { return object->bytes; }
    static Value load(const Object* object) { return object != nullptr ? *object : Value{}; }
    static void store(Object* object, const Value& value) { *object = value; }
    static uint32_t length(const Value&) { return content_size; }
    static void encode(uint8_t* to, const Value& value) { std::memcpy(to, value.bytes, content_size); }
    static uint32_t decode(const uint8_t* from, uint32_t room, Value& value, uint32_t& used) {
        if (room < content_size) return ZUR_WRONG_LENGTH;
        std::memcpy(value.bytes, from, content_size);
        used = content_size;
        return 0;
    }
    static void text(TextWriter& writer, const Value& value, bool) {
        for (uint32_t i = 0; i < content_size; ++i) {
            if (i != 0) writer.put(':');
            writer.hex(value.bytes[i]);
        }
    }
    static bool parse(const char* characters, uint32_t size, Value& value) {
        const std::string_view address = trimmed(characters, size);
        if (address.size() != 3 * content_size - 1) return false;
        for (uint32_t i = 0; i < content_size; ++i) {
            if (i != 0 && address[3 * i - 1] != ':') return false;
            if (!parse_hex(address.substr(3 * std::size_t{i}, 2), value.bytes + i)) return false;
        }
        return true;
    }
    static int32_t compare(const Value& a, const Value& b) {
        return order(std::memcmp(a.bytes, b.bytes, content_size), 0);
    }
    static uint32_t hash(const Value& value, uint32_t seed) { return SuperFastHash(value.bytes, content_size, seed); }
};

// Text: the characters, escaped.
struct VString : ByteRun<zur_vstring> {
    static constexpr char name[] = "zur_vstring";
    static constexpr uint32_t terminator = 1;

    static void text(TextWriter& writer, Value value, bool xml) { writer.escaped(value.bytes, value.length, xml); }
    static bool parse(const char* characters, uint32_t size, Value& value) {
        value = {reinterpret_cast<const uint8_t*>(characters), size};
        return true;
    }
};

// How many whole elements fit into the room; one too few is an error, as it is for a single element.
template <class Number>
uint32_t elements_that_fit(zur_domain* D, uint32_t count, int32_t room, uint32_t* st) {
    const auto fits = static_cast<uint32_t>(unsigned_room(room) / sizeof(Number));
    if (fits < count) fail(D, ZUR_WRONG_LENGTH, st);
    return std::min(count, fits);
}

template <class Number>
void copy_in_network_order(void* to, const void* from, uint32_t count) {
    if constexpr (sizeof(Number) == 1)
        std::memcpy(to, from, count);
    else
        copy_swapped(to, from, count);
}

template <class Number>
uint32_t marshal_run(zur_domain* D, void* destination, const Number* first, uint32_t count, int32_t room,
                     uint32_t* st) {
    if (count == 0 || raised(D, st)) return 0;
    const uint32_t fits = elements_that_fit<Number>(D, count, room, st);
    copy_in_network_order<Number>(destination, first, fits);
    return fits * static_cast<uint32_t>(sizeof(Number));
}

template <class Number>
uint32_t unmarshal_run(zur_domain* D, uint32_t S, const void* source, Number* first, uint32_t count, int32_t room,
                       uint32_t* st) {
    if (count == 0 || raised(D, st)) return 0;
    const uint32_t fits = elements_that_fit<Number>(D, count, room, st);
    const uint32_t bytes = fits * static_cast<uint32_t>(sizeof(Number));
    if (fits != 0) announce(D, S, first, bytes);
    copy_in_network_order<Number>(first, source, fits);
    return bytes;
}

} // namespace

PLATFORM_TYPE_INFO(zur_boolean, "zur", "enum", 4)
PLATFORM_TYPE_INFO(zur_mac_addr, "zur", "type", 6)
PLATFORM_TYPE_INFO(zur_vstring, "zur", "type", 16)

PLATFORM_VALUE(u_int8, UInt8)
PLATFORM_VALUE(u_int16, UInt16)
PLATFORM_HASH(u_int16, UInt16)
PLATFORM_VALUE(u_int32, UInt32)
PLATFORM_HASH(u_int32, UInt32)
PLATFORM_VALUE(u_int64, UInt64)
PLATFORM_HASH(u_int64, UInt64)
PLATFORM_VALUE(char, Char)
PLATFORM_HASH(char, Char)
PLATFORM_ENUM(zur_boolean, Boolean)
PLATFORM_RECORD(zur_mac_addr, MacAddr)
PLATFORM_RECORD(zur_vstring, VString)

uint32_t u_int32_sizeof(zur_domain*) {
    return sizeof(uint32_t);
}

uint32_t char_sizeof(zur_domain*) {
    return sizeof(char);
}

void* u_int32_create(zur_domain* D, uint32_t S) {
    void* object = D->obj_alloc_fn(D->obj_store, S, sizeof(uint32_t));
    if (object != nullptr) std::memset(object, 0, sizeof(uint32_t));
    return object;
}

void u_int32_destroy(zur_domain* D, uint32_t S, void* object) {
    if (object != nullptr) D->obj_free_fn(D->obj_store, S, object);
}

#define RUN(type, c_type)                                                                                              \
    uint32_t type##_marshal_run(zur_domain* D, uint32_t, void* destination, const c_type first[], uint32_t count,      \
                                int32_t room, uint32_t* st) {                                                          \
        return marshal_run(D, destination, first, count, room, st);                                                    \
    }                                                                                                                  \
    uint32_t type##_unmarshal_run(zur_domain* D, uint32_t S, const void* source, c_type first[], uint32_t count,       \
                                  int32_t room, uint32_t* st) {                                                        \
        return unmarshal_run(D, S, source, first, count, room, st);                                                    \
    }

RUN(u_int8, uint8_t)
RUN(char, char)
RUN(u_int32, uint32_t)

void platform_zur_mac_addr_write(zur_domain* D, uint32_t S, zur_mac_addr* object, const uint8_t bytes[6],
                                 uint32_t* st) {
    zur_mac_addr value;
    std::memcpy(value.bytes, bytes, sizeof value.bytes);
    Field<MacAddr>::write(D, S, object, value, st);
}

void platform_zur_mac_addr_read(const zur_mac_addr* object, uint8_t bytes[6]) {
    std::memcpy(bytes, object->bytes, sizeof object->bytes);
}

void platform_zur_vstring_write(zur_domain* D, uint32_t S, zur_vstring* object, const char* text, uint32_t length,
                                uint32_t* st) {
    Field<VString>::write(D, S, object, {reinterpret_cast<const uint8_t*>(text), length}, st);
}

const char* platform_zur_vstring_read(const zur_vstring* object, uint32_t* length) {
    if (length != nullptr) *length = object->length;
    return object->bytes != nullptr ? reinterpret_cast<const char*>(object->bytes) : "";
}
