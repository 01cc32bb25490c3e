// An NKey is written in base 32: a prefix that says what it is, the 32 bytes of the key, and a CRC-16, low byte first.
//
//   seed        10010 (S), then 10100000 (U), 3 bits of 0; the private key; the CRC
//   public key  10100000 (U);                              the public key; the CRC
#include "nkey.hpp"

#include <openssl/evp.h>

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

namespace bus {

namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";
constexpr std::size_t key_size = 32;
constexpr uint8_t user_prefix = 0xA0;

uint16_t crc(std::span<const uint8_t> bytes) {
    uint32_t value = 0;
    for (const uint8_t byte : bytes) {
        value ^= static_cast<uint32_t>(byte) << 8;
        for (int i = 0; i < 8; ++i) value = (value << 1 ^ ((value & 0x8000) != 0 ? 0x1021u : 0)) & 0xFFFF;
    }
    return static_cast<uint16_t>(value);
}

std::vector<uint8_t> from_base32(const std::string& text) {
    std::vector<uint8_t> bytes;
    uint32_t held = 0;
    int bits = 0;
    for (const char letter : text) {
        const std::size_t value = alphabet.find(letter);
        if (value == std::string_view::npos) return {};
        held = held << 5 | static_cast<uint32_t>(value);
        if ((bits += 5) < 8) continue;
        bits -= 8;
        bytes.push_back(static_cast<uint8_t>(held >> bits));
    }
    return bytes;
}

std::string to_base32(std::span<const uint8_t> bytes) {
    std::string text;
    uint32_t held = 0;
    int bits = 0;
    for (const uint8_t byte : bytes) {
        held = held << 8 | byte;
        for (bits += 8; bits >= 5; bits -= 5) text += alphabet[held >> (bits - 5) & 31];
    }
    if (bits != 0) text += alphabet[held << (5 - bits) & 31];
    return text;
}

} // namespace

std::optional<std::string> public_nkey(const std::string& seed) {
    const std::vector<uint8_t> bytes = from_base32(seed);
    if (bytes.size() != 2 + key_size + 2 || bytes[0] != (0x90 | user_prefix >> 5) ||
        bytes[1] != static_cast<uint8_t>(user_prefix << 3))
        return std::nullopt;
    const std::size_t body = bytes.size() - 2;
    if (crc(std::span(bytes).first(body)) != (bytes[body] | bytes[body + 1] << 8)) return std::nullopt;
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
        EVP_PKEY_new_raw_private_key(EVP_PKEY_ED25519, nullptr, &bytes[2], key_size), &EVP_PKEY_free);
    std::array<uint8_t, 1 + key_size + 2> out = {user_prefix};
    std::size_t size = key_size;
    if (key == nullptr || EVP_PKEY_get_raw_public_key(key.get(), &out[1], &size) != 1) return std::nullopt;
    const uint16_t check = crc(std::span(out).first(1 + key_size));
    out[1 + key_size] = static_cast<uint8_t>(check);
    out[2 + key_size] = static_cast<uint8_t>(check >> 8);
    return to_base32(out);
}

} // namespace bus
