// A peer: a separate process that receives messages and shows them, and the sender's end of the connection to it. The
// sender decides what to send; message.hpp builds and reads the messages.
#pragma once

#include "capture.hpp"
#include "framing.hpp"
#include "message.hpp"

#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <sys/types.h>

namespace exchange {

struct Role {
    std::string name;
    int8_t variant; ///< the highest one that the peer speaks
    Form form = Form::print;
};

/// What a peer counts itself, and returns when the stream ends.
struct Totals {
    uint64_t messages = 0;
    uint64_t bytes = 0;
    uint64_t nanoseconds = 0; ///< from the first frame to the last message shown
};

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

/// Does the peer's work until the stream ends. Returns 0, or 1 after a failure, which it reports on standard error.
int receive_messages(const Role& role, int socket, std::FILE* output);

class Peer {
public:
    Peer(const Role& role, File output);
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer();

    /// Starts the process. It closes the sockets of the peers that were started earlier.
    bool start(std::span<const std::unique_ptr<Peer>> earlier);
    /// From now on, what is sent goes into the capture too, as to the peer of this number. The capture must live
    /// longer.
    void record(Capture& capture, uint8_t number);
    /// Builds the message for this peer and sends it, unless the peer's variant cannot represent it.
    void deliver(uint32_t line, const Statement& statement);
    /// Sends a message that has no line, unless it was built in newer variants than the peer speaks.
    void deliver(const Message& message);
    /// Waits until the peer ends. Its output is complete then.
    void finish();

    const Role& role() const { return role_; }
    bool failed() const { return failed_; }
    const Totals& totals() const { return totals_; }
    uint64_t not_sent() const { return not_sent_; }
    const LeftOut& left_out() const { return left_out_; }
    std::FILE* output() const { return output_.get(); }

private:
    bool fail(const std::string& reason);
    void send(uint32_t line, std::span<const uint8_t> wire, uint32_t st);

    const Role role_;
    const File output_;
    const Domain domain_;
    Capture* capture_ = nullptr;
    uint8_t number_ = 0; ///< in the capture
    int socket_ = -1;
    pid_t process_ = -1;
    bool failed_ = false;
    uint64_t sent_ = 0;
    uint64_t not_sent_ = 0;
    LeftOut left_out_;
    Totals totals_;
};

} // namespace exchange
