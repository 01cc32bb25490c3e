// The calls that the Bundle makes of its runtime, in order and with their arguments, one line each:
//     Recorder recorder(domain);
//     recorder.name(acl, 96, "acl");
//     set_value(D, S, acl, 7, &domain.st);
//     EXPECT_EQ(recorder.take(), "zur_clear_last_error()\nzurlib_adjust_variant(S, acl, orlan_ial_svm_acl_data, 2,
//     st)\n");
// Hooks appear as obj_alloc, obj_free, write_range, counter_range, type_alloc, type_insert, type_lookup, without the
// context that they are given. Traces appear as trace(level " text"). Calls that the runtime itself makes do not
// appear.
// Addresses and numbers read as a reader of a test knows them: `acl+44`, `S`, `orlan_ial_svm_acl_data[2].created`,
// `#1` for the first block that the Bundle has allocated. Local variables of the Bundle read `local`, a store's copy of
// a TypeInfo `copy of orlan_ial_svm_acl_data`.
#pragma once

#include "support/domains.hpp"
#include "support/observation.hpp"

#include <platform/trace.h>

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <type_traits>

namespace epm::test {

/// The traces of a test as sentences, read back from the library file.
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

class Recorder : public Observer {
public:
    /// The Domain is left out of argument lists; its set_id reads S, its status word st.
    explicit Recorder(TestDomain& domain);

    /// The lines since the last call of this, each with a line feed.
    std::string take() { return std::exchange(text_, {}); }

    void name(const void* address, std::size_t length, std::string name);
    std::string name_of(const void* address) const;
    /// Where the block of that name starts; null where nothing has it.
    const void* find(const std::string& name) const;

    /// Arguments with commas between them; those that are nothing to read are left out.
    template <class... A>
    std::string list(A... arguments) const {
        std::string text;
        [[maybe_unused]] const auto append = [&](const std::string& argument) {
            if (argument.empty()) return;
            text += (text.empty() ? "" : ", ") + argument;
        };
        (append(show(arguments)), ...);
        return text;
    }
    /// A trace call: its level, its text from the library file, its arguments in place.
    template <class... A>
    std::string trace(const void* digest, std::uint32_t index, std::uint32_t /*module*/, std::uint32_t level,
                      A... arguments) const {
        platform_trace_record record{};
        std::memcpy(record.digest, digest, sizeof record.digest);
        record.index = index;
        record.level = level >> 24;
        [[maybe_unused]] const auto append = [&](auto argument) {
            platform_trace_argument& to = record.arguments[record.argument_count++];
            if constexpr (std::is_pointer_v<decltype(argument)>) {
                to.is_text = 1;
                std::strncpy(to.text, argument, sizeof to.text - 1);
            } else {
                to.number = argument;
            }
        };
        (append(arguments), ...);
        return Traces::text_of(record);
    }

    std::string show(const zur_domain* D) const { return D == domain_ ? "" : D == nullptr ? "null" : "other domain"; }
    std::string show(zur_domain* D) const { return show(static_cast<const zur_domain*>(D)); }
    std::string show(const char* text) const;
    template <class T>
    std::string show(T argument) const {
        if constexpr (std::is_same_v<T, std::uint32_t>)
            return argument == domain_.set_id() ? "S" : argument == ZUR_NO_SET ? "no_set" : std::to_string(argument);
        else if constexpr (std::is_integral_v<T>)
            return std::to_string(argument);
        else if constexpr (std::is_function_v<std::remove_pointer_t<T>>)
            return name_of(reinterpret_cast<const void*>(argument));
        else if constexpr (requires { std::to_string(*argument); } && std::is_const_v<std::remove_pointer_t<T>>)
            // What counts is the number, unless its address means something.
            return argument == nullptr || is_named(argument) ? name_of(argument)
                                                             : "{" + std::to_string(*argument) + "}";
        else
            return name_of(argument);
    }

    void before_call(const char* function, const Arguments& arguments) override;
    void allocated(void* block, std::size_t size, bool by_bundle) override;
    void releasing(void* block) override {
        blocks_.erase(std::exchange(released_, reinterpret_cast<std::uintptr_t>(block)));
    }

private:
    struct Block {
        std::size_t length;
        std::string name;
    };

    const std::pair<const std::uintptr_t, Block>* block_of(const void* address) const;
    bool is_named(const void* address) const { return block_of(address) != nullptr; }

    TestDomain& domain_;
    std::map<std::uintptr_t, Block> blocks_;
    std::string text_;
    std::size_t allocations_ = 0;
    std::uintptr_t released_ = 0; ///< the name lives until the next call: the release itself is written down with it
};

} // namespace epm::test
