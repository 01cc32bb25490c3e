// The operations that a receiver calls, found in the loaded library by the name of their type.
#pragma once

#include "stamp/names.hpp"
#include "tool/failure.hpp"

#include <zur/types.h>

#include <dlfcn.h>

#include <cstdint>
#include <string>

struct zur_xml_document;

namespace epm::tool {

/// The operations of a type. Function<Signature> is whatever calls one; `fetch` finds it by the operation's name.
template <template <class Signature> class Function>
struct OperationTable {
    Function<zur_instance*(zur_domain*, std::uint32_t)> create;
    Function<void(zur_domain*, std::uint32_t, zur_instance*)> destroy;
    Function<std::uint32_t(zur_domain*, std::uint32_t, const zur_instance*)> len;
    Function<std::uint32_t(zur_domain*, std::uint32_t, void*, const zur_instance*, std::int32_t, std::uint32_t*)>
        marshal;
    Function<std::uint32_t(zur_domain*, std::uint32_t, const void*, zur_instance*, std::int32_t, std::uint32_t,
                           std::uint32_t*)>
        unmarshal;
    Function<std::uint32_t(zur_domain*, std::uint32_t, char*, std::uint32_t, const char*, const zur_instance*,
                           std::uint32_t, std::uint32_t*)>
        print;
    Function<std::uint32_t(zur_domain*, std::uint32_t, const char*, char*, const zur_instance*, std::uint32_t,
                           std::uint32_t, std::uint32_t*)>
        to_xml;
    Function<void(zur_domain*, std::uint32_t, const char*, zur_xml_document*, zur_instance*, std::uint32_t*, char*,
                  std::uint32_t)>
        from_xml;
    Function<std::int32_t(const zur_instance*, const zur_instance*)> compare;
    Function<std::uint32_t(const zur_instance*, std::uint32_t)> hash;

    explicit OperationTable(auto fetch) {
        fetch(create, "create"), fetch(destroy, "destroy"), fetch(len, "len"), fetch(marshal, "marshal");
        fetch(unmarshal, "unmarshal"), fetch(print, "print"), fetch(to_xml, "to_xml"), fetch(from_xml, "from_xml");
        fetch(compare, "compare"), fetch(hash, "hash");
    }
};

template <class Signature>
using Pointer = Signature*;

struct Operations : OperationTable<Pointer> {
    /// Throws a Failure when the library lacks one.
    explicit Operations(const std::string& type)
        : OperationTable([&]<class F>(F& function, const char* operation) {
              const std::string name = stamp::operation_name(type, operation);
              function = reinterpret_cast<F>(dlsym(RTLD_DEFAULT, name.c_str()));
              if (function == nullptr) throw Failure{has_no_file, "the library exports no " + name};
          }) {}
};

/// Calls write(buffer, size, &st) with buffers that double until one is large enough, none larger than `most`. Returns
/// the status.
template <class Write>
std::uint32_t write_text(std::string& text, std::size_t first_size, std::size_t most, Write write) {
    std::uint32_t st = ZUR_BUFFER_TOO_SMALL;
    for (std::size_t room = first_size; st == ZUR_BUFFER_TOO_SMALL && room <= most; room *= 2) {
        st = 0;
        text.assign(room, '\0');
        text.resize(write(text.data(), static_cast<std::uint32_t>(room), &st));
    }
    return st;
}

} // namespace epm::tool
