// Invariants after every failure: whatever an operation returned, its Instances can still be measured, marshalled,
// cloned, compared, hashed, printed and destroyed, and what they send reads back as what they hold. Memory is refused
// at every place of every setter, reader and clone; moves, arrays and flags are tried where they were once not safe.
#include "support/calls.hpp"
#include "support/imports.hpp"
#include "support/text.hpp"
#include "support/types.hpp"
#include "support/wire.hpp"

#include <gtest/gtest-spi.h>

#include <functional>

namespace epm::test {
namespace {

/// All that the invariant names, but for destruction.
void expect_usable(TestDomain& D, const WireType& type, const Instance* x) {
    D.st = 0;
    const std::uint32_t room = type.len(D, D.set_id(), x) + 1;
    Bytes image(room);
    image.resize(type.marshal(D, D.set_id(), image.data(), x, static_cast<std::int32_t>(room), &D.st));
    Instance* copy = type.create(D, D.set_id());
    if (D.st == ZUR_ABSENT) { // the tag selects an arm that could not be made
        EXPECT_TRUE(type.record->is_union());
        D.st = 0;
    } else {
        const auto length = static_cast<std::int32_t>(image.size());
        EXPECT_EQ(D.st, 0u);
        EXPECT_EQ(type.unmarshal(D, D.set_id(), image.data(), copy, length, 0, &D.st), image.size());
        const bool holds_all = x->variant == type.top; // an order looks at fields above the variant, too
        EXPECT_TRUE(type.compare(x, copy) == 0 || !holds_all);
        EXPECT_EQ(marshalled(type, D, copy), image);
    }
    type.hash(x, 1);
    const TextOperations text(type.name);
    EXPECT_FALSE(text.printed(D, x, 0, "x").empty());
    EXPECT_EQ(D.st, 0u);
    EXPECT_FALSE(text.xml(D, x, "x").empty());
    // A Domain that tracks asks untracked elements and nested records for their flags.
    EXPECT_TRUE(D.st == 0 || (D.mode().is_tracking() && D.st == 22)) << D.st;
    D.st = 77; // nothing is written under a raised word
    EXPECT_EQ(text.printed(D, x, 0, "x") + text.xml(D, x, "x"), "");
    D.st = 0;
    type.destroy(D, D.set_id(), copy);
}

class Failure : public CorpusTest {
protected:
    /// Runs `act` on an Instance, with one allocation refused or all from there on, until nothing is refused.
    static void refuse_everywhere(TestDomain& D, const Specimen& s, const std::function<Instance*()>& make_instance,
                                  const std::function<void(Instance*&)>& act) {
        const std::size_t alive = heap().blocks().size();
        for (const bool is_once : {true, false})
            for (std::size_t n = 1;; n += n < 20 ? 1 : 7) {
                SCOPED_TRACE((is_once ? "allocation " : "allocations from ") + std::to_string(n));
                Instance* x = make_instance();
                const std::size_t refusals = heap().refusals();
                is_once ? heap().refuse_nth(n) : heap().refuse_from(n);
                act(x);
                heap().stop_refusing();
                D.st = 0;
                if (x != nullptr) expect_usable(D, *s.type, x);
                s.type->destroy(D, D.set_id(), x);
                ASSERT_EQ(heap().blocks().size(), alive);
                if (heap().refusals() == refusals || HasFailure()) break;
            }
    }
};

TEST_F(Failure, MemoryRefusedAtEveryPlace) {
    for_each_image([](const Specimen& s, const Bytes& image) {
        const WireType& type = *s.type;
        if (type.is_enum()) return; // owns nothing
        TestDomain D(s.mode());
        Instance* source = make(s, D);
        const auto length = static_cast<std::int32_t>(image.size());
        const auto fresh = [&] { return type.create(D, D.set_id()); };
        const auto filled = [&] {
            Instance* x = fresh();
            type.unmarshal(D, D.set_id(), image.data(), x, length, 0, &D.st);
            return x;
        };
        const auto read = [&](Instance* x, std::uint32_t reuse) {
            type.unmarshal(D, D.set_id(), image.data(), x, length, reuse, &D.st);
        };
        SCOPED_TRACE(s.text());
        if (s.variant >= 0)
            refuse_everywhere(D, s, fresh, [&](Instance*& x) {
                testing::TestPartResultArray told; // the setters' refusals are what is wanted
                const testing::ScopedFakeTestPartResultReporter listener(&told);
                Fill(D, s.seed).fill(*type.record, x);
            });
        refuse_everywhere(D, s, fresh, [&](Instance*& x) { read(x, 0); });
        refuse_everywhere(D, s, filled, [&](Instance*& x) { read(x, 1); });
        refuse_everywhere(
            D, s, [] { return nullptr; },
            [&](Instance*& x) {
                Bytes workspace(image.size() + 1);
                whole(D, type.name, "clone", static_cast<const Instance*>(source), static_cast<void*>(&x),
                      static_cast<void*>(workspace.data()), static_cast<std::int32_t>(workspace.size()));
            });
        const TextOperations text(type.name);
        const XmlDocument document = sound_xml(text.xml(D, source, type.name));
        refuse_everywhere(D, s, fresh, [&](Instance*& x) { text.read(D, document.get(), x); });
        type.destroy(D, D.set_id(), source);
    });
}

// Every image is read over every other of its type, lower and negative variants too. Nothing that the first one brought
// may leak.
TEST_F(Failure, AUsedRecordIsReadInto) {
    for (const WireType& type : wire_types())
        for (const auto& [text, first] : read_golden(type)) {
            if (type.is_enum() || static_cast<std::int8_t>(first[0]) < 0) continue;
            for (const auto& [other, second] : read_golden(type)) {
                SCOPED_TRACE(text + ", then " + other);
                TestDomain D({.tracking = ZUR_TRACKED_MODE});
                Instance* x = type.create(D, D.set_id());
                for (const Bytes& image : {first, second})
                    EXPECT_EQ(type.unmarshal(D, D.set_id(), image.data(), x, static_cast<std::int32_t>(image.size()), 1,
                                             &D.st),
                              image.size());
                expect_usable(D, type, x);
                type.destroy(D, D.set_id(), x);
                ASSERT_EQ(heap().blocks().size(), 0u);
            }
        }
}

// Tracked onto untracked and the other way round, by a Domain whose handle comes and goes. While it tracks, it refuses
// an untracked destination and leaves it unchanged. Otherwise the flags that describe the memory stay with it, nested
// ones too.
TEST_F(Failure, AMoveLeavesTheFlagsOfTheMemory) {
    TestDomain D({.tracking = ZUR_TRACKED_MODE});
    zur_tracking_handle* const handle = D->tracking_handle;
    const auto track = [&](bool is_tracking) { D->tracking_handle = is_tracking ? handle : nullptr; };
    for (const WireType& type : wire_types())
        for (const bool is_source_tracked : {true, false})
            for (const bool is_tracking : {true, false}) {
                if (type.is_enum()) continue;
                Specimen s = specimens(type).back();
                SCOPED_TRACE(s.text() + (is_source_tracked ? " from tracked" : " to tracked") +
                             (is_tracking ? "" : "!"));
                track(s.is_tracked = is_source_tracked);
                Instance* from = make(s, D);
                track(!is_source_tracked);
                Instance* to = type.create(D, D.set_id());
                const auto* bytes = reinterpret_cast<const std::uint8_t*>(to);
                const Bytes before(bytes, bytes + heap().block_of(to)->second.size);
                track(is_tracking);
                whole(D, type.name, "set", to, from);
                if (is_source_tracked && is_tracking) {
                    EXPECT_EQ(std::exchange(D.st, 0), 22u);
                    EXPECT_EQ(Bytes(bytes, bytes + before.size()), before);
                } else {
                    EXPECT_EQ(std::exchange(D.st, 0), 0u);
                    EXPECT_EQ((to->flags ^ before[10]) & (ZUR_TRACKED | ZUR_MOVED_FLAGS), 0);
                    for (const bool mode : {!is_source_tracked, false}) track(mode), expect_usable(D, type, to);
                }
                for (Instance* x : {from, to}) type.destroy(D, D.set_id(), x);
                ASSERT_EQ(heap().blocks().size(), 0u);
            }
    track(true);
}

// No array grows where the adjustment of the variant has failed; a run of fixed length has an end.
TEST_F(Failure, ArraysStayWithinTheirBounds) {
    for (const Record* r : catalogue::all_records)
        for (const Field& f : r->fields) {
            if (f.name == nullptr || !f.has_element_flags()) continue;
            SCOPED_TRACE(r->name);
            TestDomain D;
            Instance* x = create(r->name, D);
            Instance* element = f.is_of_record() ? create(f.record->name, D) : nullptr;
            std::uint64_t value = 7;
            const auto set = [&](std::uint32_t index) {
                if (f.is_of_record())
                    call(D, *r, f, "set", x, index, element, 0u);
                else
                    call(D, *r, f, "set", x, index, static_cast<void*>(&value));
                return std::exchange(D.st, 0);
            };
            if (f.kind == Kind::run) {
                EXPECT_EQ(set(f.capacity), 2u);
            } else {
                const auto failure = REPLACE(zurlib_adjust_variant, [](auto*, auto, auto*, auto*, auto,
                                                                       std::uint32_t* st) { return *st = 71, 0; });
                EXPECT_EQ(set(2), 71u);
            }
            expect_usable(D, wire_type(r->name), x);
            EXPECT_EQ(heap().blocks().size(), element != nullptr ? 2u : 1u);
            if (element != nullptr) destroy(f.record->name, D, element);
            destroy(r->name, D, x);
        }
}

TEST_F(Failure, FlagsOfNothingAndLayoutsOfTomorrow) {
    for (const Mode& mode : tracking_modes())
        for (const Record* r : catalogue::all_records) {
            SCOPED_TRACE(r->name + mode.text());
            TestDomain D(mode);
            const Field& last = r->fields[r->count - 1];
            const std::string kind = last.has_element_flags() ? "state_flag_whole_" : "state_flag_";
            Instance* const nothing = nullptr;
            EXPECT_EQ(call<std::uint8_t>(D, *r, last, kind + "get", nothing), 0);
            EXPECT_EQ(std::exchange(D.st, 0), 22u);
            call(D, *r, last, kind + "set", nothing, 1u);
            EXPECT_EQ(std::exchange(D.st, 0), 22u);
            Instance* x = create(r->name, D);
            const auto size = operation<std::uint32_t(zur_domain*, const Instance*, std::uint32_t, std::uint32_t)>(
                r->name, "sizeof_internal");
            x->layout_variant = 127;
            EXPECT_EQ(size(D, x, 1, 0), heap().block_of(x)->second.size);
            expect_usable(D, wire_type(r->name), x);
            destroy(r->name, D, x);
        }
}

} // namespace
} // namespace epm::test
