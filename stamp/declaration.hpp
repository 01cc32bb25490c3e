// One exported operation of one type or field: its name, its C signature, the template that does the work, and its
// documentation.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace epm::stamp {

struct Parameter {
    std::string type; ///< C type, as it is written before the name
    std::string name;
    std::string doc;
};

/// Parameters whose number differs between types; the template takes them as one array.
struct Pack {
    std::string element; ///< C++ type of the array's elements
    std::size_t first;   ///< index of the first packed parameter
    std::size_t count;
};

struct Declaration {
    std::string name; ///< what follows `<type>_` or `<type>_<field>_`; a global operation's whole name
    std::string result = "void";
    std::vector<Parameter> parameters;
    std::string call; ///< the template; a global operation's plain function
    std::string text; ///< what it does, in one sentence, and what else the caller has to know
    std::string returns;
    std::string owner; ///< what it takes and gives, and who owns a result; the rest is borrowed
    std::vector<std::string> statuses;
    std::string cost;
    std::string template_arguments; ///< further ones, behind the type and the field
    std::optional<Pack> pack;
    bool is_chained = false; ///< calls the template with cr_set_id and last_error, and returns last_error
};

} // namespace epm::stamp
