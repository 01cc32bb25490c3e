// What a pool keeps in its file and what it keeps in the process, and the few operations on its blocks that everything
// else is made of.
#pragma once

#pragma GCC visibility push(default)
#include <durable/pool.h>
#pragma GCC visibility pop

#include "addresses.hpp"
#include "pmemobj.hpp"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace durable {

/// A TypeInfo copy. The records of its variants follow, in front of them spare ones for negative variants.
struct TypeEntry {
    TypeEntry* next;
    zur_type_info* copy;
    zur_variant_table table;
};

/// A root; its name follows.
struct RootEntry {
    RootEntry* next;
    RootEntry** link; ///< the word that names this one
    void* instance;
    const zur_type_info* type;

    char* name() { return reinterpret_cast<char*>(this + 1); }
};

/// The pool's entrance.
struct Header {
    std::uintptr_t address; ///< where the pool was made, and where its pointers are right
    std::uint64_t fingerprint;
    TypeEntry* types;
    RootEntry* roots;
};

/// A Domain of a pool; its obj_store.
struct Store {
    durable_pool* pool;
    zur_domain* D;
    std::uint64_t placed; ///< the pool's generation of which the Domain knows the places of state flags
};

struct DestroyDomain {
    void operator()(Store* store) const;
};
using OwnedStore = std::unique_ptr<Store, DestroyDomain>;

/// A file descriptor.
class File {
public:
    explicit File(int number) : number_(number) {}
    ~File();
    File(File&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    File& operator=(File&&) = delete;
    int number() const { return number_; }

private:
    int number_;
};

struct CloseMapped {
    void operator()(PMEMobjpool* mapped) const { pmemobj.close(mapped); }
};
using Mapped = std::unique_ptr<PMEMobjpool, CloseMapped>;

using RootKey = std::pair<std::string_view, std::string_view>;

/// Leaves the reason of a failure, and returns its status.
durable_status fail(durable_status status, const std::string& reason);

/// Runs code that may ask for memory.
template <class Body>
durable_status guarded(const Body& body) noexcept {
    try {
        return body();
    } catch (...) {
        return DURABLE_NO_MEMORY;
    }
}

/// A number by which builds are told apart: all digests and layouts of the catalogue and of the loaded library.
std::uint64_t fingerprint();

/// Brings the types in the pool up to date with this process, or enters them.
durable_status refresh_types(durable_pool& pool);

/// Gives a Domain the places of all nested state flags in the pool.
void place_flags(Store& store);

} // namespace durable

/// An open pool.
struct durable_pool {
    durable_pool(durable::File locked, durable::Mapped opened, std::size_t length);

    durable::File file; ///< with the lock
    durable::Mapped mapped;
    std::size_t size;
    std::optional<durable::Rest> rest;
    std::uint64_t id;
    durable::Header* header;
    std::unordered_map<std::string_view, durable::TypeEntry*> types; ///< by digest
    std::map<durable::RootKey, durable::RootEntry*> roots;
    std::uint64_t generation = 1; ///< grows with each transaction
    durable::Store* writer = nullptr;
    bool is_doomed = false; ///< the transaction cannot be committed
    std::vector<durable::OwnedStore> stores;

    std::uintptr_t address() const { return reinterpret_cast<std::uintptr_t>(mapped.get()); }
    bool contains(const void* pointer, std::size_t length = 1) const {
        const std::uintptr_t offset = reinterpret_cast<std::uintptr_t>(pointer) - address();
        return offset < size && length <= size - offset;
    }
    /// Whether a pointer from the file can be one to a T.
    template <class T>
    bool holds(const T* object) const {
        return reinterpret_cast<std::uintptr_t>(object) % alignof(T) == 0 && contains(object, sizeof(T));
    }
    PMEMoid oid_of(const void* block) const { return {id, reinterpret_cast<std::uintptr_t>(block) - address()}; }
    void* block_of(PMEMoid oid) const {
        return oid.off != 0 ? reinterpret_cast<char*>(mapped.get()) + oid.off : nullptr;
    }

    /// Whether this thread has the pool's transaction open.
    bool is_open() const { return writer != nullptr && durable::pmemobj.tx_stage() == TX_STAGE_WORK; }
    /// Remembers bytes that are about to change. Where there is no room for that, nothing reaches the file any more.
    void remember(void* first, std::size_t length);
    /// Null when it is refused.
    void* allocate(std::size_t length);
    void release(void* block);
    template <class T>
    void store(T* address, std::type_identity_t<T> value) {
        remember(address, sizeof(T));
        *address = value;
    }

    /// Reads types and roots from the file. Returns false when that is damaged.
    bool read_index();
    durable_status begin(durable::Store& store);
    durable_status end(bool is_commit);

private:
    bool map_heap(bool is_private);
    void doom();
};
