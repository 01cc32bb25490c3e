// Every record, in every mode and variant, against the model of support/model.hpp: what setters leave, what getters,
// wire, order, hash and texts make of it, what readers make of that in fresh and used Instances and at other levels,
// and what remains when bytes end early or memory runs out. EPM_MODEL_SEEDS=n draws n times as many records.
#include "support/model.hpp"
#include "support/traces.hpp"
#include "support/types.hpp"
#include "support/write_checker.hpp"

#include <functional>
#include <memory>
#include <optional>

namespace epm::test {
namespace {

/// Without reuse a reader frees such an array's storage without its elements: by contract, whoever reads into a used
/// record like this has released what they own.
bool holds_array_of_records(const Record& r) {
    return r.any([](const Field& f) {
        return f.is_of_record() && (f.kind == Kind::array || holds_array_of_records(*f.record));
    });
}

/// The elements of a list are attached by its setter, which refuses an Instance that has been in a negative variant.
bool holds_list(const Record& r) {
    return r.any([](const Field& f) { return f.kind == Kind::list; });
}

const Operations& operations(const std::string& type) {
    static std::map<std::string, Operations> all;
    return all.try_emplace(type, type).first->second;
}

/// A record under an agreement, in a Domain of some mode, and what to draw from.
struct Case {
    Case(const Record& record, int variant, const Mode& mode, unsigned seed)
        : r(record), type(r.name),
          ops(operations(type)), random{std::mt19937(seed * 7919 +
                                                     static_cast<unsigned>(std::hash<std::string>()(type)))},
          D(mode) {
        agreed.of_others = static_cast<int>(random.below(3));
        agreed.by_type[type] = variant;
        agreed.conclude(D);
        heap().fill_with(static_cast<std::uint8_t>(random.number()));
        text = type + ", variant " + std::to_string(variant) + ", seed " + std::to_string(seed) + ", " + mode.text();
    }

    const Record& r;
    std::string type;
    const Operations& ops;
    Random random;
    Agreement agreed;
    TestDomain D;
    std::string text;

    bool refuses_elements() const { return holds_list(r) && agreed.of(r) < 0; }
    std::uint32_t accepted_tags() const {
        const Enum& tags = *r.fields[0].enumeration;
        return tags.accepted(static_cast<std::int8_t>(agreed.of(tags)));
    }
    bool tracks() const { return is_tracking(D); }
    Hands hands() { return {D, agreed}; }
    Tree empty() const { return blank(r, agreed); }
    Tree draw() { return test::draw(r, agreed, random); }
    /// With flags of its own where the Domain tracks.
    Tree draw_to_send() {
        Tree t = draw();
        if (tracks()) draw_flags(t, random);
        return t;
    }
    Instance* create() { return ops.create(D, D.set_id()); }
    void destroy(Instance* x) { ops.destroy(D, D.set_id(), x); }
    /// An Instance that is filled with a tree, which notes the setters' marks.
    Instance* make(Tree& t) {
        Instance* x = create();
        hands().fill(t, x);
        EXPECT_EQ(D.st, 0u) << text;
        return x;
    }
    Writer written(const Tree& t, std::size_t room = 1 << 16, bool is_bound = true) const {
        return test::written(t, agreed, tracks(), room, is_bound);
    }
    std::uint8_t mark() const { return tracks() ? 2 : 0; }
    Tree received(const Tree& sent, bool has_flags) const {
        Tree t = empty();
        Receipt{agreed, mark(), has_flags, false}.receive(t, sent);
        return t;
    }
    std::uint32_t read(Instance* x, std::string_view image, bool is_reuse) {
        return ops.unmarshal(D, D.set_id(), image.data(), x, static_cast<std::int32_t>(image.size()), is_reuse, &D.st);
    }
    std::uint32_t write(const Instance* x, char* to, std::size_t room) {
        return ops.marshal(D, D.set_id(), to, x, static_cast<std::int32_t>(room), &D.st);
    }
    /// What the place held is cleared first.
    Instance* clone(const Instance* x, std::string& workspace) {
        auto* copy = const_cast<Instance*>(x);
        whole(D, type, "clone", x, static_cast<void*>(&copy), static_cast<void*>(workspace.data()),
              static_cast<std::int32_t>(workspace.size()));
        return copy;
    }

    /// What all operations show of an Instance is what the tree holds.
    void expect_shown(Instance* x, const Tree& t, bool knows_hidden = true) {
        const std::uint32_t former = std::exchange(D.st, 0);
        EXPECT_EQ(ops.len(D, D.set_id(), x), length_of(t, tracks())) << text;
        const Writer wanted = written(t);
        std::string buffer(1 << 16, '\xEE');
        x->flags ^= ZUR_EMBEDDED; // does not travel
        D->last_error = 77;       // is cleared first
        buffer.resize(write(x, buffer.data(), buffer.size()));
        EXPECT_EQ(std::exchange(D.st, 0), wanted.st) << text;
        x->flags ^= ZUR_EMBEDDED;
        EXPECT_EQ(std::exchange(D->last_error, 77), wanted.st) << text;
        EXPECT_EQ(hex(buffer), hex(wanted.written())) << text;
        EXPECT_TRUE(!knows_hidden || ops.hash(x, 77) == hash(t, 77)) << text << "\n" << dump(t);
        EXPECT_EQ(ops.printed(D, x, 3, "n"), printed(t, "n", 3)) << text;
        const std::string written_xml = ops.xml(D, x, "n", 9);
        // A Domain that tracks asks untracked elements and nested records for their flags.
        const bool is_cut = !knows_hidden && tracks() && D.st == 22;
        if (is_cut) D.st = D->last_error = 0;
        EXPECT_TRUE(is_cut || written_xml == xml(t, "n", 9)) << text << "\n" << written_xml;
        EXPECT_EQ(D->last_error, 0u) << text;
        EXPECT_EQ(std::exchange(D.st, former), 0u) << text;
    }
    void expect_holds(Instance* x, const Tree& t, bool knows_hidden = true) {
        EXPECT_EQ(dump(hands().read(r, x)), dump(t)) << text;
        expect_shown(x, t, knows_hidden);
        EXPECT_EQ(D.st, 0u) << text;
    }
    /// A record of a future variant is read whole, with a trace for it and each that it nests.
    void expect_future_read(const Tree& sent) {
        Writer out(1 << 16, agreed, tracks());
        out.is_of_future = true;
        out.record(sent, true);
        Instance* x = create();
        Traces traces;
        EXPECT_EQ(read(x, out.written(), false), out.used) << text;
        EXPECT_EQ(std::ranges::count(traces.take(), '\n'), out.later) << text;
        expect_holds(x, received(sent, tracks()));
        destroy(x);
    }
    /// Whatever it holds, all operations agree on it.
    void expect_sound(Instance* x) {
        D.st = 0;
        const Tree t = hands().read(r, x);
        // A Domain that tracks asks elements that were never set up for their flags.
        EXPECT_TRUE(D.st == 0 || (tracks() && D.st == 22)) << text << " " << D.st;
        D.st = 0;
        expect_shown(x, t, false);
        Instance* copy = create();
        const Writer out = written(t);
        if (out.st == 0) {
            EXPECT_EQ(read(copy, out.written(), false), out.used) << text;
            expect_holds(copy, received(t, tracks()));
        }
        destroy(copy);
    }
};

class Model : public testing::Test {
protected:
    void SetUp() override { heap().reset(); }
    void TearDown() override { heap().reset(); }
    GuardedBuffer guarded;

    static unsigned seeds() {
        const char* const wanted = std::getenv("EPM_MODEL_SEEDS");
        return wanted != nullptr ? static_cast<unsigned>(std::stoul(wanted)) : 1;
    }
    /// Runs with every record, variant, mode and seed, until one fails.
    static void for_each_case(const std::vector<Mode>& modes, unsigned times, const std::function<void(Case&)>& body) {
        for (const Record* r : catalogue::all_records)
            for (int variant = -1; variant <= r->top(); ++variant)
                for (unsigned seed = 0; seed < times * seeds(); ++seed)
                    for (const Mode& mode : modes) {
                        if (HasFailure()) return;
                        {
                            Case c(*r, variant, mode, seed);
                            body(c);
                        }
                        EXPECT_EQ(heap().blocks().size(), 0u) << "lost by a " << r->name;
                        heap().reset();
                    }
    }
};

// With everything in a store that hears of each write, all writes are watched.
TEST_F(Model, FillsShowsSendsAndCopies) {
    for_each_case(all_modes(), 1, [](Case& c) {
        std::optional<WriteChecker> checker;
        if (c.D.mode().marks() && c.D.mode().has_store) checker.emplace();
        Tree t = c.draw();
        Instance* x = c.make(t);
        c.expect_holds(x, t);
        Instance* y = c.create();
        const Writer out = c.written(t);
        if (out.st == 0) {
            EXPECT_EQ(c.read(y, out.written(), false), out.used);
            c.expect_holds(y, c.received(t, c.tracks()));
            EXPECT_EQ(y->type_info, x->type_info);
            // What has other content and the same lengths is kept in place; what is empty is given up.
            Tree near = t;
            for (std::size_t i = 0; i < t.cells.size(); ++i) near.change_end(i, t.cells[i]);
            for (const Tree& next : {near, c.empty()}) {
                const Writer again = c.written(next);
                if (again.st != 0) continue;
                Tree held = c.hands().read(c.r, y);
                Receipt{c.agreed, c.mark(), c.tracks(), true}.receive(held, next);
                const std::size_t allocations = heap().allocations();
                EXPECT_EQ(c.read(y, again.written(), true), again.used) << c.text;
                c.expect_holds(y, held);
                EXPECT_TRUE(heap().allocations() == allocations || holds_array_of_records(c.r)) << c.text;
            }
        }
        c.destroy(y);
        y = c.create();
        const XmlDocument document = sound_xml(xml(t, c.type, 0));
        const bool lacks_last_text = !t.shows(c.r.count - 1) && c.r.fields[c.r.count - 1].kind == Kind::text;
        EXPECT_EQ(c.ops.read(c.D, document.get(), y), lacks_last_text ? 2u : 0u);
        c.expect_holds(y, read_from_xml(t, c.agreed, c.mark()));
        c.destroy(y);
        c.destroy(x);
    });
}

TEST_F(Model, Clones) {
    for_each_case(tracking_modes(), 2, [](Case& c) {
        Tree t = c.draw();
        Instance* x = c.make(t);
        // The outermost record is not bound by what has been agreed since.
        c.agreed.by_type[c.type] = static_cast<int>(c.random.below(3)) - !holds_list(c.r);
        c.agreed.conclude(c.D);
        const Writer out = c.written(t, 1 << 16, false);
        std::string workspace(1 << 16, '\0');
        workspace.resize(whole<std::uint32_t>(c.D, c.type, "marshal_for_clone", static_cast<void*>(workspace.data()),
                                              static_cast<const Instance*>(x), 1 << 16));
        EXPECT_EQ(hex(workspace), hex(out.written()));
        EXPECT_EQ(std::exchange(c.D.st, 0), out.st);
        workspace.resize(workspace.size() + 2); // the last flag of a list needs room for two
        const Writer bound = c.written(t, workspace.size());
        EXPECT_EQ(c.write(x, workspace.data(), workspace.size()), bound.used) << c.text;
        EXPECT_EQ(std::exchange(c.D.st, 0), bound.st) << c.text;
        const bool is_above = t.variant == c.r.top() && c.random.once_in(2); // as a store may hold it
        if (is_above) x->variant = static_cast<std::int8_t>(++t.variant);
        Instance* copy = c.clone(x, workspace);
        EXPECT_EQ(std::exchange(c.D.st, 0), out.st) << c.text;
        EXPECT_EQ(copy != nullptr, out.st == 0);
        if (is_above) x->variant = static_cast<std::int8_t>(--t.variant);
        c.agreed.by_type[c.type] = t.variant;
        c.agreed.conclude(c.D);
        if (copy != nullptr) c.expect_holds(copy, c.received(t, c.tracks()));
        c.destroy(copy);
        c.destroy(x);
    });
}

// Pairs that differ in one field and pairs that differ in all; what a lower variant hides takes part.
TEST_F(Model, OrdersAndHashes) {
    for_each_case({{PLATFORM_NO_HANDLE}}, 4, [](Case& c) {
        Tree t = c.draw();
        Tree other = c.draw();
        Instance* x = c.make(t);
        for (std::size_t n = 0; n <= 2 * t.cells.size(); ++n) {
            // All is different, or one field, or the last byte or element of one field.
            const std::size_t i = n / 2;
            Tree near = i < t.cells.size() ? t : other;
            if (i < t.cells.size() && n % 2 == 0) near.cells[i] = other.cells[i];
            if (n % 2 != 0 && !near.change_end(i, other.cells[i])) continue;
            // No setter writes a tag that the enumeration's variant lacks.
            if (c.r.is_union() && near.cells[0].number >= c.accepted_tags()) continue;
            Instance* y = c.make(near);
            EXPECT_EQ(compare(t, near), c.ops.compare(x, y)) << c.text << "\n" << dump(t) << dump(near);
            EXPECT_EQ(compare(near, t), c.ops.compare(y, x)) << c.text << "\n" << dump(t) << dump(near);
            EXPECT_EQ(c.ops.hash(y, 5), hash(near, 5));
            c.destroy(y);
        }
        EXPECT_EQ(c.ops.compare(x, x), 0);
        EXPECT_EQ(c.ops.compare(x, nullptr), 1);
        EXPECT_EQ(c.ops.compare(nullptr, x), -1);
        EXPECT_EQ(c.ops.compare(nullptr, nullptr), 0);
        EXPECT_EQ(c.ops.hash(nullptr, 5), 5u);
        // The length of nothing is that of a fresh record in variant 0, less what only a record has.
        Tree nothing = c.empty();
        nothing.variant = 0;
        for (std::size_t i = 0; i < c.r.count; ++i)
            if (c.r.fields[i].kind == Kind::run) nothing.cells[i].bytes.clear();
        EXPECT_EQ(c.ops.len(c.D, c.D.set_id(), nullptr), length_of(nothing, false)) << c.text;
        c.destroy(x);
    });
}

// Every byte, the result and the status, whatever room there is; of long images most rooms are left out.
TEST_F(Model, WritesIntoEveryRoom) {
    for_each_case(tracking_modes(), 2, [&](Case& c) {
        Tree t = c.draw();
        Instance* x = c.make(t);
        const std::size_t whole = c.written(t).used;
        for (std::size_t room = 0; room <= whole + 1; room += whole < 400 || room > whole - 20 ? 1 : 17) {
            const Writer wanted = c.written(t, room);
            char* buffer = guarded.last(room + 1);
            std::memset(buffer, '\xEE', room + 1);
            EXPECT_EQ(c.write(x, buffer, room), wanted.used) << c.text << " at " << room;
            EXPECT_EQ(std::exchange(c.D.st, 0), wanted.st) << c.text << " at " << room;
            EXPECT_EQ(hex({buffer, room + 1}), hex(wanted.buffer)) << c.text << " at " << room;
            if (HasFailure()) break;
        }
        c.destroy(x);
    });
}

// A text that does not fit is cut, terminated and told; one byte more than its length is enough.
TEST_F(Model, ShowsInEveryRoom) {
    for_each_case({{PLATFORM_NO_HANDLE}}, 1, [&](Case& c) {
        Tree t = c.draw();
        Instance* x = c.make(t);
        const char* const name = c.type.c_str();
        for (const bool is_xml : {false, true}) {
            const std::string whole = is_xml ? xml(t, name, 0) : printed(t, name, 0);
            for (std::uint32_t size = 0; size <= whole.size() + 1 && !HasFailure();
                 size += whole.size() < 1500 || size + 50 > whole.size() ? 1 : 97) {
                const bool fits = size > whole.size();
                char* buffer = guarded.last(size);
                const std::uint32_t length = is_xml ? c.ops.to_xml(c.D, 1, name, buffer, x, size, 0, &c.D.st)
                                                    : c.ops.print(c.D, 1, buffer, 0, name, x, size, &c.D.st);
                EXPECT_EQ(std::exchange(c.D.st, 0), fits ? 0u : 28u) << c.text << " at " << size;
                EXPECT_TRUE(fits ? length == whole.size() : length <= size) << c.text << " at " << size;
                EXPECT_TRUE((is_xml && !fits) || whole.starts_with(std::string_view(buffer, length))) << c.text;
                EXPECT_TRUE(size == 0 || is_xml || buffer[length] == 0) << c.text;
                EXPECT_TRUE(guarded.is_clean_before(size)) << c.text;
            }
        }
        c.destroy(x);
    });
}

// A used Instance reads images of other shapes and variants, one after the other.
TEST_F(Model, ReadsIntoUsedInstances) {
    for_each_case(tracking_modes(), 4, [](Case& c) {
        if (c.refuses_elements()) return;
        const bool is_reuse = c.random.once_in(2) || holds_array_of_records(c.r);
        Tree held = c.empty();
        Instance* x = c.create();
        for (int n = 0; n < 4; ++n) {
            c.agreed.by_type[c.type] = static_cast<int>(c.random.below(4)) - (n < 3 && !holds_list(c.r));
            Tree sent = c.draw();
            draw_flags(sent, c.random);
            const bool has_flags = !c.random.once_in(3);
            const Writer out = written(sent, c.agreed, has_flags);
            if (out.st != 0) continue;
            EXPECT_EQ(c.read(x, out.written(), is_reuse), out.used);
            Receipt{c.agreed, c.mark(), has_flags && c.tracks(), is_reuse}.receive(held, sent);
            c.agreed.conclude(c.D);
            c.expect_holds(x, held);
        }
        c.destroy(x);
    });
}

/// An Instance as a build makes it that knows the type up to a variant only.
Instance* create_at_level(Case& c, int level) {
    Instance* x = c.create();
    x->layout_variant = static_cast<std::int8_t>(level);
    x->variant = std::min(x->variant, x->layout_variant);
    if (!c.tracks()) return x;
    const catalogue::Layout layout = catalogue::lay_out(c.r);
    void* block = reinterpret_cast<char*>(x) + layout.body[static_cast<std::size_t>(level)];
    std::memset(block, 0, layout.block[static_cast<std::size_t>(level)]);
    whole(c.D, c.type, "offset_update", x, block);
    return x;
}

// From a build of one level to one of another, and back: a record is always read whole, with one trace if the reader
// does not know all of it.
TEST_F(Model, HopsBetweenLevels) {
    for_each_case(tracking_modes(), 2, [](Case& c) {
        const int top = c.r.top();
        for (int level = 0; level <= top; ++level) {
            Tree held = c.draw_to_send();
            const Writer out = c.written(held);
            if (out.st != 0) continue;
            std::string image = out.written();
            const int variant = std::exchange(c.agreed.by_type[c.type], top); // which a reader does not look at
            c.agreed.conclude(c.D);
            c.expect_future_read(held);
            for (const int reader : {level, top}) {
                Tree known = held;
                known.variant = std::min(held.variant, reader);
                const bool skips = c.written(known).used != image.size();
                Instance* x = create_at_level(c, reader);
                Traces traces;
                EXPECT_EQ(c.read(x, image, false), image.size());
                const std::string told = traces.take();
                EXPECT_EQ(std::ranges::count(told, '\n'), skips) << c.text << told;
                EXPECT_EQ(told.find("offset_jump read_len ") != std::string::npos, skips) << c.text << told;
                Tree got = c.empty();
                got.variant = reader;
                Receipt{c.agreed, c.mark(), c.tracks(), false}.receive(got, held, reader);
                c.expect_holds(x, got, !c.tracks() || reader == top); // flags lie where later fields would
                c.destroy(x);
                held = got;
                image = c.written(held).written();
            }
            c.agreed.by_type[c.type] = variant;
        }
    });
}

// Bytes that end early, and bytes that are wrong: whatever was read is a sound Instance, and reads the whole image
// again.
TEST_F(Model, SurvivesDamagedBytes) {
    for_each_case(tracking_modes(), 1, [&](Case& c) {
        if (c.refuses_elements()) return;
        const Tree t = c.draw_to_send();
        const Writer out = c.written(t);
        const std::string image = out.written();
        if (out.st != 0) return;
        Instance* used = c.create();
        c.read(used, image, true);
        const bool loses = holds_array_of_records(c.r);
        const auto read = [&](std::string_view bytes) {
            char* exact = guarded.last(bytes.size() + c.tracks()); // a reader that tracks may look at one more
            std::memcpy(exact, bytes.data(), bytes.size());
            const bool is_reuse = loses || c.random.once_in(2);
            const bool is_thorough = c.random.once_in(bytes.size() < 300 ? 2 : 12);
            // What is read does not depend on what the heap held before.
            std::string read_first;
            Instance* fresh = nullptr;
            for (const std::uint8_t byte : {std::uint8_t{0xA5}, std::uint8_t{0x5A}}) {
                heap().fill_with(byte);
                heap().refuse_beyond(1 << 14);
                c.destroy(fresh);
                c.D.st = 0;
                fresh = c.create();
                c.read(fresh, {exact, bytes.size()}, is_reuse);
                heap().stop_refusing();
                EXPECT_TRUE(bytes.size() > 5 || c.D.st == 90) << c.text;
                if (is_thorough) c.expect_sound(fresh);
                const std::string text = is_thorough ? dump(c.hands().read(c.r, fresh)) : "";
                EXPECT_TRUE(byte == 0xA5 || text == read_first) << c.text << "\n" << read_first << text;
                read_first = text;
            }
            c.D.st = 0;
            heap().refuse_beyond(1 << 14);
            c.read(used, {exact, bytes.size()}, true);
            heap().stop_refusing();
            c.D.st = 0;
            c.destroy(fresh);
            EXPECT_EQ(c.read(used, image, true), image.size());
            EXPECT_EQ(c.D.st, 0u) << c.text;
        };
        for (std::size_t length = 0; length < image.size() && !HasFailure(); length += image.size() < 600 ? 1 : 7)
            read({image.data(), length});
        for (std::size_t at = 0; at < image.size() && !HasFailure(); at += image.size() < 600 ? 1 : 7) {
            std::string damaged = image;
            damaged[at] = static_cast<char>(damaged[at] + 1 + static_cast<int>(c.random.below(255)));
            read(damaged);
        }
        c.expect_sound(used);
        c.destroy(used);
    });
}

// One allocation is refused, or all from there on: the status says so, and the Instance is sound.
TEST_F(Model, SurvivesRefusedMemory) {
    for_each_case(tracking_modes(), 1, [](Case& c) {
        Tree t = c.draw();
        Instance* source = c.make(t);
        const Writer out = c.written(t);
        const std::string image = out.written();
        const XmlDocument document = sound_xml(xml(t, c.type, 0));
        const std::vector<std::function<void(Instance*&)>> acts = {
            [&](Instance*& x) { c.hands().fill(t, x); },
            [&](Instance*& x) { c.read(x, image, false); },
            [&](Instance*& x) {
                c.destroy(std::exchange(x, nullptr));
                std::string workspace(image.size() + 1, '\0');
                x = c.clone(source, workspace);
            },
            [&](Instance*& x) { c.D.st = c.ops.read(c.D, document.get(), x); },
        };
        const std::size_t alive = heap().blocks().size();
        for (std::size_t act = 0; act < acts.size(); ++act)
            for (const bool is_once : {true, false})
                for (std::size_t n = 1; !HasFailure() && (out.st == 0 || act == 0 || act == 3); n += n < 20 ? 1 : 7) {
                    Instance* x = c.create();
                    const std::size_t refusals = heap().refusals();
                    is_once ? heap().refuse_nth(n) : heap().refuse_from(n);
                    acts[act](x);
                    heap().stop_refusing();
                    const bool is_refused = heap().refusals() != refusals;
                    const std::uint32_t status = std::exchange(c.D.st, 0);
                    EXPECT_TRUE(!is_refused || status == 12)
                        << c.text << " act " << act << " at " << n << ": " << status;
                    if (x != nullptr) c.expect_sound(x);
                    c.destroy(x);
                    EXPECT_EQ(heap().blocks().size(), alive) << c.text << " act " << act << " at " << n;
                    if (!is_refused) break;
                }
        c.destroy(source);
    });
}

// Tracked onto untracked and the other way round, by a Domain whose handle comes and goes. While it tracks, it refuses
// an untracked destination and leaves it unchanged. Otherwise the flags that describe the memory stay with it, nested
// ones too.
TEST_F(Model, MovesLeaveTheFlagsOfTheMemory) {
    for_each_case({{ZUR_TRACKED_MODE}}, 2, [](Case& c) {
        zur_tracking_handle* const handle = c.D->tracking_handle;
        const auto track = [&](bool is_tracking) { c.D->tracking_handle = is_tracking ? handle : nullptr; };
        for (const bool is_source_tracked : {true, false})
            for (const bool is_tracking : {true, false}) {
                track(is_source_tracked);
                Tree t = c.draw();
                Instance* from = c.make(t);
                track(!is_source_tracked);
                Instance* to = c.create();
                const std::string before(reinterpret_cast<char*>(to), heap().block_of(to)->second.size);
                const std::uint8_t flags = to->flags;
                track(is_tracking);
                whole(c.D, c.type, "set", to, from);
                const bool is_refused = is_source_tracked && is_tracking;
                EXPECT_EQ(std::exchange(c.D.st, 0), is_refused ? 22u : 0u) << c.text;
                if (is_refused) {
                    EXPECT_EQ(std::string(reinterpret_cast<char*>(to), before.size()), before) << c.text;
                } else {
                    EXPECT_EQ((to->flags ^ flags) & (ZUR_TRACKED | ZUR_MOVED_FLAGS), 0) << c.text;
                    for (const bool mode : {!is_source_tracked, false}) track(mode), c.expect_sound(to);
                }
                c.destroy(from);
                c.destroy(to);
            }
        track(true);
    });
}

// Where the runtime offers no runs of primitives (wire_runs_test.cpp), each element is written by itself.
TEST_F(Model, RunsAreWrittenAtOnceWhereTheRuntimeOffersThem) {
    Case c(catalogue::orlan_ial_vlan_group_info, 0, {}, 0);
    Tree t = c.empty();
    t.cells[c.r.index_of("vlans")].bytes.resize(12);
    Instance* x = c.make(t);
    const bool has_runs = std::string_view(__BASE_FILE__).ends_with("/model_test.cpp");
    int written = 0;
    const auto marshal = REPLACE(u_int32_marshal, [&](auto...) { return ++written, 4u; });
    char image[100];
    c.ops.marshal(c.D, c.D.set_id(), image, x, sizeof image, &c.D.st);
    EXPECT_EQ(written, has_runs ? 4 : 7); // four numbers, and three elements
    c.destroy(x);
}

} // namespace
} // namespace epm::test
