// Reads an arbitrary image or document into a type. The first byte chooses the type, the second how it is read, the
// rest is what is read. The result must be an ordinary record: it is written, read back to an equal one, hashed and
// destroyed, and leaves no memory behind. An image is also read and written with every step made as a call, which must
// make no difference, whatever is wrong with it. Each input may use little memory, so that growing by one element at a
// time stays cheap and refusals happen. The seeds are the images of the tests' golden corpus and their documents.
#include "fuzz/target.hpp"
#include "tool/message.hpp"
#include "tool/operations.hpp"

#include <platform/domain.h>
#include <platform/xml.h>
#include <zur/plain.h>

#include <array>
#include <cstring>
#include <memory>
#include <span>
#include <tuple>
#include <utility>

namespace {

using namespace epm;
using fuzz::demand;

constexpr std::size_t memory_for_each = 1 << 20;
constexpr std::uint32_t some_set = 7;

enum : std::uint8_t {
    mode_tracked = 1,
    mode_untracked = 2, ///< a handle in untracked mode; with neither flag there is no handle
    mode_store = 4,
    mode_containment = 8,
    mode_count = 16,
    with_reuse = 16,
    from_document = 32,
    with_agreement = 64, ///< times a variant and 1, where plain steps are compared
};

std::size_t budget = 0; ///< bytes that are left to an input
std::size_t alive = 0;  ///< blocks

/// One Domain for each combination of modes, because making all TypeInfo copies anew for each input takes too long.
/// Its memory is counted, limited, and filled with a byte other than zero.
zur_domain* domain(std::uint8_t mode) {
    static std::array<zur_domain*, mode_count> all{};
    zur_domain*& D = all[mode % mode_count];
    if (D != nullptr) return D;
    platform_domain_options options{};
    options.tracking = (mode & mode_tracked) != 0     ? ZUR_TRACKED_MODE
                       : (mode & mode_untracked) != 0 ? ZUR_UNTRACKED_MODE
                                                      : PLATFORM_NO_HANDLE;
    options.store_mode = (mode & mode_store) != 0;
    options.obj_alloc_fn = [](void*, std::uint32_t, std::size_t size) -> void* {
        if (size > budget) return nullptr;
        budget -= size;
        ++alive;
        return std::memset(std::malloc(size), 0xA5, size);
    };
    options.obj_free_fn = [](void*, std::uint32_t, void* block) {
        --alive;
        std::free(block); // which the sanitizer checks
    };
    D = platform_domain_create(&options);
    D->containment_on = (mode & mode_containment) != 0;
    return D;
}

/// Reads an image into a fresh and into a used Instance and writes what that then holds, in plain steps and by calls.
void compare_modes(zur_domain* D, const tool::Operations& call, std::span<const std::uint8_t> image,
                   std::uint8_t mode) {
    platform_domain_agree_all(D, mode < with_agreement ? PLATFORM_HIGHEST_VARIANT : mode / with_agreement - 1);
    budget = memory_for_each;
    zur_instance *x = call.create(D, some_set), *y = call.create(D, some_set);
    for (const bool is_used : {false, true}) {
        const auto size = static_cast<std::int32_t>(image.size());
        const std::int32_t room = is_used && size != 0 ? image.back() : size + 64;
        const auto pass_on = [&](zur_instance* to) {
            std::vector<std::uint8_t> bytes(static_cast<std::size_t>(room) + 1, 0x5A); // a flag may be written behind
            std::uint32_t st[] = {0, 0};
            budget = memory_for_each;
            const auto read =
                call.unmarshal(D, some_set, image.data(), to, size, is_used || (mode & with_reuse) != 0, &st[0]);
            const auto used = call.marshal(D, some_set, bytes.data(), to, room, &st[1]);
            return std::tuple(read, st[0], used, st[1], D->last_error, bytes);
        };
        const auto plain = pass_on(x);
        const auto agreement = std::exchange(D->variant_context.opaque[ZUR_PLAIN_AGREEMENT], 0);
        demand(pass_on(y) == plain && call.compare(x, y) == 0, "plain steps do what calls do");
        D->variant_context.opaque[ZUR_PLAIN_AGREEMENT] = agreement;
    }
    call.destroy(D, some_set, x), call.destroy(D, some_set, y);
    platform_domain_agree_all(D, PLATFORM_HIGHEST_VARIANT);
}

} // namespace

void epm::fuzz::write_seeds(const Seeds& write) {
    for (std::size_t t = 0; t < tool::all_types().size(); ++t)
        for (const test::Image& image : test::images_of(tool::all_types()[t].name)) {
            const bool is_tracked = image.name.find(", tracked") != image.name.npos;
            const auto start = static_cast<char>(t), mode = static_cast<char>(is_tracked ? mode_tracked : 0);
            write(std::string{start, mode}.append(image.bytes.begin(), image.bytes.end()));
            write(std::string{start, static_cast<char>(mode | from_document)} +
                  tool::decode(tool::all_types()[t], image.bytes, tool::TextForm::xml, {}));
        }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const tool::Type& type = tool::all_types()[data[0] % tool::all_types().size()];
    const tool::Operations call(type.name);
    const std::uint8_t mode = data[1];
    zur_domain* D = domain(mode);
    // As long as the input. For a tracked image one byte longer, because a flag may be read from there.
    const auto image = std::make_unique<std::uint8_t[]>(size - 2 + (mode & mode_tracked));
    std::copy(data + 2, data + size, image.get());
    std::unique_ptr<zur_xml_document, decltype(&platform_xml_free)> document(nullptr, platform_xml_free);
    if ((mode & from_document) != 0) {
        document.reset(platform_xml_parse(reinterpret_cast<const char*>(image.get()), size - 2, nullptr, nullptr, 0));
        if (document == nullptr) return 0;
    }

    budget = document != nullptr ? memory_for_each / 4 : memory_for_each;
    zur_instance* x = call.create(D, some_set);
    std::uint32_t st = 0;
    char message[64];
    if (document != nullptr)
        call.from_xml(D, some_set, type.name.c_str(), document.get(), x, &st, message, sizeof message);
    else
        call.unmarshal(D, some_set, image.get(), x, static_cast<std::int32_t>(size - 2), (mode & with_reuse) != 0, &st);
    if (st == 0) {
        // What was read can be written, and read back to an equal record. One that is nested may claim an ra block,
        // which no length counts.
        std::vector<std::uint8_t> buffer(std::size_t{type.is_enum() ? 5 : call.len(D, some_set, x)} * 3 + 64);
        const auto room = static_cast<std::int32_t>(buffer.size());
        const auto used = static_cast<std::int32_t>(call.marshal(D, some_set, buffer.data(), x, room, &st));
        demand(st == 0 && used <= room, "what was read can be written, within the buffer");
        budget = memory_for_each;
        zur_instance* copy = call.create(D, some_set);
        const std::uint32_t read = call.unmarshal(D, some_set, buffer.data(), copy, used, 0, &st);
        demand(st == 0 && static_cast<std::int32_t>(read) == used, "what was written is read whole");
        demand(call.compare(x, copy) == 0 && call.hash(x, 5) == call.hash(copy, 5), "what was read back is equal");
        call.destroy(D, some_set, copy);
    }
    call.destroy(D, some_set, x);
    if (document == nullptr) compare_modes(D, call, {image.get(), size - 2}, mode);
    demand(alive == 0, "nothing is lost");
    return 0;
}
