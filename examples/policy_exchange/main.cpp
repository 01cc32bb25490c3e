// The sender of the policy exchange: it reads a policy file and XML files, sends each statement and document to two
// peers that speak different variants, and shows what they show. --help explains the usage.
#include "peer.hpp"
#include "report.hpp"
#include "traces.hpp"

#include <platform/domain.h>

#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstring>
#include <filesystem>
#include <getopt.h>
#include <sstream>
#include <unistd.h>
#include <utility>

using namespace exchange;

namespace {

enum ExitStatus { all_sent = 0, bad_input = 1, bad_call = 2, peer_failed = 3 };

constexpr char usage[] = R"(usage: policy_exchange [OPTION]... [POLICY-FILE]

Sends each statement of a policy file as a message, and then each message that is written in XML, to two peers,
processes of their own behind Unix-domain sockets. Peer 1 speaks the newest variant of each record, peer 2 only
variant 0. Shows what peer 1 has received in print form, then what peer 2 has received, then a summary: how much each
peer received and how fast, which fields it was not given because its variant lacks them, and how many messages were not
sent because it cannot be given them at all. The print form of a record closes with a brace only where the peer holds it
in its newest variant.

  -f, --from-xml FILE  also send the message in this XML file; may be given more than once, and instead of a policy file
  -p, --peer VARIANT   start a peer that speaks each record up to this variant, 0 to 127; may be given more than once, and
                       takes the place of both peers
  -x, --xml            peers show the XML form of what they have received instead of the print form
  -o, --output FOLDER  write what the peers have received to peer-1.txt and peer-2.txt in this folder, which it makes
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

using Peers = std::vector<std::unique_ptr<Peer>>;

bool start_peers(Peers& peers, const std::vector<int8_t>& variants, const std::string& folder, Form form) {
    for (const int8_t variant : variants) {
        const std::string number = std::to_string(peers.size() + 1);
        const Role role = {"peer " + number, variant, form};
        const std::string path = folder + "/peer-" + number + ".txt";
        std::error_code error; // opening the file tells it
        if (!folder.empty()) std::filesystem::create_directories(folder, error);
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
    std::printf("==== %s received ====\n", peer.role().name.c_str());
    char block[65536];
    std::rewind(peer.output());
    for (std::size_t size; (size = std::fread(block, 1, sizeof block, peer.output())) != 0;)
        std::fwrite(block, 1, size, stdout);
}

void show_summary(const Peer& peer) {
    const Totals& totals = peer.totals();
    const double seconds = static_cast<double>(totals.nanoseconds) / 1e9;
    const int8_t variant = peer.role().variant;
    const std::string variants =
        variant == PLATFORM_HIGHEST_VARIANT ? "newest variants" : "variant " + std::to_string(variant);
    std::printf("%s, %s\n", peer.role().name.c_str(), variants.c_str());
    std::printf("  messages             %" PRIu64 "\n", totals.messages);
    std::printf("  bytes                %" PRIu64 "\n", totals.bytes);
    std::printf("  messages per second  %.0f\n", seconds > 0 ? static_cast<double>(totals.messages) / seconds : 0);
    show_not_given(peer.not_sent(), peer.left_out());
}

/// What the command line asks for.
struct Call {
    const char* policy = nullptr;
    std::vector<const char*> xml_files;
    std::vector<int8_t> variants; ///< of the peers
    std::string folder;
    const char* capture = nullptr;
    Form form = Form::print;
    bool is_traced = false;
};

/// Returns -1 for a text that is no variant, and reports it.
int8_t variant_from(const char* text) {
    int8_t variant = -1;
    const auto [end, error] = std::from_chars(text, text + std::strlen(text), variant);
    if (error == std::errc() && *end == 0 && variant >= 0) return variant;
    std::fprintf(stderr, "'%s' is not a variant from 0 to 127\n", text);
    return -1;
}

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
    if (!start_peers(peers, call.variants, call.folder, call.form)) return peer_failed;
    if (call.capture != nullptr)
        for (uint8_t number = 0; const auto& peer : peers) peer->record(capture, ++number);
    show_traces_as("sender");

    int status = all_sent;
    const auto send = [&peers](uint32_t line, const Statement& statement) {
        for (const auto& peer : peers) peer->deliver(line, statement);
    };
    if (call.policy != nullptr && !read_policy(call.policy, policy, send)) status = bad_input;
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
                                         {"peer", required_argument, nullptr, 'p'},
                                         {"xml", no_argument, nullptr, 'x'},
                                         {"output", required_argument, nullptr, 'o'},
                                         {"capture", required_argument, nullptr, 'c'},
                                         {"trace", no_argument, nullptr, 't'},
                                         {"help", no_argument, nullptr, 'h'},
                                         {}};
    Call call;
    for (int letter; (letter = getopt_long(argc, argv, "f:p:xo:c:th", options, nullptr)) != -1;) {
        switch (letter) {
        case 'p':
            call.variants.push_back(variant_from(optarg));
            if (call.variants.back() < 0) return bad_call;
            break;
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
    if (call.variants.empty()) call.variants = {PLATFORM_HIGHEST_VARIANT, 0};
    if (optind < argc) call.policy = argv[optind];
    return exchange_messages(call);
}
