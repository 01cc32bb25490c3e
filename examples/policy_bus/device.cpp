// A message is applied, written to the disk, and then acknowledged. When the process dies in between, the server sends
// it again, and its id shows that it is there already. A message that cannot be read goes to the dead letters, and is
// only then given up.
#include "device.hpp"

#include "envelope.hpp"
#include "metrics.hpp"
#include "state.hpp"

#include "policy_exchange/report.hpp"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <sstream>
#include <utility>

namespace bus {

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr int64_t retry_milliseconds = 1000;
// How long the server keeps a request for messages. With the leader of a consumer its requests are lost, so this is
// also how long a device may be left without messages when a server dies.
constexpr std::chrono::seconds request_time(10);
constexpr std::chrono::seconds request_grace(1);
// More lines about refused messages would only help who sends them.
constexpr uint64_t max_refusals_told = 10;

class Inbox;

struct Device {
    Device(const DeviceCall& call, const std::string& name, const Audience& audience, Inbox& inbox_)
        : state(call.folder, {call.site, name, audience.token, audience.variant}),
          durable(name + (call.is_own ? "-own" : "-" + audience.token)), inbox(&inbox_) {}

    State state;
    const std::string durable;
    Inbox* inbox;
    Subscription subscription;
    std::string inbox_subject; ///< where the subscription listens
    bool is_fresh = true;      ///< the consumer has not been looked after yet
    bool is_answered = true;   ///< the last request is filled, or the server has ended it
    uint32_t asked = 0;        ///< messages that may still come for the last request
    Clock::time_point ask_at;  ///< when to ask again, whatever has come by then
    uint64_t complete = 0;     ///< number of the newest complete revision that was written
    double complete_since = 0; ///< seconds since 1970
    uint64_t applied = 0, repeated = 0, outdated = 0, refused = 0, bytes = 0, handed_back = 0;
};

struct Delivery {
    Device* device;
    NatsMessage message;
};

/// What has come and waits for its turn. The client library puts in on its own thread.
class Inbox {
public:
    static void deliver(natsConnection*, natsSubscription*, natsMsg* message, void* device) {
        auto* receiver = static_cast<Device*>(device);
        Inbox& inbox = *receiver->inbox;
        const std::lock_guard lock(inbox.mutex_);
        inbox.deliveries_.push_back({receiver, NatsMessage(message)});
        inbox.filled_.notify_one();
    }

    std::vector<Delivery> take(std::chrono::milliseconds wait) {
        std::unique_lock lock(mutex_);
        filled_.wait_for(lock, wait, [this] { return !deliveries_.empty(); });
        return std::exchange(deliveries_, {});
    }

private:
    std::mutex mutex_;
    std::condition_variable filled_;
    std::vector<Delivery> deliveries_;
};

/// The number of a message in its stream, from the subject that its acknowledgement goes to:
/// $JS.ACK.<stream>.<consumer>.<deliveries>.<number>. and more, or with <domain>.<account>. in front of the stream.
std::string stream_sequence(const char* reply) {
    std::vector<std::string> words;
    std::istringstream subject(reply != nullptr ? reply : "");
    for (std::string word; std::getline(subject, word, '.');) words.push_back(word);
    const std::size_t place = words.size() > 9 ? 7 : 5;
    return place < words.size() ? words[place] : "0";
}

/// Why a message is not applied, and how much of it is good.
struct Refusal {
    std::string reason;
    uint32_t offset = 0;
};

class Devices {
public:
    Devices(const Connection& connection, const DeviceCall& call)
        : connection_(connection), call_(call), domain_(exchange::create_domain(call.variant)),
          metrics_(call.metrics_file) {
        if (domain_ == nullptr) throw std::bad_alloc();
        for (const std::string& name : call.names) {
            const Audience audience =
                call.is_own ? device_audience(name, call.variant) : variant_audience(call.variant);
            devices_.push_back(std::make_unique<Device>(call, name, audience, inbox_));
        }
    }

    void run() {
        exchange::Progress progress("messages applied");
        while (!is_stopped() && !(call_.is_once && is_complete())) {
            attach_all();
            ask_all();
            work(inbox_.take(std::chrono::milliseconds(100)));
            progress.at(total(&Device::applied));
            if (metrics_.is_due()) write_metrics();
        }
        progress.clear();
        drain();
        write_metrics();
    }

    bool is_complete() const {
        return std::all_of(devices_.begin(), devices_.end(), [](const auto& device) {
            const auto current = in_force(device->state.revisions());
            return current != device->state.revisions().end() && current->second.is_complete();
        });
    }

    void show_summary() const {
        for (const auto& device : devices_) {
            const Holder& holder = device->state.holder();
            std::printf("%s, %s: ", holder.device.c_str(), holder.audience.c_str());
            const auto current = in_force(device->state.revisions());
            if (current == device->state.revisions().end())
                std::printf("no policy");
            else
                std::printf("revision %" PRIu64 ", %zu of %" PRIu32 " messages", current->first,
                            current->second.messages.size(), current->second.total);
            std::printf("; applied %" PRIu64 ", repeated %" PRIu64 ", outdated %" PRIu64 ", refused %" PRIu64 "\n",
                        device->applied, device->repeated, device->outdated, device->refused);
        }
    }

private:
    // ---- consumers ----

    /// Creates what is missing of the consumers, at the start and after each lost connection; a server may have lost
    /// them. What is impossible now is tried again after a while.
    void attach_all() {
        if (reconnects_ != connection_.reconnects()) {
            reconnects_ = connection_.reconnects();
            for (const auto& device : devices_) {
                device->is_fresh = true;
                device->ask_at = {};
            }
            next_attempt_ = {};
        }
        if (Clock::now() < next_attempt_ || !connection_.is_connected()) return;
        for (const auto& device : devices_) {
            if (!device->is_fresh || is_stopped()) continue;
            const natsStatus status = attach(*device);
            if (status == NATS_OK) continue;
            const std::string reason = error_text(status);
            if (reason != attach_reason_)
                std::fprintf(stderr, "policy_bus: %s waits: %s\n", device->durable.c_str(), reason.c_str());
            attach_reason_ = reason;
            next_attempt_ = Clock::now() + std::chrono::milliseconds(retry_milliseconds);
            return;
        }
    }

    natsStatus attach(Device& device) {
        jsCtx* context = connection_.stream_context();
        const std::string stream = stream_of(call_.site);
        const std::string filter = subject_of(call_.site, "*", device.state.holder().audience);
        if (device.subscription == nullptr && device.state.lacks_acknowledged())
            js_DeleteConsumer(context, stream.c_str(), device.durable.c_str(), nullptr, nullptr);
        jsConsumerConfig config;
        jsConsumerConfig_Init(&config);
        config.Durable = device.durable.c_str();
        config.AckPolicy = js_AckExplicit;
        config.AckWait = static_cast<int64_t>(call_.ack_wait * 1e9);
        // More than is ever asked for at a time: a server that stops at this limit may miss when it goes on.
        config.MaxAckPending = 4 * static_cast<int64_t>(call_.window);
        config.FilterSubject = filter.c_str();
        natsStatus status = js_AddConsumer(nullptr, context, stream.c_str(), &config, nullptr, nullptr);
        if (status == NATS_OK && device.subscription == nullptr) {
            natsInbox* inbox = nullptr;
            check(natsInbox_Create(&inbox), "inbox");
            device.inbox_subject = inbox;
            natsInbox_Destroy(inbox);
            natsSubscription* subscription = nullptr;
            status = natsConnection_Subscribe(&subscription, connection_.get(), device.inbox_subject.c_str(),
                                              Inbox::deliver, &device);
            device.subscription.reset(subscription);
        }
        device.is_fresh = status != NATS_OK;
        device.is_answered = true;
        return status;
    }

    /// Asks for messages wherever the last request is filled or has ended. A device asks only when it has acknowledged
    /// what came before, so that a slow one is never sent more than it can take.
    void ask_all() {
        const auto now = Clock::now();
        for (const auto& device : devices_) {
            if (device->is_fresh || now < device->ask_at) continue;
            if (!device->is_answered) { // the consumer may be gone
                device->is_fresh = device->is_answered = true;
                continue;
            }
            const std::string subject = "$JS.API.CONSUMER.MSG.NEXT." + stream_of(call_.site) + '.' + device->durable;
            const std::string request = "{\"batch\":" + std::to_string(call_.window) + ",\"expires\":" +
                                        std::to_string(std::chrono::nanoseconds(request_time).count()) + '}';
            natsConnection_PublishRequest(connection_.get(), subject.c_str(), device->inbox_subject.c_str(),
                                          request.data(), static_cast<int>(request.size()));
            device->asked = call_.window;
            device->is_answered = false;
            device->ask_at = now + request_time + request_grace;
        }
    }

    /// Whether it is the server's word on a request instead of a message.
    bool is_notice(Device& device, natsMsg* message) {
        const std::string status = header(message, "Status");
        const char* reply = natsMsg_GetReply(message);
        if (status.empty() || (reply != nullptr && *reply != 0)) return false;
        const bool has_expired = status == "404" || status == "408";
        device.ask_at = Clock::now() + std::chrono::milliseconds(has_expired ? 0 : retry_milliseconds);
        device.is_answered = true;
        if (!has_expired) device.is_fresh = true;
        return true;
    }

    // ---- messages ----

    void work(std::vector<Delivery> deliveries) {
        std::vector<Device*> changed;
        for (Delivery& delivery : deliveries) {
            if (is_notice(*delivery.device, delivery.message.get())) {
                delivery.message.reset();
                continue;
            }
            if (delivery.device->asked != 0 && --delivery.device->asked == 0) {
                delivery.device->is_answered = true;
                delivery.device->ask_at = {};
            }
            const std::optional<Refusal> refusal = take_in(*delivery.device, delivery.message.get());
            if (refusal)
                give_up(*delivery.device, std::move(delivery.message), *refusal);
            else if (std::find(changed.begin(), changed.end(), delivery.device) == changed.end())
                changed.push_back(delivery.device);
        }
        std::vector<Device*> unsaved;
        for (Device* device : changed) {
            if (device->state.save()) {
                note_completion(*device);
                continue;
            }
            std::fprintf(stderr, "policy_bus: %s: its policy cannot be written: %s\n",
                         device->state.holder().device.c_str(), std::strerror(errno));
            unsaved.push_back(device);
        }
        for (const Delivery& delivery : deliveries) {
            if (delivery.message == nullptr) continue;
            if (std::find(unsaved.begin(), unsaved.end(), delivery.device) == unsaved.end())
                answer(delivery.message.get(), "+ACK");
            else
                hand_back(*delivery.device, delivery.message.get());
        }
    }

    static void note_completion(Device& device) {
        const auto current = in_force(device.state.revisions());
        if (current == device.state.revisions().end() || !current->second.is_complete() ||
            current->first == device.complete)
            return;
        device.complete = current->first;
        device.complete_since = Seconds(std::chrono::system_clock::now().time_since_epoch()).count();
    }

    /// Applies the message unless the device has it.
    std::optional<Refusal> take_in(Device& device, natsMsg* message) {
        const std::span wire(reinterpret_cast<const uint8_t*>(natsMsg_GetData(message)),
                             static_cast<std::size_t>(natsMsg_GetDataLength(message)));
        const auto id = read_id(header(message, id_header));
        const auto total = read_number<uint32_t>(header(message, messages_header));
        if (!id || !total) return Refusal{"its headers do not say which message of which policy it is"};
        if (id->audience != device.state.holder().audience) return Refusal{"it is meant for " + id->audience};
        if (wire.empty() || wire.size() > exchange::max_message)
            return Refusal{std::to_string(wire.size()) + " bytes; 1 to " + std::to_string(exchange::max_message) +
                           " are allowed"};
        const auto start = Clock::now();
        uint32_t st = 0;
        std::string reason;
        exchange::read_wire(domain_.get(), wire, &st, reason);
        read_time_ += Clock::now() - start;
        if (st != 0)
            return Refusal{reason.empty() ? exchange::status_text(st) : reason,
                           exchange::fault_offset(domain_.get(), wire)};
        // Many a damaged message can still be read, with another content.
        if (digest_text(wire) != header(message, digest_header)) return Refusal{"it is not what its digest says"};
        switch (device.state.apply(id->revision, id->line, *total, wire)) {
        case State::Verdict::applied:
            ++device.applied;
            device.bytes += wire.size();
            break;
        case State::Verdict::repeated: ++device.repeated; break;
        case State::Verdict::outdated: ++device.outdated; break;
        }
        return std::nullopt;
    }

    /// Keeps the message as a dead letter, once for all devices, and asks for it no more.
    void give_up(Device& device, NatsMessage message, const Refusal& refusal) {
        const std::string sequence = stream_sequence(natsMsg_GetReply(message.get()));
        const std::string& name = device.state.holder().device;
        const char* subject = natsMsg_GetSubject(message.get());
        const NatsMessage letter =
            create_message(dead_letter_subject_of(call_.site, name), natsMsg_GetData(message.get()),
                           static_cast<std::size_t>(natsMsg_GetDataLength(message.get())));
        const std::pair<const char*, std::string> headers[] = {
            {id_header, sequence},           {sequence_header, sequence},
            {subject_header, subject},       {refused_id_header, header(message.get(), id_header)},
            {device_header, name},           {offset_header, std::to_string(refusal.offset)},
            {reason_header, refusal.reason},
        };
        for (const auto& [key, value] : headers)
            if (!value.empty()) set_header(letter.get(), key, value);
        const natsStatus status = js_PublishMsg(nullptr, connection_.stream_context(), letter.get(), nullptr, nullptr);
        if (status != NATS_OK) return hand_back(device, message.get());
        ++device.refused;
        answer(message.get(), "+TERM");
        if (total(&Device::refused) > max_refusals_told) return;
        std::fprintf(stderr, "policy_bus: %s refuses message %s of %s, good up to byte %" PRIu32 ": %s\n", name.c_str(),
                     sequence.c_str(), subject, refusal.offset, refusal.reason.c_str());
    }

    /// The client library answers only what it has subscribed to itself. An answer that is lost costs a repetition.
    void answer(natsMsg* message, const std::string& word) {
        natsConnection_PublishString(connection_.get(), natsMsg_GetReply(message), word.c_str());
    }

    /// Asks the server to send it again later.
    void hand_back(Device& device, natsMsg* message) {
        ++device.handed_back;
        answer(message, "-NAK {\"delay\":" + std::to_string(retry_milliseconds * 1'000'000) + '}');
    }

    // ---- the end ----

    /// Takes what has been delivered, but no more, and leaves when it is acknowledged.
    void drain() {
        constexpr int64_t patience = 5000;
        for (const auto& device : devices_)
            if (device->subscription != nullptr) natsSubscription_Drain(device->subscription.get());
        for (const auto& device : devices_)
            if (device->subscription != nullptr && connection_.is_connected())
                natsSubscription_WaitForDrainCompletion(device->subscription.get(), patience);
        work(inbox_.take({}));
        if (connection_.is_connected()) natsConnection_FlushTimeout(connection_.get(), patience);
    }

    uint64_t total(uint64_t Device::*count) const {
        uint64_t sum = 0;
        for (const auto& device : devices_) sum += (*device).*count;
        return sum;
    }

    void write_metrics() {
        const auto labels = [](const Device& device) {
            const Holder& holder = device.state.holder();
            return "site=\"" + holder.site + "\",device=\"" + holder.device + "\",audience=\"" + holder.audience + '"';
        };
        struct Count {
            const char* name;
            const char* help;
            uint64_t Device::*value;
        };
        static constexpr Count counts[] = {
            {"applied_total", "Messages applied.", &Device::applied},
            {"applied_bytes_total", "Bytes of the messages applied.", &Device::bytes},
            {"repeated_total", "Messages that the device had already.", &Device::repeated},
            {"outdated_total", "Messages of revisions older than the one in force.", &Device::outdated},
            {"refused_total", "Messages that became dead letters.", &Device::refused},
            {"handed_back_total", "Messages that could not be kept and will come again.", &Device::handed_back},
        };
        for (const Count& count : counts) {
            metrics_.begin(count.name, count.help);
            for (const auto& device : devices_)
                metrics_.sample(labels(*device), static_cast<double>((*device).*count.value));
        }
        const auto each = [&](const char* name, const char* help, auto value_of) {
            metrics_.begin(name, help);
            for (const auto& device : devices_) {
                const Revisions& revisions = device->state.revisions();
                const auto current = in_force(revisions);
                if (current != revisions.end())
                    metrics_.sample(labels(*device), static_cast<double>(value_of(*current)));
            }
        };
        each("revision", "Number of the revision in force.", [](const auto& entry) { return entry.first; });
        each("revision_messages", "Messages that the device has of it.",
             [](const auto& entry) { return entry.second.messages.size(); });
        each("revision_complete", "1 when these are all.",
             [](const auto& entry) { return entry.second.is_complete(); });
        metrics_.begin("revision_since_seconds", "When this process completed it, in seconds since 1970.");
        for (const auto& device : devices_)
            if (device->complete != 0) metrics_.sample(labels(*device), device->complete_since);
        const std::string site = "site=\"" + call_.site + '"';
        metrics_.begin("read_seconds_total", "Time spent to read messages.");
        metrics_.sample(site, Seconds(read_time_).count());
        metrics_.begin("reconnects_total", "Lost connections that were replaced.");
        metrics_.sample(site, static_cast<double>(connection_.reconnects()));
        metrics_.write();
    }

    const Connection& connection_;
    const DeviceCall& call_;
    const exchange::Domain domain_;
    Metrics metrics_;
    Inbox inbox_;
    std::vector<std::unique_ptr<Device>> devices_;
    uint64_t reconnects_ = 0;
    Clock::time_point next_attempt_;
    std::string attach_reason_;
    Clock::duration read_time_ = {};
};

} // namespace

bool run_devices(const Connection& connection, const DeviceCall& call) {
    Devices devices(connection, call);
    devices.run();
    devices.show_summary();
    return devices.is_complete();
}

void list_dead_letters(const Connection& connection, const std::string& site) {
    const std::string stream = dead_letter_stream_of(site);
    jsCtx* context = connection.stream_context();
    jsStreamInfo* found = nullptr;
    check(js_GetStreamInfo(&found, context, stream.c_str(), nullptr, nullptr), "stream " + stream);
    const Owned<jsStreamInfo, jsStreamInfo_Destroy> info(found);
    for (uint64_t sequence = info->State.FirstSeq; sequence != 0 && sequence <= info->State.LastSeq; ++sequence) {
        natsMsg* kept = nullptr;
        const natsStatus status = js_GetMsg(&kept, context, stream.c_str(), sequence, nullptr, nullptr);
        const NatsMessage letter(kept);
        if (status == NATS_NOT_FOUND) continue; // removed since
        check(status, "stream " + stream);
        std::printf("message %s of %s, id %s, %d bytes, refused first by %s, good up to byte %s: %s\n",
                    header(kept, sequence_header).c_str(), header(kept, subject_header).c_str(),
                    header(kept, refused_id_header).c_str(), natsMsg_GetDataLength(kept),
                    header(kept, device_header).c_str(), header(kept, offset_header).c_str(),
                    header(kept, reason_header).c_str());
    }
}

} // namespace bus
