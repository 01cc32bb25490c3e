// SuperFastHash: sixteen bits at a time, and an avalanche at the end.
#include "../common/contract.hpp"

namespace {

uint32_t half_word(const uint8_t* p) {
    return static_cast<uint32_t>(p[0] | p[1] << 8);
}

uint32_t signed_byte(uint8_t byte) {
    return static_cast<uint32_t>(static_cast<int8_t>(byte));
}

} // namespace

uint32_t SuperFastHash(const void* data, uint32_t length, uint32_t seed) {
    if (data == nullptr || length == 0) return seed;
    const auto* p = static_cast<const uint8_t*>(data);
    uint32_t hash = seed;
    for (uint32_t words = length / 4; words != 0; --words, p += 4) {
        hash += half_word(p);
        hash = hash << 16 ^ (half_word(p + 2) << 11 ^ hash);
        hash += hash >> 11;
    }
    switch (length % 4) {
    case 3:
        hash += half_word(p);
        hash ^= hash << 16;
        hash ^= signed_byte(p[2]) << 18;
        hash += hash >> 11;
        break;
    case 2:
        hash += half_word(p);
        hash ^= hash << 11;
        hash += hash >> 17;
        break;
    case 1:
        hash += signed_byte(p[0]);
        hash ^= hash << 10;
        hash += hash >> 1;
        break;
    default: break;
    }
    hash ^= hash << 3;
    hash += hash >> 5;
    hash ^= hash << 4;
    hash += hash >> 17;
    hash ^= hash << 25;
    hash += hash >> 6;
    return hash;
}
