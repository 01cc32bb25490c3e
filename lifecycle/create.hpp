// Creates Instances: chooses the size, fills the header, counts, and sets up the embedded fields. An Instance with all
// its embedded fields and its state-flag block is one allocation.
#pragma once

#include "frame/imports.hpp"
#include "frame/type_tables.hpp"
#include "lifecycle/offsets.hpp"

namespace epm::lifecycle {

/// The zeroed block that the `_cr` chains return instead of a null pointer.
template <const Record& R>
alignas(8) inline constinit unsigned char null_record[catalogue::size<R>] = {};

template <const Enum& E>
alignas(8) inline constinit unsigned char null_enum[catalogue::enum_length] = {};

template <const Record& R>
Instance* null_instance() {
    return header(null_record<R>);
}
template <const Enum& E>
Instance* null_instance() {
    return header(null_enum<E>);
}

/// Bytes of an Instance under the Domain's mode.
template <const Record& R>
std::uint32_t size_of(const Domain* D) {
    using trace::site, trace::Operation, trace::Text;
    const bool tracking = is_tracking(D, site<R, Operation::sizing, Text::corrupted_handle>);
    return static_cast<std::uint32_t>(catalogue::size<R> + (tracking ? catalogue::block_length<R> : 0));
}

template <const Enum& E>
constexpr std::uint32_t size_of() {
    return catalogue::enum_length;
}

/// The pointer to store as an Instance's type: the Bundle's TypeInfo, or the set's copy of it.
inline const zur_type_info* stored_type(Domain* D, std::uint32_t S, const zur_type_info* type) {
    return D->store_mode == 0 ? type : zur_type_info_ptr_get(D, S, type, &orlan_epm_typeinfo_initialize);
}

/// Asks the Domain for the variant of a new Instance of the type.
inline std::int8_t agreed_variant(Domain* D, const zur_type_info* type, std::int8_t top, std::uint32_t* st) {
    return capped(zur_domain_lookup_variant(D, &D->variant_context, type, st), top);
}

/// Writes one header member; announces it if the Instance may lie in a store.
template <class T>
void put(Domain* D, std::uint32_t S, Instance* x, bool announced, T* address, std::type_identity_t<T> value) {
    if (announced) D->write_range_fn(D, address, sizeof(T), S, x);
    *address = value;
}

inline void put_type(Domain* D, std::uint32_t S, Instance* x, bool announced, const zur_type_info** word,
                     const zur_type_info* type) {
    if (announced) D->write_range_fn(D, word, sizeof *word, S, x);
    *word = stored_type(D, S, type);
}

inline void put_flags(Domain* D, std::uint32_t S, Instance* x, bool announced, std::uint32_t flags) {
    put(D, S, x, announced, &x->flags, static_cast<std::uint8_t>(x->flags | flags));
}

/// The counters of a fresh Instance's variant. Damage ends the process; a variant beyond the table is traced.
inline zur_variant_record* counters(const zur_type_info* type, std::int8_t variant, std::int8_t top,
                                    std::uint32_t no_table, std::uint32_t not_present) {
    if (type->variant_table == nullptr) trace::die(no_table);
    if (type->variant_table->count < variant)
        trace::variant_not_present(not_present, variant, type->variant_table->count);
    return frame::variant_record(type->variant_table, std::min(variant, top));
}

/// Increments an enumeration's own counter, which the record statistics leave out.
inline void count_one(Domain* D, std::uint32_t S, const zur_type_info* type, std::uint64_t* counter) {
    D->counter_range_fn(D->obj_store, counter, 1, S);
    if (type->plain_counters != 0)
        ++*counter;
    else
        __atomic_fetch_add(counter, 1, __ATOMIC_RELAXED);
}

/// Fills an enumeration's header and leaves the enumerator alone.
[[gnu::always_inline]] inline void initialize_enum(Domain* D, std::uint32_t S, Instance* x, const zur_type_info* type,
                                                   std::int8_t top, bool announced, std::uint32_t extra_flags,
                                                   std::uint32_t* st) {
    const std::int8_t variant = agreed_variant(D, type, top, st);
    put(D, S, x, announced, &x->layout_variant, top);
    put(D, S, x, announced, &x->variant, variant);
    put_type(D, S, x, announced, &x->type_info, type);
    put_flags(D, S, x, announced, extra_flags);
}

template <const Enum& E>
void* initialize(Domain* D, std::uint32_t S, Instance* x, const zur_type_info* type, std::uint32_t announced,
                 std::uint32_t /*skip_stats*/, std::uint32_t extra_flags, void* sttr_base, std::uint32_t* st) {
    initialize_enum(D, S, x, type, E.top(), announced != 0, extra_flags, st);
    return sttr_base;
}

/// Fills a record's header, including the flags that its parent asks for. Returns the stored type.
[[gnu::always_inline]] inline const zur_type_info* initialize_header(Domain* D, std::uint32_t S, Instance* x,
                                                                     const zur_type_info* type, std::int8_t top,
                                                                     bool announced, std::uint32_t extra_flags,
                                                                     std::uint32_t* st) {
    zur_clear_last_error(D);
    const std::int8_t variant = agreed_variant(D, type, top, st);
    put(D, S, x, announced, &x->layout_variant, top);
    put(D, S, x, announced, &x->variant, variant);
    const zur_type_info** word = zur_get_manifested_type_info_ptr_mem(x);
    put_type(D, S, x, announced, word, type);
    put_flags(D, S, x, announced, extra_flags);
    return *word;
}

template <const Record& R>
void* initialize(Domain* D, std::uint32_t S, Instance* x, const zur_type_info* type, std::uint32_t announced,
                 std::uint32_t skip_stats, std::uint32_t extra_flags, void* sttr_base, std::uint32_t* st);

/// An empty list: the head is its own first and last.
inline void initialize_list(Domain* D, std::uint32_t S, ListHead* head, Instance* owner, bool announced) {
    if (announced) announce(D, S, head, 3 * pointer_length, owner);
    head->first = head;
    head->last = head;
    head->owner = owner;
}

template <const Record& R, std::size_t I>
void initialize_field(Domain* D, std::uint32_t S, Instance* x, std::uint32_t announced, std::uint32_t skip_stats,
                      void* sttr_base, std::uint32_t* st) {
    constexpr const Field& f = R.fields[I];
    if constexpr (f.is_own_enum())
        initialize<*f.enumeration>(D, S, field<R, I, Instance>(x), type_info<*f.enumeration>(), announced, skip_stats,
                                   ZUR_NESTED, sttr_base, st);
    else if constexpr (f.kind == Kind::embedded)
        initialize<*f.record>(D, S, field<R, I, Instance>(x), type_info<*f.record>(), announced, skip_stats, ZUR_NESTED,
                              sttr_base, st);
    else if constexpr (f.is_foreign_initialized())
        Codec<*f.foreign>::initialize(D, S, field<R, I>(x), Codec<*f.foreign>::type_info(), announced, skip_stats,
                                      ZUR_NESTED, sttr_base, st);
    else if constexpr (f.kind == Kind::list)
        initialize_list(D, S, field<R, I, ListHead>(x), x, announced != 0);
}

/// Finds where a tracked record's state flags lie. Returns false for a nested record that was given none.
template <const Record& R>
bool place_flags(Domain* D, std::uint32_t S, Instance* x, void*& sttr_base, std::uint32_t* st) {
    using trace::site, trace::Operation, trace::Text;
    if (sttr_base != nullptr) return true;
    if (has_flag(x, ZUR_NESTED)) {
        fail(D, st, ZUR_BAD_ARGUMENT);
        trace::plain(site<R, Operation::initialize, Text::no_block_for_nested>, trace::failure);
        return false;
    }
    sttr_base = at(x, catalogue::size<R>);
    if (has_flag(x, ZUR_MOVED_FLAGS)) {
        const std::uint32_t moved = zurlib_get_sttr_offset(D, S, x);
        if constexpr (places_deeply(R)) sttr_base = at(x, moved);
    }
    if constexpr (catalogue::has_nested_blocks(R)) offset_update<R>(D, S, x, sttr_base, st);
    return true;
}

template <const Record& R>
[[gnu::always_inline]] inline void* initialize_here(Domain* D, std::uint32_t S, Instance* x, const zur_type_info* type,
                                                    std::uint32_t announced, std::uint32_t skip_stats,
                                                    std::uint32_t extra_flags, void* sttr_base, std::uint32_t* st) {
    using trace::site, trace::Operation, trace::Text;
    if (*st != 0) return sttr_base;
    const bool is_announced = announced != 0 && D->write_range_fn != plain::idle_hook;
    const zur_type_info* stored = initialize_header(D, S, x, type, R.top(), is_announced, extra_flags, st);
    const bool tracking = is_tracking(D, site<R, Operation::initialize, Text::corrupted_handle>);
    if (tracking) put_flags(D, S, x, is_announced, ZUR_TRACKED);
    if (skip_stats == 0) {
        zur_variant_record* record =
            counters(stored, x->variant, R.top(), site<R, Operation::initialize, Text::no_variant_table>,
                     site<R, Operation::initialize, Text::variant_not_present>);
        zurlib_type_stats_create_object(D, S, stored, &record->created, st);
        if (tracking && !place_flags<R>(D, S, x, sttr_base, st)) return sttr_base;
    }
    catalogue::for_each_field<R>(
        [&]<std::size_t I>() { initialize_field<R, I>(D, S, x, announced, skip_stats, sttr_base, st); });
    return sttr_base;
}
template <const Record& R>
void* initialize(Domain* D, std::uint32_t S, Instance* x, const zur_type_info* type, std::uint32_t announced,
                 std::uint32_t skip_stats, std::uint32_t extra_flags, void* sttr_base, std::uint32_t* st) {
    return initialize_here<R>(D, S, x, type, announced, skip_stats, extra_flags, sttr_base, st);
}

/// Records a new Instance as handed out. It may be null.
inline Instance* hand_out(Domain* D, std::uint32_t S, Instance* x) {
    record_containment(D, S, x, nullptr);
    if (marks_store(D, S)) zurdb_plat_set_dirty(D, S, x);
    return x;
}

/// When a chain has failed, or fails now for lack of memory, it goes on with the null Instance.
[[gnu::cold, gnu::noinline]] inline Instance* hand_out_null(Domain* D, std::uint32_t S, Instance* null_instance) {
    if (D->last_error == 0) zur_store_err(D, ZUR_NO_MEMORY);
    return hand_out(D, S, null_instance);
}

inline bool chain_has_failed(const Domain* D) {
    return D->cr_active != 0 && D->last_error != 0;
}

/// What a new record needs; constants of one type.
struct Creation {
    std::uint32_t (*size_of)(const Domain*);
    decltype(&initialize<*catalogue::all_records[0]>) initialize;
    const zur_type_info* type;
    void* null;
    std::uint32_t not_created; ///< the trace entry
};

[[gnu::cold, gnu::noinline]] inline Instance* give_up(Domain* D, std::uint32_t S, Instance* x, std::uint32_t site,
                                                      std::uint32_t status) {
    trace::failed(site, status);
    release(D, S, x);
    return nullptr;
}

[[gnu::noinline]] inline Instance* create_by_calls(Domain* D, std::uint32_t S, const Creation& type) {
    std::uint32_t status = 0;
    if (chain_has_failed(D)) return hand_out_null(D, S, header(type.null));
    const std::uint32_t size = type.size_of(D);
    auto* x = static_cast<Instance*>(allocate(D, S, size));
    if (x == nullptr) return D->cr_active != 0 ? hand_out_null(D, S, header(type.null)) : hand_out(D, S, nullptr);
    std::memset(x, 0, size);
    type.initialize(D, S, x, type.type, 1, 0, 0, nullptr, &status);
    return status == 0 ? hand_out(D, S, x) : give_up(D, S, x, type.not_created, status);
}

/// The highest variant among a record and all that lies in it.
template <const Record& R>
inline constexpr std::int8_t highest_top = [] {
    std::int8_t top = R.top();
    catalogue::for_each_field<R>([&]<std::size_t I>() {
        constexpr const Field& f = R.fields[I];
        if constexpr (f.is_own_enum()) top = std::max(top, f.enumeration->top());
        if constexpr (f.kind == Kind::embedded) top = std::max(top, highest_top<*f.record>);
    });
    return top;
}();

/// Whether new Instances of a record are set up in plain steps: the agreed variant cuts none of theirs.
template <const Record& R>
bool is_created_plainly(const Domain* D) {
    return plain::is_open(D) && D->cr_active == 0 && plain::agreed(D) >= highest_top<R>;
}

/// Fills the header of a zeroed Instance.
template <const auto& T>
[[gnu::always_inline]] inline void set_up_header(Instance* x, std::uint8_t flags) {
    x->type_info = type_info<T>();
    x->variant = T.top();
    x->layout_variant = T.top();
    x->flags |= flags; // its state flags may have a place already
    x->unused = 0;
}

template <const Record& R>
void set_up(Domain* D, std::uint32_t S, Instance* x, std::uint8_t flags, void* sttr_base, std::uint32_t* st);

/// Does what initialize_field() does with zeroed memory.
template <const Record& R, std::size_t I>
[[gnu::always_inline]] inline void set_up_field(Domain* D, std::uint32_t S, Instance* x, std::uint8_t nested_flags,
                                                void* sttr_base, std::uint32_t* st) {
    constexpr const Field& f = R.fields[I];
    if constexpr (f.is_own_enum()) {
        set_up_header<*f.enumeration>(field<R, I, Instance>(x), ZUR_NESTED);
    } else if constexpr (f.kind == Kind::embedded) {
        if (*st == 0) set_up<*f.record>(D, S, field<R, I, Instance>(x), nested_flags, sttr_base, st);
    } else {
        initialize_field<R, I>(D, S, x, 1, 0, sttr_base, st);
    }
}

/// Does what initialize() does with zeroed memory. The flags are those of the header.
template <const Record& R>
void set_up(Domain* D, std::uint32_t S, Instance* x, std::uint8_t flags, void* sttr_base, std::uint32_t* st) {
    using trace::site, trace::Operation, trace::Text;
    D->last_error = 0;
    set_up_header<R>(x, flags);
    zur_variant_record* record =
        counters(type_info<R>(), R.top(), R.top(), site<R, Operation::initialize, Text::no_variant_table>,
                 site<R, Operation::initialize, Text::variant_not_present>);
    plain::count(&record->created);
    const auto nested_flags = static_cast<std::uint8_t>(flags | ZUR_NESTED);
    if constexpr (catalogue::has_nested_blocks(R))
        if (flags == ZUR_TRACKED) {
            offset_update<R>(D, S, x, sttr_base, st);
            if (!plain::is_open(D)) [[unlikely]] // a place was refused, which the next look-up of a variant tells
                return catalogue::for_each_field<R>(
                    [&]<std::size_t I>() { initialize_field<R, I>(D, S, x, 1, 0, sttr_base, st); });
        }
    catalogue::for_each_field<R>([&]<std::size_t I>() { set_up_field<R, I>(D, S, x, nested_flags, sttr_base, st); });
}

template <const Record& R>
Instance* create_plainly(Domain* D, std::uint32_t S) {
    using trace::site, trace::Operation, trace::Text;
    std::uint32_t status = 0;
    const bool tracking = is_tracking(D, site<R, Operation::sizing, Text::corrupted_handle>);
    const std::size_t size = catalogue::size<R> + (tracking ? catalogue::block_length<R> : 0);
    auto* x = static_cast<Instance*>(allocate(D, S, size));
    if (x == nullptr) return nullptr;
    std::memset(x, 0, size);
    set_up<R>(D, S, x, tracking ? ZUR_TRACKED : 0, tracking ? at(x, catalogue::size<R>) : nullptr, &status);
    if (status != 0) [[unlikely]]
        return give_up(D, S, x, site<R, Operation::create, Text::record_not_created>, status);
    return x;
}

template <const Record& R>
Instance* create_internal(Domain* D, std::uint32_t S) {
    static constexpr Creation type{size_of<R>, initialize<R>, type_info<R>(), null_record<R>,
                                   trace::site<R, trace::Operation::create, trace::Text::record_not_created>};
    return is_created_plainly<R>(D) ? create_plainly<R>(D, S) : create_by_calls(D, S, type);
}

template <const Enum& E>
Instance* create_internal(Domain* D, std::uint32_t S) {
    using trace::enum_site, trace::Operation, trace::Text;
    std::uint32_t status = 0;
    if (chain_has_failed(D)) return hand_out_null(D, S, null_instance<E>());
    auto* x = static_cast<Instance*>(allocate(D, S, catalogue::enum_length));
    if (x == nullptr) return D->cr_active != 0 ? hand_out_null(D, S, null_instance<E>()) : hand_out(D, S, nullptr);
    std::memset(x, 0, catalogue::enum_length);
    const std::int8_t variant = agreed_variant(D, type_info<E>(), E.top(), &status);
    put(D, S, x, true, &x->layout_variant, E.top());
    put(D, S, x, true, &x->variant, variant);
    put_type(D, S, x, true, &x->type_info, type_info<E>());
    announce(D, S, &x->flags, sizeof x->flags, x);
    if (status != 0) trace::failed(enum_site<E, Operation::create, Text::enum_not_created>, status);
    zur_variant_record* record =
        counters(x->type_info, x->variant, E.top(), enum_site<E, Operation::create, Text::no_variant_table>,
                 enum_site<E, Operation::create, Text::variant_not_present>);
    count_one(D, S, x->type_info, &record->created);
    return hand_out(D, S, x);
}

template <const Record& R>
Instance* create(Domain* D, std::uint32_t S) {
    trace::init();
    return create_internal<R>(D, S);
}

template <const Enum& E>
Instance* create(Domain* D, std::uint32_t S) {
    return create_internal<E>(D, S);
}

template <const auto& T>
Instance* create_chained(Domain* D) {
    if constexpr (std::is_same_v<decltype(T), const Record&>) trace::init();
    D->cr_active = 1;
    Instance* x = create_internal<T>(D, D->cr_set_id);
    D->cr_active = 0;
    return x;
}

} // namespace epm::lifecycle
