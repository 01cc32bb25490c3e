// The heap of the tests.
#include "support/heap.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

namespace epm::test {

Heap& heap() {
    static Heap the_heap;
    return the_heap;
}

void* Heap::allocate(std::size_t size) {
    ++allocations_;
    if (refuse_at_ == allocations_ || (limit_ && size > *limit_ - allocated_bytes_)) {
        ++refusals_;
        return nullptr;
    }
    void* block = std::malloc(size);
    if (block == nullptr) return nullptr;
    std::memset(block, fill_, size);
    blocks_[block] = {size, allocations_};
    allocated_bytes_ += size;
    live_bytes_ += size;
    return block;
}

void Heap::release(void* block) {
    const auto found = blocks_.find(block);
    if (found == blocks_.end()) {
        ADD_FAILURE() << "release of " << block << ", which is no live block";
        return;
    }
    std::memset(block, fill_, found->second.size);
    live_bytes_ -= found->second.size;
    blocks_.erase(found);
    if (has_quarantine_)
        kept_.push_back(block);
    else
        std::free(block);
}

void Heap::reset() {
    for (void* block : kept_) std::free(block);
    kept_.clear();
    stop_refusing();
    allocations_ = refusals_ = allocated_bytes_ = 0;
    has_quarantine_ = false;
    fill_ = 0xA5;
}

void Heap::stop_refusing() {
    refuse_at_.reset();
    limit_.reset();
}

const std::pair<void* const, Heap::Block>* Heap::block_of(const void* address) const {
    auto behind = blocks_.upper_bound(const_cast<void*>(address));
    if (behind == blocks_.begin()) return nullptr;
    const auto& block = *--behind;
    const auto distance = static_cast<const char*>(address) - static_cast<const char*>(block.first);
    return static_cast<std::size_t>(distance) < block.second.size ? &block : nullptr;
}

} // namespace epm::test
