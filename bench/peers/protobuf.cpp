// protobuf: generated classes, filled from the common data; as text its TextFormat, which stands beside the print form
// and beside XML alike.
#include "bench/suite.hpp"
#include "bench/workloads.hpp"

#include <google/protobuf/text_format.h>
#include <google/protobuf/util/message_differencer.h>
#include <workloads.pb.h>

namespace bench {
namespace {

void fill(pb::Message& message, const Entry& data) {
    pb::Entry& x = *message.mutable_acl_data();
    x.set_acl_name(data.acl_name);
    x.set_ace_name(data.ace_name);
    x.set_sequence(data.sequence);
    x.set_is_ipv4(data.is_ipv4);
    x.set_is_create(data.is_create);
    x.set_is_remove(data.is_remove != 0);
    x.set_p_sequence(data.p_sequence);
    x.set_is_dacl(data.is_dacl != 0);
    x.set_process_index(data.process_index);
    x.set_is_domain(data.is_domain != 0);
    x.set_ip_addr(data.ip_addr);
}

void fill(pb::Message& message, const Grants& data) {
    pb::Grants& x = *message.mutable_bm_data();
    pb::ClientVlan& vlan = *x.mutable_vlan();
    vlan.set_gidb_handle(data.vlan.gidb_handle);
    vlan.set_pref(data.vlan.pref);
    vlan.set_vlan_value(data.vlan.vlan_value);
    vlan.set_ieee_mac(data.vlan.ieee_mac.data(), data.vlan.ieee_mac.size());
    vlan.set_mac(data.vlan.mac.data(), data.vlan.mac.size());
    vlan.set_domain(data.vlan.domain);
    x.mutable_templ()->set_bind_value(data.templ.bind_value);
    pb::VoiceVlan& voice = *x.mutable_voice_vlan();
    voice.set_mac(data.voice_vlan.mac.data(), data.voice_vlan.mac.size());
    voice.set_gidb_handle(data.voice_vlan.gidb_handle);
    voice.set_vlan(data.voice_vlan.vlan);
    pb::Iaf& iaf = *x.mutable_iaf();
    iaf.set_mac(data.iaf.mac.data(), data.iaf.mac.size());
    iaf.set_gidb_handle(data.iaf.gidb_handle);
    iaf.set_idle_timeout(data.iaf.idle_timeout);
    for (const Template& from : data.intf_templ_list.data) {
        pb::Template& to = *x.add_intf_templ_list();
        to.set_bind(from.bind != 0);
        to.set_gidb_handle(from.gidb_handle);
        to.set_name(from.name);
    }
    pb::Autocfg& autocfg = *x.mutable_autocfg();
    autocfg.set_gidb_handle(data.autocfg.gidb_handle);
    autocfg.set_mac(data.autocfg.mac.data(), data.autocfg.mac.size());
    autocfg.set_traf_class(data.autocfg.traf_class != 0);
    autocfg.set_apply(data.autocfg.apply != 0);
    autocfg.set_asp_trig_name(data.autocfg.asp_trig_name);
    pb::AuthorizeAck& ack = *x.mutable_authz_ack();
    ack.set_conn_hdl(data.authz_ack.conn_hdl);
    ack.set_label(data.authz_ack.label);
    ack.mutable_session_identity()->set_type(data.authz_ack.session_identity.type);
    ack.mutable_session_identity()->set_value(data.authz_ack.session_identity.value);
    ack.set_cl_hdl(data.authz_ack.cl_hdl);
    ack.set_return_hdl(data.authz_ack.return_hdl);
    ack.set_result(data.authz_ack.result);
    x.set_is_authz_invoke(data.is_authz_invoke != 0);
    pb::Macro& macro = *x.mutable_cfg_macro_data();
    macro.set_apply_flag(data.cfg_macro_data.apply_flag != 0);
    macro.set_gidb_handle(data.cfg_macro_data.gidb_handle);
    macro.set_cfg_macro_name(data.cfg_macro_data.cfg_macro_name);
    pb::ClientAcl& acl = *x.mutable_acl();
    acl.set_mac(data.acl.mac.data(), data.acl.mac.size());
    acl.set_idb(data.acl.idb);
    for (const Context& from : data.acl.contexts) {
        pb::Context& to = *acl.add_contexts();
        to.set_handle(from.handle);
        to.set_priority(from.priority);
        to.set_status(from.status);
        for (const Config& inner : from.configs) {
            pb::Config& config = *to.add_configs();
            config.set_is_url_redirect(inner.is_url_redirect != 0);
            config.set_feat_type(inner.feat_type);
            config.set_is_ipv6(inner.is_ipv6 != 0);
            config.set_acl_name(inner.acl_name.data(), inner.acl_name.size());
        }
    }
}

void fill(pb::VlanGroup& x, const VlanGroup& data) {
    x.set_is_added(data.is_added);
    x.mutable_vlans()->Add(data.vlans.begin(), data.vlans.end());
    x.set_num_of_vlans(data.num_of_vlans);
    x.set_gp_name(data.gp_name);
}

void fill(pb::DomainNames& x, const DomainNames& data) {
    x.set_mac(data.mac.data(), data.mac.size());
    x.set_wlclient_num(data.wlclient_num);
    x.mutable_domain_names()->Reserve(static_cast<int>(data.domain_names.size()));
    for (const auto& from : data.domain_names) x.add_domain_names(from.name);
}

/// Beside print and beside XML alike.
template <class X>
void add_text(Suite& suite, const std::string& workload, const char* peer, std::shared_ptr<X> x) {
    using google::protobuf::TextFormat;
    const auto text = std::make_shared<std::string>();
    TextFormat::PrintToString(*x, text.get());
    X back;
    require(TextFormat::ParseFromString(*text, &back) && back.SerializeAsString() == x->SerializeAsString(),
            workload + ": protobuf does not read its text");
    const auto printed = std::make_shared<std::string>();
    for (const char* operation : {"print", "to_xml"})
        suite.add(
            workload, operation, peer, [=] { keep(TextFormat::PrintToString(*x, printed.get())); }, text->size());
    suite.add(
        workload, "from_xml", peer,
        [=] {
            X y;
            keep(TextFormat::ParseFromString(*text, &y));
        },
        text->size());
}

template <class X, class Data>
void add_type(Suite& suite, const std::string& workload, const Data& data) {
    const auto x = std::make_shared<X>();
    fill(*x, data);
    const auto equal = std::make_shared<X>(*x);
    const auto wire = std::make_shared<std::string>(x->SerializeAsString());
    const auto add = [&](const char* operation, auto step, std::size_t bytes = 0) {
        suite.add(workload, operation, "protobuf", std::move(step), bytes);
    };

    const auto buffer = std::make_shared<std::string>(*wire);
    add(
        "marshal",
        [=] {
            keep(x->SerializeToArray(buffer->data(), static_cast<int>(buffer->size())));
            keep(buffer->data());
        },
        wire->size());
    add(
        "unmarshal",
        [=] {
            X y;
            require(y.ParseFromArray(wire->data(), static_cast<int>(wire->size())), "protobuf does not read");
            keep(&y);
        },
        wire->size());
    add("clone", [=] {
        const X y(*x);
        keep(&y);
    });
    add("compare", [=] { keep(google::protobuf::util::MessageDifferencer::Equals(*x, *equal)); });
    add("fill", [=] {
        X y;
        fill(y, data);
        keep(&y);
    });
    add_text(suite, workload, "protobuf", x);
}

} // namespace

void add_protobuf(Suite& suite) {
    add_type<pb::Message>(suite, "W1", entry());
    add_type<pb::Message>(suite, "W2", grants());
    add_type<pb::VlanGroup>(suite, "W3", vlan_group());
    add_type<pb::DomainNames>(suite, "W4", domain_names());

    const auto spelled = std::make_shared<pb::Message>();
    fill(*spelled, grants());
    for (pb::Context& context : *spelled->mutable_bm_data()->mutable_acl()->mutable_contexts())
        for (pb::Config& config : *context.mutable_configs()) {
            for (const char byte : config.acl_name()) config.add_acl_bytes(static_cast<unsigned char>(byte));
            config.clear_acl_name();
        }
    add_text(suite, "W2", "spelled", spelled);
}

} // namespace bench
