// The wire helpers: the small parts of a marshalled record. Each refuses with 90 when the room is too small. The
// writers go on while the status word is raised, so that a record whose variant was refused still shows its variant and
// its length.
#include "../common/bytes.hpp"
#include "../common/contract.hpp"

using namespace platform;

namespace {

bool fits(zur_domain* D, int32_t room, uint32_t size, uint32_t* st) {
    if (unsigned_room(room) >= size) return true;
    if (*st == 0) fail(D, ZUR_WRONG_LENGTH, st);
    return false;
}

bool readable(zur_domain* D, int32_t room, uint32_t size, uint32_t* st) {
    return *st == 0 && fits(D, room, size, st);
}

template <class Number>
uint32_t write(zur_domain* D, void* destination, const Number* number, int32_t room, uint32_t* st) {
    if (!fits(D, room, sizeof(Number), st)) return 0;
    put_number(static_cast<uint8_t*>(destination), *number);
    return sizeof(Number);
}

template <class Number>
uint32_t read(zur_domain* D, const void* source, Number* number, int32_t room, uint32_t* st) {
    if (!readable(D, room, sizeof(Number), st)) return 0;
    *number = get_number<Number>(static_cast<const uint8_t*>(source));
    return sizeof(Number);
}

constexpr uint32_t ra_size = sizeof(uint64_t) + 1;

} // namespace

#define WIRE_HELPER(name, type)                                                                                        \
    uint32_t name##_marshal(zur_domain* D, uint32_t, void* destination, const std::type_identity_t<type>* value,       \
                            int32_t room, uint32_t* st) {                                                              \
        return write(D, destination, value, room, st);                                                                 \
    }                                                                                                                  \
    uint32_t name##_unmarshal(zur_domain* D, uint32_t, const void* source, std::type_identity_t<type>* value,          \
                              int32_t room, uint32_t* st) {                                                            \
        return read(D, source, value, room, st);                                                                       \
    }

WIRE_HELPER(_zur_instance_variant, int8_t)
WIRE_HELPER(_zur_instance_obj_flag, uint8_t)
WIRE_HELPER(_zur_variant_jump, uint32_t)

uint32_t _zur_list_len_marshal(zur_domain* D, uint32_t, void* destination, const uint32_t* count, int32_t room,
                               uint32_t* st) {
    return *st == 0 ? write(D, destination, count, room, st) : 0;
}

uint32_t _zur_list_len_unmarshal(zur_domain* D, uint32_t, const void* source, uint32_t* count, int32_t room,
                                 uint32_t* st) {
    return read(D, source, count, room, st);
}

uint32_t _zur_instance_ra_data_marshal(zur_domain* D, uint32_t, void* destination, uint64_t* word, uint8_t* byte,
                                       int32_t room, uint32_t* st) {
    if (!fits(D, room, ra_size, st)) return 0;
    auto* to = static_cast<uint8_t*>(destination);
    put_number(to, *word);
    put_number(to + sizeof *word, *byte);
    return ra_size;
}

uint32_t _zur_instance_ra_data_unmarshal(zur_domain* D, uint32_t, const void* source, uint64_t* word, uint8_t* byte,
                                         int32_t room, uint32_t* st) {
    if (!readable(D, room, ra_size, st)) return 0;
    const auto* from = static_cast<const uint8_t*>(source);
    *word = get_number<uint64_t>(from);
    *byte = get_number<uint8_t>(from + sizeof *word);
    return ra_size;
}
