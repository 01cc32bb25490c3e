// FlatBuffers through its object API: native objects are packed and unpacked. UnPack trusts its bytes; the verifier is
// left out, which is to this peer's advantage.
#include "bench/suite.hpp"
#include "bench/workloads.hpp"

#include <cstring>

#include <flatbuffers/flatbuffers.h>
#include <workloads_generated.h>

namespace bench {
namespace {

std::unique_ptr<fb::Mac> mac_of(const void* bytes) {
    std::uint32_t low;
    std::uint16_t high;
    std::memcpy(&low, bytes, sizeof low);
    std::memcpy(&high, static_cast<const char*>(bytes) + sizeof low, sizeof high);
    return std::make_unique<fb::Mac>(low, high);
}

void fill(fb::MessageT& message, const Entry& data) {
    fb::EntryT x;
    x.acl_name = data.acl_name;
    x.ace_name = data.ace_name;
    x.sequence = data.sequence;
    x.is_ipv4 = data.is_ipv4;
    x.is_create = data.is_create;
    x.is_remove = data.is_remove != 0;
    x.p_sequence = data.p_sequence;
    x.is_dacl = data.is_dacl != 0;
    x.process_index = data.process_index;
    x.is_domain = data.is_domain != 0;
    x.ip_addr = data.ip_addr;
    message.arm.Set(std::move(x));
}

void fill(fb::MessageT& message, const Grants& data) {
    fb::GrantsT x;
    x.vlan = std::make_unique<fb::ClientVlanT>();
    x.vlan->gidb_handle = data.vlan.gidb_handle;
    x.vlan->pref = data.vlan.pref;
    x.vlan->vlan_value = data.vlan.vlan_value;
    x.vlan->ieee_mac = mac_of(data.vlan.ieee_mac.data());
    x.vlan->mac = mac_of(data.vlan.mac.data());
    x.vlan->domain = data.vlan.domain;
    x.templ = std::make_unique<fb::TemplateInfoT>();
    x.templ->bind_value = data.templ.bind_value;
    x.voice_vlan = std::make_unique<fb::VoiceVlanT>();
    x.voice_vlan->mac = mac_of(data.voice_vlan.mac.data());
    x.voice_vlan->gidb_handle = data.voice_vlan.gidb_handle;
    x.voice_vlan->vlan = data.voice_vlan.vlan;
    x.iaf = std::make_unique<fb::IafT>();
    x.iaf->mac = mac_of(data.iaf.mac.data());
    x.iaf->gidb_handle = data.iaf.gidb_handle;
    x.iaf->idle_timeout = data.iaf.idle_timeout;
    x.intf_templ_list.reserve(data.intf_templ_list.data.size());
    for (const Template& from : data.intf_templ_list.data) {
        fb::TemplateT& to = *x.intf_templ_list.emplace_back(std::make_unique<fb::TemplateT>());
        to.bind = from.bind != 0;
        to.gidb_handle = from.gidb_handle;
        to.name = from.name;
    }
    x.autocfg = std::make_unique<fb::AutocfgT>();
    x.autocfg->gidb_handle = data.autocfg.gidb_handle;
    x.autocfg->mac = mac_of(data.autocfg.mac.data());
    x.autocfg->traf_class = data.autocfg.traf_class != 0;
    x.autocfg->apply = data.autocfg.apply != 0;
    x.autocfg->asp_trig_name = data.autocfg.asp_trig_name;
    x.authz_ack = std::make_unique<fb::AuthorizeAckT>();
    x.authz_ack->conn_hdl = data.authz_ack.conn_hdl;
    x.authz_ack->label = data.authz_ack.label;
    x.authz_ack->session_identity = std::make_unique<fb::TlvT>();
    x.authz_ack->session_identity->type = data.authz_ack.session_identity.type;
    x.authz_ack->session_identity->value.assign(data.authz_ack.session_identity.value.begin(),
                                                data.authz_ack.session_identity.value.end());
    x.authz_ack->cl_hdl = data.authz_ack.cl_hdl;
    x.authz_ack->return_hdl = data.authz_ack.return_hdl;
    x.authz_ack->result = data.authz_ack.result;
    x.is_authz_invoke = data.is_authz_invoke != 0;
    x.cfg_macro_data = std::make_unique<fb::MacroT>();
    x.cfg_macro_data->apply_flag = data.cfg_macro_data.apply_flag != 0;
    x.cfg_macro_data->gidb_handle = data.cfg_macro_data.gidb_handle;
    x.cfg_macro_data->cfg_macro_name = data.cfg_macro_data.cfg_macro_name;
    x.acl = std::make_unique<fb::ClientAclT>();
    x.acl->mac = mac_of(data.acl.mac.data());
    x.acl->idb = data.acl.idb;
    x.acl->contexts.reserve(data.acl.contexts.size());
    for (const Context& from : data.acl.contexts) {
        fb::ContextT& to = *x.acl->contexts.emplace_back(std::make_unique<fb::ContextT>());
        to.handle = from.handle;
        to.priority = from.priority;
        to.status = from.status;
        to.configs.reserve(from.configs.size());
        for (const Config& inner : from.configs) {
            fb::ConfigT& config = *to.configs.emplace_back(std::make_unique<fb::ConfigT>());
            config.is_url_redirect = inner.is_url_redirect != 0;
            config.feat_type = inner.feat_type;
            config.is_ipv6 = inner.is_ipv6 != 0;
            config.acl_name.assign(inner.acl_name.begin(), inner.acl_name.end());
        }
    }
    message.arm.Set(std::move(x));
}

void fill(fb::VlanGroupT& x, const VlanGroup& data) {
    x.is_added = data.is_added;
    x.vlans = data.vlans;
    x.num_of_vlans = data.num_of_vlans;
    x.gp_name = data.gp_name;
}

void fill(fb::DomainNamesT& x, const DomainNames& data) {
    x.mac = mac_of(data.mac.data());
    x.wlclient_num = data.wlclient_num;
    x.domain_names.reserve(data.domain_names.size());
    for (const auto& from : data.domain_names) x.domain_names.push_back(from.name);
}

template <class X, class Data>
void add_type(Suite& suite, const std::string& workload, const Data& data) {
    using Table = typename X::TableType;
    const auto x = std::make_shared<X>();
    fill(*x, data);
    const auto builder = std::make_shared<flatbuffers::FlatBufferBuilder>();
    builder->Finish(Table::Pack(*builder, x.get()));
    const auto wire = std::make_shared<std::vector<std::uint8_t>>(builder->GetBufferPointer(),
                                                                  builder->GetBufferPointer() + builder->GetSize());
    const auto equal = std::make_shared<X>();
    flatbuffers::GetRoot<Table>(wire->data())->UnPackTo(equal.get());
    require(*x == *equal, workload + ": FlatBuffers does not read what it has written");
    const auto add = [&](const char* operation, auto step, std::size_t bytes = 0) {
        suite.add(workload, operation, "flatbuffers", std::move(step), bytes);
    };
    add(
        "marshal",
        [=] {
            builder->Clear();
            builder->Finish(Table::Pack(*builder, x.get()));
            keep(builder->GetBufferPointer());
        },
        wire->size());
    add(
        "unmarshal",
        [=] {
            X y;
            flatbuffers::GetRoot<Table>(wire->data())->UnPackTo(&y);
            keep(&y);
        },
        wire->size());
    add("clone", [=] {
        const X y(*x);
        keep(&y);
    });
    add("compare", [=] { keep(*x == *equal); });
    add("fill", [=] {
        X y;
        fill(y, data);
        keep(&y);
    });
}

} // namespace

void add_flatbuffers(Suite& suite) {
    add_type<fb::MessageT>(suite, "W1", entry());
    add_type<fb::MessageT>(suite, "W2", grants());
    add_type<fb::VlanGroupT>(suite, "W3", vlan_group());
    add_type<fb::DomainNamesT>(suite, "W4", domain_names());
}

} // namespace bench
