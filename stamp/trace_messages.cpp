// Spells out the entries of frame/sites.hpp: each with its text and with the identifier by which readers of several
// builds know it.
#include "stamp/trace_messages.hpp"

#include "stamp/words.hpp"

#include "frame/sites.hpp"

namespace epm::stamp {

namespace {

// FNV-1a over 64 bits: spread evenly enough for identifiers, and the same on every machine.
struct Fingerprint {
    std::uint64_t value = 0xCBF29CE484222325u;

    void add(std::string_view text) {
        for (const char c : text) value = (value ^ static_cast<unsigned char>(c)) * 0x100000001B3u;
        value = (value ^ 0xFF) * 0x100000001B3u;
    }
};

std::string text_of(trace::Text text, const std::string& type) {
    std::string words = trace::texts[static_cast<std::size_t>(text)];
    const std::string mark = "<type>";
    if (const std::size_t at = words.find(mark); at != std::string::npos) words.replace(at, mark.size(), type);
    return words;
}

TraceMessage message(trace::Text text, const std::string& type, const std::string& key) {
    TraceMessage m{text_of(text, type), key, 0};
    Fingerprint f;
    f.add(m.key);
    f.add(m.text);
    m.identifier = static_cast<std::uint32_t>(f.value ^ f.value >> 32);
    return m;
}

template <class Type>
void add_messages(std::vector<TraceMessage>& to, const Type& t) {
    const trace::Entries entries = trace::entries_of(t);
    for (std::size_t i = 0; i < entries.count; ++i) {
        const trace::Entry& e = entries.list[i];
        std::string key = t.name;
        if constexpr (std::is_same_v<Type, Record>)
            if (e.field != trace::whole_record) key += std::string(".") + t.fields[e.field].name;
        key += "#" + std::to_string(static_cast<int>(e.operation)) + "#" + std::to_string(e.nth);
        to.push_back(message(e.text, t.name, key));
    }
}

} // namespace

std::vector<TraceMessage> trace_messages() {
    std::vector<TraceMessage> all;
    for (const Enum* e : catalogue::all_enums) add_messages(all, *e);
    for (const Record* r : catalogue::all_records) add_messages(all, *r);
    all.push_back(message(trace::Text::no_variant_table_in_dump, {}, "orlan_epm_type_variant_dump"));
    return all;
}

/// Two hashes over everything, the second continued from the first.
Bytes digest_of(const std::vector<TraceMessage>& messages) {
    Fingerprint f;
    Bytes digest;
    for (int half = 0; half < 2; ++half) {
        for (const TraceMessage& m : messages) {
            f.add(m.key);
            f.add(m.text);
        }
        for (int i = 0; i < 8; ++i) digest.push_back(static_cast<unsigned char>(f.value >> 8 * i));
    }
    return digest;
}

} // namespace epm::stamp
