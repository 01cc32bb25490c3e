// One codec for each primitive field, in a shared library of their own, as a library that imports its codecs would call
// them. Each gets the room that is left and a status word, and returns the bytes written or read.
#pragma once

#include <cstdint>

namespace bench {

using Room = std::int32_t;

// For numbers of 16, 32 and 64 bits.
template <class Number>
Room put_codec(unsigned char* to, const Number* field, Room room, std::uint32_t* st);
template <class Number>
Room get_codec(const unsigned char* from, Number* field, Room room, std::uint32_t* st);
Room run_codec(unsigned char* to, const unsigned char* from, Room count, Room room, std::uint32_t* st);

template <class Number>
Number in_network_order(Number number) {
    if constexpr (sizeof number == 2)
        return __builtin_bswap16(number);
    else if constexpr (sizeof number == 4)
        return __builtin_bswap32(number);
    else
        return __builtin_bswap64(number);
}

} // namespace bench
