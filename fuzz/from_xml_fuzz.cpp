// Reads an arbitrary document into every type, under the type's own name and under the name of its first element. Then
// it does with the result whatever a receiver may do: show it, write it, read that again, compare, hash, destroy. The
// Domain's memory is limited, so that growing by one element at a time stays cheap and refusals happen. The seeds are
// documents of the images of the tests' golden corpus.
#include "fuzz/target.hpp"
#include "tool/message.hpp"

namespace {

using namespace epm::fuzz;

constexpr std::size_t memory_for_all = 1 << 18;

/// Writes a record's text into a buffer that may be too small; the length must then stay within it.
template <class Write>
std::string written(const std::string& type, std::size_t size, Write write) {
    std::vector<char> buffer(size);
    std::uint32_t st = 0;
    const std::uint32_t length = write(buffer.data(), static_cast<std::uint32_t>(size), &st);
    demand(length <= size && (st == 0 || st == ZUR_BUFFER_TOO_SMALL), "length and status of a text, " + type);
    return st == 0 ? std::string(buffer.data(), length) : std::string();
}

void read_into(const TypeCalls& t, zur_domain* D, zur_xml_document* document, const char* path, std::size_t size) {
    budget = memory_for_all;
    zur_instance* x = t.create(D, ZUR_NO_SET);
    std::uint32_t st = 0;
    char message[64];
    t.from_xml(D, ZUR_NO_SET, path, document, x, &st, message, sizeof message);
    t.hash(x, 1);
    written(t.name, size, [&](char* buffer, std::uint32_t room, std::uint32_t* status) {
        return t.print(D, ZUR_NO_SET, buffer, 0, t.name.c_str(), x, room, status);
    });
    const std::string xml = written(t.name, size, [&](char* buffer, std::uint32_t room, std::uint32_t* status) {
        return t.to_xml(D, ZUR_NO_SET, t.name.c_str(), buffer, x, room, 0, status);
    });
    zur_xml_document* again = xml.empty() ? nullptr : platform_xml_parse(xml.data(), xml.size(), nullptr, nullptr, 0);
    if (again != nullptr) {
        budget = memory_for_all;
        zur_instance* y = t.create(D, ZUR_NO_SET);
        std::uint32_t second = 0;
        t.from_xml(D, ZUR_NO_SET, t.name.c_str(), again, y, &second, message, sizeof message);
        if (second == 0 && st == 0) demand(t.compare(x, y) == 0, "what was written reads back, " + t.name);
        t.destroy(D, ZUR_NO_SET, y);
        platform_xml_free(again);
    }
    t.destroy(D, ZUR_NO_SET, x);
    demand(blocks.empty(), "nothing is lost, " + t.name);
}

std::string first_element(const std::string& text) {
    const std::size_t start = text.find('<');
    if (start == text.npos) return "x";
    return text.substr(start + 1, text.find_first_of(" />\t\n", start + 1) - start - 1);
}

} // namespace

void epm::fuzz::write_seeds(const Seeds& write) {
    for (const tool::Type& type : tool::all_types())
        for (const test::Image& image : test::images_of(type.name))
            write(tool::decode(type, image.bytes, tool::TextForm::xml, {}));
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static zur_domain* const domains[] = {make_domain(PLATFORM_NO_HANDLE), make_domain(ZUR_TRACKED_MODE)};
    const std::string text(reinterpret_cast<const char*>(data), size);
    zur_xml_document* document = platform_xml_parse(text.data(), text.size(), nullptr, nullptr, 0);
    if (document == nullptr) return 0;
    const std::string root = first_element(text);
    for (const TypeCalls& t : types()) {
        zur_domain* D = domains[size % 2];
        read_into(t, D, document, t.name.c_str(), 20000);
        read_into(t, D, document, root.c_str(), size);
    }
    platform_xml_free(document);
    return 0;
}
