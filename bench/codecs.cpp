// The primitive codecs of the reference that calls one for each field.
#include "bench/codecs.hpp"

#include <cstring>

namespace {

constexpr std::uint32_t no_room = 90;

std::uint16_t swapped(std::uint16_t number) {
    return __builtin_bswap16(number);
}
std::uint32_t swapped(std::uint32_t number) {
    return __builtin_bswap32(number);
}
std::uint64_t swapped(std::uint64_t number) {
    return __builtin_bswap64(number);
}

bool refused(std::int32_t size, std::int32_t room, std::uint32_t* st) {
    if (*st != 0) return true;
    if (room >= size) return false;
    *st = no_room;
    return true;
}

template <class Number>
std::int32_t put(unsigned char* to, const Number* field, std::int32_t room, std::uint32_t* st) {
    constexpr auto size = static_cast<std::int32_t>(sizeof(Number));
    if (refused(size, room, st)) return 0;
    const Number ordered = swapped(*field);
    std::memcpy(to, &ordered, sizeof ordered);
    return size;
}

template <class Number>
std::int32_t get(const unsigned char* from, Number* field, std::int32_t room, std::uint32_t* st) {
    constexpr auto size = static_cast<std::int32_t>(sizeof(Number));
    if (refused(size, room, st)) return 0;
    Number ordered;
    std::memcpy(&ordered, from, sizeof ordered);
    *field = swapped(ordered);
    return size;
}

std::int32_t copy(unsigned char* to, const unsigned char* from, std::int32_t count, std::int32_t room,
                  std::uint32_t* st) {
    if (refused(count, room, st)) return 0;
    std::memcpy(to, from, static_cast<std::size_t>(count));
    return count;
}

} // namespace

#define CODECS(name, type)                                                                                             \
    std::int32_t bench_put_##name(unsigned char* to, const type* field, std::int32_t room, std::uint32_t* st) {        \
        return put(to, field, room, st);                                                                               \
    }                                                                                                                  \
    std::int32_t bench_get_##name(const unsigned char* from, type* field, std::int32_t room, std::uint32_t* st) {      \
        return get(from, field, room, st);                                                                             \
    }

CODECS(u16, std::uint16_t)
CODECS(u32, std::uint32_t)
CODECS(u64, std::uint64_t)

std::int32_t bench_put_run(unsigned char* to, const unsigned char* field, std::int32_t count, std::int32_t room,
                           std::uint32_t* st) {
    return copy(to, field, count, room, st);
}
std::int32_t bench_get_run(const unsigned char* from, unsigned char* field, std::int32_t count, std::int32_t room,
                           std::uint32_t* st) {
    return copy(field, from, count, room, st);
}
