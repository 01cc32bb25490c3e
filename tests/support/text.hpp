// What the tests of the text forms share: the operations of a type by its description, buffers that end where memory
// does, documents, and a second maker of the expected texts. It walks the catalogue at run time and knows nothing of
// the templates that make the texts in the library.
#pragma once

#include "support/domains.hpp"
#include "support/library.hpp"

#include <platform/xml.h>

#include <memory>
#include <string>

namespace epm::test {

using Instance = zur_instance;
using XmlDocument = std::unique_ptr<zur_xml_document, decltype(&platform_xml_free)>;

inline XmlDocument parse_xml(const std::string& text, std::string* message = nullptr) {
    char reason[200] = "";
    XmlDocument document(platform_xml_parse(text.data(), text.size(), nullptr, reason, sizeof reason),
                         &platform_xml_free);
    if (message != nullptr) *message = reason;
    return document;
}

/// A document that must be one.
inline XmlDocument sound_xml(const std::string& text) {
    std::string message;
    XmlDocument document = parse_xml(text, &message);
    EXPECT_NE(document, nullptr) << message;
    return document;
}

/// Memory in front of a page that nobody may touch; a text's buffer is its last bytes.
class GuardedBuffer {
public:
    explicit GuardedBuffer(std::size_t capacity);
    ~GuardedBuffer();
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;

    static constexpr char filler = '~';
    /// The last `size` bytes, all filler, as are some in front of them.
    char* last(std::size_t size);
    /// Whether what lies in front of these bytes is as it was.
    bool is_clean_before(std::size_t size) const;

private:
    char* memory_;
    std::size_t capacity_;
    std::size_t mapped_;
};

/// The operations of one type.
struct TextOperations {
    explicit TextOperations(const std::string& type);

    std::string type;
    Operation<std::uint32_t(zur_domain*, std::uint32_t, char*, std::uint32_t, const char*, const Instance*,
                            std::uint32_t, std::uint32_t*)>
        print;
    Operation<std::uint32_t(zur_domain*, const Instance*, char*, std::uint32_t)> print_cr, toxml_cr;
    Operation<std::uint32_t(zur_domain*, std::uint32_t, const char*, char*, const Instance*, std::uint32_t,
                            std::uint32_t, std::uint32_t*)>
        to_xml;
    Operation<void(zur_domain*, std::uint32_t, const char*, zur_xml_document*, Instance*, std::uint32_t*, char*,
                   std::uint32_t)>
        from_xml;
    Operation<std::int32_t(const Instance*, const Instance*)> compare;

    /// The whole text, as it stands in a buffer full of filler that is large enough.
    std::string printed(TestDomain& D, const Instance* x, std::uint32_t indent, const std::string& name) const;
    std::string xml(TestDomain& D, const Instance* x, const std::string& name, std::uint32_t flag = 0) const;
    /// Reads from a document whose root bears the type's name; the status word that it leaves.
    std::uint32_t read(TestDomain& D, zur_xml_document* document, Instance* x) const;
};

/// The texts that a record must give, from the catalogue and from what its memory holds.
std::string expected_print(const Record& r, TestDomain& D, Instance* x, std::uint32_t indent, const std::string& name);
std::string expected_xml(const Record& r, TestDomain& D, Instance* x, const std::string& name, unsigned flag);

} // namespace epm::test
