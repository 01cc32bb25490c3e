// Joins and splits names and ids.
#include "envelope.hpp"

#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace bus {

namespace {

constexpr std::size_t max_name = 64;

} // namespace

Audience variant_audience(int8_t variant) {
    return {'v' + std::to_string(variant), variant};
}

Audience device_audience(const std::string& device, int8_t variant) {
    return {"d-" + device, variant};
}

bool is_name(std::string_view text) {
    const auto is_good = [](unsigned char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' || c == '_';
    };
    return !text.empty() && text.size() <= max_name && std::all_of(text.begin(), text.end(), is_good);
}

std::string stream_of(const std::string& site) {
    return "POLICY-" + site;
}

std::string subject_of(const std::string& site, std::string_view type, std::string_view audience) {
    return "policy." + site + '.' + std::string(type) + '.' + std::string(audience);
}

std::string dead_letter_stream_of(const std::string& site) {
    return "POLICY-DEAD-" + site;
}

std::string dead_letter_subject_of(const std::string& site, std::string_view device) {
    return "policy-dead." + site + '.' + std::string(device);
}

template <class Number>
std::optional<Number> read_number(std::string_view text) {
    Number number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}
template std::optional<int8_t> read_number(std::string_view);
template std::optional<uint32_t> read_number(std::string_view);
template std::optional<uint64_t> read_number(std::string_view);

std::string id_text(const MessageId& id, uint32_t attempt) {
    std::string text = std::to_string(id.revision) + '.' + std::to_string(id.line) + '.' + id.audience;
    if (attempt != 0) text += '.' + std::to_string(attempt);
    return text;
}

std::optional<MessageId> read_id(std::string_view text) {
    std::array<std::string_view, 4> words = {"", "", "", "0"};
    for (std::size_t i = 0;; ++i) {
        const std::size_t end = text.find('.');
        if (i == words.size()) return std::nullopt;
        words[i] = text.substr(0, end);
        if (end == std::string_view::npos) break;
        text.remove_prefix(end + 1);
    }
    const auto revision = read_number<uint64_t>(words[0]);
    const auto line = read_number<uint32_t>(words[1]);
    if (!revision || !line || !is_name(words[2]) || !read_number<uint32_t>(words[3])) return std::nullopt;
    return MessageId{*revision, *line, std::string(words[2])};
}

uint64_t digest(std::span<const uint8_t> bytes) {
    std::array<uint8_t, SHA256_DIGEST_LENGTH> whole;
    SHA256(bytes.data(), bytes.size(), whole.data());
    uint64_t first = 0;
    for (std::size_t i = 0; i < sizeof first; ++i) first = first << 8 | whole[i];
    return first;
}

std::string digest_text(std::span<const uint8_t> bytes) {
    std::string text(16, '0');
    uint64_t rest = digest(bytes);
    for (auto digit = text.rbegin(); digit != text.rend(); ++digit, rest >>= 4) *digit = "0123456789abcdef"[rest & 15];
    return text;
}

} // namespace bus
