// Converts runs of 32-bit words to or from network order, with AVX2 if the machine has it: the compiler finds no byte
// swap for the baseline x86-64, so a run takes several times as long there.
#pragma once

#include "bytes.hpp"

#include <cstddef>
#include <immintrin.h>

namespace platform {

// Returns how many words it swapped; the caller does the rest.
[[gnu::target("avx2")]] inline std::size_t swap_by_eight(uint8_t* to, const uint8_t* from, std::size_t count) {
    constexpr std::size_t width = sizeof(__m256i);
    const __m256i order = _mm256_set_epi8(12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3, 12, 13, 14, 15, 8, 9,
                                          10, 11, 4, 5, 6, 7, 0, 1, 2, 3);
    const std::size_t vectors = count * sizeof(uint32_t) / width;
    const auto swap = [&](std::size_t i) __attribute__((always_inline, target("avx2"))) {
        const __m256i words = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + i * width));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + i * width), _mm256_shuffle_epi8(words, order));
    };
    std::size_t i = 0;
    for (; i + 16 <= vectors; i += 16)
#pragma GCC unroll 16
        for (std::size_t k = 0; k < 16; ++k) swap(i + k);
    for (; i + 4 <= vectors; i += 4)
#pragma GCC unroll 4
        for (std::size_t k = 0; k < 4; ++k) swap(i + k);
    for (; i < vectors; ++i) swap(i);
    return vectors * (width / sizeof(uint32_t));
}

inline void copy_swapped(void* to, const void* from, std::size_t count) {
    auto* out = static_cast<uint8_t*>(to);
    const auto* in = static_cast<const uint8_t*>(from);
    std::size_t i = __builtin_cpu_supports("avx2") ? swap_by_eight(out, in, count) : 0;
    for (; i < count; ++i) {
        const auto word = get_number<uint32_t>(in + 4 * i);
        std::memcpy(out + 4 * i, &word, sizeof word);
    }
}

} // namespace platform
