// The page docs/cost.md lists what every operation costs in runtime calls and allocations. This test compares it with
// what the operations cost now. EPM_WRITE_COST=1 writes it anew; callers notice a number that grows there.
#include "cost/cost.hpp"
#include "support/heap.hpp"

#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

namespace epm::test::cost {
namespace {

using Names = std::vector<std::string>;

std::string joined(const Names& names, const std::string& between) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : between) + name;
    return text;
}

/// Calls in order. One word replaces the calls with which accessors begin; repetitions are counted.
std::string calls_text(Names calls) {
    const auto shorten = [&](const std::string& word, const Names& beginning) {
        for (auto at = calls.begin();
             (at = std::search(at, calls.end(), beginning.begin(), beginning.end())) != calls.end(); ++at) {
            at = calls.erase(at, at + static_cast<long>(beginning.size()));
            at = calls.insert(at, word);
        }
    };
    shorten("*write*", {"zur_clear_last_error", "zur_get_manifested_type_info", "zurlib_adjust_variant",
                        "zur_get_instance_variant"});
    shorten("*read*", {"zur_clear_last_error", "zur_get_instance_variant"});
    Names words;
    for (std::size_t i = 0, n = 1; i < calls.size(); i += n, n = 1) {
        while (i + n < calls.size() && calls[i + n] == calls[i]) ++n;
        const std::string word = calls[i].front() == '*' ? calls[i] : "`" + calls[i] + "`";
        words.push_back(word + (n > 1 ? " × " + std::to_string(n) : ""));
    }
    return words.empty() ? "none" : joined(words, ", ");
}

/// What is called beyond `base`, like with like.
Names further(const Cost& cost, const Cost& base) {
    std::map<std::string, int> known;
    for (const std::string& call : base.calls) ++known[call];
    Names more;
    for (const std::string& call : cost.calls) {
        if (known[call]-- > 0) continue;
        const auto last = std::find(more.rbegin(), more.rend(), call);
        more.insert(last == more.rend() ? more.end() : last.base(), call);
    }
    return more;
}

std::string row_text(const std::array<std::optional<Cost>, 3>& in) {
    std::string numbers;
    for (const auto& cost : in) numbers += (cost ? std::to_string(cost->calls.size()) : "–") + " | ";
    const Cost& base = in[0] ? *in[0] : *in[1];
    std::string allocations = std::to_string(base.allocations);
    if (in[1]->allocations != base.allocations) allocations += " / " + std::to_string(in[1]->allocations);
    std::string text = numbers + allocations + " | " + calls_text(base.calls);
    const char* const when[] = {"", "; tracked also ", "; with a store also "};
    for (const std::size_t mode : {1u, 2u})
        if (in[mode])
            if (const Names more = further(*in[mode], base); !more.empty()) text += when[mode] + calls_text(more);
    return text;
}

/// One row for all operations and fields of a kind that cost the same. Of the fields, those are named that cost
/// something else than most.
void write_accessors(std::ostream& page) {
    std::map<std::string, std::map<std::string, std::map<std::string, Names>>> fields; // by kind, operation, text
    Names kinds;
    std::map<std::string, Names> operations;
    const std::vector<Accessor> all = accessors();
    for (const Accessor& a : all) {
        if (!fields.contains(a.kind)) kinds.push_back(a.kind);
        if (!fields[a.kind].contains(a.operation)) operations[a.kind].push_back(a.operation);
        fields[a.kind][a.operation][row_text(a.in)].push_back(a.field);
    }
    for (const std::string& kind : kinds) {
        std::vector<std::pair<std::string, Names>> rows; // text, operations
        for (const std::string& operation : operations[kind]) {
            const auto& by_text = fields[kind][operation];
            std::vector<std::pair<std::string, Names>> cases(by_text.begin(), by_text.end());
            std::ranges::stable_sort(cases, std::greater(), [](const auto& c) { return c.second.size(); });
            for (const auto& [text, names] : cases) {
                const bool is_usual = &names == &cases.front().second && (cases.size() == 1 || names.size() > 3);
                const std::string label = operation + (is_usual ? "" : " (" + joined(names, ", ") + ")");
                auto row = std::ranges::find(rows, text, [](const auto& r) { return r.first; });
                if (row == rows.end()) row = rows.insert(row, {text, {}});
                row->second.push_back(label);
            }
        }
        page << "\n### " << kind << "\n\n| Operation | Calls | Tracked | Store | Allocations | Runtime calls |\n"
             << "|---|---:|---:|---:|---:|---|\n";
        for (const auto& [text, labels] : rows) page << "| " << joined(labels, "; ") << " | " << text << " |\n";
    }
    EXPECT_EQ(all.size(), 1289u) << "cases are missing";
}

void write_parts(std::ostream& page, const std::vector<Parts>& all, std::vector<long> Parts::Sum::*what) {
    std::vector<const Parts*> columns;
    for (const Parts& p : all)
        if (std::ranges::any_of((p.untracked.*what), [](long n) { return n != 0; })) columns.push_back(&p);
    page << "\n| |";
    for (const Parts* p : columns) page << " " << p->operation << " |";
    page << "\n|---|";
    for (std::size_t i = 0; i < columns.size(); ++i) page << "---:|";
    for (std::size_t part = 0; part < part_names().size(); ++part) {
        std::string cells;
        bool is_nothing = true;
        for (const Parts* p : columns) {
            const long plain = (p->untracked.*what)[part];
            const long tracked = (p->tracked.*what)[part];
            is_nothing = is_nothing && plain == 0 && tracked == 0;
            if (plain != 0 || tracked != 0) cells += " " + std::to_string(plain);
            if (tracked != plain) cells += "/" + std::to_string(tracked);
            cells += " |";
        }
        if (!is_nothing) page << "\n| " << part_names()[part] << " |" << cells;
    }
    page << "\n";
}

TEST(Cost, IsWhatThePageTells) {
    heap().reset();
    std::ostringstream page;
    page << R"(# What operations cost

This page lists runtime calls (imported operations and Domain hooks, without traces) and allocations (`obj_alloc_fn`),
measured for every accessor of every field and for every record. The test `cost` fails when a number here is no longer
true; `EPM_WRITE_COST=1 build/release/bin/cost_test` rewrites the page.

All numbers are for a call that succeeds, in a Domain without a tracking handle. A second number, after a slash or in
the column *Tracked*, is for a Domain in tracked mode. If the runtime lacks the optional runs of primitives, a text or
run costs one codec call for each element on the wire instead of one for all.

## Whole records

In each operation a record costs the sum of its parts; the test checks this for every record. A length field is counted
with its text or array. If an operation creates other Instances on the way, they cost extra, as the columns `create`,
`set` and `destroy` say:

- `clone` creates the copy; `clone` and `unmarshal` create each arm and each record of a list, and set up each record of
  an array like an embedded one.
- `from_xml` creates the selected arm. For each list and array of records it creates one record more than it stores, and
  destroys that one. It sets up the records of an array like embedded ones, sets them from the records that it created,
  and destroys the latter.

`set`, `get_all` and `set_all` do not look into arms, lists and arrays; `get_all` and `set_all` do not look into
embedded records either.

Runtime calls:
)";
    const std::vector<Parts> all = parts();
    write_parts(page, all, &Parts::Sum::calls);
    page << "\nAllocations (operations that are not listed allocate nothing):\n";
    write_parts(page, all, &Parts::Sum::allocations);
    page << R"(
## Accessors, and enumerations by themselves

*Store* is a Domain with containment, a store and no tracking handle. *read* is short for `zur_clear_last_error`,
`zur_get_instance_variant`, the first calls of every reading accessor; *write* is short for `zur_clear_last_error`,
`zur_get_manifested_type_info`, `zurlib_adjust_variant`, `zur_get_instance_variant`. `<type>` is the field's imported
type. State flags exist in tracked mode only.
)";
    write_accessors(page);
    EXPECT_EQ(heap().blocks().size(), 0u) << "blocks that nobody has released";

    const std::string path = EPM_SOURCE_DIR "/docs/cost.md";
    if (std::getenv("EPM_WRITE_COST") != nullptr) std::ofstream(path) << page.str();
    const auto lines = [](auto&& in) {
        Names list;
        for (std::string line; std::getline(in, line);) list.push_back(line);
        return list;
    };
    const Names now = lines(std::istringstream(page.str()));
    const Names kept = lines(std::ifstream(path));
    EXPECT_EQ(now.size(), kept.size()) << path;
    for (std::size_t i = 0; i < std::min(now.size(), kept.size()); ++i)
        EXPECT_EQ(now[i], kept[i]) << path << ", line " << i + 1;
}

} // namespace
} // namespace epm::test::cost
