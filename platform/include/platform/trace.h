/*
 * Recorded traces, and a reader (libquelog_reader) that joins them with the texts in the file of the library that made
 * them.
 */
#ifndef PLATFORM_TRACE_H
#define PLATFORM_TRACE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define PLATFORM_TRACE_ARGUMENTS 3
#define PLATFORM_TRACE_TEXT 120

/** One argument of a trace: a text (cut to what fits) or a number. */
typedef struct platform_trace_argument {
    uint64_t number;
    uint8_t is_text;
    char text[PLATFORM_TRACE_TEXT];
} platform_trace_argument;

/** One trace call. A plain value: it may be copied, kept and joined later. */
typedef struct platform_trace_record {
    uint8_t digest[16]; /**< names the catalogue */
    uint32_t index;     /**< the message's place in it */
    uint32_t module;    /**< trace id of the module, 0 before it has one */
    uint32_t level;     /**< 0 fatal, 3 failure, 6 notice, 7 routine */
    uint32_t argument_count;
    platform_trace_argument arguments[PLATFORM_TRACE_ARGUMENTS];
} platform_trace_record;

typedef void (*platform_trace_sink)(void* context, const platform_trace_record* record);

/**
 * Sets the process's receiver of traces; null, the default, drops them. Calls of the sink do not overlap; once this
 * returns, the former sink is called no more. A trace that the sink itself causes is dropped, and the sink must not
 * call this function.
 */
void platform_trace_set_sink(platform_trace_sink sink, void* context);

/** The name behind a module's trace id; null for an id that was never given out. */
const char* platform_trace_module_name(uint32_t module);

/** The trace catalogue of one library file. */
typedef struct platform_trace_reader platform_trace_reader;

/**
 * Reads the catalogue of a library file.
 *
 * @param message  receives one line when the file has no sound catalogue; may be null
 * @return a reader, which platform_trace_close() takes; null on failure
 */
platform_trace_reader* platform_trace_open(const char* file_name, char* message, size_t message_size);
void platform_trace_close(platform_trace_reader* reader);

/** The catalogue's 16 bytes of digest; borrowed from the reader. */
const uint8_t* platform_trace_digest(const platform_trace_reader* reader);
uint32_t platform_trace_count(const platform_trace_reader* reader);
/** Text and identifier of one message; null when there is none of this index. The text is not terminated. */
const char* platform_trace_text(const platform_trace_reader* reader, uint32_t index, uint32_t* length, uint32_t* luid);

/** What is wrong with a library file. */
typedef struct platform_fault {
    char reason[96]; /**< empty when nothing is */
    int is_damage;   /**< the file is damaged at the offset; otherwise it is refused as a whole */
    size_t offset;
} platform_fault;

/** A section of a library file that is in memory; borrowed from the file. */
typedef struct platform_section {
    const char* name; /**< not terminated */
    size_t name_length;
    size_t offset; /**< in the file */
    const uint8_t* bytes;
    size_t length;
} platform_section;

/**
 * Finds the first section with a name, or whose name begins with it. Accepts only a 64-bit little-endian ELF file.
 *
 * @return 1; 0 with a fault when there is none or the file is damaged
 */
int platform_section_find(const void* file, size_t length, const char* name, int is_start, platform_section* found,
                          platform_fault* fault);

/**
 * Reads the catalogue of a library file that is in memory. After a fault the reader has the messages in front of it;
 * platform_trace_text() gives null for the others.
 *
 * @return a reader, which platform_trace_close() takes; null with a fault when not even the digest can be read
 */
platform_trace_reader* platform_trace_read(const void* file, size_t length, platform_fault* fault);

/**
 * Writes the record's message with its arguments in place, cut to what fits and terminated.
 *
 * @return the whole sentence's length; 0 when the record is not of this catalogue
 */
size_t platform_trace_join(const platform_trace_reader* reader, const platform_trace_record* record, char* buffer,
                           size_t size);

#ifdef __cplusplus
}
#endif

#endif
