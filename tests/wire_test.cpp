// Images that were kept are read and written as they are. EPM_WRITE_GOLDEN=1 adds those that are missing, with a
// content of the model's.
#include "support/bundle_test.hpp"
#include "support/images.hpp"
#include "support/model.hpp"

#include <fstream>

namespace epm::test {
namespace {

/// An image of a record that is drawn by the image's name, with this arm selected.
std::string drawn(const std::string& name, const Record& r, int variant, bool is_tracked, const Field* arm) {
    Random random{std::mt19937(static_cast<unsigned>(std::hash<std::string>()(name)))};
    const Agreement agreed{.by_type = {{r.name, variant}}};
    Tree t = draw(r, agreed, random, is_tracked);
    if (arm != nullptr) {
        t.cells[0].number = arm->tag;
        t.cells[r.index_of(arm->name)].trees = {draw(*arm->record, agreed, random, is_tracked)};
    }
    return written(t, agreed, is_tracked).written();
}

/// The images that there must be of a type, by name, in the order of its file; of an enumeration where there is no
/// record.
std::vector<std::pair<std::string, std::string>> wanted(const std::string& type, const Record* r, int top) {
    std::vector<std::pair<std::string, std::string>> all;
    for (int variant = -1; variant <= top; ++variant)
        for (const bool is_tracked : {false, true}) {
            const std::string name =
                type + ", variant " + std::to_string(variant) + (is_tracked ? ", tracked" : ", untracked");
            if (r == nullptr)
                all.emplace_back(name, big_endian(static_cast<std::uint64_t>(variant), 1) + big_endian(0, 4));
            else if (!r->is_union() || variant < 0)
                all.emplace_back(name, drawn(name, *r, variant, is_tracked, nullptr));
            else
                for (const Field& f : r->fields)
                    if (f.name != nullptr && f.kind == Kind::arm && f.since <= variant)
                        all.emplace_back(name + ", " + f.name, drawn(name, *r, variant, is_tracked, &f));
        }
    return all;
}

using Wire = BundleTest;

TEST_F(Wire, KeptImagesAreReadAndWrittenAsTheyAre) {
    checker.reset(); // which would look at every block at each of very many calls
    const bool is_writing = std::getenv("EPM_WRITE_GOLDEN") != nullptr;
    const auto check = [&](const std::string& name, const Record* r, int top) {
        const Operations type(name);
        std::map<std::string, std::string> kept;
        for (const Image& image : images_of(name)) kept[image.name] = {image.bytes.begin(), image.bytes.end()};
        std::string file;
        for (const auto& [title, fresh] : wanted(name, r, top)) {
            SCOPED_TRACE(title);
            if (is_writing) kept.try_emplace(title, fresh);
            const std::string image = std::exchange(kept[title], "");
            file += "[" + title + "]\n" + hex(image) + "\n";
            TestDomain D({.tracking = title.find(", tracked") != title.npos ? ZUR_TRACKED_MODE : PLATFORM_NO_HANDLE});
            Instance* x = type.create(D, D.set_id());
            EXPECT_EQ(type.unmarshal(D, D.set_id(), image.data(), x, static_cast<int>(image.size()), 0, &D.st),
                      image.size());
            std::string buffer(image.size() + 16, '\0');
            const auto room = static_cast<std::int32_t>(buffer.size());
            buffer.resize(type.marshal(D, D.set_id(), buffer.data(), x, room, &D.st));
            EXPECT_EQ(D.st, 0u) << "or the image is missing";
            EXPECT_EQ(hex(buffer), hex(image));
            type.destroy(D, D.set_id(), x);
        }
        for (const auto& [title, image] : kept) EXPECT_EQ(image, "") << title << " is kept and nobody wants it";
        if (is_writing) std::ofstream(EPM_SOURCE_DIR "/tests/golden/" + name + ".hex") << file;
    };
    for (const Record* r : catalogue::all_records) check(r->name, r, r->top());
    for (const Enum* e : catalogue::all_enums) check(e->name, nullptr, e->top());
}

} // namespace
} // namespace epm::test
