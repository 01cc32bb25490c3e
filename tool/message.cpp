// A Domain, an Instance, and the operations of its type.
#include "tool/message.hpp"

#include "tool/failure.hpp"
#include "tool/json_message.hpp"
#include "tool/notes.hpp"
#include "tool/operations.hpp"

#include <platform/domain.h>
#include <platform/xml.h>
#include <zur/runtime.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <unordered_set>

namespace epm::tool {

namespace {

constexpr std::uint32_t S = ZUR_NO_SET; // Instances live on the heap
constexpr std::uint32_t most_text = 1u << 30;
constexpr std::uint32_t enum_wire_length = 5;

/// Keeps track of what a Domain allocates. An Instance does not release what a document has put into fields beyond its
/// variant; the heap releases what is left.
class Heap {
public:
    explicit Heap(zur_domain* D) : store_(D->obj_store), allocate_(D->obj_alloc_fn), release_(D->obj_free_fn) {
        D->obj_store = this;
        D->obj_alloc_fn = allocate;
        D->obj_free_fn = release;
    }
    Heap(const Heap&) = delete;
    Heap& operator=(const Heap&) = delete;
    ~Heap() {
        for (void* block : blocks_) release_(store_, S, block);
    }

private:
    static void* allocate(void* heap, std::uint32_t set_id, std::size_t size) {
        auto& own = *static_cast<Heap*>(heap);
        void* block = own.allocate_(own.store_, set_id, size);
        if (block != nullptr) own.blocks_.insert(block);
        return block;
    }
    static void release(void* heap, std::uint32_t set_id, void* block) {
        auto& own = *static_cast<Heap*>(heap);
        own.blocks_.erase(block);
        own.release_(own.store_, set_id, block);
    }

    void* store_;
    decltype(zur_domain::obj_alloc_fn) allocate_;
    decltype(zur_domain::obj_free_fn) release_;
    std::unordered_set<void*> blocks_;
};

/// A Domain with one Instance of a type.
class Holder {
public:
    Holder(const Type& type, const Notes& notes, Agreed agreed) : operations(type.name) {
        platform_domain_options options{};
        options.tracking = notes.is_tracked ? ZUR_TRACKED_MODE : PLATFORM_NO_HANDLE;
        domain_.reset(platform_domain_create(&options));
        if (domain_ == nullptr) throw Failure{is_damaged, "no memory"};
        heap_.emplace(domain_.get());
        for (const auto& [name, variant] : notes.variants)
            platform_domain_agree(domain_.get(), name.c_str(), static_cast<std::int8_t>(variant));
        if (agreed) {
            platform_domain_clear_agreement(domain_.get());
            platform_domain_agree_all(domain_.get(), *agreed);
        }
        x_ = operations.create(domain_.get(), S);
        if (x_ == nullptr) throw Failure{is_damaged, "no memory"};
    }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    ~Holder() {
        if (x_ != nullptr) operations.destroy(domain_.get(), S, x_);
    }

    zur_domain* domain() const { return domain_.get(); }
    zur_instance* x() const { return x_; }

    const Operations operations;

private:
    struct Destroy {
        void operator()(zur_domain* D) const { platform_domain_destroy(D); }
    };
    std::unique_ptr<zur_domain, Destroy> domain_;
    std::optional<Heap> heap_;
    zur_instance* x_ = nullptr;
};

/// The limit that a reader ran into; empty if it was none.
std::string limit_of(const zur_domain* D) {
    const char* refusal = platform_domain_refusal(D);
    return refusal != nullptr ? std::string("; ") + refusal : "";
}

[[noreturn]] void refuse(const char* what, std::uint32_t status, const std::string& more = "") {
    throw Failure{is_damaged,
                  std::string(what) + " with " + std::to_string(status) + ", " + platform_status_text(status) + more};
}

template <class Write>
std::string text_of(std::size_t first_size, Write write) {
    std::string text;
    const std::uint32_t st = write_text(text, first_size, most_text, write);
    if (st == ZUR_BUFFER_TOO_SMALL) throw Failure{is_damaged, "its text is too long"};
    if (st != 0) refuse("the library does not show it: status", st);
    return text;
}

/// XML with each element on its own line.
std::string laid_out(const std::string& xml) {
    std::string lines(platform_xml_lay_out(xml.data(), xml.size(), 0, nullptr, 0), '\0');
    platform_xml_lay_out(xml.data(), xml.size(), 0, lines.data(), lines.size());
    return lines;
}

/// Reads the message into the Instance.
void read(const Holder& holder, ByteView message) {
    Bytes exact(message.begin(), message.end());
    exact.push_back(0); // in tracked mode a flag may be read directly behind the end
    std::uint32_t st = 0;
    const std::uint32_t used = holder.operations.unmarshal(holder.domain(), S, exact.data(), holder.x(),
                                                           static_cast<std::int32_t>(message.size()), 0, &st);
    if (st != 0) refuse("the library's reader refuses it: status", st, limit_of(holder.domain()));
    if (used != message.size())
        throw Damage{std::min<std::size_t>(used, message.size()), "the library's reader takes " + std::to_string(used) +
                                                                      " bytes of " + std::to_string(message.size())};
}

[[noreturn]] void refuse_message(const Damage& damage) { // the offset refers to the message, not to the document
    throw Failure{is_damaged, "its message does not read back: " + damage.reason};
}

} // namespace

std::string decode(const Type& type, ByteView message, TextForm form, Agreed agreed) {
    // The walk comes first: it says where a message is damaged, and trusts no count before the bytes are there.
    const Notes notes = notes_of(type, message);
    const Holder holder(type, {{}, notes.is_tracked, {}}, agreed);
    const Operations& call = holder.operations;
    read(holder, message);
    if (form == TextForm::json) return to_json(type, message);
    const std::size_t first_size = 4096 + 8 * message.size();
    if (form == TextForm::xml)
        return written(notes) + laid_out(text_of(first_size, [&](char* buffer, std::uint32_t room, std::uint32_t* s) {
                   return call.to_xml(holder.domain(), S, type.name.c_str(), buffer, holder.x(), room, 0, s);
               }));
    std::string text = text_of(first_size, [&](char* buffer, std::uint32_t room, std::uint32_t* s) {
        return call.print(holder.domain(), S, buffer, 0, type.name.c_str(), holder.x(), room, s);
    });
    // A nested record's closing line skips its indentation and keeps what the buffer held there, which is zeros.
    std::ranges::replace(text, '\0', ' ');
    return text;
}

Encoded encode(const Type& type, const std::string& xml, Agreed agreed, bool is_lenient) {
    char words[512] = "";
    const std::unique_ptr<zur_xml_document, decltype(&platform_xml_free)> document(
        platform_xml_parse(xml.data(), xml.size(), nullptr, words, sizeof words), &platform_xml_free);
    if (document == nullptr) throw Failure{is_damaged, words};
    std::uint32_t count = 0;
    xml_get_element_nodecount(document.get(), type.name.c_str(), &count);
    if (count == 0) throw Failure{is_damaged, "the root element is not " + type.name};
    pugi::xml_document told, came;
    if (!parse(xml, told)) throw Failure{is_damaged, "not read a second time"};
    const Notes notes = read_notes(told);
    const Holder holder(type, notes, agreed);
    const Operations& call = holder.operations;
    Encoded result;
    std::uint32_t st = 0;
    call.from_xml(holder.domain(), S, type.name.c_str(), document.get(), holder.x(), &st, words, sizeof words);
    // If a record's last text is absent, its reader leaves this status. A parent's reader ignores it, and so does this.
    if (st != 0 && st != ZUR_ABSENT) {
        const bool is_value = st == ZUR_BAD_ARGUMENT || st == ZUR_BUFFER_TOO_SMALL;
        if (words[0] != 0 && !(is_lenient && is_value)) throw Failure{is_damaged, words + limit_of(holder.domain())};
        if (!is_value) refuse("the library's reader refuses it: status", st, limit_of(holder.domain()));
        // Without words, the comparison below finds the place.
        if (words[0] != 0) result.losses.push_back({Loss::Kind::lost, "", words});
    }
    const std::uint32_t stopped = st != ZUR_ABSENT ? st : 0;
    st = 0;
    // The writer writes some flags only if there is room left, so add room to the length that the library counts.
    Bytes& message = result.message;
    message.resize((type.is_enum() ? enum_wire_length : call.len(holder.domain(), S, holder.x())) + std::size_t{8});
    message.resize(
        call.marshal(holder.domain(), S, message.data(), holder.x(), static_cast<std::int32_t>(message.size()), &st));
    if (st != 0) refuse("the library does not write it: status", st);
    const auto variant_of = [&](const Type& t) {
        const auto noted = notes.variants.find(t.name);
        return agreed ? *agreed : noted != notes.variants.end() ? noted->second : t.top();
    };
    const Loss::Kind beyond = agreed ? Loss::Kind::left_out : Loss::Kind::lost;
    try {
        if (notes.is_tracked) put_state_flags(type, notes, message);
        parse(decode(type, message, TextForm::xml, {}), came);
        for (const std::vector<Loss>& more :
             {losses(type, told, came, variant_of, beyond), losses(notes, notes_of(type, message), beyond)})
            result.losses.insert(result.losses.end(), more.begin(), more.end());
    } catch (const Damage& damage) {
        refuse_message(damage);
    }
    if (stopped != 0 && result.losses.empty()) refuse("the library's reader refuses it: status", stopped);
    return result;
}

Bytes encode_json(const Type& type, std::string_view document) {
    Bytes message = from_json(type, document);
    try {
        const Holder holder(type, {{}, notes_of(type, message).is_tracked, {}}, {});
        read(holder, message);
    } catch (const Damage& damage) {
        refuse_message(damage);
    }
    return message;
}

} // namespace epm::tool
