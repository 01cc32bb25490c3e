// Runs the reader of every type on arbitrary bytes. The first byte chooses the type, the second the Domain's modes and
// the destination, the rest is the image. An accepted image must give an ordinary record: it is measured, written, read
// back to an equal one, hashed, shown and destroyed, and leaves no memory behind. Each input may use one megabyte. The
// seeds are the images of the tests' golden corpus.
#include "fuzz/target.hpp"

#include <array>
#include <memory>

namespace {

using namespace epm::fuzz;

constexpr std::size_t memory_for_each = 1 << 20;

// ---- modes ----

enum : std::uint8_t {
    mode_tracked = 1,
    mode_untracked = 2, ///< a handle in untracked mode; with neither flag there is no handle
    mode_store = 4,
    mode_containment = 8,
    mode_count = 16,
    with_reuse = 16,
    into_used = 32,
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

constexpr std::uint32_t some_set = 7;

/// Uses a record that was read into a fresh Instance.
void use(zur_domain* D, const TypeCalls& type, const zur_instance* x) {
    demand(type.compare(x, x) == 0, "a record equals itself");
    const std::uint32_t length = type.is_enum ? 5 : type.length(D, some_set, x);
    // A nested record may claim an ra block, which no length counts.
    std::vector<std::uint8_t> buffer(std::size_t{length} * 3 + 64);
    std::uint32_t st = 0;
    const auto room = static_cast<std::int32_t>(buffer.size());
    const auto used = static_cast<std::int32_t>(type.marshal(D, some_set, buffer.data(), x, room, &st));
    demand(st == 0 && used <= room, "what was read can be written, within the buffer");
    budget = memory_for_each;
    zur_instance* copy = type.create(D, some_set);
    const std::uint32_t read = type.unmarshal(D, some_set, buffer.data(), copy, used, 0, &st);
    demand(st == 0 && static_cast<std::int32_t>(read) == used, "what was written is read whole");
    demand(type.compare(x, copy) == 0 && type.hash(x, 5) == type.hash(copy, 5), "what was read back is equal");
    type.destroy(D, some_set, copy);
}

} // namespace

void epm::fuzz::write_seeds(const Seeds& write) {
    for (std::size_t t = 0; t < types().size(); ++t)
        for (const test::Image& image : test::images_of(types()[t].name)) {
            const bool is_tracked = image.name.find(", tracked") != image.name.npos;
            const char start[] = {static_cast<char>(t), static_cast<char>(is_tracked ? mode_tracked : 0)};
            write(std::string(start, 2).append(image.bytes.begin(), image.bytes.end()));
        }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const TypeCalls& type = types()[data[0] % types().size()];
    const std::uint8_t mode = data[1];
    zur_domain* D = domain(mode);
    const std::uint32_t reuse = (mode & with_reuse) != 0;
    // As long as the image. In tracked mode one byte longer, because a flag may be read from there.
    const auto image = std::make_unique<std::uint8_t[]>(size - 2 + (mode & mode_tracked));
    std::copy(data + 2, data + size, image.get());
    const auto length = static_cast<std::int32_t>(size - 2);
    budget = memory_for_each;
    zur_instance* x = type.create(D, some_set);
    std::uint32_t st = 0;
    type.unmarshal(D, some_set, image.get(), x, length, reuse, &st);
    const bool is_used = (mode & into_used) != 0 && st == 0;
    if (is_used)
        type.unmarshal(D, some_set, image.get(), x, length, reuse, &st);
    else if (st == 0)
        use(D, type, x);
    type.destroy(D, some_set, x);
    // A used record may lose memory by contract: the elements of arrays that are read over without reuse, and what
    // fields own when a negative variant is read into it.
    demand(is_used || blocks.empty(), "nothing is lost");
    for (void* block : blocks) std::free(block);
    blocks.clear();
    return 0;
}
