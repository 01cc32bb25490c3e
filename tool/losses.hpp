// Finds what a document contains and the message made from it does not. The library's reader follows the paths that it
// knows and ignores everything else, so the document is compared with what the message reads back as.
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
        left_out, ///< as the agreed variant requires
        remark,   ///< a wrong length in the document: nothing is lost
    };
    Kind kind;
    std::string path; ///< empty if the reason includes it
    std::string reason;

    std::string line() const { return path + (path.empty() ? "" : ": ") + reason; }
};

/// The variant in which records of a type are written.
using VariantOf = std::function<int(const Type&)>;

/// Both documents have a root element of the type. Fields of a later variant than the written one count as lost too.
std::vector<Loss> losses(const Type& type, const pugi::xml_document& document, const pugi::xml_document& arrived,
                         const VariantOf& variant_of, Loss::Kind beyond_variant);

/// State flags that found no place in the message.
std::vector<Loss> losses(const Notes& notes, const Notes& arrived, Loss::Kind without_place);

/// The document's tree with its instructions.
bool parse(const std::string& xml, pugi::xml_document& document);

} // namespace epm::tool
