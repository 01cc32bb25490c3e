// XDR as rpcgen makes it, over memory streams. It has no copy, compare or text of its own.
#include "bench/suite.hpp"

#include <concepts>
#include <cstring>

#include <workloads.h>

namespace bench {
namespace {

/// Fills a record from the data; it owns what it points to, as a decoded one does.
struct Fill {
    static void assign(std::integral auto& to, std::integral auto from) {
        to = static_cast<std::remove_reference_t<decltype(to)>>(from);
    }
    static void assign(char*& to, const std::string& from) { to = strdup(from.c_str()); }
    static void assign(char*& to, const Name& from) { assign(to, from.name); }
    template <std::size_t n>
    static void assign(char (&to)[n], const std::array<std::uint8_t, n>& from) {
        std::memcpy(to, from.data(), n);
    }
    /// A sequence is a count and a pointer.
    template <class Sequence, class From>
    requires requires(const From& from) { from.size(); }
    static void assign(Sequence& to, const From& from) {
        auto& [count, elements] = to;
        count = static_cast<u_int>(from.size());
        using Elements = std::remove_reference_t<decltype(elements)>;
        elements = static_cast<Elements>(std::calloc(from.size(), sizeof *elements));
        for (std::size_t i = 0; i < from.size(); ++i) assign(elements[i], from[i]);
    }
    static void assign(auto& to, const TemplateList& from) { assign(to, from.data); }
    static void assign(XdrTlv& to, const TlvOf<Plain>& from) {
        to.type = from.type;
        assign(to.value, from.value);
    }
    static void assign(XdrMessage& to, const Message& from) {
        to.epm_type = from.epm_type;
        if (from.acl_data)
            assign(to.XdrMessage_u.acl_data, *from.acl_data);
        else
            assign(to.XdrMessage_u.bm_data, *from.bm_data);
    }
#define ASSIGN(T, kind, name, ...) assign(to.name, from.name);
#define ASSIGN_FIELDS(Record, T, FIELDS)                                                                               \
    static void assign(Xdr##Record& to, const Record& from) {                                                          \
        FIELDS(ASSIGN, BENCH_SKIP, T)                                                                                  \
    }
    BENCH_RECORDS(ASSIGN_FIELDS, BENCH_SKIP)
};

template <class Record, auto function>
struct Coder {
    using X = Record;
    static constexpr auto code = function;
};

template <class Data, class Coder>
struct Subject {
    using X = typename Coder::X;
    X x{};
    std::vector<char> wire = std::vector<char>(1 << 16), buffer;

    explicit Subject(const Workload<Data>& workload) {
        Fill::assign(x, workload.data);
        wire.resize(encode(&x, wire));
        buffer.resize(wire.size());
        X back{};
        require(!wire.empty() && decode(&back) && encode(&back, buffer) != 0 && buffer == wire,
                workload.name + ": XDR does not read what it has written");
        release(&back);
    }
    ~Subject() { release(&x); }
    Subject(const Subject&) = delete;
    Subject& operator=(const Subject&) = delete;

    static u_int encode(X* from, std::vector<char>& to) {
        XDR stream;
        xdrmem_create(&stream, to.data(), static_cast<u_int>(to.size()), XDR_ENCODE);
        return Coder::code(&stream, from) ? xdr_getpos(&stream) : 0;
    }
    bool_t decode(X* to) {
        XDR stream;
        xdrmem_create(&stream, wire.data(), static_cast<u_int>(wire.size()), XDR_DECODE);
        return Coder::code(&stream, to);
    }
    static void release(X* decoded) { xdr_free(reinterpret_cast<xdrproc_t>(Coder::code), decoded); }

    std::size_t marshal() {
        keep(encode(&x, buffer));
        keep(buffer.data());
        return wire.size();
    }
    std::size_t unmarshal() {
        X y;
        std::memset(&y, 0, sizeof y);
        keep(decode(&y));
        release(&y);
        return wire.size();
    }
};

const Peer xdr("xdr", add_all<Subject, Coder<XdrMessage, xdr_XdrMessage>, Coder<XdrVlanGroup, xdr_XdrVlanGroup>,
                              Coder<XdrDomainNames, xdr_XdrDomainNames>>);

} // namespace
} // namespace bench
