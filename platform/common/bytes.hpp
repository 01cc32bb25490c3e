// Numbers in network byte order, at any address.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace platform {

static_assert(std::endian::native == std::endian::little);

template <class Number>
Number in_network_order(Number number) {
    if constexpr (sizeof(Number) == 2)
        return static_cast<Number>(__builtin_bswap16(static_cast<uint16_t>(number)));
    else if constexpr (sizeof(Number) == 4)
        return static_cast<Number>(__builtin_bswap32(static_cast<uint32_t>(number)));
    else if constexpr (sizeof(Number) == 8)
        return static_cast<Number>(__builtin_bswap64(static_cast<uint64_t>(number)));
    else
        return number;
}

template <class Number>
void put_number(uint8_t* to, Number number) {
    const Number ordered = in_network_order(number);
    std::memcpy(to, &ordered, sizeof ordered);
}

template <class Number>
Number get_number(const uint8_t* from) {
    Number ordered;
    std::memcpy(&ordered, from, sizeof ordered);
    return in_network_order(ordered);
}

} // namespace platform
