// The sender of the policy exchange: it reads a policy file and XML files, sends each statement and document to two
// peers that speak different variants, and shows what they show. --help explains the usage.
#include "peer.hpp"
#include "policy.hpp"
#include "traces.hpp"

#include <platform/domain.h>

#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstring>
#include <fstream>
#include <getopt.h>
#include <sstream>
#include <unistd.h>
#include <utility>

using namespace exchange;

namespace {

enum ExitStatus { all_sent = 0, bad_input = 1, bad_call = 2, peer_failed = 3 };

constexpr Role roles[] = {{"peer 1", PLATFORM_HIGHEST_VARIANT}, {"peer 2", 0}};

constexpr char usage[] = R"(usage: policy_exchange [OPTION]... [POLICY-FILE]

Sends each statement of a policy file as a message, and then each message that is written in XML, to two peers,
processes of their own behind Unix-domain sockets. Peer 1 speaks the newest variant of each record, peer 2 only
variant 0. Shows what peer 1 has received in print form, then what peer 2 has received, then a summary: how much each
peer received and how fast, which fields it was not given because its variant lacks them, and how many messages were not
sent because it cannot be given them at all. The print form of a record closes with a brace only where the peer holds it
in its newest variant.

  -f, --from-xml FILE  also send the message in this XML file; may be given more than once, and instead of a policy file
  -x, --xml            peers show the XML form of what they have received instead of the print form
  -o, --output FOLDER  write what the peers have received to peer-1.txt and peer-2.txt there instead of showing it
  -c, --capture FILE   also write what is sent to a capture file, as TCP to port 20358 of each peer
  -t, --trace          show each trace of the library as a sentence on standard error
  -h, --help           show this

)";

constexpr char remarks[] = R"(
  # A small policy
  access-list GUEST-IN entry 10 permit-web ipv4 create process 3 address 192.0.2.7
  access-list GUEST-IN entry 20 permit-dns ipv6 create
  apply GUEST-IN interface 0x10000001 priority 5 flag 1
  preauth create
  download GUEST-IN succeeded

A line that breaks these rules is reported as file:line: reason on standard error and not sent; the others are. On a
terminal, standard error also shows how far a long run is.

An XML file holds one message, as --xml shows it: the root is orlan_ial_svm_epm_data, its epm_type names the kind of
message, and the element epm_type-KIND beside it holds the fields, for example epm_type-bm_data all grants to a client.
White space between elements does not count. A field that is not there keeps its zero, an element that is no field's is
passed over, and the fields called max_... follow from what they count. A message from XML is built in the newest
variants and goes whole or not at all, since a grant without its lists would open more than was meant: peer 2 is not
given it, which counts as a message not sent. A file that is no sound XML is reported as file:line:column: reason, one
with a value that cannot be read as file: path: reason; neither is sent, the others are.

Exit status: 0 when all was good; 1 when a line or an XML file was not; 2 when the call was wrong or a file cannot be
read; 3 when a peer failed or the output cannot be written.
)";

/// Shows on a terminal how far a long run is.
class Progress {
public:
    void at(uint32_t line) {
        const auto now = std::chrono::steady_clock::now();
        if (!is_terminal_ || now < next_) return;
        next_ = now + std::chrono::milliseconds(200);
        is_shown_ = std::fprintf(stderr, "\r%" PRIu32 " lines", line) > 0;
    }
    void clear() {
        if (std::exchange(is_shown_, false)) std::fputs("\r\033[K", stderr);
    }

private:
    const bool is_terminal_ = isatty(STDERR_FILENO) != 0;
    std::chrono::steady_clock::time_point next_ = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
    bool is_shown_ = false;
};

using Peers = std::vector<std::unique_ptr<Peer>>;

bool start_peers(Peers& peers, const std::string& folder, Form form) {
    for (Role role : roles) {
        role.form = form;
        const std::string path = folder + "/peer-" + std::to_string(peers.size() + 1) + ".txt";
        File output(folder.empty() ? std::tmpfile() : std::fopen(path.c_str(), "w"), &std::fclose);
        if (output == nullptr) {
            std::fprintf(stderr, "%s: %s\n", folder.empty() ? "temporary file" : path.c_str(), std::strerror(errno));
            return false;
        }
        auto peer = std::make_unique<Peer>(role, std::move(output));
        if (!peer->start(peers)) return false;
        peers.push_back(std::move(peer));
    }
    return true;
}

/// Sends the statements of the file. Returns false when a line was refused.
bool send_policy(const char* file_name, std::istream& file, Peers& peers) {
    bool is_good = true;
    Progress progress;
    std::string text, reason;
    for (uint32_t line = 1; std::getline(file, text); ++line) {
        progress.at(line);
        const std::optional<Statement> statement = read_statement(text, reason);
        if (statement)
            for (const auto& peer : peers) peer->deliver(line, *statement);
        if (reason.empty()) continue;
        progress.clear();
        std::fprintf(stderr, "%s:%" PRIu32 ": %s\n", file_name, line, reason.c_str());
        is_good = false;
    }
    progress.clear();
    if (!file.bad()) return is_good;
    std::fprintf(stderr, "%s: %s\n", file_name, std::strerror(errno));
    return false;
}

/// Sends the message in an XML file. Returns false when there is none in it.
bool send_document(const char* file_name, const std::string& xml, Peers& peers) {
    std::string reason;
    uint32_t st = 0;
    const Domain domain = create_domain(PLATFORM_HIGHEST_VARIANT);
    const Message message = read_xml(domain.get(), xml, reason);
    if (message != nullptr && wire_form(domain.get(), message.get(), &st).size() > max_message)
        reason = " a message of more than " + std::to_string(max_message) + " bytes";
    if (reason.empty())
        for (const auto& peer : peers) peer->deliver(message);
    else
        std::fprintf(stderr, "%s:%s\n", file_name, reason.c_str());
    return reason.empty();
}

void show_output(const Peer& peer) {
    std::printf("==== %s received ====\n", peer.role().name);
    char block[65536];
    std::rewind(peer.output());
    for (std::size_t size; (size = std::fread(block, 1, sizeof block, peer.output())) != 0;)
        std::fwrite(block, 1, size, stdout);
}

void show_summary(const Peer& peer) {
    const Totals& totals = peer.totals();
    const double seconds = static_cast<double>(totals.nanoseconds) / 1e9;
    std::printf("%s, %s\n", peer.role().name, peer.role().variant == 0 ? "variant 0" : "newest variants");
    std::printf("  messages             %" PRIu64 "\n", totals.messages);
    std::printf("  bytes                %" PRIu64 "\n", totals.bytes);
    std::printf("  messages per second  %.0f\n", seconds > 0 ? static_cast<double>(totals.messages) / seconds : 0);
    std::printf("  messages not sent    %" PRIu64 "\n", peer.not_sent());
    std::printf("  fields not given%s\n", peer.left_out().empty() ? "     none" : "");
    for (const auto& [name, count] : peer.left_out()) std::printf("    %s: %" PRIu64 "\n", name.c_str(), count);
}

bool open_file(const char* file_name, std::ifstream& file) {
    file.open(file_name);
    if (file && (file.peek(), !file.bad())) return true;
    std::fprintf(stderr, "%s: %s\n", file_name, std::strerror(errno));
    return false;
}

/// What the command line asks for.
struct Call {
    const char* policy = nullptr;
    std::vector<const char*> xml_files;
    std::string folder;
    const char* capture = nullptr;
    Form form = Form::print;
    bool is_traced = false;
};

int exchange_messages(const Call& call) {
    std::ifstream policy;
    if (call.policy != nullptr && !open_file(call.policy, policy)) return bad_call;
    std::vector<std::ostringstream> documents;
    for (const char* name : call.xml_files) {
        std::ifstream file;
        if (!open_file(name, file)) return bad_call;
        documents.emplace_back() << file.rdbuf();
    }
    std::string reason;
    if (call.is_traced && !open_traces(reason)) {
        std::fprintf(stderr, "no traces: %s\n", reason.c_str());
        return bad_call;
    }
    Capture capture;
    const auto capture_failed = [&] {
        std::fprintf(stderr, "%s: %s\n", call.capture, std::strerror(errno));
        return peer_failed;
    };
    if (call.capture != nullptr && !capture.open(call.capture)) return capture_failed();
    Peers peers;
    if (!start_peers(peers, call.folder, call.form)) return peer_failed;
    if (call.capture != nullptr)
        for (uint8_t number = 0; const auto& peer : peers) peer->record(capture, ++number);
    show_traces_as("sender");

    int status = all_sent;
    if (call.policy != nullptr && !send_policy(call.policy, policy, peers)) status = bad_input;
    for (std::size_t i = 0; i < documents.size(); ++i)
        if (!send_document(call.xml_files[i], documents[i].str(), peers)) status = bad_input;
    for (const auto& peer : peers) {
        peer->finish();
        if (peer->failed()) status = peer_failed;
    }
    if (call.capture != nullptr && !capture.close()) status = capture_failed();
    if (call.folder.empty())
        for (const auto& peer : peers) show_output(*peer);
    std::printf("==== summary ====\n");
    for (const auto& peer : peers) show_summary(*peer);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::fprintf(stderr, "standard output: %s\n", std::strerror(errno));
        return peer_failed;
    }
    return status;
}

} // namespace

int main(int argc, char** argv) {
    static constexpr option options[] = {{"from-xml", required_argument, nullptr, 'f'},
                                         {"xml", no_argument, nullptr, 'x'},
                                         {"output", required_argument, nullptr, 'o'},
                                         {"capture", required_argument, nullptr, 'c'},
                                         {"trace", no_argument, nullptr, 't'},
                                         {"help", no_argument, nullptr, 'h'},
                                         {}};
    Call call;
    for (int letter; (letter = getopt_long(argc, argv, "f:xo:c:th", options, nullptr)) != -1;) {
        switch (letter) {
        case 'f': call.xml_files.push_back(optarg); break;
        case 'x': call.form = Form::xml; break;
        case 'o': call.folder = optarg; break;
        case 'c': call.capture = optarg; break;
        case 't': call.is_traced = true; break;
        case 'h': std::printf("%s%s%s", usage, policy_format, remarks); return all_sent;
        default: return bad_call; // getopt_long has reported it
        }
    }
    if (argc - optind > 1 || (optind == argc && call.xml_files.empty())) {
        std::fprintf(stderr, "one policy file or an XML file, please; see --help\n");
        return bad_call;
    }
    if (optind < argc) call.policy = argv[optind];
    return exchange_messages(call);
}
