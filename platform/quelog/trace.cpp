// The trace facility in the traced process: modules and their ids, and trace calls turned into records for a sink.
#include "../common/contract.hpp"

#include <atomic>
#include <cstring>
#include <deque>
#include <mutex>
#include <string>

namespace {

std::mutex sink_lock;
std::atomic<platform_trace_sink> current_sink;
void* sink_context;
thread_local bool in_sink;

std::mutex module_lock;
std::deque<std::string> modules; // the id is the position plus one; a deque never moves the names

platform_trace_argument as_argument(uint64_t number) {
    platform_trace_argument argument{};
    argument.number = number;
    return argument;
}

platform_trace_argument as_argument(const char* text) {
    platform_trace_argument argument{};
    argument.is_text = 1;
    if (text != nullptr) std::strncpy(argument.text, text, sizeof argument.text - 1);
    return argument;
}

template <class... Arguments>
void trace(const void* digest, uint32_t index, uint32_t module, uint32_t level, Arguments... arguments) {
    if (current_sink.load(std::memory_order_relaxed) == nullptr || in_sink) return;
    platform_trace_record record{};
    if (digest != nullptr) std::memcpy(record.digest, digest, sizeof record.digest);
    record.index = index;
    record.module = module;
    record.level = level >> 24;
    record.argument_count = sizeof...(arguments);
    [[maybe_unused]] platform_trace_argument* next = record.arguments;
    ((*next++ = as_argument(arguments)), ...);

    const std::lock_guard guard(sink_lock);
    if (const platform_trace_sink sink = current_sink.load(std::memory_order_relaxed)) {
        in_sink = true;
        sink(sink_context, &record);
        in_sink = false;
    }
}

[[gnu::noinline]] int add_module(const char* name, uint16_t* module_id, uint32_t* state) {
    const std::lock_guard guard(module_lock);
    std::size_t position = 0;
    while (position < modules.size() && modules[position] != name) ++position;
    if (position == UINT16_MAX) return ZUR_NO_MEMORY;
    if (position == modules.size())
        if (const uint32_t code = platform::guarded([&] { modules.emplace_back(name); })) return static_cast<int>(code);
    __atomic_store_n(module_id, static_cast<uint16_t>(position + 1), __ATOMIC_RELAXED);
    __atomic_store_n(state, 1, __ATOMIC_RELEASE);
    return 0;
}

} // namespace

void platform_trace_set_sink(platform_trace_sink sink, void* context) {
    const std::lock_guard guard(sink_lock);
    sink_context = context;
    current_sink = sink;
}

const char* platform_trace_module_name(uint32_t module) {
    const std::lock_guard guard(module_lock);
    return module != 0 && module <= modules.size() ? modules[module - 1].c_str() : nullptr;
}

// A Bundle calls this on every creation, from any thread. Once the state word is set, it costs one load.
int quelog_module_init_fn(const char* name, uint16_t* module_id, uint32_t* state) {
    if (name == nullptr || module_id == nullptr || state == nullptr) return ZUR_BAD_ARGUMENT;
    if (__atomic_load_n(state, __ATOMIC_ACQUIRE) != 0) return 0;
    return add_module(name, module_id, state);
}

void __QLf_0(const void* digest, uint32_t index, uint32_t module, uint32_t level) {
    trace(digest, index, module, level);
}

void __QLf_1(const void* digest, uint32_t index, uint32_t module, uint32_t level, const char* text) {
    trace(digest, index, module, level, text);
}

void __QLf_4(const void* digest, uint32_t index, uint32_t module, uint32_t level, uint32_t a) {
    trace(digest, index, module, level, a);
}

void __QLf_44(const void* digest, uint32_t index, uint32_t module, uint32_t level, uint32_t a, uint32_t b) {
    trace(digest, index, module, level, a, b);
}

void __QLf_444(const void* digest, uint32_t index, uint32_t module, uint32_t level, uint32_t a, uint32_t b,
               uint32_t c) {
    trace(digest, index, module, level, a, b, c);
}

void __QLf_51(const void* digest, uint32_t index, uint32_t module, uint32_t level, uint64_t a, const char* text) {
    trace(digest, index, module, level, a, text);
}
