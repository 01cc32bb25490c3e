// protobuf: generated classes, filled from the common data. Its text is TextFormat, which the report shows beside print
// and beside XML.
#include "bench/suite.hpp"

#include <google/protobuf/text_format.h>
#include <google/protobuf/util/message_differencer.h>
#include <workloads.pb.h>

namespace bench {
namespace {

using google::protobuf::RepeatedPtrField;
using google::protobuf::TextFormat;

struct Fill {
    template <class T>
    static void assign(RepeatedPtrField<T>& to, const auto& from) {
        for (const auto& element : from) assign(*to.Add(), element);
    }
    static void assign(RepeatedPtrField<std::string>& to, const std::vector<Name>& from) {
        to.Reserve(static_cast<int>(from.size()));
        for (const Name& element : from) *to.Add() = element.name;
    }
    static void assign(RepeatedPtrField<pb::Template>& to, const TemplateList& from) { assign(to, from.data); }
    static void assign(pb::Tlv& to, const TlvOf<Plain>& from) {
        to.set_type(from.type);
        to.set_value(from.value);
    }
    static void assign(pb::Message& to, const Message& from) {
        if (from.acl_data)
            assign(*to.mutable_acl_data(), *from.acl_data);
        else
            assign(*to.mutable_bm_data(), *from.bm_data);
    }
#define SET(name) to.set_##name(from.name);
#define SET_BYTES(name) to.set_##name(from.name.data(), from.name.size());
#define SET_PARTS(name) assign(*to.mutable_##name(), from.name);
#define ASSIGN_NUMBER SET
#define ASSIGN_ENUM SET
#define ASSIGN_HANDLE SET
#define ASSIGN_TEXT SET
#define ASSIGN_VSTRING SET
#define ASSIGN_SIX SET_BYTES
#define ASSIGN_MAC SET_BYTES
#define ASSIGN_RUN SET_BYTES
#define ASSIGN_TLV SET_PARTS
#define ASSIGN_PART SET_PARTS
#define ASSIGN_ARRAY SET_PARTS
#define ASSIGN_LIST SET_PARTS
#define ASSIGN_WORDS(name) to.mutable_##name()->Add(from.name.begin(), from.name.end());
#define ASSIGN(T, kind, name, ...) ASSIGN_##kind(name)
#define ASSIGN_FIELDS(Record, T, FIELDS)                                                                               \
    static void assign(pb::Record& to, const Record& from) {                                                           \
        FIELDS(ASSIGN, BENCH_SKIP, T)                                                                                  \
    }
    BENCH_RECORDS(ASSIGN_FIELDS, BENCH_SKIP)
};

/// TextFormat, beside print and beside XML alike.
template <class X>
struct Text {
    X message;
    std::string text, printed;

    explicit Text(const X& filled) : message(filled) {
        TextFormat::PrintToString(message, &text);
        X back;
        require(TextFormat::ParseFromString(text, &back) && back.SerializeAsString() == message.SerializeAsString(),
                "protobuf does not read its text");
    }
    std::size_t print() {
        keep(TextFormat::PrintToString(message, &printed));
        return text.size();
    }
    std::size_t to_xml() { return print(); }
    std::size_t from_xml() {
        X y;
        keep(TextFormat::ParseFromString(text, &y));
        return text.size();
    }
};

template <class Data, class X>
struct Subject : Values<Data, X, Fill>, Text<X> {
    using Subject::Values::x, Subject::Values::equal;
    std::string wire, buffer;

    explicit Subject(const Workload<Data>& workload)
        : Subject::Values{workload.data}, Text<X>(x), wire(x.SerializeAsString()), buffer(wire) {}
    std::size_t marshal() {
        keep(x.SerializeToArray(buffer.data(), static_cast<int>(buffer.size())));
        keep(buffer.data());
        return wire.size();
    }
    std::size_t unmarshal() {
        X y;
        require(y.ParseFromArray(wire.data(), static_cast<int>(wire.size())), "protobuf does not read");
        keep(&y);
        return wire.size();
    }
    std::size_t compare() {
        keep(google::protobuf::util::MessageDifferencer::Equals(x, equal));
        return 0;
    }
};

const Peer protobuf("protobuf", add_all<Subject, pb::Message, pb::VlanGroup, pb::DomainNames>);

/// The grants with each byte of a list's name as a number of its own, as the library writes them.
const Peer spelled("spelled", [](Suite& suite, const std::string& peer, Workloads& workloads) {
    pb::Message message;
    Fill::assign(message, workloads.w2.data);
    for (pb::Context& context : *message.mutable_bm_data()->mutable_acl()->mutable_contexts())
        for (pb::Config& config : *context.mutable_configs()) {
            for (const char byte : config.acl_name()) config.add_acl_bytes(static_cast<unsigned char>(byte));
            config.clear_acl_name();
        }
    suite.add<Text<pb::Message>>(workloads.w2.name, peer, all_operations, message);
});

} // namespace
} // namespace bench
