// Reading XML back: documents that lack something, are wrong or hostile, and the calls that a reader makes. That every
// record comes back from its XML is tested in model_test.cpp, writing in text_form_test.cpp.
#include "support/bundle_test.hpp"
#include "support/calls.hpp"
#include "support/imports.hpp"
#include "support/text.hpp"
#include "support/types.hpp"

#include <orlan_epm.h>

#include <sys/resource.h>

namespace epm::test {
namespace {

class TextRead : public BundleTest {
protected:
    /// For what makes very many calls: the write checker looks at all memory at each of them.
    void check_no_writes() { checker.reset(); }

    TestDomain D{Mode{}};
};

std::string element(const std::string& name, const std::string& content) {
    return "<" + name + ">" + content + "</" + name + ">";
}

std::string repeated(const std::string& text, std::size_t count) {
    std::string all;
    all.reserve(text.size() * count);
    for (; count != 0; --count) all += text;
    return all;
}

TEST_F(TextRead, WhatIsAbsent) {
    for (const Record* r : catalogue::all_records) {
        SCOPED_TRACE(r->name);
        const TextOperations text(r->name);
        Instance* x = create(r->name, D);
        Instance* untouched = create(r->name, D);
        EXPECT_EQ(text.read(D, sound_xml("<other/>").get(), x), 2u);
        // Arms are made when they are selected, so that a tag 0 that selects one leaves an empty arm behind.
        const bool ends_in_text = r->fields[r->count - 1].kind == Kind::text;
        EXPECT_EQ(text.read(D, sound_xml(element(r->name, "")).get(), x), ends_in_text ? 2u : 0u);
        if (!r->is_union()) {
            EXPECT_EQ(text.compare(x, untouched), 0);
        }
        std::uint32_t st = 99;
        text.from_xml(D, D.set_id(), r->name, nullptr, x, &st, nullptr, 0);
        EXPECT_EQ(st, 99u);
        destroy(r->name, D, x);
        destroy(r->name, D, untouched);
    }
}

TEST_F(TextRead, ArraysFromTheirElements) {
    const TextOperations text("orlan_ial_vlan_group_info");
    Instance* x = create(text.type, D);
    const auto number = [&](const char* field) {
        return call<std::uint32_t>(D, text.type, std::string(field), "get_value", x);
    };
    const auto vlan = [&](std::uint32_t i) {
        return call<std::uint32_t>(D, text.type, std::string("vlans"), "get_value", x, i);
    };
    // The length elements are not believed; an element that is no number ends the reading.
    const std::string start = "<max_vlan>9</max_vlan><vlans>7</vlans><other/><vlans>8</vlans>";
    EXPECT_EQ(text.read(D, sound_xml(element(text.type, start + "<vlans> 4094 </vlans><gp_name>g</gp_name>")).get(), x),
              0u);
    EXPECT_EQ(number("max_vlan"), 3u);
    for (std::uint32_t i = 0; i < 3; ++i) EXPECT_EQ(vlan(i), i == 2 ? 4094u : 7 + i);
    char message[80] = "";
    const std::string bad = element(text.type, "<vlans>5</vlans><vlans>x</vlans><num_of_vlans>3</num_of_vlans>");
    std::uint32_t st = 0;
    text.from_xml(D, D.set_id(), text.type.c_str(), sound_xml(bad).get(), x, &st, message, sizeof message);
    EXPECT_EQ(st, 22u);
    EXPECT_STREQ(message, "orlan_ial_vlan_group_info/vlans[2]: not a value of type u_int32");
    EXPECT_EQ(vlan(0), 5u);
    EXPECT_EQ(number("num_of_vlans"), 0u);
    EXPECT_EQ(D.st, 0u);
    destroy(text.type, D, x);
}

TEST_F(TextRead, FailedLookUpIsToldByTheEnumsPath) {
    const auto refusal = REPLACE(xml_get_element_value, [](auto*, auto*, auto*, auto, auto*) { return 71u; });
    for (const Enum* e : catalogue::all_enums) {
        const TextOperations text(e->name);
        Instance* x = create(e->name, D);
        auto& value = *reinterpret_cast<std::uint32_t*>(reinterpret_cast<char*>(x) + 12);
        value = 33;
        char message[40] = "";
        std::uint32_t st = 0;
        const XmlDocument document = sound_xml("<a/>");
        text.from_xml(D, D.set_id(), "some/path", document.get(), x, &st, message, 24); // exactly
        EXPECT_EQ(st, 71u);
        EXPECT_STREQ(message, "Failed xpath: some/path");
        EXPECT_EQ(D->last_error, 71u);
        st = 0;
        text.from_xml(D, D.set_id(), "some/path", document.get(), x, &st, nullptr, 0);
        EXPECT_EQ(st, 71u);
        EXPECT_EQ(value, 33u);
        value = 0;
        destroy(e->name, D, x);
    }
}

TEST_F(TextRead, ATextThatNoLengthCanHold) {
    const auto longest = REPLACE(xml_get_element_value, [](auto*, auto*, auto*, auto, std::uint32_t* length) {
        if (length != nullptr) *length = UINT32_MAX;
        return 28u;
    });
    const TextOperations text("orlan_ial_svm_fqdn_data_create");
    Instance* x = create(text.type, D);
    EXPECT_EQ(text.read(D, sound_xml(element(text.type, "<acl_name>a</acl_name>")).get(), x), 12u);
    destroy(text.type, D, x);
}

// An element that its list refuses, here because the peer does not know the record, is not lost.
TEST_F(TextRead, AnElementThatIsRefused) {
    const TextOperations text("epm_client_acl_feat_ctx");
    D.agree(text.type.c_str(), -1);
    Instance* x = create(text.type, D);
    const std::string one = element("bm_feat_conf_list", "<is_ipv6>1</is_ipv6>");
    EXPECT_EQ(text.read(D, sound_xml(element(text.type, one)).get(), x), 43u);
    destroy(text.type, D, x);
}

// ---- hostile documents ----

double seconds_now() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec) + static_cast<double>(usage.ru_utime.tv_usec) / 1e6;
}

TEST_F(TextRead, DocumentsThatAreTolerated) {
    check_no_writes();
    const TextOperations text("orlan_ial_vlan_notify_name");
    const std::string fields = "<vlan_id>7</vlan_id><vlan_name>v</vlan_name><prev_vlan_name>p</prev_vlan_name>";
    const std::string deep = repeated("<d>", 60) + repeated("</d>", 60);
    for (const std::string& content : {
             fields + deep,
             repeated("<vlan_id>7</vlan_id>", 60000) + fields,
             repeated("<other/>", 60000) + fields,
             "<other " + std::string("a='") + repeated("x", 4000000) + "'/>" + fields,
             "<vlan_id b='" + repeated("&lt;", 1000000) + "'>7</vlan_id>" + fields,
             "&unknown;&#0;" + fields,
             "<!-- " + repeated("x", 1000000) + "-->" + fields,
         }) {
        Instance* x = create(text.type, D);
        const double start = seconds_now();
        EXPECT_EQ(text.read(D, sound_xml(element(text.type, content)).get(), x), 0u) << content.substr(0, 40);
        EXPECT_LT(seconds_now() - start, 5.0) << content.substr(0, 40);
        EXPECT_EQ(orlan_ial_vlan_notify_name_vlan_id_get_value(D, D.set_id(),
                                                               reinterpret_cast<orlan_ial_vlan_notify_name*>(x), &D.st),
                  7u)
            << content.substr(0, 40);
        destroy(text.type, D, x);
    }
}

/// A path that is cut may happen to lead somewhere, and then to the same place for each element.
TEST_F(TextRead, PathsThatAreTooLong) {
    check_no_writes();
    for (const Record* r : catalogue::all_records)
        for (std::size_t length = 200; length < 300; ++length) {
            const std::string root(length, 'r');
            std::string children;
            for (std::size_t i = 0; i < r->count; ++i) {
                const std::string name =
                    (r->fields[i].kind == Kind::arm ? "epm_type-" : "") + std::string(r->fields[i].name);
                // What every way to cut the field's path leads to.
                for (std::size_t cut = 1; cut <= name.size(); ++cut)
                    children += element(name.substr(0, cut), cut % 2 != 0 ? "1" : "");
            }
            const XmlDocument document = sound_xml(element(root, children));
            const TextOperations text(r->name);
            Instance* x = create(r->name, D);
            std::uint32_t st = 0;
            heap().refuse_beyond(1 << 20);
            text.from_xml(D, D.set_id(), root.c_str(), document.get(), x, &st, nullptr, 0);
            ASSERT_EQ(heap().refusals(), 0u) << r->name << " at " << length;
            heap().stop_refusing();
            destroy(r->name, D, x);
        }
}

// ---- the calls of a reader ----

TEST_F(TextRead, CallsOfAReader) {
    auto* group = orlan_ial_vlan_group_info_create(D, D.set_id());
    const XmlDocument document = sound_xml("<g><is_added>1</is_added><vlans>5</vlans><gp_name>ab</gp_name></g>");
    char message[8];
    Recorder recorder(D);
    recorder.name(group, 48, "group");
    recorder.name(document.get(), 1, "document");
    recorder.name(message, sizeof message, "message");
    exported(orlan_ial_vlan_group_info_from_xml)(D, D.set_id(), "g", document.get(), group, &D.st, message, 8);
    EXPECT_EQ(recorder.take(), lines(R"(
        zur_clear_last_error(); xml_get_element_nodecount(document, "g", local)
        u_int32_from_xml(S, local, document, group+12, st, message, 8); u_int32_create(S)
        u_int32_from_xml(S, local, document, foreign, st, message, 8); zur_clear_last_error()
        zur_get_manifested_type_info(group); zurlib_adjust_variant(S, group, orlan_ial_vlan_group_info, 0, st)
        zur_get_instance_variant(group, 1, 0); u_int32_sizeof(); obj_alloc(S, 4) = #1
        write_range(group+24, 8, S, group); write_range(group+16, 4, S, group); u_int32_set(S, #1, foreign, st)
        u_int32_destroy(S, foreign); u_int32_create(S); u_int32_from_xml(S, local, document, foreign, st, message, 8)
        u_int32_destroy(S, foreign); u_int32_from_xml(S, local, document, group+32, st, message, 8)
        xml_get_element_value(document, local, null, 0, local); zur_store_err(28); obj_alloc(S, 3) = #2
        var_string_from_xml(S, local, document, #2, 3, st, message, 8); zur_clear_last_error()
        zur_get_manifested_type_info(group); zurlib_adjust_variant(S, group, orlan_ial_vlan_group_info, 0, st)
        zur_get_instance_variant(group, 1, 0); write_range(group+40, 8, S, group); obj_alloc(S, 3) = #3
        write_range(group+36, 4, S, group); obj_free(S, #2))"));

    // What the message's reader does before and behind the reading of its arm.
    auto* answer = orlan_ial_in_svm_epm_data_create(D, D.set_id());
    const XmlDocument second = sound_xml("<m><epm_type><ORLAN_IAL_SVM_EPM_VLAN_LOAD_INFO/></epm_type>"
                                         "<epm_type-load_info><vlan_num>3</vlan_num></epm_type-load_info></m>");
    Recorder again(D);
    again.leave_out("zurlib_type_stats_create_object"); // of the creation, which is tested elsewhere
    again.name(answer, 104, "answer");
    again.name(second.get(), 1, "document");
    exported(orlan_ial_in_svm_epm_data_from_xml)(D, D.set_id(), "m", second.get(), answer, &D.st, nullptr, 0);
    EXPECT_EQ(again.take(), lines(R"(
        zur_clear_last_error(); xml_get_element_nodecount(document, "m", local); zur_clear_last_error()
        xml_get_element_value(document, local, local, 128, null); zur_store_err(2)
        xml_get_element_value(document, local, local, 128, null); zur_store_err(2)
        xml_get_element_value(document, local, local, 128, null); write_range(answer+48, 8, S, answer)
        quelog_module_init_fn("zur_orlan_epm", g_zur_orlan_epm_trace_module_id, bundle); obj_alloc(S, 32) = #1
        zur_clear_last_error(); zur_domain_lookup_variant(D.variant_context, orlan_ial_vlan_load_balance_info, local)
        write_range(#1+9, 1, S, #1); write_range(#1+8, 1, S, #1); zur_get_manifested_type_info_ptr_mem(#1)
        write_range(#1, 8, S, #1); write_range(#1+10, 1, S, #1); zur_clear_last_error()
        xml_get_element_nodecount(document, local, local); u_int32_from_xml(S, local, document, #1+12, st, null, 0)
        u_int32_from_xml(S, local, document, #1+16, st, null, 0)
        u_int32_from_xml(S, local, document, #1+20, st, null, 0))"));
    EXPECT_EQ(D.st, 0u);
    orlan_ial_in_svm_epm_data_destroy(D, D.set_id(), answer);
    orlan_ial_vlan_group_info_destroy(D, D.set_id(), group);
}

/// The paths under which readers look, without anything found there.
TEST_F(TextRead, PathsOfAReader) {
    std::string paths;
    const auto values = REPLACE(xml_get_element_value, [&](auto*, const char* path, auto*, auto, auto*) {
        paths += path + std::string("\n");
        return 2u;
    });
    const auto number =
        REPLACE(u_int32_from_xml, [&](auto*, auto, const char* path, auto*, auto*, std::uint32_t* st, auto*, auto) {
            paths += path + std::string("\n");
            *st = 2;
        });
    const auto counts = REPLACE(xml_get_element_nodecount, [&](auto*, const char* path, std::uint32_t* count) {
        paths += path + std::string(" counted\n");
        *count = path == std::string("p") || path == std::string("p/epm_type-port_info");
        return 0u;
    });
    const XmlDocument document = sound_xml("<a/>");
    for (const char* type : {"orlan_ial_vlan_group_info", "rcl_client_intf_templ_list", "orlan_ial_in_svm_epm_data"}) {
        Instance* x = create(type, D);
        std::uint32_t st = 0;
        TextOperations(type).from_xml(D, D.set_id(), "p", document.get(), x, &st, nullptr, 0);
        EXPECT_EQ(st, type == std::string("orlan_ial_vlan_group_info") ? 2u : 0u);
        destroy(type, D, x);
    }
    EXPECT_EQ(paths, lines(R"(
        p counted
        p/is_added
        p/vlans[1]
        p/num_of_vlans
        p/gp_name
        p counted
        p/data[1] counted
        p counted
        p/epm_type/ORLAN_IAL_SVM_EPM_PORT_ACL_CHANGE
        p/epm_type/ORLAN_IAL_SVM_EPM_VLAN_GROUP_INFO
        p/epm_type/ORLAN_IAL_SVM_EPM_VLAN_LOAD_INFO
        p/epm_type/ORLAN_IAL_SVM_EPM_VLAN_NAME_INFO
        p/epm_type/ORLAN_IAL_SVM_EPM_NACK_MSG
        p/epm_type/ORLAN_NACK_TYPE_DACL
        p/epm_type/ORLAN_IAL_SVM_EPM_ACL_NAME_SYNC
        p/epm_type/EPM_IAF_TIMER_EXPIRY_EVENT
        p/epm_type/ORLAN_ACL_APPLN_FAILURE
        p/epm_type-port_info counted
        p/epm_type-port_info/gidb_handle
        p/epm_type-port_info/is_removed
        p/epm_type-port_info/acl_name
        )"));
}

} // namespace
} // namespace epm::test
