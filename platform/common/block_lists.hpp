// Released blocks of malloc, kept on lists by their size until they are asked for again. A block on a list stays a
// malloc block of its own, so it makes no difference where it came from, and free() takes it at any time.
#pragma once

#include <algorithm>
#include <cstddef>
#include <new>

namespace platform {

class BlockLists {
public:
    // glibc's blocks hold 24, 40, 56, ... bytes, and there is a list for each of these sizes. Above the last one, the
    // cost of malloc is small beside that of filling the block.
    static constexpr std::size_t smallest = 24, step = 16, largest = smallest + 63 * step;

    // The size of the blocks for a request of up to `largest` bytes.
    static constexpr std::size_t size_for(std::size_t request) {
        return (std::max(request, smallest) - smallest + step - 1) / step * step + smallest;
    }
    // The size as which a block is kept, by what malloc_usable_size() says of it.
    static constexpr std::size_t size_of(std::size_t usable) { return (usable - smallest) / step * step + smallest; }
    static constexpr bool takes(std::size_t usable) { return usable - smallest < largest - smallest + step; }

    bool has(std::size_t size) const { return list(size).first != nullptr; }
    void* pop(std::size_t size) {
        Block* block = list(size).first;
        list(size).first = block->next;
        return block;
    }
    void push(std::size_t size, void* block) { list(size).first = new (block) Block{list(size).first}; }

    // Takes all blocks off the lists.
    void clear(auto free) {
        for (std::size_t size = smallest; size <= largest; size += step)
            while (has(size)) free(pop(size));
    }

private:
    struct Block {
        Block* next;
    };
    // As far apart as the sizes are, so that a list is found without a shift.
    struct alignas(step) List {
        Block* first = nullptr;
    };
    List& list(std::size_t size) { return lists_[(size - smallest) / step]; }
    const List& list(std::size_t size) const { return lists_[(size - smallest) / step]; }

    List lists_[(largest - smallest) / step + 1];
};

} // namespace platform
