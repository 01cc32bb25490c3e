// Writes what is sent to the peers into a capture file, as if each were reached over TCP: a stream for each peer, a
// packet for each message. Programs that show captures can show the exchange then.
#pragma once

#include <cstdint>
#include <fstream>
#include <map>
#include <span>

namespace exchange {

class Capture {
public:
    /// The port that all peers seem to have.
    static constexpr uint16_t port = 20358;

    /// Creates the file. Returns false with errno when it cannot.
    bool open(const char* path);
    /// Returns false with errno when the file is not complete.
    bool close();

    // Peers are told apart by their numbers, 1 and up. A peer is connected first and closed last.
    void connect(uint8_t peer);
    void send(uint8_t peer, std::span<const uint8_t> bytes);
    void finish(uint8_t peer);

private:
    enum class From : uint8_t { sender, peer };
    struct Sent {
        uint32_t by_sender = 0, by_peer = 0; ///< next sequence numbers
    };

    void packet(uint8_t peer, From from, uint8_t flags, std::span<const uint8_t> content = {});

    std::ofstream file_;
    std::map<uint8_t, Sent> streams_;
    uint64_t packets_ = 0;
};

} // namespace exchange
