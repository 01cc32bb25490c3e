// One imported operation as the tests define it: it notifies the observers, then calls the runtime's own.
#pragma once

#include "support/recorder.hpp"

#include <zur/foreign.h>

#include <dlfcn.h>

#include <algorithm>
#include <string_view>

namespace epm::test {

template <std::size_t N>
struct Symbol {
    char text[N];
    constexpr Symbol(const char (&name)[N]) { std::copy_n(name, N, text); }
};

/// The n-th call from now of this import is not forwarded: it leaves the code and returns the result, where it can.
struct FailingImport {
    std::string name;
    std::size_t call = 0;
    std::uint32_t code = 0;
    std::uint64_t result = 0;
};
inline FailingImport failing_import;

template <Symbol N, class Signature>
struct Import;

template <Symbol N, class Result, class... Parameters>
struct Import<N, Result(Parameters...)> {
    static Result forward(Parameters... arguments) {
        if (FailingImport& f = failing_import; f.call != 0 && f.name == N.text && --f.call == 0) {
            [[maybe_unused]] const auto leave = [&](auto argument) {
                if constexpr (std::is_same_v<decltype(argument), std::uint32_t*>)
                    if (argument != nullptr) *argument = f.code;
            };
            (leave(arguments), ...);
            if constexpr (!std::is_void_v<Result>)
                return Result(f.result);
            else
                return;
        }
        // The definition behind the test program's own.
        static auto* const next = reinterpret_cast<Result (*)(Parameters...)>(dlsym(RTLD_NEXT, N.text));
        return next(arguments...);
    }

    static Result call(Parameters... arguments) {
        if (observers.empty()) return forward(arguments...);
        const RuntimeCall made(N.text, [&](const Recorder& names) {
            if constexpr (std::string_view(N.text).starts_with("__QLf_"))
                return names.trace(arguments...);
            else
                return names.list(arguments...);
        });
        return forward(arguments...);
    }
};

/// Defines the symbol `name` in the test program: a jump to the operation above, with the arguments as they came.
#define EPM_WATCHED(name)                                                                                              \
    extern "C" {                                                                                                       \
    [[gnu::visibility("hidden"), gnu::used]] constinit decltype(&::name) watched_##name =                              \
        &::epm::test::Import<#name, decltype(::name)>::call;                                                           \
    }                                                                                                                  \
    EPM_JUMP(name)
#define EPM_JUMP(name)                                                                                                 \
    asm(".pushsection .text\n.globl " #name "\n.type " #name ", @function\n" #name ": jmp *watched_" #name             \
        "(%rip)\n.size " #name ", . - " #name "\n.popsection");

} // namespace epm::test
