/*
 * XML documents for the `_from_xml` operations.
 *
 * Text content is escaped twice: first each byte that XML cannot carry (controls, what is not UTF-8) and the backslash
 * itself becomes a backslash with two hexadecimal digits, then `&`, `<` and `>` become entities. So any bytes read
 * back as they were. A document type declaration is refused, and no entity but the predefined ones is expanded.
 */
#ifndef PLATFORM_XML_H
#define PLATFORM_XML_H

#include <zur/runtime.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The largest document that is accepted; 0 means the default. */
typedef struct platform_xml_limits {
    size_t size;       /**< bytes, 16 MiB */
    uint32_t depth;    /**< nested elements, 64 */
    uint32_t elements; /**< elements in all, 8192: an array that is read grows by one element at a time, and moves */
} platform_xml_limits;

/**
 * Parses a document. Linear in its length, in time and in memory.
 *
 * @param text     UTF-8, length bytes, borrowed for the call
 * @param limits   null for the defaults
 * @param message  receives "line L, column C: reason" on failure; may be null
 * @return a document, which platform_xml_free() takes; null on failure
 */
struct zur_xml_document* platform_xml_parse(const char* text, size_t length, const platform_xml_limits* limits,
                                            char* message, size_t message_size);
void platform_xml_free(struct zur_xml_document* document);

/**
 * Puts each element of an XML text on a line of its own, indented; values of the same name stay next to each other as
 * long as their line is not wider than `width`. A text stays directly between its tags, because white space there would
 * become part of it.
 *
 * @param buffer  receives what fits, without a terminator; may be null if size is 0
 * @return the whole length; 0 when memory runs out
 */
size_t platform_xml_lay_out(const char* text, size_t length, size_t width, char* buffer, size_t size);

#ifdef __cplusplus
}
#endif

#endif
