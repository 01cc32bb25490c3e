// What a document says and the message that was made of it does not. The library's reader goes by the paths that it
// knows and passes over everything else, so the document is held against what the message reads back as.
#pragma once

#include "tool/notes.hpp"
#include "tool/types.hpp"

#include <functional>
#include <pugixml.hpp>
#include <string>
#include <vector>

namespace epm::tool {

struct Loss {
    enum class Kind : std::uint8_t {
        lost,
        left_out, ///< as the agreed variant asks for
        remark,   ///< a length that the document tells wrongly: nothing is lost
    };
    Kind kind;
    std::string path; ///< empty where the reason has it
    std::string reason;

    std::string line() const { return path + (path.empty() ? "" : ": ") + reason; }
};

/// The variant in which records of a type are written.
using VariantOf = std::function<int(const Type&)>;

/// Both documents hold a root element of the type. A field of a later variant than is written is lost in this way.
std::vector<Loss> losses(const Type& type, const pugi::xml_document& document, const pugi::xml_document& arrived,
                         const VariantOf& variant_of, Loss::Kind beyond_variant);

/// State flags that have found no place in the message.
std::vector<Loss> losses(const Notes& notes, const Notes& arrived, Loss::Kind without_place);

/// The document's tree with its instructions.
bool parse(const std::string& xml, pugi::xml_document& document);

} // namespace epm::tool
