// Walks over the Instances of a pool. The runtime remembers in the process where the state flags of nested Instances
// lie, so a Domain that tracks must be told when it begins with a pool, and again when the pool has been rolled back.
#include "private.hpp"

#include "catalogue/catalogue.hpp"
#include "frame/contents.hpp"
#include "lifecycle/element_buffer.hpp"

#include <platform/store.h>

namespace durable {

namespace {

using epm::Instance, epm::Kind, epm::Record;

template <const Record& R>
void place_below(zur_domain* D, Instance* x);

/// An Instance in a block of its own.
template <const Record& R>
void place(zur_domain* D, Instance* x) {
    uint32_t st = 0;
    if constexpr (epm::catalogue::has_nested_blocks(R))
        if (epm::has_flag(x, ZUR_TRACKED))
            epm::lifecycle::offset_update<R>(D, ZUR_NO_SET, x, epm::at(x, epm::standard_offset<R>(x)), &st);
    place_below<R>(D, x);
}

/// What a record refers to, and what the records in it do.
template <const Record& R>
void place_below(zur_domain* D, Instance* x) {
    epm::catalogue::for_each_field<R>([&]<std::size_t I>() {
        constexpr const auto& f = R.fields[I];
        if (!epm::lifecycle::is_laid_out<R, I>(x)) return;
        if constexpr (f.kind == Kind::embedded) {
            place_below<*f.record>(D, epm::field<R, I, Instance>(x));
        } else if constexpr (f.kind == Kind::arm) {
            if (Instance* arm = *epm::field<R, I, Instance*>(x)) place<*f.record>(D, arm);
        } else if constexpr (f.kind == Kind::list) {
            epm::for_each_list_element<R, I>(
                x, [&](const Instance* element) { place<*f.record>(D, const_cast<Instance*>(element)); });
        } else if constexpr (f.kind == Kind::array && f.is_of_record()) {
            const epm::lifecycle::Elements<*f.record> elements{*epm::field<R, I, void*>(x),
                                                               epm::element_count<R, I>(x)};
            if (elements.count == 0 || !elements.has_blocks()) return;
            for (std::size_t i = 0; i < elements.count; ++i) elements.place_block(D, ZUR_NO_SET, i);
        }
    });
}

using Place = void (*)(zur_domain*, Instance*);

template <std::size_t... N>
std::unordered_map<std::string_view, Place> places_of(std::index_sequence<N...>) {
    return {{epm::catalogue::all_records[N]->name, &place<*epm::catalogue::all_records[N]>}...};
}

class Fingerprint {
public:
    void add(std::string_view text) {
        for (const char c : text) add(static_cast<std::uint8_t>(c));
    }
    void add(std::uint64_t number) { value_ = (value_ ^ number) * 0x100000001B3u; }
    std::uint64_t value() const { return value_; }

private:
    std::uint64_t value_ = 0xCBF29CE484222325u;
};

} // namespace

void place_flags(Store& store) {
    static const auto places = places_of(std::make_index_sequence<epm::catalogue::all_records.size()>());
    const zur_tracking_handle* handle = store.D->tracking_handle;
    if (handle != nullptr && handle->handle_kind == ZUR_TRACKED_MODE) {
        platform_domain_forget_places(store.D);
        for (const auto& [key, root] : store.pool->roots)
            if (const auto found = places.find(key.first); found != places.end())
                found->second(store.D, static_cast<Instance*>(root->instance));
    }
    store.placed = store.pool->generation;
}

std::uint64_t fingerprint() {
    Fingerprint all;
    const auto add = [&](const auto* type) {
        all.add(type->digests.identity);
        all.add(type->digests.compatibility);
    };
    for (const Record* r : epm::catalogue::all_records) add(r);
    for (const epm::Enum* e : epm::catalogue::all_enums) add(e);
    for (const zur_module_node* module = zur_module_tot_root.first; module != nullptr; module = module->next)
        for (const zur_type_info* const* type = module->types; *type != nullptr; ++type) {
            all.add((*type)->hex_digest);
            const zur_variant_table* table = (*type)->variant_table;
            for (int i = 0; table != nullptr && i < table->count; ++i) {
                all.add(table->records[i].used_length);
                all.add(table->records[i].alloc_slop);
            }
        }
    return all.value();
}

} // namespace durable
