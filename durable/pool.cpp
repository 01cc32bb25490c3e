// Making, opening and closing pools, their roots, and what is in them.
#include "private.hpp"

#include <zur/runtime.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace durable;

namespace {

// libpmemobj compares the layout's name before it reads anything else, and trusts the file to have its size.
constexpr char layout[] = "orlan_epm durable 1, ";

std::string layout_of(std::size_t size) {
    return layout + std::to_string(size) + " bytes";
}

thread_local std::string last_reason;

std::string with_system_error(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

// The lock belongs to the open file, so a second one of this process is kept out too. Readers lock for reading.
bool lock(const File& file, short kind) {
    struct flock whole {};
    whole.l_type = kind;
    whole.l_whence = SEEK_SET;
    return fcntl(file.number(), F_OFD_SETLK, &whole) == 0;
}

durable_status lock_whole(const File& file, const char* path, short kind = F_WRLCK) {
    if (lock(file, kind)) return DURABLE_GOOD;
    const bool is_held = errno == EAGAIN || errno == EACCES;
    return fail(is_held ? DURABLE_IN_USE : DURABLE_NO_FILE, with_system_error(path));
}

std::size_t size_of(const File& file) {
    struct stat about {};
    return fstat(file.number(), &about) == 0 ? static_cast<std::size_t>(about.st_size) : 0;
}

// Looks at what libpmemobj writes in front of every pool: what it is, and the name of its layout.
durable_status recognize(const File& file, const char* path, std::size_t size) {
    constexpr std::size_t most = 1024;
    std::array<char, 8> kind{};
    std::array<char, most + 1> name{};
    const auto reads = [&](char* to, std::size_t length, off_t from) {
        return pread(file.number(), to, length, from) == static_cast<ssize_t>(length);
    };
    if (!reads(kind.data(), kind.size(), 0) || !reads(name.data(), most, 4096) ||
        std::string_view(kind.data(), kind.size()) != std::string_view("PMEMOBJ", kind.size()))
        return fail(DURABLE_DAMAGED, path);
    const std::string_view found = name.data();
    if (!found.starts_with(layout)) return fail(DURABLE_OTHER_LAYOUT, path);
    if (found != layout_of(size)) return fail(DURABLE_DAMAGED, path + (": it has " + std::to_string(size) + " bytes"));
    return DURABLE_GOOD;
}

durable_status open_mapped(const char* path, std::size_t size, Mapped& mapped) {
    mapped.reset(pmemobj.open(path, layout_of(size).c_str()));
    if (mapped != nullptr) return DURABLE_GOOD;
    const durable_status status = errno == EINVAL ? DURABLE_DAMAGED : DURABLE_NO_FILE;
    return fail(status, std::string(path) + ": " + pmemobj.errormsg());
}

Header* header_of(PMEMobjpool* mapped) {
    const PMEMoid root = pmemobj.root(mapped, sizeof(Header));
    return root.off != 0 ? reinterpret_cast<Header*>(reinterpret_cast<char*>(mapped) + root.off) : nullptr;
}

std::string at(std::uintptr_t address) {
    std::array<char, 32> text;
    std::snprintf(text.data(), text.size(), "0x%zx", address);
    return text.data();
}

// Maps the file once to read its address, and once more where that is another one.
durable_status map(const char* path, std::size_t size, Mapped& mapped) {
    if (const durable_status status = open_mapped(path, size, mapped)) return status;
    const Header* header = header_of(mapped.get());
    if (header == nullptr || header->address == 0) return fail(DURABLE_DAMAGED, path);
    if (header->fingerprint != fingerprint()) return fail(DURABLE_OTHER_BUILD, path);
    const std::uintptr_t address = header->address;
    if (address == reinterpret_cast<std::uintptr_t>(mapped.get())) return DURABLE_GOOD;
    mapped.reset();
    const Steering steering(address);
    if (!steering.is_free()) return fail(DURABLE_ADDRESS_TAKEN, path + (": " + at(address)));
    if (const durable_status status = open_mapped(path, size, mapped)) return status;
    const auto got = reinterpret_cast<std::uintptr_t>(mapped.get());
    return got == address ? DURABLE_GOOD
                          : fail(DURABLE_ADDRESS_TAKEN, path + (": " + at(address) + ", mapped at " + at(got)));
}

// A slot that is free now, at a place that other pools hardly have.
durable_status map_new(const char* path, std::size_t size, Mapped& mapped) {
    std::size_t random = 0;
    if (getrandom(&random, sizeof random, 0) != sizeof random) return fail(DURABLE_NO_FILE, with_system_error(path));
    for (std::size_t i = 0; i < slot_count; ++i) {
        const Steering steering(address_of_slot((random + i) % slot_count));
        if (!steering.is_free()) continue;
        mapped.reset(pmemobj.create(path, layout_of(size).c_str(), 0, S_IRUSR | S_IWUSR));
        return mapped != nullptr ? DURABLE_GOOD : fail(DURABLE_NO_FILE, std::string(path) + ": " + pmemobj.errormsg());
    }
    return fail(DURABLE_ADDRESS_TAKEN, path);
}

// Gives the complete file its name.
durable_status publish(const std::string& hidden, const char* path) {
    if (renameat2(AT_FDCWD, hidden.c_str(), AT_FDCWD, path, RENAME_NOREPLACE) == 0) return DURABLE_GOOD;
    return fail(errno == EEXIST ? DURABLE_EXISTS : DURABLE_NO_FILE, with_system_error(path));
}

durable_status create(const char* path, std::size_t size, std::unique_ptr<durable_pool>& pool) {
    if (access(path, F_OK) == 0) return fail(DURABLE_EXISTS, path);
    const std::string hidden = std::string(path) + ".new";
    File file(open(hidden.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (file.number() < 0) return fail(DURABLE_NO_FILE, with_system_error(hidden));
    if (const durable_status status = lock_whole(file, hidden.c_str())) return status;
    // A file that a killed process left behind is emptied. Room is taken now, because a full disk would kill later.
    durable_status status = DURABLE_GOOD;
    if (ftruncate(file.number(), 0) != 0) status = fail(DURABLE_NO_FILE, with_system_error(hidden));
    if (const int code = posix_fallocate(file.number(), 0, static_cast<off_t>(size));
        code != 0 && status == DURABLE_GOOD)
        status = fail(code == ENOSPC ? DURABLE_FULL : DURABLE_NO_FILE, hidden + ": " + std::strerror(code));
    Mapped mapped;
    if (status == DURABLE_GOOD) status = map_new(hidden.c_str(), size, mapped);
    if (status == DURABLE_GOOD) {
        pool = std::make_unique<durable_pool>(std::move(file), std::move(mapped), size);
        status = refresh_types(*pool);
    }
    if (status == DURABLE_GOOD) status = publish(hidden, path);
    if (status != DURABLE_GOOD) {
        pool.reset();
        unlink(hidden.c_str());
    }
    return status;
}

durable_status open_locked(File file, const char* path, std::unique_ptr<durable_pool>& pool) {
    const std::size_t size = size_of(file);
    if (const durable_status status = recognize(file, path, size)) return status;
    Mapped mapped;
    if (const durable_status status = map(path, size, mapped)) return status;
    pool = std::make_unique<durable_pool>(std::move(file), std::move(mapped), size);
    if (!pool->read_index()) return fail(DURABLE_DAMAGED, path);
    return refresh_types(*pool);
}

durable_status open_existing(const char* path, std::unique_ptr<durable_pool>& pool) {
    File file(open(path, O_RDWR | O_CLOEXEC));
    if (file.number() < 0) return fail(DURABLE_NO_FILE, with_system_error(path));
    if (const durable_status status = lock_whole(file, path)) return status;
    return open_locked(std::move(file), path, pool);
}

// Copies what is not zero.
bool copy_content(const File& to, const File& from, std::size_t size) {
    std::vector<char> part(std::size_t{1} << 20);
    const std::vector<char> zeros(part.size());
    for (std::size_t done = 0; done < size;) {
        const auto offset = static_cast<off_t>(done);
        const ssize_t length = pread(from.number(), part.data(), std::min(part.size(), size - done), offset);
        if (length <= 0) return false;
        const auto count = static_cast<std::size_t>(length);
        const bool is_zero = std::memcmp(part.data(), zeros.data(), count) == 0;
        if (!is_zero && pwrite(to.number(), part.data(), count, offset) != length) return false;
        done += count;
    }
    return ftruncate(to.number(), static_cast<off_t>(size)) == 0;
}

// A file in memory with what another one holds while nobody writes to it.
durable_status copy_file(const char* path, std::optional<File>& copy) {
    const File file(open(path, O_RDONLY | O_CLOEXEC));
    if (file.number() < 0) return fail(DURABLE_NO_FILE, with_system_error(path));
    if (const durable_status status = lock_whole(file, path, F_RDLCK)) return status;
    copy.emplace(memfd_create("pool", MFD_CLOEXEC));
    const bool is_copied = copy->number() >= 0 && copy_content(*copy, file, size_of(file));
    return is_copied ? DURABLE_GOOD : fail(DURABLE_NO_FILE, with_system_error(path));
}

std::string path_of(const File& file) {
    return "/proc/self/fd/" + std::to_string(file.number());
}

template <class Body>
durable_status give(durable_pool** result, const Body& body) {
    if (result == nullptr) return fail(DURABLE_BAD_ARGUMENT, "no place for the pool");
    *result = nullptr;
    if (!pmemobj.is_loaded) return fail(DURABLE_NO_LIBRARY, "libpmemobj.so.1");
    std::unique_ptr<durable_pool> pool;
    const durable_status status = guarded([&] { return body(pool); });
    if (status == DURABLE_GOOD) *result = pool.release();
    return status;
}

} // namespace

durable_status durable::fail(durable_status status, const std::string& reason) {
    last_reason = reason;
    return status;
}

File::~File() {
    if (number_ >= 0) close(number_);
}

durable_pool::durable_pool(File locked, Mapped opened, std::size_t length)
    : file(std::move(locked)), mapped(std::move(opened)), size(length),
      id(pmemobj.root(mapped.get(), sizeof(Header)).pool_uuid_lo), header(header_of(mapped.get())) {
    rest.emplace(address(), size);
    if (header->address != 0) return;
    // Nobody else has the file yet.
    header->fingerprint = fingerprint();
    header->address = address();
}

bool durable_pool::read_index() {
    types.clear();
    roots.clear();
    // A damaged list may be a ring, but it cannot be longer than the pool.
    std::size_t left = size / sizeof(TypeEntry);
    for (TypeEntry* entry = header->types; entry != nullptr; entry = entry->next) {
        if (left-- == 0 || !holds(entry) || !holds(entry->copy)) return false;
        types.insert_or_assign(entry->copy->hex_digest, entry);
    }
    left = size / sizeof(RootEntry);
    for (RootEntry* entry = header->roots; entry != nullptr; entry = entry->next) {
        if (left-- == 0 || !holds(entry) || !holds(entry->type)) return false;
        roots.emplace(RootKey{entry->type->name, entry->name()}, entry);
    }
    return true;
}

const char* durable_status_text(durable_status status) {
    switch (status) {
    case DURABLE_GOOD: return "done";
    case DURABLE_NO_FILE: return "the file cannot be opened or made";
    case DURABLE_EXISTS: return "it is there already";
    case DURABLE_IN_USE: return "a process has the pool open";
    case DURABLE_FULL: return "there is no room";
    case DURABLE_DAMAGED: return "not a pool, or a damaged one";
    case DURABLE_OTHER_LAYOUT: return "a pool of another program or version";
    case DURABLE_OTHER_BUILD: return "the pool's types are not those of this process";
    case DURABLE_ADDRESS_TAKEN: return "something else lies at the pool's address";
    case DURABLE_NO_LIBRARY: return "libpmemobj cannot be loaded";
    case DURABLE_NO_MEMORY: return "no memory";
    case DURABLE_BUSY: return "a transaction is open";
    case DURABLE_NO_TRANSACTION: return "no transaction is open";
    case DURABLE_ABSENT: return "there is no such root";
    case DURABLE_BAD_ARGUMENT: return "wrong argument";
    }
    return "unknown status";
}

const char* durable_reason(void) {
    return last_reason.c_str();
}

durable_status durable_create(const char* path, size_t size, durable_pool** pool) {
    return give(pool, [&](std::unique_ptr<durable_pool>& made) {
        if (path == nullptr || size < DURABLE_SMALLEST || size > DURABLE_LARGEST)
            return fail(DURABLE_BAD_ARGUMENT, "a pool has a path, and between 8 MiB and 64 GiB");
        return create(path, size, made);
    });
}

durable_status durable_open(const char* path, durable_pool** pool) {
    return give(pool, [&](std::unique_ptr<durable_pool>& opened) {
        return path != nullptr ? open_existing(path, opened) : fail(DURABLE_BAD_ARGUMENT, "a pool has a path");
    });
}

durable_status durable_open_copy(const char* path, durable_pool** pool) {
    return give(pool, [&](std::unique_ptr<durable_pool>& opened) {
        if (path == nullptr) return fail(DURABLE_BAD_ARGUMENT, "a pool has a path");
        std::optional<File> copy;
        if (const durable_status status = copy_file(path, copy)) return status;
        if (const durable_status status = recognize(*copy, path, size_of(*copy))) return status;
        const std::string name = path_of(*copy);
        return open_locked(std::move(*copy), name.c_str(), opened);
    });
}

durable_status durable_check(const char* path) {
    if (path == nullptr) return fail(DURABLE_BAD_ARGUMENT, "a pool has a path");
    if (!pmemobj.is_loaded) return fail(DURABLE_NO_LIBRARY, "libpmemobj.so.1");
    return guarded([&] {
        std::optional<File> copy;
        if (const durable_status status = copy_file(path, copy)) return status;
        const std::size_t size = size_of(*copy);
        if (const durable_status status = recognize(*copy, path, size)) return status;
        const int answer = pmemobj.check(path_of(*copy).c_str(), layout_of(size).c_str());
        return answer == 1 ? DURABLE_GOOD : fail(DURABLE_DAMAGED, path + (": " + std::string(pmemobj.errormsg())));
    });
}

void durable_close(durable_pool* pool) {
    delete pool;
}

void* durable_root(const durable_pool* pool, const char* type, const char* name) {
    if (pool == nullptr || type == nullptr || name == nullptr) return nullptr;
    const auto found = pool->roots.find({type, name});
    return found != pool->roots.end() ? found->second->instance : nullptr;
}

int durable_root_next(const durable_pool* pool, durable_root_info* root) {
    if (pool == nullptr || root == nullptr) return 0;
    const auto next = root->type == nullptr || root->name == nullptr
                          ? pool->roots.begin()
                          : pool->roots.upper_bound({root->type, root->name});
    if (next == pool->roots.end()) return 0;
    *root = {next->second->type->name, next->second->name(), next->second->instance};
    return 1;
}

// ---- what is in a pool ----

namespace {

struct Block {
    std::size_t length;
    bool is_found;
};
using Blocks = std::map<const char*, Block>;

// Finds all blocks that something refers to. A pointer may lie at any address: that to element flags does.
void follow(const durable_pool& pool, Blocks& blocks) {
    std::vector<std::pair<const char*, std::size_t>> left = {
        {reinterpret_cast<const char*>(pool.header), sizeof *pool.header}};
    while (!left.empty()) {
        const auto [start, length] = left.back();
        left.pop_back();
        for (std::size_t i = 0; i + sizeof(void*) <= length; ++i) {
            const char* word;
            std::memcpy(&word, start + i, sizeof word);
            if (!pool.contains(word)) continue;
            const auto block = blocks.find(word);
            if (block == blocks.end() || block->second.is_found) continue;
            block->second.is_found = true;
            left.emplace_back(block->first, block->second.length);
        }
    }
}

} // namespace

durable_status durable_look(const durable_pool* pool, durable_report* report) {
    if (pool == nullptr || report == nullptr) return fail(DURABLE_BAD_ARGUMENT, "no pool, or no report");
    return guarded([&] {
        *report = {pool->size, 0, 0, pool->roots.size(), 0, 0};
        Blocks blocks;
        for (PMEMoid oid = pmemobj.first(pool->mapped.get()); oid.off != 0; oid = pmemobj.next(oid)) {
            const std::size_t length = pmemobj.alloc_usable_size(oid);
            blocks[static_cast<const char*>(pool->block_of(oid))] = {length, false};
            ++report->blocks;
            report->bytes += length;
        }
        follow(*pool, blocks);
        for (const auto& [start, block] : blocks) report->lost += !block.is_found;
        for (const auto& [key, root] : pool->roots) {
            const bool is_there = blocks.contains(static_cast<const char*>(root->instance));
            report->damaged_roots += !is_there || zur_get_manifested_type_info(root->instance) != root->type;
        }
        return report->damaged_roots == 0 ? DURABLE_GOOD : fail(DURABLE_DAMAGED, "a root refers to nothing");
    });
}
