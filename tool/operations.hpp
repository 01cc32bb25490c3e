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

/// Throws a Failure when the library lacks one.
struct Operations {
    zur_instance* (*create)(zur_domain*, std::uint32_t);
    void (*destroy)(zur_domain*, std::uint32_t, zur_instance*);
    std::uint32_t (*len)(zur_domain*, std::uint32_t, const zur_instance*);
    std::uint32_t (*marshal)(zur_domain*, std::uint32_t, void*, const zur_instance*, std::int32_t, std::uint32_t*);
    std::uint32_t (*unmarshal)(zur_domain*, std::uint32_t, const void*, zur_instance*, std::int32_t, std::uint32_t,
                               std::uint32_t*);
    std::uint32_t (*print)(zur_domain*, std::uint32_t, char*, std::uint32_t, const char*, const zur_instance*,
                           std::uint32_t, std::uint32_t*);
    std::uint32_t (*to_xml)(zur_domain*, std::uint32_t, const char*, char*, const zur_instance*, std::uint32_t,
                            std::uint32_t, std::uint32_t*);
    void (*from_xml)(zur_domain*, std::uint32_t, const char*, zur_xml_document*, zur_instance*, std::uint32_t*, char*,
                     std::uint32_t);

    std::int32_t (*compare)(const zur_instance*, const zur_instance*);
    std::uint32_t (*hash)(const zur_instance*, std::uint32_t);

    explicit Operations(const std::string& type) {
        const auto fetch = [&]<class Function>(Function& function, const char* operation) {
            const std::string name = stamp::operation_name(type, operation);
            function = reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, name.c_str()));
            if (function == nullptr) throw Failure{has_no_file, "the library exports no " + name};
        };
        fetch(create, "create"), fetch(destroy, "destroy"), fetch(len, "len"), fetch(marshal, "marshal");
        fetch(unmarshal, "unmarshal"), fetch(print, "print"), fetch(to_xml, "to_xml"), fetch(from_xml, "from_xml");
        fetch(compare, "compare"), fetch(hash, "hash");
    }
};

} // namespace epm::tool
