// The text helpers: print lines, tags, and the strings that a Bundle holds itself. Their XML readers are here too.
//
// zur_print_space() writes no terminator: a record's closing line passes the start of its text, where the blanks of the
// opening line already are, and a terminator would cut the text there. For the same reason it writes no blanks at all
// if they do not fit: the text before them is terminated.
#include "../common/element_text.hpp"
#include "../common/text_writer.hpp"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

using namespace platform;

namespace {

const uint8_t* as_bytes(const char* text) {
    return reinterpret_cast<const uint8_t*>(text);
}

uint32_t print_string(zur_domain* D, char* buffer, uint32_t indent, const char* name, const char* type,
                      const char* characters, uint32_t length, uint32_t size, uint32_t* st) {
    if (raised(D, st)) return 0;
    TextWriter writer(buffer, size);
    writer.line_start(indent, name, type);
    writer.escaped(as_bytes(characters), length, false);
    writer.put('\n');
    return writer.finish(D, st);
}

uint32_t string_element(zur_domain* D, const char* name, char* buffer, const char* characters, uint32_t length,
                        uint32_t size, uint8_t flag, uint32_t* st) {
    if (raised(D, st)) return 0;
    TextWriter writer(buffer, size);
    const std::string_view tag(name);
    writer.open_tag(tag, flag);
    writer.escaped(as_bytes(characters), length, true);
    writer.close_tag(tag);
    return writer.finish(D, st);
}

void failed_string(zur_domain* D, uint32_t code, const char* path, uint32_t* st, char* message, uint32_t message_size) {
    fail(D, code, st);
    if (code != ZUR_ABSENT && message != nullptr && message_size != 0)
        std::snprintf(message, message_size, "%s: %s", path,
                      code == ZUR_BUFFER_TOO_SMALL ? "text too long" : "not a text");
}

uint32_t fixed_length(const char* characters, uint32_t capacity) {
    return static_cast<uint32_t>(strnlen(characters, capacity));
}

// Handles a format of nothing but strings, as most are. Returns -1 for any other, or when there is too little room.
int join(char* buffer, uint32_t room, const char* format, va_list arguments) {
    uint32_t used = 0;
    for (; *format != 0; ++format) {
        const char* text = format;
        std::size_t length = 1;
        if (*format == '%') {
            if (*++format != 's' || (text = va_arg(arguments, const char*)) == nullptr) return -1;
            length = std::strlen(text);
        }
        if (length >= room - used) return -1;
        std::memcpy(buffer + used, text, length);
        used += static_cast<uint32_t>(length);
    }
    if (room == 0) return -1;
    buffer[used] = 0;
    return static_cast<int>(used);
}

uint32_t held_length(const char* characters, uint32_t length) {
    return characters != nullptr ? length : 0;
}

} // namespace

uint32_t zur_print_space(zur_domain* D, uint32_t, char* buffer, uint32_t indent, uint32_t size, uint32_t* st) {
    if (*st != 0) return 0;
    const uint32_t room = text_room(size);
    if (indent < room) {
        std::memset(buffer, ' ', indent);
        return indent;
    }
    fail(D, ZUR_BUFFER_TOO_SMALL, st);
    return 0;
}

uint32_t zur_snprintf(zur_domain* D, uint32_t, char* buffer, uint32_t size, uint32_t* st, const char* format, ...) {
    if (*st != 0) return 0;
    const uint32_t room = text_room(size);
    va_list arguments;
    va_start(arguments, format);
    int length = join(buffer, room, format, arguments);
    va_end(arguments);
    if (length < 0) {
        va_start(arguments, format);
        length = std::vsnprintf(room != 0 ? buffer : nullptr, room, format, arguments);
        va_end(arguments);
    }
    if (length >= 0 && static_cast<uint32_t>(length) < room) return static_cast<uint32_t>(length);
    fail(D, ZUR_BUFFER_TOO_SMALL, st);
    return room != 0 && length >= 0 ? room - 1 : 0;
}

uint32_t start_tag(zur_domain* D, uint32_t, char* buffer, const char* name, uint32_t size, uint8_t flag, uint32_t* st) {
    if (*st != 0) return 0;
    TextWriter writer(buffer, size);
    writer.open_tag(name, flag);
    return writer.finish(D, st);
}

// Also writes after a failure, so that the tags up to there balance.
uint32_t end_tag(zur_domain* D, uint32_t, char* buffer, const char* name, uint32_t size, uint32_t* st) {
    TextWriter writer(buffer, size);
    writer.close_tag(name);
    return writer.finish(D, st);
}

uint32_t xml_enum_print(zur_domain* D, uint32_t, char* buffer, const char* text, uint32_t size, uint32_t text_length,
                        uint32_t* st) {
    if (*st != 0) return 0;
    TextWriter writer(buffer, size);
    writer.put({text, text_length});
    return writer.finish(D, st);
}

uint32_t null_string_print(zur_domain* D, uint32_t, char* buffer, uint32_t indent, const char* name,
                           const char* characters, uint32_t size, uint32_t capacity, uint32_t* st) {
    return print_string(D, buffer, indent, name, "null_string", characters, fixed_length(characters, capacity), size,
                        st);
}

uint32_t null_string_to_xml(zur_domain* D, uint32_t, const char* name, char* buffer, const char* characters,
                            uint32_t size, uint32_t capacity, uint8_t flag, uint32_t* st) {
    return string_element(D, name, buffer, characters, fixed_length(characters, capacity), size, flag, st);
}

// Pads a shorter text with zeros; a full array has no terminator.
void null_string_from_xml(zur_domain* D, uint32_t S, const char* path, zur_xml_document* document, char* characters,
                          uint32_t capacity, uint32_t* st, char* message, uint32_t message_size) {
    if (raised(D, st)) return;
    const ElementText text(document, path);
    const bool is_too_long = text.code() == 0 && text.length() > capacity;
    const uint32_t code = is_too_long ? uint32_t{ZUR_BUFFER_TOO_SMALL} : text.code();
    if (code != 0) return failed_string(D, code, path, st, message, message_size);
    announce(D, S, characters, capacity);
    std::memset(characters, 0, capacity);
    if (text.length() != 0) std::memcpy(characters, text.characters(), text.length());
}

uint32_t var_string_print(zur_domain* D, uint32_t, char* buffer, uint32_t indent, const char* name,
                          const char* characters, uint32_t size, uint32_t length, uint32_t* st) {
    return print_string(D, buffer, indent, name, "var_string", characters, held_length(characters, length), size, st);
}

uint32_t var_string_to_xml(zur_domain* D, uint32_t, const char* name, char* buffer, const char* characters,
                           uint32_t size, uint32_t length, uint8_t flag, uint32_t* st) {
    return string_element(D, name, buffer, characters, held_length(characters, length), size, flag, st);
}

// The characters go to the caller's scratch memory, not to a field yet, so nothing is announced.
void var_string_from_xml(zur_domain* D, uint32_t, const char* path, zur_xml_document* document, char* characters,
                         uint32_t size, uint32_t* st, char* message, uint32_t message_size) {
    if (raised(D, st)) return;
    const uint32_t code = xml_get_element_value(document, path, characters, size, nullptr);
    if (code != 0) failed_string(D, code, path, st, message, message_size);
}
