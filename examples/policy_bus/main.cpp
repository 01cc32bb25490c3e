// The command line of policy_bus: sub-commands, connection options, and what is shown at the end.
#include "device.hpp"
#include "publisher.hpp"
#include "state.hpp"

#include "policy_exchange/report.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cinttypes>
#include <filesystem>

using namespace bus;

namespace {

enum ExitStatus { good = 0, bad_policy = 1, bad_call = 2, bus_failed = 3 };

constexpr char description[] =
    "Publishes client policy over NATS JetStream, once for each variant that devices speak, and applies it on devices, "
    "each message exactly once.";

constexpr char footer[] = R"(
  policy_bus publish --site campus --replicas 3 campus.policy
  policy_bus device switch-7 --site campus --variant 1 --state /var/lib/policy_bus
  policy_bus show /var/lib/policy_bus/switch-7.policy

Exit status: 0 when all was good; 1 when a policy was refused, or a device ended without a complete one; 2 when the call
was wrong; 3 when the bus or a file failed.
)";

void add_connection(CLI::App& app, ConnectionOptions& options) {
    const std::string group = "Connection";
    const auto add = [&](const char* name, auto& value, const char* help) {
        return app.add_option(name, value, help)->group(group);
    };
    options.servers = {"nats://127.0.0.1:4222"};
    add("-s,--server", options.servers, "servers, with commas between them")
        ->envname("NATS_URL")
        ->delimiter(',')
        ->capture_default_str();
    add("--creds", options.credentials_file, "file with a user's credentials")->envname("NATS_CREDS");
    add("--nkey", options.nkey_file, "file with the seed of a user's NKey")->envname("NATS_NKEY");
    add("--user", options.user, "user name")->envname("NATS_USER");
    add("--password", options.password, "its password")->envname("NATS_PASSWORD");
    app.add_flag("--tls", options.is_tls, "connect by TLS, as the options below and tls:// also ask")->group(group);
    add("--tlsca", options.ca_file, "certificates to trust")->envname("NATS_CA");
    auto* certificate = add("--tlscert", options.certificate_file, "own certificate")->envname("NATS_CERT");
    add("--tlskey", options.key_file, "its key")->envname("NATS_KEY")->needs(certificate);
    add("--timeout", options.timeout, "seconds for an attempt to connect, or a request")
        ->envname("NATS_TIMEOUT")
        ->capture_default_str();
}

const CLI::Validator
    is_name_word([](const std::string& text) { return is_name(text) ? "" : "letters, digits, - and _, at most 64"; },
                 "NAME");

/// A device starts before its servers do, after a power failure for instance; it waits for them. A publisher does not.
std::unique_ptr<Connection> wait_for_connection(const ConnectionOptions& options) {
    std::string told;
    while (!is_stopped()) {
        try {
            return std::make_unique<Connection>(options);
        } catch (const BusError& error) {
            if (told != error.what()) std::fprintf(stderr, "policy_bus: waits: %s\n", error.what());
            told = error.what();
        }
        for (int i = 0; i < 10 && !is_stopped(); ++i) nats_Sleep(100);
    }
    return nullptr;
}

void show_published(const Revised& revised, const std::string& site, double seconds) {
    std::printf("site %s, revision %" PRIu64 "\n", site.c_str(), revised.revision);
    uint64_t messages = 0;
    for (const Given& given : revised.given) {
        std::printf("%s, variant %d\n", given.audience.token.c_str(), given.audience.variant);
        std::printf("  messages             %" PRIu32 "\n", given.messages);
        std::printf("  bytes                %" PRIu64 "\n", given.bytes);
        std::printf("  stored               %" PRIu32 "\n", given.stored);
        std::printf("  stored before        %" PRIu32 "\n", given.repeated);
        exchange::show_not_given(given.not_sent, given.left_out);
        messages += given.stored + given.repeated;
    }
    std::printf("%" PRIu64 " messages in %.3f s, %.0f a second; marshalled in %.6f s\n", messages, seconds,
                seconds > 0 ? static_cast<double>(messages) / seconds : 0, revised.marshal_seconds);
}

int run_publish(PublishCall call, const std::vector<int>& variants, const std::vector<std::string>& devices,
                ConnectionOptions options) {
    const auto add = [&call](const Audience& audience) {
        const auto is_same = [&](const Audience& there) { return there.token == audience.token; };
        if (std::none_of(call.audiences.begin(), call.audiences.end(), is_same)) call.audiences.push_back(audience);
    };
    for (const int variant : variants) add(variant_audience(static_cast<int8_t>(variant)));
    for (const std::string& device : devices) {
        const std::size_t colon = device.find(':');
        const auto variant = read_number<int8_t>(colon == std::string::npos ? "" : device.substr(colon + 1));
        if (!is_name(device.substr(0, colon)) || !variant || *variant < 0) {
            std::fprintf(stderr, "policy_bus: '%s' is not a device with its variant, as in switch-7:1\n",
                         device.c_str());
            return bad_call;
        }
        add(device_audience(device.substr(0, colon), *variant));
    }
    Revised revised;
    if (!marshal_policy(call, revised)) {
        std::fprintf(stderr, "policy_bus: nothing is published, because a policy goes out whole\n");
        return bad_policy;
    }
    options.name = "policy_bus publish";
    const Connection connection(options);
    const auto start = std::chrono::steady_clock::now();
    const bool is_whole = publish(connection, call, revised);
    show_published(revised, call.site, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    if (!is_whole) std::fprintf(stderr, "policy_bus: stopped; publish it again to complete the revision\n");
    return is_whole ? good : bus_failed;
}

int run_device(const DeviceCall& call, ConnectionOptions options) {
    std::filesystem::create_directories(call.folder);
    options.name = "policy_bus device " + call.names.front();
    const std::unique_ptr<Connection> connection = wait_for_connection(options);
    return connection == nullptr || run_devices(*connection, call) ? good : bad_policy;
}

int run_show(const std::string& path, bool is_xml, bool is_summary) {
    Holder holder;
    Revisions revisions;
    std::string reason;
    if (!read_state(path, holder, revisions, reason)) {
        std::fprintf(stderr, "%s: %s\n", path.c_str(), reason.c_str());
        return bus_failed;
    }
    if (is_summary) {
        std::printf("site %s, device %s, %s\n", holder.site.c_str(), holder.device.c_str(), holder.audience.c_str());
        for (const auto& [number, revision] : revisions)
            std::printf("revision %" PRIu64 ": %zu of %" PRIu32 " messages\n", number, revision.messages.size(),
                        revision.total);
        return good;
    }
    const exchange::Domain domain = exchange::create_domain(holder.variant);
    const auto current = in_force(revisions);
    if (current == revisions.end()) return good;
    for (const auto& [line, wire] : current->second.messages) {
        uint32_t st = 0;
        const std::string name = "line " + std::to_string(line);
        const auto form = is_xml ? exchange::Form::xml : exchange::Form::print;
        const std::string text = exchange::text_form(domain.get(), wire, name, form, &st, reason);
        if (st != 0) throw BusError(name + ": " + exchange::status_text(st));
        std::fwrite(text.data(), 1, text.size(), stdout);
    }
    return good;
}

int run(int argc, char** argv) {
    CLI::App app(description);
    app.footer(footer)->require_subcommand(1)->get_formatter()->column_width(34);
    ConnectionOptions connection;
    PublishCall publish;
    publish.window = 1024;
    publish.patience = 60;
    std::vector<int> variants;
    std::vector<std::string> devices;
    DeviceCall device;
    device.folder = ".";
    device.window = 256;
    device.ack_wait = 30;
    int variant = 0;
    std::string path, site;
    bool is_xml = false, is_summary = false;

    const auto add_site = [](CLI::App* command, std::string& target) {
        command->add_option("--site", target, "the site whose policy it is")->required()->check(is_name_word);
    };
    auto* publishing = app.add_subcommand("publish", "publish a policy file as a new revision of a site's policy");
    publishing->add_option("POLICY", publish.policy, "the file; policy_exchange --help describes it")->required();
    add_site(publishing, publish.site);
    publishing->add_option("--variants", variants, "variants that devices speak (default 0,1,2)")
        ->delimiter(',')
        ->check(CLI::Range(0, 127));
    publishing->add_option("--device", devices, "publish for this device alone, as NAME:VARIANT; may be repeated");
    publishing->add_option("--revision", publish.revision, "its number (default: when the file was changed)");
    publishing->add_option("--again", publish.attempt,
                           "store again what the stream has, as attempt N; devices take what they lack");
    publishing->add_option("--replicas", publish.replicas, "servers that keep each message (default 1, or as it is)")
        ->check(CLI::Range(1, 5));
    publishing->add_flag("--keep-older", publish.keeps_older, "leave older revisions in the stream");
    publishing->add_option("--window", publish.window, "messages on their way at a time")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    publishing->add_option("--patience", publish.patience, "seconds without an acknowledgement before giving up")
        ->capture_default_str();
    publishing->add_option("--metrics", publish.metrics_file, "write figures for Prometheus into this file");

    auto* consuming = app.add_subcommand("device", "keep the policy of one or more devices");
    consuming->add_option("NAME", device.names, "the devices")->required()->check(is_name_word);
    add_site(consuming, device.site);
    consuming->add_option("--variant", variant, "the highest variant that they speak")
        ->required()
        ->check(CLI::Range(0, 127));
    consuming->add_option("--state", device.folder, "folder for the file NAME.policy of each")->capture_default_str();
    consuming->add_flag("--own", device.is_own, "take what is published for each device alone");
    consuming->add_flag("--once", device.is_once, "end with the first complete revision");
    consuming->add_option("--window", device.window, "messages that may wait for an acknowledgement")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    consuming->add_option("--ack-wait", device.ack_wait, "seconds before an unacknowledged message comes again")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    consuming->add_option("--metrics", device.metrics_file, "write figures for Prometheus into this file each second");

    auto* showing = app.add_subcommand("show", "show the policy that a device keeps");
    showing->add_option("FILE", path, "the device's file")->required();
    showing->add_flag("--xml", is_xml, "in XML instead of the print form");
    showing->add_flag("--summary", is_summary, "only which revisions it has, and how much of them");

    auto* listing = app.add_subcommand("dead-letters", "list the messages that devices of a site have refused");
    add_site(listing, site);

    for (CLI::App* command : {publishing, consuming, listing}) add_connection(*command, connection);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? good : bad_call;
    }
    if (variants.empty() && devices.empty()) variants = {0, 1, 2};
    device.variant = static_cast<int8_t>(variant);
    watch_signals();
    if (publishing->parsed()) return run_publish(publish, variants, devices, connection);
    if (consuming->parsed()) return run_device(device, connection);
    if (showing->parsed()) return run_show(path, is_xml, is_summary);
    connection.name = "policy_bus dead-letters";
    list_dead_letters(Connection(connection), site);
    return good;
}

} // namespace

int main(int argc, char** argv) {
    int status = bus_failed;
    try {
        status = run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "policy_bus: %s\n", error.what());
    }
    nats_CloseAndWait(0);
    if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return status;
    std::perror("policy_bus: standard output");
    return bus_failed;
}
