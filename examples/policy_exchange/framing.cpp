// Writes and reads frames. Handles short writes, short reads, interrupted calls, and lengths that no honest peer sends.
#include "framing.hpp"

#include "message.hpp"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>

namespace exchange {

namespace {

struct Header {
    uint32_t length;
    uint32_t line;
};

} // namespace

bool send_all(int socket, const void* bytes, std::size_t size) {
    const auto* next = static_cast<const char*>(bytes);
    while (size != 0) {
        const ssize_t sent = send(socket, next, size, MSG_NOSIGNAL); // a peer that is gone is an error, not a signal
        if (sent < 0 && errno == EINTR) continue;
        if (sent < 0) return false;
        next += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

long receive_all(int socket, void* bytes, std::size_t size) {
    auto* first = static_cast<char*>(bytes);
    std::size_t have = 0;
    while (have != size) {
        const ssize_t received = recv(socket, first + have, size - have, 0);
        if (received < 0 && errno == EINTR) continue;
        if (received < 0) return -1;
        if (received == 0) break;
        have += static_cast<std::size_t>(received);
    }
    return static_cast<long>(have);
}

std::vector<uint8_t> frame_of(uint32_t line, std::span<const uint8_t> message) {
    const Header header = {htonl(static_cast<uint32_t>(message.size())), htonl(line)};
    std::vector<uint8_t> frame(sizeof header + message.size());
    std::memcpy(frame.data(), &header, sizeof header);
    std::memcpy(frame.data() + sizeof header, message.data(), message.size());
    return frame;
}

bool send_frame(int socket, uint32_t line, std::span<const uint8_t> message) {
    if (message.empty() || message.size() > max_message) {
        errno = EMSGSIZE;
        return false;
    }
    const std::vector<uint8_t> frame = frame_of(line, message); // a single write wakes the peer only once
    return send_all(socket, frame.data(), frame.size());
}

Received receive_frame(int socket, Frame& frame, std::string& reason) {
    Header header = {};
    long have = receive_all(socket, &header, sizeof header);
    if (have == 0) return Received::end;
    if (have == sizeof header) {
        const uint32_t length = ntohl(header.length);
        if (length == 0 || length > max_message) {
            reason =
                "a frame of " + std::to_string(length) + " bytes; 1 to " + std::to_string(max_message) + " are allowed";
            return Received::failure;
        }
        frame.line = ntohl(header.line);
        frame.message.resize(length);
        have = receive_all(socket, frame.message.data(), length);
        if (have == static_cast<long>(length)) return Received::frame;
    }
    reason = have < 0 ? std::strerror(errno) : "the stream ends within a frame";
    return Received::failure;
}

} // namespace exchange
