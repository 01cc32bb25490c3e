// The golden corpus and its specimens. The layout that take_apart() expects is written down here a second time on
// purpose: it must not change together with the code that it is held against.
#include "support/wire.hpp"

#include <fstream>
#include <sstream>

namespace epm::test {

namespace {

using Set = std::uint32_t;

template <class Type>
WireType fetch(const Type& type) {
    WireType t{.name = type.name, .top = type.top()};
    const auto get = [&]<class F>(F*& function, const char* name) { function = operation<F>(type, name).function(); };
    get(t.create, "create");
    get(t.destroy, "destroy");
    get(t.marshal, "marshal");
    get(t.unmarshal, "unmarshal");
    get(t.len, "len");
    get(t.compare, "compare");
    get(t.hash, "hash");
    return t;
}

/// A pass over an image from its first byte to its last.
class Walk {
public:
    explicit Walk(const Bytes& image) : image_(image) {}

    void enumeration(std::int8_t top, const std::string& name) {
        const std::size_t start = offset_;
        take(1, name + " variant");
        take(4, name);
        out.frames.push_back({top, start, 0, offset_});
    }

    void record(const Record& r, const std::string& name) {
        const std::size_t start = offset_;
        const auto variant = static_cast<std::int8_t>(take(1, name + "variant"));
        const std::uint64_t flags = take(1, name + "flags");
        const std::size_t jump_at = offset_;
        const std::uint64_t jump = take(4, name + "jump");
        const bool is_tracked = (flags & 8) != 0;
        std::map<std::string, std::uint32_t> lengths;
        std::uint64_t tag = 0;
        for (std::size_t i = 0; i < r.count && out.is_sound; ++i) {
            const Field& f = r.fields[i];
            if (variant < f.since) continue;
            const std::string own = name + f.name;
            std::uint64_t flag_bytes = is_tracked ? 1 : 0;
            switch (f.kind) {
            case Kind::length:
                lengths[f.name] = static_cast<std::uint32_t>(take(f.foreign->length, own));
                flag_bytes = 0;
                break;
            case Kind::text: {
                const std::uint32_t n = lengths[f.companion];
                take(n, own);
                if (n == 0) flag_bytes = 0;
                if (is_tracked) out.overcount += n + (n == 0);
                break;
            }
            case Kind::characters:
                take(f.capacity, own);
                if (is_tracked) out.overcount += f.capacity;
                break;
            case Kind::run:
                take(f.capacity, own);
                if (is_tracked) flag_bytes = 1u + f.capacity;
                break;
            case Kind::array: {
                const std::uint32_t n = lengths[f.companion];
                for (std::uint32_t e = 0; e < n && out.is_sound; ++e) {
                    const std::string element = own + "[" + std::to_string(e) + "]";
                    if (f.is_of_record())
                        record(*f.record, element + ".");
                    else
                        take(4, element);
                }
                if (is_tracked) flag_bytes = n == 0 ? 0 : 1 + n;
                if (is_tracked && n == 0) out.overcount += 1;
                break;
            }
            case Kind::list: {
                const std::uint64_t n = take(4, own + " count");
                for (std::uint64_t e = 0; e < n && out.is_sound; ++e)
                    record(*f.record, own + "[" + std::to_string(e) + "].");
                break;
            }
            case Kind::embedded: record(*f.record, own + "."); break;
            case Kind::arm:
                if (tag == f.tag) record(*f.record, own + ".");
                break;
            case Kind::object: object(f.foreign->name, own); break;
            case Kind::value:
                if (f.is_own_enum()) {
                    enumeration(f.enumeration->top(), own);
                    if (r.is_union()) tag = last_;
                } else if (std::string(f.foreign->name) == "sm_auth_domain") {
                    enumeration(0, own);
                } else {
                    take(f.foreign->length, own);
                }
                break;
            }
            if (flag_bytes != 0) take(flag_bytes, own + (flag_bytes == 1 ? " state flag" : " state flags"));
        }
        out.is_sound = out.is_sound && jump == offset_ - jump_at;
        out.frames.push_back({r.top(), start, jump_at, offset_});
    }

    void end() { out.is_sound = out.is_sound && offset_ == image_.size(); }

    Parts out;

private:
    /// The bytes as a number, highest first.
    std::uint64_t take(std::uint64_t length, const std::string& name) {
        last_ = 0;
        if (length > image_.size() - offset_) {
            out.is_sound = false;
            return 0;
        }
        if (length == 0) return 0;
        out.parts.push_back({offset_, length, name});
        for (std::uint64_t i = 0; i < length; ++i) last_ = last_ << 8 | image_[offset_ + i];
        offset_ += length;
        return last_;
    }

    void object(const std::string& type, const std::string& name) {
        if (type == "zur_mac_addr") {
            take(6, name);
        } else if (type == "ip_address") {
            const std::uint64_t family = take(1, name + " family");
            take(family == 4 ? 4 : family == 6 ? 16 : 0, name);
        } else if (type == "sess_mgr_authorize_result") {
            take(4, name);
        } else if (type == "zur_vstring" || type == "kesh_bytestr" || type == "aaa_tlv") {
            if (type == "aaa_tlv") take(4, name + " type");
            const std::uint64_t length = take(4, name + " length");
            take(length, name);
        } else {
            take(8, name);
        }
    }

    const Bytes& image_;
    std::size_t offset_ = 0;
    std::uint64_t last_ = 0;
};

std::string file_of(const WireType& type) {
    return EPM_SOURCE_DIR "/tests/golden/" + type.name + ".hex";
}

std::string hex(const std::uint8_t* bytes, std::size_t length) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < length; ++i) (text += digits[bytes[i] >> 4]) += digits[bytes[i] & 15];
    return text;
}

} // namespace

const std::vector<WireType>& wire_types() {
    static const std::vector<WireType> all = [] {
        std::vector<WireType> list;
        for (const Record* r : catalogue::all_records) list.emplace_back(fetch(*r)).record = r;
        for (const Enum* e : catalogue::all_enums) {
            WireType& t = list.emplace_back(fetch(*e));
            t.enumeration = e;
        }
        return list;
    }();
    return all;
}

const WireType& wire_type(const std::string& name) {
    for (const WireType& t : wire_types())
        if (t.name == name) return t;
    ADD_FAILURE() << "no type " << name;
    std::abort();
}

std::string Specimen::text() const {
    return type->name + ", variant " + std::to_string(variant) + (is_tracked ? ", tracked" : ", untracked") +
           (arm.empty() ? "" : ", " + arm);
}

std::vector<Specimen> specimens(const WireType& type) {
    std::vector<Specimen> list;
    for (int variant = -1; variant <= type.top; ++variant) {
        for (const bool is_tracked : {false, true}) {
            const Specimen one{&type, variant, is_tracked, 3, ""};
            if (variant < 0 || type.is_enum() || !type.record->is_union()) {
                list.push_back(one);
                continue;
            }
            for (std::size_t i = 1; i < type.record->count; ++i) {
                if (type.record->fields[i].since > variant) continue;
                Specimen& with_arm = list.emplace_back(one);
                with_arm.seed = static_cast<unsigned>(i - 1);
                with_arm.arm = type.record->fields[i].name;
            }
        }
    }
    return list;
}

Instance* make(const Specimen& specimen, TestDomain& D) {
    const WireType& type = *specimen.type;
    D.agree_all(specimen.variant);
    Instance* x = type.create(D, D.set_id());
    if (x == nullptr || x->variant != specimen.variant) {
        ADD_FAILURE() << "not made: " << specimen.text();
        return x;
    }
    if (specimen.variant < 0) return x;
    if (type.is_enum()) {
        const std::uint32_t last = type.enumeration->accepted(static_cast<std::int8_t>(specimen.variant)) - 1;
        operation<void(zur_domain*, Set, Instance*, std::uint32_t, std::uint32_t*)>(type.name, "set_value")(
            D, D.set_id(), x, last, &D.st);
    } else {
        EXPECT_TRUE(Fill(D, specimen.seed).fill(*type.record, x)) << specimen.text();
        std::uint32_t last_mark = 0;
        if (specimen.is_tracked) mark_all(D, *type.record, x, last_mark);
    }
    EXPECT_EQ(D.st, 0u) << specimen.text();
    return x;
}

Bytes marshalled(const WireType& type, TestDomain& D, const Instance* x) {
    Bytes buffer(type.is_enum() ? 16 : type.len(D, D.set_id(), x) + 16u);
    std::uint32_t st = 0;
    const std::uint32_t length =
        type.marshal(D, D.set_id(), buffer.data(), x, static_cast<std::int32_t>(buffer.size()), &st);
    EXPECT_EQ(st, 0u) << type.name;
    EXPECT_LE(length, buffer.size()) << type.name;
    buffer.resize(std::min<std::size_t>(length, buffer.size()));
    return buffer;
}

Parts take_apart(const WireType& type, const Bytes& image) {
    Walk walk(image);
    if (type.is_enum())
        walk.enumeration(type.top, "value");
    else
        walk.record(*type.record, "");
    walk.end();
    return std::move(walk.out);
}

Golden read_golden(const WireType& type) {
    Golden golden;
    Bytes* image = nullptr;
    std::ifstream file(file_of(type));
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] == '#') continue;
        if (line[0] == '[') {
            image = &golden[line.substr(1, line.size() - 2)];
            continue;
        }
        const std::string digits = line.substr(0, line.find(' '));
        if (image == nullptr || digits.size() % 2 != 0) ADD_FAILURE() << type.name << ".hex: " << line;
        for (std::size_t i = 0; image != nullptr && i + 1 < digits.size(); i += 2)
            image->push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return golden;
}

void write_golden(const WireType& type, const std::vector<std::pair<std::string, Bytes>>& images) {
    constexpr std::size_t bytes_a_line = 32;
    std::ofstream file(file_of(type));
    file << "# Marshalled images of " << type.name << ". Each line: bytes, and what they are.\n";
    for (const auto& [text, image] : images) {
        file << "\n[" << text << "]\n";
        for (const Parts::Part& p : take_apart(type, image).parts)
            for (std::size_t done = 0; done < p.length; done += bytes_a_line) {
                const std::size_t n = std::min(bytes_a_line, p.length - done);
                file << hex(&image[p.offset + done], n) << "  " << p.name << "\n";
            }
    }
}

} // namespace epm::test
