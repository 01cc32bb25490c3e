// Every accessor of every field is called where it succeeds, in each mode, and what it calls is kept.
#include "cost/cost.hpp"
#include "support/fill.hpp"
#include "support/text.hpp"
#include "support/wire.hpp"

#include <map>

namespace epm::test::cost {

namespace {

const char* const kinds[] = {
    "number",     "length",           "imported enumeration", "enumeration",      "imported object", "text",
    "characters", "array of numbers", "run of bytes",         "array of records", "embedded record", "arm",
    "list",       "state flag",       "enumeration by itself"};

class Sweep {
public:
    explicit Sweep(std::size_t mode) : mode_(mode), D(modes()[mode]) {}

    void run(std::map<std::string, std::vector<Accessor>>& rows) {
        rows_ = &rows;
        for (const Record* r : catalogue::all_records)
            for (std::size_t i = 0; i < r->count; ++i) {
                r_ = r;
                f_ = &r->fields[i];
                x = create(r->name, D);
                field();
                if (f_->is_tracked() && D.mode().is_tracking()) flags();
                destroy(r->name, D, x);
            }
        for (const Enum* e : catalogue::all_enums) enumeration(*e);
    }

private:
    template <class F>
    void tell(const std::string& kind, const std::string& field, const std::string& operation, F f) {
        D.st = 0;
        D->last_error = 0;
        Cost cost = cost_of(f);
        EXPECT_EQ(D.st | D->last_error, 0u) << field << " " << operation << ", " << D.mode().text();
        if (f_->foreign != nullptr)
            for (std::string& call : cost.calls)
                if (const std::string type = f_->foreign->name; call.starts_with(type + "_"))
                    call.replace(0, type.size(), "<type>");
        auto& of_kind = (*rows_)[kind];
        auto row = std::ranges::find_if(
            of_kind, [&](const Accessor& a) { return a.field == field && a.operation == operation; });
        if (row == of_kind.end()) row = of_kind.insert(row, {kind, operation, field, {}});
        row->in[mode_] = std::move(cost);
    }
    /// One call of an operation of the field; `label` is its name, and behind a comma the case.
    template <class Result = void, class... A>
    Result does(const std::string& label, A... arguments) {
        const std::string name = label.substr(0, label.find(','));
        if constexpr (std::is_void_v<Result>) {
            tell(kind_, place(), label, [&] { call(D, *r_, *f_, name, x, arguments...); });
        } else {
            Result result{};
            tell(kind_, place(), label, [&] { result = call<Result>(D, *r_, *f_, name, x, arguments...); });
            return result;
        }
    }
    template <class Result = std::uint32_t, class... A>
    void chained(const std::string& name, A... arguments) {
        tell(kind_, place(), name, [&] { operation<Result(zur_domain*, A...)>(*r_, *f_, name)(D, arguments...); });
    }
    void removes_elements() {
        tell(kind_, place(), "remove_elements", [&] { bare(D, *r_, std::string(f_->name) + "_remove_elements", x); });
    }
    void enumeration(const Enum& e) {
        const auto does = [&](const char* operation, auto f) { tell("enumeration by itself", e.name, operation, f); };
        const WireType& wire = wire_type(e.name);
        const TextOperations text(e.name);
        std::uint8_t buffer[8] = {};
        Instance* source = create(e.name, D);
        does("create", [&] { x = create(e.name, D); });
        does("get", [&] { bare<Instance*>(D, e, "get", x); });
        does("get_value", [&] { whole<std::uint32_t>(D, e, "get_value", x); });
        does("set", [&] { whole(D, e, "set", x, source); });
        does("set_value", [&] { whole(D, e, "set_value", x, 0u); });
        does("len", [&] { wire.len(D, D.set_id(), x); });
        does("marshal", [&] { wire.marshal(D, D.set_id(), buffer, x, sizeof buffer, &D.st); });
        does("unmarshal", [&] { wire.unmarshal(D, D.set_id(), buffer, x, sizeof buffer, 0, &D.st); });
        does("compare", [&] { wire.compare(x, source); });
        does("hash", [&] { wire.hash(x, 1); });
        does("print", [&] { text.printed(D, x, 0, "x"); });
        does("to_xml", [&] { text.xml(D, x, e.name); });
        const XmlDocument document = sound_xml(text.xml(D, x, e.name));
        does("from_xml", [&] { text.read(D, document.get(), x); });
        does("destroy", [&] { destroy(e.name, D, x); });
        destroy(e.name, D, source);
    }
    std::string place() const { return std::string(r_->name) + "." + f_->name; }

    void field() {
        const Field& f = *f_;
        switch (f.kind) {
        case Kind::length:
            kind_ = "length";
            does<void*>("get");
            return f.foreign->length == 2 ? void(does<std::uint16_t>("get_value"))
                                          : void(does<std::uint32_t>("get_value"));
        case Kind::value:
            kind_ = f.is_own_enum() ? "enumeration" : f.is_enumerated() ? "imported enumeration" : "number";
            if (f.is_enumerated()) return value<std::uint32_t>();
            switch (f.foreign->length) {
            case 1: return value<char>();
            case 2: return value<std::uint16_t>();
            case 8: return value<std::uint64_t>();
            default: return value<std::uint32_t>();
            }
        case Kind::object:
            kind_ = "imported object";
            does<void*>("get");
            return set_from_another();
        case Kind::text: return text<std::uint32_t>("text");
        case Kind::characters: return text<std::int32_t>("characters");
        case Kind::array: return f.is_of_record() ? records() : numbers();
        case Kind::run: return run_of_bytes();
        case Kind::embedded:
            kind_ = "embedded record";
            does<void*>("get");
            return set_from_another();
        case Kind::arm: return arm();
        case Kind::list: return list();
        }
    }

    template <class T>
    void value() {
        does<void*>("get");
        does<T>("get_value");
        set_from_another();
        does("set_value", T{0});
    }
    void set_from_another() {
        Instance* other = create(r_->name, D);
        if (f_->kind == Kind::embedded) Fill(D, 1).fill(*r_, other);
        does("set", call<void*>(D, *r_, *f_, "get", other));
        destroy(r_->name, D, other);
    }
    template <class Length>
    void text(const char* kind) {
        kind_ = kind;
        const char* const source = "abcde";
        char copy[80];
        does("set, the first text", source, Length{5});
        does("set, over a text", source, Length{5});
        chained("set_cr", x, source, Length{5});
        does("get", &copy[0], std::uint32_t{sizeof copy});
        does("set, to nothing", source, Length{0});
    }
    void numbers() {
        kind_ = "array of numbers";
        std::uint32_t some[4] = {1, 2, 3, 4};
        does("set, the first element", 0u, static_cast<void*>(some));
        does("set, one element more", 1u, static_cast<void*>(some));
        does("set, an element that is there", 1u, static_cast<void*>(some));
        chained("set_cr", x, 1u, 7u);
        does("set_value, one element more", 2u, 7u);
        does("set_value, an element that is there", 1u, 7u);
        does<void*>("get", 1u);
        does<std::uint32_t>("get_value", 1u);
        does("get_mem", static_cast<void*>(some), 3u);
        does("set_mem", static_cast<void*>(some), 4u);
        chained("set_mem_cr", x, static_cast<void*>(some), 4u);
        removes_elements();
        call(D, *r_, *f_, "set_value", x, 2u, 7u);
    }
    void run_of_bytes() {
        kind_ = "run of bytes";
        std::uint8_t some[4] = {1, 2, 3, 4};
        does("set", 1u, static_cast<void*>(some));
        does("set_value", 1u, std::uint8_t{7});
        does<void*>("get", 1u);
        does<std::uint8_t>("get_value", 1u);
        does("get_mem", static_cast<void*>(some), 4);
        does("set_mem", static_cast<void*>(some), 4);
        chained("set_mem_cr", x, static_cast<void*>(some), 4);
    }
    void records() {
        kind_ = "array of records";
        Instance* source = create(f_->record->name, D);
        const auto fill = [&] {
            Fill(D, 1).fill(*f_->record, source);
            return source;
        };
        does("set, the first element, moved", 0u, fill(), 1u);
        does("set, one element more, moved", 1u, fill(), 1u);
        // A move does not release what it replaces.
        const auto text = std::ranges::find(f_->record->fields, Kind::text, &Field::kind);
        call(D, *f_->record, *text, "set", call<Instance*>(D, *r_, *f_, "get", x, 1u), "", 0u);
        does("set, an element that is there, moved", 1u, fill(), 1u);
        fill();
        does("set, an element that is there, copied", 1u, source, 0u);
        chained("set_cr", x, 1u, source, 0u);
        does<void*>("get", 1u);
        removes_elements();
        call(D, *r_, *f_, "set", x, 2u, source, 0u);
        destroy(f_->record->name, D, source);
    }
    void arm() {
        kind_ = "arm";
        Instance* first = create(f_->record->name, D);
        Instance* second = create(f_->record->name, D);
        does("set, into an empty slot", first);
        does("set, over another", second);
        chained("set_cr", x, second);
        does<Instance*>("get");
        does<Instance*>("get_detach");
        does<Instance*>("get_detach, not selected");
        destroy(f_->record->name, D, first);
        destroy(f_->record->name, D, second);
    }
    void list() {
        kind_ = "list";
        Instance* e[5];
        for (Instance*& element : e) element = create(f_->record->name, D);
        does("set_first", e[0]);
        does("set_last", e[1]);
        does("set_before", e[1], e[2]);
        does("set_after", e[1], e[3]);
        chained("add_cr", x, e[4], std::int32_t{0}, e[1]);
        does<Instance*>("get_first");
        does<Instance*>("get_last");
        does<Instance*>("get_next", e[0]);
        does<Instance*>("get_prev", e[1]);
        does<std::uint32_t>("get_count");
        chained<Instance*>("get_cr", x, std::int32_t{1}, e[0]);
        tell(kind_, place(), "get_parent",
             [&] { EXPECT_EQ(call<Instance*>(D, *f_->record, *f_, "get_parent", e[0]), x); });
        does("remove", e[0]);
        chained("remove_cr", x, e[4]);
        destroy(f_->record->name, D, e[0]);
        destroy(f_->record->name, D, e[4]);
    }
    void flags() {
        kind_ = "state flag";
        if (!f_->has_element_flags()) {
            does<std::uint8_t>("state_flag_get");
            return does("state_flag_set", 2u);
        }
        std::uint8_t* flags = nullptr;
        does("state_flag_get_arr", &flags);
        const std::vector<std::uint8_t> some(256, 2);
        does<std::uint8_t>("state_flag_get, of an element", 1u);
        does("state_flag_set, of an element", 1u, 2u);
        does<std::uint8_t>("state_flag_whole_get");
        does("state_flag_whole_set", 2u);
        does("state_flag_set_arr", some.data(), f_->kind == Kind::run ? 256u : 3u);
    }

    std::size_t mode_;
    TestDomain D;
    std::map<std::string, std::vector<Accessor>>* rows_ = nullptr;
    const Record* r_ = nullptr;
    const Field* f_ = nullptr;
    std::string kind_;
    Instance* x = nullptr;
};

} // namespace

const std::array<Mode, 3>& modes() {
    static const std::array<Mode, 3> all = {
        Mode{}, {.tracking = ZUR_TRACKED_MODE}, {.store_mode = 1, .containment = true, .has_store = true}};
    return all;
}

std::vector<Accessor> accessors() {
    std::map<std::string, std::vector<Accessor>> rows;
    for (std::size_t mode = 0; mode < modes().size(); ++mode) Sweep(mode).run(rows);
    std::vector<Accessor> all;
    for (const char* kind : kinds) all.insert(all.end(), rows[kind].begin(), rows[kind].end());
    EXPECT_EQ(rows.size(), std::size(kinds));
    return all;
}

} // namespace epm::test::cost
