// The traces of a test as sentences, read back from the library file:
//     Traces traces;
//     ...
//     EXPECT_EQ(traces.take(), "3 \" varinfo is NULL\"\n");
// expect_death_with() runs a body that must end the process, with this trace at level 0 as its last.
#pragma once

#include "support/names.hpp"

#include <platform/trace.h>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <utility>

namespace epm::test {

class Traces {
public:
    Traces() { platform_trace_set_sink(receive, this); }
    ~Traces() { platform_trace_set_sink(nullptr, nullptr); }
    Traces(const Traces&) = delete;
    Traces& operator=(const Traces&) = delete;

    /// One line a trace since the last call: its level and its text in quotes.
    std::string take() { return std::exchange(text_, {}); }

    static std::string text_of(const platform_trace_record& record) {
        static platform_trace_reader* const reader = platform_trace_open(EPM_LIBRARY_FILE, nullptr, 0);
        char text[400] = "not of this catalogue";
        if (reader != nullptr) platform_trace_join(reader, &record, text, sizeof text);
        return std::to_string(record.level) + " \"" + text + "\"";
    }

private:
    static void receive(void* context, const platform_trace_record* record) {
        static_cast<Traces*>(context)->text_ += text_of(*record) + "\n";
    }

    std::string text_;
};

/// A body that must end in abort(), having traced this text at level 0 just before.
template <class Body>
void expect_death_with(const std::string& text, Body body) {
    EXPECT_EXIT(
        {
            platform_trace_set_sink(
                [](void*, const platform_trace_record* r) {
                    std::fprintf(stderr, "%s\n", Traces::text_of(*r).c_str());
                },
                nullptr);
            body();
        },
        testing::KilledBySignal(SIGABRT), "0 \"" + text + "\"\n$");
}

} // namespace epm::test
