// Keeps the policy of a campus in a pool. Each statement of a policy file is one transaction: it is there or not,
// whenever the process is killed. At start the program says what it holds.
//     durable_policy POOL < campus.policy
#include "../policy_exchange/policy.hpp"

#include <durable/pool.h>
#include <orlan_epm.h>

#include <cstdio>
#include <iostream>
#include <map>
#include <memory>
#include <string>

namespace {

using namespace exchange;

constexpr uint32_t S = ZUR_NO_SET;

struct ClosePool {
    void operator()(durable_pool* pool) const { durable_close(pool); }
};
using Pool = std::unique_ptr<durable_pool, ClosePool>;

Pool open_pool(const char* path) {
    durable_pool* pool = nullptr;
    durable_status status = durable_open(path, &pool);
    if (status == DURABLE_NO_FILE) status = durable_create(path, size_t{64} << 20, &pool);
    if (status != DURABLE_GOOD)
        std::cerr << "durable_policy: " << durable_status_text(status) << ": " << durable_reason() << '\n';
    return Pool(pool);
}

std::string hexadecimal(uint64_t number) {
    char text[32];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(number));
    return text;
}

/// Changes what is stored, within a transaction. A root's name says which entry, application or result it is, so a
/// statement about the same one finds it. Returns false when there was no room.
struct Change {
    durable_pool* pool;
    zur_domain* D;

    bool operator()(const AccessEntry& x) const {
        const std::string name = x.list + ' ' + std::to_string(x.sequence);
        auto* entry = static_cast<orlan_ial_svm_acl_data*>(durable_root(pool, "orlan_ial_svm_acl_data", name.c_str()));
        if (!x.is_create) {
            if (entry == nullptr) return true;
            const bool is_removed = durable_root_remove(D, "orlan_ial_svm_acl_data", name.c_str()) == DURABLE_GOOD;
            orlan_ial_svm_acl_data_destroy(D, S, entry);
            return is_removed;
        }
        const bool is_new = entry == nullptr;
        if (is_new) entry = orlan_ial_svm_acl_data_create(D, S);
        if (entry == nullptr) return false;
        uint32_t st = 0;
        orlan_ial_svm_acl_data_acl_name_set(D, S, entry, x.list.data(), static_cast<uint32_t>(x.list.size()), &st);
        orlan_ial_svm_acl_data_ace_name_set(D, S, entry, x.name.data(), static_cast<uint32_t>(x.name.size()), &st);
        orlan_ial_svm_acl_data_sequence_set_value(D, S, entry, x.sequence, &st);
        orlan_ial_svm_acl_data_is_ipv4_set_value(D, S, entry, x.is_ipv4, &st);
        orlan_ial_svm_acl_data_is_create_set_value(D, S, entry, 1, &st);
        orlan_ial_svm_acl_data_p_sequence_set_value(D, S, entry, x.p_sequence.value_or(0), &st);
        orlan_ial_svm_acl_data_is_dacl_set_value(D, S, entry, x.is_dacl.value_or(0), &st);
        orlan_ial_svm_acl_data_process_index_set_value(D, S, entry, x.process_index.value_or(0), &st);
        orlan_ial_svm_acl_data_is_domain_set_value(D, S, entry, x.is_domain.value_or(0), &st);
        orlan_ial_svm_acl_data_ip_addr_set_value(D, S, entry, x.ip_addr.value_or(0), &st);
        return st == 0 && (!is_new || durable_root_set(D, name.c_str(), entry) == DURABLE_GOOD);
    }

    bool operator()(const Application& x) const {
        const uint32_t flag = x.flag.value_or(0);
        const std::string name = x.list + ' ' + hexadecimal(x.interface_id) + ' ' + std::to_string(flag);
        auto* apply =
            static_cast<orlan_ial_svm_acl_apply*>(durable_root(pool, "orlan_ial_svm_acl_apply", name.c_str()));
        const bool is_new = apply == nullptr;
        if (is_new) apply = orlan_ial_svm_acl_apply_create(D, S);
        if (apply == nullptr) return false;
        uint32_t st = 0;
        orlan_ial_svm_acl_apply_acl_name_set(D, S, apply, x.list.data(), static_cast<uint32_t>(x.list.size()), &st);
        orlan_ial_svm_acl_apply_iif_id_set_value(D, S, apply, x.interface_id, &st);
        orlan_ial_svm_acl_apply_priority_set_value(D, S, apply, x.priority.value_or(0), &st);
        orlan_ial_svm_acl_apply_flag_set_value(D, S, apply, flag, &st);
        return st == 0 && (!is_new || durable_root_set(D, name.c_str(), apply) == DURABLE_GOOD);
    }

    // Neither is kept: the one is an order to the ports, the other news of a list.
    bool operator()(const PreAuthentication&) const { return true; }
    bool operator()(const Download&) const { return true; }
};

void show(const durable_pool* pool) {
    std::map<std::string, unsigned> entries, applications;
    for (durable_root_info root{}; durable_root_next(pool, &root) != 0;) {
        const std::string name = root.name;
        const std::string list = name.substr(0, name.find(' '));
        ++(std::string(root.type) == "orlan_ial_svm_acl_data" ? entries : applications)[list];
    }
    std::cout << entries.size() << " access lists\n";
    for (const auto& [list, count] : entries)
        std::cout << "  " << list << ": " << count << " entries, applied " << applications[list] << " times\n";
}

/// Each statement is confirmed when it is durable.
int follow(durable_pool* pool, zur_domain* D) {
    std::string line, reason;
    for (unsigned number = 1; std::getline(std::cin, line); ++number) {
        const std::optional<Statement> statement = read_statement(line, reason);
        if (!statement && !reason.empty()) {
            std::cerr << "durable_policy: line " << number << ": " << reason << '\n';
            return 1;
        }
        if (!statement) continue;
        durable_status status = durable_begin(D);
        if (status == DURABLE_GOOD) {
            const bool is_done = std::visit(Change{pool, D}, *statement);
            status = is_done ? durable_commit(D) : durable_abort(D);
            if (!is_done) status = DURABLE_FULL;
        }
        if (status != DURABLE_GOOD) {
            std::cerr << "durable_policy: line " << number << ": " << durable_status_text(status) << '\n';
            return 1;
        }
        std::cout << "line " << number << " is kept" << std::endl;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: durable_policy POOL < POLICY\n" << policy_format;
        return 2;
    }
    const Pool pool = open_pool(argv[1]);
    zur_domain* D = durable_domain_create(pool.get(), 0);
    if (D == nullptr) return 1;
    show(pool.get());
    return follow(pool.get(), D);
}
