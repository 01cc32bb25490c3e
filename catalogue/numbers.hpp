// The recorded numbers of a record, compared with what its lines give. An Instance in a store outlives the build that
// wrote it, so a line that moves a field or a state flag must not compile unnoticed.
#pragma once

#include "catalogue/description.hpp"

namespace epm::catalogue {

/// Lengths of a record by variant and in the two tracking modes. A record with one variant needs no body and block.
struct Numbers {
    std::array<std::uint16_t, most_variants> used;
    std::uint16_t size;
    std::uint16_t tracked; ///< size and state-flag block
    std::array<std::uint16_t, most_variants> body{};
    std::array<std::uint16_t, most_variants> block{};
};

template <const Record& R>
consteval bool has_numbers(const Numbers& n) {
    constexpr const Layout& l = layout<R>;
    const auto agree = [](const auto& a, const auto& b) {
        return std::equal(a.begin(), a.begin() + R.variants(), b.begin());
    };
    const bool by_variant = R.variants() == 1 || (agree(l.body, n.body) && agree(l.block, n.block));
    return l.used == n.used && size<R> == n.size && size<R> + block_length<R> == n.tracked && by_variant;
}

/// Offsets of a field's state flag in the block and of what follows the flag, if anything does.
struct FlagOffsets {
    std::string_view field;
    std::uint16_t flag;
    std::uint16_t nested = 0;
};

template <const Record& R>
consteval bool has_flag_offsets(std::initializer_list<FlagOffsets> flags) {
    return std::all_of(flags.begin(), flags.end(), [](const FlagOffsets& p) {
        const std::size_t i = R.index_of(p.field);
        return i < R.count && layout<R>.flag[i] == p.flag && (p.nested == 0 || layout<R>.nested[i] == p.nested);
    });
}

} // namespace epm::catalogue
