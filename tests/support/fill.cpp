// One pass over a record's fields serves filling and checking, so that both draw the same values.
#include "support/fill.hpp"

#include "support/calls.hpp"
#include "support/imports.hpp"

#include <cstring>

namespace epm::test {

bool Fill::run(const Record& r, Instance* x, bool is_filling) {
    drawn_ = 0;
    fields_ = 0;
    is_filling_ = is_filling;
    is_right_ = true;
    if (x == nullptr) {
        ADD_FAILURE() << "no Instance of " << r.name;
        return false;
    }
    record(r, x);
    return is_right_;
}

void Fill::record(const Record& r, Instance* x) {
    if (r.is_union()) return union_record(r, x);
    for (std::size_t i = 0; i < r.count && is_right_; ++i)
        if (r.fields[i].since <= x->variant) field(r, r.fields[i], x);
}

void Fill::union_record(const Record& r, Instance* x) {
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
            expect(r, *other, call<Instance*>(D_, r, *other, "get", x), static_cast<Instance*>(nullptr));
}

void Fill::field(const Record& r, const Field& f, Instance* x) {
    if (f.kind == Kind::length) return; // checked with what it counts
    ++fields_;
    switch (f.kind) {
    case Kind::value: value(r, f, x); break;
    case Kind::object: object(r, f, x); break;
    case Kind::text: text(r, f, x); break;
    case Kind::characters: characters(r, f, x); break;
    case Kind::array: f.is_of_record() ? records(r, f, x) : numbers(r, f, x); break;
    case Kind::run: run_of_bytes(r, f, x); break;
    case Kind::embedded: embedded(r, f, x); break;
    case Kind::arm: arm(r, f, x); break;
    case Kind::list: list(r, f, x); break;
    default: break;
    }
    if (D_.st != 0) {
        is_right_ = false;
        ADD_FAILURE() << r.name << "." << f.name << (is_filling_ ? " cannot be set: " : " cannot be read: ") << D_.st
                      << ", " << D_.mode().text();
        D_.st = 0;
    }
}

template <class T>
void Fill::expect(const Record& r, const Field& f, const T& found, const T& wanted) {
    if (found == wanted) return;
    is_right_ = false;
    ADD_FAILURE() << r.name << "." << f.name << " holds " << testing::PrintToString(found) << " and not "
                  << testing::PrintToString(wanted) << ", " << D_.mode().text();
}

template <class T>
void Fill::value(const Record& r, const Field& f, Instance* x, T wanted) {
    if (is_filling_)
        call(D_, r, f, "set_value", x, wanted);
    else
        expect(r, f, call<T>(D_, r, f, "get_value", x), wanted);
}

void Fill::value(const Record& r, const Field& f, Instance* x) {
    const unsigned n = draw() + 100 * seed_;
    if (f.is_own_enum()) {
        // The embedded enumeration's own variant bounds its values.
        const std::uint32_t accepted = f.enumeration->accepted(0);
        return value<std::uint32_t>(r, f, x, accepted < 2 ? 0 : 1 + n % (accepted - 1));
    }
    if (f.foreign == &catalogue::zur_boolean || f.is_enumerated()) return value<std::uint32_t>(r, f, x, 1);
    switch (f.foreign->length) {
    case 1: return value<char>(r, f, x, static_cast<char>('!' + n % 90));
    case 2: return value<std::uint16_t>(r, f, x, static_cast<std::uint16_t>(0x1001 + n));
    case 8: return value<std::uint64_t>(r, f, x, 0x8877665500000001u + (std::uint64_t{n} << 33) + n);
    default: return value<std::uint32_t>(r, f, x, 0x90000001u + n * 0x10101u);
    }
}

std::string Fill::words(std::size_t length) {
    const std::string start = std::to_string(draw()) + "." + std::to_string(seed_) + "&<q>";
    std::string text;
    while (text.size() < length) text += start[text.size() % start.size()];
    return text;
}

void Fill::expect_length(const Record& r, const Field& f, Instance* x, std::size_t length) {
    const Field& companion = r.fields[r.index_of(f.companion)];
    if (companion.foreign->length == 2)
        value<std::uint16_t>(r, companion, x, static_cast<std::uint16_t>(length));
    else
        value<std::uint32_t>(r, companion, x, static_cast<std::uint32_t>(length));
}

void Fill::text(const Record& r, const Field& f, Instance* x) {
    const std::string wanted = words(3 + (seed_ + 5 * drawn_) % 40);
    if (is_filling_) {
        call(D_, r, f, "set", x, wanted.data(), static_cast<std::uint32_t>(wanted.size()));
        return;
    }
    expect_length(r, f, x, wanted.size());
    std::vector<char> found(wanted.size() + 1, 'X');
    call(D_, r, f, "get", x, found.data(), static_cast<std::uint32_t>(found.size()));
    expect(r, f, std::string(found.data(), found.size() - 1), wanted);
    expect(r, f, found.back(), '\0');
}

void Fill::characters(const Record& r, const Field& f, Instance* x) {
    const std::string wanted = words(f.capacity - (choose() ? 0u : 1u));
    if (is_filling_) {
        call(D_, r, f, "set", x, wanted.data(), static_cast<std::int32_t>(wanted.size()));
        return;
    }
    std::vector<char> found(f.capacity + 1u, 'X');
    call(D_, r, f, "get", x, found.data(), f.capacity + 1u);
    expect(r, f, std::string(found.data(), strnlen(found.data(), found.size())), wanted);
}

void Fill::numbers(const Record& r, const Field& f, Instance* x) {
    std::vector<std::uint32_t> wanted(3 + seed_ % 3);
    for (std::uint32_t& number : wanted) number = 0x1000000u * (1 + seed_ % 200) + draw();
    if (is_filling_ && choose()) {
        call(D_, r, f, "set_mem", x, wanted.data(), static_cast<std::uint32_t>(wanted.size()));
        return;
    }
    if (!is_filling_) expect_length(r, f, x, wanted.size());
    for (std::uint32_t i = 0; i < wanted.size(); ++i)
        if (is_filling_)
            call(D_, r, f, "set_value", x, i, wanted[i]);
        else
            expect(r, f, call<std::uint32_t>(D_, r, f, "get_value", x, i), wanted[i]);
}

void Fill::run_of_bytes(const Record& r, const Field& f, Instance* x) {
    Bytes wanted(f.capacity);
    for (std::size_t i = 0; i < wanted.size(); ++i) wanted[i] = static_cast<std::uint8_t>(7 * i + seed_ + drawn_);
    draw();
    if (is_filling_ && choose()) {
        for (std::uint32_t i = 0; i < wanted.size(); ++i) call(D_, r, f, "set_value", x, i, wanted[i]);
    } else if (is_filling_) {
        call(D_, r, f, "set_mem", x, wanted.data(), std::int32_t{f.capacity});
    } else {
        Bytes found(f.capacity);
        call(D_, r, f, "get_mem", x, found.data(), std::int32_t{f.capacity});
        expect(r, f, found, wanted);
    }
}

// ---- imported objects ----

/// A value of an imported type as it stands on the wire, by which it is told from all others.
Bytes Fill::object_bytes(const std::string& type) {
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

void Fill::object(const Record& r, const Field& f, Instance* x) {
    const std::string type = f.foreign->name;
    const Bytes wanted = object_bytes(type);
    const auto length = static_cast<std::int32_t>(wanted.size());
    if (is_filling_) {
        using Unmarshal =
            std::uint32_t(zur_domain*, std::uint32_t, const void*, void*, std::int32_t, std::uint32_t, std::uint32_t*);
        alignas(8) char source[64] = {};
        reinterpret_cast<Unmarshal*>(following((type + "_unmarshal").c_str()))(D_, D_.set_id(), wanted.data(), source,
                                                                               length, 0, &D_.st);
        call<void>(D_, r, f, "set", x, static_cast<void*>(source));
        return;
    }
    const void* place = call<void*>(D_, r, f, "get", x);
    if (place == nullptr) return expect(r, f, false, true);
    using Marshal = std::uint32_t(zur_domain*, std::uint32_t, void*, const void*, std::int32_t, std::uint32_t*);
    Bytes found(wanted.size() + 40);
    found.resize(reinterpret_cast<Marshal*>(following((type + "_marshal").c_str()))(
        D_, D_.set_id(), found.data(), place, static_cast<std::int32_t>(found.size()), &D_.st));
    expect(r, f, found, wanted);
}

// ---- records in records ----

Instance* Fill::filled(const Record& r) {
    auto* x = bare<Instance*>(D_, r, "create");
    if (x == nullptr)
        is_right_ = false;
    else
        record(r, x);
    return x;
}

void Fill::embedded(const Record& r, const Field& f, Instance* x) {
    auto* nested = call<Instance*>(D_, r, f, "get", x);
    if (nested == nullptr) return expect(r, f, false, true);
    if (!is_filling_ || !choose()) return record(*f.record, nested);
    Instance* source = filled(*f.record);
    if (source == nullptr) return;
    call(D_, r, f, "set", x, source);
    bare(D_, *f.record, "destroy", source);
}

void Fill::arm(const Record& r, const Field& f, Instance* x) {
    if (is_filling_) {
        Instance* value = filled(*f.record);
        if (value == nullptr) return;
        call(D_, r, f, "set", x, value);
        return;
    }
    Instance* held = call<Instance*>(D_, r, f, "get", x);
    if (held == nullptr) return expect(r, f, false, true);
    record(*f.record, held);
}

void Fill::records(const Record& r, const Field& f, Instance* x) {
    const std::uint32_t count = 2 + seed_ % 2;
    if (!is_filling_) expect_length(r, f, x, count);
    for (std::uint32_t i = 0; i < count && is_right_; ++i) {
        if (is_filling_) {
            const std::uint32_t is_move = (seed_ + i) % 2;
            Instance* source = filled(*f.record);
            if (source == nullptr) return;
            call(D_, r, f, "set", x, i, source, is_move);
            bare(D_, *f.record, "destroy", source);
        } else {
            auto* element = call<Instance*>(D_, r, f, "get", x, i);
            if (element == nullptr) return expect(r, f, false, true);
            record(*f.record, element);
        }
    }
}

void Fill::list(const Record& r, const Field& f, Instance* x) {
    const bool is_reversed = choose();
    if (is_filling_) {
        for (const char* attach : {"set_last", is_reversed ? "set_first" : "set_last"})
            if (Instance* element = filled(*f.record); element != nullptr) call(D_, r, f, attach, x, element);
        return;
    }
    expect(r, f, call<std::uint32_t>(D_, r, f, "get_count", x), 2u);
    Instance* elements[2];
    elements[0] = call<Instance*>(D_, r, f, "get_first", x);
    if (elements[0] == nullptr) return expect(r, f, false, true);
    const auto next = [&](Instance* element) { return call<Instance*>(D_, r, f, "get_next", x, element); };
    elements[1] = next(elements[0]);
    if (elements[1] == nullptr) return expect(r, f, false, true);
    expect(r, f, next(elements[1]), static_cast<Instance*>(nullptr));
    if (is_reversed) std::swap(elements[0], elements[1]);
    for (Instance* element : elements) record(*f.record, element);
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
