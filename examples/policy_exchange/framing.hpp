// Frames on a stream socket. A frame is two 32-bit words in network order, the message's length and the policy file's
// line that it comes from, 0 for none, and then the message. What a message holds is not known here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace exchange {

/// No message is longer; a frame that says so is refused before memory is taken for it.
constexpr uint32_t max_message = 64 * 1024;

struct Frame {
    uint32_t line = 0;
    std::vector<uint8_t> message;
};

enum class Received { frame, end, failure };

/// Writes all bytes, however many calls it takes; false with errno when the other side is gone.
bool send_all(int socket, const void* bytes, std::size_t size);
/// Reads until size bytes are there or the stream ends; how many there are, or -1 with errno.
long receive_all(int socket, void* bytes, std::size_t size);

bool send_frame(int socket, uint32_t line, std::span<const uint8_t> message);
/// The end may only come between two frames. A failure gives its reason.
Received receive_frame(int socket, Frame& frame, std::string& reason);

} // namespace exchange
