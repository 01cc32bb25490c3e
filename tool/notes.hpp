// What a message contains and the library's XML does not: variants below the newest, and state flags. The tool writes
// them in front of the document as processing instructions, which the library's reader ignores, and puts them back into
// the message that is made from the document:
//
//   <?orlan-epm variants TYPE=NUMBER...?>
//   <?orlan-epm state-flags FIELD=BYTES...?>     the message is state-tracked; fields not named have flags of 0
#pragma once

#include "tool/input.hpp"
#include "tool/types.hpp"

#include <map>
#include <pugixml.hpp>
#include <string>
#include <string_view>

namespace epm::tool {

/// The name of the instructions.
inline constexpr std::string_view note_target = "orlan-epm";

struct Notes {
    std::map<std::string, int> variants; ///< by type
    bool is_tracked = false;
    std::map<std::string, Bytes> state_flags; ///< by the field's path

    bool operator==(const Notes&) const = default;
};

/// Throws Damage if the message is damaged.
Notes notes_of(const Type& type, ByteView message);

std::string written(const Notes& notes);
/// Reads the instructions beside a document's root element. Throws a Failure.
Notes read_notes(const pugi::xml_document& document);

/// Puts the state flags back into a message.
void put_state_flags(const Type& type, const Notes& notes, Bytes& message);

} // namespace epm::tool
