// Uses the library itself to read and write messages: wire form to print form or XML, and XML to wire form.
#pragma once

#include "tool/input.hpp"
#include "tool/losses.hpp"
#include "tool/types.hpp"

#include <optional>
#include <string>

namespace epm::tool {

/// The variant that the Domain has agreed with its peer, for all types; without it, the newest of each.
using Agreed = std::optional<std::int8_t>;

enum class TextForm { print, xml };

/// Shows a message if the library's reader accepts all of it. Throws Damage or a Failure otherwise.
std::string decode(const Type& type, ByteView message, TextForm form, Agreed agreed);

struct Encoded {
    Bytes message;
    std::vector<Loss> losses; ///< what the document has and the message does not
};

/// Throws a Failure for a document that the library's readers refuse. A lenient call goes on with what they read before
/// a value that they refuse, and lists that value as the first loss.
Encoded encode(const Type& type, const std::string& xml, Agreed agreed, bool is_lenient = false);

} // namespace epm::tool
