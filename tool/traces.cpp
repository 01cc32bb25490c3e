// The catalogue is two sections. The first, named by its digest, is little-endian:
//
//   4  version, 1        16  digest        6 per message: 4 identifier, 2 length of the text
//
// The second is a bzip2 stream of the texts, one after the other.
#include "tool/traces.hpp"

#include "tool/failure.hpp"
#include "tool/library_file.hpp"

#include <bzlib.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>

namespace epm::tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view table_start = ".quelog_luids_";
constexpr std::size_t header_length = 20, entry_length = 6;
constexpr std::size_t most_text = 8u << 20;

/// The texts unpacked so far, and the fault that stopped it.
struct Texts {
    std::string text;
    std::optional<Damage> fault;
};

Texts unpack(const Section& section) {
    Texts texts;
    bz_stream stream{};
    if (BZ2_bzDecompressInit(&stream, 0, 0) != BZ_OK) throw Failure{is_damaged, "no memory"};
    stream.next_in = reinterpret_cast<char*>(const_cast<std::uint8_t*>(section.bytes.data()));
    stream.avail_in = static_cast<unsigned>(section.bytes.size());
    std::array<char, 65536> block;
    int result = BZ_OK;
    const auto is_stuck = [&] { return stream.avail_in == 0 && stream.avail_out != 0; };
    do {
        stream.next_out = block.data();
        stream.avail_out = block.size();
        result = BZ2_bzDecompress(&stream);
        texts.text.append(block.data(), block.size() - stream.avail_out);
    } while (result == BZ_OK && !is_stuck() && texts.text.size() <= most_text);
    const std::size_t place = section.offset + section.bytes.size() - stream.avail_in;
    BZ2_bzDecompressEnd(&stream);
    if (result == BZ_OK)
        texts.fault = {place, texts.text.size() > most_text ? "the texts are too long" : "the texts' stream is cut"};
    else if (result != BZ_STREAM_END)
        texts.fault = {place, "the texts' stream is damaged"};
    else if (stream.avail_in != 0)
        texts.fault = {place, "bytes stand behind the texts' stream"};
    return texts;
}

/// Shows messages one at a time.
class Listing {
public:
    Listing(std::optional<std::uint32_t> index, bool is_json, std::ostream& out)
        : index_(index), is_json_(is_json), out_(out) {}

    void begin(const std::string& digest) {
        if (is_json_) out_ << "{\"digest\": " << Json(digest) << ", \"messages\": [";
        is_begun_ = true;
    }
    void message(std::uint32_t index, std::uint32_t identifier, std::string_view bytes) {
        if (index_ && *index_ != index) return;
        const std::string text = escaped({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
        if (is_json_)
            out_ << separator_ << Json{{"index", index}, {"identifier", identifier}, {"text", text}};
        else
            out_ << index << "  " << identifier << "  " << text << '\n';
        separator_ = ",\n  ";
    }
    void end(const Json& fault) {
        if (is_json_) out_ << (is_begun_ ? "" : "{\"messages\": [") << "\n], \"fault\": " << fault << "}\n";
    }

private:
    const std::optional<std::uint32_t> index_;
    const bool is_json_;
    std::ostream& out_;
    const char* separator_ = "\n  ";
    bool is_begun_ = false;
};

void list_messages(ByteView library, std::optional<std::uint32_t> index, Listing& listing) {
    const Section table = section_named(library, table_start, Match::start);
    const ByteView bytes = table.bytes;
    if (bytes.size() < header_length) throw Damage{table.offset, "the catalogue's table is cut"};
    if (little_endian(bytes, 0, 4) != 1) throw Damage{table.offset, "the catalogue's table is of an unknown version"};
    const std::string digest = to_hex(bytes.subspan(4, 16));
    listing.begin(digest);
    if (table.name.substr(table_start.size()) != digest)
        throw Damage{table.offset + 4, "the catalogue's digest is not the one in its section's name"};
    const std::size_t count = (bytes.size() - header_length) / entry_length;
    if (index && *index >= count)
        throw Failure{is_bad_call, "no message " + std::to_string(*index) + " among " + std::to_string(count)};
    const Section packed = section_named(library, ".quelog_format_strings");
    const Texts texts = unpack(packed);
    std::size_t start = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t at = header_length + i * entry_length;
        const std::size_t length = little_endian(bytes, at + 4, 2);
        if (length > texts.text.size() - start) {
            if (texts.fault) throw Damage(*texts.fault);
            throw Damage{table.offset + at, "message " + std::to_string(i) + " goes beyond the end of the texts"};
        }
        listing.message(static_cast<std::uint32_t>(i), little_endian(bytes, at, 4),
                        std::string_view(texts.text).substr(start, length));
        start += length;
    }
    if (texts.fault) throw Damage(*texts.fault);
    if (start != texts.text.size()) throw Damage{packed.offset, "the texts go on behind the last message"};
    if (header_length + count * entry_length != bytes.size())
        throw Damage{table.offset + header_length + count * entry_length, "the catalogue's last entry is cut"};
}

} // namespace

void show_traces(ByteView library, std::optional<std::uint32_t> index, bool is_json, std::ostream& out) {
    Listing listing(index, is_json, out);
    try {
        list_messages(library, index, listing);
    } catch (const Damage& damage) {
        listing.end({{"offset", damage.offset}, {"reason", damage.reason}});
        throw;
    } catch (const Failure& failure) {
        listing.end({{"reason", failure.reason}});
        throw;
    }
    listing.end(nullptr);
}

} // namespace epm::tool
