#include "frame/registration.hpp"
#include "frame/type_tables.hpp"

extern "C" {
[[gnu::visibility("default")]] void* orlan_epm_bundle_registered_handler = nullptr;
}

namespace epm::frame {

void* register_handler(void* handler) {
    void* former = orlan_epm_bundle_registered_handler;
    orlan_epm_bundle_registered_handler = handler;
    kesh_comm_bundle_handler_register(handler);
    portbase_bundle_handler_register(handler);
    credbase_bundle_handler_register(handler);
    credrelay_bundle_handler_register(handler);
    orlan_sm_bundle_handler_register(handler);
    return former;
}

void* unregister_handler() {
    void* former = orlan_epm_bundle_registered_handler;
    orlan_epm_bundle_registered_handler = nullptr;
    kesh_comm_bundle_handler_unregister();
    portbase_bundle_handler_unregister();
    credbase_bundle_handler_unregister();
    credrelay_bundle_handler_unregister();
    orlan_sm_bundle_handler_unregister();
    return former;
}

namespace {

zur_module_node node = {"orlan_epm", type_table, nullptr, nullptr};
bool linked_once = false;

[[gnu::constructor]] void link_module() {
    if (linked_once) return;
    zur_module_root& root = zur_module_tot_root;
    node.next = nullptr;
    node.prev_link = root.last_link;
    *root.last_link = &node;
    root.last_link = &node.next;
    ++root.count;
    linked_once = true;
}

[[gnu::destructor]] void unlink_module() {
    if (node.next == nullptr && node.prev_link == nullptr) return;
    if (node.next != nullptr)
        node.next->prev_link = node.prev_link;
    else
        zur_module_tot_root.last_link = node.prev_link;
    *node.prev_link = node.next;
    node.next = nullptr;
    node.prev_link = nullptr;
    --zur_module_tot_root.count;
}

} // namespace
} // namespace epm::frame
