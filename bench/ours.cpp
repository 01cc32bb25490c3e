// The library itself: how the workloads' records are filled and read through its accessors, and its operations.
#include "bench/suite.hpp"

#include <orlan_epm.h>
#include <platform/domain.h>
#include <platform/values.h>
#include <platform/xml.h>

#include <cstring>

namespace bench {
namespace {

constexpr std::uint32_t S = ZUR_NO_SET;

using Domain = std::unique_ptr<zur_domain, decltype(&platform_domain_destroy)>;

void* allocate(void*, std::uint32_t, std::size_t size) {
    return std::malloc(size);
}

void release(void*, std::uint32_t, void* block) {
    std::free(block);
}

/// The Domain of a site with its own allocator, which here is malloc as the peers have it, or the default Domain, which
/// keeps released blocks.
Domain make_domain(bool tracked, bool pooled) {
    platform_domain_options options{};
    options.tracking = tracked ? ZUR_TRACKED_MODE : PLATFORM_NO_HANDLE;
    if (!pooled) options.obj_alloc_fn = allocate, options.obj_free_fn = release;
    options.block_limit = options.memory_limit = SIZE_MAX; // the largest workloads hold more than strangers may
    return {platform_domain_create(&options), platform_domain_destroy};
}

template <class Values>
std::uint32_t count_of(const Values& values) {
    return static_cast<std::uint32_t>(values.size());
}

const std::uint8_t* bytes_of(const std::string& text) {
    return reinterpret_cast<const std::uint8_t*>(text.data());
}

/// Fills a record from the data through the library's setters.
struct Fill {
    zur_domain* D;
    std::uint32_t* st;

    template <class X, class Length>
    void text(void (*set)(zur_domain*, std::uint32_t, X*, const char*, Length, std::uint32_t*), X* x,
              const std::string& from) {
        set(D, S, x, from.data(), static_cast<Length>(from.size()), st);
    }
    void mac(auto set, auto* x, const Mac& from) {
        zur_mac_addr y;
        std::memcpy(y.bytes, from.data(), from.size());
        set(D, S, x, &y, st);
    }
    /// An object of the library's, which is written with values and then moved into its field.
    template <class Object>
    void object(auto write, auto set, auto* x, auto... values) {
        Object y{};
        write(D, S, &y, values..., st);
        set(D, S, x, &y, st);
    }
    /// The last element first, so that the array grows once. An empty source, because tracked mode asks for one.
    template <class Element>
    void array(auto create, auto destroy, auto set, auto get, auto* x, const std::vector<Element>& from) {
        if (from.empty()) return;
        auto* empty = create(D, S);
        set(D, S, x, count_of(from) - 1, empty, 1, st);
        destroy(D, S, empty);
        for (std::uint32_t i = 0; i < from.size(); ++i) fields(get(D, S, x, i, st), from[i]);
    }
    template <class Element>
    void list(auto create, auto set_last, auto* x, const std::vector<Element>& from) {
        for (const Element& element : from) {
            auto* y = create(D, S);
            fields(y, element);
            set_last(D, S, x, y, st);
        }
    }

#define FILL_NUMBER(T, name, type) T##_##name##_set_value(D, S, x, from.name, st);
#define FILL_ENUM(T, name, names) T##_##name##_set_value(D, S, x, from.name, st);
#define FILL_HANDLE(T, name, type, theirs) object<theirs>(platform_##theirs##_write, T##_##name##_set, x, from.name);
#define FILL_TEXT(T, name, length, form) text(T##_##name##_set, x, from.name);
#define FILL_SIX(T, name) T##_##name##_set(D, S, x, reinterpret_cast<const char*>(from.name.data()), 6, st);
#define FILL_MAC(T, name) mac(T##_##name##_set, x, from.name);
#define FILL_VSTRING(T, name)                                                                                          \
    object<zur_vstring>(platform_zur_vstring_write, T##_##name##_set, x, from.name.data(), count_of(from.name));
#define FILL_TLV(T, name)                                                                                              \
    object<aaa_tlv>(platform_aaa_tlv_write, T##_##name##_set, x, from.name.type, bytes_of(from.name.value),            \
                    count_of(from.name.value));
#define FILL_RUN(T, name) T##_##name##_set_mem(D, S, x, from.name.data(), 256, st);
#define FILL_WORDS(T, name, length)                                                                                    \
    if (!from.name.empty()) T##_##name##_set_mem(D, S, x, from.name.data(), count_of(from.name), st);
#define FILL_PART(T, name, ...) fields(T##_##name##_get(D, S, x, st), from.name);
#define FILL_ARRAY(T, name, Record, fixed, length, element)                                                            \
    array(element##_create, element##_destroy, T##_##name##_set, T##_##name##_get, x, from.name);
#define FILL_LIST(T, name, Record, fixed, theirs, element)                                                             \
    list(element##_create, T##_##theirs##_set_last, x, from.name);
#define FILL(T, kind, ...) FILL_##kind(T, __VA_ARGS__)
#define FILL_FIELDS(Record, T, FIELDS)                                                                                 \
    void fields(T* x, const Record& from) {                                                                            \
        FIELDS(FILL, BENCH_SKIP, T)                                                                                    \
    }
    BENCH_RECORDS(FILL_FIELDS, FILL_FIELDS)

    orlan_ial_svm_epm_data* made(const Message& from) {
        return from.acl_data ? arm(orlan_ial_svm_acl_data_create, orlan_ial_svm_epm_data_acl_data_set, *from.acl_data)
                             : arm(orlan_ial_svm_bm_data_create, orlan_ial_svm_epm_data_bm_data_set, *from.bm_data);
    }
    orlan_ial_svm_epm_data* arm(auto create_arm, auto set, const auto& from) {
        auto* x = create_arm(D, S);
        fields(x, from);
        orlan_ial_svm_epm_data* message = orlan_ial_svm_epm_data_create(D, S);
        set(D, S, message, x, st);
        return message;
    }
    orlan_ial_vlan_group_info* made(const VlanGroup& from) {
        orlan_ial_vlan_group_info* x = orlan_ial_vlan_group_info_create(D, S);
        fields(x, from);
        return x;
    }
    orlan_svm_epm_notify_domain_name* made(const DomainNames& from) {
        orlan_svm_epm_notify_domain_name* x = orlan_svm_epm_notify_domain_name_create(D, S);
        fields(x, from);
        return x;
    }
};

/// Reads every field; texts are copied into the caller's buffer, as their accessors do.
struct Read {
    zur_domain* D;
    std::uint32_t* st;
    std::uint64_t sum = 0;
    char characters[512];

    Read(zur_domain* domain, std::uint32_t* status) : D(domain), st(status) {}
    void text(auto get, const auto* x, std::uint32_t length) {
        get(D, S, x, characters, length + 1, st);
        sum += static_cast<unsigned char>(characters[0]) + length;
    }
    void mac(const zur_mac_addr* object) {
        platform_zur_mac_addr_read(object, reinterpret_cast<std::uint8_t*>(characters));
        sum += static_cast<unsigned char>(characters[5]);
    }
    void object(auto read, const auto* from, auto... more) {
        std::uint32_t length = 0;
        keep(read(from, more..., &length));
        sum += length;
    }
    void run(auto get_mem, const auto* x) {
        std::uint8_t bytes[256];
        get_mem(D, S, x, bytes, 256, st);
        keep(bytes);
        sum += bytes[0];
    }
    void list(auto get_count, auto get_first, auto get_next, auto* x) {
        std::uint32_t left = get_count(D, S, x, st);
        for (auto* element = get_first(D, S, x, st); left-- != 0;) {
            fields(element);
            if (left != 0) element = get_next(D, S, x, element, st);
        }
    }

#define READ_NUMBER(T, name, type) sum += T##_##name##_get_value(D, S, x, st);
#define READ_ENUM(T, name, names) sum += T##_##name##_get_value(D, S, x, st);
#define READ_HANDLE(T, name, type, theirs) sum += platform_##theirs##_read(T##_##name##_get(D, S, x, st));
#define READ_TEXT(T, name, length, form) text(T##_##name##_get, x, T##_##length##_get_value(D, S, x, st));
#define READ_SIX(T, name) text(T##_##name##_get, x, 6);
#define READ_MAC(T, name) mac(T##_##name##_get(D, S, x, st));
#define READ_VSTRING(T, name) object(platform_zur_vstring_read, T##_##name##_get(D, S, x, st));
#define READ_TLV(T, name)                                                                                              \
    std::uint32_t type = 0;                                                                                            \
    object(platform_aaa_tlv_read, T##_##name##_get(D, S, x, st), &type);                                               \
    sum += type;
#define READ_RUN(T, name) run(T##_##name##_get_mem, x);
#define READ_WORDS(T, name, length)                                                                                    \
    for (std::uint32_t i = 0, count = T##_##length##_get_value(D, S, x, st); i < count; ++i)                           \
        sum += T##_##name##_get_value(D, S, x, i, st);
#define READ_PART(T, name, ...) fields(T##_##name##_get(D, S, x, st));
#define READ_ARRAY(T, name, Record, fixed, length, element)                                                            \
    for (std::uint32_t i = 0, count = T##_##length##_get_value(D, S, x, st); i < count; ++i)                           \
        fields(T##_##name##_get(D, S, x, i, st));
#define READ_LIST(T, name, Record, fixed, theirs, element)                                                             \
    list(T##_##theirs##_get_count, T##_##theirs##_get_first, T##_##theirs##_get_next, x);
#define READ(T, kind, ...) READ_##kind(T, __VA_ARGS__)
#define READ_FIELDS(Record, T, FIELDS)                                                                                 \
    void fields(T* x) {                                                                                                \
        FIELDS(READ, BENCH_SKIP, T)                                                                                    \
    }
    BENCH_RECORDS(READ_FIELDS, READ_FIELDS)

    void fields(orlan_ial_svm_epm_data* x) {
        if (orlan_ial_svm_epm_data_epm_type_get_value(D, S, x, st) == ORLAN_IAL_SVM_EPM_TYPE_ACL)
            fields(orlan_ial_svm_epm_data_acl_data_get(D, S, x, st));
        else
            fields(orlan_ial_svm_epm_data_bm_data_get(D, S, x, st));
    }
};

/// The library's type for a workload's data, with its functions.
template <class Data>
struct Type;
#define TYPE(Data, type)                                                                                               \
    template <>                                                                                                        \
    struct Type<Data> {                                                                                                \
        using X = type;                                                                                                \
        static constexpr const char* name = #type;                                                                     \
        static constexpr auto create = type##_create;                                                                  \
        static constexpr auto destroy = type##_destroy;                                                                \
        static constexpr auto len = type##_len;                                                                        \
        static constexpr auto marshal = type##_marshal;                                                                \
        static constexpr auto unmarshal = type##_unmarshal;                                                            \
        static constexpr auto clone = type##_clone;                                                                    \
        static constexpr auto compare = type##_compare;                                                                \
        static constexpr auto hash = type##_hash;                                                                      \
        static constexpr auto print = type##_print;                                                                    \
        static constexpr auto to_xml = type##_to_xml;                                                                  \
        static constexpr auto from_xml = type##_from_xml;                                                              \
    }
TYPE(Message, orlan_ial_svm_epm_data);
TYPE(VlanGroup, orlan_ial_vlan_group_info);
TYPE(DomainNames, orlan_svm_epm_notify_domain_name);

template <class Data>
struct Subject {
    using T = Type<Data>;
    using X = typename T::X;
    Data data;
    Domain domain;
    zur_domain* D = domain.get();
    std::uint32_t st = 0;
    X *x, *equal = nullptr;
    std::vector<unsigned char> wire, workspace;
    std::string printed, xml, text;

    Subject(const Data& from, bool tracked, bool pooled)
        : data(from), domain(make_domain(tracked, pooled)), x(Fill{D, &st}.made(data)) {
        // One byte more than the length in tracked mode: the last flag may lie right behind it.
        wire.resize(T::len(D, S, x) + 1);
        wire.resize(T::marshal(D, S, wire.data(), x, static_cast<int>(wire.size()), &st));
        workspace.resize(wire.size() + 1);
        T::clone(D, S, x, &equal, workspace.data(), static_cast<int>(workspace.size()), &st);
        require(st == 0 && equal != nullptr && T::compare(x, equal) == 0, std::string(T::name) + " cannot be built");
        printed = written([&] { return print(); });
        xml = written([&] { return to_xml(); });
        text.resize(std::max(printed.size(), xml.size()) + 64);
    }
    ~Subject() {
        // A raised status would have made every further call return at once, and all numbers worthless.
        require(st == 0, std::string(T::name) + ": an operation has failed with " + std::to_string(st));
        T::destroy(D, S, equal);
        T::destroy(D, S, x);
    }
    Subject(const Subject&) = delete;
    Subject& operator=(const Subject&) = delete;

    /// What a writer writes into the text, which grows until it is large enough.
    std::string written(auto write) {
        for (text.resize(4096);; text.resize(text.size() * 2)) {
            const std::size_t length = write();
            if (std::exchange(st, 0) == 0) return text.substr(0, length);
            require(text.size() < (1u << 30), "a text does not end");
        }
    }
    X* parsed() {
        const platform_xml_limits limits = {xml.size() + 1, 0, 1u << 21};
        zur_xml_document* document = platform_xml_parse(xml.data(), xml.size(), &limits, nullptr, 0);
        X* y = T::create(D, S);
        T::from_xml(D, S, T::name, document, y, &st, nullptr, 0);
        platform_xml_free(document);
        return y;
    }

    std::size_t marshal() {
        keep(T::marshal(D, S, workspace.data(), x, static_cast<int>(workspace.size()), &st));
        keep(st);
        return wire.size();
    }
    std::size_t unmarshal() {
        X* y = T::create(D, S);
        T::unmarshal(D, S, wire.data(), y, static_cast<int>(wire.size()), 0, &st);
        keep(st);
        T::destroy(D, S, y);
        return wire.size();
    }
    std::size_t clone() {
        X* copy;
        T::clone(D, S, x, &copy, workspace.data(), static_cast<int>(workspace.size()), &st);
        T::destroy(D, S, copy);
        return 0;
    }
    std::size_t compare() {
        keep(T::compare(x, equal));
        return wire.size();
    }
    std::size_t hash() {
        keep(T::hash(x, 0));
        return wire.size();
    }
    std::size_t fill() {
        T::destroy(D, S, Fill{D, &st}.made(data));
        return 0;
    }
    std::size_t read() {
        Read reader(D, &st);
        reader.fields(x);
        keep(reader.sum);
        return 0;
    }
    std::size_t print() { return T::print(D, S, text.data(), 0, "x", x, count_of(text), &st); }
    std::size_t to_xml() { return T::to_xml(D, S, T::name, text.data(), x, count_of(text), 0, &st); }
    std::size_t from_xml() {
        T::destroy(D, S, parsed());
        return xml.size();
    }
};

} // namespace

void add_ours(Suite& suite, Workloads& workloads) {
    workloads.for_each([&]<class Data>(Workload<Data>& workload) {
        const bool pooled = suite.is_pooled();
        Subject<Data> s(workload.data, false, pooled);
        workload.wire = s.wire;
        workload.xml = s.xml;
        auto* back = s.parsed();
        require(Type<Data>::compare(back, s.x) == 0, workload.name + ": the library does not read its XML");
        Type<Data>::destroy(s.D, S, back);
        suite.add<Subject<Data>>(workload.name, "ours", all_operations, workload.data, false, pooled);
        if (!pooled)
            suite.add<Subject<Data>>(workload.name, "tracked", {"marshal", "unmarshal"}, workload.data, true, false);
    });
}

void add_ours_scaled(Suite& suite, const std::string& workload, std::size_t elements) {
    Operations operations = {"marshal", "unmarshal", "compare", "hash", "print", "to_xml"};
    if (elements <= 10000) operations.push_back("from_xml"); // the cost is quadratic
    const std::string name = workload + "x" + std::to_string(elements);
    if (workload == "W3")
        suite.add<Subject<VlanGroup>>(name, "ours", operations, vlan_group(elements), false, false);
    else
        suite.add<Subject<DomainNames>>(name, "ours", operations, domain_names(elements), false, false);
}

} // namespace bench
