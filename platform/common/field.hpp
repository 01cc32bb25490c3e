// The operations of foreign types, written once for all of them. A trait describes a type: its memory, its value, its
// wire form and its text. The macros at the end define the contract's functions from it.
//
// A trait T has: Object, Value; name; shape; `moves` (a set empties its source); `content(Object *)` and content_size,
// the bytes behind the header; `load(const Object *)` (null gives the empty value); `length(Value)` on the wire;
// `encode(to, Value)`; `decode(from, room, Value &, used &)`, which gives an error number; `text(TextWriter &, Value,
// xml)`; `parse(characters, length, Value &)`, which may take `char *` and turn the characters into the value's bytes
// in place; may_be_empty, an empty element is a value; `compare(Value, Value)`; `hash(Value, seed)`; where there is a
// header, `type_info()`. A type that owns a buffer has owns_buffer, `terminator` (bytes behind the buffer's content)
// and `store(Object *, Value, buffer)`; any other `store(Object *, Value)`. A type whose text is short may also have
// longest_text and `append_text(to, Value)`, which writes it without a check.
#pragma once

#include "bytes.hpp"
#include "contract.hpp"
#include "element_text.hpp"
#include "hex.hpp"
#include "text_writer.hpp"
#include "type_info.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

namespace platform {

enum class Shape {
    plain,       // no Instance header
    enumeration, // an Instance with a number; its variant is on the wire
    record       // an Instance that counts itself
};

// Blanks around a number or an address belong to the document, not to the value.
inline std::string_view trimmed(const char* text, std::size_t length) {
    const auto blank = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
    const char* end = text + length;
    while (text != end && blank(*text)) ++text;
    while (text != end && blank(end[-1])) --end;
    return {text, static_cast<std::size_t>(end - text)};
}

template <class Number>
bool parse_number(std::string_view text, Number& number) {
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end;
}

inline int32_t order(auto a, auto b) {
    if (a == b) [[likely]]
        return 0;
    return a < b ? -1 : 1;
}

template <class T>
struct Field {
    using Object = typename T::Object;
    using Value = typename T::Value;
    static constexpr bool instance = T::shape != Shape::plain;

    static void* get(zur_domain* D, void* address, uint32_t* st) { return raised(D, st) ? nullptr : address; }

    // Puts a value into an object, in a buffer of its own. Uses the old buffer again if that is allowed and it fits.
    static bool assign(zur_domain* D, uint32_t S, Object* object, const Value& value, bool reuse, uint32_t* st) {
        if constexpr (T::owns_buffer) {
            uint8_t* old = object->bytes;
            uint8_t* buffer = nullptr;
            if (reuse && old != nullptr && object->length == value.length) {
                buffer = old;
                announce(D, S, buffer, value.length);
            } else if (value.length != 0) {
                const std::size_t size = std::size_t{value.length} + T::terminator;
                buffer = static_cast<uint8_t*>(D->obj_alloc_fn(D->obj_store, S, size));
                if (buffer == nullptr) {
                    fail(D, ZUR_NO_MEMORY, st);
                    return false;
                }
                std::memset(buffer + value.length, 0, T::terminator);
            }
            if (value.length != 0) std::memmove(buffer, value.bytes, value.length);
            if (old != nullptr && old != buffer) D->obj_free_fn(D->obj_store, S, old);
            announce(D, S, T::content(object), T::content_size);
            T::store(object, value, buffer);
        } else {
            announce(D, S, T::content(object), T::content_size);
            T::store(object, value);
        }
        return true;
    }

    // Writes a value for a caller, outside any chain's accessors.
    static void write(zur_domain* D, uint32_t S, Object* object, const Value& value, uint32_t* st) {
        if (raised(D, st)) return;
        if (object == nullptr) return fail(D, ZUR_BAD_ARGUMENT, st);
        assign(D, S, object, value, false, st);
    }

    static Value get_value(zur_domain* D, const void* pointer, uint32_t* st) {
        if (raised(D, st)) return Value{};
        if (pointer == nullptr) fail(D, ZUR_BAD_ARGUMENT, st);
        return T::load(static_cast<const Object*>(pointer));
    }

    // A move. A record is moved by copying its body first, so both objects may point to the same buffer here.
    static void set(zur_domain* D, uint32_t S, void* address, void* source, uint32_t* st) {
        if (raised(D, st)) return;
        if (address == nullptr || source == nullptr) return fail(D, ZUR_BAD_ARGUMENT, st);
        auto* to = static_cast<Object*>(address);
        auto* from = static_cast<Object*>(source);
        adjust(D, S, to, st);
        if (to == from || *st != 0) return;
        if constexpr (T::owns_buffer) {
            if (to->bytes != nullptr && to->bytes != from->bytes) D->obj_free_fn(D->obj_store, S, to->bytes);
        }
        announce(D, S, T::content(to), T::content_size);
        std::memcpy(T::content(to), T::content(from), T::content_size);
        if constexpr (T::moves) clear(D, S, from);
    }

    static void set_value(zur_domain* D, uint32_t S, void* address, Value value, uint32_t* st) {
        if (raised(D, st)) return;
        if (address == nullptr) return fail(D, ZUR_BAD_ARGUMENT, st);
        adjust(D, S, static_cast<Object*>(address), st);
        if (*st == 0) assign(D, S, static_cast<Object*>(address), value, false, st);
    }

    static uint32_t len(const void* field) {
        return variant_size + T::length(T::load(static_cast<const Object*>(field)));
    }

    static uint32_t marshal(zur_domain* D, uint32_t S, void* destination, const void* field, int32_t room,
                            uint32_t* st) {
        if (raised(D, st)) return 0;
        if (destination == nullptr || field == nullptr) return fail(D, ZUR_BAD_ARGUMENT, st), 0;
        auto* to = static_cast<uint8_t*>(destination);
        const Value value = T::load(static_cast<const Object*>(field));
        if (unsigned_room(room) < uint64_t{variant_size} + T::length(value)) return fail(D, ZUR_WRONG_LENGTH, st), 0;
        if constexpr (T::shape == Shape::enumeration) {
            const auto* header = static_cast<const zur_instance*>(field);
            int8_t variant = header->variant;
            const auto agreed = static_cast<int8_t>(
                zur_domain_lookup_variant(D, &D->variant_context, zur_get_manifested_type_info(field), st));
            if (variant > agreed) {
                zur_store_epoch_err(D, ZUR_NOT_IN_VARIANT, st);
                variant = agreed;
            }
            variant = std::min<int8_t>(variant, 0);
            to += _zur_instance_variant_marshal(D, S, to, &variant, room, st);
            // If the word was raised above, the value is left out, as in every enumeration.
            if (*st != 0) return static_cast<uint32_t>(to - static_cast<uint8_t*>(destination));
        }
        T::encode(to, value);
        return variant_size + T::length(value);
    }

    static uint32_t unmarshal(zur_domain* D, uint32_t S, const void* source, void* field, int32_t room, uint32_t reuse,
                              uint32_t* st) {
        if (raised(D, st)) return 0;
        if (source == nullptr || field == nullptr) return fail(D, ZUR_BAD_ARGUMENT, st), 0;
        const uint32_t whole_room = unsigned_room(room);
        if (whole_room < variant_size) return fail(D, ZUR_WRONG_LENGTH, st), 0;
        const auto* from = static_cast<const uint8_t*>(source);
        auto* object = static_cast<Object*>(field);
        Value value{};
        uint32_t used = 0;
        if (const uint32_t code = T::decode(from + variant_size, whole_room - variant_size, value, used))
            return fail(D, code, st), 0;
        if (!assign(D, S, object, value, reuse != 0, st)) return 0;
        if constexpr (T::shape == Shape::enumeration) {
            announce(D, S, object, sizeof(zur_instance));
            object->variant = std::min(static_cast<int8_t>(from[0]), object->layout_variant);
            object->type_info = type_word(D, S, &T::type_info());
        }
        return variant_size + used;
    }

    static uint32_t print(zur_domain* D, char* buffer, uint32_t indent, const char* name, const void* field,
                          uint32_t size, uint32_t* st) {
        if (raised(D, st)) return 0;
        if constexpr (has_longest_text) {
            static constexpr std::string_view type = T::name;
            const std::string_view label(name);
            if (uint64_t{indent} + label.size() + type.size() + T::longest_text + 4 <= text_room(size)) {
                char* to = append(append_blanks(buffer, indent), label);
                *to++ = '@';
                to = append(to, type);
                *to++ = ':';
                to = T::append_text(to, T::load(static_cast<const Object*>(field)));
                return ended(buffer, append(to, "\n"));
            }
        }
        return print_checked(D, buffer, indent, name, field, size, st);
    }

    static uint32_t to_xml(zur_domain* D, const char* name, char* buffer, const void* field, uint32_t size,
                           uint8_t flag, uint32_t* st) {
        if (raised(D, st)) return 0;
        const std::string_view tag(name);
        if constexpr (has_longest_text) {
            if (flag == 0 && 2 * tag.size() + T::longest_text + 6 <= text_room(size)) {
                char* to = append(append(append(buffer, "<"), tag), ">");
                to = T::append_text(to, T::load(static_cast<const Object*>(field)));
                return ended(buffer, append(append(append(to, "</"), tag), ">"));
            }
        }
        return to_xml_checked(D, tag, buffer, field, size, flag, st);
    }

    static void from_xml(zur_domain* D, uint32_t S, const char* path, zur_xml_document* document, void* field,
                         uint32_t* st, char* message, uint32_t message_size) {
        if (raised(D, st)) return;
        Value value{};
        constexpr bool is_parsed_in_place = !requires(const char* characters) {
            T::parse(characters, 0u, value);
        };
        ElementText text(document, path, is_parsed_in_place);
        const auto parse = [&] {
            if constexpr (is_parsed_in_place)
                return T::parse(text.own(), text.length(), value);
            else
                return T::parse(text.characters(), text.length(), value);
        };
        uint32_t code = text.code();
        if (code == 0 && text.length() == 0 && !T::may_be_empty) return;
        if (code == 0 && text.length() != 0 && !parse()) code = ZUR_BAD_ARGUMENT;
        if (code == 0) assign(D, S, static_cast<Object*>(field), value, false, &code);
        if (code == 0) return;
        fail(D, code, st);
        if (code != ZUR_ABSENT && message != nullptr && message_size != 0) {
            const char* reason = code == ZUR_BAD_ARGUMENT ? "not a value of type" : "cannot read a value of type";
            std::snprintf(message, message_size, "%s: %s %s", path, reason, T::name);
        }
    }

    static int32_t compare(const void* a, const void* b) {
        if (a == nullptr || b == nullptr) return order(a != nullptr, b != nullptr);
        return T::compare(T::load(static_cast<const Object*>(a)), T::load(static_cast<const Object*>(b)));
    }

    static uint32_t hash(const void* field, uint32_t seed) {
        return field == nullptr ? seed : T::hash(T::load(static_cast<const Object*>(field)), seed);
    }

    static void* initialize(zur_domain* D, uint32_t S, void* memory, const zur_type_info* type, uint32_t do_announce,
                            uint32_t skip_stats, uint32_t extra_flags, void* sttr_base, uint32_t* st) {
        if constexpr (instance) {
            if constexpr (T::shape == Shape::record) {
                if (raised(D, st)) return sttr_base;
            }
            auto* header = static_cast<zur_instance*>(memory);
            const auto write = [&](void* address, uint32_t length) {
                if (do_announce != 0) announce(D, S, address, length);
            };
            const auto agreed = static_cast<int8_t>(zur_domain_lookup_variant(D, &D->variant_context, type, st));
            write(&header->layout_variant, 1);
            header->layout_variant = 0;
            write(&header->variant, 1);
            header->variant = std::min<int8_t>(agreed, 0);
            write(&header->type_info, sizeof header->type_info);
            header->type_info = type_word(D, S, type);
            write(&header->flags, 1);
            header->flags = static_cast<uint8_t>(header->flags | extra_flags);
            if constexpr (T::shape == Shape::record) {
                const bool tracked =
                    D->tracking_handle != nullptr && D->tracking_handle->handle_kind == ZUR_TRACKED_MODE;
                if (tracked) {
                    write(&header->flags, 1);
                    header->flags |= ZUR_TRACKED;
                }
                if (skip_stats == 0) zurlib_type_stats_create_object(D, S, header->type_info, created(header), st);
                if (tracked && (header->flags & ZUR_NESTED) != 0 && sttr_base == nullptr) fail(D, ZUR_BAD_ARGUMENT, st);
            }
        }
        return sttr_base;
    }

    static void set_instance_embedded(zur_domain* D, uint32_t S, void* object) {
        if constexpr (instance) {
            if (object == nullptr) return;
            auto* header = static_cast<zur_instance*>(object);
            announce(D, S, &header->flags, 1);
            header->flags |= ZUR_EMBEDDED;
        }
    }

    static void destroy_internal(zur_domain* D, uint32_t S, void* address, uint32_t free_memory) {
        if (address == nullptr) return;
        auto* object = static_cast<Object*>(address);
        uint32_t st = 0;
        if constexpr (T::owns_buffer) {
            if (object->bytes != nullptr) {
                D->obj_free_fn(D->obj_store, S, object->bytes);
                clear(D, S, object);
            }
        }
        platform_field_set_oids(D, address, nullptr, 0);
        if constexpr (instance) {
            auto* header = static_cast<zur_instance*>(address);
            if (const zur_type_info* type = zur_get_manifested_type_info(header)) {
                zurlib_type_stats_destroy_object(D, S, type, created(header), &st);
                if ((header->flags & (ZUR_MOVED_FLAGS | ZUR_RA_DATA)) != 0 && D->hd_mapping_root != 0)
                    zur_hd_mapping_destroy(D, S, address, &st);
            }
        }
        if (free_memory != 0) D->obj_free_fn(D->obj_store, S, address);
    }

    static uint32_t get_oid_count(zur_domain* D, void* object, uint32_t* st) {
        if (*st != 0) return 0;
        if (object == nullptr) return fail(D, ZUR_BAD_ARGUMENT, st), 0;
        return platform_field_oid_count(D, object);
    }

    static void get_object_references(zur_domain* D, void* object, uint64_t* oids, uint32_t length, uint32_t* st) {
        if (*st != 0) return;
        const uint32_t code =
            object != nullptr ? platform_field_oids(D, object, oids, length) : uint32_t{ZUR_BAD_ARGUMENT};
        if (code != 0) fail(D, code, st);
    }

private:
    static constexpr uint32_t variant_size = T::shape == Shape::enumeration ? 1 : 0;
    // Where there is room for a value's longest text, no piece of it need be checked.
    static constexpr bool has_longest_text = requires { T::longest_text; };

    static uint32_t ended(const char* start, char* end) {
        *end = 0;
        return static_cast<uint32_t>(end - start);
    }

    [[gnu::noinline]] static uint32_t print_checked(zur_domain* D, char* buffer, uint32_t indent, const char* name,
                                                    const void* field, uint32_t size, uint32_t* st) {
        TextWriter writer(buffer, size);
        writer.line_start(indent, name, T::name);
        T::text(writer, T::load(static_cast<const Object*>(field)), false);
        writer.put('\n');
        return writer.finish(D, st);
    }

    [[gnu::noinline]] static uint32_t to_xml_checked(zur_domain* D, std::string_view tag, char* buffer,
                                                     const void* field, uint32_t size, uint8_t flag, uint32_t* st) {
        TextWriter writer(buffer, size);
        writer.open_tag(tag, flag);
        T::text(writer, T::load(static_cast<const Object*>(field)), true);
        writer.close_tag(tag);
        return writer.finish(D, st);
    }

    static void clear(zur_domain* D, uint32_t S, Object* object) {
        announce(D, S, T::content(object), T::content_size);
        std::memset(T::content(object), 0, T::content_size);
    }

    static void adjust(zur_domain* D, uint32_t S, Object* object, uint32_t* st) {
        if constexpr (instance) zurlib_adjust_variant(D, S, object, zur_get_manifested_type_info(object), 0, st);
    }

    static const zur_type_info* type_word(zur_domain* D, uint32_t S, const zur_type_info* type) {
        return D->store_mode == 0 ? type : zur_type_info_ptr_get(D, S, type, &initialize_type_info<T::type_info()>);
    }

    static uint64_t* created(const zur_instance* header) {
        return &zur_get_manifested_type_info(header)->variant_table->records[0].created;
    }
};

} // namespace platform

// The TypeInfo comes before the type's trait, which names it.
#define PLATFORM_TYPE_INFO(type, bundle, kind, size)                                                                   \
    static zur_variant_record type##_variant = {0, size, 0, 0, 0, 0};                                                  \
    static constexpr zur_variant_table type##_variants = {1, &type##_variant};                                         \
    constexpr zur_type_info _##type##_type_info_internal =                                                             \
        platform::make_type_info(#type, bundle, kind, &type##_variants);

#define PLATFORM_FIELD(type, Trait)                                                                                    \
    void* type##_get(zur_domain* D, uint32_t, void* address, uint32_t* st) {                                           \
        return platform::Field<Trait>::get(D, address, st);                                                            \
    }                                                                                                                  \
    void type##_set(zur_domain* D, uint32_t S, void* address, void* source, uint32_t* st) {                            \
        platform::Field<Trait>::set(D, S, address, source, st);                                                        \
    }                                                                                                                  \
    uint32_t type##_len(zur_domain*, uint32_t, const void* field) {                                                    \
        return platform::Field<Trait>::len(field);                                                                     \
    }                                                                                                                  \
    uint32_t type##_marshal(zur_domain* D, uint32_t S, void* destination, const void* field, int32_t room,             \
                            uint32_t* st) {                                                                            \
        return platform::Field<Trait>::marshal(D, S, destination, field, room, st);                                    \
    }                                                                                                                  \
    uint32_t type##_unmarshal(zur_domain* D, uint32_t S, const void* source, void* field, int32_t room,                \
                              uint32_t reuse, uint32_t* st) {                                                          \
        return platform::Field<Trait>::unmarshal(D, S, source, field, room, reuse, st);                                \
    }                                                                                                                  \
    uint32_t type##_print(zur_domain* D, uint32_t, char* buffer, uint32_t indent, const char* name, const void* field, \
                          uint32_t size, uint32_t* st) {                                                               \
        return platform::Field<Trait>::print(D, buffer, indent, name, field, size, st);                                \
    }                                                                                                                  \
    uint32_t type##_to_xml(zur_domain* D, uint32_t, const char* name, char* buffer, const void* field, uint32_t size,  \
                           uint8_t flag, uint32_t* st) {                                                               \
        return platform::Field<Trait>::to_xml(D, name, buffer, field, size, flag, st);                                 \
    }                                                                                                                  \
    void type##_from_xml(zur_domain* D, uint32_t S, const char* path, zur_xml_document* document, void* field,         \
                         uint32_t* st, char* message, uint32_t message_size) {                                         \
        platform::Field<Trait>::from_xml(D, S, path, document, field, st, message, message_size);                      \
    }

#define PLATFORM_VALUE(type, Trait)                                                                                    \
    PLATFORM_FIELD(type, Trait)                                                                                        \
    Trait::Value type##_get_value(zur_domain* D, uint32_t, void* pointer, uint32_t* st) {                              \
        return platform::Field<Trait>::get_value(D, pointer, st);                                                      \
    }                                                                                                                  \
    void type##_set_value(zur_domain* D, uint32_t S, void* address, Trait::Value value, uint32_t* st) {                \
        platform::Field<Trait>::set_value(D, S, address, value, st);                                                   \
    }

#define PLATFORM_HASH(type, Trait)                                                                                     \
    uint32_t type##_hash(const void* field, uint32_t seed) {                                                           \
        return platform::Field<Trait>::hash(field, seed);                                                              \
    }

#define PLATFORM_INSTANCE(type, Trait)                                                                                 \
    PLATFORM_HASH(type, Trait)                                                                                         \
    int32_t type##_compare(const void* a, const void* b) {                                                             \
        return platform::Field<Trait>::compare(a, b);                                                                  \
    }                                                                                                                  \
    void* type##_initialize(zur_domain* D, uint32_t S, void* memory, const zur_type_info* type_info,                   \
                            uint32_t announce, uint32_t skip_stats, uint32_t extra_flags, void* sttr_base,             \
                            uint32_t* st) {                                                                            \
        return platform::Field<Trait>::initialize(D, S, memory, type_info, announce, skip_stats, extra_flags,          \
                                                  sttr_base, st);                                                      \
    }                                                                                                                  \
    void type##_set_instance_embedded(zur_domain* D, uint32_t S, void* instance) {                                     \
        platform::Field<Trait>::set_instance_embedded(D, S, instance);                                                 \
    }

#define PLATFORM_ENUM(type, Trait)                                                                                     \
    PLATFORM_VALUE(type, Trait)                                                                                        \
    PLATFORM_INSTANCE(type, Trait)

#define PLATFORM_RECORD(type, Trait)                                                                                   \
    PLATFORM_FIELD(type, Trait)                                                                                        \
    PLATFORM_INSTANCE(type, Trait)                                                                                     \
    void type##_destroy_internal(zur_domain* D, uint32_t S, void* instance, uint32_t free_memory) {                    \
        platform::Field<Trait>::destroy_internal(D, S, instance, free_memory);                                         \
    }                                                                                                                  \
    uint32_t type##_get_oid_count(zur_domain* D, uint32_t, void* instance, uint32_t* st) {                             \
        return platform::Field<Trait>::get_oid_count(D, instance, st);                                                 \
    }                                                                                                                  \
    void type##_get_object_references(zur_domain* D, uint32_t, void* instance, uint64_t* oids, uint32_t length,        \
                                      uint32_t* st) {                                                                  \
        platform::Field<Trait>::get_object_references(D, instance, oids, length, st);                                  \
    }

// Such a type's own state flags have nothing nested in them, so there is no further offset to record.
#define PLATFORM_PLACED_RECORD(type, Trait)                                                                            \
    PLATFORM_RECORD(type, Trait)                                                                                       \
    void type##_offset_update(zur_domain*, uint32_t, void*, void*, uint32_t*) {}                                       \
    void type##_offset_remove(zur_domain*, uint32_t, void*, uint32_t*) {}

#define PLATFORM_BUNDLE(name)                                                                                          \
    static void* name##_handler;                                                                                       \
    void* name##_bundle_handler_register(void* handler) {                                                              \
        return std::exchange(name##_handler, handler);                                                                 \
    }                                                                                                                  \
    void* name##_bundle_handler_unregister(void) {                                                                     \
        return std::exchange(name##_handler, nullptr);                                                                 \
    }
