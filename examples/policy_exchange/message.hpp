// All that the exchange does with the library: a Domain for a peer, a message from a statement, its wire form, and its
// text form on the other side. Carrying bytes is not done here.
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

/// Names of fields and arms that a peer's variant lacks, each with how often it was left out.
using LeftOut = std::map<std::string, uint64_t>;

/// Builds the message under D and writes its wire form. Fields that the peer lacks are left out. The status word is
/// ZUR_NOT_IN_VARIANT when the peer cannot be given the message at all.
std::vector<uint8_t> wire_form(zur_domain* D, const Statement& statement, LeftOut& left_out, uint32_t* st);

/// Reads a message and gives its print form, under a name that the first line begins with.
std::string print_form(zur_domain* D, std::span<const uint8_t> wire, const std::string& name, uint32_t* st);

} // namespace exchange
