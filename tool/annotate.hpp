// Shows a message byte range by byte range, each beside the field that it belongs to.
#pragma once

#include "tool/input.hpp"
#include "tool/types.hpp"

#include <ostream>

namespace epm::tool {

enum class AnnotationForm { lines, coloured_lines, json };

/// Of a damaged message writes everything up to the fault, then throws it.
void annotate(const Type& type, ByteView message, AnnotationForm form, std::ostream& out);

} // namespace epm::tool
