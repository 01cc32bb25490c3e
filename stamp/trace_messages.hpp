// The messages of the trace catalogue, in the order of their indices.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace epm::stamp {

using Bytes = std::vector<unsigned char>;

struct TraceMessage {
    std::string text;
    std::string key;          ///< type, field, operation and place, which identify it across builds
    std::uint32_t identifier; ///< of key and text
};

std::vector<TraceMessage> trace_messages();

/// Identifies the catalogue: 16 bytes over all that it holds.
Bytes digest_of(const std::vector<TraceMessage>& messages);

} // namespace epm::stamp
