// Frames on a stream socket. A frame is two 32-bit words in network order, followed by the message. The words are the
// message's length and the line of the policy file that it comes from, or 0 for none. This code does not look into the
// message.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace exchange {

struct Frame {
    uint32_t line = 0;
    std::vector<uint8_t> message;
};

enum class Received { frame, end, failure };

/// Writes all bytes, however many calls it takes. Returns false with errno when the other side is gone.
bool send_all(int socket, const void* bytes, std::size_t size);
/// Reads until size bytes are there or the stream ends. Returns how many there are, or -1 with errno.
long receive_all(int socket, void* bytes, std::size_t size);

/// The frame of a message.
std::vector<uint8_t> frame_of(uint32_t line, std::span<const uint8_t> message);
/// A frame that claims more than max_message is refused before memory is allocated for it.
bool send_frame(int socket, uint32_t line, std::span<const uint8_t> message);
/// The stream may only end between two frames. After a failure, reason says why.
Received receive_frame(int socket, Frame& frame, std::string& reason);

} // namespace exchange
