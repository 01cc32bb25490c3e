// The images of the blocks, and what may be written without an announcement.
#include "support/write_checker.hpp"

#include "support/heap.hpp"
#include "support/library.hpp"

#include <zur/foreign.h>

#include <cstring>

namespace epm::test {

namespace {

/// Whether the operation that is running is named so, as `<type>_<name>` or `<type>_<field>_<name>`.
bool runs(const Change& c, const char* name) {
    return c.within != nullptr &&
           (c.within->operation == name || c.within->operation.ends_with(std::string("_") + name));
}

bool is_of_kind(const Change& c, Kind kind) {
    for (const Record* r : catalogue::all_records)
        if (c.within != nullptr && c.within->type == r->name && r->index_of(c.within->field) < r->count)
            return r->fields[r->index_of(c.within->field)].kind == kind;
    return false;
}

bool is_of_enum(const Change& c) {
    return c.within != nullptr &&
           std::ranges::any_of(catalogue::all_enums, [&](const Enum* e) { return c.within->type == e->name; });
}

const struct {
    const char* reason;
    bool (*covers)(const Change&);
} exceptions[] = {
    {"the reader stores variant, flags and TypeInfo as they are read, into an Instance that is being replaced",
     [](const Change& c) { return c.is_in_header && (runs(c, "unmarshal") || runs(c, "clone_internal")); }},
    {"an enumeration's XML reader stores the value that it finds as it is",
     [](const Change& c) { return runs(c, "from_xml") && !c.is_in_header; }},
    {"a destroyed enumeration's type word is zeroed just before its memory goes",
     [](const Change& c) { return c.now == 0 && c.is_in_header && is_of_enum(c) && !runs(c, "unmarshal"); }},
    {"the closing NUL of fixed characters comes after the flag, behind the announced characters",
     [](const Change& c) {
         return c.now == 0 && is_of_kind(c, Kind::characters) && (runs(c, "set") || runs(c, "set_cr"));
     }},
    {"all flags at once: a plain fill of the block",
     [](const Change& c) { return runs(c, "set_all_state_tracking_flag"); }},
    {"flags of an array are copied to the block's start unannounced",
     [](const Change& c) { return runs(c, "state_flag_set_arr"); }},
};

} // namespace

WriteChecker::WriteChecker() {
    for (const Record* r : catalogue::all_records) types_.insert(type_info_of(*r));
    for (const Enum* e : catalogue::all_enums) types_.insert(type_info_of(*e));
    types_.insert({&_sm_auth_domain_type_info_internal, &_aaa_tlv_type_info_internal,
                   &_sess_mgr_conn_hdl_type_info_internal, &_sess_mgr_client_hdl_type_info_internal,
                   &_sess_mgr_session_label_type_info_internal, &_sess_mgr_authorize_result_type_info_internal});
    for (const auto& [block, about] : heap().blocks()) allocated(block, about.size, false);
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

void WriteChecker::before_call(const char* function, const Arguments&) {
    last_call_ = function;
    look("before ");
}

void WriteChecker::after_call() {
    accept();
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
    if (block == nullptr) return;
    const auto* bytes = static_cast<const unsigned char*>(block);
    images_[bytes] = {{bytes, bytes + size}, std::vector<bool>(size, false), by_bundle && !within_.empty()};
}

void WriteChecker::releasing(void* block) {
    images_.erase(static_cast<const unsigned char*>(block));
}

void WriteChecker::accept() {
    for (auto& [block, image] : images_) std::memcpy(image.bytes.data(), block, image.bytes.size());
}

void WriteChecker::look(const char* when) {
    if (within_.empty()) return;
    for (auto& [block, image] : images_)
        if (std::memcmp(image.bytes.data(), block, image.bytes.size()) != 0) look(when, block, image);
}

void WriteChecker::look(const char* when, const unsigned char* block, Image& image) {
    for (std::size_t i = 0; i < image.bytes.size(); ++i) {
        if (block[i] == image.bytes[i]) continue;
        if (image.announced[i]) {
            image.announced[i] = false;
            ++bytes_seen_;
            continue;
        }
        // A block that this operation has just taken is nobody else's yet.
        if (image.is_fresh) continue;
        const Change change{within_.back(), block + i, block[i], is_in_header(block + i)};
        if (std::ranges::any_of(exceptions, [&](const auto& e) { return e.covers(change); })) continue;
        ADD_FAILURE() << "unannounced write of byte " << i << " of a block of " << image.bytes.size() << ", "
                      << (within_.back() == nullptr ? "type table" : within_.back()->type) << " "
                      << (within_.back() == nullptr ? "" : within_.back()->field + " " + within_.back()->operation)
                      << ", " << when << (*when == 'b' ? last_call_ : "");
    }
    std::memcpy(image.bytes.data(), block, image.bytes.size());
}

// An Instance begins where a TypeInfo's address stands.
bool WriteChecker::is_in_header(const unsigned char* address) const {
    const auto place = reinterpret_cast<std::uintptr_t>(address);
    for (const std::uintptr_t start : {place & ~std::uintptr_t{7}, (place & ~std::uintptr_t{7}) - 8}) {
        if (place - start > 10 || heap().block_of(reinterpret_cast<const void*>(start)) == nullptr) continue;
        const void* word;
        std::memcpy(&word, reinterpret_cast<const void*>(start), sizeof word);
        if (types_.contains(word)) return true;
        const auto image = std::prev(images_.upper_bound(reinterpret_cast<const unsigned char*>(start)));
        const std::size_t offset = start - reinterpret_cast<std::uintptr_t>(image->first);
        if (offset + sizeof word > image->second.bytes.size()) continue;
        std::memcpy(&word, image->second.bytes.data() + offset, sizeof word);
        if (types_.contains(word)) return true;
    }
    return false;
}

} // namespace epm::test
