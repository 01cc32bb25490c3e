// The library's traces as sentences on standard error. The library hands out numbers only; the texts are read from the
// file that it was loaded from.
#pragma once

#include <string>

namespace exchange {

/// Reads the texts of the loaded library; false with a reason when that cannot be.
bool open_traces(std::string& reason);
/// Shows each further trace of this process behind this name, which must stay, once the texts are there.
void show_traces_as(const char* who);

} // namespace exchange
