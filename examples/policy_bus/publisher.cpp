// A policy goes out whole or not at all, because it replaces the one before. A message counts as published when the
// stream has acknowledged it; until then it is sent again, after errors and lost connections, under the same id.
#include "publisher.hpp"

#include "metrics.hpp"

#include "policy_exchange/report.hpp"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <sys/stat.h>
#include <utility>

namespace bus {

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

// How long an acknowledgement may take before the message is sent again.
constexpr Seconds retry_after(3);

// By the alternatives of a statement.
constexpr std::string_view types[] = {"acl", "apply", "preauth", "download"};
static_assert(std::size(types) == std::variant_size_v<exchange::Statement>);

/// In microseconds: two changes in a second are two revisions, and a figure of Prometheus still holds the number.
uint64_t change_time(const std::string& file_name) {
    struct stat facts = {};
    if (stat(file_name.c_str(), &facts) != 0) return 0;
    return static_cast<uint64_t>(facts.st_mtim.tv_sec) * 1'000'000 +
           static_cast<uint64_t>(facts.st_mtim.tv_nsec) / 1000;
}

std::string_view last_word(std::string_view subject) {
    return subject.substr(subject.rfind('.') + 1);
}

/// Sends messages and gathers what the server answers, on a thread of the client library.
class Sender {
public:
    Sender(const Connection& connection, const PublishCall& call, Revised& revised)
        : connection_(connection), call_(call), revised_(revised), metrics_(call.metrics_file) {
        jsOptions options;
        jsOptions_Init(&options);
        options.PublishAsync.AckHandler = on_answer;
        options.PublishAsync.AckHandlerClosure = this;
        jsCtx* context = nullptr;
        check(natsConnection_JetStream(&context, connection.get(), &options), "JetStream");
        context_.reset(context);
    }

    bool send_all() {
        exchange::Progress progress("of " + std::to_string(revised_.messages.size()) + " messages acknowledged");
        for (const Outgoing& outgoing : revised_.messages) {
            while (!is_stopped() && in_flight() >= call_.window) tend(progress);
            if (is_stopped()) break;
            NatsMessage message = create_message(outgoing.subject, outgoing.wire.data(), outgoing.wire.size());
            const Given& given = given_to(outgoing.id.audience);
            set_header(message.get(), id_header, id_text(outgoing.id, call_.attempt));
            set_header(message.get(), digest_header, digest_text(outgoing.wire));
            set_header(message.get(), messages_header, std::to_string(given.messages));
            ++sent_;
            send(std::move(message));
        }
        while (in_flight() != 0) tend(progress); // also after a signal: what is on its way is waited for
        progress.clear();
        write_metrics();
        return acknowledged_ == revised_.messages.size();
    }

private:
    static void on_answer(jsCtx*, natsMsg* message, jsPubAck* answer, jsPubAckErr* error, void* self) {
        static_cast<Sender*>(self)->take_answer(NatsMessage(message), answer, error);
    }

    void take_answer(NatsMessage message, const jsPubAck* answer, const jsPubAckErr* error) {
        const std::lock_guard lock(mutex_);
        if (answer != nullptr) {
            Given& given = given_to(last_word(natsMsg_GetSubject(message.get())));
            ++(answer->Duplicate ? given.repeated : given.stored);
            if (given.first_sequence == 0 || answer->Sequence < given.first_sequence)
                given.first_sequence = answer->Sequence;
            ++acknowledged_;
            last_answer_ = Clock::now();
        } else {
            reason_ = error->ErrText != nullptr ? error->ErrText : natsStatus_GetText(error->Err);
            refused_.push_back(std::move(message));
        }
        answered_.notify_one();
    }

    Given& given_to(std::string_view audience) {
        return *std::find_if(revised_.given.begin(), revised_.given.end(),
                             [audience](const Given& given) { return given.audience.token == audience; });
    }

    std::size_t in_flight() {
        const std::lock_guard lock(mutex_);
        return sent_ - acknowledged_;
    }

    void send(NatsMessage message) {
        natsMsg* given_away = message.release();
        const natsStatus status = js_PublishMsgAsync(context_.get(), &given_away, nullptr);
        if (given_away == nullptr) return;
        const std::lock_guard lock(mutex_);
        reason_ = error_text(status);
        refused_.emplace_back(given_away);
    }

    /// Waits for answers. After a silence it sends again what was refused or had no answer.
    void tend(exchange::Progress& progress) {
        if (metrics_.is_due()) write_metrics();
        std::vector<NatsMessage> again;
        {
            std::unique_lock lock(mutex_);
            const std::size_t before = acknowledged_;
            answered_.wait_for(lock, std::chrono::milliseconds(100), [&] { return acknowledged_ != before; });
            progress.at(acknowledged_);
            const auto now = Clock::now();
            if (now - last_answer_ > Seconds(call_.patience))
                throw BusError("no acknowledgement for " + std::to_string(static_cast<int>(call_.patience)) +
                               " seconds" + (reason_.empty() ? "" : ": " + reason_));
            if (now - std::max(last_answer_, last_retry_) < retry_after || !connection_.is_connected()) return;
            last_retry_ = now;
            again.swap(refused_);
        }
        natsMsgList unanswered = {};
        if (js_PublishAsyncGetPendingList(&unanswered, context_.get()) == NATS_OK)
            for (int i = 0; i < unanswered.Count; ++i) again.emplace_back(std::exchange(unanswered.Msgs[i], nullptr));
        natsMsgList_Destroy(&unanswered);
        for (NatsMessage& message : again) send(std::move(message));
    }

    void write_metrics() {
        const std::lock_guard lock(mutex_);
        const auto each = [this](const char* name, const char* help, auto value_of) {
            metrics_.begin(name, help);
            for (const Given& given : revised_.given)
                metrics_.sample("site=\"" + call_.site + "\",audience=\"" + given.audience.token + '"',
                                static_cast<double>(value_of(given)));
        };
        each("messages_total", "Messages of the policy that the audience can be told.",
             [](const Given& given) { return given.messages; });
        each("message_bytes_total", "Their bytes.", [](const Given& given) { return given.bytes; });
        each("not_sent_total", "Messages that the audience's variant cannot be told.",
             [](const Given& given) { return given.not_sent; });
        each("stored_total", "Messages that the stream has acknowledged.",
             [](const Given& given) { return given.stored; });
        each("stored_before_total", "Messages that the stream already had.",
             [](const Given& given) { return given.repeated; });
        metrics_.begin("left_out_total", "Fields that the audience's variant lacks, by the times they were left out.");
        for (const Given& given : revised_.given)
            for (const auto& [field, count] : given.left_out)
                metrics_.sample("site=\"" + call_.site + "\",audience=\"" + given.audience.token + "\",field=\"" +
                                    field + '"',
                                static_cast<double>(count));
        const std::string site = "site=\"" + call_.site + '"';
        metrics_.begin("revision", "Number of the revision.");
        metrics_.sample(site, static_cast<double>(revised_.revision));
        metrics_.begin("marshal_seconds_total", "Time spent to build and marshal messages.");
        metrics_.sample(site, revised_.marshal_seconds);
        metrics_.write();
    }

    const Connection& connection_;
    const PublishCall& call_;
    Revised& revised_;
    Metrics metrics_;
    std::mutex mutex_;
    std::condition_variable answered_;
    std::size_t sent_ = 0, acknowledged_ = 0;
    std::vector<NatsMessage> refused_;
    std::string reason_;
    Clock::time_point last_answer_ = Clock::now(), last_retry_ = last_answer_;
    Owned<jsCtx, jsCtx_Destroy> context_; // last: its thread uses all of the above
};

/// Devices would drop an older revision, and the purge behind it would remove the newer one.
void refuse_older(const Connection& connection, const PublishCall& call, uint64_t revision) {
    const std::string stream = stream_of(call.site);
    for (const Audience& audience : call.audiences) {
        for (const std::string_view type : types) {
            const std::string subject = subject_of(call.site, type, audience.token);
            natsMsg* found = nullptr;
            const natsStatus status =
                js_GetLastMsg(&found, connection.stream_context(), stream.c_str(), subject.c_str(), nullptr, nullptr);
            const NatsMessage last(found);
            if (status == NATS_NOT_FOUND) continue;
            check(status, subject);
            const auto id = read_id(header(last.get(), id_header));
            if (id && id->revision > revision)
                throw BusError("revision " + std::to_string(revision) + " is older than " +
                               std::to_string(id->revision) + ", which the bus has for " + audience.token);
        }
    }
}

void purge_older(const Connection& connection, const PublishCall& call, const Revised& revised) {
    for (const Given& given : revised.given) {
        if (given.first_sequence <= 1) continue; // nothing is older, and the server takes 1 for no bound at all
        const std::string subject = subject_of(call.site, "*", given.audience.token);
        jsOptions options;
        jsOptions_Init(&options);
        options.Stream.Purge.Subject = subject.c_str();
        options.Stream.Purge.Sequence = given.first_sequence;
        check(js_PurgeStream(connection.stream_context(), stream_of(call.site).c_str(), &options, nullptr),
              "older revisions of " + given.audience.token);
    }
}

} // namespace

bool marshal_policy(const PublishCall& call, Revised& revised) {
    std::ifstream file;
    if (!exchange::open_file(call.policy.c_str(), file)) return false;
    revised.revision = call.revision != 0 ? call.revision : change_time(call.policy);
    std::vector<exchange::Domain> domains;
    for (const Audience& audience : call.audiences) {
        domains.push_back(exchange::create_domain(audience.variant));
        if (domains.back() == nullptr) throw std::bad_alloc();
        revised.given.emplace_back().audience = audience;
    }
    const bool is_good =
        exchange::read_policy(call.policy.c_str(), file, [&](uint32_t line, const exchange::Statement& statement) {
            const auto start = Clock::now();
            for (std::size_t i = 0; i < domains.size(); ++i) {
                Given& given = revised.given[i];
                uint32_t st = 0;
                std::vector<uint8_t> wire = exchange::wire_form(domains[i].get(), statement, given.left_out, &st);
                if (st == ZUR_NOT_IN_VARIANT) {
                    ++given.not_sent;
                    continue;
                }
                if (st != 0)
                    throw BusError("line " + std::to_string(line) + " cannot be built: " + exchange::status_text(st));
                ++given.messages;
                given.bytes += wire.size();
                const std::string& token = given.audience.token;
                revised.messages.push_back({{revised.revision, line, token},
                                            subject_of(call.site, types[statement.index()], token),
                                            std::move(wire)});
            }
            revised.marshal_seconds += Seconds(Clock::now() - start).count();
        });
    return is_good;
}

bool publish(const Connection& connection, const PublishCall& call, Revised& revised) {
    ensure_streams(connection, call.site, call.replicas);
    refuse_older(connection, call, revised.revision);
    if (!Sender(connection, call, revised).send_all()) return false;
    if (!call.keeps_older) purge_older(connection, call, revised);
    return true;
}

} // namespace bus
