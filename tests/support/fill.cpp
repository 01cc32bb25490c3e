// One pass over a record's fields serves filling and checking, so that both draw the same values.
#include "support/fill.hpp"

#include "support/calls.hpp"

#include <platform/values.h>

#include <array>
#include <cstring>
#include <vector>

namespace epm::test {

namespace {

using Bytes = std::vector<std::uint8_t>;

} // namespace

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

template <class Object, class Write, class Read>
void Fill::object(const Record& r, const Field& f, Instance* x, Write write, Read read) {
    if (!is_filling_) {
        const auto* found = call<Object*>(D_, r, f, "get", x);
        if (found == nullptr) return expect(r, f, false, true);
        return read(found);
    }
    Object source{};
    write(&source);
    call(D_, r, f, "set", x, &source);
}

void Fill::object(const Record& r, const Field& f, Instance* x) {
    const unsigned n = draw();
    const auto low = static_cast<std::uint8_t>(n);
    const auto high = static_cast<std::uint8_t>(0x80 + seed_);
    const std::uint64_t number = 0xA100000000000000u + (std::uint64_t{seed_} << 32) + n;
    const std::string name = f.foreign->name;
    const Bytes bytes = [&] {
        Bytes some(2 + (n + seed_) % 20, 0);
        for (std::size_t i = 1; i < some.size(); ++i) some[i] = static_cast<std::uint8_t>(n + seed_ + 3 * i);
        return some;
    }();
    const auto length = static_cast<std::uint32_t>(bytes.size());
    const auto handle = [&](auto* object_type, auto write, auto read) {
        using Object = std::remove_pointer_t<decltype(object_type)>;
        object<Object>(
            r, f, x, [&](Object* o) { write(D_, D_.set_id(), o, number, &D_.st); },
            [&](const Object* o) { expect(r, f, read(o), number); });
    };
    if (name == "zur_mac_addr") {
        using Mac = std::array<std::uint8_t, 6>;
        const Mac wanted = {2, high, 0, low, 0x5A, static_cast<std::uint8_t>(low ^ high)};
        object<zur_mac_addr>(
            r, f, x, [&](zur_mac_addr* o) { platform_zur_mac_addr_write(D_, D_.set_id(), o, wanted.data(), &D_.st); },
            [&](const zur_mac_addr* o) {
                Mac found;
                platform_zur_mac_addr_read(o, found.data());
                expect(r, f, found, wanted);
            });
    } else if (name == "ip_address") {
        using Address = std::array<std::uint8_t, 16>;
        Address wanted = {10, high, 7, low};
        const std::uint32_t family = choose() ? 6 : 4;
        if (family == 6) wanted.back() = 1;
        object<ip_address>(
            r, f, x,
            [&](ip_address* o) { platform_ip_address_write(D_, D_.set_id(), o, family, wanted.data(), &D_.st); },
            [&](const ip_address* o) {
                Address found;
                expect(r, f, platform_ip_address_read(o, found.data()), family);
                expect(r, f, found, wanted);
            });
    } else if (name == "zur_vstring") {
        const std::string wanted = words(4 + seed_ % 9);
        object<zur_vstring>(
            r, f, x,
            [&](zur_vstring* o) {
                platform_zur_vstring_write(D_, D_.set_id(), o, wanted.data(), static_cast<std::uint32_t>(wanted.size()),
                                           &D_.st);
            },
            [&](const zur_vstring* o) { expect(r, f, std::string(platform_zur_vstring_read(o, nullptr)), wanted); });
    } else if (name == "kesh_bytestr") {
        object<kesh_bytestr>(
            r, f, x,
            [&](kesh_bytestr* o) { platform_kesh_bytestr_write(D_, D_.set_id(), o, bytes.data(), length, &D_.st); },
            [&](const kesh_bytestr* o) {
                std::uint32_t size = 0;
                const std::uint8_t* found = platform_kesh_bytestr_read(o, &size);
                expect(r, f, Bytes(found, found + size), bytes);
            });
    } else if (name == "aaa_tlv") {
        object<aaa_tlv>(
            r, f, x,
            [&](aaa_tlv* o) { platform_aaa_tlv_write(D_, D_.set_id(), o, 77 + n, bytes.data(), length, &D_.st); },
            [&](const aaa_tlv* o) {
                std::uint32_t size = 0;
                std::uint32_t type = 0;
                const std::uint8_t* found = platform_aaa_tlv_read(o, &type, &size);
                expect(r, f, type, 77 + n);
                expect(r, f, Bytes(found, found + size), bytes);
            });
    } else if (name == "sess_mgr_conn_hdl") {
        handle(static_cast<sess_mgr_conn_hdl*>(nullptr), platform_sess_mgr_conn_hdl_write,
               platform_sess_mgr_conn_hdl_read);
    } else if (name == "sess_mgr_client_hdl") {
        handle(static_cast<sess_mgr_client_hdl*>(nullptr), platform_sess_mgr_client_hdl_write,
               platform_sess_mgr_client_hdl_read);
    } else if (name == "sess_mgr_session_label") {
        handle(static_cast<sess_mgr_session_label*>(nullptr), platform_sess_mgr_session_label_write,
               platform_sess_mgr_session_label_read);
    } else if (name == "sess_mgr_authorize_result") {
        object<sess_mgr_authorize_result>(
            r, f, x,
            [&](sess_mgr_authorize_result* o) {
                platform_sess_mgr_authorize_result_write(D_, D_.set_id(), o, 31 + n + seed_, &D_.st);
            },
            [&](const sess_mgr_authorize_result* o) {
                expect(r, f, platform_sess_mgr_authorize_result_read(o), 31 + n + seed_);
            });
    } else {
        ADD_FAILURE() << "no values are known for " << name;
    }
}

// ---- records in records ----

Instance* Fill::create(const Record& r) {
    return bare<Instance*>(D_, r, "create");
}

void Fill::destroy(const Record& r, Instance* x) {
    bare(D_, r, "destroy", x);
}

Instance* Fill::filled(const Record& r) {
    Instance* x = create(r);
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
    destroy(*f.record, source);
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
            destroy(*f.record, source);
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

} // namespace epm::test
