// The devices' side: takes messages of a site's policy from the bus and keeps each device's copy of it. One process can
// do the work of several devices; each has its consumer and its file.
#pragma once

#include "connection.hpp"

#include <cstdint>

namespace bus {

struct DeviceCall {
    std::vector<std::string> names;
    std::string site;
    int8_t variant = 0;
    std::string folder;   ///< of the files
    bool is_own = false;  ///< consume what is published for this device alone
    bool is_once = false; ///< end with the first complete revision
    uint32_t window = 0;  ///< messages that may be unacknowledged
    double ack_wait = 0;  ///< seconds after which the server sends an unacknowledged message again
    std::string metrics_file;
};

/// Works until a signal, or until every device has a complete revision if that is asked for. Returns whether every
/// device has one at the end.
bool run_devices(const Connection& connection, const DeviceCall& call);

/// Lists a site's dead letters.
void list_dead_letters(const Connection& connection, const std::string& site);

} // namespace bus
