// The primitive codecs of the reference that calls one for each field.
#include "bench/codecs.hpp"

#include <cstring>

namespace bench {
namespace {

bool refused(Room size, Room room, std::uint32_t* st) {
    if (*st == 0 && room >= size) return false;
    if (*st == 0) *st = 90;
    return true;
}

} // namespace

template <class Number>
Room put_codec(unsigned char* to, const Number* field, Room room, std::uint32_t* st) {
    if (refused(sizeof(Number), room, st)) return 0;
    const Number ordered = in_network_order(*field);
    std::memcpy(to, &ordered, sizeof ordered);
    return sizeof ordered;
}

template <class Number>
Room get_codec(const unsigned char* from, Number* field, Room room, std::uint32_t* st) {
    if (refused(sizeof(Number), room, st)) return 0;
    std::memcpy(field, from, sizeof *field);
    *field = in_network_order(*field);
    return sizeof *field;
}

template Room put_codec(unsigned char*, const std::uint16_t*, Room, std::uint32_t*);
template Room put_codec(unsigned char*, const std::uint32_t*, Room, std::uint32_t*);
template Room put_codec(unsigned char*, const std::uint64_t*, Room, std::uint32_t*);
template Room get_codec(const unsigned char*, std::uint16_t*, Room, std::uint32_t*);
template Room get_codec(const unsigned char*, std::uint32_t*, Room, std::uint32_t*);
template Room get_codec(const unsigned char*, std::uint64_t*, Room, std::uint32_t*);

Room run_codec(unsigned char* to, const unsigned char* from, Room count, Room room, std::uint32_t* st) {
    if (refused(count, room, st)) return 0;
    std::memcpy(to, from, static_cast<std::size_t>(count));
    return count;
}

} // namespace bench
