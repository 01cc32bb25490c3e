// Runs the reader of every type on arbitrary bytes. The first byte chooses the type, the second the Domain's modes and
// the destination, the rest is the image. An accepted image must give an ordinary record: it is measured, written, read
// back to an equal one, hashed, shown and destroyed, and leaves no memory behind. Each input may use one megabyte. The
// seeds are the images of the tests' golden corpus; the program unpacks them beside itself when it starts.
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
    const std::uint32_t length = type.is_enum ? 5 : type.len(D, some_set, x);
    // A nested record may claim an ra block, which no length counts.
    std::vector<std::uint8_t> buffer(std::size_t{length} * 3 + 64);
    std::uint32_t st = 0;
    const std::uint32_t used =
        type.marshal(D, some_set, buffer.data(), x, static_cast<std::int32_t>(buffer.size()), &st);
    demand(st == 0, "what was read can be written");
    demand(used <= buffer.size(), "a writer stays in its buffer");
    budget = memory_for_each;
    zur_instance* copy = type.create(D, some_set);
    demand(type.unmarshal(D, some_set, buffer.data(), copy, static_cast<std::int32_t>(used), 0, &st) == used,
           "what was written is read whole");
    demand(st == 0, "what was written can be read");
    demand(type.compare(x, copy) == 0, "what was read back is equal");
    demand(type.hash(x, 5) == type.hash(copy, 5), "what was read back hashes alike");
    type.destroy(D, some_set, copy);
}

/// A buffer as long as the image. In tracked mode one byte longer, because a flag may be read from there.
std::unique_ptr<std::uint8_t[]> exact(const std::uint8_t* image, std::size_t length, std::uint8_t mode) {
    auto copy = std::make_unique<std::uint8_t[]>(length + ((mode & mode_tracked) != 0));
    if (length != 0) std::memcpy(copy.get(), image, length);
    return copy;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments) {
    return with_seeds(count, arguments, "-dict=" EPM_DICTIONARY, [](const Seeds& write) {
        for_each_image([&](std::size_t type, bool is_tracked, const std::string& image) {
            const char start[] = {static_cast<char>(type), static_cast<char>(is_tracked ? mode_tracked : 0)};
            write(std::string(start, 2) + image);
        });
    });
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const TypeCalls& type = types()[data[0] % types().size()];
    const std::uint8_t mode = data[1];
    zur_domain* D = domain(mode);
    const std::uint32_t reuse = (mode & with_reuse) != 0;
    const auto image = exact(data + 2, size - 2, mode);
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
