// Converts runs of 32-bit words to or from network order: with AVX2 if the machine has it, else in vectors of four,
// because the compiler finds no byte swap for the baseline x86-64.
#pragma once

#include "bytes.hpp"

#include <cstddef>
#include <immintrin.h>

namespace platform {

namespace detail {

/// Returns how many words it swapped; the caller does the rest.
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
    for (; i + 8 <= vectors; i += 8) {
        swap(i);
        swap(i + 1);
        swap(i + 2);
        swap(i + 3);
        swap(i + 4);
        swap(i + 5);
        swap(i + 6);
        swap(i + 7);
    }
    for (; i < vectors; ++i) swap(i);
    return vectors * (width / sizeof(uint32_t));
}

inline std::size_t swap_by_four(uint8_t* to, const uint8_t* from, std::size_t count) {
    using Four = uint32_t __attribute__((vector_size(16)));
    std::size_t i = 0;
    for (; count - i >= 4; i += 4) {
        Four words;
        std::memcpy(&words, from + 4 * i, sizeof words);
        words = (words << 16) | (words >> 16);
        words = ((words & 0x00FF00FFu) << 8) | ((words >> 8) & 0x00FF00FFu);
        std::memcpy(to + 4 * i, &words, sizeof words);
    }
    return i;
}

} // namespace detail

inline void copy_swapped(void* to, const void* from, std::size_t count) {
    auto* out = static_cast<uint8_t*>(to);
    const auto* in = static_cast<const uint8_t*>(from);
    std::size_t i =
        __builtin_cpu_supports("avx2") ? detail::swap_by_eight(out, in, count) : detail::swap_by_four(out, in, count);
    for (; i < count; ++i) {
        uint32_t word;
        std::memcpy(&word, in + 4 * i, sizeof word);
        put_number(out + 4 * i, word);
    }
}

} // namespace platform
