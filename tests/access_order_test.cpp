// The runtime calls of the accessors, in order and with their arguments, for fields of all kinds. One list serves every
// mode of a Domain: a line may say in front for which modes it counts, and the modes are all tried. What the accessors
// leave behind is tested in access_test.cpp.
#include "support/bundle_test.hpp"
#include "support/types.hpp"

#include <platform/values.h>

#include <sstream>

namespace epm::test {
namespace {

/// One Domain in one mode, the records that are tried in it, and the calls.
///     t:, d:, n:  tracked mode, untracked mode, no handle
///     c:          with containment
///     s:          with a store
///     m:          where the store wants marks
/// Several letters must all hold. `~name` is the TypeInfo that Instances of a type have in this mode; `= $name` names
/// what a call gives, for the lines behind; `...` skips calls; `st = n` tells what is in the status word at the end.
/// How every accessor begins is written short: `read x e` and `write x type top st e`, where e is 1 for an enumerated
/// field.
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
        return operation<Result(zur_domain*, A...)>(type, field, name)(D, arguments...);
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
            if (!is_found) {
                ADD_FAILURE() << "wanted: " << line << "\nfound: " << call << "\namong\n"
                              << calls << "for\n"
                              << list << "\n"
                              << D.mode().text();
                return;
            }
            if (!bound.empty()) bound_[bound] = call.substr(line.size());
        }
        if (!may_skip && std::getline(found, call))
            ADD_FAILURE() << "one call too many: " << call << "\namong\n"
                          << calls << "for\n"
                          << list << "\n"
                          << D.mode().text();
    }

    TestDomain D;

private:
    static std::string in_full(const std::string& list) {
        std::istringstream in(list);
        std::string text;
        for (std::string line; std::getline(in, line);) {
            std::istringstream words(line);
            std::string word, x, type, top, st, e;
            words >> word;
            if (word == "read" && words >> x >> e) {
                text += "zur_clear_last_error()\n";
            } else if (word == "write" && words >> x >> type >> top >> st >> e) {
                text += "zur_clear_last_error()\nzur_get_manifested_type_info(" + x + ")\nzurlib_adjust_variant(S, " +
                        x + ", " + type + ", " + top + ", " + st + ")\n";
            } else {
                text += line + "\n";
                continue;
            }
            text += "zur_get_instance_variant(" + x + ", 1, " + e + ")\n";
        }
        return text;
    }
    /// Takes the modes off a line.
    bool counts(std::string& line) const {
        const auto end = line.find(": ");
        if (end == std::string::npos || line.substr(0, end).find_first_not_of("tdncsm") != std::string::npos)
            return true;
        const Mode& mode = D.mode();
        const auto holds = [&](char letter) {
            switch (letter) {
            case 't': return mode.is_tracking();
            case 'd': return mode.tracking == ZUR_UNTRACKED_MODE;
            case 'n': return mode.tracking == PLATFORM_NO_HANDLE;
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
        std::vector<Mode> modes = all_modes();
        for (Mode mode : tracking_modes()) {
            mode.store_mode = 1;
            mode.containment = mode.has_store = true;
            mode.set_id = ZUR_NO_SET; // the store gets no marks
            modes.push_back(mode);
        }
        for (const Mode& mode : modes) {
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
            write x ~orlan_ial_svm_acl_data 2 st 0
            write_range(x+24, 8, S, x)
            obj_alloc(S, 6) = $text
            write_range(x+12, 4, S, x)
            t: write_range(x+96, 1, S, null)
            c: zurdb_record_containment2(S, $text, x, 1)
        )");
        s.D->last_error = 0;
        EXPECT_EQ(s.chain(acl, "acl_name", "set_cr", x, "in", 2u), 0u);
        s.expect(R"(
            write x ~orlan_ial_svm_acl_data 2 D.last_error 0
            obj_free(S, $text)
            write_range(x+24, 8, S, x)
            obj_alloc(S, 3) = $next
            write_range(x+12, 4, S, x)
            t: write_range(x+96, 1, S, null)
            c: zurdb_record_containment2(S, $next, x, 1)
        )");
        char text[8];
        s.call(acl, "acl_name", "get", x, text, 8u);
        s.expect("read x 0");
        s.call(acl, "acl_name", "get", x, text, 2u);
        s.expect(R"(
            read x 0
            zur_store_err(28)
            st = 28
        )");
        s.call(acl, "acl_name", "get", x, text, 0u);
        s.expect(R"(
            zur_clear_last_error()
            zur_store_err(22)
            st = 22
        )");
        s.call(acl, "acl_name", "set", x, "", 0u);
        s.expect(R"(
            write x ~orlan_ial_svm_acl_data 2 st 0
            obj_free(S, $next)
            write_range(x+24, 8, S, x)
            write_range(x+12, 4, S, x)
            t: write_range(x+96, 1, S, null)
            c: zurdb_record_containment2(S, null, x, 1)
        )");
        Instance* name = s.make(domain_name, "name");
        s.call(domain_name, "name", "set", name, "a", 1u);
        s.expect(R"(
            write name ~fqdn_domain_name 0 st 0
            write_range(name+16, 8, S, name)
            obj_alloc(S, 2) = $short
            write_range(name+12, 2, S, name)
            t: write_range(name+32, 1, S, null)
            c: zurdb_record_containment2(S, $short, name, 1)
        )");
    });
}

TEST_F(AccessOrder, Number) {
    in_all_modes([](Scene& s) {
        Instance* x = s.make(acl, "x");
        std::uint32_t source = 70;
        s.name(&source, 4, "source");
        s.call(acl, "sequence", "set_value", x, 7u);
        s.expect(R"(
            write x ~orlan_ial_svm_acl_data 2 st 0
            read x 0
            u_int32_get(S, x+40, st)
            c: zurdb_record_containment2(S, x+40, x, 1)
            c: zurdb_record_containment2(S, x+40, x, 1)
            u_int32_set_value(S, x+40, 7, st)
            t: write_range(x+98, 1, S, null)
        )");
        s.call(acl, "sequence", "set", x, &source);
        s.expect(R"(
            write x ~orlan_ial_svm_acl_data 2 st 0
            u_int32_set(S, x+40, source, st)
            t: write_range(x+98, 1, S, null)
            c: zurdb_record_containment2(S, source, x, 1)
        )");
        EXPECT_EQ(s.call<std::uint32_t>(acl, "sequence", "get_value", x), 70u);
        s.expect(R"(
            read x 0
            u_int32_get(S, x+40, st)
            c: zurdb_record_containment2(S, x+40, x, 1)
            u_int32_get_value(S, x+40, st)
        )");
        s.call<void*>(acl, "sequence", "get", x);
        s.expect(R"(
            read x 0
            u_int32_get(S, x+40, st)
            c: zurdb_record_containment2(S, x+40, x, 1)
        )");
        // A length is read in the same way.
        s.call<std::uint32_t>(acl, "max_ace_length", "get_value", x);
        s.expect(R"(
            read x 0
            u_int32_get(S, x+16, st)
            c: zurdb_record_containment2(S, x+16, x, 1)
            u_int32_get_value(S, x+16, st)
        )");
        s.call<void*>(acl, "max_ace_length", "get", x);
        s.expect(R"(
            read x 0
            u_int32_get(S, x+16, st)
            c: zurdb_record_containment2(S, x+16, x, 1)
        )");
        // The marks themselves: an Instance has them in tracked mode only.
        s.call<std::uint8_t>(acl, "sequence", "state_flag_get", x);
        s.expect(R"(
            d: zur_store_err(22)
            n: zur_store_err(22)
            n: trace(3 " The object is non state tracked")
            d: st = 22
            n: st = 22
        )");
        s.call(acl, "sequence", "state_flag_set", x, 9u);
        s.expect(R"(
            n: trace(3 " The object is not state tracked")
            n: zur_store_err(22)
            d: zur_store_err(22)
            t: zur_get_manifested_type_info(x)
            t: zurlib_adjust_variant(S, x, ~orlan_ial_svm_acl_data, 2, st)
            t: zur_get_instance_variant(x, 1, 0)
            t: write_range(x+98, 1, S, null)
            d: st = 22
            n: st = 22
        )");
    });
}

TEST_F(AccessOrder, TruthValue) {
    in_all_modes([](Scene& s) {
        Instance* x = s.make(acl, "x");
        zur_boolean source{1};
        s.name(&source, sizeof source, "source");
        s.call(acl, "is_domain", "set_value", x, 1u);
        s.expect(R"(
            write x ~orlan_ial_svm_acl_data 2 st 1
            read x 1
            zur_boolean_get(S, x+68, st)
            c: zurdb_record_containment2(S, x+68, x, 1)
            c: zurdb_record_containment2(S, x+68, x, 1)
            zur_boolean_set_value(S, x+68, 1, st)
            t: write_range(x+105, 1, S, null)
        )");
        s.call(acl, "is_domain", "set", x, &source);
        s.expect(R"(
            write x ~orlan_ial_svm_acl_data 2 st 1
            zur_boolean_set(S, x+68, source, st)
            t: write_range(x+105, 1, S, null)
            c: zurdb_record_containment2(S, source, x, 1)
        )");
        s.call<std::uint32_t>(acl, "is_domain", "get_value", x);
        s.expect(R"(
            read x 1
            zur_boolean_get(S, x+68, st)
            c: zurdb_record_containment2(S, x+68, x, 1)
            zur_boolean_get_value(S, x+68, st)
        )");
    });
}

TEST_F(AccessOrder, OwnEnumeration) {
    in_all_modes([](Scene& s) {
        Instance* x = s.make(config, "x");
        Instance* source = s.make("sm_corvane_acl_feature_type_e", "source");
        s.call(config, "feat_type", "set_value", x, 5u);
        s.expect(R"(
            write x ~epm_client_acl_feat_config 0 st 1
            read x 1
            c: zurdb_record_containment2(S, x+48, null, 1)
            c: zurdb_record_containment2(S, x+48, x, 1)
            c: zurdb_record_containment2(S, x+48, x, 1)
            zur_clear_last_error()
            zurlib_adjust_variant(S, x+48, ~sm_corvane_acl_feature_type_e, 0, st)
            zur_get_instance_variant(x+48, 0, 1)
            write_range(x+60, 4, S, x+48)
            t: write_range(x+345, 1, S, null)
        )");
        s.call(config, "feat_type", "set", x, source);
        s.expect(R"(
            write x ~epm_client_acl_feat_config 0 st 1
            zur_clear_last_error()
            zurlib_adjust_variant(S, x+48, ~sm_corvane_acl_feature_type_e, 0, st)
            zur_get_instance_variant(x+48, 0, 1)
            write_range(x+48, 16, S, x+48)
            t: write_range(x+345, 1, S, null)
            c: zurdb_record_containment2(S, source, x, 1)
        )");
        s.call<std::uint32_t>(config, "feat_type", "get_value", x);
        s.expect(R"(
            read x 1
            c: zurdb_record_containment2(S, x+48, null, 1)
            c: zurdb_record_containment2(S, x+48, x, 1)
            zur_clear_last_error()
        )");
        s.call<void*>(config, "feat_type", "get", x);
        s.expect(R"(
            read x 1
            c: zurdb_record_containment2(S, x+48, null, 1)
            c: zurdb_record_containment2(S, x+48, x, 1)
        )");
        // Refused by the enumeration; the flag is raised all the same.
        s.call(config, "feat_type", "set_value", x, 8u);
        s.expect(R"(
            ...
            zur_get_instance_variant(x+48, 0, 1)
            zur_store_epoch_err(43, st)
            t: write_range(x+345, 1, S, null)
            st = 43
        )");
    });
}

TEST_F(AccessOrder, ImportedObject) {
    in_all_modes([](Scene& s) {
        Instance* x = s.make("orlan_ial_svm_port_fwd_info", "x");
        zur_mac_addr source{{1, 2, 3, 4, 5, 6}};
        s.name(&source, sizeof source, "source");
        s.call("orlan_ial_svm_port_fwd_info", "mac", "set", x, &source);
        s.expect(R"(
            write x ~orlan_ial_svm_port_fwd_info 0 st 0
            zur_mac_addr_set(S, x+12, source, st)
            t: write_range(x+40, 1, S, null)
            c: zurdb_record_containment2(S, source, x, 1)
        )");
        s.call<void*>("orlan_ial_svm_port_fwd_info", "mac", "get", x);
        s.expect(R"(
            read x 0
            zur_mac_addr_get(S, x+12, st)
            c: zurdb_record_containment2(S, x+12, x, 1)
        )");
    });
}

TEST_F(AccessOrder, Characters) {
    in_all_modes([](Scene& s) {
        Instance* x = s.make(client_vlan, "x");
        s.call(client_vlan, "ieee_mac", "set", x, "abcd", 4);
        const char* const list = R"(
            write x ~rcl_client_vlan_t 0 st 0
            write_range(x+24, 4, S, x)
            t: write_range(x+67, 1, S, null)
        )";
        s.expect(list);
        s.D->last_error = 0;
        EXPECT_EQ(s.chain(client_vlan, "ieee_mac", "set_cr", x, "efgh", 4), 0u);
        s.expect(std::string(list).replace(std::string(list).find(" st "), 4, " D.last_error "));
        char text[8];
        s.call(client_vlan, "ieee_mac", "get", x, text, 7u);
        s.expect("read x 0");
        s.call(client_vlan, "ieee_mac", "set", x, "1234567", 7);
        s.expect(R"(
            write x ~rcl_client_vlan_t 0 st 0
            zur_store_err(22)
            st = 22
        )");
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
            write x ~orlan_svm_epm_ip_address_update_notify 0 st 0
            zur_get_manifested_type_info(x+32)
            zurlib_adjust_variant(S, x+32, ~fqdn_domain_name, 0, st)
            zur_get_instance_variant(x+32, 1, 0)
            zur_get_instance_variant(source, 1, 0)
            write_range(x+32, 32, S, x+32)
            t: zurlib_get_sttr_offset(S, x+32)
            t: write_range(x+76, 1, S, x+76)
            write_range(source+16, 8, S, source)
            write_range(source+12, 2, S, source)
            t: write_range(x+75, 1, S, null)
            c: zurdb_record_containment2(S, source, x, 1)
        )");
        // Its own marks stand in the parent's block, at a place that the runtime knows.
        auto* nested = reinterpret_cast<Instance*>(reinterpret_cast<char*>(x) + 32);
        s.call(domain_name, "name", "set", nested, "", 0u);
        s.expect(R"(
            zur_clear_last_error()
            zur_get_manifested_type_info(x+32)
            zurlib_adjust_variant(S, x+32, ~fqdn_domain_name, 0, st)
            zur_get_instance_variant(x+32, 1, 0)
            ...
            write_range(x+44, 2, S, x+32)
            t: zurlib_get_sttr_offset(S, x+32)
            t: write_range(x+76, 1, S, null)
            c: zurdb_record_containment2(S, null, x+32, 1)
        )");
        s.call<void*>(update, "domain_name", "get", x);
        s.expect(R"(
            read x 0
            c: zurdb_record_containment2(S, x+32, null, 1)
            c: zurdb_record_containment2(S, x+32, x, 1)
        )");
    });
}

TEST_F(AccessOrder, Arm) {
    in_all_modes([](Scene& s) {
        Instance* x = s.make(message, "x");
        Instance* first = s.make(acl, "first");
        Instance* second = s.make(acl, "second");
        s.call(message, "acl_data", "set", x, first);
        s.expect(R"(
            write x ~orlan_ial_svm_epm_data 1 st 0
            write_range(x+32, 8, S, x)
            write_range(x+28, 4, S, x)
            t: write_range(x+121, 1, S, null)
            c: zurdb_record_containment2(S, first, x, 1)
        )");
        s.D->last_error = 0;
        EXPECT_EQ(s.chain(message, "acl_data", "set_cr", x, second), 0u);
        s.expect(R"(
            write x ~orlan_ial_svm_epm_data 1 D.last_error 0
            c: zurdb_record_containment2(S, first, x, 1)
            m: zurdb_plat_set_detach(S, first, 1)
            write_range(x+32, 8, S, x)
            write_range(x+28, 4, S, x)
            t: write_range(x+121, 1, S, null)
            c: zurdb_record_containment2(S, second, x, 1)
        )");
        EXPECT_EQ(s.call<Instance*>(message, "acl_data", "get", x), second);
        s.expect(R"(
            read x 0
            c: zurdb_record_containment2(S, second, null, 1)
            c: zurdb_record_containment2(S, second, x, 1)
        )");
        EXPECT_EQ(s.call<Instance*>(message, "acl_data", "get_detach", x), second);
        s.expect(R"(
            write x ~orlan_ial_svm_epm_data 1 st 0
            write_range(x+32, 8, S, x)
            write_range(x+28, 4, S, x)
            t: write_range(x+121, 1, S, null)
            c: zurdb_record_containment2(S, second, x, 1)
            m: zurdb_plat_set_detach(S, second, 1)
        )");
        EXPECT_EQ(s.call<Instance*>(message, "acl_data", "get_detach", x), nullptr);
        s.expect("write x ~orlan_ial_svm_epm_data 1 st 0");
    });
}

// ---- arrays ----

/// The notice of a reallocation comes once in a process: what the first growth of a filled array traces, and the next.
const std::pair<std::string, std::string>& notices(const char* type) {
    static std::map<std::string, std::pair<std::string, std::string>> all;
    if (!all.contains(type)) {
        TestDomain D;
        Instance* x = create(type, D);
        Traces traces;
        std::string told[2];
        for (std::uint32_t index = 0; index < 3; ++index) {
            if (type == std::string(group))
                operation<void(zur_domain*, std::uint32_t, Instance*, std::uint32_t, void*, std::uint32_t*)>(
                    type, "vlans", "set")(D, D.set_id(), x, index, nullptr, &D.st);
            else
                operation<void(zur_domain*, std::uint32_t, Instance*, std::uint32_t, void*, std::uint32_t,
                               std::uint32_t*)>(type, "data", "set")(D, D.set_id(), x, index, nullptr, 0, &D.st);
            if (index != 0) told[index - 1] = traces.take();
        }
        destroy(type, D, x);
        all[type] = {told[0], told[1]};
    }
    return all[type];
}

TEST_F(AccessOrder, ReallocationIsToldOnceForEachRecord) {
    for (const std::string type : {group, templates}) {
        EXPECT_EQ(notices(type.c_str()).first, "3 \" Reallocating resource for " + type + "\"\n");
        EXPECT_EQ(notices(type.c_str()).second, "");
    }
}

TEST_F(AccessOrder, ArrayOfNumbers) {
    notices(group);
    in_all_modes([](Scene& s) {
        Instance* x = s.make(group, "x");
        std::uint32_t source[2] = {11, 12};
        s.name(source, sizeof source, "source");
        s.call(group, "vlans", "set", x, 0u, &source[0]);
        s.expect(R"(
            write x ~orlan_ial_vlan_group_info 0 st 0
            u_int32_sizeof()
            obj_alloc(S, 4) = $one
            write_range(x+24, 8, S, x)
            write_range(x+16, 4, S, x)
            t: write_range(x+64, 8, S, null)
            t: obj_alloc(S, 1) = $flags
            c: zurdb_record_containment2(S, $one, x, 1)
            u_int32_set(S, $one, source, st)
            t: write_range(x+57, 1, S, null)
            t: write_range($flags, 1, S, null)
        )");
        s.call(group, "vlans", "set", x, 2u, &source[1]);
        s.expect(R"(
            write x ~orlan_ial_vlan_group_info 0 st 0
            u_int32_sizeof()
            obj_alloc(S, 12) = $three
            write_range(x+24, 8, S, x)
            obj_free(S, $one)
            write_range(x+16, 4, S, x)
            t: write_range(x+64, 8, S, null)
            t: obj_alloc(S, 3) = $longer
            t: obj_free(S, $flags)
            c: zurdb_record_containment2(S, $three+8, x, 1)
            u_int32_set(S, $three+8, source+4, st)
            t: write_range(x+57, 1, S, null)
            t: write_range($longer+2, 1, S, null)
        )");
        // An element that is there.
        s.call(group, "vlans", "set_value", x, 1u, 8u);
        s.expect(R"(
            write x ~orlan_ial_vlan_group_info 0 st 0
            read x 0
            u_int32_get(S, $three+4, local)
            c: zurdb_record_containment2(S, $three+4, x, 1)
            c: zurdb_record_containment2(S, $three+4, x, 1)
            u_int32_set_value(S, $three+4, 8, st)
            t: write_range(x+57, 1, S, null)
            t: write_range($longer+1, 1, S, null)
        )");
        // One that is not: the array grows without a value, and then it is set.
        s.call(group, "vlans", "set_value", x, 3u, 9u);
        s.expect(R"(
            write x ~orlan_ial_vlan_group_info 0 st 0
            write x ~orlan_ial_vlan_group_info 0 st 0
            u_int32_sizeof()
            obj_alloc(S, 16) = $four
            write_range(x+24, 8, S, x)
            obj_free(S, $three)
            write_range(x+16, 4, S, x)
            t: write_range(x+64, 8, S, null)
            t: obj_alloc(S, 4) = $longest
            t: obj_free(S, $longer)
            read x 0
            u_int32_get(S, $four+12, st)
            c: zurdb_record_containment2(S, $four+12, x, 1)
            c: zurdb_record_containment2(S, $four+12, x, 1)
            u_int32_set_value(S, $four+12, 9, st)
            t: write_range(x+57, 1, S, null)
            t: write_range($longest+3, 1, S, null)
        )");
        s.D->last_error = 0;
        EXPECT_EQ(s.chain(group, "vlans", "set_cr", x, 0u, 77u), 0u);
        s.expect(R"(
            write x ~orlan_ial_vlan_group_info 0 D.last_error 0
            c: zurdb_record_containment2(S, $four, x, 1)
            u_int32_set(S, $four, local, D.last_error)
            t: write_range(x+57, 1, S, null)
            t: write_range($longest, 1, S, null)
        )");
        EXPECT_EQ(s.call<std::uint32_t>(group, "vlans", "get_value", x, 0u), 77u);
        s.expect(R"(
            read x 0
            read x 0
            u_int32_get(S, $four, st)
            c: zurdb_record_containment2(S, $four, x, 1)
            u_int32_get_value(S, $four, st)
        )");
        s.call<void*>(group, "vlans", "get", x, 4u);
        s.expect(R"(
            read x 0
            zur_store_err(2)
            st = 2
        )");
        s.call(group, "vlans", "get_mem", x, source, 2u);
        s.expect("read x 0");
        s.call(group, "vlans", "state_flag_set", x, 1u, 3u);
        s.expect(R"(
            n: trace(3 " The object is not state tracked")
            n: zur_store_err(22)
            d: zur_store_err(22)
            t: zur_get_manifested_type_info(x)
            t: zurlib_adjust_variant(S, x, ~orlan_ial_vlan_group_info, 0, st)
            t: zur_get_instance_variant(x, 1, 0)
            t: write_range($longest+1, 1, S, null)
            n: st = 22
            d: st = 22
        )");
        s.call(group, "vlans", "state_flag_whole_set", x, 3u);
        s.expect(R"(
            n: trace(3 " The object is not state tracked")
            n: zur_store_err(22)
            d: zur_store_err(22)
            t: zur_get_manifested_type_info(x)
            t: zurlib_adjust_variant(S, x, ~orlan_ial_vlan_group_info, 0, st)
            t: zur_get_instance_variant(x, 1, 0)
            t: write_range(x+57, 1, S, null)
            n: st = 22
            d: st = 22
        )");
        const std::uint8_t flags[4] = {4, 5, 6, 7};
        s.call(group, "vlans", "state_flag_set_arr", x, &flags[0], 4u);
        s.expect(R"(
            n: trace(3 " The object is not state tracked")
            n: zur_store_err(22)
            d: zur_store_err(22)
            t: zur_get_manifested_type_info(x)
            t: zurlib_adjust_variant(S, x, ~orlan_ial_vlan_group_info, 0, st)
            t: zur_get_instance_variant(x, 1, 0)
            n: st = 22
            d: st = 22
        )");
        s.call(group, "vlans", "set_mem", x, source, 2u);
        s.expect(R"(
            write x ~orlan_ial_vlan_group_info 0 st 0
            obj_free(S, $four)
            write_range(x+24, 8, S, x)
            u_int32_sizeof()
            obj_alloc(S, 8) = $two
            write_range(x+16, 4, S, x)
            t: write_range(x+57, 1, S, null)
            t: obj_free(S, $longest)
            t: write_range(x+64, 8, S, null)
            t: obj_alloc(S, 2) = $fresh
        )");
        operation<void(zur_domain*, std::uint32_t, Instance*)>(group, "vlans", "remove_elements")(s.D, s.D.set_id(), x);
        s.expect(R"(
            obj_free(S, $two)
            write_range(x+24, 8, S, x)
            write_range(x+16, 4, S, x)
        )");
    });
}

TEST_F(AccessOrder, FixedRun) {
    in_all_modes([](Scene& s) {
        Instance* x = s.make(config, "x");
        std::uint8_t source[2] = {3, 4};
        s.name(source, sizeof source, "source");
        s.call(config, "acl_name", "set", x, 255u, &source[0]);
        s.expect(R"(
            write x ~epm_client_acl_feat_config 0 st 0
            u_int8_set(S, x+323, source, st)
            t: write_range(x+347, 1, S, null)
            t: write_range(x+603, 1, S, null)
        )");
        s.call(config, "acl_name", "set", x, 255u, nullptr);
        s.expect("write x ~epm_client_acl_feat_config 0 st 0");
        s.call(config, "acl_name", "set_value", x, 1u, 5u);
        s.expect(R"(
            write x ~epm_client_acl_feat_config 0 st 0
            read x 0
            u_int8_get(S, x+69, local)
            c: zurdb_record_containment2(S, x+69, x, 1)
            c: zurdb_record_containment2(S, x+69, x, 1)
            u_int8_set_value(S, x+69, 5, st)
            t: write_range(x+347, 1, S, null)
            t: write_range(x+349, 1, S, null)
        )");
        s.call(config, "acl_name", "set_value", x, 256u, 5u);
        s.expect(R"(
            write x ~epm_client_acl_feat_config 0 st 0
            write x ~epm_client_acl_feat_config 0 st 0
            read x 0
            zur_store_err(2)
            c: zurdb_record_containment2(S, null, x, 1)
            st = 2
        )");
        s.call(config, "acl_name", "set_mem", x, source, 2);
        s.expect(R"(
            write x ~epm_client_acl_feat_config 0 st 0
            write_range(x+68, 2, S, x)
            t: write_range(x+347, 1, S, null)
        )");
    });
}

TEST_F(AccessOrder, ArrayOfRecords) {
    notices(templates);
    in_all_modes([](Scene& s) {
        Instance* x = s.make(templates, "x");
        Instance* source = s.make(one_template, "source");
        s.call(one_template, "name", "set", source, "uplink", 6u);
        s.prepared();
        s.call(templates, "data", "set", x, 0u, source, 1u);
        s.expect(R"(
            write x ~rcl_client_intf_templ_list 0 st 0
            t: obj_alloc(S, 43) = $one
            d: obj_alloc(S, 40) = $one
            n: obj_alloc(S, 40) = $one
            write_range(x+16, 8, S, x)
            write_range(x+12, 4, S, x)
            t: zurlib_update_sttr_offset(S, $one, 40)
            zur_clear_last_error()
            ...
            t: write_range(x+40, 8, S, null)
            t: obj_alloc(S, 1) = $flags
            c: zurdb_record_containment2(S, $one, x, 1)
            zur_get_manifested_type_info($one)
            zurlib_adjust_variant(S, $one, ~rcl_client_intf_templ, 0, st)
            zur_get_instance_variant($one, 1, 0)
            zur_get_instance_variant(source, 1, 0)
            write_range($one, 40, S, $one)
            t: zurlib_get_sttr_offset(S, $one)
            t: write_range($one+40, 3, S, $one+40)
            write_range(source+24, 8, S, source)
            write_range(source+20, 4, S, source)
            t: write_range(x+32, 1, S, null)
            t: write_range($flags, 1, S, null)
        )");
        s.D->last_error = 0;
        EXPECT_EQ(s.chain(templates, "data", "set_cr", x, 1u, source, 0u), 0u);
        s.expect(R"(
            write x ~rcl_client_intf_templ_list 0 D.last_error 0
            t: obj_alloc(S, 86) = $two
            d: obj_alloc(S, 80) = $two
            n: obj_alloc(S, 80) = $two
            write_range(x+16, 8, S, x)
            t: zurlib_update_sttr_offset(S, $two, 80)
            write_range($one+24, 8, S, $one)
            write_range($one+20, 4, S, $one)
            t: zur_hd_mapping_destroy(S, $one, D.last_error)
            c: zurdb_record_containment2(S, $one, x, 1)
            m: zurdb_plat_set_detach(S, $one, 0)
            obj_free(S, $one)
            write_range(x+12, 4, S, x)
            t: zurlib_update_sttr_offset(S, $two+40, 43)
            zur_clear_last_error()
            ...
            t: write_range(x+40, 8, S, null)
            t: obj_alloc(S, 2) = $longer
            t: obj_free(S, $flags)
            c: zurdb_record_containment2(S, $two+40, x, 1)
            zurlib_get_handle_ws(local, local, null)
            ...
            t: write_range(x+32, 1, S, null)
            t: write_range($longer+1, 1, S, null)
        )");
        s.call<void*>(templates, "data", "get", x, 1u);
        s.expect(R"(
            read x 0
            c: zurdb_record_containment2(S, $two+40, null, 1)
            c: zurdb_record_containment2(S, $two+40, x, 1)
        )");
        operation<void(zur_domain*, std::uint32_t, Instance*)>(templates, "data", "remove_elements")(s.D, s.D.set_id(),
                                                                                                     x);
        s.expect(R"(
            ...
            obj_free(S, $two)
            write_range(x+16, 8, S, x)
            write_range(x+12, 4, S, x)
        )");
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
            write x ~epm_client_acl_feat_ctx 0 st 0
            write_range(x+88, 4, S, x)
            s: lumeo_set_range(store, a+24, 8, S)
            sm: zurdb_plat_set_dirty(S, a)
            s: lumeo_set_range(store, a+32, 8, S)
            sm: zurdb_plat_set_dirty(S, a)
            s: lumeo_set_range(store, x+72, 8, S)
            sm: zurdb_plat_set_dirty(S, x+64)
            s: lumeo_set_range(store, x+64, 8, S)
            sm: zurdb_plat_set_dirty(S, x+64)
            write_range(a+16, 8, S, a)
            c: zurdb_record_containment2(S, a, x, 1)
            t: write_range(x+115, 1, S, null)
        )");
        s.call(context, list, "set_last", x, b);
        s.expect(R"(
            write x ~epm_client_acl_feat_ctx 0 st 0
            write_range(x+88, 4, S, x)
            s: lumeo_set_range(store, b+24, 8, S)
            sm: zurdb_plat_set_dirty(S, b)
            s: lumeo_set_range(store, b+32, 8, S)
            sm: zurdb_plat_set_dirty(S, b)
            s: lumeo_set_range(store, a+24, 8, S)
            sm: zurdb_plat_set_dirty(S, a)
            s: lumeo_set_range(store, x+72, 8, S)
            sm: zurdb_plat_set_dirty(S, x+64)
            write_range(b+16, 8, S, b)
            c: zurdb_record_containment2(S, b, x, 1)
            t: write_range(x+115, 1, S, null)
        )");
        s.call(context, list, "set_before", x, b, c);
        s.expect(R"(
            write x ~epm_client_acl_feat_ctx 0 st 0
            write_range(x+88, 4, S, x)
            s: lumeo_set_range(store, c+24, 8, S)
            sm: zurdb_plat_set_dirty(S, c)
            s: lumeo_set_range(store, c+32, 8, S)
            sm: zurdb_plat_set_dirty(S, c)
            s: lumeo_set_range(store, a+24, 8, S)
            sm: zurdb_plat_set_dirty(S, a)
            s: lumeo_set_range(store, b+32, 8, S)
            sm: zurdb_plat_set_dirty(S, b)
            write_range(c+16, 8, S, c)
            c: zurdb_record_containment2(S, c, x, 1)
            t: write_range(x+115, 1, S, null)
        )");
        // Behind the last: the head's link is the farther one.
        s.D->last_error = 0;
        EXPECT_EQ(s.chain(context, list, "add_cr", x, e, 3, b), 0u);
        s.expect(R"(
            write x ~epm_client_acl_feat_ctx 0 D.last_error 0
            write_range(x+88, 4, S, x)
            s: lumeo_set_range(store, e+24, 8, S)
            sm: zurdb_plat_set_dirty(S, e)
            s: lumeo_set_range(store, e+32, 8, S)
            sm: zurdb_plat_set_dirty(S, e)
            s: lumeo_set_range(store, x+72, 8, S)
            sm: zurdb_plat_set_dirty(S, x+64)
            s: lumeo_set_range(store, b+24, 8, S)
            sm: zurdb_plat_set_dirty(S, b)
            write_range(e+16, 8, S, e)
            c: zurdb_record_containment2(S, e, x, 1)
            t: write_range(x+115, 1, S, null)
        )");
        EXPECT_EQ(s.call<Instance*>(context, list, "get_next", x, a), c);
        s.expect(R"(
            read x 0
            c: zurdb_record_containment2(S, c, x, 1)
        )");
        EXPECT_EQ(s.call<Instance*>(context, list, "get_last", x), e);
        s.expect(R"(
            read x 0
            c: zurdb_record_containment2(S, e, x, 1)
        )");
        EXPECT_EQ(s.call<Instance*>(context, list, "get_prev", x, a), nullptr);
        EXPECT_EQ(s.call<std::uint32_t>(context, list, "get_count", x), 4u);
        s.expect(R"(
            read x 0
            read x 0
        )");
        EXPECT_EQ(s.chain<Instance*>(context, list, "get_cr", x, 0, nullptr), a);
        s.expect(R"(
            read x 0
            c: zurdb_record_containment2(S, a, x, 1)
        )");
        EXPECT_EQ(s.call<Instance*>(config, std::string(list), "get_parent", b), x);
        s.expect(R"(
            read b 0
            c: zurdb_record_containment2(S, x, b, 1)
        )");
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
            write x ~epm_client_acl_feat_ctx 0 st 0
            write_range(x+88, 4, S, x)
            s: lumeo_set_range(store, b+24, 16, S)
            s: lumeo_set_range(store, c+32, 8, S)
            sm: zurdb_plat_set_dirty(S, c)
            s: lumeo_set_range(store, a+24, 8, S)
            sm: zurdb_plat_set_dirty(S, a)
            write_range(b+16, 8, S, b)
            c: zurdb_record_containment2(S, b, x, 1)
            m: zurdb_plat_set_detach(S, b, 1)
        )");
        s.D->last_error = 0;
        EXPECT_EQ(s.chain(context, list, "remove_cr", x, a), 0u);
        s.expect(R"(
            write x ~epm_client_acl_feat_ctx 0 D.last_error 0
            write_range(x+88, 4, S, x)
            s: lumeo_set_range(store, a+24, 16, S)
            s: lumeo_set_range(store, c+32, 8, S)
            sm: zurdb_plat_set_dirty(S, c)
            s: lumeo_set_range(store, x+64, 8, S)
            sm: zurdb_plat_set_dirty(S, x+64)
            write_range(a+16, 8, S, a)
            c: zurdb_record_containment2(S, a, x, 1)
            m: zurdb_plat_set_detach(S, a, 1)
        )");
        // The whole record moves: the remaining element follows it.
        s.call(context, "", "set", target, x);
        s.expect(R"(
            zur_get_manifested_type_info(target)
            zurlib_adjust_variant(S, target, ~epm_client_acl_feat_ctx, 0, st)
            zur_get_instance_variant(target, 1, 0)
            zur_get_instance_variant(x, 1, 0)
            write_range(target, 112, S, target)
            t: write_range(target+112, 4, S, target+112)
            s: lumeo_set_range(store, target+64, 8, S)
            sm: zurdb_plat_set_dirty(S, target+64)
            s: lumeo_set_range(store, target+72, 8, S)
            sm: zurdb_plat_set_dirty(S, target+64)
            s: lumeo_set_range(store, target+80, 8, S)
            sm: zurdb_plat_set_dirty(S, target+64)
            s: lumeo_set_range(store, c+32, 8, S)
            sm: zurdb_plat_set_dirty(S, c)
            s: lumeo_set_range(store, target+64, 8, S)
            sm: zurdb_plat_set_dirty(S, target+64)
            s: lumeo_set_range(store, x+64, 8, S)
            sm: zurdb_plat_set_dirty(S, x+64)
            s: lumeo_set_range(store, c+24, 8, S)
            sm: zurdb_plat_set_dirty(S, c)
            s: lumeo_set_range(store, target+72, 8, S)
            sm: zurdb_plat_set_dirty(S, target+64)
            s: lumeo_set_range(store, x+72, 8, S)
            sm: zurdb_plat_set_dirty(S, x+64)
            write_range(c+16, 8, S, c)
            write_range(x+88, 4, S, x)
        )");
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
            zur_get_manifested_type_info(x)
            zurlib_adjust_variant(S, x, ~orlan_ial_vlan_group_info, 0, st)
            zur_get_instance_variant(x, 1, 0)
            zur_get_instance_variant(source, 1, 0)
            write_range(x, 56, S, x)
            t: write_range(x+56, 24, S, x+56)
            t: write_range(source+64, 8, S, null)
            write_range(source+24, 8, S, source)
            write_range(source+16, 4, S, source)
            write_range(source+40, 8, S, source)
            write_range(source+36, 4, S, source)
        )");
        operation<Instance*(zur_domain*, std::uint32_t, Instance*)>(group, "get")(s.D, s.D.set_id(), x);
        s.expect("c: zurdb_record_containment2(S, x, null, 1)\n");
        s.call(group, "", "set", x, x);
        s.expect(R"(
            zur_get_manifested_type_info(x)
            zurlib_adjust_variant(S, x, ~orlan_ial_vlan_group_info, 0, st)
        )");
        s.call(group, "", "set_all", x, 1u, 2u);
        s.expect(R"(
            write x ~orlan_ial_vlan_group_info 0 st 0
            u_int32_set_value(S, x+12, 1, st)
            u_int32_set_value(S, x+32, 2, st)
        )");
        std::uint32_t outs[4];
        s.call(group, "", "get_all", x, &outs[0], &outs[1], &outs[2], &outs[3]);
        s.expect(R"(
            read x 0
            u_int32_get(S, x+12, st)
            c: zurdb_record_containment2(S, x+12, x, 1)
            u_int32_get_value(S, x+12, st)
            u_int32_get(S, x+16, st)
            c: zurdb_record_containment2(S, x+16, x, 1)
            u_int32_get_value(S, x+16, st)
            u_int32_get(S, x+32, st)
            c: zurdb_record_containment2(S, x+32, x, 1)
            u_int32_get_value(S, x+32, st)
            u_int32_get(S, x+36, st)
            c: zurdb_record_containment2(S, x+36, x, 1)
            u_int32_get_value(S, x+36, st)
        )");
        // Nested blocks get their places before the flags are copied; objects and nested records move on their own.
        Instance* next = s.make(update, "next");
        Instance* former = s.make(update, "former");
        s.call(update, "", "set", next, former);
        s.expect(R"(
            zur_get_manifested_type_info(next)
            zurlib_adjust_variant(S, next, ~orlan_svm_epm_ip_address_update_notify, 0, st)
            zur_get_instance_variant(next, 1, 0)
            zur_get_instance_variant(former, 1, 0)
            write_range(next, 72, S, next)
            t: zurlib_update_sttr_offset(S, next+32, 44)
            t: write_range(next+72, 5, S, next+72)
            zur_mac_addr_set(S, next+12, former+12, st)
            zur_get_manifested_type_info(next+32)
            zurlib_adjust_variant(S, next+32, ~fqdn_domain_name, 0, st)
            zur_get_instance_variant(next+32, 1, 0)
            zur_get_instance_variant(former+32, 1, 0)
            write_range(next+32, 32, S, next+32)
            t: zurlib_get_sttr_offset(S, next+32)
            t: zurlib_get_sttr_offset(S, former+32)
            t: write_range(next+76, 1, S, next+76)
            write_range(former+48, 8, S, former+32)
            write_range(former+44, 2, S, former+32)
        )");
        // With an own enumeration among the fields.
        Instance* refusal = s.make("orlan_ial_svm_epm_nack_info", "refusal");
        s.call("orlan_ial_svm_epm_nack_info", "", "set_all", refusal, 3u, 12u);
        s.expect(R"(
            write refusal ~orlan_ial_svm_epm_nack_info 0 st 0
            zur_clear_last_error()
            zurlib_adjust_variant(S, refusal+16, ~orlan_ial_svm_epm_nack_e, 0, st)
            zur_get_instance_variant(refusal+16, 0, 1)
            write_range(refusal+28, 4, S, refusal+16)
            u_int32_set_value(S, refusal+40, 12, st)
        )");
        // Arms are given up by their slots, all nine; the source keeps its tag.
        Instance* to = s.make(message, "to");
        Instance* from = s.make(message, "from");
        s.call(message, "", "set", to, from);
        s.expect(R"(
            zur_get_manifested_type_info(to)
            zurlib_adjust_variant(S, to, ~orlan_ial_svm_epm_data, 1, st)
            zur_get_instance_variant(to, 1, 0)
            zur_get_instance_variant(from, 1, 0)
            write_range(to, 120, S, to)
            t: write_range(to+120, 10, S, to+120)
            write_range(from+32, 8, S, from)
            write_range(from+40, 8, S, from)
            write_range(from+48, 8, S, from)
            write_range(from+56, 8, S, from)
            write_range(from+64, 8, S, from)
            write_range(from+72, 8, S, from)
            write_range(from+80, 8, S, from)
            write_range(from+88, 8, S, from)
            write_range(from+96, 8, S, from)
        )");
    });
}

TEST_F(AccessOrder, GrantsMoveOneByOne) {
    in_all_modes([](Scene& s) {
        constexpr auto grants = "orlan_ial_svm_bm_data";
        Instance* to = s.make(grants, "to");
        Instance* from = s.make(grants, "from");
        s.call(grants, "", "set", to, from);
        std::istringstream calls(s.calls());
        std::string moved;
        for (std::string line; std::getline(calls, line);)
            if (line.starts_with("zurlib_adjust_variant(S, to")) {
                const auto end = line.rfind(", ", line.rfind(", ") - 1);
                const auto start = line.find_last_of(" ", end - 1) + 1;
                moved += line.substr(start, end - start) + "\n";
            }
        EXPECT_EQ(moved, lines(R"(
            orlan_ial_svm_bm_data
            rcl_client_vlan_t
            rcl_template_info_t
            rcl_client_voice_vlan_t
            rcl_client_iaf_t
            rcl_client_intf_templ_list
            rcl_client_autocfg_data
            rcl_sess_mgr_authorize_ack
            rcl_client_cfg_macro
            rcl_client_acl_t
        )"));
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
        s.call<void*>(arguments...);
        s.expect("st = 5");
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
