// The one place that spells exported names. A name is built from type, field and operation and never taken apart again,
// because one record's name can be the start of another's.
#pragma once

#include <string>

namespace epm::stamp {

inline std::string type_info_name(const std::string& type) {
    return "_" + type + "_type_info_internal";
}

inline std::string operation_name(const std::string& type, const std::string& operation) {
    return type + "_" + operation;
}

inline std::string operation_name(const std::string& type, const std::string& field, const std::string& operation) {
    return type + "_" + field + "_" + operation;
}

} // namespace epm::stamp
