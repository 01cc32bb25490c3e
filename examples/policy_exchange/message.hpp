// All that the exchange does with the library: a Domain for a peer, a message from a statement or from XML, its wire
// form, and its text forms on the other side. Carrying bytes is not done here.
#pragma once

#include "policy.hpp"

#include <orlan_epm.h>

#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace exchange {

struct DestroyDomain {
    void operator()(zur_domain* D) const;
};
using Domain = std::unique_ptr<zur_domain, DestroyDomain>;

/// A Domain for talking to a peer that speaks each type up to this variant; null when memory runs out.
Domain create_domain(int8_t variant);

struct DestroyMessage {
    zur_domain* D;
    void operator()(struct orlan_ial_svm_epm_data* message) const;
};
/// Ends before the Domain that it was built under.
using Message = std::unique_ptr<struct orlan_ial_svm_epm_data, DestroyMessage>;

/// Reads a message from XML. D speaks the newest variants: reading fills later fields whatever the variant. Null comes
/// with a reason, which goes behind the file's name and a colon.
Message read_xml(zur_domain* D, const std::string& xml, std::string& reason);

/// Names of fields and arms that a peer's variant lacks, each with how often it was left out.
using LeftOut = std::map<std::string, uint64_t>;

/// Builds the message under D and writes its wire form. Fields that the peer lacks are left out. The status word is
/// ZUR_NOT_IN_VARIANT when the peer cannot be given the message at all.
std::vector<uint8_t> wire_form(zur_domain* D, const Statement& statement, LeftOut& left_out, uint32_t* st);

/// Writes the wire form of a message that was built under another Domain. The status word is ZUR_NOT_IN_VARIANT when it
/// was built in newer variants than D speaks.
std::vector<uint8_t> wire_form(zur_domain* D, const struct orlan_ial_svm_epm_data* message, uint32_t* st);

enum class Form { print, xml };

/// Reads a message and gives its text form. A name tells where it comes from: the print form's first line begins with
/// it, and it is a comment in front of the XML. The reason tells of a raised status word what its number does not.
std::string text_form(zur_domain* D, std::span<const uint8_t> wire, const std::string& name, Form form, uint32_t* st,
                      std::string& reason);

} // namespace exchange
