// How calls, addresses and traces are written down.
#include "support/recorder.hpp"

#include "support/library.hpp"

#include <cstring>

namespace epm::test {

namespace {

/// Whether it is a local variable of a caller.
bool is_on_stack(const void* address) {
    const char here = 0;
    return reinterpret_cast<std::uintptr_t>(address) - reinterpret_cast<std::uintptr_t>(&here) < std::size_t{8} << 20;
}

/// A TypeInfo, or a counter of one of its variants; empty for any other address.
std::string name_in(const zur_type_info* type, const void* address) {
    if (address == type) return type->name;
    for (int v = -1; type->variant_table != nullptr && v < type->variant_table->count; ++v) { // -1: unknown to a peer
        const zur_variant_record& record = type->variant_table->records[v];
        if (address != &record.created && address != &record.destroyed) continue;
        return std::string(type->name) + "[" + std::to_string(v) + "]" +
               (address == &record.created ? ".created" : ".destroyed");
    }
    return {};
}

} // namespace

Recorder::Recorder(TestDomain& domain) : domain_(domain) {
    name(&domain->variant_context, sizeof domain->variant_context, "D.variant_context");
    name(&domain->last_error, sizeof domain->last_error, "D.last_error");
    name(&domain.st, sizeof domain.st, "st");
    if (domain->obj_store != nullptr) name(domain->obj_store, 1, "store");
}

void Recorder::name(const void* address, std::size_t length, std::string name) {
    blocks_[reinterpret_cast<std::uintptr_t>(address)] = {std::max<std::size_t>(length, 1), std::move(name)};
}

const std::pair<const std::uintptr_t, Recorder::Block>* Recorder::block_of(const void* address) const {
    const auto place = reinterpret_cast<std::uintptr_t>(address);
    const auto behind = blocks_.upper_bound(place);
    if (behind == blocks_.begin() || place - std::prev(behind)->first >= std::prev(behind)->second.length)
        return nullptr;
    return &*std::prev(behind);
}

const void* Recorder::find(const std::string& name) const {
    for (const auto& [start, block] : blocks_)
        if (block.name == name) return reinterpret_cast<const void*>(start);
    for (const zur_type_info* copy : domain_.copies())
        if (name == std::string("copy of ") + copy->name) return copy;
    return nullptr;
}

std::string Recorder::name_of(const void* address) const {
    if (address == nullptr) return "null";
    if (const auto* block = block_of(address)) {
        const auto offset = reinterpret_cast<std::uintptr_t>(address) - block->first;
        return block->second.name + (offset != 0 ? "+" + std::to_string(offset) : "");
    }
    for (const TypeNumbers& t : all_types())
        if (const std::string name = name_in(t.info, address); !name.empty()) return name;
    for (const zur_type_info* copy : domain_.copies())
        if (const std::string name = name_in(copy, address); !name.empty()) return "copy of " + name;
    if (is_on_stack(address)) return "local";
    Dl_info info{};
    if (dladdr(address, &info) == 0) return "elsewhere";
    if (info.dli_sname == nullptr || info.dli_saddr != address)
        return std::strstr(info.dli_fname, "liborlan_epm") != nullptr ? "bundle" : "image";
    // A type of another library appears by its name.
    const std::string symbol = info.dli_sname;
    const auto end = symbol.find("_type_info_internal");
    return end == symbol.npos ? symbol : symbol.substr(1, end - 1);
}

std::string Recorder::show(const char* text) const {
    return text == nullptr || is_named(text) || is_on_stack(text) ? name_of(text) : '"' + std::string(text) + '"';
}

void Recorder::before_call(const char* function, const Arguments& arguments) {
    blocks_.erase(std::exchange(released_, 0));
    const bool is_trace = std::strncmp(function, "__QLf_", 6) == 0;
    text_ += std::string(is_trace ? "trace" : function) + "(" + arguments(*this) + ")\n";
}

void Recorder::allocated(void* block, std::size_t size, bool by_bundle) {
    if (released_ == reinterpret_cast<std::uintptr_t>(block)) released_ = 0;
    if (!by_bundle) return name(block, size, "foreign");
    if (block != nullptr) name(block, size, "#" + std::to_string(++allocations_));
    text_.insert(text_.size() - 1, " = " + name_of(block));
}

} // namespace epm::test
