// Reads the entries of operations/ (its README describes their form) as operations of a type or field.
#pragma once

#include "stamp/declaration.hpp"
#include "stamp/words.hpp"

namespace epm::stamp {

/// The operations of a file that apply to the subject, in the file's order. Throws when an entry is faulty.
std::vector<Declaration> operations_in(const std::string& file, const Subject& subject);

} // namespace epm::stamp
