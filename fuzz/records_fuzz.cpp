// Reads an arbitrary image or document into a type. The first byte chooses the type, the second how it is read, the
// rest is what is read. The result must be an ordinary record: it is shown, written, read back to an equal one, hashed
// and destroyed, and leaves no memory behind. Each input may use little memory, so that growing by one element at a
// time stays cheap and refusals happen. The seeds are the images of the tests' golden corpus and their documents.
#include "fuzz/target.hpp"
#include "tool/message.hpp"

#include <array>
#include <memory>

namespace {

using namespace epm::fuzz;
using Text = std::unique_ptr<zur_xml_document, decltype(&platform_xml_free)>;

constexpr std::size_t memory_for_each = 1 << 20;
constexpr std::uint32_t some_set = 7;

enum : std::uint8_t {
    mode_tracked = 1,
    mode_untracked = 2, ///< a handle in untracked mode; with neither flag there is no handle
    mode_store = 4,
    mode_containment = 8,
    mode_count = 16,
    with_reuse = 16,
    into_used = 32,
    from_document = 64,
    into_small = 128, ///< buffers for texts are as long as the input
};

/// One Domain for each combination of modes, because making all TypeInfo copies anew for each input takes too long.
zur_domain* domain(std::uint8_t mode) {
    static std::array<zur_domain*, mode_count> all{};
    zur_domain*& D = all[mode % mode_count];
    if (D != nullptr) return D;
    const std::uint32_t tracking = (mode & mode_tracked) != 0     ? ZUR_TRACKED_MODE
                                   : (mode & mode_untracked) != 0 ? ZUR_UNTRACKED_MODE
                                                                  : PLATFORM_NO_HANDLE;
    D = make_domain(tracking, (mode & mode_store) != 0);
    D->containment_on = (mode & mode_containment) != 0;
    return D;
}

void read_xml(zur_domain* D, const TypeCalls& type, zur_instance* x, const Text& document, const std::string& path,
              std::uint32_t* st) {
    char message[64];
    type.from_xml(D, some_set, path.c_str(), document.get(), x, st, message, sizeof message);
}

Text parse(std::string_view text) {
    return {platform_xml_parse(text.data(), text.size(), nullptr, nullptr, 0), platform_xml_free};
}

/// A record is equal to another that was made of it.
template <class Read>
void compare_with(zur_domain* D, const TypeCalls& type, const zur_instance* x, Read read) {
    budget = memory_for_each;
    zur_instance* copy = type.create(D, some_set);
    if (read(copy))
        demand(type.compare(x, copy) == 0 && type.hash(x, 5) == type.hash(copy, 5), "what was read back is equal");
    type.destroy(D, some_set, copy);
}

/// Its texts in a buffer that may be too small; with a large one the document reads back.
void show(zur_domain* D, const TypeCalls& type, const zur_instance* x, std::size_t size, bool is_of_document) {
    std::vector<char> buffer(size);
    std::uint32_t st = 0, length = 0;
    const auto room = static_cast<std::uint32_t>(size);
    const auto written = [&](std::uint32_t text_length) {
        length = text_length;
        demand(length <= room && (st == 0 || st == ZUR_BUFFER_TOO_SMALL), "length and status of a text");
        return std::exchange(st, 0) == 0;
    };
    written(type.print(D, some_set, buffer.data(), 0, type.name.c_str(), x, room, &st));
    if (!written(type.to_xml(D, some_set, type.name.c_str(), buffer.data(), x, room, 0, &st)) || !is_of_document)
        return;
    const Text again = parse({buffer.data(), length});
    if (again == nullptr) return;
    compare_with(D, type, x,
                 [&](zur_instance* copy) { return read_xml(D, type, copy, again, type.name, &st), st == 0; });
}

void marshal(zur_domain* D, const TypeCalls& type, const zur_instance* x) {
    const std::uint32_t length = type.is_enum ? 5 : type.len(D, some_set, x);
    // A nested record may claim an ra block, which no length counts.
    std::vector<std::uint8_t> buffer(std::size_t{length} * 3 + 64);
    std::uint32_t st = 0;
    const auto room = static_cast<std::int32_t>(buffer.size());
    const auto used = static_cast<std::int32_t>(type.marshal(D, some_set, buffer.data(), x, room, &st));
    demand(st == 0 && used <= room, "what was read can be written, within the buffer");
    compare_with(D, type, x, [&](zur_instance* copy) {
        const std::uint32_t read = type.unmarshal(D, some_set, buffer.data(), copy, used, 0, &st);
        demand(st == 0 && static_cast<std::int32_t>(read) == used, "what was written is read whole");
        return true;
    });
}

} // namespace

void epm::fuzz::write_seeds(const Seeds& write) {
    for (std::size_t t = 0; t < types().size(); ++t)
        for (const test::Image& image : test::images_of(types()[t].name)) {
            const bool is_tracked = image.name.find(", tracked") != image.name.npos;
            const auto start = static_cast<char>(t), mode = static_cast<char>(is_tracked ? mode_tracked : 0);
            write(std::string{start, mode}.append(image.bytes.begin(), image.bytes.end()));
            write(std::string{start, static_cast<char>(mode | from_document)} +
                  tool::decode(tool::all_types()[t], image.bytes, tool::TextForm::xml, {}));
        }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const TypeCalls& type = types()[data[0] % types().size()];
    const std::uint8_t mode = data[1];
    const bool is_of_document = (mode & from_document) != 0;
    zur_domain* D = domain(mode);
    // As long as the input. For a tracked image one byte longer, because a flag may be read from there.
    const auto image = std::make_unique<std::uint8_t[]>(size - 2 + (mode & mode_tracked));
    std::copy(data + 2, data + size, image.get());
    const Text document = is_of_document ? parse({reinterpret_cast<const char*>(image.get()), size - 2}) : parse("");
    if (is_of_document && document == nullptr) return 0;
    // The first element may be of another type.
    const std::string text(data + 2, data + size), from_name = text.substr(std::min(text.find('<') + 1, text.size()));
    const std::string root = from_name.substr(0, from_name.find_first_of(" />\t\n"));

    budget = is_of_document ? memory_for_each / 4 : memory_for_each;
    zur_instance* x = type.create(D, some_set);
    std::uint32_t st = 0;
    const auto read = [&] {
        if (is_of_document) return read_xml(D, type, x, document, root, &st);
        const std::uint32_t reuse = (mode & with_reuse) != 0;
        type.unmarshal(D, some_set, image.get(), x, static_cast<std::int32_t>(size - 2), reuse, &st);
    };
    read();
    const bool is_used = (mode & into_used) != 0 && st == 0;
    if (is_used) read();
    if (st == 0 && !is_used) marshal(D, type, x);
    if (!is_used) show(D, type, x, (mode & into_small) != 0 ? size : 20000, is_of_document && st == 0);
    type.destroy(D, some_set, x);
    // A used record may lose memory by contract: the elements of arrays that are read over without reuse, and what
    // fields own when a negative variant is read into it.
    demand(is_used || blocks.empty(), "nothing is lost");
    for (void* block : blocks) std::free(block);
    blocks.clear();
    return 0;
}
