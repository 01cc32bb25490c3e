// Addresses and numbers as a reader of a test knows them: `acl+44`, `S`, `orlan_ial_svm_acl_data[2].created`,
// `#1` for the first block that the Bundle has allocated, `older3` for one that was there before. Local variables of
// the Bundle read `local`, a store's copy of a TypeInfo `copy of orlan_ial_svm_acl_data`.
#pragma once

#include <zur/foreign.h>

#include <cstdint>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

namespace epm::test {

class TestDomain;

class Names {
public:
    /// The Domain is left out of argument lists; its set_id reads S, its status word st.
    explicit Names(TestDomain& domain);

    void add(const void* address, std::size_t length, std::string name);
    void remove(const void* address);
    /// A TypeInfo in a store, whose counters are found when they are asked for.
    void add_copy(const zur_type_info* copy);

    std::string of(const void* address) const;
    /// Where the block of that name starts; null where nothing has it.
    void* find(const std::string& name) const;
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
                      A... arguments) const;

    std::string show(const zur_domain* D) const { return D == domain_ ? "" : D == nullptr ? "null" : "other domain"; }
    std::string show(zur_domain* D) const { return show(static_cast<const zur_domain*>(D)); }
    std::string show(const char* text) const;
    std::string show(const std::int8_t* number) const { return pointed(number); }
    std::string show(const std::uint8_t* number) const { return pointed(number); }
    std::string show(const std::uint32_t* number) const { return pointed(number); }
    template <class T>
    std::string show(T argument) const {
        if constexpr (std::is_same_v<T, std::uint32_t>)
            return number(argument);
        else if constexpr (std::is_integral_v<T>)
            return std::to_string(argument);
        else if constexpr (std::is_function_v<std::remove_pointer_t<T>>)
            return of(reinterpret_cast<const void*>(argument));
        else
            return of(argument);
    }

private:
    struct Block {
        std::size_t length;
        std::string name;
    };

    std::string number(std::uint32_t n) const;
    /// A number that is handed over by address: what counts is the number, unless the address means something.
    template <class T>
    std::string pointed(const T* address) const {
        return address == nullptr || is_named(address) ? of(address) : "{" + std::to_string(*address) + "}";
    }
    bool is_named(const void* address) const;

    const zur_domain* domain_;
    std::uint32_t set_id_;
    std::map<std::uintptr_t, Block> blocks_;
    std::vector<const zur_type_info*> copies_;
};

/// The text of a trace with its arguments in place, and its level in front: `3 " error in x create: ..."`.
struct TraceArgument {
    std::uint64_t number;
    const char* text;
};
std::string trace_text(const void* digest, std::uint32_t index, std::uint32_t level,
                       std::initializer_list<TraceArgument> arguments);

template <class... A>
std::string Names::trace(const void* digest, std::uint32_t index, std::uint32_t, std::uint32_t level,
                         A... arguments) const {
    [[maybe_unused]] const auto as_argument = [](auto a) {
        if constexpr (std::is_pointer_v<decltype(a)>)
            return TraceArgument{0, a};
        else
            return TraceArgument{a, nullptr};
    };
    return trace_text(digest, index, level, {as_argument(arguments)...});
}

} // namespace epm::test
