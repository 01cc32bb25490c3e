// Marshalled images: how the tests make the records of the golden corpus, keep the images as readable text, and take
// an image apart by the catalogue alone, without a look at the reader or the writer.
#pragma once

#include "support/domains.hpp"
#include "support/fill.hpp"
#include "support/heap.hpp"
#include "support/library.hpp"

#include <map>
#include <string>
#include <vector>

namespace epm::test {

/// A type with its wire operations, fetched once and called bare: neither watched nor counted.
struct WireType {
    std::string name;
    const Record* record = nullptr; ///< null for an enumeration
    const Enum* enumeration = nullptr;
    std::int8_t top = 0;
    Instance* (*create)(zur_domain*, std::uint32_t) = nullptr;
    void (*destroy)(zur_domain*, std::uint32_t, Instance*) = nullptr;
    std::uint32_t (*marshal)(zur_domain*, std::uint32_t, void*, const Instance*, std::int32_t,
                             std::uint32_t*) = nullptr;
    std::uint32_t (*unmarshal)(zur_domain*, std::uint32_t, const void*, Instance*, std::int32_t, std::uint32_t,
                               std::uint32_t*) = nullptr;
    std::uint32_t (*len)(zur_domain*, std::uint32_t, const Instance*) = nullptr;
    std::int32_t (*compare)(const Instance*, const Instance*) = nullptr;
    std::uint32_t (*hash)(const Instance*, std::uint32_t) = nullptr;

    bool is_enum() const { return enumeration != nullptr; }
};

/// All 58, in the order of the type table.
const std::vector<WireType>& wire_types();
const WireType& wire_type(const std::string& name);

/// One image of the corpus: what it is of, and how to make the record again.
struct Specimen {
    const WireType* type;
    int variant;
    bool is_tracked;
    unsigned seed;   ///< for Fill
    std::string arm; ///< the selected one, in a union

    std::string text() const;
    Mode mode() const { return {.tracking = is_tracked ? ZUR_TRACKED_MODE : PLATFORM_NO_HANDLE}; }
};

/// Every variant from -1 to the highest, untracked and tracked, and in a union every arm.
std::vector<Specimen> specimens(const WireType& type);
/// The record of a specimen; the Domain is left in agreement with its variant. Fails the test when it cannot be made.
Instance* make(const Specimen& specimen, TestDomain& D);

/// Marshals into a buffer that is larger than needed.
Bytes marshalled(const WireType& type, TestDomain& D, const Instance* x);

/// The offsets of the parts of an image.
struct Parts {
    struct Part {
        std::size_t offset;
        std::size_t length;
        std::string name;
    };
    struct Frame {
        std::int8_t top; ///< the highest variant of the record or enumeration
        std::size_t start;
        std::size_t jump; ///< place of the jump word; 0 in an enumeration, which has none
        std::size_t end;
    };
    std::vector<Part> parts;
    std::vector<Frame> frames;   ///< a record after those that are nested in it
    std::uint64_t overcount = 0; ///< what the length operation counts beyond the bytes written
    bool is_sound = true;
};
Parts take_apart(const WireType& type, const Bytes& image);

using Golden = std::map<std::string, Bytes>; ///< by the specimen's text
Golden read_golden(const WireType& type);
void write_golden(const WireType& type, const std::vector<std::pair<std::string, Bytes>>& images);

/// Of a test over the whole corpus: no write checker, which would look at every block at every call.
class CorpusTest : public testing::Test {
protected:
    void SetUp() override { heap().reset(); }
    void TearDown() override {
        EXPECT_EQ(heap().blocks().size(), 0u) << "blocks that nobody has released";
        heap().reset();
    }
    /// Runs with every specimen and its image, until one fails.
    template <class Body>
    void for_each_image(Body body) {
        for (const WireType& type : wire_types()) {
            const Golden golden = read_golden(type);
            for (const Specimen& s : specimens(type)) {
                ASSERT_TRUE(golden.contains(s.text())) << "no golden image of " << s.text();
                body(s, golden.at(s.text()));
                if (HasFailure()) FAIL() << s.text();
            }
        }
    }
};

} // namespace epm::test
