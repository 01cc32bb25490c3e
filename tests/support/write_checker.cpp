// The images of the blocks, and what may be written without an announcement.
#include "support/write_checker.hpp"

#include "support/heap.hpp"
#include "support/library.hpp"

#include <zur/foreign.h>

#include <cstring>

namespace epm::test {

WriteChecker::WriteChecker() {
    for (const TypeNumbers& t : all_types()) types_.insert(t.info);
    types_.insert({&_sm_auth_domain_type_info_internal, &_aaa_tlv_type_info_internal,
                   &_sess_mgr_conn_hdl_type_info_internal, &_sess_mgr_client_hdl_type_info_internal,
                   &_sess_mgr_session_label_type_info_internal, &_sess_mgr_authorize_result_type_info_internal});
    for (const auto& [block, size] : heap().blocks()) allocated(block, size, false);
}

void WriteChecker::enter_bundle(const Export* which) {
    within_.push_back(which);
    accept();
}

void WriteChecker::leave_bundle() {
    look("at its end");
    within_.pop_back();
    if (!within_.empty()) return; // back in the operation that led here
    for (auto& [block, image] : images_) {
        image.announced.assign(image.bytes.size(), false);
        image.is_fresh = false;
    }
}

void WriteChecker::announced(const void* address, std::size_t length) {
    const auto* from = static_cast<const unsigned char*>(address);
    auto behind = images_.upper_bound(from);
    if (behind == images_.begin()) return;
    auto& [block, image] = *--behind;
    const auto place = static_cast<std::size_t>(from - block);
    if (place >= image.bytes.size()) return;
    image.is_fresh = false;
    for (std::size_t i = place; i < std::min(place + length, image.bytes.size()); ++i) image.announced[i] = true;
}

void WriteChecker::allocated(void* block, std::size_t size, bool by_bundle) {
    if (block == nullptr || size == 0) return;
    const auto* bytes = static_cast<const unsigned char*>(block);
    images_[bytes] = {{bytes, bytes + size}, std::vector<bool>(size, false), by_bundle && !within_.empty()};
}

void WriteChecker::accept() {
    for (auto& [block, image] : images_) std::memcpy(image.bytes.data(), block, image.bytes.size());
}

void WriteChecker::look(const std::string& when) {
    if (within_.empty()) return;
    const Export within = within_.back() == nullptr ? Export{"type table", {}, {}} : *within_.back();
    for (auto& [block, image] : images_) {
        if (std::memcmp(image.bytes.data(), block, image.bytes.size()) == 0) continue;
        for (std::size_t i = 0; i < image.bytes.size(); ++i) {
            // A block that this operation has just taken is nobody else's yet.
            if (block[i] != image.bytes[i] && !image.announced[i] && !image.is_fresh && !is_excepted(block, block + i))
                ADD_FAILURE() << "unannounced write of byte " << i << " of a block of " << image.bytes.size() << ", "
                              << within.type << " " << within.field << " " << within.operation << ", " << when;
        }
        std::memcpy(image.bytes.data(), block, image.bytes.size());
    }
}

namespace {

bool has_links(const Record& r) {
    return r.is_linked() || r.any([](const Field& f) {
        return f.kind == Kind::list || (f.kind == Kind::embedded && has_links(*f.record));
    });
}

} // namespace

bool WriteChecker::is_excepted(const unsigned char* block, const unsigned char* address) const {
    if (declares_plain && (*TestDomain::current)->write_range_fn == idle_write_range) return true;
    const Export within = within_.back() == nullptr ? Export{} : *within_.back();
    const Record* r = record_named(within.type);
    const std::size_t field = r != nullptr ? r->index_of(within.field) : 0;
    const Kind kind = r != nullptr && field < r->count ? r->fields[field].kind : Kind::value;
    const auto runs = [&](const std::string& name) {
        return within.operation == name || within.operation == name + "_cr" || within.operation == name + "_internal";
    };
    // An Instance begins with the address of a TypeInfo.
    const auto place = reinterpret_cast<std::uintptr_t>(address);
    const std::uintptr_t word = place & ~std::uintptr_t{7};
    const bool is_header = type_at(word) != nullptr || (place - word <= 2 && type_at(word - 8) != nullptr);
    // The reader stores variant, flags, TypeInfo and state flags as they are read. A clone runs a reader, and so does
    // an array that takes a clone.
    const bool reads = runs("unmarshal") || runs("clone") || (kind == Kind::array && runs("set"));
    if (reads && (is_header || TestDomain::current->mode().is_tracking())) return true;
    // An enumeration's XML reader stores the value that it finds as it is.
    if (runs("from_xml") && !is_header) return true;
    // A destroyed enumeration's type word is zeroed just before its memory goes.
    if (*address == 0 && is_header && r == nullptr) return true;
    // The closing NUL of fixed characters comes after the flag, behind the announced characters.
    if (*address == 0 && kind == Kind::characters && runs("set")) return true;
    // Without a store nobody is told of the links of a list.
    const zur_type_info* type = type_at(reinterpret_cast<std::uintptr_t>(block));
    const Record* owner = type != nullptr ? record_named(type->name) : nullptr;
    if (owner != nullptr && has_links(*owner) && !TestDomain::current->mode().has_store) return true;
    // All flags at once are a plain fill of the block; those of an array are copied to its start.
    return within.operation == "set_all_state_tracking_flag" || within.operation == "state_flag_set_arr";
}

const zur_type_info* WriteChecker::type_at(std::uintptr_t start) const {
    const auto* place = reinterpret_cast<const unsigned char*>(start);
    auto behind = images_.upper_bound(place);
    if (start % 8 != 0 || behind == images_.begin()) return nullptr;
    const auto& [block, image] = *--behind;
    const auto offset = static_cast<std::size_t>(place - block);
    if (offset + sizeof(void*) > image.bytes.size()) return nullptr;
    for (const unsigned char* bytes : {place, image.bytes.data() + offset}) {
        const void* word = *reinterpret_cast<const void* const*>(bytes);
        if (types_.contains(word)) return static_cast<const zur_type_info*>(word);
    }
    return nullptr;
}

} // namespace epm::test
