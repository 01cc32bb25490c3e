// A buffer of elements that are records. Each element is a whole Instance; in a Domain that tracks, the elements'
// state-flag blocks lie behind all of them.
#pragma once

#include "lifecycle/create.hpp"

namespace epm::lifecycle {

template <const Record& E>
Instance* element_in(void* storage, std::size_t i) {
    return at<Instance>(storage, i * catalogue::size<E>);
}
template <const Record& E>
const Instance* element_in(const void* storage, std::size_t i) {
    return at<Instance>(storage, i * catalogue::size<E>);
}

template <const Record& E>
struct Elements {
    static constexpr std::size_t size = catalogue::size<E>;
    static constexpr std::size_t block_length = catalogue::block_length<E>;

    void* storage;
    std::uint32_t count;

    Instance* operator[](std::size_t i) const { return element_in<E>(storage, i); }
    void* blocks() const { return at(storage, count * size); }
    /// Whether the elements were set up with blocks. It is enough to look at the last one: it was set up when the
    /// storage got its size.
    bool has_blocks() const { return has_flag((*this)[count - 1], ZUR_TRACKED); }

    /// Tells the runtime where an element's block lies, and returns the block. The distance has 32 bits.
    void* place_block(Domain* D, std::uint32_t S, std::size_t i) const {
        const std::size_t distance = (count - i) * size + i * block_length;
        zurlib_update_sttr_offset(D, S, (*this)[i], static_cast<std::uint32_t>(distance));
        return at((*this)[i], distance);
    }
    /// Both return where an element's state flags are, null in an untracked one.
    [[gnu::always_inline]] void* initialize(Domain* D, std::uint32_t S, std::size_t i, bool tracking,
                                            std::uint32_t* st) const {
        void* block = tracking ? place_block(D, S, i) : nullptr;
        initialize_here<E>(D, S, (*this)[i], type_info<E>(), 1, 0, ZUR_NESTED, block, st);
        return block;
    }
    /// The same in plain steps, where these were possible at first.
    [[gnu::always_inline]] void* set_up(Domain* D, std::uint32_t S, std::size_t i, bool tracking,
                                        std::uint32_t* st) const {
        if (*st != 0) return nullptr;
        void* block = tracking ? place_block(D, S, i) : nullptr;
        if (tracking && !plain::is_open(D)) [[unlikely]] // a place was refused, which the look-up of the variant tells
            lifecycle::initialize<E>(D, S, (*this)[i], type_info<E>(), 1, 0, ZUR_NESTED, block, st);
        else
            lifecycle::set_up<E>(D, S, (*this)[i], ZUR_NESTED | (tracking ? ZUR_TRACKED : 0), block, st);
        return block;
    }

    /// Bytes for all elements, with their blocks if the Domain tracks. Returns 0 and leaves the error when a distance
    /// would need more than its 32 bits.
    static std::size_t room_for(Domain* D, std::uint32_t count, bool tracking, std::uint32_t* st) {
        const std::size_t bytes = count * (size + (tracking ? block_length : 0));
        if (!tracking || bytes <= UINT32_MAX) return bytes;
        fail(D, st, ZUR_NO_MEMORY);
        return 0;
    }
};

} // namespace epm::lifecycle
