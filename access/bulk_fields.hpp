// Says which fields take part when all numbers of a record are read or written at once.
#pragma once

#include "catalogue/description.hpp"

namespace epm::access {

using catalogue::Field;
using catalogue::Kind;
using catalogue::Record;

/// Fields that get_all reads. Of these set_all does not write lengths and the tag of a union.
constexpr bool is_read_at_once(const Field& f) {
    return f.kind == Kind::value || f.kind == Kind::length;
}
constexpr bool is_written_at_once(const Record& r, const Field& f) {
    return f.kind == Kind::value && !(r.is_union() && f.is_own_enum());
}

} // namespace epm::access
