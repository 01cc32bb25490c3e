// The runtime calls of the accessors, in order and with their arguments, for fields of all kinds. One list serves every
// mode of a Domain: a line may say in front for which modes it counts, and the modes are all tried. What the accessors
// leave behind is tested in access_test.cpp.
#include "support/bundle_test.hpp"
#include "support/calls.hpp"
#include "support/types.hpp"

#include <platform/values.h>

#include <gmock/gmock.h>

#include <regex>
#include <sstream>

namespace epm::test {
namespace {

/// One Domain in one mode, the records under test, and the calls. A list has one call on each line, or several with
/// semicolons between. A call may start with the modes in which it is made; all letters must hold:
///     t:, d:, n:  tracked mode, untracked mode, no handle;  u:  not tracked;  c:  with containment
///     s:          with a store;  m:  where the store wants marks
/// `~name` is the TypeInfo that Instances of a type have in this mode. `= $name` names a call's result for later calls;
/// `...` skips calls; `st = n` is the status word at the end. `short_forms` abbreviates repeated calls; the last word
/// of `read` and `write` is 1 for an enumerated field.
class Scene {
public:
    explicit Scene(const Mode& mode) : D(mode), recorder_(D) {}
    ~Scene() {
        for (auto it = owned_.rbegin(); it != owned_.rend(); ++it) destroy(it->first, D, it->second);
    }

    Instance* make(const std::string& type, const std::string& name, bool is_mine = true) {
        Instance* x = create(type, D);
        const auto& t = *std::ranges::find(all_types(), type, &TypeNumbers::name);
        recorder_.name(x, D.mode().is_tracking() ? t.tracked : t.size, name);
        if (is_mine) owned_.emplace_back(type, x);
        recorder_.take();
        return x;
    }
    void name(const void* address, std::size_t length, const std::string& name) {
        recorder_.name(address, length, name);
    }

    template <class Result = void, class... A>
    Result call(const char* type, const std::string& field, const char* name, A... arguments) {
        using Called = Result(zur_domain*, std::uint32_t, A..., std::uint32_t*);
        const auto o = field.empty() ? operation<Called>(type, name) : operation<Called>(type, field, name);
        return o(D, D.set_id(), arguments..., &D.st);
    }
    template <class Result = std::uint32_t, class... A>
    Result chain(const char* type, const std::string& field, const char* name, A... arguments) {
        D->last_error = 0;
        return operation<Result(zur_domain*, A...)>(type, field, name)(D, arguments...);
    }
    template <class... A>
    void without_status(const char* type, const std::string& field, const char* name, A... arguments) {
        operation<void(zur_domain*, std::uint32_t, A...)>(type, field, name)(D, D.set_id(), arguments...);
    }
    /// Ends what a test needs before the call that it is about.
    void prepared() {
        EXPECT_EQ(D.st, 0u) << D.mode().text();
        recorder_.take();
    }

    std::string calls() { return recorder_.take(); }
    void expect(const std::string& list) {
        const std::string calls = recorder_.take();
        std::istringstream found(calls + (D.st != 0 ? "st = " + std::to_string(D.st) + "\n" : ""));
        D.st = 0;
        std::istringstream wanted(in_full(lines(list)));
        const auto fail = [&](const std::string& what) {
            ADD_FAILURE() << what << "\namong\n" << calls << "for\n" << list << "\n" << D.mode().text();
        };
        std::string line;
        std::string call;
        bool may_skip = false;
        while (std::getline(wanted, line)) {
            if (!counts(line)) continue;
            if (line == "...") {
                may_skip = true;
                continue;
            }
            const auto binding = line.find(" = $");
            const std::string bound = binding == std::string::npos ? "" : line.substr(binding + 3);
            if (!bound.empty()) line.erase(binding + 3);
            replace_names(line);
            bool is_found = false;
            while (!is_found && std::getline(found, call)) {
                is_found = bound.empty() ? call == line : call.starts_with(line);
                if (!is_found && !may_skip) break;
            }
            may_skip = false;
            if (!is_found) return fail("wanted: " + line + "\nfound: " + call);
            if (!bound.empty()) bound_[bound] = call.substr(line.size());
        }
        if (!may_skip && std::getline(found, call)) fail("one call too many: " + call);
    }
    /// Of this operation of a field.
    template <class Result = void, class... A>
    Result expect(const std::string& list, const char* type, const std::string& field, const char* name,
                  A... arguments) {
        if constexpr (std::is_void_v<Result>) {
            call(type, field, name, arguments...);
            expect(list);
        } else {
            const Result result = call<Result>(type, field, name, arguments...);
            expect(list);
            return result;
        }
    }

    TestDomain D;

private:
    static std::string in_full(const std::string& list) {
        static const std::pair<std::regex, const char*> short_forms[] = {
            {std::regex("(read) (\\S+) ([01])\n"), "zur_clear_last_error()\nzur_get_instance_variant($2, 1, $3)\n"},
            {std::regex("(write) (\\S+) (\\S+) (\\S+) (\\S+) ([01])\n"),
             "zur_clear_last_error()\nzur_get_manifested_type_info($2)\nzurlib_adjust_variant(S, $2, $3, $4, $5)\n"
             "zur_get_instance_variant($2, 1, $6)\n"},
            {std::regex("(flag) (\\S+) (\\S+) (\\S+)\n"),
             "n: trace(3 \" The object is not state tracked\")\nu: zur_store_err(22)\nu: st = 22\n"
             "t: zur_get_manifested_type_info($2)\nt: zurlib_adjust_variant(S, $2, $3, $4, st)\n"
             "t: zur_get_instance_variant($2, 1, 0)\n"},
            {std::regex("(move) (\\S+) (\\S+) (\\S+) (\\S+)\n"),
             "zur_get_manifested_type_info($2)\nzurlib_adjust_variant(S, $2, $3, $4, st)\n"
             "zur_get_instance_variant($2, 1, 0)\nzur_get_instance_variant($5, 1, 0)\n"},
            {std::regex("(range) (\\S+) (\\S+) (\\S+)\n"), "write_range($2, $3, S, $4)\n"},
            {std::regex("(mark) (\\S+)\n"), "t: write_range($2, 1, S, null)\n"},
            {std::regex("(held) (\\S+) (\\S+)\n"), "c: zurdb_record_containment2(S, $2, $3, 1)\n"},
            {std::regex("(link) (\\S+) (\\S+)\n"),
             "s: lumeo_set_range(store, $2, 8, S)\nsm: zurdb_plat_set_dirty(S, $3)\n"},
        };
        std::string text = list;
        for (const auto& [form, calls] : short_forms) text = std::regex_replace(text, form, calls);
        return text;
    }
    /// Takes the modes off a line.
    bool counts(std::string& line) const {
        const auto end = line.find(": ");
        if (end == std::string::npos || line.substr(0, end).find_first_not_of("tdnucsm") != std::string::npos)
            return true;
        const Mode& mode = D.mode();
        const auto holds = [&](char letter) {
            switch (letter) {
            case 't': return mode.is_tracking();
            case 'd': return mode.tracking == ZUR_UNTRACKED_MODE;
            case 'n': return mode.tracking == PLATFORM_NO_HANDLE;
            case 'u': return !mode.is_tracking();
            case 'c': return mode.containment;
            case 's': return mode.has_store;
            default: return mode.marks();
            }
        };
        const std::string letters = line.substr(0, end);
        line.erase(0, end + 2);
        return std::ranges::all_of(letters, holds);
    }
    void replace_names(std::string& line) const {
        for (std::size_t at; (at = line.find('~')) != std::string::npos;)
            line.replace(at, 1, D.mode().store_mode != 0 ? "copy of " : "");
        for (const auto& [name, value] : bound_)
            for (std::size_t at; (at = line.find(name)) != std::string::npos;) line.replace(at, name.size(), value);
    }

    Recorder recorder_;
    std::vector<std::pair<std::string, Instance*>> owned_;
    std::map<std::string, std::string> bound_;
};

class AccessOrder : public BundleTest {
protected:
    template <class Body>
    void in_all_modes(Body body) {
        for (const Mode& mode : all_modes()) {
            Scene s(mode);
            body(s);
            if (HasFailure()) return;
        }
    }
};

constexpr auto acl = "orlan_ial_svm_acl_data";
constexpr auto message = "orlan_ial_svm_epm_data";
constexpr auto group = "orlan_ial_vlan_group_info";
constexpr auto config = "epm_client_acl_feat_config";
constexpr auto context = "epm_client_acl_feat_ctx";
constexpr auto client_vlan = "rcl_client_vlan_t";
constexpr auto templates = "rcl_client_intf_templ_list";
constexpr auto one_template = "rcl_client_intf_templ";
constexpr auto update = "orlan_svm_epm_ip_address_update_notify";
constexpr auto domain_name = "fqdn_domain_name";

// ---- plain fields ----

TEST_F(AccessOrder, Text) {
    in_all_modes([](Scene& s) {
        Instance* x = s.make(acl, "x");
        s.call(acl, "acl_name", "set", x, "guest", 5u);
        s.expect(R"(
            write x ~orlan_ial_svm_acl_data 2 st 0; range x+24 8 x; obj_alloc(S, 6) = $text; range x+12 4 x; mark x+96
            held $text x)");
        EXPECT_EQ(s.chain(acl, "acl_name", "set_cr", x, "in", 2u), 0u);
        s.expect(R"(
            write x ~orlan_ial_svm_acl_data 2 D.last_error 0; obj_free(S, $text); range x+24 8 x
            obj_alloc(S, 3) = $next; range x+12 4 x; mark x+96; held $next x)");
        char text[8];
        s.expect("read x 0", acl, "acl_name", "get", x, text, 8u);
        s.expect("read x 0; zur_store_err(28); st = 28", acl, "acl_name", "get", x, text, 2u);
        s.expect("zur_clear_last_error(); zur_store_err(22); st = 22", acl, "acl_name", "get", x, text, 0u);
        s.call(acl, "acl_name", "set", x, "", 0u);
        s.expect(R"(
            write x ~orlan_ial_svm_acl_data 2 st 0; obj_free(S, $next); range x+24 8 x; range x+12 4 x; mark x+96
            held null x)");
    });
}

TEST_F(AccessOrder, Number) {
    in_all_modes([](Scene& s) {
        Instance* x = s.make(acl, "x");
        std::uint32_t source = 70;
        s.name(&source, 4, "source");
        s.call(acl, "sequence", "set_value", x, 7u);
        s.expect(R"(
            write x ~orlan_ial_svm_acl_data 2 st 0; read x 0; u_int32_get(S, x+40, st); held x+40 x; held x+40 x
            u_int32_set_value(S, x+40, 7, st); mark x+98)");
        s.call(acl, "sequence", "set", x, &source);
        s.expect("write x ~orlan_ial_svm_acl_data 2 st 0; u_int32_set(S, x+40, source, st); mark x+98; held source x");
        EXPECT_EQ(s.call<std::uint32_t>(acl, "sequence", "get_value", x), 70u);
        s.expect("read x 0; u_int32_get(S, x+40, st); held x+40 x; u_int32_get_value(S, x+40, st)");
        s.expect<void*>("read x 0; u_int32_get(S, x+40, st); held x+40 x", acl, "sequence", "get", x);
        // A truth value counts as enumerated.
        s.expect(
            "write x ~orlan_ial_svm_acl_data 2 st 1; read x 1; zur_boolean_get(S, x+68, st); held x+68 x; held x+68 x; "
            "zur_boolean_set_value(S, x+68, 1, st); mark x+105",
            acl, "is_domain", "set_value", x, 1u);
        // The marks themselves: an Instance has them in tracked mode only.
        s.call<std::uint8_t>(acl, "sequence", "state_flag_get", x);
        s.expect(R"(
            u: zur_store_err(22); n: trace(3 " The object is non state tracked"); u: st = 22)");
        s.call(acl, "sequence", "state_flag_set", x, 9u);
        s.expect("flag x ~orlan_ial_svm_acl_data 2; mark x+98");
    });
}

TEST_F(AccessOrder, OwnEnumeration) {
    in_all_modes([](Scene& s) {
        Instance* x = s.make(config, "x");
        Instance* source = s.make("sm_corvane_acl_feature_type_e", "source");
        s.call(config, "feat_type", "set_value", x, 5u);
        s.expect(R"(
            write x ~epm_client_acl_feat_config 0 st 1; read x 1; held x+48 null; held x+48 x; held x+48 x
            zur_clear_last_error(); zurlib_adjust_variant(S, x+48, ~sm_corvane_acl_feature_type_e, 0, st)
            zur_get_instance_variant(x+48, 0, 1); range x+60 4 x+48; mark x+345)");
        s.call(config, "feat_type", "set", x, source);
        s.expect(R"(
            write x ~epm_client_acl_feat_config 0 st 1; zur_clear_last_error()
            zurlib_adjust_variant(S, x+48, ~sm_corvane_acl_feature_type_e, 0, st); zur_get_instance_variant(x+48, 0, 1)
            range x+48 16 x+48; mark x+345; held source x)");
        s.call<std::uint32_t>(config, "feat_type", "get_value", x);
        s.expect("read x 1; held x+48 null; held x+48 x; zur_clear_last_error()");
        s.expect<void*>("read x 1; held x+48 null; held x+48 x", config, "feat_type", "get", x);
        // Refused by the enumeration; the flag is raised all the same.
        s.call(config, "feat_type", "set_value", x, 8u);
        s.expect("...; zur_get_instance_variant(x+48, 0, 1); zur_store_epoch_err(43, st); mark x+345; st = 43");
    });
}

TEST_F(AccessOrder, ImportedObject) {
    in_all_modes([](Scene& s) {
        Instance* x = s.make("orlan_ial_svm_port_fwd_info", "x");
        zur_mac_addr source{{1, 2, 3, 4, 5, 6}};
        s.name(&source, sizeof source, "source");
        s.call("orlan_ial_svm_port_fwd_info", "mac", "set", x, &source);
        s.expect(R"(
            write x ~orlan_ial_svm_port_fwd_info 0 st 0; zur_mac_addr_set(S, x+12, source, st); mark x+40
            held source x)");
        s.call<void*>("orlan_ial_svm_port_fwd_info", "mac", "get", x);
        s.expect("read x 0; zur_mac_addr_get(S, x+12, st); held x+12 x");
    });
}

TEST_F(AccessOrder, Characters) {
    in_all_modes([](Scene& s) {
        Instance* x = s.make(client_vlan, "x");
        s.call(client_vlan, "ieee_mac", "set", x, "abcd", 4);
        s.expect("write x ~rcl_client_vlan_t 0 st 0; range x+24 4 x; mark x+67");
        EXPECT_EQ(s.chain(client_vlan, "ieee_mac", "set_cr", x, "efgh", 4), 0u);
        s.expect("write x ~rcl_client_vlan_t 0 D.last_error 0; range x+24 4 x; mark x+67");
        char text[8];
        s.expect("read x 0", client_vlan, "ieee_mac", "get", x, text, 7u);
        s.call(client_vlan, "ieee_mac", "set", x, "1234567", 7);
        s.expect("write x ~rcl_client_vlan_t 0 st 0; zur_store_err(22); st = 22");
    });
}

TEST_F(AccessOrder, Embedded) {
    in_all_modes([](Scene& s) {
        Instance* x = s.make(update, "x");
        Instance* source = s.make(domain_name, "source");
        s.call(domain_name, "name", "set", source, "a.example", 9u);
        s.prepared();
        s.call(update, "domain_name", "set", x, source);
        s.expect(R"(
            write x ~orlan_svm_epm_ip_address_update_notify 0 st 0; move x+32 ~fqdn_domain_name 0 source
            range x+32 32 x+32; t: zurlib_get_sttr_offset(S, x+32); t: write_range(x+76, 1, S, x+76)
            range source+16 8 source; range source+12 2 source; mark x+75; held source x)");
        // Its own marks stand in the parent's block, at a place that the runtime knows.
        auto* nested = reinterpret_cast<Instance*>(reinterpret_cast<char*>(x) + 32);
        s.call(domain_name, "name", "set", nested, "", 0u);
        s.expect(R"(
            zur_clear_last_error(); zur_get_manifested_type_info(x+32)
            zurlib_adjust_variant(S, x+32, ~fqdn_domain_name, 0, st); zur_get_instance_variant(x+32, 1, 0); ...
            range x+44 2 x+32; t: zurlib_get_sttr_offset(S, x+32); mark x+76; held null x+32)");
        s.expect<void*>("read x 0; held x+32 null; held x+32 x", update, "domain_name", "get", x);
    });
}

TEST_F(AccessOrder, Arm) {
    in_all_modes([](Scene& s) {
        Instance* x = s.make(message, "x");
        Instance* first = s.make(acl, "first");
        Instance* second = s.make(acl, "second");
        s.call(message, "acl_data", "set", x, first);
        s.expect("write x ~orlan_ial_svm_epm_data 1 st 0; range x+32 8 x; range x+28 4 x; mark x+121; held first x");
        EXPECT_EQ(s.chain(message, "acl_data", "set_cr", x, second), 0u);
        s.expect(R"(
            write x ~orlan_ial_svm_epm_data 1 D.last_error 0; held first x; m: zurdb_plat_set_detach(S, first, 1)
            range x+32 8 x; range x+28 4 x; mark x+121; held second x)");
        EXPECT_EQ(s.call<Instance*>(message, "acl_data", "get", x), second);
        s.expect("read x 0; held second null; held second x");
        EXPECT_EQ(s.call<Instance*>(message, "acl_data", "get_detach", x), second);
        s.expect(R"(
            write x ~orlan_ial_svm_epm_data 1 st 0; range x+32 8 x; range x+28 4 x; mark x+121; held second x
            m: zurdb_plat_set_detach(S, second, 1))");
        EXPECT_EQ(s.call<Instance*>(message, "acl_data", "get_detach", x), nullptr);
        s.expect("write x ~orlan_ial_svm_epm_data 1 st 0");
    });
}

// ---- arrays ----

/// The notice of a reallocation comes once in a process, at the first growth of a filled array.
template <class... More>
void expect_one_notice(const std::string& type, const std::string& field, More... more) {
    TestDomain D;
    Instance* x = create(type, D);
    Traces traces;
    for (std::uint32_t index = 0; index < 3; ++index) {
        call(D, type, field, "set", x, index, static_cast<void*>(nullptr), more...);
        EXPECT_EQ(traces.take(), index == 1 ? "3 \" Reallocating resource for " + type + "\"\n" : "");
    }
    destroy(type, D, x);
}

TEST_F(AccessOrder, ArrayOfNumbers) {
    expect_one_notice(group, "vlans");
    in_all_modes([](Scene& s) {
        Instance* x = s.make(group, "x");
        std::uint32_t source[2] = {11, 12};
        s.name(source, sizeof source, "source");
        s.call(group, "vlans", "set", x, 0u, &source[0]);
        s.expect(R"(
            write x ~orlan_ial_vlan_group_info 0 st 0; u_int32_sizeof(); obj_alloc(S, 4) = $one; range x+24 8 x
            range x+16 4 x; t: write_range(x+64, 8, S, null); t: obj_alloc(S, 1) = $flags; held $one x
            u_int32_set(S, $one, source, st); mark x+57; mark $flags)");
        s.call(group, "vlans", "set", x, 2u, &source[1]);
        s.expect(R"(
            write x ~orlan_ial_vlan_group_info 0 st 0; u_int32_sizeof(); obj_alloc(S, 12) = $three; range x+24 8 x
            obj_free(S, $one); range x+16 4 x; t: write_range(x+64, 8, S, null); t: obj_alloc(S, 3) = $longer
            t: obj_free(S, $flags); held $three+8 x; u_int32_set(S, $three+8, source+4, st); mark x+57; mark $longer+2)");
        // An element that is there.
        s.call(group, "vlans", "set_value", x, 1u, 8u);
        s.expect(R"(
            write x ~orlan_ial_vlan_group_info 0 st 0; read x 0; u_int32_get(S, $three+4, local); held $three+4 x
            held $three+4 x; u_int32_set_value(S, $three+4, 8, st); mark x+57; mark $longer+1)");
        // One that is not: the array grows without a value, and then it is set.
        s.call(group, "vlans", "set_value", x, 3u, 9u);
        s.expect(R"(
            write x ~orlan_ial_vlan_group_info 0 st 0; write x ~orlan_ial_vlan_group_info 0 st 0; u_int32_sizeof()
            obj_alloc(S, 16) = $four; range x+24 8 x; obj_free(S, $three); range x+16 4 x
            t: write_range(x+64, 8, S, null); t: obj_alloc(S, 4) = $longest; t: obj_free(S, $longer); read x 0
            u_int32_get(S, $four+12, st); held $four+12 x; held $four+12 x; u_int32_set_value(S, $four+12, 9, st)
            mark x+57; mark $longest+3)");
        EXPECT_EQ(s.chain(group, "vlans", "set_cr", x, 0u, 77u), 0u);
        s.expect(R"(
            write x ~orlan_ial_vlan_group_info 0 D.last_error 0; held $four x
            u_int32_set(S, $four, local, D.last_error); mark x+57; mark $longest)");
        EXPECT_EQ(s.call<std::uint32_t>(group, "vlans", "get_value", x, 0u), 77u);
        s.expect("read x 0; read x 0; u_int32_get(S, $four, st); held $four x; u_int32_get_value(S, $four, st)");
        s.expect<void*>("read x 0; zur_store_err(2); st = 2", group, "vlans", "get", x, 4u);
        s.expect("read x 0", group, "vlans", "get_mem", x, source, 2u);
        s.call(group, "vlans", "state_flag_set", x, 1u, 3u);
        s.expect("flag x ~orlan_ial_vlan_group_info 0; mark $longest+1");
        s.call(group, "vlans", "state_flag_whole_set", x, 3u);
        s.expect("flag x ~orlan_ial_vlan_group_info 0; mark x+57");
        const std::uint8_t flags[4] = {4, 5, 6, 7};
        s.call(group, "vlans", "state_flag_set_arr", x, &flags[0], 4u);
        s.expect(R"(
            n: trace(3 " The object is not state tracked"); u: zur_store_err(22); t: zur_get_manifested_type_info(x)
            t: zurlib_adjust_variant(S, x, ~orlan_ial_vlan_group_info, 0, st); t: zur_get_instance_variant(x, 1, 0)
            u: st = 22)");
        s.call(group, "vlans", "set_mem", x, source, 2u);
        s.expect(R"(
            write x ~orlan_ial_vlan_group_info 0 st 0; obj_free(S, $four); range x+24 8 x; u_int32_sizeof()
            obj_alloc(S, 8) = $two; range x+16 4 x; mark x+57; t: obj_free(S, $longest)
            t: write_range(x+64, 8, S, null); t: obj_alloc(S, 2) = $fresh)");
        s.without_status(group, "vlans", "remove_elements", x);
        s.expect("obj_free(S, $two); range x+24 8 x; range x+16 4 x");
    });
}

TEST_F(AccessOrder, FixedRun) {
    in_all_modes([](Scene& s) {
        Instance* x = s.make(config, "x");
        std::uint8_t source[2] = {3, 4};
        s.name(source, sizeof source, "source");
        s.call(config, "acl_name", "set", x, 255u, &source[0]);
        s.expect(
            "write x ~epm_client_acl_feat_config 0 st 0; u_int8_set(S, x+323, source, st); mark x+347; mark x+603");
        s.expect("write x ~epm_client_acl_feat_config 0 st 0", config, "acl_name", "set", x, 255u, nullptr);
        s.call(config, "acl_name", "set_value", x, 1u, 5u);
        s.expect(R"(
            write x ~epm_client_acl_feat_config 0 st 0; read x 0; u_int8_get(S, x+69, local); held x+69 x; held x+69 x
            u_int8_set_value(S, x+69, 5, st); mark x+347; mark x+349)");
        s.call(config, "acl_name", "set_value", x, 256u, 5u);
        s.expect(R"(
            write x ~epm_client_acl_feat_config 0 st 0; write x ~epm_client_acl_feat_config 0 st 0; read x 0
            zur_store_err(2); held null x; st = 2)");
        s.call(config, "acl_name", "set_mem", x, source, 2);
        s.expect("write x ~epm_client_acl_feat_config 0 st 0; range x+68 2 x; mark x+347");
    });
}

TEST_F(AccessOrder, ArrayOfRecords) {
    expect_one_notice(templates, "data", 0u);
    in_all_modes([](Scene& s) {
        Instance* x = s.make(templates, "x");
        Instance* source = s.make(one_template, "source");
        s.call(one_template, "name", "set", source, "uplink", 6u);
        s.prepared();
        s.call(templates, "data", "set", x, 0u, source, 1u);
        s.expect(R"(
            write x ~rcl_client_intf_templ_list 0 st 0; t: obj_alloc(S, 43) = $one; d: obj_alloc(S, 40) = $one
            n: obj_alloc(S, 40) = $one; range x+16 8 x; range x+12 4 x; t: zurlib_update_sttr_offset(S, $one, 40)
            zur_clear_last_error(); ...; t: write_range(x+40, 8, S, null); t: obj_alloc(S, 1) = $flags; held $one x
            move $one ~rcl_client_intf_templ 0 source; range $one 40 $one; t: zurlib_get_sttr_offset(S, $one)
            t: write_range($one+40, 3, S, $one+40); range source+24 8 source; range source+20 4 source; mark x+32
            mark $flags)");
        EXPECT_EQ(s.chain(templates, "data", "set_cr", x, 1u, source, 0u), 0u);
        s.expect(R"(
            write x ~rcl_client_intf_templ_list 0 D.last_error 0; t: obj_alloc(S, 86) = $two
            d: obj_alloc(S, 80) = $two; n: obj_alloc(S, 80) = $two; range x+16 8 x
            t: zurlib_update_sttr_offset(S, $two, 80); range $one+24 8 $one; range $one+20 4 $one
            t: zur_hd_mapping_destroy(S, $one, D.last_error); held $one x; m: zurdb_plat_set_detach(S, $one, 0)
            obj_free(S, $one); range x+12 4 x; t: zurlib_update_sttr_offset(S, $two+40, 43); zur_clear_last_error()
            ...; t: write_range(x+40, 8, S, null); t: obj_alloc(S, 2) = $longer; t: obj_free(S, $flags); held $two+40 x
            zurlib_get_handle_ws(local, local, null); ...; mark x+32; mark $longer+1)");
        s.expect<void*>("read x 0; held $two+40 null; held $two+40 x", templates, "data", "get", x, 1u);
        s.without_status(templates, "data", "remove_elements", x);
        s.expect("...; obj_free(S, $two); range x+16 8 x; range x+12 4 x");
    });
}

// ---- lists ----

TEST_F(AccessOrder, ListIsJoined) {
    in_all_modes([](Scene& s) {
        constexpr auto list = "bm_feat_conf_list";
        Instance* x = s.make(context, "x");
        Instance* a = s.make(config, "a", false);
        Instance* b = s.make(config, "b", false);
        Instance* c = s.make(config, "c", false);
        Instance* e = s.make(config, "e", false);
        s.call(context, list, "set_first", x, a);
        s.expect(R"(
            write x ~epm_client_acl_feat_ctx 0 st 0; range x+88 4 x; link a+24 a; link a+32 a; link x+72 x+64
            link x+64 x+64; range a+16 8 a; held a x; mark x+115)");
        s.call(context, list, "set_last", x, b);
        s.expect(R"(
            write x ~epm_client_acl_feat_ctx 0 st 0; range x+88 4 x; link b+24 b; link b+32 b; link a+24 a
            link x+72 x+64; range b+16 8 b; held b x; mark x+115)");
        s.call(context, list, "set_before", x, b, c);
        s.expect(R"(
            write x ~epm_client_acl_feat_ctx 0 st 0; range x+88 4 x; link c+24 c; link c+32 c; link a+24 a; link b+32 b
            range c+16 8 c; held c x; mark x+115)");
        // Behind the last: the head's link is the farther one.
        EXPECT_EQ(s.chain(context, list, "add_cr", x, e, 3, b), 0u);
        s.expect(R"(
            write x ~epm_client_acl_feat_ctx 0 D.last_error 0; range x+88 4 x; link e+24 e; link e+32 e; link x+72 x+64
            link b+24 b; range e+16 8 e; held e x; mark x+115)");
        EXPECT_EQ(s.expect<Instance*>("read x 0; held c x", context, list, "get_next", x, a), c);
        EXPECT_EQ(s.expect<Instance*>("read x 0; held e x", context, list, "get_last", x), e);
        EXPECT_EQ(s.call<Instance*>(context, list, "get_prev", x, a), nullptr);
        EXPECT_EQ(s.expect<std::uint32_t>("read x 0; read x 0", context, list, "get_count", x), 4u);
        EXPECT_EQ(s.chain<Instance*>(context, list, "get_cr", x, 0, nullptr), a);
        s.expect("read x 0; held a x");
        EXPECT_EQ(s.expect<Instance*>("read b 0; held x b", config, std::string(list), "get_parent", b), x);
        for (const char* name : {"add_cr", "get_cr"}) {
            const bool adds = name[0] == 'a';
            if (adds)
                EXPECT_EQ(s.chain(context, list, name, x, a, 4, b), 22u);
            else
                EXPECT_EQ(s.chain<Instance*>(context, list, name, x, -1, nullptr), nullptr);
            s.expect(adds ? "trace(3 \" invalid list add flag 4\")\nzur_store_err(22)\n"
                          : "trace(3 \" invalid list get flag -1\")\nzur_store_err(22)\n");
        }
        s.D->last_error = 0;
    });
}

TEST_F(AccessOrder, ListIsLeft) {
    in_all_modes([](Scene& s) {
        constexpr auto list = "bm_feat_conf_list";
        Instance* x = s.make(context, "x");
        Instance* target = s.make(context, "target");
        Instance* a = s.make(config, "a");
        Instance* b = s.make(config, "b");
        Instance* c = s.make(config, "c", false);
        for (Instance* element : {a, b, c}) s.call(context, list, "set_last", x, element);
        s.prepared();
        s.call(context, list, "remove", x, b);
        s.expect(R"(
            write x ~epm_client_acl_feat_ctx 0 st 0; range x+88 4 x; s: lumeo_set_range(store, b+24, 16, S)
            link c+32 c; link a+24 a; range b+16 8 b; held b x; m: zurdb_plat_set_detach(S, b, 1))");
        EXPECT_EQ(s.chain(context, list, "remove_cr", x, a), 0u);
        s.expect(R"(
            write x ~epm_client_acl_feat_ctx 0 D.last_error 0; range x+88 4 x; s: lumeo_set_range(store, a+24, 16, S)
            link c+32 c; link x+64 x+64; range a+16 8 a; held a x; m: zurdb_plat_set_detach(S, a, 1))");
        // The whole record moves: the remaining element follows it.
        s.call(context, "", "set", target, x);
        s.expect(R"(
            move target ~epm_client_acl_feat_ctx 0 x; range target 112 target
            t: write_range(target+112, 4, S, target+112); link target+64 target+64; link target+72 target+64
            link target+80 target+64; link c+32 c; link target+64 target+64; link x+64 x+64; link c+24 c
            link target+72 target+64; link x+72 x+64; range c+16 8 c; range x+88 4 x)");
    });
}

TEST_F(AccessOrder, ListGoesWithItsOwner) {
    in_all_modes([](Scene& s) {
        constexpr auto list = "bm_feat_conf_list";
        Instance* x = s.make(context, "x", false);
        Instance* a = s.make(config, "a", false);
        Instance* b = s.make(config, "b", false);
        for (Instance* element : {a, b}) s.call(context, list, "set_last", x, element);
        s.prepared();
        destroy(context, s.D, x);
        s.expect(R"(
            ...; s: lumeo_set_range(store, a+24, 16, S); link b+32 a; link x+64 x+64; write_range(a+16, 8, S, null)
            zur_get_instance_variant(a, 1, 0); ...; obj_free(S, a); s: lumeo_set_range(store, b+24, 16, S)
            link x+72 x+64; link x+64 x+64; write_range(b+16, 8, S, null); zur_get_instance_variant(b, 1, 0); ...
            obj_free(S, b); write_range(x+88, 4, S, null); ...; obj_free(S, x))");
    });
}

// ---- whole records ----

TEST_F(AccessOrder, WholeRecord) {
    in_all_modes([](Scene& s) {
        Instance* x = s.make(group, "x");
        Instance* source = s.make(group, "source");
        const std::uint32_t vlans[2] = {4, 5};
        s.call(group, "vlans", "set_mem", source, vlans, 2u);
        s.call(group, "gp_name", "set", source, "floor", 5u);
        s.prepared();
        s.call(group, "", "set", x, source);
        s.expect(R"(
            move x ~orlan_ial_vlan_group_info 0 source; range x 56 x; t: write_range(x+56, 24, S, x+56)
            t: write_range(source+64, 8, S, null); range source+24 8 source; range source+16 4 source
            range source+40 8 source; range source+36 4 source)");
        operation<Instance*(zur_domain*, std::uint32_t, Instance*)>(group, "get")(s.D, s.D.set_id(), x);
        s.expect("held x null\n");
        s.call(group, "", "set", x, x);
        s.expect("zur_get_manifested_type_info(x); zurlib_adjust_variant(S, x, ~orlan_ial_vlan_group_info, 0, st)");
        s.call(group, "", "set_all", x, 1u, 2u);
        s.expect(R"(
            write x ~orlan_ial_vlan_group_info 0 st 0; u_int32_set_value(S, x+12, 1, st)
            u_int32_set_value(S, x+32, 2, st))");
        std::uint32_t outs[4];
        s.call(group, "", "get_all", x, &outs[0], &outs[1], &outs[2], &outs[3]);
        s.expect(R"(
            read x 0; u_int32_get(S, x+12, st); held x+12 x; u_int32_get_value(S, x+12, st); u_int32_get(S, x+16, st)
            held x+16 x; u_int32_get_value(S, x+16, st); u_int32_get(S, x+32, st); held x+32 x
            u_int32_get_value(S, x+32, st); u_int32_get(S, x+36, st); held x+36 x; u_int32_get_value(S, x+36, st))");
        // Nested blocks get their places before the flags are copied; objects and nested records move on their own.
        Instance* next = s.make(update, "next");
        Instance* former = s.make(update, "former");
        s.call(update, "", "set", next, former);
        s.expect(R"(
            move next ~orlan_svm_epm_ip_address_update_notify 0 former; range next 72 next
            t: zurlib_update_sttr_offset(S, next+32, 44); t: write_range(next+72, 5, S, next+72)
            zur_mac_addr_set(S, next+12, former+12, st); move next+32 ~fqdn_domain_name 0 former+32
            range next+32 32 next+32; t: zurlib_get_sttr_offset(S, next+32); t: zurlib_get_sttr_offset(S, former+32)
            t: write_range(next+76, 1, S, next+76); range former+48 8 former+32; range former+44 2 former+32)");
        // With an own enumeration among the fields.
        Instance* refusal = s.make("orlan_ial_svm_epm_nack_info", "refusal");
        s.call("orlan_ial_svm_epm_nack_info", "", "set_all", refusal, 3u, 12u);
        s.expect(R"(
            write refusal ~orlan_ial_svm_epm_nack_info 0 st 0; zur_clear_last_error()
            zurlib_adjust_variant(S, refusal+16, ~orlan_ial_svm_epm_nack_e, 0, st)
            zur_get_instance_variant(refusal+16, 0, 1); range refusal+28 4 refusal+16
            u_int32_set_value(S, refusal+40, 12, st))");
        // Arms are given up by their slots, all nine; the source keeps its tag.
        Instance* to = s.make(message, "to");
        Instance* from = s.make(message, "from");
        s.call(message, "", "set", to, from);
        s.expect(R"(
            move to ~orlan_ial_svm_epm_data 1 from; range to 120 to; t: write_range(to+120, 10, S, to+120)
            range from+32 8 from; range from+40 8 from; range from+48 8 from; range from+56 8 from
            range from+64 8 from; range from+72 8 from; range from+80 8 from; range from+88 8 from
            range from+96 8 from)");
    });
}

// A raised status word: nothing is called by any accessor; that of the whole-record set is not looked at.
TEST_F(AccessOrder, NothingHappensUnderARaisedStatusWord) {
    Scene s({ZUR_TRACKED_MODE, 1, true, true});
    Instance* x = s.make(acl, "x");
    Instance* m = s.make(message, "m");
    Instance* g = s.make(group, "g");
    Instance* list = s.make(context, "list");
    char text[4];
    std::uint32_t numbers[3] = {};
    const auto quiet = [&](auto... arguments) {
        s.D.st = 5;
        s.expect<void*>("st = 5", arguments...);
    };
    for (const char* name : {"get", "get_value", "state_flag_get"}) quiet(acl, "sequence", name, x);
    quiet(acl, "sequence", "set", x, &numbers[0]);
    quiet(acl, "sequence", "set_value", x, 3u);
    quiet(acl, "sequence", "state_flag_set", x, 3u);
    quiet(acl, "acl_name", "get", x, &text[0], 4u);
    quiet(acl, "acl_name", "set", x, "a", 1u);
    quiet(message, "acl_data", "get", m);
    quiet(message, "acl_data", "get_detach", m);
    quiet(message, "acl_data", "set", m, x);
    for (const char* name : {"get", "get_value", "state_flag_get"}) quiet(group, "vlans", name, g, 0u);
    quiet(group, "vlans", "set", g, 0u, &numbers[0]);
    quiet(group, "vlans", "set_value", g, 0u, 3u);
    for (const char* name : {"set_mem", "get_mem", "state_flag_set_arr"})
        quiet(group, "vlans", name, g, &numbers[0], 0u);
    for (const char* name : {"get_first", "get_last", "get_count"}) quiet(context, "bm_feat_conf_list", name, list);
    quiet(group, "", "get_all", g, &numbers[0], &numbers[0], &numbers[0], &numbers[0]);
    quiet(group, "", "set_all", g, 1u, 2u);
}

} // namespace
} // namespace epm::test
