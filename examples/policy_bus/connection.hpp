// The connection to a server of the bus, and the objects of the client library with their owners. What is sent over it
// is decided elsewhere.
#pragma once

#include <nats/nats.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace bus {

template <auto destroy>
struct Destroy {
    template <class T>
    void operator()(T* object) const {
        destroy(object);
    }
};
template <class T, auto destroy>
using Owned = std::unique_ptr<T, Destroy<destroy>>;

using NatsMessage = Owned<natsMsg, natsMsg_Destroy>;
using Subscription = Owned<natsSubscription, natsSubscription_Destroy>;

/// The bus does not do what was asked; the text says what, and why.
class BusError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What the client library says about its last call on this thread.
std::string error_text(natsStatus status);
void check(natsStatus status, const std::string& what);

std::string header(natsMsg* message, const char* name);
void set_header(natsMsg* message, const char* name, const std::string& value);
NatsMessage create_message(const std::string& subject, const void* bytes, std::size_t size);

struct ConnectionOptions {
    std::vector<std::string> servers;
    std::string name;
    std::string credentials_file, nkey_file;
    std::string user, password;
    bool is_tls = false;
    std::string ca_file, certificate_file, key_file;
    double timeout = 5; ///< seconds for one attempt to connect, and for one request
};

class Connection {
public:
    /// Throws a BusError when no server can be reached.
    explicit Connection(const ConnectionOptions& options);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection();

    natsConnection* get() const { return connection_.get(); }
    jsCtx* stream_context() const { return context_.get(); }
    bool is_connected() const { return natsConnection_Status(get()) == NATS_CONN_STATUS_CONNECTED; }
    /// Changes with every connection that follows a lost one.
    uint64_t reconnects() const { return reconnects_; }

private:
    std::atomic<uint64_t> reconnects_ = 0;
    Owned<natsConnection, natsConnection_Destroy> connection_;
    Owned<jsCtx, jsCtx_Destroy> context_;
};

/// Creates the site's stream of policy and that of dead letters. Replicas of 0 stand for those that it has, or for 1.
void ensure_streams(const Connection& connection, const std::string& site, uint32_t replicas);

/// Turns SIGINT and SIGTERM into a request to end in order.
void watch_signals();
bool is_stopped();

} // namespace bus
