// The trace reader: takes the catalogue's sections from a library file and joins records with their texts. The file may
// come from anybody, so every length is checked against the bytes that are there.
#include "../common/contract.hpp"

#include <algorithm>
#include <bzlib.h>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <libelf.h>
#include <memory>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

struct platform_trace_reader {
    struct Entry {
        uint32_t luid;
        uint32_t length;
        std::size_t start;
    };
    uint8_t digest[16];
    std::vector<Entry> entries;
    std::string texts;
};

namespace {

using Reader = platform_trace_reader;

constexpr std::string_view luid_section = ".quelog_luids_";
constexpr std::string_view text_section = ".quelog_format_strings";
constexpr std::size_t header_size = 20;
constexpr std::size_t entry_size = 6;
constexpr const char* out_of_memory = "out of memory";
constexpr std::size_t most_text = 64u << 20;

struct CloseElf {
    void operator()(Elf* elf) const { elf_end(elf); }
};

class File {
public:
    explicit File(const char* name) : descriptor_(open(name, O_RDONLY | O_CLOEXEC)) {}
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() {
        if (descriptor_ >= 0) close(descriptor_);
    }
    int descriptor() const { return descriptor_; }

private:
    int descriptor_;
};

struct Section {
    std::string_view name;
    const uint8_t* bytes;
    std::size_t size;
};

uint32_t little_endian(const uint8_t* bytes, unsigned size) {
    uint32_t number = 0;
    for (unsigned i = size; i-- > 0;) number = number << 8 | bytes[i];
    return number;
}

std::string hexadecimal(const uint8_t* bytes, std::size_t size) {
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        text += "0123456789abcdef"[bytes[i] >> 4];
        text += "0123456789abcdef"[bytes[i] & 15];
    }
    return text;
}

// Each of these returns a sentence that says what is wrong, or null.

const char* read_entries(Reader& reader, const Section& section) {
    if (section.size < header_size || (section.size - header_size) % entry_size != 0)
        return "the catalogue's table has a wrong size";
    if (little_endian(section.bytes, 4) != 1) return "the catalogue's table is of an unknown version";
    std::memcpy(reader.digest, section.bytes + 4, sizeof reader.digest);
    if (section.name.substr(luid_section.size()) != hexadecimal(reader.digest, sizeof reader.digest))
        return "the catalogue's digest is not the one in its section's name";
    std::size_t start = 0;
    for (std::size_t at = header_size; at < section.size; at += entry_size) {
        const uint32_t length = little_endian(section.bytes + at + 4, 2);
        reader.entries.push_back({little_endian(section.bytes + at, 4), length, start});
        start += length;
    }
    return start > most_text ? "the catalogue's texts are too long" : nullptr;
}

const char* read_texts(Reader& reader, const Section& section) {
    const std::size_t wanted = reader.entries.empty() ? 0 : reader.entries.back().start + reader.entries.back().length;
    reader.texts.resize(wanted + 1); // one more, to notice a text that is too long
    auto size = static_cast<unsigned>(reader.texts.size());
    if (section.size > UINT32_MAX) return "the catalogue's texts are too long";
    auto* packed = reinterpret_cast<char*>(const_cast<uint8_t*>(section.bytes));
    const int result =
        BZ2_bzBuffToBuffDecompress(reader.texts.data(), &size, packed, static_cast<unsigned>(section.size), 0, 0);
    if (result == BZ_MEM_ERROR) return out_of_memory;
    if (result != BZ_OK && result != BZ_OUTBUFF_FULL) return "the catalogue's texts cannot be unpacked";
    if (result == BZ_OUTBUFF_FULL || size != wanted) return "the catalogue's texts are not as long as its table says";
    reader.texts.resize(wanted);
    return nullptr;
}

const char* read_file(Reader& reader, const char* file_name) {
    const File file(file_name);
    if (file.descriptor() < 0) return "cannot be opened";
    elf_version(EV_CURRENT);
    const std::unique_ptr<Elf, CloseElf> elf(elf_begin(file.descriptor(), ELF_C_READ, nullptr));
    std::size_t names = 0;
    if (elf == nullptr || elf_kind(elf.get()) != ELF_K_ELF || elf_getshdrstrndx(elf.get(), &names) != 0)
        return "not an ELF file";
    Section entries{};
    Section texts{};
    for (Elf_Scn* scn = elf_nextscn(elf.get(), nullptr); scn != nullptr; scn = elf_nextscn(elf.get(), scn)) {
        const Elf64_Shdr* header = elf64_getshdr(scn);
        const char* name = header != nullptr ? elf_strptr(elf.get(), names, header->sh_name) : nullptr;
        if (name == nullptr || header->sh_type != SHT_PROGBITS) continue;
        const bool has_entries = std::string_view(name).substr(0, luid_section.size()) == luid_section;
        if (!has_entries && name != text_section) continue;
        const Elf_Data* data = elf_rawdata(scn, nullptr);
        if (data == nullptr || data->d_buf == nullptr || data->d_size != header->sh_size)
            return "a section lies outside the file";
        (has_entries ? entries : texts) = {name, static_cast<const uint8_t*>(data->d_buf), data->d_size};
    }
    if (entries.bytes == nullptr || texts.bytes == nullptr) return "holds no trace catalogue";
    const char* reason = read_entries(reader, entries);
    return reason != nullptr ? reason : read_texts(reader, texts);
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

platform_trace_reader* platform_trace_open(const char* file_name, char* message, size_t message_size) {
    std::unique_ptr<Reader> reader;
    const char* reason = out_of_memory;
    platform::guarded([&] {
        reader = std::make_unique<Reader>();
        reason = read_file(*reader, file_name);
    });
    if (reason == nullptr) return reader.release();
    if (message != nullptr && message_size != 0) std::snprintf(message, message_size, "%s: %s", file_name, reason);
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
    if (index >= reader->entries.size()) return nullptr;
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
