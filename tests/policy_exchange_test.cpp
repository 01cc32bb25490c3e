// The policy exchange as its users meet it: processes, files, texts and exit statuses, held against expected texts that
// were worked out by hand. What a peer does with bytes that no sender of ours writes is tried in this process.
#include "examples/policy_exchange/peer.hpp"
#include "examples/policy_exchange/traces.hpp"

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <pty.h>
#include <regex>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using testing::HasSubstr;

const std::filesystem::path expected_folder = EPM_SOURCE_DIR "/tests/expected/policy_exchange";
const std::string campus = EPM_SOURCE_DIR "/examples/policy_exchange/campus.policy";
const std::string grant = EPM_SOURCE_DIR "/examples/policy_exchange/grant.xml";

std::string content(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    EXPECT_TRUE(in) << file;
    return {std::istreambuf_iterator<char>(in), {}};
}

/// The rate is the one number that differs from run to run; what is not above 0 stays and is a difference.
std::string without_rates(const std::string& text) {
    return std::regex_replace(text, std::regex("(messages per second +)[1-9][0-9]*"), "$1N");
}

/// What a document says: its tags and texts, without declaration, comments, and texts that are white space alone.
std::string tags_and_texts(const std::string& xml) {
    std::string kept;
    for (std::size_t at = 0, end; at < xml.size(); at = end) {
        const bool is_comment = xml.compare(at, 4, "<!--") == 0, is_tag = xml[at] == '<';
        const std::string last = is_comment ? "-->" : is_tag ? ">" : "";
        end = std::min(xml.find(is_tag ? last : "<", at), xml.size() - last.size()) + last.size();
        const std::string piece = xml.substr(at, end - at);
        const bool is_white = piece.find_first_not_of(" \n") == std::string::npos;
        if (!is_comment && !is_white && piece.compare(0, 2, "<?") != 0) kept += piece;
    }
    return kept;
}

class PolicyExchange : public testing::Test {
protected:
    struct Run {
        int status;
        std::string out, err;
    };

    void SetUp() override {
        folder_ = testing::TempDir() + "policy_exchange." + std::to_string(getpid());
        std::filesystem::create_directory(folder_);
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    /// Runs the program in the folder of the expected texts; the shell parses what follows its name.
    Run run(const std::string& arguments) const {
        const std::string out = path("out"), err = path("err");
        const std::string command = "cd '" + expected_folder.string() +
                                    "' && '" EPM_PROGRAM_DIR "/policy_exchange' >'" + out + "' 2>'" + err + "' " +
                                    arguments;
        const int status = std::system(command.c_str());
        EXPECT_TRUE(WIFEXITED(status)) << command;
        return {WEXITSTATUS(status), without_rates(content(out)), content(err)};
    }

    std::string path(const std::string& name) const { return folder_ + "/" + name; }

    std::string folder_;
};

TEST_F(PolicyExchange, TellsWhatIsKept) {
    const struct {
        std::string call;
        int status;
        const char *out, *err; ///< names of kept files
    } cases[] = {
        {"every_kind.policy", 0, "every_kind.txt", nullptr},
        {"--xml every_kind.policy", 0, "every_kind.xml.txt", nullptr},
        {"bad_lines.policy", 1, "bad_lines.txt", "bad_lines.err"},
        {"-o '" + folder_ + "' '" + campus + "'", 0, "campus.txt", nullptr},
    };
    for (const auto& c : cases) {
        const Run kept = run(c.call);
        EXPECT_EQ(kept.status, c.status) << c.call;
        EXPECT_EQ(kept.out, content(expected_folder / c.out)) << c.call;
        EXPECT_EQ(kept.err, c.err != nullptr ? content(expected_folder / c.err) : "") << c.call;
    }
    const Run apart = run("--trace --output '" + folder_ + "' every_kind.policy");
    EXPECT_EQ(apart.status, 0);
    EXPECT_EQ("==== peer 1 received ====\n" + content(path("peer-1.txt")) + "==== peer 2 received ====\n" +
                  content(path("peer-2.txt")) + apart.out,
              content(expected_folder / "every_kind.txt"));
    EXPECT_EQ(apart.err, "") << "an exchange without a fault leaves no trace";
}

TEST_F(PolicyExchange, CarriesAGrantTreeFromXmlToTheSameXml) {
    const std::string said = tags_and_texts(content(grant));
    const Run sent = run("--xml -o '" + folder_ + "' --from-xml '" + grant + "'");
    EXPECT_EQ(sent.status, 0);
    EXPECT_EQ(sent.err, "");
    const std::string received = content(path("peer-1.txt"));
    EXPECT_EQ(tags_and_texts(received), said);
    EXPECT_EQ(content(path("peer-2.txt")), "") << "a grant goes whole or not at all";
    EXPECT_THAT(sent.out, HasSubstr("messages not sent    0\n  fields not given     none\npeer 2, variant 0\n"
                                    "  messages             0\n"));
    EXPECT_THAT(sent.out, HasSubstr("  messages not sent    1\n"));

    // What a peer has shown can be sent again, here behind a policy file and shown in print.
    std::ofstream(path("again.xml")) << received;
    const Run both = run("-f '" + path("again.xml") + "' every_kind.policy");
    EXPECT_EQ(both.status, 0);
    EXPECT_NE(both.out.find("    is_dnld_success@zur_boolean:0\n  }\n}\nXML file@orlan_ial_svm_epm_data: {\n"),
              std::string::npos);
    EXPECT_THAT(both.out, HasSubstr("  messages             10\n"));
}

TEST_F(PolicyExchange, ReportsXmlFilesThatHoldNoMessageAndSendsTheOthers) {
    const std::string sound = content(grant);
    const auto with = [&](const char* from, const char* to) {
        std::string changed = sound;
        return changed.replace(changed.find(from), std::string(from).size(), to);
    };
    const std::string long_name(70000, 'x');
    const struct {
        const char* name;
        std::string xml, told;
    } files[] = {
        {"mismatch", with("</vlan>", "</lan>"), "18:7: Start-end tags mismatch"},
        {"empty", "", "1:1: No document element found"},
        {"two", "<a/>\n<b/>", "2:2: more than one root element"},
        {"root", "<rcl_client_vlan_t/>", " the root element is not orlan_ial_svm_epm_data"},
        {"value", with("<pref>10<", "<pref>4294967296<"),
         " orlan_ial_svm_epm_data/epm_type-bm_data/vlan/pref: not a value of type u_int32"},
        {"long", with("PHONE-DETECTED", long_name.c_str()), " a message of more than 65536 bytes"},
    };
    std::string arguments, told;
    for (const auto& file : files) {
        std::ofstream(path(file.name)) << file.xml;
        arguments += "-f '" + path(file.name) + "' ";
        told += path(file.name) + ":" + file.told + "\n";
    }
    const Run bad = run("-x " + arguments + "-f '" + grant + "'");
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.err, told);
    EXPECT_THAT(bad.out, HasSubstr("<vlan_value>112</vlan_value>\n"));
    EXPECT_THAT(bad.out, HasSubstr("peer 1, newest variants\n  messages             1\n"));
}

TEST_F(PolicyExchange, HelpTellsOptionsFormatAndExitStatuses) {
    const Run help = run("--help");
    EXPECT_EQ(help.status, 0);
    for (const char* word : {"--output", "--trace", "--from-xml", "--xml", "download LIST", "Exit status: 0"})
        EXPECT_THAT(help.out, HasSubstr(word));
    // The example that it shows is a policy file.
    const std::size_t begin = help.out.find("  # A small policy\n");
    ASSERT_NE(begin, help.out.npos);
    std::ofstream(path("example.policy")) << help.out.substr(begin, help.out.find("\n\n", begin) - begin);
    const Run example = run("'" + path("example.policy") + "'");
    EXPECT_EQ(example.status, 0) << example.err;
    EXPECT_THAT(example.out, HasSubstr("  messages             5\n"));
}

TEST_F(PolicyExchange, TellsWrongCallsAndFailedPeersByExitStatus) {
    for (const char* call : {"", "--nonsense", "every_kind.policy bad_lines.policy", "absent.policy", ".", "--xml",
                             "--from-xml absent.xml every_kind.policy", "--from-xml ."}) {
        const Run wrong = run(call);
        EXPECT_EQ(wrong.status, 2) << call;
        EXPECT_NE(wrong.err, "") << call;
        EXPECT_EQ(wrong.out, "") << call;
    }

    std::filesystem::create_symlink("/dev/full", path("peer-2.txt"));
    const Run full = run("-o '" + folder_ + "' bad_lines.policy");
    EXPECT_EQ(full.status, 3);
    EXPECT_THAT(full.err, HasSubstr("peer 2: cannot write its output: No space left on device\n"));
    EXPECT_THAT(full.err, HasSubstr("peer 2: ended with exit status 1\n"));
    EXPECT_THAT(content(path("peer-1.txt")), HasSubstr("line 12@")) << "one peer's failure is not the other's";

    EXPECT_EQ(run("every_kind.policy >/dev/full").status, 3);
}

TEST_F(PolicyExchange, ShowsHowFarALongRunIsOnATerminal) {
    int ours, terminal;
    char name[64];
    ASSERT_EQ(openpty(&ours, &terminal, name, nullptr, nullptr), 0);
    const std::string policy = path("slow.policy");
    ASSERT_EQ(mkfifo(policy.c_str(), 0600), 0);
    const Run slow = run("'" + policy + "' 2>" + name +
                         " & { echo preauth create; sleep 0.4; echo preauth remove; } >'" + policy + "'; wait $!");
    EXPECT_EQ(slow.status, 0);
    EXPECT_THAT(slow.out, HasSubstr("  messages             2\n"));
    close(terminal);
    std::string shown;
    for (char c; read(ours, &c, 1) == 1;) shown += c;
    EXPECT_EQ(shown, "\r2 lines\r\033[K");
    close(ours);
}

// ---- a peer and bytes that come from somewhere else ----

constexpr exchange::Role newest = {"peer 1", 127};

/// A peer on these bytes: its exit status, and what it showed and told.
struct Heard {
    int status;
    std::string shown, told;
    bool has_totals;
};
Heard hear(const std::vector<uint8_t>& bytes) {
    int sockets[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
    EXPECT_EQ(write(sockets[0], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    shutdown(sockets[0], SHUT_WR);
    exchange::File output(std::tmpfile(), &std::fclose);
    testing::internal::CaptureStderr();
    Heard heard = {};
    heard.status = exchange::receive_messages(newest, sockets[1], output.get());
    heard.told = testing::internal::GetCapturedStderr();
    close(sockets[1]);
    exchange::Totals totals;
    heard.has_totals = exchange::receive_all(sockets[0], &totals, sizeof totals) == sizeof totals;
    close(sockets[0]);
    std::rewind(output.get());
    for (int c; (c = std::fgetc(output.get())) != EOF;) heard.shown += static_cast<char>(c);
    return heard;
}

using Bytes = std::vector<uint8_t>;

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// preauth create: variant, flags, jump word, tag (variant, 8), arm (variant, flags, jump word, is_create)
const Bytes frame_21 = {0, 0, 0, 21, 0, 0, 0, 7};
const Bytes preauth = {1, 0, 0, 0, 0, 19, 1, 0, 0, 0, 8, 0, 0, 0, 0, 0, 8, 0, 0, 0, 1};
const std::string preauth_text = "line 7@orlan_ial_svm_epm_data: {\n"
                                 "  epm_type@orlan_ial_svm_epm_type_e:ORLAN_IAL_SVM_EPM_TYPE_PREAUTH\n"
                                 "  epm_type.preauthacl_data@orlan_ial_svm_preauthacl_data: {\n"
                                 "    is_create@u_int32:1\n  }\n}\n";

TEST(PolicyExchangePeer, RefusesFramesThatNoSenderWrites) {
    const Bytes good = frame_21 + preauth;
    const struct {
        Bytes bytes;
        const char* told;
    } streams[] = {
        {{0x7F, 0xFF, 0xFF, 0xFF, 0, 0, 0, 8}, "peer 1: a frame of 2147483647 bytes; 1 to 65536 are allowed\n"},
        {{0, 1, 0, 1, 0, 0, 0, 8}, "peer 1: a frame of 65537 bytes; 1 to 65536 are allowed\n"},
        {{0, 0, 0, 0, 0, 0, 0, 8}, "peer 1: a frame of 0 bytes; 1 to 65536 are allowed\n"},
        {{0, 0, 0}, "peer 1: the stream ends within a frame\n"},
        {Bytes(good.begin(), good.end() - 1), "peer 1: the stream ends within a frame\n"},
    };
    for (const auto& stream : streams) {
        const Heard heard = hear(good + stream.bytes);
        EXPECT_EQ(heard.status, 1);
        EXPECT_EQ(heard.told, stream.told);
        EXPECT_FALSE(heard.has_totals);
    }
    const Heard heard = hear(good);
    EXPECT_EQ(heard.status, 0);
    EXPECT_EQ(heard.shown, preauth_text);
    EXPECT_EQ(heard.told, "");
    EXPECT_TRUE(heard.has_totals);
}

TEST(PolicyExchangePeer, JumpsOverWhatIsNewerAndDropsWhatIsDamaged) {
    std::string reason;
    ASSERT_TRUE(exchange::open_traces(reason)) << reason;
    exchange::show_traces_as("peer 1");

    // A newer sender's field of two bytes follows those that this build knows.
    Bytes newer = preauth + Bytes{0xAB, 0xCD};
    newer[5] += 2;
    const Heard jumped = hear(Bytes{0, 0, 0, 23, 0, 0, 0, 7} + newer);
    EXPECT_EQ(jumped.status, 0);
    EXPECT_EQ(jumped.shown, preauth_text);
    EXPECT_EQ(jumped.told, "peer 1: notice: offset_jump read_len 21 offset_jump_base 2 _zur_variant_jump 21\n");

    Bytes beyond = preauth; // its jump word leads behind the frame
    beyond[2] = 0x40;
    Bytes cut(preauth.begin(), preauth.end() - 3);
    Bytes newer_cut(newer.begin(), newer.end() - 1); // all that this build knows is there
    const Heard damaged = hear(frame_21 + beyond + Bytes{0, 0, 0, 18, 0, 0, 0, 8} + cut +
                               Bytes{0, 0, 0, 22, 0, 0, 0, 9} + newer_cut + frame_21 + preauth);
    EXPECT_EQ(damaged.status, 1);
    EXPECT_EQ(damaged.shown, preauth_text) << "the good message behind the damaged ones";
    EXPECT_THAT(damaged.told, HasSubstr("peer 1: line 7: a message of 21 bytes: it says that it has 1073741845\n"));
    EXPECT_THAT(damaged.told, HasSubstr("peer 1: line 8: a message of 18 bytes: status 90 (Message too long)\n"));
    EXPECT_THAT(damaged.told, HasSubstr("peer 1: line 9: a message of 22 bytes: it says that it has 23\n"));
}

} // namespace
