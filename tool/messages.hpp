// Many messages from one file, one at a time: a stream of frames, or a capture of packets. Each frame is two 32-bit
// words in network order, the message's length and a number that its sender gave it, and the message.
#pragma once

#include "tool/input.hpp"

#include <functional>
#include <string>

namespace epm::tool {

/// What a message is called in reports, and the message.
using TellMessage = std::function<void(const std::string& name, ByteView message)>;
/// What is damaged in the file between messages. The reader goes on where it can.
using TellDamage = std::function<void(const std::string& reason)>;

struct MessageSource {
    std::string file;   ///< `-` is standard input
    std::string filter; ///< of packets, as tcpdump has it
    bool is_capture = false;
};

/// Passes on the messages of a stream of frames, or of a capture: frames on TCP connections, a whole message in each
/// UDP datagram. Holds no more than a message of each connection. On a terminal, standard error shows how far it is.
/// Throws a Failure if the file cannot be read.
void each_message(const MessageSource& source, const TellMessage& tell, const TellDamage& damaged);

} // namespace epm::tool
