// Bytes that people have as text: plain digits, and what the usual programs print of a file or a packet.
#pragma once

#include "tool/input.hpp"

namespace epm::tool {

/// Accepts one of these forms for the whole text:
///
///   0100 00000013, 01:00:00, 0x01, 0x00    digits in pairs, and remarks behind # to the end of a line
///   00000000: 0100 0000  ....              what xxd and tcpdump -X print
///   00000000  01 00 00 00  |....|          what hexdump -C prints
///
/// Offsets and texts are checked against the bytes. Input that could be read in another way too is refused. Throws a
/// Failure that names the line.
Bytes from_hex(std::string_view text);

} // namespace epm::tool
