// Finds the file of the loaded library, and joins each recorded trace with its text from there.
#include "traces.hpp"

#include <orlan_epm.h>
#include <platform/trace.h>

#include <cstdio>
#include <dlfcn.h>
#include <memory>

namespace exchange {

namespace {

std::unique_ptr<platform_trace_reader, decltype(&platform_trace_close)> reader(nullptr, &platform_trace_close);

void show(void* who, const platform_trace_record* record) {
    static constexpr const char* levels[] = {"fatal", "", "", "failure", "", "", "notice", "routine"};
    char sentence[512];
    if (platform_trace_join(reader.get(), record, sentence, sizeof sentence) != 0)
        std::fprintf(stderr, "%s: %s:%s\n", static_cast<const char*>(who), levels[record->level & 7], sentence);
}

} // namespace

bool open_traces(std::string& reason) {
    Dl_info library = {};
    char message[256] = "its file is not known";
    if (dladdr(reinterpret_cast<void*>(&orlan_epm_bundle_handler_register), &library) != 0)
        reader.reset(platform_trace_open(library.dli_fname, message, sizeof message));
    reason = message;
    return reader != nullptr;
}

void show_traces_as(const char* who) {
    if (reader != nullptr) platform_trace_set_sink(&show, const_cast<char*>(who));
}

} // namespace exchange
