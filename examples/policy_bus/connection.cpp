// Connects as users of NATS expect, with their options, and tells on standard error when a connection is lost and
// found.
#include "connection.hpp"

#include "envelope.hpp"
#include "nkey.hpp"

#include <csignal>
#include <cstdio>
#include <fstream>

namespace bus {

namespace {

constexpr int64_t nanoseconds = 1'000'000'000;
// A publisher that is restarted within this time is not stored twice; what comes later, devices know by its id.
constexpr int64_t duplicate_window = 120 * nanoseconds;
// Dead letters are for people: no flood of them may fill the server.
constexpr int64_t max_dead_letters = 10'000;
constexpr int64_t max_dead_bytes = 64 << 20;

volatile std::sig_atomic_t stop_requested = 0;

void request_stop(int) {
    stop_requested = 1;
}

void tell(const char* what, natsConnection* connection) {
    char url[256] = "";
    natsConnection_GetConnectedUrl(connection, url, sizeof url);
    std::fprintf(stderr, "policy_bus: %s%s%s\n", what, url[0] != 0 ? " " : "", url);
}

void on_disconnected(natsConnection* connection, void*) {
    if (!natsConnection_IsClosed(connection)) tell("connection lost", connection);
}

void on_reconnected(natsConnection* connection, void* reconnects) {
    ++*static_cast<std::atomic<uint64_t>*>(reconnects);
    tell("connected again to", connection);
}

void on_error(natsConnection*, natsSubscription*, natsStatus status, void*) {
    std::fprintf(stderr, "policy_bus: %s\n", natsStatus_GetText(status));
}

std::string seed_in(const std::string& file_name) {
    std::ifstream file(file_name);
    for (std::string word; file >> word;)
        if (word.starts_with("SU")) return word;
    throw BusError(file_name + ": no seed of a user's NKey");
}

using Options = Owned<natsOptions, natsOptions_Destroy>;

void authenticate(natsOptions* options, const ConnectionOptions& asked) {
    if (!asked.credentials_file.empty()) {
        check(std::ifstream(asked.credentials_file) ? NATS_OK : NATS_NOT_FOUND, asked.credentials_file);
        check(natsOptions_SetUserCredentialsFromFiles(options, asked.credentials_file.c_str(), nullptr),
              asked.credentials_file);
    }
    if (!asked.nkey_file.empty()) {
        const auto key = public_nkey(seed_in(asked.nkey_file));
        if (!key) throw BusError(asked.nkey_file + ": the seed is damaged");
        check(natsOptions_SetNKeyFromSeed(options, key->c_str(), asked.nkey_file.c_str()), asked.nkey_file);
    }
    if (!asked.user.empty())
        check(natsOptions_SetUserInfo(options, asked.user.c_str(), asked.password.c_str()), "user");
}

void secure(natsOptions* options, const ConnectionOptions& asked) {
    if (!asked.is_tls && asked.ca_file.empty() && asked.certificate_file.empty()) return;
    check(natsOptions_SetSecure(options, true), "TLS");
    if (!asked.ca_file.empty())
        check(natsOptions_LoadCATrustedCertificates(options, asked.ca_file.c_str()), asked.ca_file);
    if (!asked.certificate_file.empty())
        check(natsOptions_LoadCertificatesChain(options, asked.certificate_file.c_str(), asked.key_file.c_str()),
              asked.certificate_file);
}

void ensure_stream(jsCtx* context, jsStreamConfig& config, uint32_t replicas) {
    jsStreamInfo* found = nullptr;
    jsErrCode error = {};
    natsStatus status = js_GetStreamInfo(&found, context, config.Name, nullptr, &error);
    const Owned<jsStreamInfo, jsStreamInfo_Destroy> info(found);
    config.Replicas = replicas != 0 ? replicas : 1;
    if (status == NATS_NOT_FOUND || error == JSStreamNotFoundErr)
        status = js_AddStream(nullptr, context, &config, nullptr, nullptr);
    else if (status == NATS_OK && replicas != 0 && info->Config->Replicas != config.Replicas)
        status = js_UpdateStream(nullptr, context, &config, nullptr, nullptr);
    check(status, std::string("stream ") + config.Name);
}

} // namespace

std::string error_text(natsStatus status) {
    natsStatus last = NATS_OK;
    const char* detail = nats_GetLastError(&last);
    std::string text = natsStatus_GetText(status);
    if (last == status && detail != nullptr && *detail != 0) text += std::string(" (") + detail + ')';
    return text;
}

void check(natsStatus status, const std::string& what) {
    if (status != NATS_OK) throw BusError(what + ": " + error_text(status));
}

std::string header(natsMsg* message, const char* name) {
    const char* value = nullptr;
    return natsMsgHeader_Get(message, name, &value) == NATS_OK && value != nullptr ? value : "";
}

void set_header(natsMsg* message, const char* name, const std::string& value) {
    check(natsMsgHeader_Set(message, name, value.c_str()), name);
}

NatsMessage create_message(const std::string& subject, const void* bytes, std::size_t size) {
    natsMsg* message = nullptr;
    check(natsMsg_Create(&message, subject.c_str(), nullptr, static_cast<const char*>(bytes), static_cast<int>(size)),
          subject);
    return NatsMessage(message);
}

Connection::Connection(const ConnectionOptions& asked) {
    natsOptions* created = nullptr;
    check(natsOptions_Create(&created), "options");
    const Options options(created);
    std::vector<const char*> servers;
    std::string names;
    for (const std::string& server : asked.servers) {
        servers.push_back(server.c_str());
        names += (names.empty() ? "" : ", ") + server;
    }
    const auto milliseconds = static_cast<int64_t>(asked.timeout * 1000);
    check(natsOptions_SetServers(created, servers.data(), static_cast<int>(servers.size())), names);
    check(natsOptions_SetName(created, asked.name.c_str()), "name");
    check(natsOptions_SetTimeout(created, milliseconds), "timeout");
    check(natsOptions_SetMaxReconnect(created, -1), "reconnect");
    check(natsOptions_SetReconnectWait(created, 250), "reconnect");
    check(natsOptions_SetReconnectJitter(created, 500, 2000), "reconnect"); // a site's devices do not all come at once
    check(natsOptions_UseGlobalMessageDelivery(created, true), "delivery"); // one thread for all consumers
    check(natsOptions_SetDisconnectedCB(created, on_disconnected, nullptr), "callback");
    check(natsOptions_SetReconnectedCB(created, on_reconnected, &reconnects_), "callback");
    check(natsOptions_SetErrorHandler(created, on_error, nullptr), "callback");
    authenticate(created, asked);
    secure(created, asked);
    natsConnection* connection = nullptr;
    check(natsConnection_Connect(&connection, created), names);
    connection_.reset(connection);
    jsOptions stream_options;
    jsOptions_Init(&stream_options);
    stream_options.Wait = milliseconds;
    jsCtx* context = nullptr;
    check(natsConnection_JetStream(&context, connection, &stream_options), "JetStream");
    context_.reset(context);
}

Connection::~Connection() {
    natsConnection_Close(get());
}

void ensure_streams(const Connection& connection, const std::string& site, uint32_t replicas) {
    const std::string names[] = {stream_of(site), dead_letter_stream_of(site)};
    const std::string subjects[] = {subject_of(site, "*", "*"), dead_letter_subject_of(site, "*")};
    for (const bool is_dead : {false, true}) {
        jsStreamConfig config;
        jsStreamConfig_Init(&config);
        const char* subject = subjects[is_dead].c_str();
        config.Name = names[is_dead].c_str();
        config.Subjects = &subject;
        config.SubjectsLen = 1;
        config.Duplicates = duplicate_window;
        if (is_dead) {
            config.MaxMsgs = max_dead_letters;
            config.MaxBytes = max_dead_bytes;
        }
        ensure_stream(connection.stream_context(), config, replicas);
    }
}

void watch_signals() {
    struct sigaction action = {};
    action.sa_handler = request_stop;
    for (const int number : {SIGINT, SIGTERM}) sigaction(number, &action, nullptr);
}

bool is_stopped() {
    return stop_requested != 0;
}

} // namespace bus
