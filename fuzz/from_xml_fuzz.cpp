// Reads an arbitrary document into every type, under the type's own name and under the name of its first element, and
// does with what has come out all that a receiver may do: shows it, writes it, reads that again, compares, hashes,
// destroys. The Domain's memory is bounded, so that growth by one element at a time stays cheap and refusals occur.
#include "catalogue/catalogue.hpp"
#include "catalogue/stamp/names.hpp"

#include <platform/domain.h>
#include <platform/xml.h>
#include <zur/types.h>

#include <dlfcn.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using Instance = zur_instance;

struct Type {
    const char* name;
    Instance* (*create)(zur_domain*, std::uint32_t);
    void (*destroy)(zur_domain*, std::uint32_t, Instance*);
    std::uint32_t (*print)(zur_domain*, std::uint32_t, char*, std::uint32_t, const char*, const Instance*,
                           std::uint32_t, std::uint32_t*);
    std::uint32_t (*to_xml)(zur_domain*, std::uint32_t, const char*, char*, const Instance*, std::uint32_t,
                            std::uint32_t, std::uint32_t*);
    void (*from_xml)(zur_domain*, std::uint32_t, const char*, zur_xml_document*, Instance*, std::uint32_t*, char*,
                     std::uint32_t);
    std::int32_t (*compare)(const Instance*, const Instance*);
    std::uint32_t (*hash)(const Instance*, std::uint32_t);
};

void require(bool holds, const char* what, const char* type) {
    if (holds) return;
    std::fprintf(stderr, "%s: %s\n", type, what);
    std::abort();
}

template <class Function>
void fetch(Function& function, const char* type, const char* operation) {
    const std::string name = epm::stamp::operation_name(std::string(type), operation);
    function = reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, name.c_str()));
    require(function != nullptr, operation, type);
}

const std::vector<Type>& types() {
    static const std::vector<Type> all = [] {
        std::vector<Type> list;
        const auto add = [&](const char* name) {
            Type t{};
            t.name = name;
            fetch(t.create, name, "create");
            fetch(t.destroy, name, "destroy");
            fetch(t.print, name, "print");
            fetch(t.to_xml, name, "to_xml");
            fetch(t.from_xml, name, "from_xml");
            fetch(t.compare, name, "compare");
            fetch(t.hash, name, "hash");
            list.push_back(t);
        };
        for (const auto* r : epm::catalogue::all_records) add(r->name);
        for (const auto* e : epm::catalogue::all_enums) add(e->name);
        return list;
    }();
    return all;
}

constexpr std::size_t memory_for_all = 1 << 18;
std::size_t budget;
std::size_t blocks;

void* allocate(void*, std::uint32_t, std::size_t size) {
    if (size > budget) return nullptr;
    budget -= size;
    ++blocks;
    return std::malloc(size);
}

void release(void*, std::uint32_t, void* block) {
    if (block != nullptr) --blocks;
    std::free(block);
}

zur_domain* domain(std::uint32_t tracking) {
    platform_domain_options options{};
    options.tracking = tracking;
    options.obj_alloc_fn = allocate;
    options.obj_free_fn = release;
    return platform_domain_create(&options);
}

/// The text of a record goes into a buffer that may be too small; its length is then within it.
template <class Write>
std::string written(const char* type, std::size_t size, Write write) {
    std::vector<char> buffer(size);
    std::uint32_t st = 0;
    const std::uint32_t length = write(buffer.data(), static_cast<std::uint32_t>(size), &st);
    require(length <= size && (st == 0 || st == ZUR_BUFFER_TOO_SMALL), "length or status of a text", type);
    return st == 0 ? std::string(buffer.data(), length) : std::string();
}

void read_into(const Type& t, zur_domain* D, zur_xml_document* document, const char* path, std::size_t size) {
    budget = memory_for_all;
    Instance* x = t.create(D, ZUR_NO_SET);
    std::uint32_t st = 0;
    char message[64];
    t.from_xml(D, ZUR_NO_SET, path, document, x, &st, message, sizeof message);
    t.hash(x, 1);
    written(t.name, size, [&](char* buffer, std::uint32_t room, std::uint32_t* status) {
        return t.print(D, ZUR_NO_SET, buffer, 0, t.name, x, room, status);
    });
    const std::string xml = written(t.name, size, [&](char* buffer, std::uint32_t room, std::uint32_t* status) {
        return t.to_xml(D, ZUR_NO_SET, t.name, buffer, x, room, 0, status);
    });
    zur_xml_document* again = xml.empty() ? nullptr : platform_xml_parse(xml.data(), xml.size(), nullptr, nullptr, 0);
    if (again != nullptr) {
        budget = memory_for_all;
        Instance* y = t.create(D, ZUR_NO_SET);
        std::uint32_t second = 0;
        t.from_xml(D, ZUR_NO_SET, t.name, again, y, &second, message, sizeof message);
        if (second == 0 && st == 0) require(t.compare(x, y) == 0, "what was written reads back otherwise", t.name);
        t.destroy(D, ZUR_NO_SET, y);
        platform_xml_free(again);
    }
    t.destroy(D, ZUR_NO_SET, x);
    require(blocks == 0, "memory is lost", t.name);
}

std::string first_element(const std::string& text) {
    const std::size_t start = text.find('<');
    if (start == text.npos) return "x";
    return text.substr(start + 1, text.find_first_of(" />\t\n", start + 1) - start - 1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static zur_domain* const domains[] = {domain(PLATFORM_NO_HANDLE), domain(ZUR_TRACKED_MODE)};
    const std::string text(reinterpret_cast<const char*>(data), size);
    zur_xml_document* document = platform_xml_parse(text.data(), text.size(), nullptr, nullptr, 0);
    if (document == nullptr) return 0;
    const std::string root = first_element(text);
    for (const Type& t : types()) {
        zur_domain* D = domains[size % 2];
        read_into(t, D, document, t.name, 20000);
        read_into(t, D, document, root.c_str(), size);
    }
    platform_xml_free(document);
    return 0;
}
