// The text of an element, for parsing a value: read in place in the document if possible, else a copy.
#pragma once

#include "contract.hpp"

#include <cstdlib>
#include <memory>

// Like xml_get_element_value(), but without a copy. Gives ZUR_BUFFER_TOO_SMALL for a text that is not in the document
// in one unescaped piece.
extern "C" [[gnu::visibility("default")]] uint32_t platform_xml_plain_text(zur_xml_document* document, const char* path,
                                                                           const char** characters, uint32_t* length);

namespace platform {

class ElementText {
public:
    ElementText(zur_xml_document* document, const char* path, bool to_change = false) {
        if (!to_change) code_ = platform_xml_plain_text(document, path, &characters_, &length_);
        if (code_ == ZUR_BUFFER_TOO_SMALL) [[unlikely]]
            copy(document, path);
    }

    uint32_t code() const { return code_; }
    uint32_t length() const { return length_; }
    const char* characters() const { return characters_; }
    char* own() { return own_.get(); } // a copy that may be changed; null for an empty text

private:
    [[gnu::noinline]] void copy(zur_xml_document* document, const char* path) {
        code_ = xml_get_element_value(document, path, nullptr, 0, &length_);
        if (code_ != ZUR_BUFFER_TOO_SMALL) return;
        own_.reset(static_cast<char*>(std::malloc(std::size_t{length_} + 1)));
        characters_ = own_.get();
        code_ = own_ != nullptr ? xml_get_element_value(document, path, own_.get(), length_ + 1, nullptr)
                                : uint32_t{ZUR_NO_MEMORY};
    }

    uint32_t code_ = ZUR_BUFFER_TOO_SMALL;
    uint32_t length_ = 0;
    const char* characters_ = nullptr;
    std::unique_ptr<char, decltype(&std::free)> own_{nullptr, &std::free};
};

} // namespace platform
