// The second maker of texts. A value is found at its place in memory and spelled by the runtime itself; what lies in
// lists and behind unions, and the state flags, come through the exported getters.
#include "support/text.hpp"

#include "support/calls.hpp"
#include "support/imports.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

namespace epm::test {

namespace {

using Set = std::uint32_t;
using Status = std::uint32_t;

const unsigned char* place_of(const Record& r, const Instance* x, std::size_t i) {
    return reinterpret_cast<const unsigned char*>(x) + catalogue::detail::lay_out(r).offset[i];
}

template <class T>
T load(const void* from) {
    T value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

std::uint32_t length_of(const Record& r, const Field& f, const Instance* x) {
    const std::size_t companion = r.index_of(f.companion);
    const unsigned char* place = place_of(r, x, companion);
    return r.fields[companion].foreign->length == 2 ? load<std::uint16_t>(place) : load<std::uint32_t>(place);
}

/// What the runtime writes for a value. The Bundle has no part in this.
template <class... A>
std::string of_runtime(TestDomain& D, const std::string& operation, A... arguments) {
    using Write = std::uint32_t(zur_domain*, Set, A..., Status*);
    Status st = 0;
    reinterpret_cast<Write*>(following(operation.c_str()))(D, D.set_id(), arguments..., &st);
    EXPECT_EQ(st, 0u) << operation;
    char* text = std::get<char*>(std::tuple(arguments...));
    return text;
}

/// The characters of a text or a fixed run, and how many there may be.
std::pair<const char*, std::uint32_t> characters_of(const Record& r, const Field& f, const Instance* x,
                                                    const unsigned char* place) {
    if (f.kind == Kind::characters) return {reinterpret_cast<const char*>(place), f.capacity};
    const char* characters = load<const char*>(place);
    return {characters != nullptr ? characters : "", length_of(r, f, x)};
}

std::uint32_t value_of(const void* enumeration) {
    return load<std::uint32_t>(static_cast<const char*>(enumeration) + 12);
}

/// Elements of an array or run, in place.
std::vector<const unsigned char*> elements_of(const Record& r, std::size_t i, const Instance* x) {
    const Field& f = r.fields[i];
    const std::size_t length =
        f.is_of_record() ? catalogue::detail::lay_out(*f.record).size(*f.record) : std::size_t{f.foreign->length};
    const unsigned char* place = place_of(r, x, i);
    std::vector<const unsigned char*> elements(f.kind == Kind::run ? f.capacity : length_of(r, f, x));
    const auto* first = f.kind == Kind::run ? place : load<const unsigned char*>(place);
    for (std::size_t n = 0; n < elements.size(); ++n) elements[n] = first + n * length;
    return elements;
}

std::vector<Instance*> list_of(const Record& r, const Field& f, TestDomain& D, Instance* x) {
    std::vector<Instance*> elements;
    for (auto* e = call<Instance*>(D, r, f, "get_first", x); e != nullptr;
         e = call<Instance*>(D, r, f, "get_next", x, e))
        elements.push_back(e);
    return elements;
}

/// The arm that a union's tag selects; null when there is none in the Instance's variant, or when its slot is empty.
Instance* arm_of(const Record& r, const Field& f, const Instance* x, std::size_t i) {
    return value_of(place_of(r, x, 0)) == f.tag ? load<Instance*>(place_of(r, x, i)) : nullptr;
}

Instance* instance(const unsigned char* place) {
    return reinterpret_cast<Instance*>(const_cast<unsigned char*>(place));
}

/// Lines under way. Where a line ends by the runtime's formatter or by a value's line, a terminator stands behind it.
class Printer {
public:
    explicit Printer(TestDomain& D) : D_(D) {}

    void record(const Record& r, Instance* x, std::uint32_t indent, const std::string& name) {
        text += std::string(indent, ' ') + name + "@" + r.name + ": {\n";
        for (std::size_t i = 0; i < r.count; ++i) {
            if (x->variant < r.fields[i].since) return;
            field(r, i, x, indent + 2);
        }
        if (indent != 0) text += '\0' + std::string(indent - 1, GuardedBuffer::filler);
        text += "}\n";
    }

    std::string text;

private:
    void line(std::uint32_t indent, const std::string& name, const std::string& type, const std::string& value) {
        text += std::string(indent, ' ') + name + "@" + type + ":" + value;
    }
    void number(const Field& f, const void* place, std::uint32_t indent, const std::string& name) {
        text += of_runtime(D_, std::string(f.foreign->name) + "_print", &buffer_[0], indent, name.c_str(), place,
                           std::uint32_t{sizeof buffer_});
    }
    void field(const Record& r, std::size_t i, Instance* x, std::uint32_t indent) {
        const Field& f = r.fields[i];
        const unsigned char* place = place_of(r, x, i);
        if (f.kind == Kind::text || f.kind == Kind::characters) {
            const auto [characters, length] = characters_of(r, f, x, place);
            text += of_runtime(D_, f.kind == Kind::text ? "var_string_print" : "null_string_print", &buffer_[0], indent,
                               f.name, characters, std::uint32_t{sizeof buffer_}, length);
        } else if (f.kind == Kind::array || f.kind == Kind::run) {
            std::size_t n = 0;
            for (const unsigned char* element : elements_of(r, i, x)) {
                const std::string name = std::string(f.name) + "[" + std::to_string(n++) + "]";
                if (f.is_of_record())
                    record(*f.record, instance(element), indent, name);
                else
                    number(f, element, indent, name);
            }
        } else if (f.kind == Kind::list) {
            const std::vector<Instance*> elements = list_of(r, f, D_, x);
            line(indent, "list " + std::string(f.name) + " count", "u_int32", std::to_string(elements.size()) + "\n");
            for (Instance* e : elements) record(*f.record, e, indent, "list " + std::string(f.name));
        } else if (f.kind == Kind::arm) {
            if (Instance* arm = arm_of(r, f, x, i)) record(*f.record, arm, indent, "epm_type." + std::string(f.name));
        } else if (f.kind == Kind::embedded) {
            record(*f.record, instance(place), indent, f.name);
        } else if (f.is_own_enum()) {
            const std::uint32_t v = value_of(place);
            line(indent, f.name, f.enumeration->name,
                 v < f.enumeration->count ? f.enumeration->enumerators[v].name + std::string("\n")
                                          : "Enum value out of range");
        } else {
            number(f, place, indent, f.name);
        }
    }

    TestDomain& D_;
    char buffer_[2000];
};

class XmlWriter {
public:
    explicit XmlWriter(TestDomain& D) : D_(D) {}

    void record(const Record& r, Instance* x, const std::string& name, unsigned flag) {
        open(name, flag);
        for (std::size_t i = 0; i < r.count; ++i)
            if (x->variant >= r.fields[i].since) field(r, i, x);
        text += "</" + name + ">";
    }

    std::string text;

private:
    void open(const std::string& name, unsigned flag) {
        text += "<" + name + (flag != 0 ? " flag=\"" + std::to_string(flag) + "\"" : "") + ">";
    }
    void element(const std::string& name, unsigned flag, const std::string& content) {
        open(name, flag);
        text += content + "</" + name + ">";
    }
    void value(const Field& f, const void* place, std::uint8_t flag) {
        text += of_runtime(D_, std::string(f.foreign->name) + "_to_xml", static_cast<const char*>(f.name), &buffer_[0],
                           place, std::uint32_t{sizeof buffer_}, flag);
    }
    template <class... Index>
    std::uint8_t flag_of(const Record& r, const Field& f, Instance* x, Index... index) {
        if (!D_.mode().is_tracking() || !f.is_tracked()) return 0;
        const std::uint8_t flag = call<std::uint8_t>(D_, r, f, "state_flag_get", x, index...);
        D_.st = 0;
        return flag;
    }
    void field(const Record& r, std::size_t i, Instance* x) {
        const Field& f = r.fields[i];
        const unsigned char* place = place_of(r, x, i);
        if (f.kind == Kind::text || f.kind == Kind::characters) {
            const auto [characters, length] = characters_of(r, f, x, place);
            text += of_runtime(D_, f.kind == Kind::text ? "var_string_to_xml" : "null_string_to_xml", f.name,
                               &buffer_[0], characters, std::uint32_t{sizeof buffer_}, length, flag_of(r, f, x));
        } else if (f.kind == Kind::array || f.kind == Kind::run) {
            std::uint32_t n = 0;
            for (const unsigned char* e : elements_of(r, i, x)) {
                const std::uint8_t flag = flag_of(r, f, x, n++);
                if (f.is_of_record())
                    record(*f.record, instance(e), f.name, flag);
                else
                    value(f, e, flag);
            }
        } else if (f.kind == Kind::list) {
            for (Instance* e : list_of(r, f, D_, x)) record(*f.record, e, f.name, flag_of(r, f, x));
        } else if (f.kind == Kind::arm) {
            if (Instance* arm = arm_of(r, f, x, i))
                record(*f.record, arm, "epm_type-" + std::string(f.name), flag_of(r, f, x));
        } else if (f.kind == Kind::embedded) {
            record(*f.record, instance(place), f.name, flag_of(r, f, x));
        } else if (f.is_own_enum()) {
            const std::uint32_t v = value_of(place);
            element(f.name, 0,
                    v < f.enumeration->count ? "<" + std::string(f.enumeration->enumerators[v].name) + "/>"
                                             : "<" + std::string(f.enumeration->name) + " value out of range/>");
        } else {
            value(f, place, flag_of(r, f, x));
        }
    }

    TestDomain& D_;
    char buffer_[2000];
};

} // namespace

std::string expected_print(const Record& r, TestDomain& D, Instance* x, std::uint32_t indent, const std::string& name) {
    Printer printer(D);
    printer.record(r, x, indent, name);
    return printer.text;
}

std::string expected_xml(const Record& r, TestDomain& D, Instance* x, const std::string& name, unsigned flag) {
    XmlWriter writer(D);
    writer.record(r, x, name, flag);
    return writer.text;
}

GuardedBuffer::GuardedBuffer(std::size_t capacity) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    capacity_ = (capacity + 64 + page - 1) / page * page;
    mapped_ = capacity_ + page;
    memory_ = static_cast<char*>(mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (memory_ == MAP_FAILED || mprotect(memory_ + capacity_, page, PROT_NONE) != 0) std::abort();
}

GuardedBuffer::~GuardedBuffer() {
    munmap(memory_, mapped_);
}

char* GuardedBuffer::last(std::size_t size) {
    char* buffer = memory_ + capacity_ - size;
    std::memset(buffer - 32, filler, size + 32);
    return buffer;
}

bool GuardedBuffer::is_clean_before(std::size_t size) const {
    const std::string clean(32, filler);
    return std::memcmp(memory_ + capacity_ - size - 32, clean.data(), 32) == 0;
}

TextOperations::TextOperations(const std::string& name)
    : type(name), print(operation<std::uint32_t(zur_domain*, std::uint32_t, char*, std::uint32_t, const char*,
                                                const Instance*, std::uint32_t, std::uint32_t*)>(name, "print")),
      print_cr(operation<std::uint32_t(zur_domain*, const Instance*, char*, std::uint32_t)>(name, "print_cr")),
      toxml_cr(operation<std::uint32_t(zur_domain*, const Instance*, char*, std::uint32_t)>(name, "toxml_cr")),
      to_xml(operation<std::uint32_t(zur_domain*, std::uint32_t, const char*, char*, const Instance*, std::uint32_t,
                                     std::uint32_t, std::uint32_t*)>(name, "to_xml")),
      from_xml(operation<void(zur_domain*, std::uint32_t, const char*, zur_xml_document*, Instance*, std::uint32_t*,
                              char*, std::uint32_t)>(name, "from_xml")),
      compare(operation<std::int32_t(const Instance*, const Instance*)>(name, "compare")) {}

std::string TextOperations::printed(TestDomain& D, const Instance* x, std::uint32_t indent,
                                    const std::string& name) const {
    std::string buffer(300000, GuardedBuffer::filler);
    buffer.resize(
        print(D, D.set_id(), buffer.data(), indent, name.c_str(), x, static_cast<std::uint32_t>(buffer.size()), &D.st));
    return buffer;
}

std::string TextOperations::xml(TestDomain& D, const Instance* x, const std::string& name, std::uint32_t flag) const {
    std::string buffer(300000, GuardedBuffer::filler);
    buffer.resize(
        to_xml(D, D.set_id(), name.c_str(), buffer.data(), x, static_cast<std::uint32_t>(buffer.size()), flag, &D.st));
    return buffer;
}

std::uint32_t TextOperations::read(TestDomain& D, zur_xml_document* document, Instance* x) const {
    std::uint32_t st = 0;
    char message[300] = "";
    from_xml(D, D.set_id(), type.c_str(), document, x, &st, message, sizeof message);
    return st;
}

} // namespace epm::test
