// Destroys an Instance in a strict order: the references that others hold, then the fields, then the counters and
// mappings, then the memory. An Instance that others still refer to survives its destroy call.
#pragma once

#include "frame/contents.hpp"
#include "lifecycle/create.hpp"
#include "lifecycle/element_buffer.hpp"
#include "lifecycle/links.hpp"

namespace epm::lifecycle {

/// The two operations by which a record asks its fields for references; the Bundle's own types hold none.
inline void report_no_references(Domain* D, const Instance* x, std::uint32_t* st, std::uint32_t after_error,
                                 std::uint32_t of_nothing) {
    if (*st != 0) {
        trace::plain(after_error, trace::failure);
    } else if (x == nullptr) {
        trace::plain(of_nothing, trace::failure);
        fail(D, st, ZUR_BAD_ARGUMENT);
    }
}

template <const auto& T>
std::uint32_t get_oid_count(Domain* D, std::uint32_t, const Instance* x, std::uint32_t* st) {
    using trace::type_site, trace::Operation, trace::Text;
    report_no_references(D, x, st, type_site<T, Operation::oid_count, Text::oid_count_after_error>,
                         type_site<T, Operation::oid_count, Text::oid_count_of_nothing>);
    return 0;
}

template <const auto& T>
void get_object_references(Domain* D, std::uint32_t, const Instance* x, std::uint64_t*, std::uint32_t,
                           std::uint32_t* st) {
    using trace::type_site, trace::Operation, trace::Text;
    report_no_references(D, x, st, type_site<T, Operation::object_references, Text::references_after_error>,
                         type_site<T, Operation::object_references, Text::references_of_nothing>);
}

template <const Record& R>
void destroy_internal(Domain* D, std::uint32_t S, Instance* x, std::uint32_t free_memory);

/// Frees a field's buffer, then announces and zeroes its pointer word.
inline void release_buffer(Domain* D, std::uint32_t S, void** pointer) {
    if (*pointer == nullptr) return;
    release(D, S, *pointer);
    store(D, S, pointer, nullptr, nullptr);
}

/// How the references of one field are read, and the trace entries for what can go wrong.
struct References {
    void (*read)(Domain*, std::uint32_t, void*, std::uint64_t*, std::uint32_t, std::uint32_t*);
    std::uint32_t not_read;
    std::uint32_t not_dropped;
};

/// Drops the references of one field. They are on the stack during this call. Returns false when they cannot be read;
/// the whole destruction then stops.
[[gnu::noinline]] inline bool drop_references(Domain* D, std::uint32_t S, void* object, std::uint32_t count,
                                              std::uint32_t* status, References references) {
    auto* oids = static_cast<std::uint64_t*>(__builtin_alloca(count * sizeof(std::uint64_t)));
    references.read(D, S, object, oids, count, status);
    if (*status != 0) {
        trace::failed(references.not_read, *status);
        return false;
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        zurlib_lookup_and_update_oid_ref_count(D, S, oids[i], 0, status);
        if (*status == 0) continue;
        trace::reference_failed(references.not_dropped, oids[i], *status);
        *status = 0;
    }
    return true;
}

/// Destroys the elements of an array of records, each a whole Instance inside the buffer. Elements without a type were
/// never set up, because filling the array stopped before them.
template <const Record& E>
[[gnu::noinline, gnu::flatten]] void destroy_elements(Domain* D, std::uint32_t S, void* storage, std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) {
        Instance* element = element_in<E>(storage, i);
        if (element->type_info != nullptr) destroy_internal<E>(D, S, element, 0);
    }
}

/// Frees the element flags of the record's arrays.
template <const Record& R>
void release_element_flags(Domain* D, std::uint32_t S, std::uint8_t* block) {
    catalogue::for_each_field<R>([&]<std::size_t I>() {
        if constexpr (R.fields[I].kind == Kind::array) {
            auto** run = at<void*>(block, catalogue::layout<R>.nested[I]);
            if (element_flags_at(run) != nullptr) release_buffer(D, S, run);
        }
    });
}

/// Destroys a list's elements, first to last, with their owner or when a reader replaces them.
template <const Record& R, std::size_t I, trace::Operation O = trace::Operation::drain>
void drain_list(Domain* D, std::uint32_t S, Instance* x) {
    constexpr const Record& element_type = *R.fields[I].record;
    constexpr std::size_t links = catalogue::layout<element_type>.links;
    auto* head = field<R, I, ListHead>(x);
    while (head->first != head) {
        auto* element = header(head->first);
        unlink(D, S, head, element, {links, Marked::removed, trace::site<R, O, trace::Text::range_refused, I>});
        store(D, S, &links_of(element, links)->list_head, nullptr, nullptr);
        destroy_internal<element_type>(D, S, element, 1);
    }
    store(D, S, &head->count, 0, nullptr);
}

/// The first of the record's imported objects. Its trace entry reports unreadable references of any object in the
/// record.
template <const Record& R>
inline constexpr std::size_t first_object = static_cast<std::size_t>(
    std::find_if(R.fields.begin(), R.fields.begin() + R.count, [](const Field& f) { return f.kind == Kind::object; }) -
    R.fields.begin());

/// Whether the runtime can learn that an Instance's state flags lie elsewhere: because it lies inside another record or
/// an array, or because it looks up the offset when it is set up. Only such a record uses the second trace entry for a
/// mapping that could not be removed.
template <const Record& R>
constexpr bool can_have_moved_flags() {
    constexpr auto contains = [](const Field& f) {
        return (f.kind == Kind::embedded || f.kind == Kind::array) && f.is_of_record() && f.record == &R;
    };
    return places_deeply(R) || std::any_of(catalogue::all_records.begin(), catalogue::all_records.end(),
                                           [&](const Record* owner) { return owner->any(contains); });
}

/// Destroys one field. Returns false when the destruction must stop here.
template <const Record& R, std::size_t I>
bool destroy_field(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* status) {
    using trace::site, trace::Operation, trace::Text;
    constexpr const Field& f = R.fields[I];
    if constexpr (f.kind == Kind::object) {
        using Type = Codec<*f.foreign>;
        auto* object = field<R, I>(x);
        const std::uint32_t count = Type::get_oid_count(D, S, object, status);
        if (count != 0 && !drop_references(D, S, object, count, status,
                                           {Type::get_object_references,
                                            site<R, Operation::destroy, Text::references_not_read, first_object<R>>,
                                            site<R, Operation::destroy, Text::reference_not_dropped, I>}))
            return false;
        Type::destroy_internal(D, S, object, 0);
    } else if constexpr (f.kind == Kind::embedded) {
        auto* nested = field<R, I, Instance>(x);
        get_oid_count<*f.record>(D, S, nested, status);
        destroy_internal<*f.record>(D, S, nested, 0);
    } else if constexpr (f.kind == Kind::arm) {
        auto** arm = field<R, I, Instance*>(x);
        if (*arm == nullptr) return true;
        destroy_internal<*f.record>(D, S, *arm, 1);
        store(D, S, arm, nullptr, nullptr);
    } else if constexpr (f.kind == Kind::text || f.kind == Kind::array) {
        auto** storage = field<R, I, void*>(x);
        if constexpr (f.kind == Kind::array && f.is_of_record())
            if (*storage != nullptr)
                destroy_elements<*f.record>(D, S, *storage, *field<R, catalogue::companion<R, I>, std::uint32_t>(x));
        release_buffer(D, S, storage);
    } else if constexpr (f.kind == Kind::list) {
        drain_list<R, I>(D, S, x);
    }
    return true;
}

/// Makes an imported object a fresh one. An object whose bytes behind the header are all zero is fresh already.
template <const Record& R, std::size_t I>
void empty_object(Domain* D, std::uint32_t S, Instance* x) {
    constexpr const Foreign& type = *R.fields[I].foreign;
    constexpr std::size_t start = type.is_placed() ? catalogue::header_length : 0;
    auto* object = field<R, I, Instance>(x);
    auto* content = at<unsigned char>(object, start);
    if (std::all_of(content, content + type.length - start, [](unsigned char byte) { return byte == 0; })) return;
    std::uint32_t status = 0;
    if (!destroy_field<R, I>(D, S, x, &status)) return;
    announce(D, S, content, type.length - start, x);
    std::memset(content, 0, type.length - start);
    std::uint8_t* block = has_flag(x, ZUR_TRACKED) ? flag_block<R>(D, S, x) : nullptr;
    initialize_field<R, I>(D, S, x, 1, 0, block, &status);
    if constexpr (type.is_placed())
        if (block != nullptr && !has_flag(object, ZUR_MOVED_FLAGS)) offset_update<R>(D, S, x, block, &status);
}

/// Releases what a field of a living Instance owns. Leaves a field alone that owns nothing.
template <const Record& R, std::size_t I>
void empty_field(Domain* D, std::uint32_t S, Instance* x) {
    constexpr const Field& f = R.fields[I];
    if constexpr (f.kind == Kind::object) {
        empty_object<R, I>(D, S, x);
    } else if constexpr (f.kind == Kind::embedded) {
        auto* nested = field<R, I, Instance>(x);
        catalogue::for_each_field<*f.record>([&]<std::size_t J>() { empty_field<*f.record, J>(D, S, nested); });
    } else if constexpr (f.kind == Kind::list) {
        if (first_in_list<R, I>(x) != nullptr) drain_list<R, I>(D, S, x);
    } else if constexpr (f.kind == Kind::arm || f.kind == Kind::text || f.kind == Kind::array) {
        const bool is_empty = *field<R, I, void*>(x) == nullptr;
        // Element flags can outlive their elements. An empty array with moved flags is skipped, so that the runtime is
        // not asked for them without need.
        if constexpr (f.kind == Kind::array)
            if (!(is_empty && has_flag(x, ZUR_MOVED_FLAGS)))
                if (std::uint8_t* block = known_flag_block<R>(D, S, x); block != nullptr)
                    release_element_flags<R>(D, S, block);
        if (is_empty) return;
        std::uint32_t status = 0;
        destroy_field<R, I>(D, S, x, &status);
        if constexpr (f.kind != Kind::arm) {
            constexpr std::size_t length = catalogue::companion<R, I>;
            using Value = typename Codec<*R.fields[length].foreign>::Value;
            store(D, S, field<R, length, Value>(x), 0, x);
        }
    }
}

template <const Record& R, std::size_t... I>
bool destroy_fields(Domain* D, std::uint32_t S, Instance* x, std::int8_t variant, std::uint32_t* status,
                    std::index_sequence<I...>) {
    return ((variant < R.fields[I].since || destroy_field<R, I>(D, S, x, status)) && ...);
}

/// Removes an Instance's OID mapping before anything else. Returns false when the Instance must survive.
template <const Record& R>
bool release_oid(Domain* D, std::uint32_t S, Instance* x, std::uint32_t* status) {
    using trace::site, trace::Operation, trace::Text;
    const std::uint32_t is_gone = zur_request_oid_mapping_destroy(D, S, x, status);
    if (*status != 0) {
        trace::failed(site<R, Operation::destroy, Text::oid_mapping_kept>, *status);
        zur_store_err(D, *status);
        return false;
    }
    if (is_gone == 0) {
        trace::plain(site<R, Operation::destroy, Text::still_referenced>, trace::notice);
        return false;
    }
    trace::plain(site<R, Operation::destroy, Text::oid_mapping_removed>, trace::routine);
    return true;
}

/// The TypeInfo of an Instance that is about to be counted as destroyed. Damage ends the process.
inline const zur_type_info* checked(const zur_type_info* type, std::uint32_t damaged) {
    if (type == nullptr || type->magic != ZUR_TYPE_INFO_MAGIC) trace::die(damaged);
    return type;
}

/// The last steps for a separately allocated Instance: marks, the separate header block, the type word, the block.
[[gnu::noinline]] inline void free_instance(Domain* D, std::uint32_t S, Instance* x) {
    if (marks_store(D, S)) zurdb_plat_set_destroy(D, S, x);
    if (has_flag(x, ZUR_OWN_HEADER) && x->type_info != nullptr) release(D, S, const_cast<zur_type_info*>(x->type_info));
    store(D, S, &x->type_info, nullptr, nullptr);
    release(D, S, x);
}

/// Takes an element out of the list that it is in.
template <const Record& R>
[[gnu::always_inline]] inline void leave_list(Domain* D, std::uint32_t S, Instance* x) {
    if constexpr (R.is_linked()) {
        constexpr std::size_t links = catalogue::layout<R>.links;
        constexpr std::uint32_t refused = trace::site<R, trace::Operation::unlink, trace::Text::range_refused>;
        if (ListHead* head = links_of(x, links)->list_head; head != nullptr)
            unlink(D, S, head, x, {links, Marked::removed, refused});
    }
}

template <const Record& R>
void destroy_by_calls(Domain* D, std::uint32_t S, Instance* x, std::uint32_t free_memory) {
    using trace::site, trace::Operation, trace::Text;
    std::uint32_t status = 0;
    if (has_flag(x, ZUR_HAS_OID) && !release_oid<R>(D, S, x, &status)) return;
    const std::int8_t variant = zur_get_instance_variant(x, 1, 0);
    if (variant >= 0) {
        leave_list<R>(D, S, x);
        if (!destroy_fields<R>(D, S, x, variant, &status, std::make_index_sequence<R.count>{})) return;
    }
    if (has_flag(x, ZUR_TRACKED)) {
        std::uint8_t* block = known_flag_block<R>(D, S, x);
        if (!has_flag(x, ZUR_MOVED_FLAGS)) is_tracking(D, site<R, Operation::destroy, Text::corrupted_handle>);
        if (variant >= 0 && block != nullptr) release_element_flags<R>(D, S, block);
    }
    const zur_type_info* type =
        checked(zur_get_manifested_type_info(x), site<R, Operation::destroy, Text::type_info_damaged>);
    zur_variant_record* record = counters(type, variant, R.top(), site<R, Operation::destroy, Text::no_variant_table>,
                                          site<R, Operation::destroy, Text::variant_not_present>);
    zurlib_type_stats_destroy_object(D, S, type, &record->created, &status);
    if (D != nullptr && (x->flags & (ZUR_MOVED_FLAGS | ZUR_RA_DATA)) != 0 && D->hd_mapping_root != 0) {
        zur_hd_mapping_destroy(D, S, x, &status);
        if (status != 0) {
            constexpr std::size_t nth = can_have_moved_flags<R>() ? 1 : 0;
            trace::failed(site<R, Operation::destroy, Text::oid_mapping_kept, trace::whole_record, nth>, status);
            zur_store_err(D, status);
            return;
        }
    }
    if (free_memory != 0) free_instance(D, S, x);
}

/// Whether an Instance is destroyed in plain steps: nobody hears of it, and it has nothing but its fields.
template <const Record& R>
[[gnu::always_inline]] inline bool is_destroyed_plainly(const Domain* D, const Instance* x) {
    return D != nullptr && plain::is_idle(D) && plain::is_believed() && D->containment_on == 0 && D->store_mode == 0 &&
           (x->flags & ~ZUR_NESTED) == 0 && x->type_info == type_info<R>() && x->variant == R.top();
}

template <const Record& R>
[[gnu::always_inline]] inline void destroy_plainly(Domain* D, std::uint32_t S, Instance* x, std::uint32_t free_memory) {
    using trace::site, trace::Operation, trace::Text;
    leave_list<R>(D, S, x);
    std::uint32_t status = 0;
    if (!destroy_fields<R>(D, S, x, R.top(), &status, std::make_index_sequence<R.count>{})) return;
    plain::count(&counters(type_info<R>(), R.top(), R.top(), site<R, Operation::destroy, Text::no_variant_table>,
                           site<R, Operation::destroy, Text::variant_not_present>)
                      ->destroyed);
    if (free_memory == 0) return;
    x->type_info = nullptr;
    release(D, S, x);
}

template <const Record& R>
void destroy_internal(Domain* D, std::uint32_t S, Instance* x, std::uint32_t free_memory) {
    if (x == nullptr || x == null_instance<R>()) return;
    if (is_destroyed_plainly<R>(D, x))
        destroy_plainly<R>(D, S, x, free_memory);
    else
        destroy_by_calls<R>(D, S, x, free_memory);
}

/// An embedded enumeration owns nothing, so this does nothing unless the memory is freed as well.
template <const Enum& E>
void destroy_internal(Domain* D, std::uint32_t S, Instance* x, std::uint32_t free_memory) {
    using trace::enum_site, trace::Operation, trace::Text;
    if (x == nullptr || x == null_instance<E>() || free_memory == 0) return;
    const zur_type_info* type = checked(x->type_info, enum_site<E, Operation::destroy, Text::type_info_damaged>);
    zur_variant_record* record =
        counters(type, x->variant, E.top(), enum_site<E, Operation::destroy, Text::no_variant_table>,
                 enum_site<E, Operation::destroy, Text::variant_not_present>);
    count_one(D, S, type, &record->destroyed);
    if (marks_store(D, S)) zurdb_plat_set_destroy(D, S, x);
    x->type_info = nullptr;
    release(D, S, x);
}

template <const auto& T>
void destroy(Domain* D, std::uint32_t S, Instance* x) {
    destroy_internal<T>(D, S, x, 1);
}

template <const auto& T>
void destroy_chained(Domain* D, Instance* x) {
    destroy_internal<T>(D, D->cr_set_id, x, 1);
}

} // namespace epm::lifecycle
