// The stand-in's trace reader reads the catalogue; this shows it.
#include "tool/traces.hpp"

#include "tool/failure.hpp"
#include "tool/library_file.hpp"

#include <nlohmann/json.hpp>

#include <memory>

namespace epm::tool {

namespace {

using Json = nlohmann::ordered_json;

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
        const std::string text = escaped(bytes);
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
    platform_fault fault;
    const std::unique_ptr<platform_trace_reader, decltype(&platform_trace_close)> reader(
        platform_trace_read(library.data(), library.size(), &fault), &platform_trace_close);
    if (reader == nullptr) throw_fault(fault);
    listing.begin(to_hex(ByteView(platform_trace_digest(reader.get()), 16)));
    const std::uint32_t count = platform_trace_count(reader.get());
    const bool is_sound = fault.reason[0] == 0;
    if (index && *index >= count && (is_sound || count != 0))
        throw Failure{is_bad_call, "no message " + std::to_string(*index) + " among " + std::to_string(count)};
    for (std::uint32_t i = 0; i < count; ++i) {
        std::uint32_t length = 0, identifier = 0;
        const char* text = platform_trace_text(reader.get(), i, &length, &identifier);
        if (text != nullptr) listing.message(i, identifier, {text, length});
    }
    if (!is_sound) throw_fault(fault);
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
