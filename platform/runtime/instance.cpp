// The Instance header, the maps that belong to Instances (state-flag blocks, OIDs), and the references of fields.
#include "private.hpp"

#include <algorithm>

using namespace platform;

namespace {

zur_instance* header_of(void* instance) {
    return static_cast<zur_instance*>(instance);
}

// A separate header block begins with the TypeInfo pointer.
const zur_type_info** type_word(zur_instance* header) {
    if ((header->flags & ZUR_OWN_HEADER) != 0 && header->type_info != nullptr)
        return reinterpret_cast<const zur_type_info**>(const_cast<zur_type_info*>(header->type_info));
    return &header->type_info;
}

void set_flags(zur_domain* D, uint32_t S, zur_instance* header, uint8_t flags) {
    if (header->flags == flags) return;
    D->write_range_fn(D, &header->flags, sizeof header->flags, S, header);
    header->flags = flags;
}

[[gnu::noinline]] uint32_t change_oids(zur_domain* D, const void* field, const uint64_t* oids, uint32_t length) {
    auto& fields = own(D).field_oids;
    if (length != 0)
        return guarded([&] { fields.insert_or_assign(field, std::vector<uint64_t>(oids, oids + length)); });
    fields.erase(field);
    return 0;
}

} // namespace

int8_t zur_get_instance_variant(const void* instance, int, int) {
    return instance != nullptr ? static_cast<const zur_instance*>(instance)->variant : int8_t{0};
}

uint8_t zur_get_instance_obj_flag(const void* instance, int, int) {
    return instance != nullptr ? static_cast<const zur_instance*>(instance)->flags : uint8_t{0};
}

const zur_type_info* zur_get_manifested_type_info(const void* instance) {
    return instance != nullptr ? *type_word(header_of(const_cast<void*>(instance))) : nullptr;
}

const zur_type_info** zur_get_manifested_type_info_ptr_mem(void* instance) {
    return type_word(header_of(instance));
}

uint32_t platform_instance_separate_header(zur_domain* D, uint32_t S, zur_instance* instance) {
    auto* block = static_cast<const zur_type_info**>(D->obj_alloc_fn(D->obj_store, S, sizeof instance->type_info));
    if (block == nullptr) return ZUR_NO_MEMORY;
    *block = instance->type_info;
    announce(D, S, &instance->type_info, sizeof instance->type_info);
    instance->type_info = reinterpret_cast<const zur_type_info*>(block);
    set_flags(D, S, instance, static_cast<uint8_t>(instance->flags | ZUR_OWN_HEADER));
    return 0;
}

uint32_t zur_get_luid(zur_domain* D, uint32_t, void* instance, uint32_t* st) {
    if (raised(D, st)) return 0;
    const auto found = own(D).oid_of_instance.find(instance);
    if (found != own(D).oid_of_instance.end()) return static_cast<uint32_t>(found->second);
    fail(D, instance != nullptr ? ZUR_ABSENT : ZUR_BAD_ARGUMENT, st);
    return 0;
}

// State-flag blocks. The map holds addresses and never reads behind them, except for the flag that its own entry set.

uint32_t zurlib_get_sttr_offset(zur_domain* D, uint32_t, void* instance) {
    const auto& offsets = own(D).flag_offsets;
    const auto found = offsets.find(instance);
    if (found != offsets.end()) return found->second;
    // The Instance has the flag but no offset here: assume that the block lies behind the fields, as by default.
    const zur_type_info* type = zur_get_manifested_type_info(instance);
    if (type == nullptr || type->variant_table == nullptr || type->variant_table->count < 1) return 0;
    const zur_variant_record& record = type->variant_table->records[0];
    return record.used_length + record.alloc_slop;
}

// This operation has no status word, so the next look-up of a variant reports that memory was refused. The Instance
// goes on untracked, because its flags would otherwise be looked for in a neighbour's memory. An Instance that is still
// being set up becomes tracked after the look-up; the counting that follows undoes that.
void zurlib_update_sttr_offset(zur_domain* D, uint32_t S, void* instance, uint32_t offset) {
    if (instance == nullptr) return;
    Private& p = own(D);
    zur_instance* header = header_of(instance);
    if (const uint32_t code = guarded([&] { p.flag_offsets[instance] = offset; })) {
        set_flags(D, S, header, static_cast<uint8_t>(header->flags & ~(ZUR_TRACKED | ZUR_MOVED_FLAGS)));
        p.refused_place = RefusedPlace::untold;
        p.is_telling = true;
        p.unplaced = header->type_info == nullptr ? header : nullptr;
        show_agreement(D);
        return zur_store_err(D, code);
    }
    D->hd_mapping_root = reinterpret_cast<uintptr_t>(&p.flag_offsets);
    set_flags(D, S, header, static_cast<uint8_t>(header->flags | ZUR_MOVED_FLAGS));
}

void platform::tell_refused_place(zur_domain* D, uint32_t* st) {
    Private& p = own(D);
    if (p.refused_place == RefusedPlace::untold) {
        p.refused_place = RefusedPlace::told;
        if (*st == 0) fail(D, ZUR_NO_MEMORY, st);
    } else {
        p.refused_place = RefusedPlace::none; // this look-up is already for another Instance
        show_agreement(D);
    }
}

void platform::untrack_unplaced(zur_domain* D, uint32_t S) {
    Private& p = own(D);
    p.refused_place = RefusedPlace::none;
    show_agreement(D);
    if (p.unplaced != nullptr) set_flags(D, S, p.unplaced, static_cast<uint8_t>(p.unplaced->flags & ~ZUR_TRACKED));
}

void zur_hd_mapping_destroy(zur_domain* D, uint32_t S, void* address, uint32_t* st) {
    if (*st != 0) return;
    if (address == nullptr) return fail(D, ZUR_BAD_ARGUMENT, st);
    auto& offsets = own(D).flag_offsets;
    if (offsets.erase(address) == 0) return;
    if (offsets.empty()) D->hd_mapping_root = 0;
    zur_instance* header = header_of(address);
    set_flags(D, S, header, static_cast<uint8_t>(header->flags & ~ZUR_MOVED_FLAGS));
}

void platform_domain_forget_places(zur_domain* D) {
    own(D).flag_offsets.clear();
    D->hd_mapping_root = 0;
}

// OIDs.

uint32_t platform_oid_assign(zur_domain* D, uint32_t S, void* instance, uint64_t oid, platform_oid_destroy_fn destroy) {
    Private& p = own(D);
    if (instance == nullptr || oid == 0 || p.oids.count(oid) != 0 || p.oid_of_instance.count(instance) != 0)
        return ZUR_BAD_ARGUMENT;
    if (const uint32_t code = guarded([&] { p.oids[oid] = {instance, destroy, S, 0, false}; })) return code;
    if (const uint32_t code = guarded([&] { p.oid_of_instance[instance] = oid; })) {
        p.oids.erase(oid);
        return code;
    }
    zur_instance* header = header_of(instance);
    set_flags(D, S, header, static_cast<uint8_t>(header->flags | ZUR_HAS_OID));
    return 0;
}

uint32_t platform_oid_add_reference(zur_domain* D, uint64_t oid) {
    const auto found = own(D).oids.find(oid);
    if (found == own(D).oids.end()) return ZUR_ABSENT;
    ++found->second.references;
    return 0;
}

uint32_t platform_oid_references(zur_domain* D, uint64_t oid) {
    const auto found = own(D).oids.find(oid);
    return found != own(D).oids.end() ? found->second.references : 0;
}

uint32_t zur_request_oid_mapping_destroy(zur_domain* D, uint32_t S, void* instance, uint32_t* st) {
    if (*st != 0) return 0;
    Private& p = own(D);
    const auto mapping = p.oid_of_instance.find(instance);
    if (mapping == p.oid_of_instance.end()) {
        fail(D, ZUR_ABSENT, st);
        return 0;
    }
    OidState& state = p.oids.at(mapping->second);
    if (state.references != 0) {
        state.destroy_put_off = true;
        return 0;
    }
    p.oids.erase(mapping->second);
    p.oid_of_instance.erase(mapping);
    zur_instance* header = header_of(instance);
    set_flags(D, S, header, static_cast<uint8_t>(header->flags & ~ZUR_HAS_OID));
    return 1;
}

void zurlib_lookup_and_update_oid_ref_count(zur_domain* D, uint32_t, uint64_t oid, uint32_t add, uint32_t* st) {
    if (*st != 0) return;
    const auto found = own(D).oids.find(oid);
    if (found == own(D).oids.end() || (add == 0 && found->second.references == 0)) return fail(D, ZUR_ABSENT, st);
    OidState& state = found->second;
    if (add != 0) {
        ++state.references;
        return;
    }
    if (--state.references == 0 && state.destroy_put_off && state.destroy != nullptr)
        state.destroy(D, state.set_id, state.instance);
}

// Every field that goes is reported here, while hardly any has references.
uint32_t platform_field_set_oids(zur_domain* D, const void* field, const uint64_t* oids, uint32_t length) {
    if (length == 0 && own(D).field_oids.empty()) [[likely]]
        return 0;
    return change_oids(D, field, oids, length);
}

uint32_t platform_field_oid_count(zur_domain* D, const void* field) {
    const auto& fields = own(D).field_oids;
    if (fields.empty()) return 0;
    const auto found = fields.find(field);
    return found != fields.end() ? static_cast<uint32_t>(found->second.size()) : 0;
}

uint32_t platform_field_oids(zur_domain* D, const void* field, uint64_t* oids, uint32_t length) {
    const auto& fields = own(D).field_oids;
    const auto found = fields.find(field);
    if (found == fields.end()) return 0;
    const std::vector<uint64_t>& list = found->second;
    if (std::find(list.begin(), list.end(), 0) != list.end()) return ZUR_BAD_ARGUMENT;
    std::copy_n(list.begin(), std::min<std::size_t>(length, list.size()), oids);
    return 0;
}
