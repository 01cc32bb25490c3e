// FlatBuffers through its object API: native objects are packed and unpacked. UnPack trusts its bytes; the verifier is
// left out, which is to this peer's advantage.
#include "bench/suite.hpp"

#include <concepts>
#include <cstring>

#include <flatbuffers/flatbuffers.h>
#include <workloads_generated.h>

namespace bench {
namespace {

struct Fill {
    template <class T>
    static void assign(T& to, const T& from) {
        to = from;
    }
    static void assign(std::integral auto& to, std::integral auto from) {
        to = static_cast<std::remove_reference_t<decltype(to)>>(from);
    }
    static void assign(std::vector<std::uint8_t>& to, const auto& bytes) { to.assign(bytes.begin(), bytes.end()); }
    static void assign(std::unique_ptr<fb::Mac>& to, const Mac& from) {
        std::uint32_t low;
        std::uint16_t high;
        std::memcpy(&low, from.data(), sizeof low);
        std::memcpy(&high, from.data() + sizeof low, sizeof high);
        to = std::make_unique<fb::Mac>(low, high);
    }
    template <class T>
    static void assign(std::unique_ptr<T>& to, const auto& from) {
        to = std::make_unique<T>();
        assign(*to, from);
    }
    template <class T, class From>
    static void assign(std::vector<std::unique_ptr<T>>& to, const std::vector<From>& from) {
        to.reserve(from.size());
        for (const From& element : from) assign(to.emplace_back(), element);
    }
    static void assign(auto& to, const TemplateList& from) { assign(to, from.data); }
    static void assign(std::vector<std::string>& to, const std::vector<Name>& from) {
        to.reserve(from.size());
        for (const Name& element : from) to.push_back(element.name);
    }
    static void assign(fb::TlvT& to, const TlvOf<Plain>& from) {
        to.type = from.type;
        assign(to.value, from.value);
    }
    static void assign(fb::MessageT& to, const Message& from) {
        if (from.acl_data)
            arm<fb::EntryT>(to, *from.acl_data);
        else
            arm<fb::GrantsT>(to, *from.bm_data);
    }
    template <class T>
    static void arm(fb::MessageT& to, const auto& from) {
        T x;
        assign(x, from);
        to.arm.Set(std::move(x));
    }
#define ASSIGN(T, kind, name, ...) assign(to.name, from.name);
#define ASSIGN_FIELDS(Record, type, FIELDS)                                                                            \
    static void assign(fb::Record##T& to, const Record& from) {                                                        \
        FIELDS(ASSIGN, BENCH_SKIP, type)                                                                               \
    }
    BENCH_RECORDS(ASSIGN_FIELDS, BENCH_SKIP)
};

template <class Data, class Table>
struct Subject : Values<Data, typename Table::NativeTableType, Fill> {
    using X = typename Table::NativeTableType;
    using Subject::Values::x, Subject::Values::equal;
    flatbuffers::FlatBufferBuilder builder;
    std::vector<std::uint8_t> wire;

    explicit Subject(const Workload<Data>& workload) : Subject::Values{workload.data} {
        builder.Finish(Table::Pack(builder, &x));
        wire.assign(builder.GetBufferPointer(), builder.GetBufferPointer() + builder.GetSize());
        flatbuffers::GetRoot<Table>(wire.data())->UnPackTo(&equal);
        require(x == equal, workload.name + ": FlatBuffers does not read what it has written");
    }
    std::size_t marshal() {
        builder.Clear();
        builder.Finish(Table::Pack(builder, &x));
        keep(builder.GetBufferPointer());
        return wire.size();
    }
    std::size_t unmarshal() {
        X y;
        flatbuffers::GetRoot<Table>(wire.data())->UnPackTo(&y);
        keep(&y);
        return wire.size();
    }
    std::size_t compare() {
        keep(x == equal);
        return 0;
    }
};

const Peer flatbuffers_peer("flatbuffers", add_all<Subject, fb::Message, fb::VlanGroup, fb::DomainNames>);

} // namespace
} // namespace bench
