// pugixml: builds the library's XML documents as trees and writes them, and reads the library's own documents into
// plain structures. The form of each record stands here once, for both directions.
#include "bench/suite.hpp"
#include "bench/workloads.hpp"

#include <pugixml.hpp>

#include <algorithm>
#include <cstring>

namespace bench {
namespace {

constexpr const char* feature_types[] = {
    "SM_CORVANE_ACL_PROXY_ACL", "SM_CORVANE_ACL_NAMED_ACL", "SM_CORVANE_ACL_REDIRECT_URL", "SM_CORVANE_ACL_INACL",
    "SM_CORVANE_ACL_FILTER_ID", "SM_CORVANE_ACL_MAC_INACL", "SM_CORVANE_ACL_OPEN_DIR_ACL", "SM_CORVANE_ACL_FEAT_MAX"};
constexpr const char* context_states[] = {"SM_CORVANE_ACL_FEAT_CTX_UNCHANGED", "SM_CORVANE_ACL_FEAT_CTX_ADDED",
                                          "SM_CORVANE_ACL_FEAT_CTX_UPDATED", "SM_CORVANE_ACL_FEAT_CTX_DELETED",
                                          "SM_CORVANE_ACL_FEAT_CTX_MAX"};

constexpr char digits[] = "0123456789abcdef";

int digit(char c) {
    return c <= '9' ? c - '0' : c - 'a' + 10;
}

struct Build {
    pugi::xml_node at;

    template <class Number>
    void number(const char* name, const Number& value) {
        at.append_child(name).text() = value;
    }
    void number(const char* name, const std::uint16_t& value) { number(name, unsigned{value}); }
    void number(const char* name, const std::uint64_t& value) {
        at.append_child(name).text() = static_cast<unsigned long long>(value);
    }
    void length(const char* name, std::size_t value) { number(name, static_cast<std::uint32_t>(value)); }
    void text(const char* name, const std::string& value) { at.append_child(name).text() = value.c_str(); }
    void mac(const char* name, const Mac& value) {
        char written[3 * sizeof value];
        for (std::size_t i = 0; i < sizeof value; ++i) {
            written[3 * i] = digits[value[i] >> 4];
            written[3 * i + 1] = digits[value[i] & 15];
            written[3 * i + 2] = ':';
        }
        written[sizeof written - 1] = 0;
        at.append_child(name).text() = written;
    }
    void tlv(const char* name, const std::uint32_t& type, const std::string& value) {
        std::string written = std::to_string(type) + ':';
        for (const char c : value) {
            written += digits[static_cast<unsigned char>(c) >> 4];
            written += digits[c & 15];
        }
        text(name, written);
    }
    template <std::size_t n>
    void enumerator(const char* name, const std::uint32_t& value, const char* const (&names)[n]) {
        at.append_child(name).append_child(names[value]);
    }
    template <class Numbers>
    void numbers(const char* name, const Numbers& values) {
        for (const auto value : values) number(name, unsigned{value});
    }
    void texts(const char* name, const char* length_name, const std::vector<std::string>& values) {
        for (const std::string& value : values)
            child(name, [&] {
                length(length_name, value.size());
                text("name", value);
            });
    }
    template <class Body>
    void child(const char* name, Body body) {
        const pugi::xml_node outer = at;
        at = at.append_child(name);
        body();
        at = outer;
    }
    template <class T, class Body>
    void children(const char* name, const std::vector<T>& elements, Body body) {
        for (const T& element : elements) child(name, [&] { body(element); });
    }
};

struct Read {
    pugi::xml_node at;

    void number(const char* name, std::uint16_t& value) {
        value = static_cast<std::uint16_t>(at.child(name).text().as_uint());
    }
    void number(const char* name, std::uint32_t& value) { value = at.child(name).text().as_uint(); }
    void number(const char* name, std::uint64_t& value) { value = at.child(name).text().as_ullong(); }
    void length(const char* name, std::size_t) { keep(at.child(name).text().as_uint()); }
    void text(const char* name, std::string& value) { value = at.child(name).text().get(); }
    void mac(const char* name, Mac& value) {
        const char* from = at.child(name).text().get();
        require(std::strlen(from) == 3 * sizeof value - 1, "an address is read wrong");
        for (std::size_t i = 0; i < sizeof value; ++i)
            value[i] = static_cast<std::uint8_t>(digit(from[3 * i]) << 4 | digit(from[3 * i + 1]));
    }
    void tlv(const char* name, std::uint32_t& type, std::string& value) {
        const char* from = at.child(name).text().get();
        type = static_cast<std::uint32_t>(std::strtoul(from, nullptr, 10));
        from = std::strchr(from, ':');
        require(from != nullptr, "a value is read wrong");
        value.clear();
        for (++from; from[0] != 0 && from[1] != 0; from += 2)
            value += static_cast<char>(digit(from[0]) << 4 | digit(from[1]));
    }
    template <std::size_t n>
    void enumerator(const char* name, std::uint32_t& value, const char* const (&names)[n]) {
        const char* found = at.child(name).first_child().name();
        value = static_cast<std::uint32_t>(
            std::find_if(names, names + n, [=](const char* known) { return std::strcmp(known, found) == 0; }) - names);
    }
    void numbers(const char* name, std::vector<std::uint32_t>& values) {
        values.clear();
        for (pugi::xml_node node = at.child(name); node; node = node.next_sibling(name))
            values.push_back(node.text().as_uint());
    }
    void numbers(const char* name, std::array<std::uint8_t, 256>& values) {
        std::size_t i = 0;
        for (pugi::xml_node node = at.child(name); node && i < values.size(); node = node.next_sibling(name))
            values[i++] = static_cast<std::uint8_t>(node.text().as_uint());
    }
    void texts(const char* name, const char*, std::vector<std::string>& values) {
        values.clear();
        for (pugi::xml_node node = at.child(name); node; node = node.next_sibling(name))
            values.emplace_back(node.child("name").text().get());
    }
    template <class Body>
    void child(const char* name, Body body) {
        const pugi::xml_node outer = at;
        at = at.child(name);
        body();
        at = outer;
    }
    template <class T, class Body>
    void children(const char* name, std::vector<T>& elements, Body body) {
        const pugi::xml_node outer = at;
        elements.clear();
        for (at = outer.child(name); at; at = at.next_sibling(name)) body(elements.emplace_back());
        at = outer;
    }
};

// ---- the form of the records ----

template <class V>
void visit(V& v, Entry& x) {
    v.child("orlan_ial_svm_epm_data", [&] {
        static constexpr const char* arms[] = {"", "ORLAN_IAL_SVM_EPM_TYPE_ACL"};
        std::uint32_t tag = 1;
        v.enumerator("epm_type", tag, arms);
        v.child("epm_type-acl_data", [&] {
            v.length("max_acl_length", x.acl_name.size());
            v.length("max_ace_length", x.ace_name.size());
            v.text("acl_name", x.acl_name);
            v.text("ace_name", x.ace_name);
            v.number("sequence", x.sequence);
            v.number("is_ipv4", x.is_ipv4);
            v.number("is_create", x.is_create);
            v.number("is_remove", x.is_remove);
            v.number("p_sequence", x.p_sequence);
            v.number("is_dacl", x.is_dacl);
            v.number("process_index", x.process_index);
            v.number("is_domain", x.is_domain);
            v.number("ip_addr", x.ip_addr);
        });
    });
}

template <class V>
void visit_acl(V& v, decltype(Grants::acl)& x) {
    v.mac("mac", x.mac);
    v.number("idb", x.idb);
    v.children("bm_feat_ctx_list", x.contexts, [&](auto& context) {
        v.number("handle", context.handle);
        v.number("priority", context.priority);
        v.enumerator("status", context.status, context_states);
        v.children("bm_feat_conf_list", context.configs, [&](auto& config) {
            v.number("is_url_redirect", config.is_url_redirect);
            v.enumerator("feat_type", config.feat_type, feature_types);
            v.number("is_ipv6", config.is_ipv6);
            v.numbers("acl_name", config.acl_name);
        });
    });
}

template <class V>
void visit_grants(V& v, Grants& x) {
    v.child("vlan", [&] {
        v.number("gidb_handle", x.vlan.gidb_handle);
        v.number("pref", x.vlan.pref);
        v.number("vlan_value", x.vlan.vlan_value);
        v.text("ieee_mac", x.vlan.ieee_mac);
        v.mac("mac", x.vlan.mac);
        v.number("domain", x.vlan.domain);
    });
    v.child("templ", [&] { v.number("bind_value", x.bind_value); });
    v.child("voice_vlan", [&] {
        v.mac("mac", x.voice_vlan.mac);
        v.number("gidb_handle", x.voice_vlan.gidb_handle);
        v.number("vlan", x.voice_vlan.vlan);
    });
    v.child("iaf", [&] {
        v.mac("mac", x.iaf.mac);
        v.number("gidb_handle", x.iaf.gidb_handle);
        v.number("idle_timeout", x.iaf.idle_timeout);
    });
    v.child("intf_templ_list", [&] {
        v.length("max_intf_templ", x.templates.size());
        v.children("data", x.templates, [&](auto& element) {
            v.number("bind", element.bind);
            v.number("gidb_handle", element.gidb_handle);
            v.length("max_intf_templ_length", element.name.size());
            v.text("name", element.name);
        });
    });
    v.child("autocfg", [&] {
        v.number("gidb_handle", x.autocfg.gidb_handle);
        v.mac("mac", x.autocfg.mac);
        v.number("traf_class", x.autocfg.traf_class);
        v.number("apply", x.autocfg.apply);
        v.length("max_asp_name_length", x.autocfg.asp_trig_name.size());
        v.text("asp_trig_name", x.autocfg.asp_trig_name);
    });
    v.child("authz_ack", [&] {
        v.number("conn_hdl", x.authz_ack.conn_hdl);
        v.number("label", x.authz_ack.label);
        v.tlv("session_identity", x.authz_ack.identity_type, x.authz_ack.identity);
        v.number("cl_hdl", x.authz_ack.cl_hdl);
        v.number("return_hdl", x.authz_ack.return_hdl);
        v.number("result", x.authz_ack.result);
    });
    v.number("is_authz_invoke", x.is_authz_invoke);
    v.child("cfg_macro_data", [&] {
        v.number("apply_flag", x.macro.apply_flag);
        v.number("gidb_handle", x.macro.gidb_handle);
        v.text("cfg_macro_name", x.macro.name);
    });
    v.child("acl", [&] { visit_acl(v, x.acl); });
}

template <class V>
void visit(V& v, Grants& x) {
    v.child("orlan_ial_svm_epm_data", [&] {
        static constexpr const char* arms[] = {"", "", "", "ORLAN_IAL_SVM_EPM_TYPE_BM"};
        std::uint32_t tag = 3;
        v.enumerator("epm_type", tag, arms);
        v.child("epm_type-bm_data", [&] { visit_grants(v, x); });
    });
}

template <class V>
void visit(V& v, VlanGroup& x) {
    v.child("orlan_ial_vlan_group_info", [&] {
        v.number("is_added", x.is_added);
        v.length("max_vlan", x.vlans.size());
        v.numbers("vlans", x.vlans);
        v.number("num_of_vlans", x.num_of_vlans);
        v.length("max_acl_length", x.gp_name.size());
        v.text("gp_name", x.gp_name);
    });
}

template <class V>
void visit(V& v, DomainNames& x) {
    v.child("orlan_svm_epm_notify_domain_name", [&] {
        v.mac("mac", x.mac);
        v.number("wlclient_num", x.wlclient_num);
        v.length("domain_names_length", x.names.size());
        v.texts("domain_names", "name_len", x.names);
    });
}

struct Written : pugi::xml_writer {
    std::string text;
    void write(const void* data, std::size_t size) override { text.append(static_cast<const char*>(data), size); }
};

template <class Data>
const std::string& write(Data& data, Written& to) {
    pugi::xml_document document;
    Build build{document};
    visit(build, data);
    to.text.clear();
    document.save(to, "  ", pugi::format_indent | pugi::format_no_declaration, pugi::encoding_utf8);
    return to.text;
}

template <class Data>
void read(const std::string& text, Data& data) {
    pugi::xml_document document;
    require(bool(document.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8)),
            "pugixml does not read a document");
    Read reader{document};
    visit(reader, data);
}

template <class Data>
void add_type(Suite& suite, const std::string& workload, const Data& data) {
    const auto held = std::make_shared<Data>(data);
    const auto ours = std::make_shared<std::string>(our_xml(workload));
    const auto written = std::make_shared<Written>();
    const std::string expected = write(*held, *written);
    Data back{};
    read(*ours, back);
    require(write(back, *written) == expected && expected.size() >= ours->size(),
            workload + ": pugixml reads and writes something else");
    suite.add(
        workload, "to_xml", "pugixml", [=] { keep(write(*held, *written).data()); }, expected.size());
    suite.add(
        workload, "from_xml", "pugixml",
        [=] {
            Data fresh{};
            read(*ours, fresh);
            keep(&fresh);
        },
        ours->size());
}

} // namespace

void add_pugixml(Suite& suite) {
    add_type(suite, "W1", entry());
    add_type(suite, "W2", grants());
    add_type(suite, "W3", vlan_group());
    add_type(suite, "W4", domain_names());
}

} // namespace bench
