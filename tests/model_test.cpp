// Every record, in every mode and variant, against the model of support/model.hpp: what setters leave, what wire,
// order, hash and texts make of it, what readers make of that in fresh and used Instances and at other levels, and what
// remains when bytes end early or memory runs out. EPM_MODEL_SEEDS=n draws n times as many records. It is built three
// times: see tests/CMakeLists.txt.
#include "support/model.hpp"
#include "support/recorder.hpp"
#include "support/write_checker.hpp"

#include <zur/plain.h>

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

/// A record under an agreement, in a Domain of some mode, and what to draw from. With everything in a store that hears
/// of each write, all writes are watched.
struct Case {
    Case(const Record& record, int variant, const Mode& mode, unsigned seed)
        : r(record), type(r.name),
          ops(type), random{std::mt19937(seed * 7919 + static_cast<unsigned>(std::hash<std::string>()(type)))},
          D(mode) {
        agreed.of_others = random.once_in(2) ? variant : static_cast<int>(random.below(3));
        agree(variant);
        heap().fill_with(static_cast<std::uint8_t>(random.number()));
        if (mode.marks() && mode.has_store) checker.emplace();
    }

    const Record& r;
    std::string type;
    const Operations ops;
    Random random;
    Agreement agreed;
    TestDomain D;
    std::optional<WriteChecker> checker;

    void agree(int variant) {
        agreed.by_type[type] = variant;
        agreed.conclude(D);
    }
    /// One agreement more; the first forgets those that were.
    void agree_more(bool is_first) {
        const std::string name = random.once_in(2) ? type : "webauth_watch_list";
        const int variant = static_cast<int>(random.below(4)) - !holds_list(r);
        switch (is_first ? 0 : random.below(3)) {
        case 0: platform_domain_clear_agreement(D), agreed = {}; break;
        case 1: D.agree(name.c_str(), agreed.by_type[name] = variant); break;
        default: D.agree_all(agreed.of_others = variant);
        }
    }
    bool refuses_elements() const { return holds_list(r) && agreed.of(r) < 0; }
    bool tracks() const { return is_tracking(D); }
    /// With flags of its own where they are wanted.
    Tree draw(bool has_flags = false) { return test::draw(r, agreed, random, has_flags); }
    Instance* create() { return ops.create(D, D.set_id()); }
    void destroy(Instance* x) { ops.destroy(D, D.set_id(), x); }
    /// An Instance that is filled with a tree, which notes the setters' marks.
    Instance* make(Tree& t) {
        Instance* x = create();
        fill(D, t, x);
        EXPECT_EQ(D.st, 0u);
        return x;
    }
    Writer written(const Tree& t, std::size_t room = 1 << 16, bool is_bound = true) const {
        return test::written(t, agreed, tracks(), room, is_bound);
    }
    Receipt receipt(bool has_flags, bool is_reuse = false, bool is_of_xml = false) const {
        return {agreed, static_cast<std::uint8_t>(tracks() ? 2 : 0), has_flags, is_reuse, is_of_xml};
    }
    Tree received(const Tree& sent) const { return receipt(tracks()).fresh(sent); }
    std::uint32_t read(Instance* x, std::string_view image, bool is_reuse = false) {
        return ops.unmarshal(D, D.set_id(), image.data(), x, static_cast<std::int32_t>(image.size()), is_reuse, &D.st);
    }
    std::uint32_t write(const Instance* x, char* to, std::size_t room) {
        return ops.marshal(D, D.set_id(), to, x, static_cast<std::int32_t>(room), &D.st);
    }
    std::string image_of(const Instance* x) {
        std::string image(1 << 16, '\xEE');
        image.resize(write(x, image.data(), image.size()));
        return image;
    }
    /// What the operations say of an Instance, in front of its XML.
    std::string shown(Instance* x) {
        x->flags ^= ZUR_EMBEDDED; // does not travel
        D->last_error = 77;       // is cleared first
        const std::string image = image_of(x);
        x->flags ^= ZUR_EMBEDDED;
        EXPECT_EQ(D->last_error, D.st);
        const std::uint32_t status = std::exchange(D.st, 0);
        return text_of(ops.len(D, D.set_id(), x), status, image, ops.printed(D, x, 3, "n"));
    }
    /// Whatever it holds, what it sends is read to an Instance of which all operations say the same.
    std::string expect_sound(Instance* x) {
        D.st = 0;
        const std::string text = shown(x);
        std::string xml = ops.xml(D, x, "n", 9);
        // A Domain that tracks asks elements that were never set up for their flags.
        EXPECT_TRUE(D.st == 0 || (tracks() && D.st == 22)) << D.st;
        if (std::exchange(D.st, 0) != 0) xml.clear();
        const std::string image = image_of(x);
        if (std::exchange(D.st, 0) != 0) return text + xml;
        Instance* copy = create();
        EXPECT_EQ(read(copy, image), image.size());
        EXPECT_EQ(shown(copy), text);
        EXPECT_EQ(D.st, 0u);
        destroy(copy);
        return text + xml;
    }
    /// The operations say what the model says of the tree.
    void expect_holds(Instance* x, const Tree& t, bool knows_hidden = true) {
        const Writer out = written(t);
        EXPECT_EQ(shown(x), text_of(length_of(t, tracks()), out.st, out.written(), test::shown(t, "n", 3)));
        D->last_error = 77;
        EXPECT_EQ(ops.xml(D, x, "n", 9), test::shown(t, "n", -1, 9));
        EXPECT_EQ(D->last_error, 0u);
        EXPECT_TRUE(!knows_hidden || ops.hash(x, 77) == hash(t, 77));
        EXPECT_EQ(D.st, 0u);
    }

private:
    static std::string text_of(std::size_t length, std::uint32_t status, const std::string& image,
                               const std::string& print) {
        return std::to_string(length) + " bytes, status " + std::to_string(status) + "\n" + hex(image) + "\n" + print;
    }
};

class Model : public testing::Test {
protected:
    void SetUp() override { heap().reset(); }
    GuardedBuffer guarded;

    /// Runs with every record, variant, mode and seed, until one fails.
    static void for_each_case(const std::vector<Mode>& modes, unsigned times, const std::function<void(Case&)>& body) {
        const char* const wanted = std::getenv("EPM_MODEL_SEEDS");
        if (wanted != nullptr) times *= static_cast<unsigned>(std::stoul(wanted));
        for (const Record* r : catalogue::all_records)
            for (int variant = -1; variant <= r->top(); ++variant)
                for (unsigned seed = 0; seed < times; ++seed)
                    for (const Mode& mode : modes) {
                        if (HasFailure()) return;
                        SCOPED_TRACE(r->name + (", variant " + std::to_string(variant)) + ", seed " +
                                     std::to_string(seed) + ", " + mode.text());
                        body(*std::make_unique<Case>(*r, variant, mode, seed));
                        EXPECT_EQ(heap().blocks().size(), 0u) << "lost";
                        heap().reset();
                    }
    }
};

// Each message goes by what is agreed at that moment.
TEST_F(Model, FillsShowsSendsAndReads) {
    for_each_case(all_modes(), 1, [](Case& c) {
        Tree t = c.draw();
        Instance* x = c.make(t);
        const auto send = [&] {
            c.expect_holds(x, t);
            Instance* y = c.create();
            EXPECT_EQ(y->variant, c.agreed.of(c.r));
            if (const Writer out = c.written(t); out.st == 0) {
                EXPECT_EQ(c.read(y, out.written()), out.used);
                c.expect_holds(y, c.received(t));
                EXPECT_EQ(y->type_info, x->type_info);
            }
            c.destroy(y);
        };
        send();
        Instance* y = c.create();
        const XmlDocument document = sound_xml(shown(t, c.type, -1));
        const bool lacks_last_text = !t.shows(c.r.count - 1) && c.r.fields[c.r.count - 1].kind == Kind::text;
        EXPECT_EQ(c.ops.read(c.D, document.get(), y), lacks_last_text ? 2u : 0u);
        c.expect_holds(y, c.receipt(false, false, true).fresh(t));
        c.destroy(y);
        for (int n = 0; n < 4; ++n) c.agree_more(n == 0), send();
        c.destroy(x);
    });
}

// A used Instance reads images of other shapes and variants, one after the other, and each once more with other content
// of the same lengths, which is kept in place.
TEST_F(Model, ReadsIntoUsedInstances) {
    for_each_case(all_modes(), 1, [](Case& c) {
        if (c.refuses_elements()) return;
        Tree held = blank(c.r, c.agreed);
        Instance* x = c.create();
        for (int n = 0; n < 4; ++n) {
            const bool has_flags = !c.random.once_in(3);
            const bool is_reuse = n == 2 || c.random.once_in(2) || holds_array_of_records(c.r);
            c.agreed.by_type[c.type] = static_cast<int>(c.random.below(4)) - (n < 3 && !holds_list(c.r));
            Tree sent = n == 2 ? blank(c.r, c.agreed) : c.draw(true);
            for (const bool is_near : {false, true}) {
                const Writer out = test::written(sent, c.agreed, has_flags);
                if (out.st != 0) break;
                const std::size_t allocations = heap().allocations();
                EXPECT_EQ(c.read(x, out.written(), is_near || is_reuse), out.used);
                EXPECT_TRUE(!is_near || !is_reuse || heap().allocations() == allocations ||
                            holds_array_of_records(c.r));
                c.receipt(has_flags && c.tracks(), is_near || is_reuse).receive(held, sent);
                c.agreed.conclude(c.D);
                c.expect_holds(x, held);
                for (std::size_t i = 0; i < sent.cells.size(); ++i) sent.change_end(i, sent.cells[i]);
            }
        }
        c.destroy(x);
    });
}

TEST_F(Model, Clones) {
    for_each_case(tracking_modes(), 2, [](Case& c) {
        Tree t = c.draw();
        Instance* x = c.make(t);
        // The outermost record is not bound by what has been agreed since.
        c.agree(static_cast<int>(c.random.below(3)) - !holds_list(c.r));
        const Writer out = c.written(t, 1 << 16, false);
        std::string workspace(1 << 16, '\0');
        workspace.resize(whole<std::uint32_t>(c.D, c.type, "marshal_for_clone", static_cast<void*>(workspace.data()),
                                              static_cast<const Instance*>(x), 1 << 16));
        EXPECT_EQ(hex(workspace), hex(out.written()));
        EXPECT_EQ(std::exchange(c.D.st, 0), out.st);
        workspace.resize(workspace.size() + 2); // the last flag of a list needs room for two
        const Writer bound = c.written(t, workspace.size());
        EXPECT_EQ(c.write(x, workspace.data(), workspace.size()), bound.used);
        EXPECT_EQ(std::exchange(c.D.st, 0), bound.st);
        const bool is_above = t.variant == c.r.top() && c.random.once_in(2); // as a store may hold it
        if (is_above) x->variant = static_cast<std::int8_t>(++t.variant);
        Instance* copy = x; // what the place held is cleared first
        whole(c.D, c.type, "clone", static_cast<const Instance*>(x), static_cast<void*>(&copy),
              static_cast<void*>(workspace.data()), static_cast<std::int32_t>(workspace.size()));
        EXPECT_EQ(std::exchange(c.D.st, 0), out.st);
        EXPECT_EQ(copy != nullptr, out.st == 0);
        if (is_above) x->variant = static_cast<std::int8_t>(--t.variant);
        c.agree(t.variant);
        if (copy != nullptr) c.expect_holds(copy, c.received(t));
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
            const Enum* tags = c.r.fields[0].enumeration;
            if (c.r.is_union() && near.cells[0].number >= tags->accepted(static_cast<std::int8_t>(c.agreed.of(*tags))))
                continue;
            Instance* y = c.make(near);
            EXPECT_EQ(order_of(compare(t, near), 0), order_of(c.ops.compare(x, y), 0));
            EXPECT_EQ(order_of(compare(near, t), 0), order_of(c.ops.compare(y, x), 0));
            EXPECT_EQ(c.ops.hash(y, 5), hash(near, 5));
            c.destroy(y);
        }
        EXPECT_EQ(c.ops.compare(x, x), 0);
        EXPECT_EQ(c.ops.compare(x, nullptr), 1);
        EXPECT_EQ(c.ops.compare(nullptr, x), -1);
        EXPECT_EQ(c.ops.compare(nullptr, nullptr), 0);
        EXPECT_EQ(c.ops.hash(nullptr, 5), 5u);
        // The length of nothing is that of a fresh record in variant 0, less what only a record has.
        Tree nothing = blank(c.r, {.of_others = 0, .by_type = {}});
        for (std::size_t i = 0; i < c.r.count; ++i)
            if (c.r.fields[i].kind == Kind::run) nothing.cells[i].bytes.clear();
        EXPECT_EQ(c.ops.len(c.D, c.D.set_id(), nullptr), length_of(nothing, false));
        c.destroy(x);
    });
}

// Every byte, the result and the status, whatever room there is; of long images and texts most rooms are left out. A
// text that does not fit is cut, terminated and told; one byte more than its length is enough.
TEST_F(Model, WritesAndShowsInEveryRoom) {
    for_each_case(tracking_modes(), 2, [&](Case& c) {
        Tree t = c.draw();
        Instance* x = c.make(t);
        std::size_t whole = c.written(t).used;
        for (std::size_t room = 0; room <= whole + 1 && !HasFailure();
             room += whole < 400 || room > whole - 20 ? 1 : 17) {
            const Writer wanted = c.written(t, room);
            char* buffer = guarded.last(room + 1);
            std::memset(buffer, '\xEE', room + 1);
            EXPECT_EQ(c.write(x, buffer, room), wanted.used) << room;
            EXPECT_EQ(std::exchange(c.D.st, 0), wanted.st) << room;
            EXPECT_EQ(hex({buffer, room + 1}), hex(wanted.buffer)) << room;
        }
        const char* const name = c.type.c_str();
        for (const bool is_xml : {false, true}) {
            const std::string text = shown(t, name, is_xml ? -1 : 0);
            whole = text.size();
            for (std::uint32_t size = 0; size <= whole + 1 && !HasFailure();
                 size += whole < 1500 || size + 50 > whole ? 1 : 97) {
                const bool fits = size > whole;
                char* buffer = guarded.last(size);
                const std::uint32_t length = is_xml ? c.ops.to_xml(c.D, 1, name, buffer, x, size, 0, &c.D.st)
                                                    : c.ops.print(c.D, 1, buffer, 0, name, x, size, &c.D.st);
                EXPECT_EQ(std::exchange(c.D.st, 0), fits ? 0u : 28u) << size;
                EXPECT_TRUE(fits ? length == whole : length <= size) << size;
                EXPECT_TRUE((is_xml && !fits) || text.starts_with(std::string_view(buffer, length)));
                EXPECT_TRUE(size == 0 || is_xml || buffer[length] == 0);
                EXPECT_TRUE(guarded.is_clean_before(size));
            }
        }
        c.destroy(x);
    });
}

// From a build of one level to one of another, and back: a record is always read whole, with one trace if the reader
// does not know all of it, and one for each record of a future variant. Ids count the fields that the reader knows, and
// each later variant opens with an id that stands for no field.
TEST_F(Model, HopsBetweenLevels) {
    for_each_case(tracking_modes(), 2, [](Case& c) {
        const int top = c.r.top();
        const catalogue::Layout layout = catalogue::lay_out(c.r);
        const auto is_valid =
            operation<std::uint32_t(zur_domain*, Instance*, std::uint32_t, std::uint32_t)>(c.r, "is_valid_cr");
        for (int level = 0; level <= top; ++level) {
            Tree held = c.draw(c.tracks());
            const Writer out = c.written(held);
            if (out.st != 0) continue;
            std::string image = out.written();
            const int variant = c.agreed.by_type[c.type];
            c.agree(top); // which a reader does not look at
            Traces traces;
            Writer future(1 << 16, c.agreed, c.tracks());
            future.is_of_future = true;
            future.record(held, true);
            Instance* x = c.create();
            EXPECT_EQ(c.read(x, future.written()), future.used);
            EXPECT_EQ(std::ranges::count(traces.take(), '\n'), future.later);
            c.expect_holds(x, c.received(held));
            c.destroy(x);
            for (const int reader : {level, top}) {
                Tree known = held;
                known.variant = std::min(held.variant, reader);
                const bool skips = c.written(known).used != image.size();
                // An Instance as a build makes it that knows the type up to a variant only.
                x = c.create();
                x->layout_variant = static_cast<std::int8_t>(reader);
                x->variant = std::min(x->variant, x->layout_variant);
                void* block = reinterpret_cast<char*>(x) + layout.body[static_cast<std::size_t>(reader)];
                if (c.tracks()) std::memset(block, 0, layout.block[static_cast<std::size_t>(reader)]);
                if (c.tracks()) whole(c.D, c.type, "offset_update", x, block);
                EXPECT_EQ(c.read(x, image), image.size());
                const std::string told = traces.take();
                EXPECT_EQ(std::ranges::count(told, '\n'), skips) << told;
                EXPECT_EQ(told.find("offset_jump read_len ") != std::string::npos, skips) << told;
                Tree got = blank(c.r, c.agreed);
                got.variant = reader;
                c.receipt(c.tracks()).receive(got, held, reader);
                c.expect_holds(x, got, !c.tracks() || reader == top); // flags lie where later fields would
                for (const std::uint32_t is_any : {0u, 1u}) {
                    const int limit = is_any != 0 || top == 0 ? top : got.variant;
                    const auto is_known = [&](const Field& f) { return f.name != nullptr && f.since <= limit; };
                    const auto ids = std::ranges::count_if(c.r.fields, is_known) + limit;
                    for (std::uint32_t id = 0; id < 20; ++id) EXPECT_EQ(is_valid(c.D, x, id, is_any), id < ids) << id;
                }
                c.destroy(x);
                held = got;
                image = c.written(held).written();
            }
            c.agreed.by_type[c.type] = variant;
        }
    });
}

// Bytes that end early, and bytes that are wrong: whatever was read is a sound Instance, does not depend on what the
// heap held before or whether plain steps were taken, and reads the whole image again.
TEST_F(Model, SurvivesDamagedBytes) {
    for_each_case(tracking_modes(), 1, [&](Case& c) {
        if (c.refuses_elements()) return;
        const Writer out = c.written(c.draw(c.tracks()));
        const std::string image = out.written();
        if (out.st != 0) return;
        const std::size_t alive = heap().blocks().size();
        Instance* used = c.create();
        c.read(used, image, true);
        const auto read = [&](std::string_view bytes) {
            char* exact = guarded.last(bytes.size() + c.tracks()); // a reader that tracks may look at one more
            std::memcpy(exact, bytes.data(), bytes.size());
            const auto take = [&](Instance* x, bool is_reuse) {
                heap().refuse_beyond(1 << 14);
                const std::uint32_t taken = c.read(x, {exact, bytes.size()}, is_reuse);
                heap().stop_refusing();
                return "used " + std::to_string(taken) + ", status " + std::to_string(std::exchange(c.D.st, 0)) + "\n";
            };
            const bool is_reuse = holds_array_of_records(c.r) || c.random.once_in(2);
            const bool is_thorough = c.random.once_in(bytes.size() < 300 ? 2 : 12);
            std::string shown_first;
            for (const std::uint8_t byte : {std::uint8_t{0xA5}, std::uint8_t{0x5A}}) {
                heap().fill_with(byte);
                Instance* fresh = c.create();
                std::uintptr_t& agreed = c.D->variant_context.opaque[ZUR_PLAIN_AGREEMENT];
                const std::uintptr_t before = agreed;
                if (byte == 0x5A) agreed = 0; // now every step is a call
                std::string shown = take(fresh, is_reuse);
                agreed = before;
                EXPECT_TRUE(bytes.size() > 5 || shown.ends_with("status 90\n"));
                if (is_thorough) shown += c.expect_sound(fresh);
                EXPECT_TRUE(byte == 0xA5 || shown == shown_first) << shown_first << shown;
                shown_first = shown;
                c.destroy(fresh);
            }
            take(used, true);
            EXPECT_EQ(c.read(used, image, true), image.size());
            EXPECT_EQ(c.D.st, 0u);
        };
        for (std::size_t at = 0; at < image.size() && !HasFailure(); at += image.size() < 600 ? 1 : 7) {
            read({image.data(), at});
            std::string damaged = image;
            damaged[at] = static_cast<char>(damaged[at] + 1 + static_cast<int>(c.random.below(255)));
            read(damaged);
        }
        // From an older peer: what only later ones know is released.
        c.read(used, std::string(1, 0) + image.substr(1), true);
        c.expect_sound(used);
        c.destroy(used);
        EXPECT_EQ(heap().blocks().size(), alive);
    });
}

// One allocation is refused, or all from there on: the status says so, and the Instance is sound.
TEST_F(Model, SurvivesRefusedMemory) {
    for_each_case(tracking_modes(), 1, [](Case& c) {
        Tree t = c.draw();
        const Writer out = c.written(t);
        const std::string image = out.written();
        const XmlDocument document = sound_xml(shown(t, c.type, -1));
        const std::vector<std::function<void(Instance*)>> acts = {
            [&](Instance* x) { fill(c.D, t, x); },
            [&](Instance* x) { c.D.st = c.ops.read(c.D, document.get(), x); },
            [&](Instance* x) { c.read(x, image); },
        };
        const std::size_t alive = heap().blocks().size();
        for (std::size_t act = 0; act < (out.st == 0 ? 3 : 2); ++act)
            for (const bool is_once : {true, false}) {
                bool is_refused = true;
                for (std::size_t n = 1; !HasFailure() && is_refused; n += n < 20 ? 1 : 7) {
                    // A message may bring a higher variant than the Instance's.
                    if (act == 2 && is_once) platform_domain_agree_all(c.D, -2);
                    Instance* x = c.create();
                    platform_domain_clear_agreement(c.D);
                    const std::size_t refusals = heap().refusals();
                    is_once ? heap().refuse_nth(n) : heap().refuse_from(n);
                    acts[act](x);
                    heap().stop_refusing();
                    is_refused = heap().refusals() != refusals;
                    EXPECT_TRUE(!is_refused || c.D.st == 12) << " act " << act << " at " << n << ": " << c.D.st;
                    c.D.st = 0;
                    c.expect_sound(x);
                    c.destroy(x);
                    EXPECT_EQ(heap().blocks().size(), alive) << " act " << act << " at " << n;
                }
            }
    });
}

// Tracked onto untracked and the other way round, by a Domain whose handle comes and goes. An untracked record is sent
// with flags of zero where the Domain tracks. While it tracks, it refuses an untracked destination and leaves it
// unchanged. Otherwise the flags that describe the memory stay with it, nested ones too.
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
                const std::string before(reinterpret_cast<char*>(to), heap().blocks().at(to));
                const std::uint8_t flags = to->flags;
                track(is_tracking);
                EXPECT_EQ(hex(c.image_of(from)), hex(c.written(t).written()));
                c.D.st = 0;
                whole(c.D, c.type, "set", to, from);
                const bool is_refused = is_source_tracked && is_tracking;
                EXPECT_EQ(std::exchange(c.D.st, 0), is_refused ? 22u : 0u);
                EXPECT_TRUE(!is_refused || std::string(reinterpret_cast<char*>(to), before.size()) == before);
                EXPECT_EQ((to->flags ^ flags) & (ZUR_TRACKED | ZUR_MOVED_FLAGS), 0);
                for (const bool mode : {!is_source_tracked, false}) track(mode), c.expect_sound(to);
                c.destroy(from);
                c.destroy(to);
            }
        track(true);
    });
}

// Where the runtime offers no runs of primitives, each element is written by itself. Where it has declared numbers
// plain, they are written without a call.
TEST_F(Model, NumbersAreWrittenAsTheRuntimeOffers) {
    Case c(catalogue::orlan_ial_vlan_group_info, 0, {}, 0);
    c.agreed = {};
    c.agreed.conclude(c.D);
    Tree t = blank(c.r, c.agreed);
    t.cells[c.r.index_of("vlans")].bytes.resize(12);
    Instance* x = c.make(t);
    Recorder recorder(c.D);
    c.image_of(x);
    const std::string calls = recorder.take();
    EXPECT_EQ(calls.find("u_int32_marshal_run(") == calls.npos, dlsym(RTLD_DEFAULT, "u_int32_marshal_run") == nullptr);
    EXPECT_EQ(calls.find("u_int32_marshal(") == calls.npos, declares_plain);
    c.destroy(x);
}

} // namespace
} // namespace epm::test
