// Everything that the exchange does with the library: it creates a Domain for a peer, builds a message from a statement
// or from XML, writes its wire form, and makes its text forms on the other side. It does not send or receive bytes.
#pragma once

#include "policy.hpp"

#include <orlan_epm.h>

#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace exchange {

/// No message is longer.
constexpr uint32_t max_message = 64 * 1024;

struct DestroyDomain {
    void operator()(zur_domain* D) const;
};
using Domain = std::unique_ptr<zur_domain, DestroyDomain>;

/// Creates a Domain for talking to a peer that speaks each type up to this variant. Returns null when memory runs out.
Domain create_domain(int8_t variant);

struct DestroyMessage {
    zur_domain* D;
    void operator()(struct orlan_ial_svm_epm_data* message) const;
};
/// Must be destroyed before the Domain that it was built under.
using Message = std::unique_ptr<struct orlan_ial_svm_epm_data, DestroyMessage>;

/// Reads a message from XML. D must speak the newest variants, because reading fills fields of later variants anyway.
/// Returns null with a reason, which the caller prints after the file's name and a colon.
Message read_xml(zur_domain* D, const std::string& xml, std::string& reason);

/// Names of fields and arms that a peer's variant lacks, each with the number of times it was left out.
using LeftOut = std::map<std::string, uint64_t>;

/// Builds the message under D and writes its wire form, without the fields that the peer lacks. The status word is
/// ZUR_NOT_IN_VARIANT when the message cannot be sent to the peer at all.
std::vector<uint8_t> wire_form(zur_domain* D, const Statement& statement, LeftOut& left_out, uint32_t* st);

/// Writes the wire form of a message that was built under another Domain. The status word is ZUR_NOT_IN_VARIANT when it
/// was built in newer variants than D speaks.
std::vector<uint8_t> wire_form(zur_domain* D, const struct orlan_ial_svm_epm_data* message, uint32_t* st);

/// Reads a message. Returns null when the status word is raised; then the reason adds what its number does not say.
Message read_wire(zur_domain* D, std::span<const uint8_t> wire, uint32_t* st, std::string& reason);

/// Where a message that read_wire() refuses breaks off: the number of bytes that are good.
uint32_t fault_offset(zur_domain* D, std::span<const uint8_t> wire);

enum class Form { print, xml };

/// Reads a message and returns its text form. The name says where the message comes from: the print form's first line
/// begins with it, and the XML has it in a comment at the top. When the status word is raised, the reason adds what its
/// number does not say.
std::string text_form(zur_domain* D, std::span<const uint8_t> wire, const std::string& name, Form form, uint32_t* st,
                      std::string& reason);

} // namespace exchange
