// The Domains of the tests and their watched hooks.
#include "support/domains.hpp"

#include "support/heap.hpp"
#include "support/library.hpp"
#include "support/recorder.hpp"

#include <algorithm>
#include <cstring>

namespace epm::test {

namespace {

char a_store;

zur_domain forward; ///< with the hooks of the platform

void* allocate(void*, std::uint32_t S, std::size_t size) {
    const RuntimeCall call("obj_alloc", [&](const Recorder& n) { return n.list(S, size); });
    void* block = heap().allocate(size);
    const bool by_bundle = call.is_from_bundle();
    if (block != nullptr || by_bundle) tell([&](Observer& o) { o.allocated(block, size, by_bundle); });
    return block;
}

void release(void*, std::uint32_t S, void* block) {
    const RuntimeCall call("obj_free", [&](const Recorder& n) { return n.list(S, block); });
    tell([&](Observer& o) { o.releasing(block); });
    heap().release(block);
}

void write_range(zur_domain* D, void* address, std::uint32_t length, std::uint32_t S, void* owner) {
    const RuntimeCall call("write_range", [&](const Recorder& n) { return n.list(address, length, S, owner); });
    if (call.is_from_bundle()) tell([&](Observer& o) { o.announced(address, length); });
    forward.write_range_fn(D, address, length, S, owner);
}

void counter_range(void* obj_store, void* address, std::uint32_t length, std::uint32_t S) {
    const RuntimeCall call("counter_range", [&](const Recorder& n) { return n.list(address, length, S); });
    forward.counter_range_fn(obj_store, address, length, S);
}

void* allocate_type(void* type_store, std::uint32_t S, std::size_t size) {
    const RuntimeCall call("type_alloc", [&](const Recorder& n) { return n.list(S, size); });
    return forward.type_alloc_fn(type_store, S, size);
}

/// The name of the type of a digest.
const char* type_named(const char* hex_digest) {
    for (const TypeNumbers& t : all_types())
        if (std::memcmp(hex_digest, t.info->hex_digest, sizeof t.info->hex_digest) == 0) return t.name.c_str();
    return "no type of this catalogue";
}

zur_type_info* find_type(void* type_table, std::uint32_t S, const char* hex_digest) {
    const RuntimeCall call("type_lookup", [&](const Recorder& n) { return n.list(S, type_named(hex_digest)); });
    return forward.type_lookup_fn(type_table, S, hex_digest);
}

} // namespace

int TestDomain::insert_type(void* type_table, std::uint32_t S, const char* hex_digest, zur_type_info* copy) {
    const RuntimeCall call("type_insert", [&](const Recorder& n) { return n.list(S, type_named(hex_digest)); });
    current->copies_.push_back(copy);
    tell([&](Observer& o) { o.copied_type(copy); });
    return forward.type_insert_fn(type_table, S, hex_digest, copy);
}

std::string Mode::text() const {
    const char* name = tracking == PLATFORM_NO_HANDLE ? "no handle" : is_tracking() ? "tracked" : "untracked";
    return std::string(name) + ", store_mode " + std::to_string(store_mode) + (containment ? ", containment" : "") +
           (has_store ? ", with a store" : "") + (set_id == ZUR_NO_SET ? ", no set" : "");
}

const std::vector<Mode>& tracking_modes() {
    static const std::vector<Mode> all = {{PLATFORM_NO_HANDLE}, {ZUR_UNTRACKED_MODE}, {ZUR_TRACKED_MODE}};
    return all;
}

const std::vector<Mode>& all_modes() {
    static const std::vector<Mode> all = [] {
        std::vector<Mode> list;
        for (const Mode& m : tracking_modes()) {
            for (const std::uint32_t store_mode : {0u, 1u})
                for (const bool containment : {false, true})
                    for (const bool has_store : {false, true})
                        list.push_back({m.tracking, store_mode, containment, has_store});
            list.push_back({m.tracking, 1, true, true, ZUR_NO_SET});
            list.push_back({m.tracking, 2, true, true});
        }
        return list;
    }();
    return all;
}

TestDomain::TestDomain(const Mode& mode) : mode_(mode) {
    platform_domain_options options{};
    options.tracking = mode.tracking;
    options.store_mode = mode.store_mode;
    options.obj_store = mode.has_store ? &a_store : nullptr;
    options.obj_alloc_fn = allocate;
    options.obj_free_fn = release;
    domain_ = platform_domain_create(&options);
    domain_->cr_set_id = mode.set_id;
    domain_->containment_on = mode.containment;
    forward = *domain_;
    domain_->type_alloc_fn = allocate_type;
    const bool is_idle = declares_plain && !mode.has_store && !mode.containment && mode.store_mode == 0;
    domain_->write_range_fn = is_idle ? idle_write_range : write_range;
    domain_->counter_range_fn = counter_range;
    domain_->type_insert_fn = insert_type;
    domain_->type_lookup_fn = find_type;
    current = this;
}

TestDomain::~TestDomain() {
    current = nullptr;
    if (is_own_) platform_domain_destroy(domain_);
}

} // namespace epm::test
