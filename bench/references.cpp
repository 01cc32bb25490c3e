// What is possible at all, for the same bytes as the library's: `flat` writes and reads them inline, decides about the
// room once for each record, and puts what it reads into one block; `call` calls a shared library for each primitive
// field, and allocates each record, text and array by itself, as a record that owns its parts has to.
#include "bench/codecs.hpp"
#include "bench/suite.hpp"

#include <cstring>

namespace bench {
namespace {

/// Records in plain memory, with a pointer where something is owned.
struct Flat {
    template <class Count>
    struct TextOf {
        Count count;
        char* elements;
    };
    using Text = TextOf<std::uint32_t>;
    using Name = TextOf<std::uint16_t>;
    template <class T>
    struct Array {
        std::uint32_t count;
        T* elements;
    };
    template <class T>
    struct List {
        struct Node {
            T value;
            Node* next;
        };
        std::uint32_t count;
        Node* first;
    };
    template <class T>
    using Arm = T*;
};

using Words = Flat::Array<std::uint32_t>;

constexpr std::ptrdiff_t header = 6; // variant byte, flag byte, jump word

/// A run in one loop without aliases, which the compiler turns into vector instructions.
[[gnu::target_clones("avx2", "default")]] void swap_run(void* to, const void* from, std::size_t count) {
    auto* __restrict target = static_cast<unsigned char*>(to);
    const auto* __restrict source = static_cast<const unsigned char*>(from);
    for (std::size_t i = 0; i < count; ++i) {
        std::uint32_t number;
        std::memcpy(&number, source + 4 * i, sizeof number);
        number = in_network_order(number);
        std::memcpy(target + 4 * i, &number, sizeof number);
    }
}

struct Inline {
    static constexpr bool one_block = true;
    template <class Number>
    static Room put(unsigned char* to, const Number* field, Room, std::uint32_t*) {
        const Number ordered = in_network_order(*field);
        std::memcpy(to, &ordered, sizeof ordered);
        return sizeof ordered;
    }
    template <class Number>
    static Room get(const unsigned char* from, Number* field, Room, std::uint32_t*) {
        Number ordered;
        std::memcpy(&ordered, from, sizeof ordered);
        *field = in_network_order(ordered);
        return sizeof ordered;
    }
    static Room run(unsigned char* to, const unsigned char* from, Room count, Room, std::uint32_t*) {
        std::memcpy(to, from, static_cast<std::size_t>(count));
        return count;
    }
};

struct Called {
    static constexpr bool one_block = false;
    static Room put(unsigned char* to, const auto* field, Room room, std::uint32_t* st) {
        return put_codec(to, field, room, st);
    }
    static Room get(const unsigned char* from, auto* field, Room room, std::uint32_t* st) {
        return get_codec(from, field, room, st);
    }
    static Room run(unsigned char* to, const unsigned char* from, Room count, Room room, std::uint32_t* st) {
        return run_codec(to, from, count, room, st);
    }
};

/// The position of a codec. `slack` is the room that the fixed fields of the records begun so far leave: one decision
/// for each record, and one for each part whose length varies.
template <class Byte>
struct Cursor {
    Byte *at, *end;
    std::ptrdiff_t slack = end - at;
    std::uint32_t st = 0;

    bool take(std::ptrdiff_t bytes) {
        if (slack < bytes) st = 90;
        if (st != 0) return false;
        slack -= bytes;
        return true;
    }
    Room room() const { return static_cast<Room>(end - at); }
};

/// Fields that are, on the wire, others put together.
template <class Visitor>
struct Composed {
    Visitor& self() { return static_cast<Visitor&>(*this); }
    void length(const char* name, auto&... text) { self().number(name, text.count...); }
    void mac(const char* name, auto&... field) { self().run(name, field...); }
    void six(const char* name, auto&... field) { self().run(name, field...); }
    void vstring(const char* name, auto&... field) {
        length(name, field...);
        self().text(name, field...);
    }
    void tlv(const char* name, auto&... field) {
        self().number(name, field.type...);
        vstring(name, field.value...);
    }
};

template <class Codec>
struct Put : Cursor<unsigned char>, Composed<Put<Codec>> {
    void record(const char*, unsigned char variant, std::ptrdiff_t fixed, auto body) {
        if (!take(header + fixed)) return;
        unsigned char* const start = at;
        at[0] = variant;
        at[1] = 0;
        at += header;
        body();
        const auto jump = static_cast<std::uint32_t>(at - start - 2);
        Inline::put(start + 2, &jump, 4, &st);
    }
    void number(const char*, const auto& field) { at += Codec::put(at, &field, room(), &st); }
    void enumerator(const char* name, unsigned char variant, auto&, const std::uint32_t& field) {
        *at++ = variant;
        number(name, field);
    }
    void run(const char*, const auto& field) {
        at += Codec::run(at, field.data(), static_cast<Room>(field.size()), room(), &st);
    }
    void text(const char*, const auto& text) {
        if (!take(text.count)) return;
        std::memcpy(at, text.elements, text.count);
        at += text.count;
    }
    void words(const char* name, const Words& array) {
        if (!take(std::ptrdiff_t{4} * array.count)) return;
        if constexpr (Codec::one_block) {
            swap_run(at, array.elements, array.count);
            at += std::size_t{4} * array.count;
        } else
            for (std::uint32_t i = 0; i < array.count; ++i) number(name, array.elements[i]);
    }
    void array(const char* name, unsigned char variant, std::ptrdiff_t fixed, auto visit_element, const auto& array) {
        for (std::uint32_t i = 0; i < array.count; ++i)
            record(name, variant, fixed, [&] { visit_element(array.elements[i]); });
    }
    void list(const char* name, unsigned char variant, std::ptrdiff_t fixed, auto visit_element, const auto& list) {
        number(name, list.count);
        for (auto* node = list.first; node != nullptr; node = node->next)
            record(name, variant, fixed, [&] { visit_element(node->value); });
    }
    void arm(const char* name, unsigned char variant, std::ptrdiff_t fixed, auto visit_arm, auto* arm) {
        record(name, variant, fixed, [&] { visit_arm(*arm); });
    }
};

template <class Codec>
struct Get : Cursor<const unsigned char>, Composed<Get<Codec>> {
    char* block = nullptr; ///< what is free of the one block, which is large enough for all that the bytes can ask for

    template <class T>
    T* allocate(std::size_t count) {
        const std::size_t size = count * sizeof(T);
        if constexpr (!Codec::one_block) return static_cast<T*>(std::malloc(size));
        return reinterpret_cast<T*>(std::exchange(block, block + ((size + 7) & ~std::size_t{7})));
    }
    void record(const char*, unsigned char known, std::ptrdiff_t fixed, auto body) {
        if (slack < header || at[0] > known) st = 90;
        if (st != 0) return;
        std::uint32_t jump;
        Inline::get(at + 2, &jump, 4, &st);
        if (jump < 4 + fixed) st = 90;
        if (!take(std::ptrdiff_t{jump} + 2)) return;
        const unsigned char* const behind = at + 2 + jump;
        const std::ptrdiff_t outer = std::exchange(slack, jump - 4 - fixed);
        at += header;
        body();
        at = behind;
        slack = outer;
    }
    void number(const char*, auto& field) { at += Codec::get(at, &field, room(), &st); }
    void enumerator(const char* name, unsigned char, auto&, std::uint32_t& field) {
        ++at;
        number(name, field);
    }
    void run(const char*, auto& field) {
        at += Codec::run(field.data(), at, static_cast<Room>(field.size()), room(), &st);
    }
    void text(const char*, auto& text) {
        if (!take(text.count)) return;
        text.elements = allocate<char>(std::size_t{text.count} + 1);
        std::memcpy(text.elements, at, text.count);
        text.elements[text.count] = 0;
        at += text.count;
    }
    void words(const char* name, Words& array) {
        if (!take(std::ptrdiff_t{4} * array.count)) return;
        array.elements = allocate<std::uint32_t>(array.count);
        if constexpr (Codec::one_block) {
            swap_run(array.elements, at, array.count);
            at += std::size_t{4} * array.count;
        } else
            for (std::uint32_t i = 0; i < array.count; ++i) number(name, array.elements[i]);
    }
    template <class T>
    void array(const char* name, unsigned char known, std::ptrdiff_t fixed, auto visit_element, Flat::Array<T>& array) {
        if (slack / header < array.count) st = 90;
        if (st != 0) return;
        array.elements = allocate<T>(array.count);
        for (std::uint32_t i = 0; i < array.count; ++i)
            record(name, known, fixed, [&] { visit_element(array.elements[i]); });
    }
    template <class T>
    void list(const char* name, unsigned char known, std::ptrdiff_t fixed, auto visit_element, Flat::List<T>& list) {
        number(name, list.count);
        auto** link = &list.first;
        for (std::uint32_t i = 0; i < list.count && st == 0; ++i) {
            auto* node = *link = allocate<typename Flat::List<T>::Node>(1);
            record(name, known, fixed, [&] { visit_element(node->value); });
            link = &node->next;
        }
        *link = nullptr;
    }
    template <class T>
    void arm(const char* name, unsigned char known, std::ptrdiff_t fixed, auto visit_arm, T*& arm) {
        arm = allocate<T>(1);
        record(name, known, fixed, [&] { visit_arm(*arm); });
    }
};

/// Frees what Get has allocated piece by piece.
struct Free : Composed<Free> {
    void record(const char*, unsigned char, std::ptrdiff_t, auto body) { body(); }
    void number(const char*, auto&) {}
    void enumerator(const char*, unsigned char, auto&, auto&) {}
    void run(const char*, auto&) {}
    void text(const char*, auto& text) { std::free(text.elements); }
    void words(const char*, Words& array) { std::free(array.elements); }
    void array(const char*, unsigned char, std::ptrdiff_t, auto visit_element, auto& array) {
        for (std::uint32_t i = 0; i < array.count; ++i) visit_element(array.elements[i]);
        std::free(array.elements);
    }
    void list(const char*, unsigned char, std::ptrdiff_t, auto visit_element, auto& list) {
        for (auto* node = list.first; node != nullptr;) {
            visit_element(node->value);
            std::free(std::exchange(node, node->next));
        }
    }
    void arm(const char*, unsigned char, std::ptrdiff_t, auto visit_arm, auto*& arm) {
        visit_arm(*arm);
        std::free(arm);
    }
};

struct Compare : Composed<Compare> {
    int result = 0;

    void record(const char*, unsigned char, std::ptrdiff_t, auto body) {
        if (result == 0) body();
    }
    void number(const char*, const auto& a, const auto& b) {
        if (result == 0 && a != b) result = a < b ? -1 : 1;
    }
    void enumerator(const char* name, unsigned char, auto&, auto& a, auto& b) { number(name, a, b); }
    void bytes(const void* a, const void* b, std::size_t count) {
        if (result == 0) result = std::memcmp(a, b, count);
    }
    void run(const char*, const auto& a, const auto& b) { bytes(a.data(), b.data(), a.size()); }
    void text(const char*, const auto& a, const auto& b) { bytes(a.elements, b.elements, a.count); }
    void words(const char*, const Words& a, const Words& b) { bytes(a.elements, b.elements, std::size_t{4} * a.count); }
    void array(const char*, unsigned char, std::ptrdiff_t, auto visit_elements, const auto& a, const auto& b) {
        for (std::uint32_t i = 0; result == 0 && i < a.count; ++i) visit_elements(a.elements[i], b.elements[i]);
    }
    void list(const char* name, unsigned char, std::ptrdiff_t, auto visit_elements, const auto& a, const auto& b) {
        number(name, a.count, b.count);
        for (auto *x = a.first, *y = b.first; result == 0 && x != nullptr; x = x->next, y = y->next)
            visit_elements(x->value, y->value);
    }
    void arm(const char*, unsigned char, std::ptrdiff_t, auto visit_arms, auto* a, auto* b) {
        if (result == 0) visit_arms(*a, *b);
    }
};

/// Its functions hold all that they call, so that their cost does not hang on what the compiler chooses to inline.
template <class Codec, class Data, class X>
struct Reference {
    std::vector<unsigned char> wire, buffer;
    X *x = decoded(), *equal = decoded();

    explicit Reference(const Workload<Data>& workload) : wire(workload.wire), buffer(wire.size()) {
        marshal();
        require(buffer == wire, workload.name + ": the reference writes other bytes than the library");
    }
    ~Reference() { release(x), release(equal); }
    Reference(const Reference&) = delete;
    Reference& operator=(const Reference&) = delete;

    [[gnu::flatten, gnu::noinline]] X* decoded() {
        Get<Codec> get{{wire.data(), wire.data() + wire.size()}, {}};
        // Nothing in memory is larger than three times its bytes on the wire, but for the outermost records.
        const std::size_t block = Codec::one_block ? sizeof(GrantsOf<Flat>) + 3 * wire.size() : 0;
        X* y = static_cast<X*>(std::malloc(sizeof(X) + block));
        get.block = reinterpret_cast<char*>(y + 1);
        visit(get, *y);
        const std::uint32_t st = get.st; // alone, so that the rest of the cursor may stay in registers
        keep(st);
        return y;
    }
    static void release(X* y) {
        Free free;
        if constexpr (!Codec::one_block) visit(free, *y);
        std::free(y);
    }
    [[gnu::flatten]] std::size_t marshal() {
        Put<Codec> put{{buffer.data(), buffer.data() + buffer.size()}, {}};
        visit(put, *x);
        keep(put.st);
        keep(buffer.data());
        return wire.size();
    }
    std::size_t unmarshal() {
        X* y = decoded();
        keep(y);
        release(y);
        return wire.size();
    }
    [[gnu::flatten]] std::size_t compare() requires Codec::one_block {
        Compare compared;
        visit(compared, *x, *equal);
        keep(compared.result);
        return 0;
    }
};

/// The least that writing can cost.
template <class Data, class>
struct Copied {
    std::vector<unsigned char> wire, copy;

    explicit Copied(const Workload<Data>& workload) : wire(workload.wire), copy(wire) {}
    std::size_t marshal() {
        std::memcpy(copy.data(), wire.data(), wire.size());
        keep(copy.data());
        return wire.size();
    }
};

template <class Data, class X>
using Inlined = Reference<Inline, Data, X>;
template <class Data, class X>
using Calling = Reference<Called, Data, X>;

const Peer flat("flat", add_all<Inlined, MessageOf<Flat>, VlanGroupOf<Flat>, DomainNamesOf<Flat>>);
const Peer call("call", add_all<Calling, MessageOf<Flat>, VlanGroupOf<Flat>, DomainNamesOf<Flat>>);
const Peer memcpy_peer("memcpy", add_all<Copied, void, void, void>);

} // namespace
} // namespace bench
