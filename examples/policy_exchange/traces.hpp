// Writes the library's traces as sentences on standard error. The library only produces numbers; the texts are read
// from the file that it was loaded from.
#pragma once

#include <string>

namespace exchange {

/// Reads the texts of the loaded library. Returns false with a reason when it cannot.
bool open_traces(std::string& reason);
/// Shows every further trace of this process after this name, once the texts are read. The name must stay valid.
void show_traces_as(const char* who);

} // namespace exchange
