// Both ends of a peer: the process that receives, and the sender's side, which starts it, feeds it and waits for it.
#include "peer.hpp"

#include "report.hpp"
#include "traces.hpp"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace exchange {

namespace {

std::string origin(uint32_t line) {
    return line != 0 ? "line " + std::to_string(line) : "XML file";
}

/// Reports a failure. Returns the exit status of a peer that failed.
int complain(const Role& role, const std::string& what) {
    std::fprintf(stderr, "%s: %s\n", role.name.c_str(), what.c_str());
    return 1;
}

} // namespace

int receive_messages(const Role& role, int socket, std::FILE* output) {
    using Clock = std::chrono::steady_clock;
    const Domain domain = create_domain(role.variant);
    if (domain == nullptr) return complain(role, status_text(ZUR_NO_MEMORY));
    Totals totals;
    Frame frame;
    std::string reason;
    int status = 0;
    Clock::time_point begin;
    for (Received received; (received = receive_frame(socket, frame, reason)) != Received::end;) {
        if (received == Received::failure) return complain(role, reason); // nobody knows where the next frame begins
        if (totals.messages == 0) begin = Clock::now();
        ++totals.messages;
        totals.bytes += frame.message.size();
        const std::string name = origin(frame.line);
        uint32_t st = 0;
        const std::string text = text_form(domain.get(), frame.message, name, role.form, &st, reason);
        std::fwrite(text.data(), 1, text.size(), output);
        if (st == 0) continue;
        status = complain(role, name + ": a message of " + std::to_string(frame.message.size()) +
                                    " bytes: " + (reason.empty() ? status_text(st) : reason));
        reason.clear();
    }
    if (totals.messages != 0)
        totals.nanoseconds = static_cast<uint64_t>(std::chrono::nanoseconds(Clock::now() - begin).count());
    if (std::fflush(output) != 0 || std::ferror(output) != 0)
        return complain(role, std::string("cannot write its output: ") + std::strerror(errno));
    if (!send_all(socket, &totals, sizeof totals)) return complain(role, "cannot hand back its totals");
    return status;
}

Peer::Peer(const Role& role, File output)
    : role_(role), output_(std::move(output)), domain_(create_domain(role.variant)) {}

// Waits for the process if it was started, whatever has happened since.
Peer::~Peer() {
    if (socket_ >= 0) close(socket_);
    if (process_ > 0) waitpid(process_, nullptr, 0);
}

bool Peer::fail(const std::string& reason) {
    complain(role_, reason);
    failed_ = true;
    return false;
}

bool Peer::start(std::span<const std::unique_ptr<Peer>> earlier) {
    int sockets[2];
    if (domain_ == nullptr) return fail(status_text(ZUR_NO_MEMORY));
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) != 0) return fail(std::strerror(errno));
    process_ = fork();
    if (process_ == 0) {
        close(sockets[0]);
        for (const auto& peer : earlier) close(peer->socket_);
        show_traces_as(role_.name.c_str());
        std::exit(receive_messages(role_, sockets[1], output_.get()));
    }
    close(sockets[1]);
    socket_ = sockets[0];
    return process_ > 0 || fail(std::strerror(errno));
}

void Peer::record(Capture& capture, uint8_t number) {
    capture_ = &capture;
    number_ = number;
    capture_->connect(number_);
}

void Peer::deliver(uint32_t line, const Statement& statement) {
    if (failed_) return; // already reported
    uint32_t st = 0;
    const std::vector<uint8_t> wire = wire_form(domain_.get(), statement, left_out_, &st);
    send(line, wire, st);
}

void Peer::deliver(const Message& message) {
    if (failed_) return;
    uint32_t st = 0;
    const std::vector<uint8_t> wire = wire_form(domain_.get(), message.get(), &st);
    send(0, wire, st);
}

void Peer::send(uint32_t line, std::span<const uint8_t> wire, uint32_t st) {
    if (st == ZUR_NOT_IN_VARIANT) {
        ++not_sent_;
    } else if (st != 0) {
        fail(origin(line) + " cannot be built: " + status_text(st));
    } else if (!send_frame(socket_, line, wire)) {
        fail(origin(line) + " cannot be sent: " + std::strerror(errno));
    } else {
        ++sent_;
        if (capture_ != nullptr) capture_->send(number_, frame_of(line, wire));
    }
}

void Peer::finish() {
    if (capture_ != nullptr) capture_->finish(number_);
    shutdown(socket_, SHUT_WR);
    const bool has_totals = receive_all(socket_, &totals_, sizeof totals_) == sizeof totals_;
    if (!has_totals) totals_ = {};
    close(std::exchange(socket_, -1));
    int status = 0;
    pid_t ended;
    while ((ended = waitpid(process_, &status, 0)) < 0 && errno == EINTR) {
    }
    process_ = -1;
    if (ended < 0)
        fail(std::string("its end is not known: ") + std::strerror(errno));
    else if (WIFSIGNALED(status))
        fail(std::string("ended by a signal: ") + strsignal(WTERMSIG(status)));
    else if (WEXITSTATUS(status) != 0)
        fail("ended with exit status " + std::to_string(WEXITSTATUS(status)));
    else if (!has_totals || totals_.messages != sent_)
        fail("received " + std::to_string(totals_.messages) + " of " + std::to_string(sent_) + " messages");
}

} // namespace exchange
