// The traces of a test as sentences, read back from the library file:
//     Traces traces;
//     ...
//     EXPECT_EQ(traces.take(), "3 \" varinfo is NULL\"\n");
#pragma once

#include <platform/trace.h>

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace epm::test {

class Traces {
public:
    Traces() { platform_trace_set_sink(receive, this); }
    ~Traces() { platform_trace_set_sink(nullptr, nullptr); }
    Traces& operator=(Traces&&) = delete; // nor is it copied

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

} // namespace epm::test
