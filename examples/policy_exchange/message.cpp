// Builds, reads, marshals, unmarshals and shows messages. A series of library calls shares one status word and checks
// it once, at the end, because a call that finds it raised does nothing.
#include "message.hpp"

#include <platform/domain.h>
#include <platform/xml.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace exchange {

namespace {

constexpr uint32_t S = ZUR_NO_SET; // messages live on the heap

// A peer does not show a longer text for one message.
constexpr uint32_t max_text = 16u << 20;

constexpr char message_name[] = "orlan_ial_svm_epm_data"; // the root of the XML document

Message create_message(zur_domain* D, uint32_t* st) {
    Message message(orlan_ial_svm_epm_data_create(D, S), DestroyMessage{D});
    if (message == nullptr && *st == 0) *st = ZUR_NO_MEMORY;
    return message;
}

// A setter does not accept a null Instance, so a failed creation raises the status word, which stops the next calls.
template <class Arm>
Arm* created(Arm* arm, uint32_t* st) {
    if (arm == nullptr && *st == 0) *st = ZUR_NO_MEMORY;
    return arm;
}

template <class Sized>
uint32_t length(const Sized& sized) {
    return static_cast<uint32_t>(sized.size());
}

uint32_t unmarshal(zur_domain* D, std::span<const uint8_t> wire, const Message& message, uint32_t* st) {
    const auto room = static_cast<int32_t>(wire.size());
    return orlan_ial_svm_epm_data_unmarshal(D, S, wire.data(), message.get(), room, 0, st);
}

// Fields that came after variant 0. If the peer's variant lacks one, its setter leaves 43; the message is still good.
struct LaterField {
    const char* name;
    void (*set_value)(zur_domain*, uint32_t, struct orlan_ial_svm_acl_data*, uint32_t, uint32_t*);
    std::optional<uint32_t> AccessEntry::*value;
};
constexpr LaterField later_fields[] = {
    {"orlan_ial_svm_acl_data.p_sequence", orlan_ial_svm_acl_data_p_sequence_set_value, &AccessEntry::p_sequence},
    {"orlan_ial_svm_acl_data.is_dacl", orlan_ial_svm_acl_data_is_dacl_set_value, &AccessEntry::is_dacl},
    {"orlan_ial_svm_acl_data.process_index", orlan_ial_svm_acl_data_process_index_set_value,
     &AccessEntry::process_index},
    {"orlan_ial_svm_acl_data.is_domain", orlan_ial_svm_acl_data_is_domain_set_value, &AccessEntry::is_domain},
    {"orlan_ial_svm_acl_data.ip_addr", orlan_ial_svm_acl_data_ip_addr_set_value, &AccessEntry::ip_addr},
};

// Fills an arm and gives it to the message, which does not take it when the status word is raised. Returns its name.
struct ArmSetter {
    zur_domain* D;
    struct orlan_ial_svm_epm_data* message;
    LeftOut& left_out;
    uint32_t* st;

    const char* operator()(const AccessEntry& x) const {
        auto* entry = created(orlan_ial_svm_acl_data_create(D, S), st);
        orlan_ial_svm_acl_data_acl_name_set(D, S, entry, x.list.data(), length(x.list), st);
        orlan_ial_svm_acl_data_ace_name_set(D, S, entry, x.name.data(), length(x.name), st);
        orlan_ial_svm_acl_data_sequence_set_value(D, S, entry, x.sequence, st);
        orlan_ial_svm_acl_data_is_ipv4_set_value(D, S, entry, x.is_ipv4, st);
        orlan_ial_svm_acl_data_is_create_set_value(D, S, entry, x.is_create, st);
        orlan_ial_svm_acl_data_is_remove_set_value(D, S, entry, !x.is_create, st);
        for (const LaterField& field : later_fields) {
            if (*st != 0 || !(x.*field.value)) continue;
            field.set_value(D, S, entry, *(x.*field.value), st);
            if (*st == ZUR_NOT_IN_VARIANT) {
                ++left_out[field.name];
                *st = 0;
            }
        }
        orlan_ial_svm_epm_data_acl_data_set(D, S, message, entry, st);
        if (*st != 0) orlan_ial_svm_acl_data_destroy(D, S, entry);
        return "orlan_ial_svm_epm_data.acl_data";
    }

    const char* operator()(const Application& x) const {
        auto* apply = created(orlan_ial_svm_acl_apply_create(D, S), st);
        orlan_ial_svm_acl_apply_acl_name_set(D, S, apply, x.list.data(), length(x.list), st);
        orlan_ial_svm_acl_apply_iif_id_set_value(D, S, apply, x.interface_id, st);
        if (x.priority) orlan_ial_svm_acl_apply_priority_set_value(D, S, apply, *x.priority, st);
        if (x.flag) orlan_ial_svm_acl_apply_flag_set_value(D, S, apply, *x.flag, st);
        orlan_ial_svm_epm_data_apply_acl_set(D, S, message, apply, st);
        if (*st != 0) orlan_ial_svm_acl_apply_destroy(D, S, apply);
        return "orlan_ial_svm_epm_data.apply_acl";
    }

    const char* operator()(const PreAuthentication& x) const {
        auto* preauth = created(orlan_ial_svm_preauthacl_data_create(D, S), st);
        orlan_ial_svm_preauthacl_data_is_create_set_value(D, S, preauth, x.is_create, st);
        orlan_ial_svm_epm_data_preauthacl_data_set(D, S, message, preauth, st);
        if (*st != 0) orlan_ial_svm_preauthacl_data_destroy(D, S, preauth);
        return "orlan_ial_svm_epm_data.preauthacl_data";
    }

    const char* operator()(const Download& x) const {
        auto* result = created(orlan_ial_dacl_dnld_complete_create(D, S), st);
        orlan_ial_dacl_dnld_complete_acl_name_set(D, S, result, x.list.data(), length(x.list), st);
        orlan_ial_dacl_dnld_complete_is_dnld_success_set_value(D, S, result, x.is_success, st);
        orlan_ial_svm_epm_data_dacl_dnld_comp_data_set(D, S, message, result, st);
        if (*st != 0) orlan_ial_dacl_dnld_complete_destroy(D, S, result);
        return "orlan_ial_svm_epm_data.dacl_dnld_comp_data";
    }
};

/// Turns "line 3, column 7: reason" into "3:7: reason".
std::string position_and_reason(const char* message) {
    unsigned line = 0, column = 0;
    int reason = 0;
    if (std::sscanf(message, "line %u, column %u: %n", &line, &column, &reason) != 2) return ' ' + std::string(message);
    return std::to_string(line) + ':' + std::to_string(column) + ": " + (message + reason);
}

/// XML with each element on a line of its own, and values of the same name next to each other.
std::string laid_out(const std::string& xml) {
    constexpr std::size_t widest = 120;
    std::string lines(platform_xml_lay_out(xml.data(), xml.size(), widest, nullptr, 0), '\0');
    platform_xml_lay_out(xml.data(), xml.size(), widest, lines.data(), lines.size());
    return lines;
}

/// print() closes a record only in its highest variant. Closes the others too, with a line that says why they end.
std::string closed(std::string_view text) {
    std::string lines;
    std::vector<std::size_t> open; // indentation of each record that is open
    const auto close = [&](std::size_t indentation) {
        for (; !open.empty() && indentation <= open.back(); open.pop_back())
            lines += std::string(open.back(), ' ') + "} ends here by its variant\n";
    };
    for (std::size_t end; !text.empty(); text.remove_prefix(end)) {
        end = std::min(text.find('\n'), text.size() - 1) + 1;
        const std::string_view line = text.substr(0, end);
        const std::size_t indentation = std::min(line.find_first_not_of(' '), line.size());
        if (!open.empty() && indentation == open.back() && line.substr(indentation, 1) == "}")
            open.pop_back();
        else
            close(indentation);
        lines += line;
        if (line.ends_with("{\n")) open.push_back(indentation);
    }
    close(0);
    return lines;
}

} // namespace

void DestroyMessage::operator()(struct orlan_ial_svm_epm_data* message) const {
    orlan_ial_svm_epm_data_destroy(D, S, message);
}

void DestroyDomain::operator()(zur_domain* D) const {
    platform_domain_destroy(D);
}

Domain create_domain(int8_t variant) {
    Domain domain(platform_domain_create(nullptr));
    if (domain != nullptr) platform_domain_agree_all(domain.get(), variant);
    return domain;
}

std::vector<uint8_t> wire_form(zur_domain* D, const Statement& statement, LeftOut& left_out, uint32_t* st) {
    const Message message = create_message(D, st);
    const char* arm = std::visit(ArmSetter{D, message.get(), left_out, st}, statement);
    if (*st == ZUR_NOT_IN_VARIANT) ++left_out[arm];
    return wire_form(D, message.get(), st);
}

std::vector<uint8_t> wire_form(zur_domain* D, const struct orlan_ial_svm_epm_data* message, uint32_t* st) {
    if (*st != 0) return {};
    std::vector<uint8_t> wire(orlan_ial_svm_epm_data_len(D, S, message));
    wire.resize(orlan_ial_svm_epm_data_marshal(D, S, wire.data(), message, static_cast<int32_t>(wire.size()), st));
    return wire;
}

Message read_xml(zur_domain* D, const std::string& xml, std::string& reason) {
    char text[512] = "";
    const std::unique_ptr<zur_xml_document, decltype(&platform_xml_free)> document(
        platform_xml_parse(xml.data(), xml.size(), nullptr, text, sizeof text), &platform_xml_free);
    if (D == nullptr || document == nullptr) {
        reason = D != nullptr ? position_and_reason(text) : " out of memory";
        return Message(nullptr, DestroyMessage{D});
    }
    uint32_t st = 0;
    Message message = create_message(D, &st);
    orlan_ial_svm_epm_data_from_xml(D, S, message_name, document.get(), message.get(), &st, text, sizeof text);
    if (st == 0) return message;
    if (st == ZUR_ABSENT)
        reason = std::string(" the root element is not ") + message_name;
    else
        reason = std::string(" ") + (text[0] != 0 ? text : platform_status_text(st));
    return Message(nullptr, DestroyMessage{D});
}

Message read_wire(zur_domain* D, std::span<const uint8_t> wire, uint32_t* st, std::string& reason) {
    Message message = create_message(D, st);
    const uint32_t used = unmarshal(D, wire, message, st);
    // A message must end where its frame does. A truncated one may leave the status at 0 and show only by this length.
    if (*st == 0 && used != wire.size()) {
        *st = ZUR_WRONG_LENGTH;
        reason = "it says that it has " + std::to_string(used);
    }
    return *st == 0 ? std::move(message) : Message(nullptr, DestroyMessage{D});
}

uint32_t fault_offset(zur_domain* D, std::span<const uint8_t> wire) {
    uint32_t whole = 0;
    const uint32_t used = unmarshal(D, wire, create_message(D, &whole), &whole);
    if (whole == 0 || whole == ZUR_WRONG_LENGTH) return std::min(used, length(wire));
    // A codec refuses the bytes in front of it as soon as they are there; before, the reader ran out of bytes.
    uint32_t good = 0, bad = length(wire);
    while (bad - good > 1) {
        const uint32_t middle = good + (bad - good) / 2;
        uint32_t st = 0;
        unmarshal(D, wire.first(middle), create_message(D, &st), &st);
        (st == whole ? bad : good) = middle;
    }
    return good;
}

std::string text_form(zur_domain* D, std::span<const uint8_t> wire, const std::string& name, Form form, uint32_t* st,
                      std::string& reason) {
    const Message message = read_wire(D, wire, st, reason);
    std::string text;
    if (*st != 0) return text;
    for (uint32_t room = 4096; room <= max_text; room *= 2) {
        text.assign(room, '\0');
        *st = 0;
        text.resize(form == Form::xml
                        ? orlan_ial_svm_epm_data_to_xml(D, S, message_name, text.data(), message.get(), room, 0, st)
                        : orlan_ial_svm_epm_data_print(D, S, text.data(), 0, name.c_str(), message.get(), room, st));
        if (*st != ZUR_BUFFER_TOO_SMALL) break;
    }
    if (form == Form::xml) return *st == 0 ? "<!-- " + name + " -->\n" + laid_out(text) : std::string();
    // print() skips the indentation of a nested record's closing line, so these bytes are still NUL.
    std::replace(text.begin(), text.end(), '\0', ' ');
    return closed(text);
}

} // namespace exchange
