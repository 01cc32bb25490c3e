// The trace reader: takes the catalogue's sections from a library file and joins records with their texts. The
// catalogue is two sections. The first, named by its digest, is little-endian:
//
//   4  version, 1        16  digest        6 per message: 4 identifier, 2 length of the text
//
// The second is a bzip2 stream of the texts, one after the other. The file may come from anybody, so every length is
// checked against the bytes that are there, and the section table is read by hand to say where a file is damaged.
#include "../common/contract.hpp"
#include "../common/hex.hpp"

#include <algorithm>
#include <array>
#include <bzlib.h>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <elf.h>
#include <fstream>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct platform_trace_reader {
    struct Entry {
        uint32_t luid;
        uint32_t length;
        std::size_t start;
    };
    uint8_t digest[16];
    bool has_digest = false;
    std::vector<Entry> entries;
    std::size_t sound_entries = 0;
    std::string texts;
};

namespace {

using Reader = platform_trace_reader;
using Bytes = std::span<const uint8_t>;

constexpr std::string_view luid_section = ".quelog_luids_";
constexpr std::string_view text_section = ".quelog_format_strings";
constexpr std::size_t header_size = 20, entry_size = 6, longest_name = 64;
constexpr std::size_t most_text = 8u << 20;
constexpr const char* out_of_memory = "out of memory";

// Thrown, and handed out as a platform_fault.
struct Fault {
    std::string reason;
    std::optional<std::size_t> offset; // of damage
};

// Runs code that throws Faults. Returns true when it threw nothing.
template <class Body>
bool is_sound(platform_fault* fault, const Body& body) {
    *fault = {};
    try {
        body();
        return true;
    } catch (const Fault& thrown) {
        fault->reason[thrown.reason.copy(fault->reason, sizeof fault->reason - 1)] = 0;
        fault->is_damage = thrown.offset.has_value();
        fault->offset = thrown.offset.value_or(0);
    } catch (...) {
        std::strcpy(fault->reason, out_of_memory);
    }
    return false;
}

uint32_t little_endian(Bytes bytes, std::size_t at, std::size_t width) {
    uint32_t number = 0;
    for (std::size_t i = width; i-- > 0;) number = number << 8 | bytes[at + i];
    return number;
}

std::string_view as_text(Bytes bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// ---- sections ----

struct Section {
    std::string_view name;
    std::size_t offset;
    Bytes bytes;
};

// The bytes at an offset that the file itself names.
Bytes range(Bytes file, uint64_t offset, uint64_t length, std::size_t named_at, const char* what) {
    if (offset > file.size() || length > file.size() - offset)
        throw Fault{std::string(what) + " lies outside the file", named_at};
    return file.subspan(static_cast<std::size_t>(offset), static_cast<std::size_t>(length));
}

Elf64_Shdr header_at(Bytes table, std::size_t index) {
    Elf64_Shdr header;
    std::memcpy(&header, table.data() + index * sizeof header, sizeof header);
    return header;
}

Section section_named(Bytes file, std::string_view name, bool is_start = false) {
    Elf64_Ehdr header;
    if (file.size() < sizeof header || std::memcmp(file.data(), ELFMAG, SELFMAG) != 0 || file[EI_CLASS] != ELFCLASS64 ||
        file[EI_DATA] != ELFDATA2LSB)
        throw Fault{"not a 64-bit little-endian ELF file", {}};
    std::memcpy(&header, file.data(), sizeof header);
    constexpr std::size_t table_named_at = offsetof(Elf64_Ehdr, e_shoff);
    constexpr std::size_t width = sizeof(Elf64_Shdr);
    if (header.e_shentsize != width) throw Fault{"not the size of a section header", offsetof(Elf64_Ehdr, e_shentsize)};
    // Numbers that are too large for the file's header are in the first section's header.
    const Elf64_Shdr first = header_at(range(file, header.e_shoff, width, table_named_at, "the section table"), 0);
    const uint64_t count = header.e_shnum != 0 ? header.e_shnum : first.sh_size;
    if (count > file.size() / width) throw Fault{"the section table lies outside the file", table_named_at};
    const Bytes table = range(file, header.e_shoff, count * width, table_named_at, "the section table");
    const auto header_offset = [&](std::size_t index) {
        return static_cast<std::size_t>(header.e_shoff) + index * width;
    };
    const uint32_t names_index = header.e_shstrndx != SHN_XINDEX ? header.e_shstrndx : first.sh_link;
    if (names_index >= count) throw Fault{"not the number of a section", offsetof(Elf64_Ehdr, e_shstrndx)};
    const Elf64_Shdr names_header = header_at(table, names_index);
    const Bytes names =
        range(file, names_header.sh_offset, names_header.sh_size, header_offset(names_index), "a section");

    for (std::size_t i = 0; i < count; ++i) {
        const Elf64_Shdr section = header_at(table, i);
        if (section.sh_name >= names.size() || section.sh_type == SHT_NOBITS) continue;
        const std::string_view from_start = as_text(names.subspan(section.sh_name)).substr(0, longest_name);
        const std::string_view own_name = from_start.substr(0, from_start.find('\0'));
        if (is_start ? !own_name.starts_with(name) : own_name != name) continue;
        const Bytes bytes = range(file, section.sh_offset, section.sh_size, header_offset(i), "a section");
        return {own_name, static_cast<std::size_t>(section.sh_offset), bytes};
    }
    throw Fault{"no section " + std::string(name), {}};
}

// ---- the catalogue ----

std::string hexadecimal(Bytes bytes) {
    std::string text;
    for (const uint8_t b : bytes) (text += platform::hex_digits[b >> 4]) += platform::hex_digits[b & 15];
    return text;
}

// Unpacks as much as it can. Returns the fault that stopped it.
std::optional<Fault> unpack(const Section& section, std::string& texts) {
    bz_stream stream{};
    if (BZ2_bzDecompressInit(&stream, 0, 0) != BZ_OK) throw std::bad_alloc();
    const std::unique_ptr<bz_stream, decltype(&BZ2_bzDecompressEnd)> guard(&stream, &BZ2_bzDecompressEnd);
    stream.next_in = reinterpret_cast<char*>(const_cast<uint8_t*>(section.bytes.data()));
    stream.avail_in = static_cast<unsigned>(section.bytes.size());
    std::array<char, 65536> block;
    int result = BZ_OK;
    const auto is_stuck = [&] { return stream.avail_in == 0 && stream.avail_out != 0; };
    do {
        stream.next_out = block.data();
        stream.avail_out = block.size();
        result = BZ2_bzDecompress(&stream);
        texts.append(block.data(), block.size() - stream.avail_out);
    } while (result == BZ_OK && !is_stuck() && texts.size() <= most_text);
    if (result == BZ_MEM_ERROR) throw std::bad_alloc();
    const std::size_t offset = section.offset + section.bytes.size() - stream.avail_in;
    if (result == BZ_OK)
        return Fault{texts.size() > most_text ? "the texts are too long" : "the texts' stream is cut", offset};
    if (result != BZ_STREAM_END) return Fault{"the texts' stream is damaged", offset};
    if (stream.avail_in != 0) return Fault{"bytes after the end of the texts' stream", offset};
    return {};
}

void read_catalogue(Reader& reader, Bytes file) {
    const Section table = section_named(file, luid_section, true);
    const Bytes bytes = table.bytes;
    if (bytes.size() < header_size) throw Fault{"the catalogue's table is cut", table.offset};
    if (little_endian(bytes, 0, 4) != 1) throw Fault{"the catalogue's table is of an unknown version", table.offset};
    std::copy_n(bytes.begin() + 4, sizeof reader.digest, reader.digest);
    reader.has_digest = true;
    if (table.name.substr(luid_section.size()) != hexadecimal(reader.digest))
        throw Fault{"the catalogue's digest is not the one in its section's name", table.offset + 4};
    const std::size_t end = bytes.size() - (bytes.size() - header_size) % entry_size;
    for (std::size_t at = header_size; at < end; at += entry_size)
        reader.entries.push_back({little_endian(bytes, at, 4), little_endian(bytes, at + 4, 2), 0});
    const Section packed = section_named(file, text_section);
    const std::optional<Fault> fault = unpack(packed, reader.texts);
    std::size_t start = 0;
    for (Reader::Entry& entry : reader.entries) {
        if (entry.length > reader.texts.size() - start) {
            if (fault) throw Fault(*fault);
            throw Fault{"message " + std::to_string(reader.sound_entries) + " goes beyond the end of the texts",
                        table.offset + header_size + reader.sound_entries * entry_size};
        }
        entry.start = start;
        start += entry.length;
        ++reader.sound_entries;
    }
    if (fault) throw Fault(*fault);
    if (start != reader.texts.size()) throw Fault{"the texts go on behind the last message", packed.offset};
    if (end != bytes.size()) throw Fault{"the catalogue's last entry is cut", table.offset + end};
}

// A sentence in a caller's buffer: writes what fits, and counts the whole length.
class Sentence {
public:
    Sentence(char* buffer, std::size_t size) : buffer_(buffer), size_(size) {}

    void append(std::string_view text) {
        if (length_ < size_) text.copy(buffer_ + length_, size_ - length_);
        length_ += text.size();
    }
    std::size_t finish() {
        if (size_ != 0) buffer_[std::min(length_, size_ - 1)] = 0;
        return length_;
    }

private:
    char* buffer_;
    std::size_t size_;
    std::size_t length_ = 0;
};

// One conversion of a message, with its argument.
void append_argument(Sentence& sentence, char conversion, const platform_trace_argument& argument) {
    char digits[24];
    if (conversion == 's') return sentence.append({argument.text, strnlen(argument.text, sizeof argument.text)});
    if (conversion == 'd')
        std::snprintf(digits, sizeof digits, "%" PRId32, static_cast<int32_t>(argument.number));
    else
        std::snprintf(digits, sizeof digits, conversion == 'p' ? "0x%" PRIx64 : "%" PRIu64, argument.number);
    sentence.append(digits);
}

} // namespace

int platform_section_find(const void* file, size_t length, const char* name, int is_start, platform_section* found,
                          platform_fault* fault) {
    return is_sound(fault, [&] {
        const Section section = section_named({static_cast<const uint8_t*>(file), length}, name, is_start != 0);
        *found = {section.name.data(), section.name.size(), section.offset, section.bytes.data(), section.bytes.size()};
    });
}

platform_trace_reader* platform_trace_read(const void* file, size_t length, platform_fault* fault) {
    std::unique_ptr<Reader> reader(new (std::nothrow) Reader);
    is_sound(fault, [&] {
        if (reader == nullptr) throw std::bad_alloc();
        read_catalogue(*reader, {static_cast<const uint8_t*>(file), length});
    });
    return reader != nullptr && reader->has_digest ? reader.release() : nullptr;
}

platform_trace_reader* platform_trace_open(const char* file_name, char* message, size_t message_size) {
    platform_fault fault;
    std::unique_ptr<Reader> reader;
    const bool is_read = is_sound(&fault, [&] {
        std::ifstream file(file_name, std::ios::binary);
        if (!file) throw Fault{"cannot be opened", {}};
        const std::string bytes(std::istreambuf_iterator<char>(file), {});
        reader.reset(platform_trace_read(bytes.data(), bytes.size(), &fault));
        if (fault.reason[0] != 0) throw Fault{fault.reason, {}};
    });
    if (is_read) return reader.release();
    if (message != nullptr && message_size != 0)
        std::snprintf(message, message_size, "%s: %s", file_name, fault.reason);
    return nullptr;
}

void platform_trace_close(platform_trace_reader* reader) {
    delete reader;
}

const uint8_t* platform_trace_digest(const platform_trace_reader* reader) {
    return reader->digest;
}

uint32_t platform_trace_count(const platform_trace_reader* reader) {
    return static_cast<uint32_t>(reader->entries.size());
}

const char* platform_trace_text(const platform_trace_reader* reader, uint32_t index, uint32_t* length, uint32_t* luid) {
    if (index >= reader->sound_entries) return nullptr;
    const Reader::Entry& entry = reader->entries[index];
    if (length != nullptr) *length = entry.length;
    if (luid != nullptr) *luid = entry.luid;
    return reader->texts.data() + entry.start;
}

size_t platform_trace_join(const platform_trace_reader* reader, const platform_trace_record* record, char* buffer,
                           size_t size) {
    if (size != 0) buffer[0] = 0;
    uint32_t length = 0;
    const char* text = platform_trace_text(reader, record->index, &length, nullptr);
    if (text == nullptr || std::memcmp(record->digest, reader->digest, sizeof reader->digest) != 0) return 0;
    Sentence sentence(buffer, size);
    uint32_t next = 0;
    for (uint32_t i = 0; i < length; ++i) {
        const char conversion = text[i] == '%' && i + 1 < length ? text[i + 1] : '\0';
        const bool known = conversion == 's' || conversion == 'd' || conversion == 'u' || conversion == 'p';
        if (conversion == '%') {
            sentence.append("%");
            ++i;
        } else if (known && next < record->argument_count && next < PLATFORM_TRACE_ARGUMENTS &&
                   record->arguments[next].is_text == (conversion == 's')) {
            append_argument(sentence, conversion, record->arguments[next++]);
            ++i;
        } else {
            sentence.append({text + i, 1});
        }
    }
    return sentence.finish();
}
