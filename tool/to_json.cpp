// Writes JSON while it walks over a message: a tree of the values would need many times the message's memory.
#include "tool/json_message.hpp"

#include "tool/walk.hpp"

#include <nlohmann/json.hpp>

#include <zur/types.h>

#include <algorithm>
#include <utility>

namespace epm::tool {

namespace {

using Framing = Foreign::Framing;
namespace member = json_member;

std::string quoted(const std::string& plain) {
    return '"' + plain + '"';
}

/// An object on one line. The values are JSON.
std::string object(std::initializer_list<std::pair<const char*, std::string>> members) {
    std::string text;
    for (const auto& [name, value] : members) text += (text.empty() ? "{" : ", ") + quoted(name) + ": " + value;
    return text + "}";
}

std::string text_or_hex(ByteView bytes) {
    try {
        return nlohmann::json(as_text(bytes)).dump();
    } catch (const nlohmann::json::type_error&) { // not UTF-8
        return object({{member::hex, quoted(to_hex(bytes))}});
    }
}

/// What fixed characters or a run hold in front of the zeros that fill them.
ByteView without_padding(ByteView bytes) {
    while (!bytes.empty() && bytes.back() == 0) bytes = bytes.first(bytes.size() - 1);
    return bytes;
}

std::string with_variant(std::int64_t variant, std::int8_t usual, const std::string& value) {
    return variant == usual ? value : object({{member::variant, std::to_string(variant)}, {member::value, value}});
}

std::string number_text(const Foreign& type, ByteView bytes) {
    const std::uint64_t value = number(bytes);
    if (&type == &catalogue::zur_boolean && value <= 1) return value != 0 ? "true" : "false";
    // Many readers of JSON keep numbers in 53 bits.
    return bytes.size() > 4 ? quoted(std::to_string(value)) : std::to_string(value);
}

class JsonWriter : public Listener {
public:
    std::string take_text() { return std::move(text_) + '\n'; }

    void begin(const Record& r, const Header& header) override {
        open("{");
        levels_.back().is_tracked = (header.flags & ZUR_TRACKED) != 0;
        if (header.variant != r.top()) put(member::variant, std::to_string(header.variant));
        if ((header.flags & ~(ZUR_TRACKED | ZUR_RA_DATA)) != 0) put(member::flags, std::to_string(header.flags));
        if (!header.ra_block.empty()) put(member::ra_block, quoted(to_hex(header.ra_block)));
    }

    void end(const Record&, ByteView passed_over) override {
        if (levels_.back().is_tracked) {
            const auto flags = std::move(levels_.back().flags);
            begin_item(member::state);
            open("{");
            for (const auto& [name, digits] : flags) put(name, quoted(digits));
            close("}");
        }
        if (!passed_over.empty()) put(member::rest, quoted(to_hex(passed_over)));
        close("}");
    }

    void begin(const Field& f) override {
        field_ = &f;
        begin_item(f.name);
        if (!has_elements(f)) return;
        open("[");
        levels_.back().is_on_one_line = !f.is_of_record();
    }

    void end(const Field& f) override {
        if (has_elements(f)) close("]");
    }

    void state_flags(const Field& f, ByteView flags) override {
        if (std::ranges::any_of(flags, [](std::uint8_t flag) { return flag != 0; }))
            levels_.back().flags.emplace_back(f.name, to_hex(flags));
    }

    void text(ByteView bytes) override {
        text_ += text_or_hex(field_->kind == Kind::characters ? without_padding(bytes) : bytes);
    }

    void run(ByteView bytes) override {
        const ByteView held = without_padding(bytes);
        const std::string text = text_or_hex(held);
        const auto is_control = [](std::uint8_t byte) { return byte < 0x20 || byte == 0x7F; };
        if (text.starts_with('"') && std::ranges::none_of(held, is_control)) {
            text_ += text;
            return;
        }
        open("[");
        levels_.back().is_on_one_line = true;
        for (const std::uint8_t byte : bytes) begin_item(), text_ += std::to_string(byte);
        close("]");
    }

    void enumerator(const Enum& e, std::int8_t variant, std::uint32_t number) override {
        text_ += with_variant(variant, e.top(),
                              number < e.count ? quoted(e.enumerators[number].name) : std::to_string(number));
    }

    void imported(const Foreign& type, std::int64_t front, ByteView bytes) override {
        if (levels_.back().is_array) begin_item();
        switch (type.framing) {
        case Framing::number: text_ += number_text(type, bytes); break;
        case Framing::character: text_ += std::to_string(static_cast<std::int8_t>(bytes[0])); break;
        case Framing::enumerated: text_ += with_variant(front, 0, number_text(type, bytes)); break;
        case Framing::mac: text_ += quoted(mac_text(bytes)); break;
        case Framing::address: text_ += bytes.empty() ? "null" : quoted(address_text(bytes)); break;
        case Framing::text: text_ += text_or_hex(bytes); break;
        case Framing::bytes: text_ += quoted(to_hex(bytes)); break;
        case Framing::typed:
            text_ += object({{member::type, std::to_string(front)}, {member::value, quoted(to_hex(bytes))}});
            break;
        }
    }

private:
    /// An object or array that is open.
    struct Level {
        bool is_array;
        bool is_on_one_line = false, is_empty = true, is_tracked = false;
        std::vector<std::pair<const char*, std::string>> flags; ///< of the record's fields
    };

    static bool has_elements(const Field& f) { return f.kind == Kind::array || f.kind == Kind::list; }

    void open(const char* bracket) {
        if (!levels_.empty() && levels_.back().is_array) begin_item();
        text_ += bracket;
        levels_.push_back({.is_array = *bracket == '[', .flags = {}});
    }

    void close(const char* bracket) {
        const Level level = std::move(levels_.back());
        levels_.pop_back();
        if (!level.is_empty && !level.is_on_one_line) begin_line();
        text_ += bracket;
    }

    void begin_line() { (text_ += '\n').append(2 * levels_.size(), ' '); }

    /// In front of a member's value, or of an element.
    void begin_item(const char* name = nullptr) {
        Level& level = levels_.back();
        if (!std::exchange(level.is_empty, false)) text_ += level.is_on_one_line ? ", " : ",";
        if (!level.is_on_one_line) begin_line();
        if (name != nullptr) text_ += quoted(name) + ": ";
    }

    void put(const char* name, const std::string& value) {
        begin_item(name);
        text_ += value;
    }

    std::string text_;
    std::vector<Level> levels_;
    const Field* field_ = nullptr;
};

} // namespace

std::string to_json(const Type& type, ByteView message) {
    JsonWriter writer;
    walk(type, message, writer);
    return writer.take_text();
}

} // namespace epm::tool
