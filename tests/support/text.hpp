// What the tests of the text forms share: the operations of a type by its description, buffers that end where memory
// does, and documents.
#pragma once

#include "support/library.hpp"
#include "tool/operations.hpp"

#include <platform/xml.h>

#include <sys/mman.h>

#include <cstring>
#include <memory>
#include <string>

namespace epm::test {

using XmlDocument = std::unique_ptr<zur_xml_document, decltype(&platform_xml_free)>;

/// A document that must be one.
inline XmlDocument sound_xml(const std::string& text) {
    const platform_xml_limits limits = {0, 0, 1u << 16}; // some documents are wider than strangers' may be
    char reason[200] = "";
    XmlDocument document(platform_xml_parse(text.data(), text.size(), &limits, reason, sizeof reason),
                         &platform_xml_free);
    EXPECT_NE(document, nullptr) << reason;
    return document;
}

/// Memory in front of a page that nobody may touch; a text's buffer is its last bytes.
class GuardedBuffer {
public:
    static constexpr char filler = '~';
    static constexpr std::size_t capacity = 300 << 12;

    GuardedBuffer()
        : memory_(static_cast<char*>(
              mmap(nullptr, capacity + 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
        if (memory_ == MAP_FAILED || mprotect(memory_ + capacity, 4096, PROT_NONE) != 0) std::abort();
    }
    ~GuardedBuffer() { munmap(memory_, capacity + 4096); }
    GuardedBuffer& operator=(GuardedBuffer&&) = delete; // nor is it copied

    /// The last `size` bytes, all filler, as are some in front of them.
    char* last(std::size_t size) {
        char* buffer = memory_ + capacity - size;
        std::memset(buffer - 32, filler, size + 32);
        return buffer;
    }
    /// Whether what lies in front of these bytes is as it was.
    bool is_clean_before(std::size_t size) const {
        return std::string(memory_ + capacity - size - 32, 32) == std::string(32, filler);
    }

private:
    char* memory_;
};

/// The operations of one type, watched.
struct Operations : tool::OperationTable<Operation> {
    explicit Operations(const std::string& name)
        : OperationTable([&]<class F>(Operation<F>& to, const char* what) { to = operation<F>(name, what); }),
          type(name) {}

    static constexpr std::uint32_t room = 1 << 17;
    std::string type;

    /// The whole text, from a large enough buffer full of filler.
    std::string printed(TestDomain& D, const Instance* x, std::uint32_t indent, const std::string& name) const {
        std::string buffer(room, GuardedBuffer::filler);
        buffer.resize(print(D, D.set_id(), buffer.data(), indent, name.c_str(), x, room, &D.st));
        return buffer;
    }
    std::string xml(TestDomain& D, const Instance* x, const std::string& name, std::uint32_t flag = 0) const {
        std::string buffer(room, GuardedBuffer::filler);
        buffer.resize(to_xml(D, D.set_id(), name.c_str(), buffer.data(), x, room, flag, &D.st));
        return buffer;
    }
    /// Reads from a document whose root bears the type's name; the status word that it leaves.
    std::uint32_t read(TestDomain& D, zur_xml_document* document, Instance* x) const {
        std::uint32_t st = 0;
        char message[300] = "";
        from_xml(D, D.set_id(), type.c_str(), document, x, &st, message, sizeof message);
        return st;
    }
};

} // namespace epm::test
