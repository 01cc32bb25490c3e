// Fills and frees slots.
#include "addresses.hpp"

#include "pmemobj.hpp"

#include <mutex>
#include <sys/mman.h>

namespace durable {

namespace {

std::mutex one_at_a_time;

void* fill(std::uintptr_t address, std::size_t size) {
    void* wanted = reinterpret_cast<void*>(address); // NOLINT(*-no-int-to-ptr): an address is chosen here
    void* filled =
        mmap(wanted, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED_NOREPLACE, -1, 0);
    if (filled != MAP_FAILED && filled != wanted) munmap(filled, size); // a kernel older than the flag
    return filled == wanted ? wanted : nullptr;
}

} // namespace

std::uintptr_t address_of_slot(std::size_t slot) {
    return pmemobj.first_address + slot * slot_size;
}

Steering::Steering(std::uintptr_t address) {
    one_at_a_time.lock();
    fill_until(address);
    if (void* wanted = fill(address, slot_size)) {
        is_free_ = true;
        munmap(wanted, slot_size);
    }
}

// All at once, or slot by slot between other pools.
void Steering::fill_until(std::uintptr_t address) {
    const std::uintptr_t first = address_of_slot(0);
    if (address <= first) return;
    if (void* filled = fill(first, address - first)) return void(filled_.emplace_back(filled, address - first));
    for (std::uintptr_t slot = first; slot < address; slot += slot_size)
        if (void* filled = fill(slot, slot_size)) filled_.emplace_back(filled, slot_size);
}

Steering::~Steering() {
    for (const auto& [start, size] : filled_) munmap(start, size);
    one_at_a_time.unlock();
}

Rest::Rest(std::uintptr_t pool, std::size_t size) {
    constexpr std::size_t page = 4096;
    size = (size + page - 1) / page * page;
    if (size >= slot_size) return;
    size_ = slot_size - size;
    filled_ = fill(pool + size, size_);
}

Rest::~Rest() {
    if (filled_ != nullptr) munmap(filled_, size_);
}

} // namespace durable
