// One pass over a record's fields serves filling and checking, so that both draw the same values.
#include "support/fill.hpp"

#include "support/calls.hpp"
#include "support/imports.hpp"

#include <cstring>

namespace epm::test {

namespace {

class Pass {
public:
    Pass(TestDomain& domain, unsigned seed, bool is_filling) : D(domain), seed_(seed), is_filling_(is_filling) {}

    void record(const Record& r, Instance* x) {
        if (r.is_union()) return union_record(r, x);
        for (std::size_t i = 0; i < r.count && is_right; ++i)
            if (r.fields[i].since <= x->variant) field(r, r.fields[i], x);
    }

    std::size_t fields = 0;
    bool is_right = true;

private:
    unsigned draw() { return ++drawn_; }
    bool choose() { return choose(2) == 0; }
    std::size_t choose(unsigned of) const { return (seed_ + fields) % of; }
    std::string words(std::size_t length) {
        const std::string start = std::to_string(draw()) + "." + std::to_string(seed_) + "&<q>";
        std::string text;
        while (text.size() < length) text += start[text.size() % start.size()];
        return text;
    }

    template <class T>
    void expect(const Record& r, const Field& f, const T& found, const T& wanted) {
        if (found == wanted) return;
        is_right = false;
        ADD_FAILURE() << r.name << "." << f.name << " holds " << testing::PrintToString(found) << " and not "
                      << testing::PrintToString(wanted) << ", " << D.mode().text();
    }
    /// A setter by its name; those that end in cr are chained.
    template <class... A>
    void put(const Record& r, const Field& f, const std::string& name, A... arguments) {
        if (!name.ends_with("_cr")) return call(D, r, f, name, arguments...);
        if (D.st != 0) return;
        D->last_error = 0;
        D.st = operation<std::uint32_t(zur_domain*, A...)>(r, f, name)(D, arguments...);
    }

    void union_record(const Record& r, Instance* x) {
        std::vector<const Field*> arms;
        for (std::size_t i = 1; i < r.count; ++i)
            if (r.fields[i].since <= x->variant) arms.push_back(&r.fields[i]);
        if (arms.empty()) return;
        const Field& chosen = *arms[seed_ % arms.size()];
        field(r, chosen, x);
        if (is_filling_) return;
        value<std::uint32_t>(r, r.fields[0], x, chosen.tag);
        for (const Field* other : arms)
            if (other != &chosen)
                expect(r, *other, call<Instance*>(D, r, *other, "get", x), static_cast<Instance*>(nullptr));
    }

    void field(const Record& r, const Field& f, Instance* x) {
        if (f.kind == Kind::length) return; // checked with what it counts
        ++fields;
        switch (f.kind) {
        case Kind::value: value(r, f, x); break;
        case Kind::object: object(r, f, x); break;
        case Kind::text: text<std::uint32_t>(r, f, x, words(3 + (seed_ + 5 * drawn_) % 40)); break;
        case Kind::characters: text<std::int32_t>(r, f, x, words(f.capacity - (choose() ? 0u : 1u))); break;
        case Kind::array: f.is_of_record() ? records(r, f, x) : numbers(r, f, x); break;
        case Kind::run: run_of_bytes(r, f, x); break;
        case Kind::embedded: embedded(r, f, x); break;
        case Kind::arm: arm(r, f, x); break;
        case Kind::list: list(r, f, x); break;
        default: break;
        }
        if (D.st == 0) return;
        is_right = false;
        ADD_FAILURE() << r.name << "." << f.name << (is_filling_ ? " cannot be set: " : " cannot be read: ")
                      << std::exchange(D.st, 0) << ", " << D.mode().text();
    }

    // ---- values, texts and numbers ----

    template <class T>
    void value(const Record& r, const Field& f, Instance* x, T wanted) {
        const bool is_instance = f.is_own_enum() || f.foreign == &catalogue::sm_auth_domain;
        if (!is_filling_) {
            expect(r, f, call<T>(D, r, f, "get_value", x), wanted);
            const auto* place = call<const char*>(D, r, f, "get", x);
            if (place == nullptr) return expect(r, f, false, true);
            T found;
            std::memcpy(&found, place + (is_instance ? catalogue::header_length : 0), sizeof found);
            return expect(r, f, found, wanted);
        }
        if (choose() && !is_instance) return put(r, f, "set", x, &wanted);
        put(r, f, "set_value", x, wanted);
        if (choose() || !is_instance) return;
        if (!f.is_own_enum()) return put(r, f, "set", x, call<void*>(D, r, f, "get", x));
        auto* source = bare<Instance*>(D, *f.enumeration, "create");
        is_right = is_right && source != nullptr;
        if (source == nullptr) return;
        whole(D, *f.enumeration, "set_value", source, wanted);
        put(r, f, "set", x, source);
        bare(D, *f.enumeration, "destroy", source);
    }
    void value(const Record& r, const Field& f, Instance* x) {
        const unsigned n = draw() + 100 * seed_;
        if (f.is_own_enum()) {
            // The embedded enumeration's own variant bounds its values.
            const std::uint32_t accepted = f.enumeration->accepted(0);
            return value<std::uint32_t>(r, f, x, accepted < 2 ? 0 : 1 + n % (accepted - 1));
        }
        if (f.is_enumerated()) return value<std::uint32_t>(r, f, x, 1);
        switch (f.foreign->length) {
        case 1: return value<char>(r, f, x, static_cast<char>('!' + n % 90));
        case 2: return value<std::uint16_t>(r, f, x, static_cast<std::uint16_t>(0x1001 + n));
        case 8: return value<std::uint64_t>(r, f, x, 0x8877665500000001u + (std::uint64_t{n} << 33) + n);
        default: return value<std::uint32_t>(r, f, x, 0x90000001u + n * 0x10101u);
        }
    }
    void expect_length(const Record& r, const Field& f, Instance* x, std::size_t length) {
        const Field& companion = r.fields[r.index_of(f.companion)];
        if (companion.foreign->length == 2)
            value<std::uint16_t>(r, companion, x, static_cast<std::uint16_t>(length));
        else
            value<std::uint32_t>(r, companion, x, static_cast<std::uint32_t>(length));
    }
    template <class Length>
    void text(const Record& r, const Field& f, Instance* x, const std::string& wanted) {
        if (is_filling_)
            return put(r, f, choose() ? "set" : "set_cr", x, wanted.data(), static_cast<Length>(wanted.size()));
        if (f.kind == Kind::text) expect_length(r, f, x, wanted.size());
        std::vector<char> found(200, 'X');
        const std::size_t room = f.kind == Kind::text ? wanted.size() + 1 : f.capacity + 1u;
        call(D, r, f, "get", x, found.data(), static_cast<std::uint32_t>(room));
        expect(r, f, std::string(found.data()), wanted);
        expect(r, f, found[room], 'X');
        if (f.kind != Kind::text || wanted.empty() || !is_right) return;
        const char* stored; // includes a terminator, which no getter counts
        std::memcpy(&stored, reinterpret_cast<char*>(x) + catalogue::lay_out(r).offset[r.index_of(f.name)],
                    sizeof stored);
        expect(r, f, stored[wanted.size()], '\0');
    }
    template <class T>
    void elements(const Record& r, const Field& f, Instance* x, std::vector<T> wanted) {
        using Count = std::conditional_t<sizeof(T) == 1, std::int32_t, std::uint32_t>;
        const auto count = static_cast<Count>(wanted.size());
        const char* const setters[] = {"set_value", "set", "set_mem", "set_mem_cr", "set_cr"};
        const std::string setter = setters[choose(f.kind == Kind::run ? 4 : 5)];
        if (is_filling_ && setter.starts_with("set_mem")) return put(r, f, setter, x, wanted.data(), count);
        for (std::uint32_t i = 0; i < wanted.size(); ++i)
            if (!is_filling_) {
                expect(r, f, call<T>(D, r, f, "get_value", x, i), wanted[i]);
                expect(r, f, *call<T*>(D, r, f, "get", x, i), wanted[i]);
            } else if (setter == "set") {
                put(r, f, setter, x, i, &wanted[i]);
            } else {
                put(r, f, setter, x, i, wanted[i]);
            }
        if (is_filling_) return;
        std::vector<T> found(wanted.size());
        call(D, r, f, "get_mem", x, found.data(), count);
        expect(r, f, found, wanted);
    }
    void numbers(const Record& r, const Field& f, Instance* x) {
        std::vector<std::uint32_t> wanted(3 + seed_ % 3);
        for (std::uint32_t& number : wanted) number = 0x1000000u * (1 + seed_ % 200) + draw();
        if (!is_filling_) expect_length(r, f, x, wanted.size());
        if (is_right) elements(r, f, x, wanted);
    }
    void run_of_bytes(const Record& r, const Field& f, Instance* x) {
        Bytes wanted(f.capacity);
        for (std::size_t i = 0; i < wanted.size(); ++i) wanted[i] = static_cast<std::uint8_t>(7 * i + seed_ + drawn_);
        draw();
        elements(r, f, x, wanted);
    }

    // ---- imported objects ----

    /// A value of an imported type in wire form, which differs from all others.
    Bytes object_bytes(const std::string& type) {
        const unsigned n = draw();
        const auto low = static_cast<std::uint8_t>(n);
        const auto high = static_cast<std::uint8_t>(0x80 + seed_);
        Bytes bytes;
        const auto put = [&](std::uint64_t number, std::size_t width) {
            while (width-- != 0) bytes.push_back(static_cast<std::uint8_t>(number >> 8 * width));
        };
        if (type == "zur_mac_addr") return {2, high, 0, low, 0x5A, static_cast<std::uint8_t>(low ^ high)};
        if (type == "ip_address") {
            bytes = {4, 10, high, 7, low};
            if (!choose()) return bytes;
            bytes[0] = 6;
            bytes.resize(17);
            bytes.back() = 1;
        } else if (type == "zur_vstring") {
            const std::string wanted = words(4 + seed_ % 9);
            put(wanted.size(), 4);
            bytes.insert(bytes.end(), wanted.begin(), wanted.end());
        } else if (type == "kesh_bytestr" || type == "aaa_tlv") {
            const std::uint32_t length = 2 + (n + seed_) % 20;
            if (type == "aaa_tlv") put(77 + n, 4);
            put(length, 4);
            for (std::uint32_t i = 0; i < length; ++i) put(i == 0 ? 0 : n + seed_ + 3 * i, 1);
        } else if (type == "sess_mgr_authorize_result") {
            put(31 + n + seed_, 4);
        } else {
            put(0xA100000000000000u + (std::uint64_t{seed_} << 32) + n, 8);
        }
        return bytes;
    }

    void object(const Record& r, const Field& f, Instance* x) {
        const std::string type = f.foreign->name;
        const Bytes wanted = object_bytes(type);
        const auto length = static_cast<std::int32_t>(wanted.size());
        if (is_filling_) {
            using Unmarshal = std::uint32_t(zur_domain*, std::uint32_t, const void*, void*, std::int32_t, std::uint32_t,
                                            std::uint32_t*);
            alignas(8) char source[64] = {};
            reinterpret_cast<Unmarshal*>(following((type + "_unmarshal").c_str()))(D, D.set_id(), wanted.data(), source,
                                                                                   length, 0, &D.st);
            call<void>(D, r, f, "set", x, static_cast<void*>(source));
            return;
        }
        const void* place = call<void*>(D, r, f, "get", x);
        if (place == nullptr) return expect(r, f, false, true);
        using Marshal = std::uint32_t(zur_domain*, std::uint32_t, void*, const void*, std::int32_t, std::uint32_t*);
        Bytes found(wanted.size() + 40);
        found.resize(reinterpret_cast<Marshal*>(following((type + "_marshal").c_str()))(
            D, D.set_id(), found.data(), place, static_cast<std::int32_t>(found.size()), &D.st));
        expect(r, f, found, wanted);
    }

    // ---- records in records ----

    /// A new Instance of the record with its fields set.
    Instance* filled(const Record& r) {
        auto* x = bare<Instance*>(D, r, "create");
        if (x == nullptr)
            is_right = false;
        else
            record(r, x);
        return x;
    }
    void embedded(const Record& r, const Field& f, Instance* x) {
        auto* nested = call<Instance*>(D, r, f, "get", x);
        if (nested == nullptr) return expect(r, f, false, true);
        if (!is_filling_ || !choose()) return record(*f.record, nested);
        Instance* source = filled(*f.record);
        if (source == nullptr) return;
        put(r, f, "set", x, source);
        bare(D, *f.record, "destroy", source);
    }
    void arm(const Record& r, const Field& f, Instance* x) {
        const char* const setter = choose() ? "set" : "set_cr";
        auto* held = is_filling_ ? filled(*f.record) : call<Instance*>(D, r, f, "get", x);
        if (is_filling_ && held != nullptr) return put(r, f, setter, x, held);
        if (held == nullptr) return expect(r, f, is_filling_, true);
        record(*f.record, held);
    }
    void records(const Record& r, const Field& f, Instance* x) {
        const std::uint32_t count = 2 + seed_ % 2;
        const char* const setter = choose() ? "set" : "set_cr";
        if (!is_filling_) expect_length(r, f, x, count);
        for (std::uint32_t i = 0; i < count && is_right; ++i) {
            auto* element = is_filling_ ? filled(*f.record) : call<Instance*>(D, r, f, "get", x, i);
            if (element == nullptr) return expect(r, f, is_filling_, true);
            if (!is_filling_) {
                record(*f.record, element);
                continue;
            }
            put(r, f, setter, x, i, element, (seed_ + i) % 2); // moved or copied
            bare(D, *f.record, "destroy", element);
        }
    }
    /// Of two elements, in the order in which they are drawn or in the other.
    void list(const Record& r, const Field& f, Instance* x) {
        const bool is_reversed = choose();
        const std::size_t way = (seed_ + fields) / 2 % 3;
        if (is_filling_) {
            Instance* const first = filled(*f.record);
            if (first != nullptr) put(r, f, "set_last", x, first);
            Instance* const second = filled(*f.record);
            if (second == nullptr) return;
            if (way == 0)
                put(r, f, is_reversed ? "set_first" : "set_last", x, second);
            else if (way == 1 && first != nullptr)
                put(r, f, is_reversed ? "set_before" : "set_after", x, first, second);
            else
                put(r, f, "add_cr", x, second, is_reversed ? 0 : 1, static_cast<Instance*>(nullptr));
            return;
        }
        const auto get = [&](const char* name, auto... from) { return call<Instance*>(D, r, f, name, x, from...); };
        expect(r, f, call<std::uint32_t>(D, r, f, "get_count", x), 2u);
        Instance *first = get("get_first"), *last = get("get_last");
        if (first == nullptr || last == nullptr) return expect(r, f, false, true);
        Instance* const nothing = nullptr;
        expect(r, f, get("get_next", first), last);
        expect(r, f, get("get_prev", last), first);
        expect(r, f, get("get_next", last), nothing);
        expect(r, f, get("get_prev", first), nothing);
        for (Instance* element : {first, last})
            expect(r, f, call<Instance*>(D, *f.record, f, "get_parent", element), x);
        if (is_reversed) std::swap(first, last);
        for (Instance* element : {first, last}) record(*f.record, element);
    }

    TestDomain& D;
    unsigned seed_;
    bool is_filling_;
    unsigned drawn_ = 0;
};

} // namespace

bool Fill::run(const Record& r, Instance* x, bool is_filling) {
    if (x == nullptr) {
        ADD_FAILURE() << "no Instance of " << r.name;
        return false;
    }
    Pass pass(D_, seed_, is_filling);
    pass.record(r, x);
    fields_ = pass.fields;
    return pass.is_right;
}

void mark_all(TestDomain& D, const Record& r, Instance* x, std::uint32_t& last) {
    const auto next = [&] { return 3 + last++ % 250; };
    for (std::size_t i = 0; i < r.count; ++i) {
        const Field& f = r.fields[i];
        if (f.since > x->variant || f.kind == Kind::length) continue;
        if (!f.has_element_flags()) {
            call(D, r, f, "state_flag_set", x, next());
        } else {
            call(D, r, f, "state_flag_whole_set", x, next());
            const std::uint32_t count = f.kind == Kind::array
                                            ? call<std::uint32_t>(D, r, std::string(f.companion), "get_value", x)
                                            : f.capacity;
            for (std::uint32_t e = 0; e < count; ++e) {
                call(D, r, f, "state_flag_set", x, e, next());
                if (f.is_of_record()) mark_all(D, *f.record, call<Instance*>(D, r, f, "get", x, e), last);
            }
        }
        if (f.kind == Kind::embedded || f.kind == Kind::arm) {
            if (auto* nested = call<Instance*>(D, r, f, "get", x)) mark_all(D, *f.record, nested, last);
        } else if (f.kind == Kind::list) {
            for (auto* e = call<Instance*>(D, r, f, "get_first", x); e != nullptr;
                 e = call<Instance*>(D, r, f, "get_next", x, e))
                mark_all(D, *f.record, e, last);
        }
    }
}

} // namespace epm::test
