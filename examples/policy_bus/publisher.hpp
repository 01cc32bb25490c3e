// The controller's side: marshals a policy once for each variant that its devices speak, and publishes it as one
// revision. Who the devices are and what they do is not known here.
#pragma once

#include "connection.hpp"
#include "envelope.hpp"

#include "policy_exchange/message.hpp"

#include <map>

namespace bus {

struct PublishCall {
    std::string policy;
    std::string site;
    std::vector<Audience> audiences;
    uint64_t revision = 0; ///< 0: the time of the file's last change
    uint32_t replicas = 0;
    uint32_t attempt = 0; ///< above 0, the server stores again what it has
    uint32_t window = 0;  ///< messages on their way at a time
    double patience = 0;  ///< seconds without an acknowledgement, after which it gives up
    bool keeps_older = false;
    std::string metrics_file;
};

/// A message that is ready to go.
struct Outgoing {
    MessageId id;
    std::string subject;
    std::vector<uint8_t> wire;
};

/// What an audience was given.
struct Given {
    Audience audience;
    uint32_t messages = 0;
    uint64_t bytes = 0;
    uint64_t not_sent = 0;
    exchange::LeftOut left_out;
    // As the server answers:
    uint32_t stored = 0;
    uint32_t repeated = 0;       ///< it had them already
    uint64_t first_sequence = 0; ///< the lowest of this revision
};

struct Revised {
    uint64_t revision = 0;
    std::vector<Given> given;
    std::vector<Outgoing> messages; ///< in the order of the file, for each audience
    double marshal_seconds = 0;
};

/// Reads the policy and marshals it. Returns false when a line was refused, which it reports.
bool marshal_policy(const PublishCall& call, Revised& revised);

/// Publishes all messages, and removes older revisions from the stream. Returns false when a signal ended it before
/// all were acknowledged. Throws a BusError when the bus refuses or does not answer.
bool publish(const Connection& connection, const PublishCall& call, Revised& revised);

} // namespace bus
