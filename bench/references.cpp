// What is possible at all, for the same bytes as the library's: `flat` writes and reads them inline, decides about the
// room once for each record, and puts what it reads into one block; `call` calls a shared library for each primitive
// field, and allocates each record, text and array by itself, as a record that owns its parts has to.
#include "bench/codecs.hpp"
#include "bench/suite.hpp"
#include "bench/workloads.hpp"

#include <cstring>

namespace bench {
namespace {

// ---- the records: plain memory, a pointer where something is owned ----

template <class Count>
struct TextOf {
    Count length;
    char* characters;
};
using Text = TextOf<std::uint32_t>;
using Name = TextOf<std::uint16_t>;

template <class T>
struct Array {
    std::uint32_t count;
    T* elements;
};

/// A list of elements that each have a `next`.
template <class T>
struct List {
    std::uint32_t count;
    T* first;
};

struct FlatEntry {
    Text acl_name, ace_name;
    std::uint32_t sequence, is_ipv4, is_create, is_remove, p_sequence, is_dacl, process_index, is_domain, ip_addr;
};

struct FlatTemplate {
    std::uint32_t bind, gidb_handle;
    Text name;
};

struct FlatConfig {
    std::uint32_t is_url_redirect, feat_type, is_ipv6;
    std::array<std::uint8_t, 256> acl_name;
    FlatConfig* next;
};

struct FlatContext {
    std::uint32_t handle;
    std::uint16_t priority;
    std::uint32_t status;
    List<FlatConfig> configs;
    FlatContext* next;
};

struct FlatGrants {
    struct {
        std::uint32_t gidb_handle, pref, vlan_value;
        Mac ieee_mac, mac;
        std::uint32_t domain;
    } vlan;
    std::uint32_t bind_value;
    struct {
        Mac mac;
        std::uint32_t gidb_handle;
        std::uint16_t vlan;
    } voice_vlan;
    struct {
        Mac mac;
        std::uint32_t gidb_handle, idle_timeout;
    } iaf;
    Array<FlatTemplate> templates;
    struct {
        std::uint32_t gidb_handle;
        Mac mac;
        std::uint32_t traf_class, apply;
        Text asp_trig_name;
    } autocfg;
    struct {
        std::uint64_t conn_hdl, label;
        std::uint32_t identity_type;
        Text identity;
        std::uint64_t cl_hdl, return_hdl;
        std::uint32_t result;
    } authz_ack;
    std::uint32_t is_authz_invoke;
    struct {
        std::uint32_t apply_flag, gidb_handle;
        Text name;
    } macro;
    struct {
        Mac mac;
        std::uint32_t idb;
        List<FlatContext> contexts;
    } acl;
};

struct FlatMessage {
    std::uint32_t epm_type;
    FlatEntry* acl_data;
    FlatGrants* bm_data;
};

struct FlatVlanGroup {
    std::uint32_t is_added, num_of_vlans;
    Array<std::uint32_t> vlans;
    Text gp_name;
};

struct FlatDomainNames {
    Mac mac;
    std::uint32_t wlclient_num;
    Array<Name> names;
};

// ---- the form of each record, once for every visitor; with two records side by side, a comparison ----
// v.record(variant, bytes of the fixed fields, body), v.numbers(field...) for one field of each record.

#define FIELD(name) v.number(r.name...)

template <class V, class... R>
void visit_entry(V& v, R&... r) {
    v.record(2, 44, [&] {
        FIELD(acl_name.length), FIELD(ace_name.length);
        v.characters(r.acl_name...), v.characters(r.ace_name...);
        FIELD(sequence), FIELD(is_ipv4), FIELD(is_create), FIELD(is_remove), FIELD(p_sequence), FIELD(is_dacl);
        FIELD(process_index), FIELD(is_domain), FIELD(ip_addr);
    });
}

template <class V, class... R>
void visit_config(V& v, R&... r) {
    v.record(0, 269, [&] {
        FIELD(is_url_redirect);
        v.enumerator(0, r.feat_type...);
        FIELD(is_ipv6);
        v.run(r.acl_name...);
    });
}

template <class V, class... R>
void visit_context(V& v, R&... r) {
    v.record(0, 15, [&] {
        FIELD(handle), FIELD(priority);
        v.enumerator(0, r.status...);
        v.list([&](auto&... e) { visit_config(v, e...); }, r.configs...);
    });
}

template <class V, class... R>
void visit_grants(V& v, R&... r) {
    v.record(1, 4, [&] {
        v.record(0, 29, [&] {
            FIELD(vlan.gidb_handle), FIELD(vlan.pref), FIELD(vlan.vlan_value);
            v.run(r.vlan.ieee_mac...), v.run(r.vlan.mac...);
            v.enumerator(0, r.vlan.domain...);
        });
        v.record(0, 4, [&] { FIELD(bind_value); });
        v.record(0, 12, [&] {
            v.run(r.voice_vlan.mac...);
            FIELD(voice_vlan.gidb_handle), FIELD(voice_vlan.vlan);
        });
        v.record(0, 14, [&] {
            v.run(r.iaf.mac...);
            FIELD(iaf.gidb_handle), FIELD(iaf.idle_timeout);
        });
        v.record(0, 4, [&] {
            FIELD(templates.count);
            v.array(
                [&](auto&... e) {
                    v.record(0, 12, [&] {
                        v.number(e.bind...), v.number(e.gidb_handle...), v.number(e.name.length...);
                        v.characters(e.name...);
                    });
                },
                r.templates...);
        });
        v.record(0, 22, [&] {
            FIELD(autocfg.gidb_handle);
            v.run(r.autocfg.mac...);
            FIELD(autocfg.traf_class), FIELD(autocfg.apply), FIELD(autocfg.asp_trig_name.length);
            v.characters(r.autocfg.asp_trig_name...);
        });
        v.record(0, 44, [&] {
            FIELD(authz_ack.conn_hdl), FIELD(authz_ack.label), FIELD(authz_ack.identity_type);
            FIELD(authz_ack.identity.length);
            v.characters(r.authz_ack.identity...);
            FIELD(authz_ack.cl_hdl), FIELD(authz_ack.return_hdl), FIELD(authz_ack.result);
        });
        FIELD(is_authz_invoke);
        v.record(0, 12, [&] {
            FIELD(macro.apply_flag), FIELD(macro.gidb_handle), FIELD(macro.name.length);
            v.characters(r.macro.name...);
        });
        v.record(0, 14, [&] {
            v.run(r.acl.mac...);
            FIELD(acl.idb);
            v.list([&](auto&... e) { visit_context(v, e...); }, r.acl.contexts...);
        });
    });
}

template <class V, class... R>
void visit(V& v, FlatMessage& first, R&... r) {
    v.record(1, 5, [&] {
        v.enumerator(1, first.epm_type, r.epm_type...);
        if (first.epm_type == 1)
            v.arm([&](auto&... e) { visit_entry(v, e...); }, first.acl_data, r.acl_data...);
        else if (first.epm_type == 3)
            v.arm([&](auto&... e) { visit_grants(v, e...); }, first.bm_data, r.bm_data...);
    });
}

template <class V, class... R>
void visit(V& v, FlatVlanGroup& first, R&... r) {
    v.record(0, 16, [&] {
        v.number(first.is_added, r.is_added...);
        v.number(first.vlans.count, r.vlans.count...);
        v.words(first.vlans, r.vlans...);
        v.number(first.num_of_vlans, r.num_of_vlans...);
        v.number(first.gp_name.length, r.gp_name.length...);
        v.characters(first.gp_name, r.gp_name...);
    });
}

template <class V, class... R>
void visit(V& v, FlatDomainNames& first, R&... r) {
    v.record(0, 14, [&] {
        v.run(first.mac, r.mac...);
        v.number(first.wlclient_num, r.wlclient_num...);
        v.number(first.names.count, r.names.count...);
        v.array(
            [&](auto&... e) {
                v.record(0, 2, [&] {
                    v.number(e.length...);
                    v.characters(e...);
                });
            },
            first.names, r.names...);
    });
}

// ---- visitors ----

constexpr std::ptrdiff_t header = 6; // variant byte, flag byte, jump word

template <class Number>
Number swapped(Number number) {
    if constexpr (sizeof number == 2)
        return __builtin_bswap16(number);
    else if constexpr (sizeof number == 4)
        return __builtin_bswap32(number);
    else
        return __builtin_bswap64(number);
}

template <class Number>
void store(unsigned char* to, Number number) {
    number = swapped(number);
    std::memcpy(to, &number, sizeof number);
}

template <class Number>
Number load(const unsigned char* from) {
    Number number;
    std::memcpy(&number, from, sizeof number);
    return swapped(number);
}

/// A run in one loop without aliases, which the compiler turns into vector instructions. Returns the end.
[[gnu::target_clones("avx2", "default")]] unsigned char* swap_run(void* to, const void* from, std::size_t count) {
    auto* __restrict target = static_cast<unsigned char*>(to);
    const auto* __restrict source = static_cast<const unsigned char*>(from);
    for (std::size_t i = 0; i < count; ++i) {
        std::uint32_t number;
        std::memcpy(&number, source + 4 * i, sizeof number);
        number = __builtin_bswap32(number);
        std::memcpy(target + 4 * i, &number, sizeof number);
    }
    return target + 4 * count;
}

struct Inline {
    static constexpr bool one_block = true;
    template <class Number>
    static void put(unsigned char*& to, const Number& field, unsigned char*, std::uint32_t&) {
        store(to, field);
        to += sizeof field;
    }
    template <class Number>
    static void get(const unsigned char*& from, Number& field, const unsigned char*, std::uint32_t&) {
        field = load<Number>(from);
        from += sizeof field;
    }
    template <std::size_t n>
    static void put(unsigned char*& to, const std::array<std::uint8_t, n>& field, unsigned char*, std::uint32_t&) {
        std::memcpy(to, field.data(), n);
        to += n;
    }
    template <std::size_t n>
    static void get(const unsigned char*& from, std::array<std::uint8_t, n>& field, const unsigned char*,
                    std::uint32_t&) {
        std::memcpy(field.data(), from, n);
        from += n;
    }
};

struct Called {
    static constexpr bool one_block = false;
    static std::int32_t room(const void* at, const void* end) {
        return static_cast<std::int32_t>(static_cast<const char*>(end) - static_cast<const char*>(at));
    }
    static void put(unsigned char*& to, const std::uint16_t& field, unsigned char* end, std::uint32_t& st) {
        to += bench_put_u16(to, &field, room(to, end), &st);
    }
    static void put(unsigned char*& to, const std::uint32_t& field, unsigned char* end, std::uint32_t& st) {
        to += bench_put_u32(to, &field, room(to, end), &st);
    }
    static void put(unsigned char*& to, const std::uint64_t& field, unsigned char* end, std::uint32_t& st) {
        to += bench_put_u64(to, &field, room(to, end), &st);
    }
    template <std::size_t n>
    static void put(unsigned char*& to, const std::array<std::uint8_t, n>& field, unsigned char* end,
                    std::uint32_t& st) {
        to += bench_put_run(to, field.data(), n, room(to, end), &st);
    }
    static void get(const unsigned char*& from, std::uint16_t& field, const unsigned char* end, std::uint32_t& st) {
        from += bench_get_u16(from, &field, room(from, end), &st);
    }
    static void get(const unsigned char*& from, std::uint32_t& field, const unsigned char* end, std::uint32_t& st) {
        from += bench_get_u32(from, &field, room(from, end), &st);
    }
    static void get(const unsigned char*& from, std::uint64_t& field, const unsigned char* end, std::uint32_t& st) {
        from += bench_get_u64(from, &field, room(from, end), &st);
    }
    template <std::size_t n>
    static void get(const unsigned char*& from, std::array<std::uint8_t, n>& field, const unsigned char* end,
                    std::uint32_t& st) {
        from += bench_get_run(from, field.data(), n, room(from, end), &st);
    }
};

/// `slack` is the room that the fixed fields of the records begun so far leave: one decision for each record, and one
/// for each part whose length varies.
template <class Codec>
struct Put {
    unsigned char *at, *end;
    std::ptrdiff_t slack = end - at;
    std::uint32_t st = 0;

    bool take(std::ptrdiff_t bytes) {
        if (slack < bytes) st = 90;
        if (st != 0) return false;
        slack -= bytes;
        return true;
    }
    template <class Body>
    void record(unsigned char variant, std::ptrdiff_t fixed, Body body) {
        if (!take(header + fixed)) return;
        unsigned char* const start = at;
        at[0] = variant;
        at[1] = 0;
        at += header;
        body();
        store(start + 2, static_cast<std::uint32_t>(at - start - 2));
    }
    template <class Number>
    void number(const Number& field) {
        Codec::put(at, field, end, st);
    }
    void enumerator(unsigned char variant, const std::uint32_t& field) {
        *at++ = variant;
        number(field);
    }
    template <class Run>
    void run(const Run& field) {
        Codec::put(at, field, end, st);
    }
    template <class T>
    void characters(const T& text) {
        if (!take(text.length)) return;
        std::memcpy(at, text.characters, text.length);
        at += text.length;
    }
    void words(const Array<std::uint32_t>& array) {
        if (!take(std::ptrdiff_t{4} * array.count)) return;
        if constexpr (Codec::one_block) {
            at = swap_run(at, array.elements, array.count);
        } else
            for (std::uint32_t i = 0; i < array.count; ++i) number(array.elements[i]);
    }
    template <class Visit, class T>
    void array(Visit visit_element, const Array<T>& array) {
        for (std::uint32_t i = 0; i < array.count; ++i) visit_element(array.elements[i]);
    }
    template <class Visit, class T>
    void list(Visit visit_element, const List<T>& list) {
        number(list.count);
        for (T* element = list.first; element != nullptr; element = element->next) visit_element(*element);
    }
    template <class Visit, class T>
    void arm(Visit visit_arm, T* arm) {
        visit_arm(*arm);
    }
};

template <class Codec>
struct Get {
    const unsigned char *at, *end;
    char* block = nullptr; ///< what is free of the one block
    std::ptrdiff_t slack = end - at;
    std::uint32_t st = 0;

    /// The one block is large enough for all that the bytes can ask for, see read().
    void* allocate(std::size_t size) {
        if constexpr (!Codec::one_block) return std::malloc(size);
        char* const given = block;
        block += (size + 7) & ~std::size_t{7};
        return given;
    }
    bool take(std::ptrdiff_t bytes) {
        if (slack < bytes) st = 90;
        if (st != 0) return false;
        slack -= bytes;
        return true;
    }
    template <class Body>
    void record(unsigned char known, std::ptrdiff_t fixed, Body body) {
        if (slack < header || at[0] > known) st = 90;
        if (st != 0) return;
        const std::uint32_t jump = load<std::uint32_t>(at + 2);
        if (jump < 4 + fixed || !take(std::ptrdiff_t{jump} + 2)) {
            st = 90;
            return;
        }
        const unsigned char* const behind = at + 2 + jump;
        const std::ptrdiff_t outer = std::exchange(slack, jump - 4 - fixed);
        at += header;
        body();
        at = behind;
        slack = outer;
    }
    template <class Number>
    void number(Number& field) {
        Codec::get(at, field, end, st);
    }
    void enumerator(unsigned char, std::uint32_t& field) {
        ++at;
        number(field);
    }
    template <class Run>
    void run(Run& field) {
        Codec::get(at, field, end, st);
    }
    template <class T>
    void characters(T& text) {
        if (!take(text.length)) return;
        text.characters = static_cast<char*>(allocate(std::size_t{text.length} + 1));
        std::memcpy(text.characters, at, text.length);
        text.characters[text.length] = 0;
        at += text.length;
    }
    void words(Array<std::uint32_t>& array) {
        const std::size_t size = std::size_t{4} * array.count;
        if (!take(static_cast<std::ptrdiff_t>(size))) return;
        array.elements = static_cast<std::uint32_t*>(allocate(size));
        if constexpr (Codec::one_block) {
            swap_run(array.elements, at, array.count);
            at += size;
        } else
            for (std::uint32_t i = 0; i < array.count; ++i) number(array.elements[i]);
    }
    template <class Visit, class T>
    void array(Visit visit_element, Array<T>& array) {
        if (slack / header < array.count) st = 90;
        if (st != 0) return;
        array.elements = static_cast<T*>(allocate(sizeof(T) * array.count));
        for (std::uint32_t i = 0; i < array.count && st == 0; ++i) visit_element(array.elements[i]);
    }
    template <class Visit, class T>
    void list(Visit visit_element, List<T>& list) {
        number(list.count);
        T** link = &list.first;
        for (std::uint32_t i = 0; i < list.count && st == 0; ++i) {
            *link = static_cast<T*>(allocate(sizeof(T)));
            visit_element(**link);
            link = &(*link)->next;
        }
        *link = nullptr;
    }
    template <class Visit, class T>
    void arm(Visit visit_arm, T*& arm) {
        arm = static_cast<T*>(allocate(sizeof(T)));
        visit_arm(*arm);
    }
};

/// Frees what Get has allocated one by one.
struct Free {
    template <class Body>
    void record(unsigned char, std::ptrdiff_t, Body body) {
        body();
    }
    template <class T>
    void number(T&) {}
    template <class T>
    void enumerator(unsigned char, T&) {}
    template <class T>
    void run(T&) {}
    template <class T>
    void characters(T& text) {
        std::free(text.characters);
    }
    void words(Array<std::uint32_t>& array) { std::free(array.elements); }
    template <class Visit, class T>
    void array(Visit visit_element, Array<T>& array) {
        for (std::uint32_t i = 0; i < array.count; ++i) visit_element(array.elements[i]);
        std::free(array.elements);
    }
    template <class Visit, class T>
    void list(Visit visit_element, List<T>& list) {
        for (T* element = list.first; element != nullptr;) {
            visit_element(*element);
            std::free(std::exchange(element, element->next));
        }
    }
    template <class Visit, class T>
    void arm(Visit visit_arm, T*& arm) {
        visit_arm(*arm);
        std::free(arm);
    }
};

struct Compare {
    int result = 0;

    template <class Body>
    void record(unsigned char, std::ptrdiff_t, Body body) {
        if (result == 0) body();
    }
    template <class T>
    void number(const T& a, const T& b) {
        if (result == 0 && a != b) result = a < b ? -1 : 1;
    }
    void enumerator(unsigned char, const std::uint32_t& a, const std::uint32_t& b) { number(a, b); }
    void bytes(const void* a, const void* b, std::size_t count) {
        if (result == 0) result = std::memcmp(a, b, count);
    }
    template <class Run>
    void run(const Run& a, const Run& b) {
        bytes(a.data(), b.data(), a.size());
    }
    template <class T>
    void characters(const T& a, const T& b) {
        bytes(a.characters, b.characters, a.length);
    }
    void words(const Array<std::uint32_t>& a, const Array<std::uint32_t>& b) {
        bytes(a.elements, b.elements, std::size_t{4} * a.count);
    }
    template <class Visit, class T>
    void array(Visit visit_elements, const Array<T>& a, const Array<T>& b) {
        for (std::uint32_t i = 0; result == 0 && i < a.count; ++i) visit_elements(a.elements[i], b.elements[i]);
    }
    template <class Visit, class T>
    void list(Visit visit_elements, const List<T>& a, const List<T>& b) {
        number(a.count, b.count);
        for (T *x = a.first, *y = b.first; result == 0 && x != nullptr; x = x->next, y = y->next)
            visit_elements(*x, *y);
    }
    template <class Visit, class T>
    void arm(Visit visit_arms, T* a, T* b) {
        if (result == 0) visit_arms(*a, *b);
    }
};

template <class Codec, class X>
X* read(const std::vector<unsigned char>& wire, std::uint32_t& st) {
    Get<Codec> get{wire.data(), wire.data() + wire.size()};
    // Nothing in memory is larger than three times its bytes on the wire, but for the outermost records.
    const std::size_t size = sizeof(X) + (Codec::one_block ? sizeof(FlatGrants) + 3 * wire.size() : 0);
    auto* x = static_cast<X*>(std::malloc(size));
    get.block = reinterpret_cast<char*>(x + 1);
    visit(get, *x);
    st = get.st;
    return x;
}

template <class Codec, class X>
void release(X* x) {
    Free free;
    if constexpr (!Codec::one_block) visit(free, *x);
    std::free(x);
}

template <class Codec, class X>
void add_type(Suite& suite, const char* peer, const std::string& workload) {
    const auto wire = std::make_shared<std::vector<unsigned char>>(our_wire(workload));
    const auto buffer = std::make_shared<std::vector<unsigned char>>(wire->size());
    std::uint32_t st = 0;
    const auto reader = [&] { return std::shared_ptr<X>(read<Codec, X>(*wire, st), release<Codec, X>); };
    const std::shared_ptr<X> x = reader(), equal = reader();
    const auto put = [=] {
        Put<Codec> writer{buffer->data(), buffer->data() + buffer->size()};
        visit(writer, *x);
        keep(writer.st);
        keep(buffer->data());
        return writer.st;
    };
    require(st == 0 && put() == 0 && *buffer == *wire,
            workload + ": the reference writes other bytes than the library");
    suite.add(
        workload, "marshal", peer, [=] { put(); }, wire->size());
    suite.add(
        workload, "unmarshal", peer,
        [=] {
            std::uint32_t status;
            X* y = read<Codec, X>(*wire, status);
            keep(status);
            keep(y);
            release<Codec>(y);
        },
        wire->size());
    if constexpr (Codec::one_block)
        suite.add(workload, "compare", peer, [=] {
            Compare compare;
            visit(compare, *x, *equal);
            keep(compare.result);
        });
}

template <class Codec>
void add(Suite& suite, const char* peer) {
    add_type<Codec, FlatMessage>(suite, peer, "W1");
    add_type<Codec, FlatMessage>(suite, peer, "W2");
    add_type<Codec, FlatVlanGroup>(suite, peer, "W3");
    add_type<Codec, FlatDomainNames>(suite, peer, "W4");
}

} // namespace

void add_references(Suite& suite) {
    add<Inline>(suite, "flat");
    add<Called>(suite, "call");
    for (const char* workload : {"W1", "W2", "W3", "W4"}) {
        const auto wire = std::make_shared<std::vector<unsigned char>>(our_wire(workload));
        const auto copy = std::make_shared<std::vector<unsigned char>>(*wire);
        suite.add(
            workload, "marshal", "memcpy",
            [=] {
                std::memcpy(copy->data(), wire->data(), wire->size());
                keep(copy->data());
            },
            wire->size());
    }
}

} // namespace bench
