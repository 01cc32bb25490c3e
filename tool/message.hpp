// Uses the library itself to read and write messages: wire form to print form or XML, and XML to wire form. JSON is
// written and read by the catalogue, and the library's reader has to accept the message.
#pragma once

#include "tool/input.hpp"
#include "tool/losses.hpp"
#include "tool/types.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace epm::tool {

/// The variant that the Domain has agreed with its peer, for all types; without it, the newest of each.
using Agreed = std::optional<std::int8_t>;

enum class TextForm { print, xml, json };

/// Shows a message if the library's reader accepts all of it. Throws Damage or a Failure otherwise. What is agreed
/// makes no difference to JSON, which shows the message as it is.
std::string decode(const Type& type, ByteView message, TextForm form, Agreed agreed);

struct Encoded {
    Bytes message;
    std::vector<Loss> losses; ///< what the document has and the message does not
};

/// Throws a Failure for a document that the library's readers refuse. A lenient call goes on with what they read before
/// a value that they refuse, and lists that value as the first loss.
Encoded encode(const Type& type, const std::string& xml, Agreed agreed, bool is_lenient = false);

/// Throws a Failure for a document that is not of the type, or whose message the library's reader refuses.
Bytes encode_json(const Type& type, std::string_view document);

} // namespace epm::tool
