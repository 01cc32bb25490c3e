// The memory behind the Domains of the tests. It can refuse allocations, counts live blocks, fills fresh blocks with a
// byte other than zero, and knows every block, so that the write checker can look at them. One heap for each process,
// for one thread:
//     heap().refuse_from(3);           // the third one, and all behind it
//     heap().refuse_beyond(1 << 20);   // so many bytes from now on, and no more
//     heap().stop_refusing();
// BundleTest (bundle_test.hpp) resets it before each test and finds leaks behind it.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace epm::test {

class Heap {
public:
    void* allocate(std::size_t size) {
        ++allocations_;
        if (refuse_at_ == allocations_ || allocations_ >= refuse_from_ || size > limit_ - allocated_bytes_) {
            ++refusals_;
            return nullptr;
        }
        void* block = std::malloc(size + fence);
        if (block == nullptr) return nullptr;
        std::memset(block, fill_, size);
        std::memset(static_cast<char*>(block) + size, '~', fence);
        blocks_[block] = size;
        allocated_bytes_ += size;
        return block;
    }
    void release(void* block) {
        const auto found = blocks_.find(block);
        if (found == blocks_.end()) return void(ADD_FAILURE() << "release of " << block << ", which is no live block");
        const std::string behind(static_cast<char*>(block) + found->second, fence);
        EXPECT_EQ(behind, std::string(fence, '~')) << "written behind a block of " << found->second;
        std::memset(block, fill_, found->second);
        blocks_.erase(found);
        has_quarantine_ ? kept_.push_back(block) : std::free(block);
    }

    /// Forgets faults, counts and quarantine. Blocks that are still alive stay.
    void reset() {
        for (void* block : kept_) std::free(block);
        kept_.clear();
        stop_refusing();
        allocations_ = refusals_ = allocated_bytes_ = 0;
        has_quarantine_ = false;
        fill_ = 0xA5;
    }

    void refuse_nth(std::size_t n) { refuse_at_ = allocations_ + n; }
    void refuse_from(std::size_t n) { refuse_from_ = allocations_ + n; }
    void refuse_beyond(std::size_t bytes) { limit_ = allocated_bytes_ + bytes; }
    void stop_refusing() {
        refuse_at_ = 0;
        refuse_from_ = limit_ = SIZE_MAX;
    }
    /// Released blocks keep their memory until reset, so that no address comes twice.
    void quarantine() { has_quarantine_ = true; }
    /// Fresh blocks hold this byte; released ones are overwritten with it.
    void fill_with(std::uint8_t byte) { fill_ = byte; }

    std::size_t allocations() const { return allocations_; } ///< asked for since the last reset
    std::size_t refusals() const { return refusals_; }
    const std::map<void*, std::size_t>& blocks() const { return blocks_; }

private:
    static constexpr std::size_t fence = 64; ///< bytes behind each block that nobody may write
    std::map<void*, std::size_t> blocks_;    ///< and their sizes
    std::vector<void*> kept_;
    std::size_t allocations_ = 0;
    std::size_t refusals_ = 0;
    std::size_t allocated_bytes_ = 0;
    std::size_t refuse_at_ = 0;
    std::size_t refuse_from_ = SIZE_MAX;
    std::size_t limit_ = SIZE_MAX;
    bool has_quarantine_ = false;
    std::uint8_t fill_ = 0xA5;
};

inline Heap& heap() {
    static Heap the_heap;
    return the_heap;
}

} // namespace epm::test
