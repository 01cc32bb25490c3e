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

Instance* instance(const unsigned char* place) {
    return reinterpret_cast<Instance*>(const_cast<unsigned char*>(place));
}

/// A text under way, in one of the two forms. Names and flags are of XML only, indentation is of print only.
class Maker {
public:
    Maker(TestDomain& D, bool is_xml) : D_(D), is_xml_(is_xml) {}

    /// In print a block stays open where fields are missing; at the end of a line that the runtime's formatter writes,
    /// a terminator stands.
    void record(const Record& r, Instance* x, std::uint32_t indent, const std::string& name, unsigned flag) {
        text += is_xml_ ? "<" + name + (flag != 0 ? " flag=\"" + std::to_string(flag) + "\"" : "") + ">"
                        : std::string(indent, ' ') + name + "@" + r.name + ": {\n";
        bool is_whole = true;
        for (std::size_t i = 0; i < r.count && is_whole; ++i)
            if ((is_whole = x->variant >= r.fields[i].since)) field(r, i, x, indent + 2);
        if (is_xml_)
            text += "</" + name + ">";
        else if (is_whole)
            text += (indent != 0 ? '\0' + std::string(indent - 1, GuardedBuffer::filler) : "") + "}\n";
    }

    std::string text;

private:
    /// What the runtime writes for a value. The Bundle has no part in this.
    template <class... Length>
    void value(const std::string& type, std::uint32_t indent, const std::string& name, const void* place,
               std::uint8_t flag, Length... length) {
        char buffer[2000] = "";
        Status st = 0;
        if (is_xml_) {
            using Write = std::uint32_t(zur_domain*, Set, const char*, char*, const void*, std::uint32_t, Length...,
                                        std::uint8_t, Status*);
            reinterpret_cast<Write*>(following((type + "_to_xml").c_str()))(D_, D_.set_id(), name.c_str(), buffer,
                                                                            place, sizeof buffer, length..., flag, &st);
        } else {
            using Write = std::uint32_t(zur_domain*, Set, char*, std::uint32_t, const char*, const void*, std::uint32_t,
                                        Length..., Status*);
            reinterpret_cast<Write*>(following((type + "_print").c_str()))(
                D_, D_.set_id(), buffer, indent, name.c_str(), place, sizeof buffer, length..., &st);
        }
        EXPECT_EQ(st, 0u) << type;
        text += buffer;
    }
    void enumerator(const Enum& e, std::uint32_t indent, const std::string& name, std::uint32_t v) {
        const std::string known = v < e.count ? e.enumerators[v].name : "";
        if (is_xml_)
            text += "<" + name + "><" + (v < e.count ? known : e.name + std::string(" value out of range")) + "/></" +
                    name + ">";
        else
            text += std::string(indent, ' ') + name + "@" + e.name + ":" +
                    (v < e.count ? known + "\n" : "Enum value out of range");
    }
    template <class... Index>
    std::uint8_t flag_of(const Record& r, const Field& f, Instance* x, Index... index) {
        if (!is_xml_ || !D_.mode().is_tracking() || !f.is_tracked()) return 0;
        const auto flag = call<std::uint8_t>(D_, r, f, "state_flag_get", x, index...);
        D_.st = 0;
        return flag;
    }
    void field(const Record& r, std::size_t i, Instance* x, std::uint32_t indent) {
        const Field& f = r.fields[i];
        const unsigned char* place = place_of(r, x, i);
        if (f.kind == Kind::text) {
            const char* characters = load<const char*>(place);
            value("var_string", indent, f.name, characters != nullptr ? characters : "", flag_of(r, f, x),
                  length_of(r, f, x));
        } else if (f.kind == Kind::characters) {
            value("null_string", indent, f.name, place, flag_of(r, f, x), std::uint32_t{f.capacity});
        } else if (f.kind == Kind::array || f.kind == Kind::run) {
            std::uint32_t n = 0;
            for (const unsigned char* element : elements_of(r, i, x)) {
                const std::string name = f.name + (is_xml_ ? "" : "[" + std::to_string(n) + "]");
                const std::uint8_t flag = flag_of(r, f, x, n++);
                if (f.is_of_record())
                    record(*f.record, instance(element), indent, name, flag);
                else
                    value(f.foreign->name, indent, name, element, flag);
            }
        } else if (f.kind == Kind::list) {
            const std::string name = (is_xml_ ? "" : "list ") + std::string(f.name);
            const auto count = call<std::uint32_t>(D_, r, f, "get_count", x);
            if (!is_xml_) value("u_int32", indent, name + " count", &count, 0);
            for (auto* e = call<Instance*>(D_, r, f, "get_first", x); e != nullptr;
                 e = call<Instance*>(D_, r, f, "get_next", x, e))
                record(*f.record, e, indent, name, flag_of(r, f, x));
        } else if (f.kind == Kind::arm) {
            auto* arm = load<Instance*>(place);
            if (value_of(place_of(r, x, 0)) == f.tag && arm != nullptr)
                record(*f.record, arm, indent, (is_xml_ ? "epm_type-" : "epm_type.") + std::string(f.name),
                       flag_of(r, f, x));
        } else if (f.kind == Kind::embedded) {
            record(*f.record, instance(place), indent, f.name, flag_of(r, f, x));
        } else if (f.is_own_enum()) {
            enumerator(*f.enumeration, indent, f.name, value_of(place));
        } else {
            value(f.foreign->name, indent, f.name, place, flag_of(r, f, x));
        }
    }

    TestDomain& D_;
    bool is_xml_;
};

} // namespace

std::string expected_print(const Record& r, TestDomain& D, Instance* x, std::uint32_t indent, const std::string& name) {
    Maker maker(D, false);
    maker.record(r, x, indent, name, 0);
    return maker.text;
}

std::string expected_xml(const Record& r, TestDomain& D, Instance* x, const std::string& name, unsigned flag) {
    Maker maker(D, true);
    maker.record(r, x, 0, name, flag);
    return maker.text;
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

TextOperations::TextOperations(const std::string& name) : type(name) {
    const auto fetch = [&]<class F>(Operation<F>& to, const char* what) { to = operation<F>(name, what); };
    fetch(print, "print"), fetch(print_cr, "print_cr"), fetch(to_xml, "to_xml"), fetch(toxml_cr, "toxml_cr");
    fetch(from_xml, "from_xml"), fetch(compare, "compare");
}

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
