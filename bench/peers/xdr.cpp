// XDR as rpcgen makes it, over memory streams. It has no copy, compare or text of its own.
#include "bench/suite.hpp"
#include "bench/workloads.hpp"

#include <algorithm>
#include <cstring>

#include <workloads.h>

namespace bench {
namespace {

// The records point into the data; only what is decoded is freed.
char* text_of(const std::string& text) {
    return const_cast<char*>(text.data());
}

template <class T>
u_int count_of(const std::vector<T>& from) {
    return static_cast<u_int>(from.size());
}

struct Held {
    std::vector<xdr_template> templates;
    std::vector<xdr_context> contexts;
    std::vector<std::vector<xdr_config>> configs;
    std::vector<xdr_name> names;
};

void fill(xdr_message& message, const Entry& data, Held&) {
    message.epm_type = 1;
    message.xdr_message_u.acl_data = {text_of(data.acl_name),
                                      text_of(data.ace_name),
                                      data.sequence,
                                      data.is_ipv4,
                                      data.is_create,
                                      static_cast<bool_t>(data.is_remove),
                                      data.p_sequence,
                                      static_cast<bool_t>(data.is_dacl),
                                      data.process_index,
                                      static_cast<bool_t>(data.is_domain),
                                      data.ip_addr};
}

void fill(xdr_message& message, const Grants& data, Held& held) {
    message.epm_type = 3;
    xdr_grants& x = message.xdr_message_u.bm_data;
    x.vlan = {data.vlan.gidb_handle, data.vlan.pref, data.vlan.vlan_value, {}, {}, data.vlan.domain};
    std::memcpy(x.vlan.ieee_mac, data.vlan.ieee_mac.data(), 6);
    std::memcpy(x.vlan.mac, data.vlan.mac.data(), 6);
    x.bind_value = data.templ.bind_value;
    x.voice_vlan = {{}, data.voice_vlan.gidb_handle, data.voice_vlan.vlan};
    std::memcpy(x.voice_vlan.mac, data.voice_vlan.mac.data(), 6);
    x.iaf = {{}, data.iaf.gidb_handle, data.iaf.idle_timeout};
    std::memcpy(x.iaf.mac, data.iaf.mac.data(), 6);
    for (const Template& from : data.intf_templ_list.data)
        held.templates.push_back({static_cast<bool_t>(from.bind), from.gidb_handle, text_of(from.name)});
    x.intf_templ_list = {count_of(held.templates), held.templates.data()};
    x.autocfg = {data.autocfg.gidb_handle,
                 {},
                 static_cast<bool_t>(data.autocfg.traf_class),
                 static_cast<bool_t>(data.autocfg.apply),
                 text_of(data.autocfg.asp_trig_name)};
    std::memcpy(x.autocfg.mac, data.autocfg.mac.data(), 6);
    x.authz_ack = {data.authz_ack.conn_hdl,
                   data.authz_ack.label,
                   data.authz_ack.session_identity.type,
                   {static_cast<u_int>(data.authz_ack.session_identity.value.size()),
                    text_of(data.authz_ack.session_identity.value)},
                   data.authz_ack.cl_hdl,
                   data.authz_ack.return_hdl,
                   data.authz_ack.result};
    x.is_authz_invoke = static_cast<bool_t>(data.is_authz_invoke);
    x.cfg_macro_data = {static_cast<bool_t>(data.cfg_macro_data.apply_flag), data.cfg_macro_data.gidb_handle,
                        text_of(data.cfg_macro_data.cfg_macro_name)};
    for (const Context& from : data.acl.contexts) {
        std::vector<xdr_config>& configs = held.configs.emplace_back();
        for (const Config& inner : from.configs) {
            xdr_config& to = configs.emplace_back();
            to = {static_cast<bool_t>(inner.is_url_redirect), inner.feat_type, static_cast<bool_t>(inner.is_ipv6), {}};
            std::memcpy(to.acl_name, inner.acl_name.data(), inner.acl_name.size());
        }
        held.contexts.push_back({from.handle, from.priority, from.status, {count_of(configs), configs.data()}});
    }
    x.acl = {{}, data.acl.idb, {count_of(held.contexts), held.contexts.data()}};
    std::memcpy(x.acl.mac, data.acl.mac.data(), 6);
}

void fill(xdr_vlan_group& x, const VlanGroup& data, Held&) {
    x = {data.is_added,
         {count_of(data.vlans), const_cast<u_int*>(data.vlans.data())},
         data.num_of_vlans,
         text_of(data.gp_name)};
}

void fill(xdr_domain_names& x, const DomainNames& data, Held& held) {
    for (const auto& from : data.domain_names) held.names.push_back(text_of(from.name));
    x = {{}, data.wlclient_num, {count_of(held.names), held.names.data()}};
    std::memcpy(x.mac, data.mac.data(), 6);
}

template <auto codec, class X, class Data>
void add_type(Suite& suite, const std::string& workload, const Data& data) {
    struct Record {
        Data data;
        Held held{};
        X x{};
        std::vector<char> wire = std::vector<char>(1 << 16), buffer{};
    };
    const auto record = std::make_shared<Record>(Record{data});
    fill(record->x, record->data, record->held);
    const auto encode = [](X* x, std::vector<char>& to) {
        XDR stream;
        xdrmem_create(&stream, to.data(), static_cast<u_int>(to.size()), XDR_ENCODE);
        return codec(&stream, x) ? xdr_getpos(&stream) : 0;
    };
    const auto decode = [](X* x, std::vector<char>& from) {
        XDR stream;
        xdrmem_create(&stream, from.data(), static_cast<u_int>(from.size()), XDR_DECODE);
        return codec(&stream, x);
    };
    const auto release = [](X* x) { xdr_free(reinterpret_cast<xdrproc_t>(codec), x); };

    record->wire.resize(encode(&record->x, record->wire));
    record->buffer.resize(record->wire.size());
    X back{};
    require(!record->wire.empty() && decode(&back, record->wire) && encode(&back, record->buffer) != 0 &&
                record->buffer == record->wire,
            workload + ": XDR does not read what it has written");
    release(&back);

    suite.add(
        workload, "marshal", "xdr",
        [=] {
            keep(encode(&record->x, record->buffer));
            keep(record->buffer.data());
        },
        record->wire.size());
    suite.add(
        workload, "unmarshal", "xdr",
        [=] {
            X y;
            std::memset(&y, 0, sizeof y);
            keep(decode(&y, record->wire));
            release(&y);
        },
        record->wire.size());
}

} // namespace

void add_xdr(Suite& suite) {
    add_type<xdr_xdr_message, xdr_message>(suite, "W1", entry());
    add_type<xdr_xdr_message, xdr_message>(suite, "W2", grants());
    add_type<xdr_xdr_vlan_group, xdr_vlan_group>(suite, "W3", vlan_group());
    add_type<xdr_xdr_domain_names, xdr_domain_names>(suite, "W4", domain_names());
}

} // namespace bench
