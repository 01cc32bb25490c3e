// What surrounds a policy message on the bus: the names of streams and subjects, and the headers with which a device
// knows a message again and sees that it is whole. Nothing here talks to a server.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace bus {

/// Who consumes a copy of each message: all devices of a variant, or one device.
struct Audience {
    std::string token; ///< the last word of its subjects
    int8_t variant;    ///< the highest one that it speaks
};
Audience variant_audience(int8_t variant);
Audience device_audience(const std::string& device, int8_t variant);

/// Names of sites and devices become words of subjects and names of files and consumers.
bool is_name(std::string_view text);

std::string stream_of(const std::string& site);
std::string subject_of(const std::string& site, std::string_view type, std::string_view audience);
std::string dead_letter_stream_of(const std::string& site);
std::string dead_letter_subject_of(const std::string& site, std::string_view device);

/// One message of a policy. The same message keeps its id, whoever sends it however often.
struct MessageId {
    uint64_t revision = 0;
    uint32_t line = 0;
    std::string audience;
};
/// The server drops the second message of the same text. A higher attempt gives the same id another text.
std::string id_text(const MessageId& id, uint32_t attempt);
std::optional<MessageId> read_id(std::string_view text);

template <class Number>
std::optional<Number> read_number(std::string_view text);

/// The first 64 bits of the SHA-256.
uint64_t digest(std::span<const uint8_t> bytes);
std::string digest_text(std::span<const uint8_t> bytes);

constexpr char id_header[] = "Nats-Msg-Id";           // the server knows this one
constexpr char digest_header[] = "Policy-Digest";     // of the message
constexpr char messages_header[] = "Policy-Messages"; // how many the revision has for this audience

// Of a dead letter:
constexpr char subject_header[] = "Policy-Subject"; // where the message came from
constexpr char sequence_header[] = "Policy-Sequence";
constexpr char refused_id_header[] = "Policy-Id";
constexpr char device_header[] = "Policy-Device"; // who refused it first
constexpr char offset_header[] = "Policy-Offset"; // how many of its bytes are good
constexpr char reason_header[] = "Policy-Reason";

} // namespace bus
