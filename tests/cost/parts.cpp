// What a whole-record operation costs follows from what the record is made of: a constant for each part, the same in
// every record. The constants are solved for from all records, and every record must then cost exactly their sum.
#include "access/bulk_fields.hpp"
#include "cost/cost.hpp"
#include "frame/instance.hpp"
#include "support/fill.hpp"
#include "support/text.hpp"
#include "support/wire.hpp"

#include <cmath>
#include <cstring>
#include <map>
#include <numeric>

namespace epm::test::cost {

namespace {

#define EPM_PARTS(PART)                                                                                                \
    PART(the_record, "the record itself")                                                                              \
    PART(further_variant, "each variant above 0")                                                                      \
    PART(a_number, "number")                                                                                           \
    PART(imported_enumeration, "imported enumeration")                                                                 \
    PART(an_enumeration, "enumeration")                                                                                \
    PART(an_enumerator_before, "each enumerator in front of its value")                                                \
    PART(an_object, "imported object")                                                                                 \
    PART(a_placed_object, "imported object with state flags of its own")                                               \
    PART(a_placed_object_deeper, "the same in an embedded record, besides")                                            \
    PART(a_text, "text")                                                                                               \
    PART(an_empty_text, "text, empty")                                                                                 \
    PART(some_characters, "characters")                                                                                \
    PART(a_run, "run of bytes")                                                                                        \
    PART(an_empty_array_of_numbers, "array of numbers, empty")                                                         \
    PART(an_array_of_numbers, "array of numbers")                                                                      \
    PART(an_element_number, "each number in it")                                                                       \
    PART(an_empty_array_of_records, "array of records, empty")                                                         \
    PART(an_array_of_records, "array of records")                                                                      \
    PART(an_element_record, "each record in it")                                                                       \
    PART(an_element_pair, "each pair of records in it")                                                                \
    PART(an_embedded_record, "embedded record")                                                                        \
    PART(a_list, "list")                                                                                               \
    PART(a_list_element, "each record in it")                                                                          \
    PART(the_arms, "nine arms, one of them set")                                                                       \
    PART(a_flag_elsewhere, "each state flag that is not at the end of its record")

#define EPM_PART(part, name) part,
enum Part : std::size_t { EPM_PARTS(EPM_PART) number_of_parts };

using Counts = std::array<int, number_of_parts>;

template <class T>
T at(const void* base, std::size_t offset) {
    T value;
    std::memcpy(&value, static_cast<const char*>(base) + offset, sizeof value);
    return value;
}

/// How an operation goes through a record: into its own fields, into embedded records too, or into all that it owns;
/// and whether it makes the records that are owned, in the way of the wire or of XML.
enum class Depth { own, embedded, whole };
enum class Makes { nothing, from_wire, from_xml };

struct Walk {
    Depth depth = Depth::whole;
    Makes makes = Makes::nothing;
};

struct Census {
    Counts parts{};
    /// Those of records that are created, destroyed and moved on the way.
    Counts created{}, destroyed{}, moved{};
};

constexpr char nothing[1024] = {};

void count(const Record& r, const void* x, Part frame, Walk walk, Census& census);

/// Adds what a record is made of that has just been made.
void add_fresh(Counts& counts, const Record& r, Part frame) {
    Census fresh;
    count(r, nothing, frame, {}, fresh);
    for (std::size_t i = 0; i < number_of_parts; ++i) counts[i] += fresh.parts[i];
}

/// Adds what the record in memory is made of. Lengths go with the fields that they are of.
void count(const Record& r, const void* x, Part frame, Walk walk, Census& census) {
    Counts& parts = census.parts;
    const catalogue::Layout l = catalogue::lay_out(r);
    // From XML an element is read on its own and then moved.
    const bool is_elsewhere =
        frame == an_embedded_record || (frame == an_element_record && walk.makes != Makes::from_xml);
    ++parts[frame];
    parts[further_variant] += r.top();
    if (r.is_union()) ++parts[the_arms];
    for (std::size_t i = 0; i < r.count; ++i) {
        const Field& f = r.fields[i];
        const auto* place = static_cast<const char*>(x) + l.offset[i];
        const auto* held = f.kind == Kind::text || f.kind == Kind::array || f.kind == Kind::arm || f.kind == Kind::list
                               ? at<const char*>(place, 0)
                               : nullptr;
        const bool is_record = f.is_of_record();
        const auto element = [&](const char* e, Part as) {
            if (walk.depth == Depth::whole)
                count(*f.record, e, as, walk, census);
            else
                ++parts[as];
        };
        int flags = f.is_tracked() && walk.makes == Makes::nothing ? 1 : 0;
        switch (f.kind) {
        case Kind::length: break;
        case Kind::value:
            ++parts[f.is_own_enum() ? an_enumeration : f.is_enumerated() ? imported_enumeration : a_number];
            if (f.is_own_enum()) parts[an_enumerator_before] += at<int>(place, catalogue::header_length);
            break;
        case Kind::object:
            ++parts[f.is_placed_object() ? a_placed_object : an_object];
            if (f.is_placed_object() && is_elsewhere) ++parts[a_placed_object_deeper];
            break;
        case Kind::text:
            ++parts[held != nullptr ? a_text : an_empty_text];
            if (walk.makes == Makes::from_xml && held != nullptr) flags = 1;
            break;
        case Kind::characters: ++parts[some_characters]; break;
        case Kind::run: ++parts[a_run]; break;
        case Kind::embedded:
            if (walk.depth != Depth::own) count(*f.record, place, an_embedded_record, walk, census);
            break;
        case Kind::arm:
            if (held == nullptr || at<std::uint32_t>(x, l.offset[0] + catalogue::header_length) != f.tag) break;
            element(held, the_record);
            --parts[the_record];
            if (walk.makes != Makes::nothing) add_fresh(census.created, *f.record, the_record);
            break;
        case Kind::array: {
            const auto n = at<int>(x, l.offset[r.index_of(f.companion)]);
            ++parts[(is_record ? an_empty_array_of_records : an_empty_array_of_numbers) + (held != nullptr)];
            if (!is_record) parts[an_element_number] += n;
            if (is_record) parts[an_element_pair] += n * (n - 1) / 2;
            for (int e = 0; is_record && e < n; ++e) {
                const char* at_element =
                    held + static_cast<std::size_t>(e) * catalogue::lay_out(*f.record).size(*f.record);
                element(at_element, an_element_record);
                if (walk.makes != Makes::nothing) add_fresh(census.created, *f.record, an_embedded_record);
            }
            for (int e = 0; is_record && walk.makes == Makes::from_xml && e <= n; ++e) {
                add_fresh(census.created, *f.record, the_record);
                add_fresh(census.destroyed, *f.record, the_record);
                if (e != n) add_fresh(census.moved, *f.record, an_embedded_record);
            }
            if (walk.makes != Makes::from_wire) flags = walk.makes == Makes::from_xml ? 2 * n : n;
            break;
        }
        case Kind::list: {
            int n = 0;
            for (const char* e = held; e != nullptr && e != place; ++n) {
                element(e, a_list_element);
                if (walk.makes != Makes::nothing) add_fresh(census.created, *f.record, the_record);
                e = at<const char*>(e, catalogue::lay_out(*f.record).links + 8u);
            }
            ++parts[a_list];
            if (walk.makes == Makes::from_xml) {
                add_fresh(census.created, *f.record, the_record);
                add_fresh(census.destroyed, *f.record, the_record);
            }
            flags = n;
            break;
        }
        }
        if (is_elsewhere) parts[a_flag_elsewhere] += flags;
    }
}

/// One measurement: what was there, and what it cost.
struct Equation {
    Census census;
    long calls;
    long allocations;
    std::string text;
};
using Equations = std::map<std::string, std::vector<Equation>>;

long sum_of(const Counts& counts, const std::vector<long>& constants) {
    return std::inner_product(counts.begin(), counts.end(), constants.begin(), 0L);
}

/// The constants that satisfy all equations; a part that never occurs costs nothing. Small records come first, so that
/// a part is solved for where few others occur, and the large ones only have to agree.
std::vector<long> solve(std::vector<Equation> equations, long Equation::*cost) {
    std::ranges::stable_sort(equations, {}, [](const Equation& e) {
        return std::ranges::count_if(e.census.parts, [](int n) { return n != 0; });
    });
    using Row = std::array<double, number_of_parts + 1>;
    std::array<std::optional<Row>, number_of_parts> solved; // by the part that the row is solved for
    for (const Equation& e : equations) {
        Row row;
        std::ranges::copy(e.census.parts, row.begin());
        row.back() = static_cast<double>(e.*cost);
        const auto subtract = [](Row& from, const Row& other, std::size_t part) {
            const double factor = from[part];
            for (std::size_t k = 0; k < from.size(); ++k) from[k] -= factor * other[k];
        };
        for (std::size_t part = 0; part < number_of_parts; ++part)
            if (solved[part]) subtract(row, *solved[part], part);
        const auto pivot =
            std::max_element(row.begin(), row.end() - 1, [](double a, double b) { return std::abs(a) < std::abs(b); });
        if (std::abs(*pivot) < 1e-6) continue;
        const auto part = static_cast<std::size_t>(pivot - row.begin());
        const double scale = *pivot;
        for (double& number : row) number /= scale;
        for (auto& other : solved)
            if (other) subtract(*other, row, part);
        solved[part] = row;
    }
    std::vector<long> constants(number_of_parts, 0);
    for (std::size_t part = 0; part < number_of_parts; ++part) {
        if (solved[part]) constants[part] = std::lround(solved[part]->back());
        const bool occurs =
            std::ranges::any_of(equations, [&](const Equation& e) { return e.census.parts[part] != 0; });
        EXPECT_EQ(occurs, solved[part].has_value()) << "nothing tells the cost of a " << part_names()[part];
    }
    for (const Equation& e : equations) {
        EXPECT_EQ(sum_of(e.census.parts, constants), e.*cost) << e.text << " does not cost what its parts do";
    }
    return constants;
}

/// All operations of one record, with its fields set from a seed, or with none set.
void measure(const Record& r, TestDomain& D, unsigned seed, Equations& equations) {
    const WireType& wire = wire_type(r.name);
    const TextOperations text(r.name);
    const auto tell = [&](const std::string& operation, const Instance* const& subject, auto f) {
        Census census;
        const Walk walk = {operation.ends_with("_all") ? Depth::own
                           : operation == "set"        ? Depth::embedded
                                                       : Depth::whole,
                           operation == "unmarshal" || operation == "clone" ? Makes::from_wire
                           : operation == "from_xml"                        ? Makes::from_xml
                                                                            : Makes::nothing};
        const bool is_taken = operation == "set" || operation == "destroy";
        if (operation == "clone") add_fresh(census.created, r, the_record);
        if (is_taken) count(r, subject, the_record, walk, census);
        const Cost cost = cost_of(f);
        if (!is_taken) count(r, subject, the_record, walk, census);
        if (operation == "set_all" && r.is_union()) --census.parts[an_enumeration]; // an arm selects itself
        const std::string text_of =
            operation + " of " + r.name + ", " + D.mode().text() + ", seed " + std::to_string(seed);
        equations[operation].push_back(
            {census, static_cast<long>(cost.calls.size()), static_cast<long>(cost.allocations), text_of});
        EXPECT_EQ(D.st, 0u) << text_of;
    };
    const Instance* made = nullptr;
    tell("create", made, [&] { made = create(r.name, D); });
    auto* x = const_cast<Instance*>(made);
    EXPECT_TRUE(seed == 0 || Fill(D, seed).fill(r, x));
    for (std::size_t i = 0; i < r.count; ++i)
        if (r.fields[i].kind == Kind::array && r.fields[i].is_of_record())
            for (std::uint32_t more = 0; more < seed % 4; ++more) {
                Instance* source = create(r.fields[i].record->name, D);
                call(D, r, r.fields[i], "set", x, 3 + more, source, 1u);
                destroy(r.fields[i].record->name, D, source);
            }

    std::vector<std::uint64_t> numbers(r.count, 0);
    std::vector<void*> outs;
    std::vector<std::uint64_t> written;
    for (std::size_t i = 0; i < r.count; ++i) {
        if (access::is_read_at_once(r.fields[i])) outs.push_back(&numbers[i]);
        if (access::is_written_at_once(r, r.fields[i])) written.push_back(0);
    }
    tell("get_all", x, [&] { spread(D, r, "get_all", x, outs); });
    Instance* y = create(r.name, D);
    tell("set_all", y, [&] { spread(D, r, "set_all", y, written); });

    Bytes buffer(70000);
    const auto room = static_cast<std::int32_t>(buffer.size());
    std::uint32_t used = 0;
    tell("len", x, [&] { wire.len(D, D.set_id(), x); });
    tell("marshal", x, [&] { used = wire.marshal(D, D.set_id(), buffer.data(), x, room, &D.st); });
    const auto read = [&](const char* operation, auto f) {
        Instance* z = create(r.name, D);
        tell(operation, z, [&] { f(z); });
        EXPECT_EQ(text.compare(x, z), 0) << operation << " of " << r.name;
        wire.destroy(D, D.set_id(), z);
    };
    const auto sent = static_cast<std::int32_t>(used);
    read("unmarshal", [&](Instance* z) { wire.unmarshal(D, D.set_id(), buffer.data(), z, sent, 0, &D.st); });
    Instance* copy = nullptr;
    void* workspace = buffer.data();
    tell("clone", x, [&] { whole(D, r, "clone", made, &copy, workspace, room); });
    tell("compare", x, [&] { EXPECT_EQ(wire.compare(x, copy), 0); });
    tell("hash", x, [&] { wire.hash(x, 1); });
    tell("print", x, [&] { text.printed(D, x, 0, "x"); });
    std::string xml;
    tell("to_xml", x, [&] { xml = text.xml(D, x, r.name); });
    const XmlDocument document = sound_xml(xml);
    read("from_xml", [&](Instance* z) { EXPECT_EQ(text.read(D, document.get(), z), 0u); });
    tell("set", x, [&] { whole(D, r, "set", y, x); });
    tell("destroy", copy, [&] { wire.destroy(D, D.set_id(), copy); });
    wire.destroy(D, D.set_id(), x);
    wire.destroy(D, D.set_id(), y);
}

} // namespace

#define EPM_PART_NAME(part, name) name,
const std::vector<const char*>& part_names() {
    static const std::vector<const char*> names = {EPM_PARTS(EPM_PART_NAME)};
    return names;
}

std::vector<Parts> parts() {
    const char* const operations[] = {"create",    "destroy", "set",     "get_all", "set_all", "len",    "marshal",
                                      "unmarshal", "clone",   "compare", "hash",    "print",   "to_xml", "from_xml"};
    std::array<Equations, 2> equations;
    for (std::size_t mode = 0; mode < 2; ++mode)
        for (const Record* r : catalogue::all_records) {
            TestDomain D(modes()[mode]);
            // Without an arm a message has nothing to say.
            for (unsigned seed = r->is_union() ? 1 : 0; seed <= 9; ++seed) measure(*r, D, seed, equations[mode]);
        }
    std::vector<Parts> all;
    for (const char* name : operations) {
        Parts& of = all.emplace_back(Parts{name, {}, {}});
        for (std::size_t mode = 0; mode < 2; ++mode) {
            const auto sum = [&](Parts& p) -> Parts::Sum& { return mode == 0 ? p.untracked : p.tracked; };
            const auto less = [&](Equation e, long Equation::*cost, std::vector<long> Parts::Sum::*what) {
                const Counts* const included[] = {&e.census.created, &e.census.destroyed, &e.census.moved};
                for (std::size_t i = 0; i < 3 && all.size() > 3; ++i)
                    e.*cost -= sum_of(*included[i], sum(all[i]).*what);
                return e;
            };
            std::vector<Equation> by_calls, by_allocations;
            for (const Equation& e : equations[mode][name]) {
                by_calls.push_back(less(e, &Equation::calls, &Parts::Sum::calls));
                by_allocations.push_back(less(e, &Equation::allocations, &Parts::Sum::allocations));
            }
            sum(of) = {solve(by_calls, &Equation::calls), solve(by_allocations, &Equation::allocations)};
        }
    }
    return all;
}

} // namespace epm::test::cost
