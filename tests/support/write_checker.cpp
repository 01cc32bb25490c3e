// The images of the blocks, and what may be written without an announcement.
#include "support/write_checker.hpp"

#include "support/heap.hpp"
#include "support/types.hpp"

#include <zur/foreign.h>

#include <cstring>

namespace epm::test {

namespace {

const void* word_at(const unsigned char* bytes) {
    const void* word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

} // namespace

WriteChecker::WriteChecker() {
    for (const TypeNumbers& t : all_types()) types_.insert(t.info);
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
    look(std::string("before ") + function);
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
    if (block == nullptr || size == 0) return;
    const auto* bytes = static_cast<const unsigned char*>(block);
    images_[bytes] = {{bytes, bytes + size}, std::vector<bool>(size, false), by_bundle && !within_.empty()};
}

void WriteChecker::releasing(void* block) {
    images_.erase(static_cast<const unsigned char*>(block));
}

void WriteChecker::accept() {
    for (auto& [block, image] : images_) std::memcpy(image.bytes.data(), block, image.bytes.size());
}

void WriteChecker::look(const std::string& when) {
    if (within_.empty()) return;
    for (auto& [block, image] : images_)
        if (std::memcmp(image.bytes.data(), block, image.bytes.size()) != 0) look(when, block, image);
}

void WriteChecker::look(const std::string& when, const unsigned char* block, Image& image) {
    for (std::size_t i = 0; i < image.bytes.size(); ++i) {
        if (block[i] == image.bytes[i]) continue;
        // A block that this operation has just taken is nobody else's yet.
        if (image.announced[i] || image.is_fresh) continue;
        const Export within = within_.back() == nullptr ? Export{"type table", "", ""} : *within_.back();
        if (is_excepted(within, block, block + i)) continue;
        ADD_FAILURE() << "unannounced write of byte " << i << " of a block of " << image.bytes.size() << ", "
                      << within.type << " " << within.field << " " << within.operation << ", " << when;
    }
    std::memcpy(image.bytes.data(), block, image.bytes.size());
}

bool WriteChecker::is_excepted(const Export& within, const unsigned char* block, const unsigned char* address) const {
    const Record* r = record_named(within.type);
    const std::size_t field = r != nullptr ? r->index_of(within.field) : 0;
    const auto is_of_kind = [&](Kind kind) {
        return r != nullptr && field < r->count && r->fields[field].kind == kind;
    };
    const auto runs = [&](const std::string& name) {
        return within.operation == name || within.operation.ends_with("_" + name);
    };
    const bool sets = runs("set") || runs("set_cr");
    // A clone runs a reader, and so does an array that takes a clone.
    const bool reads = runs("unmarshal") || runs("clone") || runs("clone_cr") || runs("clone_internal") ||
                       (is_of_kind(Kind::array) && sets);
    const bool is_header = is_in_header(address);
    // The reader stores variant, flags, TypeInfo and state flags as they are read.
    if (reads && (is_header || is_flag(block, address))) return true;
    // An enumeration's XML reader stores the value that it finds as it is.
    if (runs("from_xml") && !is_header) return true;
    // A destroyed enumeration's type word is zeroed just before its memory goes.
    if (*address == 0 && is_header && r == nullptr && !reads) return true;
    // The closing NUL of fixed characters comes after the flag, behind the announced characters.
    if (*address == 0 && is_of_kind(Kind::characters) && sets) return true;
    // Without a store nobody is told of the links of a list.
    if (!TestDomain::any_has_store() && is_link(address)) return true;
    // All flags at once are a plain fill of the block; those of an array are copied to its start.
    return runs("set_all_state_tracking_flag") || runs("state_flag_set_arr");
}

const zur_type_info* WriteChecker::type_at(std::uintptr_t start) const {
    const auto* place = reinterpret_cast<const unsigned char*>(start);
    auto behind = images_.upper_bound(place);
    if (start % 8 != 0 || behind == images_.begin()) return nullptr;
    const auto& [block, image] = *--behind;
    const auto offset = static_cast<std::size_t>(place - block);
    if (offset + sizeof(void*) > image.bytes.size()) return nullptr;
    for (const unsigned char* bytes : {place, image.bytes.data() + offset}) {
        if (types_.contains(word_at(bytes))) return static_cast<const zur_type_info*>(word_at(bytes));
    }
    return nullptr;
}

// An Instance begins with the address of a TypeInfo.
bool WriteChecker::is_in_header(const unsigned char* address) const {
    const auto place = reinterpret_cast<std::uintptr_t>(address);
    const std::uintptr_t word = place & ~std::uintptr_t{7};
    return type_at(word) != nullptr || (place - word <= 2 && type_at(word - 8) != nullptr);
}

bool WriteChecker::is_link(const unsigned char* address) const {
    const std::uintptr_t word = reinterpret_cast<std::uintptr_t>(address) & ~std::uintptr_t{7};
    const auto is_of = [&](const Record& r, std::size_t offset) {
        const zur_type_info* type = type_at(word - offset);
        return type != nullptr && type->name == std::string_view(r.name);
    };
    for (const Record* r : catalogue::all_records) {
        const catalogue::Layout l = catalogue::lay_out(*r);
        if (r->is_linked() && (is_of(*r, l.links + 8u) || is_of(*r, l.links + 16u))) return true;
        for (std::size_t i = 0; i < r->count; ++i)
            for (const std::size_t link : {0u, 8u, 16u})
                if (r->fields[i].kind == Kind::list && is_of(*r, l.offset[i] + link)) return true;
    }
    return false;
}

// Behind an Instance or, when there are several, behind the last.
std::size_t WriteChecker::first_flag(const unsigned char* block) const {
    const std::size_t length = images_.at(block).bytes.size();
    const zur_type_info* type = type_at(reinterpret_cast<std::uintptr_t>(block));
    for (const TypeNumbers& t : all_types())
        if (type != nullptr && type->name == t.name && length % t.tracked == 0) return length / t.tracked * t.size;
    return length;
}

bool WriteChecker::is_flag(const unsigned char* block, const unsigned char* address) const {
    if (static_cast<std::size_t>(address - block) >= first_flag(block)) return true;
    for (const auto& [other, image] : images_)
        for (std::size_t i = catalogue::round_up(first_flag(other), 8); i + 8 <= image.bytes.size(); i += 8)
            if (word_at(other + i) == block) return true;
    return false;
}

} // namespace epm::test
