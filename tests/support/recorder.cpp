// How calls, addresses and traces are written down.
#include "support/recorder.hpp"

#include "support/domains.hpp"
#include "support/heap.hpp"
#include "support/library.hpp"
#include "support/traces.hpp"

#include <pthread.h>

#include <cstring>

namespace epm::test {

namespace {

bool is_on_stack(const void* address) {
    static thread_local const auto bounds = [] {
        pthread_attr_t attributes;
        void* low = nullptr;
        std::size_t size = 0;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstack(&attributes, &low, &size);
        pthread_attr_destroy(&attributes);
        return std::pair(reinterpret_cast<std::uintptr_t>(low), size);
    }();
    return reinterpret_cast<std::uintptr_t>(address) - bounds.first < bounds.second;
}

std::string quoted(const std::string& text) {
    return '"' + text + '"';
}

/// A symbol as a test names it: a TypeInfo by its type.
std::string plain_symbol(const std::string& symbol) {
    const std::string ending = "_type_info_internal";
    if (symbol.starts_with("_") && symbol.ends_with(ending)) return symbol.substr(1, symbol.size() - 1 - ending.size());
    return symbol;
}

const std::vector<const zur_type_info*>& own_types() {
    static const std::vector<const zur_type_info*> all = [] {
        std::vector<const zur_type_info*> list;
        for (const Record* r : catalogue::all_records) list.push_back(type_info_of(*r));
        for (const Enum* e : catalogue::all_enums) list.push_back(type_info_of(*e));
        return list;
    }();
    return all;
}

/// A counter of one of the type's variants; empty for any other address.
std::string counter(const zur_type_info* type, const void* address) {
    for (int v = -1; type != nullptr && v < type->variant_table->count; ++v) { // -1: a peer does not know the type
        const zur_variant_record& record = type->variant_table->records[v];
        if (address != &record.created && address != &record.destroyed) continue;
        return std::string(type->name) + "[" + std::to_string(v) + "]" +
               (address == &record.created ? ".created" : ".destroyed");
    }
    return {};
}

} // namespace

Names::Names(TestDomain& domain) : domain_(domain), set_id_(domain.set_id()) {
    const zur_domain* D = domain;
    add(&D->variant_context, sizeof D->variant_context, "D.variant_context");
    add(&D->last_error, sizeof D->last_error, "D.last_error");
    add(&domain.st, sizeof domain.st, "st");
    if (D->obj_store != nullptr) add(D->obj_store, 1, "store");
}

void Names::add(const void* address, std::size_t length, std::string name) {
    blocks_[reinterpret_cast<std::uintptr_t>(address)] = {std::max<std::size_t>(length, 1), std::move(name)};
}

void Names::remove(const void* address) {
    blocks_.erase(reinterpret_cast<std::uintptr_t>(address));
}

void Names::add_copy(const zur_type_info* copy) {
    copies_.push_back(copy);
    add(copy, sizeof *copy, std::string("copy of ") + copy->name);
}

bool Names::is_named(const void* address) const {
    const auto place = reinterpret_cast<std::uintptr_t>(address);
    const auto behind = blocks_.upper_bound(place);
    return behind != blocks_.begin() && place - std::prev(behind)->first < std::prev(behind)->second.length;
}

void* Names::find(const std::string& name) const {
    const auto found = std::ranges::find_if(blocks_, [&](const auto& b) { return b.second.name == name; });
    return found == blocks_.end() ? nullptr : reinterpret_cast<void*>(found->first);
}

std::string Names::of(const void* address) const {
    if (address == nullptr) return "null";
    if (is_named(address)) {
        const auto place = reinterpret_cast<std::uintptr_t>(address);
        const auto& [start, block] = *std::prev(blocks_.upper_bound(place));
        return place == start ? block.name : block.name + "+" + std::to_string(place - start);
    }
    for (const zur_type_info* type : own_types())
        if (const std::string name = counter(type, address); !name.empty()) return name;
    for (const zur_type_info* copy : copies_)
        if (const std::string name = counter(copy, address); !name.empty()) return "copy of " + name;
    if (is_on_stack(address)) return "local";
    static std::map<const void*, std::string> symbols;
    if (const auto known = symbols.find(address); known != symbols.end()) return known->second;
    Dl_info info{};
    if (dladdr(address, &info) == 0) return "elsewhere";
    const bool is_bundle = std::string_view(info.dli_fname).find("liborlan_epm") != std::string_view::npos;
    return symbols[address] = info.dli_sname != nullptr && info.dli_saddr == address ? plain_symbol(info.dli_sname)
                              : is_bundle                                            ? "bundle"
                                                                                     : "image";
}

std::string Names::number(std::uint32_t n) const {
    return n == set_id_ ? "S" : n == ZUR_NO_SET ? "no_set" : std::to_string(n);
}

std::string Names::show(const char* text) const {
    return text == nullptr || is_named(text) || is_on_stack(text) ? of(text) : quoted(text);
}

std::string trace_text(const void* digest, std::uint32_t index, std::uint32_t level,
                       std::initializer_list<TraceArgument> arguments) {
    platform_trace_record record{};
    std::memcpy(record.digest, digest, sizeof record.digest);
    record.index = index;
    record.level = level >> 24;
    for (const TraceArgument& a : arguments) {
        platform_trace_argument& to = record.arguments[record.argument_count++];
        to.number = a.number;
        to.is_text = a.text != nullptr;
        if (a.text != nullptr) std::strncpy(to.text, a.text, sizeof to.text - 1);
    }
    return Traces::text_of(record);
}

Recorder::Recorder(TestDomain& domain) : names_(domain) {
    for (const zur_type_info* copy : domain.copies()) names_.add_copy(copy);
    for (const auto& [block, about] : heap().blocks())
        names_.add(block, about.size, "older" + std::to_string(about.number));
}

std::string Recorder::take() {
    return std::exchange(text_, {});
}

void Recorder::before_call(const char* function, const Arguments& arguments) {
    if (released_ != nullptr) names_.remove(std::exchange(released_, nullptr));
    if (left_out_.contains(function)) return;
    const bool is_trace = std::strncmp(function, "__QLf_", 6) == 0;
    text_ += std::string(is_trace ? "trace" : function) + "(" + arguments(names_) + ")\n";
}

void Recorder::allocated(void* block, std::size_t size, bool by_bundle) {
    if (released_ == block) released_ = nullptr;
    if (!by_bundle) return names_.add(block, size, "foreign");
    const std::string name = block == nullptr ? "null" : "#" + std::to_string(++allocations_);
    if (block != nullptr) names_.add(block, size, name);
    if (!left_out_.contains("obj_alloc")) text_.insert(text_.size() - 1, " = " + name);
}

// The name lives until the next call: the release itself is written down with it.
void Recorder::releasing(void* block) {
    if (released_ != nullptr) names_.remove(released_);
    released_ = block;
}

std::string lines(const std::string& text) {
    std::string result;
    for (std::size_t start = 0, end = 0; start < text.size(); start = end + 1) {
        for (end = start; end < text.size() && text[end] != '\n' && text.compare(end, 2, "; ") != 0;) ++end;
        const std::size_t first = std::min(text.find_first_not_of(' ', start), end);
        if (first != end) result += text.substr(first, end - first) + "\n";
    }
    return result;
}

} // namespace epm::test
