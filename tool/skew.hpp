// What a peer of other variants misses of a message.
#pragma once

#include "tool/input.hpp"
#include "tool/types.hpp"

#include <map>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

namespace epm::tool {

/// The highest variant of each type that the peer knows; -1 for a type that it does not know.
using Peer = std::map<std::string, std::int8_t>;

/// A peer that knows all types up to a variant.
Peer peer_of_variant(std::int8_t variant);

struct Miss {
    enum class Kind : std::uint8_t {
        field,      ///< the peer has no such field
        type,       ///< the peer does not know the record
        enumerator, ///< the peer has no name for the number, and a sender cannot set it for this peer
        arm,        ///< the peer has no such arm, so the message cannot be built for it at all
    };
    Kind kind;
    std::string path;
    std::int8_t since; ///< first variant that has it
    std::int8_t peer;  ///< the peer's variant of the record or enumeration
    nlohmann::ordered_json value;
};

struct Skew {
    std::vector<Miss> misses;
    std::size_t fields = 0; ///< of the message, each element and each nested field counted
    std::size_t missed = 0; ///< of these

    bool is_refused() const;
};

/// Throws Damage if the message is damaged.
Skew skew(const Type& type, ByteView message, const Peer& peer);

enum SkewStatus { nothing_lost = 0, fields_lost = 1, message_refused = 2 };

/// Writes what is missed. Returns the bits of SkewStatus.
int show_skew(const Type& type, ByteView message, const Peer& peer, bool is_json, std::ostream& out);
/// Writes what each variant of a reader misses of each variant of a writer.
void show_all_skews(const Type& type, bool is_json, std::ostream& out);

} // namespace epm::tool
