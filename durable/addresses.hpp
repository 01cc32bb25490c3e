// Where pools lie in the address space. It is cut into slots, and a pool begins at the start of one. libpmemobj takes
// the first room that it finds, so whatever lies in front of the wanted slot is filled while it maps a pool.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace durable {

inline constexpr std::size_t slot_size = std::size_t{64} << 30;
inline constexpr std::size_t slot_count = 200;

std::uintptr_t address_of_slot(std::size_t slot);

/// Fills the free slots in front of an address while it lives. Whoever has one holds the lock of all.
class Steering {
public:
    explicit Steering(std::uintptr_t address);
    ~Steering();
    Steering(const Steering&) = delete;
    Steering& operator=(const Steering&) = delete;

    /// Whether nothing lies in the slot at the address.
    bool is_free() const { return is_free_; }

private:
    void fill_until(std::uintptr_t address);

    std::vector<std::pair<void*, std::size_t>> filled_;
    bool is_free_ = false;
};

/// Keeps others out of the rest of a pool's slot while it lives.
class Rest {
public:
    Rest(std::uintptr_t pool, std::size_t size);
    ~Rest();
    Rest(const Rest&) = delete;
    Rest& operator=(const Rest&) = delete;

private:
    void* filled_ = nullptr;
    std::size_t size_ = 0;
};

} // namespace durable
