// The tool orlan-epm: its output for the golden corpus, compared with the images' own remarks; its output for damaged
// messages and libraries; and its command line. The expected texts are kept in expected/tool; EPM_WRITE_GOLDEN=1 writes
// them anew.
#include "support/wire.hpp"
#include "tool/annotate.hpp"
#include "tool/failure.hpp"
#include "tool/hex_dump.hpp"
#include "tool/library_file.hpp"
#include "tool/manifest.hpp"
#include "tool/message.hpp"
#include "tool/traces.hpp"
#include "tool/walk.hpp"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace epm::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

const std::filesystem::path expected_folder = EPM_SOURCE_DIR "/tests/expected/tool";

std::string content(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// Holds a text against the kept one.
void expect_kept(const char* file, const std::string& text) {
    if (std::getenv("EPM_WRITE_GOLDEN") != nullptr) std::ofstream(expected_folder / file, std::ios::binary) << text;
    EXPECT_EQ(text, content(expected_folder / file)) << file;
}

/// Holds what is told of each case of a kept file against it: a line of equals signs and words, the case, and behind
/// dashes what is told. Gives how many there are.
std::size_t expect_kept_cases(const char* file,
                              const std::function<std::string(const std::string&, const std::string&)>& answer) {
    std::istringstream in(content(expected_folder / file));
    std::string text;
    std::size_t count = 0;
    for (std::string line, words, given; std::getline(in, line);) {
        if (!line.starts_with("==== ")) continue;
        words = line.substr(5);
        for (given.clear(); std::getline(in, line) && !line.starts_with("----");) given += line + "\n";
        text += "==== " + words + "\n" + given + "----" + answer(words, given);
        ++count;
    }
    expect_kept(file, text);
    return count;
}

std::string told(const std::function<void(std::ostream&)>& subcommand) {
    std::ostringstream out;
    try {
        subcommand(out);
    } catch (const tool::Damage& damage) {
        out << "damaged at " << damage.offset << ": " << damage.reason << "\n";
    } catch (const tool::Failure& failure) {
        out << "refused: " << failure.reason << "\n";
    }
    return out.str();
}

std::string annotated(const tool::Type& type, const Bytes& image, bool is_json = false) {
    return told([&](std::ostream& out) { tool::annotate(type, image, is_json, out); });
}

std::string decoded(const tool::Type& type, const Bytes& image, tool::TextForm form = tool::TextForm::print) {
    return told([&](std::ostream& out) { out << tool::decode(type, image, form, {}); });
}

void for_each_image(const std::function<void(const tool::Type&, const std::string&, const Bytes&)>& body) {
    std::size_t count = 0;
    for (const WireType& type : wire_types())
        for (const auto& [name, image] : read_golden(type)) {
            SCOPED_TRACE(name);
            body(tool::type_named(type.name), name, image);
            ++count;
        }
    EXPECT_EQ(count, 310u);
}

// ---- the golden corpus ----

/// A range as the images' remarks name it: "acl_data.jump", "epm_type variant", "vlans state flags".
std::string name_in_corpus(const tool::Type& type, const tool::Part& part) {
    using Kind = tool::Part::Kind;
    const bool is_outermost = part.path == type.name;
    const bool is_of_record =
        std::ranges::any_of(catalogue::all_records, [&](const Record* r) { return part.type == r->name; });
    const std::string record = is_outermost ? "" : part.path + ".";
    switch (part.kind) {
    case Kind::variant: return is_of_record ? record + "variant" : part.path + " variant";
    case Kind::flags: return record + "flags";
    case Kind::jump_word: return record + "jump";
    case Kind::count: return part.path + " count";
    case Kind::prefix: return part.path + " " + part.type;
    case Kind::state_flags: return part.path + (part.length == 1 ? " state flag" : " state flags");
    default: return part.path;
    }
}

TEST(ToolCorpus, EachByteIsAnnotatedAsTheCorpusNamesIt) {
    for_each_image([](const tool::Type& type, const std::string&, const Bytes& image) {
        std::string found, wanted;
        const auto line = [](std::string& to, std::size_t offset, std::size_t length, const std::string& name) {
            to += std::to_string(offset) + " " + std::to_string(length) + " " + name + "\n";
        };
        std::size_t covered = 0;
        tool::walk(type, image, [&](const tool::Part& part) {
            line(found, part.offset, part.length, name_in_corpus(type, part));
            covered += part.length;
        });
        for (const Parts::Part& part : take_apart(wire_type(type.name), image).parts)
            line(wanted, part.offset, part.length, part.name);
        EXPECT_EQ(found, wanted);
        EXPECT_EQ(covered, image.size());
    });
}

TEST(ToolCorpus, IsShownAsItWas) {
    std::string digests = "# Digests of annotate, decode and decode --xml of each golden image.\n";
    const auto digest = [](const std::string& text) {
        std::uint64_t value = 0xCBF29CE484222325u;
        for (const char c : text) value = (value ^ static_cast<unsigned char>(c)) * 0x100000001B3u;
        std::ostringstream out;
        out << std::hex << std::setw(16) << std::setfill('0') << value << " ";
        return out.str();
    };
    std::string shown;
    const std::set<std::string> in_full = {
        "orlan_ial_vlan_group_info, variant 0, tracked",    "orlan_ial_svm_epm_data, variant 1, tracked, acl_data",
        "rcl_sess_mgr_authorize_ack, variant 0, untracked", "auth_mgr_linksec_event, variant 0, untracked",
        "rcl_client_intf_templ_list, variant -1, tracked",  "orlan_ial_svm_epm_in_e, variant 0, untracked"};
    for_each_image([&](const tool::Type& type, const std::string& name, const Bytes& image) {
        const std::string annotate = annotated(type, image), print = decoded(type, image),
                          xml = decoded(type, image, tool::TextForm::xml);
        digests += digest(annotate) + digest(print) + digest(xml) + name + "\n";
        if (in_full.contains(name))
            shown +=
                "==== " + name + "\n---- annotate\n" + annotate + "---- decode\n" + print + "---- decode --xml\n" + xml;
    });
    expect_kept("corpus.txt", digests);
    expect_kept("images.txt", shown);
}

TEST(ToolCorpus, ComesBackFromItsXml) {
    static const std::regex notes("<\\?orlan-epm[^?]*\\?>\n");
    for_each_image([&](const tool::Type& type, const std::string& name, const Bytes& image) {
        const std::string xml = tool::decode(type, image, tool::TextForm::xml, {});
        const tool::Encoded back = tool::encode(type, xml, {});
        EXPECT_EQ(back.message, image);
        EXPECT_TRUE(back.losses.empty());
        // Without its notes a document makes an untracked message of the variant that is agreed.
        if (name.find(", tracked") != name.npos) return;
        const auto agreed = static_cast<std::int8_t>(image[0]);
        EXPECT_EQ(tool::encode(type, std::regex_replace(xml, notes, ""), agreed).message, image);
    });
}

// ---- what is lost between a document and its message ----

std::string told_losses(const std::string& type, const std::string& xml, tool::Agreed agreed = {},
                        bool lenient = false) {
    return told([&](std::ostream& out) {
        for (const tool::Loss& loss : tool::encode(tool::type_named(type), xml, agreed, lenient).losses)
            out << (loss.kind == tool::Loss::Kind::lost ? "" : "no loss: ") << loss.line() << "\n";
    });
}

// The words are the type, what the document has, and "lenient" or the agreed variant.
TEST(ToolLosses, AreToldWithPathAndCause) {
    const auto answer = [](const std::string& words, const std::string& xml) {
        const bool has_agreed = words.ends_with("agreed 0");
        return "\n" + told_losses(words.substr(0, words.find(':')), xml,
                                  has_agreed ? tool::Agreed(std::int8_t{0}) : tool::Agreed(),
                                  words.ends_with("lenient"));
    };
    EXPECT_EQ(expect_kept_cases("losses.txt", answer), 21u);
    EXPECT_EQ(told_losses("orlan_ial_svm_epm_data", content(EPM_SOURCE_DIR "/examples/policy_exchange/grant.xml")), "");
}

// Each element in turn under a name that no field has.
TEST(ToolLosses, MissEachElement) {
    static const std::regex element("\n *<([^/>]+)>?");
    for_each_image([&](const tool::Type& type, const std::string&, const Bytes& image) {
        const std::string xml = tool::decode(type, image, tool::TextForm::xml, {});
        for (std::sregex_iterator i(xml.begin(), xml.end(), element), end; xml.size() < 4096 && i != end; ++i) {
            const auto start = static_cast<std::size_t>(i->position(1));
            std::string other = xml;
            if (const auto close = xml.find("</" + i->str(1) + ">", start); close != xml.npos)
                other.insert(close + 2, "x");
            EXPECT_NE(told_losses(type.name, other.insert(start, "x")), "") << other;
        }
    });
}

// ---- hexadecimal digits ----

TEST(ToolHex, TakesWhatProgramsPrintAndNothingAmbiguous) {
    const auto answer = [](const std::string&, const std::string& text) {
        return "\n" + told([&](std::ostream& out) { out << tool::to_hex(tool::from_hex(text)) << "\n"; });
    };
    EXPECT_EQ(expect_kept_cases("hex.txt", answer), 24u);
}

// ---- damaged messages ----

TEST(ToolDamage, IsToldWithItsPlace) {
    const auto answer = [](const std::string& words, const std::string& digits) {
        const tool::Type& type = tool::type_named(words.substr(0, words.find(':')));
        const Bytes image = tool::from_hex(digits);
        const std::string as_json = annotated(type, image, true);
        const std::size_t end = as_json.find("damaged at");
        EXPECT_EQ(json::parse(as_json.substr(0, end))["fault"].is_null(), end == as_json.npos) << words;
        return " annotate\n" + annotated(type, image) + "---- decode\n" + decoded(type, image);
    };
    EXPECT_EQ(expect_kept_cases("damaged.txt", answer), 22u);
}

// Wherever a message is cut, the parts before the cut are told in a row, and decode refuses what annotate does.
TEST(ToolDamage, CutAnywhereIsToldUpToTheCut) {
    for_each_image([](const tool::Type& type, const std::string&, const Bytes& image) {
        for (std::size_t length = 0; length < image.size(); length += length < 64 ? 1 : 13) {
            const Bytes cut(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(length));
            std::size_t told_to = 0;
            try {
                tool::walk(type, cut, [&](const tool::Part& part) {
                    ASSERT_EQ(part.offset, told_to);
                    told_to += part.length;
                });
                FAIL() << "accepted when cut to " << length;
            } catch (const tool::Damage& damage) {
                EXPECT_EQ(damage.offset, told_to);
                EXPECT_LE(damage.offset, length);
            }
        }
    });
}

// ---- library files ----

class ToolLibrary : public testing::Test {
protected:
    static tool::Bytes bytes() { return tool::read_file(EPM_LIBRARY_FILE, tool::most_library); }
    static std::string manifest(const Bytes& library, bool is_json = false) {
        return told([&](std::ostream& out) { tool::show_manifest(library, is_json, out); });
    }
    static std::string traces(const Bytes& library, std::optional<std::uint32_t> index = {}, bool is_json = false) {
        return told([&](std::ostream& out) { tool::show_traces(library, index, is_json, out); });
    }
};

TEST_F(ToolLibrary, DeclaresAllTypesAndHoldsAllTraces) {
    const json declared = json::parse(manifest(bytes(), true)), held = json::parse(traces(bytes(), {}, true));
    EXPECT_EQ(declared["types"].size(), 58u);
    EXPECT_EQ(declared["build"].size(), 7u);
    EXPECT_TRUE(declared["fault"].is_null());
    for (const json& type : declared["types"]) {
        EXPECT_EQ(type["top_variant"], tool::type_named(type["name"]).top());
        EXPECT_THAT(manifest(bytes()), HasSubstr(type["identity"].get<std::string>()));
    }
    ASSERT_EQ(held["messages"].size(), 3026u);
    EXPECT_EQ(held["messages"][117]["text"], " error in orlan_ial_svm_acl_data create: %s");
    EXPECT_THAT(traces(bytes(), 117), HasSubstr("  error in orlan_ial_svm_acl_data create: %s\n"));
    EXPECT_EQ(traces(bytes(), 3026), "refused: no message 3026 among 3026\n");
}

/// One byte of a section changed, and what is told of it then.
TEST_F(ToolLibrary, IsToldOfWhereItIsDamaged) {
    const tool::Bytes sound = bytes();
    const tool::Section corbe = tool::section_named(sound, ".corbe"),
                        table = tool::section_named(sound, ".quelog_luids_", tool::Match::start),
                        texts = tool::section_named(sound, ".quelog_format_strings");
    // How long the second record is, is the build's business.
    const bool is_padded = corbe.bytes[8 + 4660] % 4 != 0;
    const auto at = [](std::size_t offset) { return "damaged at " + std::to_string(offset) + ": "; };
    const struct {
        std::size_t place;
        std::uint8_t value;
        bool of_traces;
        std::size_t least; ///< lines told before
        std::string told;
    } cases[] = {
        {0, 'x', false, 0, "refused: not a 64-bit little-endian ELF file\n"},
        {4, 1, true, 0, "refused: not a 64-bit little-endian ELF file\n"},
        {47, 0x7F, false, 0, at(40) + "the section table lies outside the file\n"},
        {58, 63, true, 0, at(58) + "not the size of a section header\n"},
        {corbe.offset + 2, 0xFF, false, 0, at(corbe.offset) + "a record is longer than its section\n"},
        {corbe.offset + 8 + 19 + 80 * 3 + 32, ';', false, 3, at(corbe.offset + 267) + "not a line of a manifest\n"},
        {corbe.offset + 8 + 4659, 'x', false, 0, at(corbe.offset) + "a record does not end with a NUL\n"},
        {corbe.offset + corbe.bytes.size() - 1, 1, false, 60,
         is_padded ? "no padding behind a record\n" : "a record does not end with a NUL\n"},
        {table.offset, 2, true, 0, at(table.offset) + "the catalogue's table is of an unknown version\n"},
        {table.offset + 5, 0, true, 0,
         at(table.offset + 4) + "the catalogue's digest is not the one in its section's name\n"},
        {table.offset + 20 + 6 * 3000 + 5, 0xFF, true, 3000,
         at(table.offset + 20 + 6 * 3000) + "message 3000 goes beyond the end of the texts\n"},
        {table.offset + 20 + 6 * 3025 + 4, 1, true, 3026,
         at(texts.offset) + "the texts go on behind the last message\n"},
        {texts.offset, 'x', true, 0, "the texts' stream is damaged\n"},
    };
    for (const auto& c : cases) {
        tool::Bytes damaged = sound;
        ASSERT_NE(std::exchange(damaged[c.place], c.value), c.value);
        const std::string answer = c.of_traces ? traces(damaged) : manifest(damaged);
        EXPECT_TRUE(answer.ends_with(c.told))
            << c.told << answer.substr(answer.size() - std::min<std::size_t>(200, answer.size()));
        EXPECT_GE(std::ranges::count(answer, '\n'), static_cast<std::ptrdiff_t>(c.least)) << c.told;
    }
    for (const std::size_t length : {std::size_t{10}, sound.size() - 1, corbe.offset + 100}) {
        const tool::Bytes cut(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_THAT(manifest(cut), testing::AnyOf(HasSubstr("damaged at"), HasSubstr("refused")));
    }
}

// ---- the command line ----

class ToolProgram : public testing::Test {
protected:
    struct Run {
        int status;
        std::string out, err;
    };

    void SetUp() override {
        folder_ = testing::TempDir() + "orlan_epm_tool." + std::to_string(getpid());
        std::filesystem::create_directory(folder_);
        std::ofstream(folder_ + "/good.hex") << preauth << " # preauth create\n";
        std::ofstream(folder_ + "/cut.hex") << preauth.substr(0, 30);
        std::ofstream(folder_ + "/odd.hex") << "01 0";
        std::ofstream(folder_ + "/bad.xml") << "<orlan_ial_svm_preauthacl_data><is_create>x</is_create>"
                                               "</orlan_ial_svm_preauthacl_data>";
        std::ofstream(folder_ + "/torn.xml") << "<orlan_ial_svm_preauthacl_data>\n<is_create>";
        std::filesystem::create_symlink(EPM_LIBRARY_FILE, folder_ + "/lib");
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    /// The shell parses what follows the program's name.
    Run run(const std::string& arguments) const {
        const std::string command =
            "cd '" + folder_ + "' && PATH=" EPM_PROGRAM_DIR ":$PATH; { " + arguments + "; } >out 2>err";
        const int status = std::system(command.c_str());
        EXPECT_TRUE(WIFEXITED(status)) << command;
        return {WEXITSTATUS(status), content(folder_ + "/out"), content(folder_ + "/err")};
    }

    std::string folder_;
    const std::string preauth = "010000000013 0100000008 00000000000800000001";
};

// The shell runs the cases, which share their folder. After the dashes come status, output and standard error.
TEST_F(ToolProgram, AnswersByStatusAndWords) {
    const auto answer = [&](const std::string&, const std::string& script) {
        const Run told = run(script.substr(0, script.size() - 1));
        return " " + std::to_string(told.status) + "\n" + told.out + told.err;
    };
    EXPECT_EQ(expect_kept_cases("program.txt", answer), 31u);
    EXPECT_EQ(run("orlan-epm --version").out, "orlan-epm " EPM_VERSION "\n");
}

TEST_F(ToolProgram, AnswersInJson) {
    const struct {
        const char* call;
        std::vector<const char*> keys;
    } cases[] = {
        {"types --json", {"/0/name", "/57/kind", "/0/tracked_size", "/0/identity"}},
        {"types --json orlan_ial_svm_acl_data",
         {"/variants/2/used_length", "/variants/0/size", "/variants/1/state_flags", "/fields/12/offset",
          "/fields/2/length_field", "/fields/0/state_flag", "/fields/3/description"}},
        {"types --json coa_request_type", {"/enumerators/1/name", "/enumerators/1/since"}},
        {"annotate --hex --json orlan_ial_svm_epm_data good.hex",
         {"/type", "/length", "/parts/8/offset", "/parts/8/length", "/parts/8/path", "/parts/8/kind",
          "/parts/8/value"}},
        {"annotate --hex --json orlan_ial_svm_epm_data cut.hex", {"/parts/6/path", "/fault/offset", "/fault/reason"}},
        {"manifest --json lib", {"/types/57/used_length", "/types/0/letter", "/build/6"}},
        {"manifest --json good.hex", {"/fault/reason"}},
        {"traces --json lib", {"/digest", "/messages/3025/text"}},
        {"traces --json lib 7", {"/messages/0/index", "/messages/0/identifier"}},
    };
    for (const auto& c : cases) {
        const json answer = json::parse(run(std::string("orlan-epm ") + c.call).out, nullptr, false);
        for (const char* key : c.keys) EXPECT_TRUE(answer.contains(json::json_pointer(key))) << c.call << " " << key;
    }
    const json fields = json::parse(run("orlan-epm types --json orlan_ial_svm_acl_data").out)["fields"];
    EXPECT_EQ(fields[12]["offset"], 72);
    EXPECT_EQ(fields[12]["since"], 2);
    EXPECT_THAT(run("orlan-epm types orlan_ial_svm_acl_data").out,
                testing::AllOf(HasSubstr("2        76           96    11\n"), HasSubstr("72      10    2      value")));
}

/// The options that a text names.
std::set<std::string> options_in(const std::string& text, const char* pattern) {
    std::set<std::string> all;
    const std::regex option(pattern);
    for (std::sregex_iterator i(text.begin(), text.end(), option), end; i != end; ++i) all.insert((*i)[1]);
    return all;
}

// What the program takes, its help, its page and its completion are four lists of one thing.
TEST_F(ToolProgram, IsDescribedAndCompleted) {
    const std::string page = content(EPM_SOURCE_DIR "/tool/orlan-epm.1");
    const auto completed = [&](const std::string& words) {
        const Run all =
            run("bash -c 'source \"" EPM_SOURCE_DIR "/tool/orlan-epm.bash-completion\"; COMP_WORDS=(" + words +
                "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _orlan_epm; printf \"%s\\n\" \"${COMPREPLY[@]}\"'");
        EXPECT_EQ(all.err, "") << words;
        std::istringstream in(all.out);
        return std::set<std::string>{std::istream_iterator<std::string>(in), {}};
    };
    std::set<std::string> in_all;
    const std::set<std::string> commands = {"types", "decode", "encode", "annotate", "manifest", "traces"};
    for (const std::string& command : commands) {
        const std::set<std::string> known = options_in(run("orlan-epm " + command + " --help").out, "(--[a-z]+)");
        EXPECT_EQ(completed("orlan-epm " + command + " --"), known) << command;
        EXPECT_THAT(page, HasSubstr(".It Cm " + command + "\n"));
        in_all.insert(known.begin(), known.end());
    }
    in_all.insert("--version");
    std::set<std::string> on_page;
    for (const std::string& name : options_in(page, "\n\\.It Fl -([a-z]+)")) on_page.insert("--" + name);
    EXPECT_EQ(on_page, in_all);
    std::set<std::string> first = commands;
    first.insert({"--help", "--version"});
    EXPECT_EQ(completed("orlan-epm \"\""), first);
    std::set<std::string> names;
    for (const WireType& type : wire_types()) names.insert(type.name);
    EXPECT_EQ(completed("orlan-epm decode --agreed 1 \"\""), names);
    EXPECT_EQ(completed("orlan-epm types coa"), std::set<std::string>{"coa_request_type"});
    EXPECT_EQ(completed("orlan-epm decode coa_request_type coa"), std::set<std::string>{}) << "here files stand";
}

} // namespace
} // namespace epm::test
