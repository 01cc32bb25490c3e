// What a device holds of the policy, and the file that keeps it. The file grows by a record for each message that is
// applied, and is on the disk before the message is acknowledged: after a crash the device knows what it has, and a
// message that comes once more is known by its id. How messages come is not known here.
//
// The newest revision that is complete is in force. A newer one gathers beside it and takes its place with its last
// message, so that there is never a mixture of two.
#pragma once

#include "files.hpp"

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace bus {

/// Whose policy a file holds.
struct Holder {
    std::string site;
    std::string device;
    std::string audience;
    int8_t variant = 0;
};

struct Revision {
    uint32_t total = 0;                                ///< messages that the publisher has for this audience
    std::map<uint32_t, std::vector<uint8_t>> messages; ///< by the line of the policy file

    bool is_complete() const { return total != 0 && messages.size() >= total; }
};

/// By their numbers.
using Revisions = std::map<uint64_t, Revision>;

/// The revision that a device goes by: the newest complete one, or while there is none the newest.
Revisions::const_iterator in_force(const Revisions& revisions);

/// Reads a file without changing it. Returns false with a reason.
bool read_state(const std::string& path, Holder& holder, Revisions& revisions, std::string& reason);

class State {
public:
    enum class Verdict { applied, repeated, outdated };

    /// Opens the device's file in the folder, or creates it. Throws a BusError when it cannot, or when another process
    /// has it.
    State(const std::string& folder, Holder holder);

    const Holder& holder() const { return holder_; }
    const Revisions& revisions() const { return revisions_; }
    /// Whether messages may be missing that were acknowledged: the file was empty, of another audience, or damaged.
    bool lacks_acknowledged() const { return lacks_acknowledged_; }

    /// Takes a message in. It is safe only after save().
    Verdict apply(uint64_t revision, uint32_t line, uint32_t total, std::span<const uint8_t> message);
    /// Writes to the disk what was applied. After a failure, with errno, it can be tried again.
    bool save();

private:
    void open_file();
    std::string whole_file() const;

    const Holder holder_;
    const std::string path_;
    Descriptor lock_;
    Descriptor file_;
    Revisions revisions_;
    std::string unsaved_; ///< records
    long saved_size_ = 0;
    bool lacks_acknowledged_ = false;
    bool has_outdated_ = false; ///< the file holds revisions that are gone from memory
};

} // namespace bus
