// What orlan-epm compat finds: made-up changes to this library's description, one at a time, each with the rules that
// must find it and no others; and what it refuses. Its command line is in a transcript; libraries that are really built
// with a change are in scripts/check-compat.
#include "tool/compat/compat.hpp"
#include "tool/failure.hpp"
#include "tool/library_file.hpp"

#include <elf.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstring>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>

namespace epm::tool::compat {
namespace {

using nlohmann::json;

constexpr const char* acl = "orlan_ial_svm_acl_data"; // three variants, values at the end of each
constexpr const char* vlan = "rcl_client_vlan_t";     // one variant; six characters, then a MAC, an imported value
constexpr const char* message = "orlan_ial_svm_epm_data";
constexpr const char* tag = "orlan_ial_svm_epm_type_e"; // of the message
constexpr const char* digest = "0123456789abcdef0123456789abcdef";

const json& base() {
    static const json description = json::parse(std::ifstream(EPM_STAMPED_DIR "/orlan_epm.json"));
    return description;
}

std::size_t place(const json& list, const std::string& name) {
    std::size_t i = 0;
    while (list.at(i)["name"] != name) ++i;
    return i;
}
json& named(json& list, const std::string& name) {
    return list[place(list, name)];
}
void insert(json& list, std::size_t at, json element) {
    list.insert(list.begin() + static_cast<std::ptrdiff_t>(at), std::move(element));
}
json& type(json& d, const char* name) {
    return named(d["types"], name);
}
json& field(json& d, const char* of, const char* name) {
    return named(type(d, of)["fields"], name);
}
/// A change of a type with which a new compatibility digest comes.
json& fresh(json& d, const char* name) {
    type(d, name)["compatibility"] = digest;
    return type(d, name);
}
json new_field(const char* kind, const char* of, unsigned since, unsigned offset = 500) {
    return {{"name", "added"},  {"kind", kind}, {"type", of},        {"since", since},
            {"offset", offset}, {"size", 4u},   {"state_flag", 200u}};
}
/// A further variant of a record, with one field.
void add_variant(json& d, const char* name, json added) {
    json& t = fresh(d, name);
    json variant = t["variants"].back();
    variant["variant"] = added["since"];
    t["top_variant"] = added["since"];
    t["size"] = t["size"].get<unsigned>() + 8;
    t["variants"].push_back(variant);
    t["fields"].push_back(std::move(added));
}
void renumber(json& list, const char* member) {
    for (std::size_t i = 0; i < list.size(); ++i) list[i][member] = i;
}
void insert_enumerator(json& d, const char* of, std::size_t at, const char* name, unsigned since) {
    json& list = fresh(d, of)["enumerators"];
    insert(list, at, {{"name", name}, {"since", since}});
    renumber(list, "number");
}
void insert_trace(json& d, std::size_t at) {
    insert(d["traces"], at, {{"identifier", 7u}, {"key", "new#0#0"}, {"text", " new"}});
    renumber(d["traces"], "index");
}

struct Change {
    const char* what;
    std::function<void(json&)> make;
    std::set<std::string> found; ///< "rule place"
};

const Change changes[] = {
    {"nothing", [](json&) {}, {}},
    {"sentences",
     [](json& d) { type(d, acl)["description"] = field(d, acl, "sequence")["description"] = "Other."; },
     {}},
    {"title", [](json& d) { type(d, acl)["title"] = "Rule"; }, {"abi.title acl"}},
    {"version", [](json& d) { d["version"] = "1.1.0"; }, {}},
    {"member that is unknown here", [](json& d) { d["more"] = field(d, acl, "sequence")["more"] = 1; }, {}},

    // Fields.
    {"value appended in a new variant",
     [](json& d) { add_variant(d, acl, new_field("value", "u_int32", 3)); },
     {"abi.variant-added acl", "wire.variant-added acl"}},
    {"the same without a new digest",
     [](json& d) {
         add_variant(d, acl, new_field("value", "u_int32", 3));
         type(d, acl)["compatibility"] = base()["types"][0]["compatibility"];
     },
     {"abi.variant-added acl", "wire.variant-added acl", "wire.compatibility-kept acl"}},
    {"text appended in a new variant, so that it is last",
     [](json& d) { add_variant(d, acl, new_field("text", "char", 3)); },
     {"abi.variant-added acl", "wire.variant-added acl", "xml.text-added acl.added"}},
    {"value appended in a variant that is there",
     [](json& d) { fresh(d, acl)["fields"].push_back(new_field("value", "u_int32", 2)); },
     {"wire.field-inserted acl.added"}},
    {"variant left out",
     [](json& d) {
         add_variant(d, vlan, new_field("value", "u_int32", 2));
         insert(type(d, vlan)["variants"], 1, type(d, vlan)["variants"][0]);
         type(d, vlan)["variants"][1]["variant"] = 1u;
     },
     {"abi.variant-added vlan", "wire.variant-added vlan", "wire.variant-skipped vlan"}},
    {"field inserted in the middle, what lies behind it being moved",
     [](json& d) {
         json& t = fresh(d, vlan);
         insert(t["fields"], 1, new_field("value", "u_int32", 0, 16));
         for (std::size_t i = 2; i < t["fields"].size(); ++i) {
             json& f = t["fields"][i];
             f["offset"] = f["offset"].get<unsigned>() + 8;
             f["state_flag"] = f["state_flag"].get<unsigned>() + 1;
         }
         t["variants"][0]["used_length"] = 64u;
     },
     {"wire.field-inserted vlan.added", "abi.offset vlan.pref", "abi.flag-place vlan.pref", "abi.length vlan"}},
    {"text inserted in front of a value",
     [](json& d) { insert(fresh(d, vlan)["fields"], 1, new_field("text", "char", 0)); },
     {"wire.field-inserted vlan.added", "xml.text-added vlan.added"}},
    {"field removed",
     [](json& d) { fresh(d, vlan)["fields"].erase(2); },
     {"wire.field-removed vlan.vlan_value", "xml.field-lost vlan.vlan_value"}},
    {"fields swapped",
     [](json& d) { std::swap(fresh(d, vlan)["fields"][1], type(d, vlan)["fields"][2]); },
     {"wire.field-moved vlan.pref"}},
    {"first field put last",
     [](json& d) {
         std::rotate(fresh(d, vlan)["fields"].begin(), type(d, vlan)["fields"].begin() + 1,
                     type(d, vlan)["fields"].end());
     },
     {"wire.field-moved vlan.gidb_handle"}},
    {"field renamed",
     [](json& d) { fresh(d, acl)["fields"][4]["name"] = "number"; },
     {"wire.field-renamed acl.sequence", "xml.field-renamed acl.sequence"}},
    {"length renamed, which documents do not have",
     [](json& d) {
         fresh(d, acl)["fields"][0]["name"] = "name_length";
         field(d, acl, "acl_name")["length_field"] = "name_length";
     },
     {"wire.field-renamed acl.max_acl_length"}},
    {"lengths of two texts swapped",
     [](json& d) {
         fresh(d, acl);
         std::swap(field(d, acl, "acl_name")["length_field"], field(d, acl, "ace_name")["length_field"]);
     },
     {"wire.length-field acl.acl_name", "wire.length-field acl.ace_name"}},
    {"wider number",
     [](json& d) { fresh(d, vlan)["fields"][1]["type"] = "u_int64"; },
     {"wire.field-retyped vlan.pref"}},
    {"narrower number",
     [](json& d) { fresh(d, vlan)["fields"][1]["type"] = "u_int16"; },
     {"wire.field-retyped vlan.pref", "xml.value-form vlan.pref"}},
    {"number that becomes a boolean of the same bytes",
     [](json& d) { fresh(d, vlan)["fields"][1]["type"] = "zur_boolean"; },
     {"wire.same-bytes vlan.pref", "xml.value-form vlan.pref"}},
    {"characters that become a run, with more state flags",
     [](json& d) { fresh(d, vlan)["fields"][3]["kind"] = "run"; },
     {"wire.field-retyped vlan.ieee_mac", "xml.value-form vlan.ieee_mac"}},
    {"arm of another record",
     [](json& d) { fresh(d, message)["fields"][1]["type"] = "orlan_ial_svm_acl_apply"; },
     {"wire.field-retyped message.acl_data", "xml.value-form message.acl_data"}},
    {"fewer characters",
     [](json& d) { fresh(d, vlan)["fields"][3]["elements"] = 5u; },
     {"wire.capacity vlan.ieee_mac", "xml.capacity vlan.ieee_mac"}},
    {"more characters", [](json& d) { fresh(d, vlan)["fields"][3]["elements"] = 8u; }, {"wire.capacity vlan.ieee_mac"}},
    {"field in an earlier variant",
     [](json& d) { fresh(d, acl)["fields"][8]["since"] = 0u; },
     {"wire.field-variant acl.p_sequence"}},
    {"last variant withdrawn",
     [](json& d) {
         json& t = fresh(d, acl);
         t["top_variant"] = 1u;
         t["variants"].erase(2);
         t["fields"].erase(12);
         t["fields"].erase(11);
     },
     {"abi.variant-withdrawn acl", "wire.variant-withdrawn acl", "xml.field-lost acl.is_domain",
      "xml.field-lost acl.ip_addr"}},
    {"block of flags grown", [](json& d) { type(d, vlan)["variants"][0]["state_flags"] = 7u; }, {"abi.length vlan"}},
    {"links moved",
     [](json& d) { type(d, "epm_client_acl_feat_ctx")["links"] = 8u; },
     {"abi.links epm_client_acl_feat_ctx"}},

    // Arms and enumerators.
    {"arm added in a new variant, with its enumerator",
     [](json& d) {
         json arm = new_field("arm", acl, 2);
         arm["tag"] = 11u;
         add_variant(d, message, arm);
         insert_enumerator(d, tag, 11, "ADDED", 2);
         type(d, tag)["top_variant"] = 2u;
     },
     {"abi.variant-added message", "wire.variant-added message", "wire.variant-added tag"}},
    {"tags of two arms swapped",
     [](json& d) {
         fresh(d, message);
         std::swap(field(d, message, "acl_data")["tag"], field(d, message, "bm_data")["tag"]);
     },
     {"wire.arm-tag message.acl_data", "wire.arm-tag message.bm_data"}},
    {"enumerator appended in a variant that is there",
     [](json& d) {
         insert_enumerator(d, "coa_request_type", base()["types"].back()["enumerators"].size(), "ADDED", 0);
     },
     {"wire.enumerator-added coa_request_type.ADDED"}},
    {"enumerator inserted in front of the last one",
     [](json& d) { insert_enumerator(d, tag, 10, "ADDED", 1); },
     {"wire.enumerator-added tag.ADDED", "wire.enumerator-number tag.ORLAN_IAL_SVM_EPM_TYPE_DACL_DNLD_COMPLETE",
      "abi.enumerator tag.ORLAN_IAL_SVM_EPM_TYPE_DACL_DNLD_COMPLETE"}},
    {"enumerator renamed",
     [](json& d) { type(d, tag)["enumerators"][1]["name"] = "OTHER"; },
     {"abi.enumerator-name tag.ORLAN_IAL_SVM_EPM_TYPE_ACL", "wire.enumerator-renamed tag.ORLAN_IAL_SVM_EPM_TYPE_ACL",
      "xml.enumerator-renamed tag.ORLAN_IAL_SVM_EPM_TYPE_ACL"}},
    {"last enumerator removed, but not its variant",
     [](json& d) { fresh(d, tag)["enumerators"].erase(10); },
     {"abi.enumerator tag.ORLAN_IAL_SVM_EPM_TYPE_DACL_DNLD_COMPLETE",
      "wire.enumerator-removed tag.ORLAN_IAL_SVM_EPM_TYPE_DACL_DNLD_COMPLETE",
      "xml.enumerator-lost tag.ORLAN_IAL_SVM_EPM_TYPE_DACL_DNLD_COMPLETE"}},
    {"enumerator of an earlier variant",
     [](json& d) { fresh(d, tag)["enumerators"][10]["since"] = 0u; },
     {"wire.enumerator-variant tag.ORLAN_IAL_SVM_EPM_TYPE_DACL_DNLD_COMPLETE"}},

    // Types.
    {"type added at the end of the enumerations",
     [](json& d) {
         json t = type(d, tag);
         t["name"] = "added", t["identity"] = t["compatibility"] = digest;
         d["types"].push_back(t);
     },
     {"wire.type-added added"}},
    {"type added in the middle",
     [](json& d) {
         json t = type(d, vlan);
         t["name"] = "added", t["identity"] = t["compatibility"] = digest;
         insert(d["types"], 1, t);
     },
     {"wire.type-added added", "abi.type-order "}},
    {"type removed",
     [](json& d) { d["types"].erase(place(d["types"], "webauth_watch_list")); },
     {"wire.type-lost webauth_watch_list", "xml.type-lost webauth_watch_list"}},
    {"type renamed, also in the fields that have it",
     [](json& d) {
         type(d, acl)["name"] = "renamed";
         field(d, message, "acl_data")["type"] = "renamed";
     },
     {"wire.type-renamed acl", "xml.type-renamed acl"}},
    {"record that becomes an enumeration",
     [](json& d) {
         fresh(d, "webauth_watch_list")["kind"] = "enum";
         type(d, "webauth_watch_list")["enumerators"] = json::array();
     },
     {"wire.kind webauth_watch_list", "xml.field-lost webauth_watch_list.wl_ip"}},
    {"other identity", [](json& d) { type(d, acl)["identity"] = digest; }, {"wire.identity acl"}},
    {"identities of two types swapped",
     [](json& d) { std::swap(type(d, acl)["identity"], type(d, vlan)["identity"]); },
     {"wire.identity acl", "wire.identity vlan", "wire.identity-reused acl", "wire.identity-reused vlan"}},
    {"digest changed, the type not", [](json& d) { fresh(d, acl); }, {"wire.compatibility-changed acl"}},
    {"imported type of another size",
     [](json& d) { named(d["imported_types"], "ip_address")["size"] = 56u; },
     {"abi.imported ip_address"}},
    {"imported type of other bytes",
     [](json& d) { named(d["imported_types"], "zur_boolean")["wire_length"] = 1u; },
     {"wire.imported-framing zur_boolean"}},

    // Exports and traces.
    {"export lost",
     [](json& d) { d["functions"].erase(place(d["functions"], "orlan_ial_svm_acl_data_sequence_set")); },
     {"abi.export-lost acl.sequence"}},
    {"exports added",
     [](json& d) {
         d["functions"].push_back({{"name", "orlan_ial_svm_acl_data_more"}, {"signature", "int (void)"}});
         d["data"].push_back("_rcl_client_vlan_t_type_info_internal_2");
     },
     {"abi.export-added acl", "abi.export-added "}},
    {"parameter renamed", [](json& d) { d["functions"][0]["signature"] = "void* (void* other)"; }, {}},
    {"parameter of another type",
     [](json& d) {
         named(d["functions"], "orlan_ial_svm_acl_data_sequence_get_value")["signature"] = "uint32_t (void)";
     },
     {"abi.signature acl.sequence"}},
    {"SONAME and version node",
     [](json& d) { d["soname"] = "liborlan_epm.so.2", d["version_node"] = "ORLAN_EPM_2"; },
     {"abi.soname ", "abi.version-node "}},
    {"message inserted, digest kept", [](json& d) { insert_trace(d, 5); }, {"trace.digest-kept "}},
    {"message appended, with a new digest",
     [](json& d) { insert_trace(d, d["traces"].size()), d["trace_digest"] = digest; },
     {"trace.indices "}},
    {"new digest, same messages", [](json& d) { d["trace_digest"] = digest; }, {"trace.digest-changed "}},
    {"message of the same identifier changed",
     [](json& d) { d["traces"][5]["text"] = " other", d["trace_digest"] = digest; },
     {"trace.indices ", "trace.identifier-reused "}},
    {"other identifier", [](json& d) { d["traces"][5]["identifier"] = 7u; }, {"trace.identifier-changed "}},
};

std::string short_name(const std::string& type_name) {
    for (const auto& [name, word] : {std::pair(acl, "acl"), {vlan, "vlan"}, {message, "message"}, {tag, "tag"}})
        if (type_name == name) return word;
    return type_name;
}

Findings found_in(const json& changed) {
    static const Description old = parse(base().dump());
    return compare(old, parse(changed.dump()));
}

std::string text_file(const char* name) {
    std::ostringstream text;
    text << std::ifstream(std::string(EPM_SOURCE_DIR "/") + name).rdbuf();
    return text.str();
}

TEST(Compat, FindsEachChangeByItsRulesAlone) {
    std::set<std::string> used{"abi.import", "abi.import-weak", "abi.needed"}; // of library files
    for (const Change& change : changes) {
        json changed = base();
        change.make(changed);
        std::set<std::string> found;
        int bits = 0;
        const Findings findings = found_in(changed);
        for (const Finding& f : findings) {
            found.insert(std::string(f.rule->id) + " " + short_name(f.type) + (f.field.empty() ? "" : "." + f.field));
            used.emplace(f.rule->id);
            if (f.rule->breaks) bits |= 16 << static_cast<int>(f.rule->level());
        }
        EXPECT_EQ(found, change.found) << change.what;
        EXPECT_EQ(exit_status(findings), bits) << change.what;
    }
    const std::string page = text_file("docs/compat-rules.md") + text_file("docs/compat-rules-peers.md");
    for (const Rule& rule : rules) {
        EXPECT_TRUE(used.contains(std::string(rule.id))) << "no change is found by " << rule.id;
        EXPECT_NE(page.find("`" + std::string(rule.id) + "`"), page.npos) << "the pages lack " << rule.id;
    }
}

TEST(Compat, TellsWhatAStoreMisreads) {
    json changed = base();
    std::ranges::find(changes, std::string_view("field inserted in the middle, what lies behind it being moved"),
                      &Change::what)
        ->make(changed);
    for (const Finding& f : found_in(changed))
        if (f.rule->id == "abi.offset") {
            EXPECT_EQ(f.details.size(), 5u);
            EXPECT_EQ(f.details[0], "pref: offset 16, now 24");
        }
}

// What only library files have.
TEST(Compat, ComparesWhatLibraryFilesNeed) {
    Description old = parse(base().dump()), now = old;
    old.needs = Needs{{"libzur.so"}, {"zur_store_err", "abort"}, {"zur_plain_declaration"}};
    now.needs = Needs{{"libzur.so", "libm.so.6"}, {"abort", "sin", "zur_plain_declaration"}, {"more"}};
    std::set<std::string> found;
    for (const Finding& f : compare(old, now)) found.insert(std::string(f.rule->id) + " " + f.details.at(0));
    EXPECT_EQ(found, (std::set<std::string>{"abi.import sin", "abi.import-weak more", "abi.needed libm.so.6"}));
    now.needs.reset();
    EXPECT_TRUE(compare(old, now).empty());
}

TEST(Compat, AcceptsWhatAFileNames) {
    json changed = base();
    fresh(changed, vlan)["fields"].erase(2);
    Findings findings = found_in(changed);
    EXPECT_EQ(exit_status(findings), 32 | 64);
    const auto unused =
        accept(findings, "# text\n\nwire.field-removed rcl_client_vlan_t vlan_value # why\n"
                         "wire.field-removed rcl_client_vlan_t pref\nxml.field-lost webauth_watch_list\n");
    EXPECT_EQ(exit_status(findings), 64);
    ASSERT_EQ(unused.size(), 2u);
    EXPECT_EQ(unused[0].line, 4u);
    EXPECT_TRUE(accept(findings, "xml.field-lost *").empty());
    EXPECT_EQ(exit_status(findings), 0);
    for (const char* file : {"wire.field-remove *", "wire.field-removed", "wire.field-removed a b c"})
        EXPECT_THROW(accept(findings, file), Failure) << file;
}

// ---- files that are damaged, or not what they say ----

std::string refusal(const std::function<void()>& body) {
    try {
        body();
    } catch (const Failure& failure) {
        return failure.reason;
    } catch (const Damage& damage) {
        return damage.reason;
    }
    return "";
}

TEST(Compat, RefusesDescriptionsThatItDoesNotUnderstand) {
    const std::pair<const char*, std::function<void(json&)>> cases[] = {
        {"format is 2", [](json& d) { d["format"] = 2u; }},
        {"another library, other", [](json& d) { d["library"] = "other"; }},
        {"not one", [](json& d) { d.erase("library"); }},
        {"no member types", [](json& d) { d.erase("types"); }},
        {"types[0].fields[1]: no member offset", [](json& d) { d["types"][0]["fields"][1].erase("offset"); }},
        {"types[0].identity: not 32", [](json& d) { d["types"][0]["identity"] = "6243"; }},
        {"types[0].name: not a name", [](json& d) { d["types"][0]["name"] = "a\033[2Jb"; }},
        {"not a number of 32 bits", [](json& d) { d["types"][0]["size"] = -1; }},
        {"types[0].fields[9]: variants fall", [](json& d) { d["types"][0]["fields"][9]["since"] = 0u; }},
        {"of a later variant", [](json& d) { d["types"][0]["fields"][12]["since"] = 3u; }},
        {"not one entry for each variant", [](json& d) { d["types"][0]["variants"].erase(2); }},
        {"a second 62438151968d80c2a0cb2cdbfd820a43",
         [](json& d) { type(d, vlan)["identity"] = d["types"][0]["identity"]; }},
        {"a second pref", [](json& d) { field(d, vlan, "vlan_value")["name"] = "pref"; }},
        {"unknown type, other", [](json& d) { field(d, vlan, "pref")["type"] = "other"; }},
        {"traces[3]: not the next index", [](json& d) { d["traces"][3]["index"] = 4u; }},
        {"above 127", [](json& d) { d["types"][0]["top_variant"] = 4000000000u; }},
    };
    for (const auto& [reason, make] : cases) {
        json changed = base();
        make(changed);
        EXPECT_NE(refusal([&] { parse(changed.dump()); }).find(reason), std::string::npos)
            << reason << " / " << refusal([&] { parse(changed.dump()); });
    }
    EXPECT_EQ(refusal([] { parse("{\"format\": 1,"); }), "the description is not JSON");
    EXPECT_NE(refusal([] { parse("{\"format\": 1e999}"); }).find("too large"), std::string::npos);
    EXPECT_NE(refusal([] { parse(std::string(4000000, '[')); }), "");
}

/// The library file, of which a part can be overwritten.
struct LibraryFile {
    Bytes bytes = read_file(EPM_LIBRARY_FILE, most_library);

    std::size_t offset(const char* section) const { return section_named(bytes, section).offset; }
    /// Of a name in the table of strings, with the NUL in front and the one behind.
    std::size_t offset_of_name(const std::string& name) const {
        return as_text(bytes).find(std::string(1, '\0') + name + '\0', offset(".dynstr")) + 1;
    }
    LibraryFile& put(std::size_t at, std::initializer_list<int> values) {
        for (const int value : values) bytes.at(at++) = static_cast<std::uint8_t>(value);
        return *this;
    }
    std::string refusal() const {
        return compat::refusal([&] { read(bytes, EPM_LIBRARY_FILE); });
    }
};

TEST(Compat, RefusesLibraryFilesThatAreDamagedOrNotAsDescribed) {
    const LibraryFile sound;
    ASSERT_EQ(sound.refusal(), "");
    const auto with = [&](std::size_t at, std::initializer_list<int> values) {
        return LibraryFile(sound).put(at, values).refusal();
    };
    constexpr std::size_t an_export = 1000;
    const std::size_t symbols = sound.offset(".dynsym"), versions = sound.offset(".gnu.version"),
                      nodes = sound.offset(".gnu.version_d");
    EXPECT_EQ(with(0, {'x'}), "neither an ELF file nor a description in JSON");
    EXPECT_EQ(with(EI_CLASS, {ELFCLASS32}), "not a 64-bit little-endian ELF file");
    EXPECT_EQ(with(symbols + an_export * sizeof(Elf64_Sym), {255, 255, 255, 255}), "a name lies outside .dynstr");
    EXPECT_NE(with(symbols + an_export * sizeof(Elf64_Sym) + 6, {0, 0}).find("it does not export "), std::string::npos);
    EXPECT_NE(with(versions + an_export * 2, {1, 0}).find("in another version node"), std::string::npos);
    EXPECT_EQ(with(nodes + offsetof(Elf64_Verdef, vd_aux), {0, 0, 1, 0}), "an entry lies outside .gnu.version_d");
    EXPECT_EQ(with(nodes + offsetof(Elf64_Verdef, vd_next), {254, 255, 255, 255}),
              "an entry lies outside .gnu.version_d");
    EXPECT_EQ(with(sound.offset_of_name("liborlan_epm.so.1") + 3, {'x'}),
              "the description is not of this file: its SONAME is libxrlan_epm.so.1");
    EXPECT_NE(with(sound.offset(".corbe") + 40, {'x'}).find("other digests"), std::string::npos);
    EXPECT_EQ(with(sound.offset(".orlan_epm_description") + 100, {0, 0, 0, 0}), "the description's stream is damaged");

    // The description of another library in a file that is otherwise sound.
    json other = base();
    other["functions"].erase(7);
    Description description = parse(other.dump());
    EXPECT_NE(refusal([&] { check_against(sound.bytes, description); }).find("it also exports "), std::string::npos);
    other = base();
    other["trace_digest"] = digest;
    description = parse(other.dump());
    EXPECT_EQ(refusal([&] { check_against(sound.bytes, description); }),
              "the description is not of this file: its traces have another digest");
}

// Wherever the file is cut or hit, reading it ends with a word or with what it says.
TEST(Compat, SurvivesAnyLibraryFile) {
    const LibraryFile sound;
    Description description = parse(base().dump());
    const auto check = [&](ByteView file) { return refusal([&] { check_against(file, description); }); };
    for (std::size_t length = 0; length < sound.bytes.size(); length += sound.bytes.size() / 97)
        EXPECT_NE(check(ByteView(sound.bytes).first(length)), "") << length;
    LibraryFile file = sound;
    const auto hit = [&](std::size_t start, std::size_t length, std::size_t step) {
        for (std::size_t at = start; at < std::min(start + length, file.bytes.size()); at += step)
            for (const int value : {0, 127, 255}) {
                const int before = file.bytes[at];
                file.put(at, {value});
                check(file.bytes);
                file.put(at, {before});
            }
    };
    Elf64_Ehdr header;
    std::memcpy(&header, file.bytes.data(), sizeof header);
    hit(0, sizeof header, 1);
    hit(header.e_shoff, std::size_t{header.e_shnum} * sizeof(Elf64_Shdr), 29);
    hit(file.offset(".gnu.version_d"), 56, 3);
    hit(file.offset(".dynamic"), 160, 5);
    hit(file.offset(".dynsym") + 24000, 72, 5);
}

} // namespace
} // namespace epm::tool::compat
