// The portbase Bundle: IP addresses.
#include "../common/traits.hpp"

#include <arpa/inet.h>

namespace {

using namespace platform;

uint32_t address_size(uint32_t family) {
    return family == 4 ? 4 : family == 6 ? 16 : 0;
}

bool is_family(uint32_t family) {
    return family == 0 || family == 4 || family == 6;
}

// Wire: one byte of family (0, 4 or 6), then 0, 4 or 16 bytes of address. Text: 192.0.2.7, 2001:db8::1, or nothing.
struct IpAddress {
    struct Value {
        uint32_t family;
        uint8_t bytes[16];
    };
    using Object = ip_address;
    static constexpr char name[] = "ip_address";
    static constexpr Shape shape = Shape::plain;
    static constexpr bool moves = true;
    static constexpr bool owns_buffer = false;
    static constexpr bool may_be_empty = true;
    static constexpr uint32_t content_size = sizeof(Value);

    static void* content(Object* object) { return object; }
    static Value load(const Object* object) {
        Value value{};
        if (object != nullptr) std::memcpy(&value, object, sizeof value);
        return value;
    }
    static void store(Object* object, const Value& value) { std::memcpy(object, &value, sizeof value); }
    static uint32_t length(const Value& value) { return 1 + address_size(value.family); }
    static void encode(uint8_t* to, const Value& value) {
        to[0] = static_cast<uint8_t>(value.family);
        std::memcpy(to + 1, value.bytes, address_size(value.family));
    }
    static uint32_t decode(const uint8_t* from, uint32_t room, Value& value, uint32_t& used) {
        if (room < 1) return ZUR_WRONG_LENGTH;
        if (!is_family(from[0])) return ZUR_BAD_ARGUMENT;
        const uint32_t size = address_size(from[0]);
        if (room - 1 < size) return ZUR_WRONG_LENGTH;
        value.family = from[0];
        std::memcpy(value.bytes, from + 1, size);
        used = 1 + size;
        return 0;
    }
    static void text(TextWriter& writer, const Value& value, bool) {
        char digits[INET6_ADDRSTRLEN] = "";
        if (value.family != 0) inet_ntop(value.family == 4 ? AF_INET : AF_INET6, value.bytes, digits, sizeof digits);
        writer.put(digits);
    }
    static bool parse(const char* characters, uint32_t size, Value& value) {
        const std::string_view address = trimmed(characters, size);
        char digits[INET6_ADDRSTRLEN] = "";
        if (address.size() >= sizeof digits || address.find('\0') != address.npos) return false;
        std::memcpy(digits, address.data(), address.size());
        if (address.empty()) return true;
        value.family = address.find(':') == address.npos ? 4 : 6;
        return inet_pton(value.family == 4 ? AF_INET : AF_INET6, digits, value.bytes) == 1;
    }
    static int32_t compare(const Value& a, const Value& b) {
        return a.family != b.family ? order(a.family, b.family)
                                    : order(std::memcmp(a.bytes, b.bytes, sizeof a.bytes), 0);
    }
    static uint32_t hash(const Value& value, uint32_t seed) { return SuperFastHash(&value, sizeof value, seed); }
};

} // namespace

PLATFORM_TYPE_INFO(ip_address, "portbase", "type", 48)
PLATFORM_RECORD(ip_address, IpAddress)
PLATFORM_BUNDLE(portbase)

void platform_ip_address_write(zur_domain* D, uint32_t S, ip_address* object, uint32_t family, const uint8_t* bytes,
                               uint32_t* st) {
    IpAddress::Value value{family, {}};
    if (*st == 0 && !is_family(family)) return fail(D, ZUR_BAD_ARGUMENT, st);
    if (address_size(family) != 0) std::memcpy(value.bytes, bytes, address_size(family));
    Field<IpAddress>::write(D, S, object, value, st);
}

uint32_t platform_ip_address_read(const ip_address* object, uint8_t bytes[16]) {
    std::memcpy(bytes, object->bytes, sizeof object->bytes);
    return object->family;
}
