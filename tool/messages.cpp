// libtins takes captures apart and puts TCP connections together; libpcap, below it, reads the file.
#include "tool/messages.hpp"

#include "tool/failure.hpp"
#include "tool/walk.hpp"

#include <tins/tcp_ip/stream_follower.h>
#include <tins/tins.h>

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sys/stat.h>

namespace epm::tool {

namespace {

constexpr std::size_t frame_head = 8;

/// The bytes of one direction of a connection, as frames.
class Frames {
public:
    Frames(std::string name, const TellMessage& tell, const TellDamage& damaged)
        : name_(std::move(name)), tell_(tell), damaged_(damaged) {}
    Frames(const Frames&) = delete;
    Frames& operator=(const Frames&) = delete;
    ~Frames() {
        if (!rest_.empty()) lose("it ends within a frame");
        if (has_gap) lose("packets are missing");
    }

    bool has_gap = false; ///< bytes are there that do not follow those that were added

    void add(ByteView bytes) {
        if (is_lost_) return;
        rest_.insert(rest_.end(), bytes.begin(), bytes.end());
        ByteView rest = rest_;
        while (rest.size() >= frame_head) {
            const std::uint64_t length = number(rest.first(4));
            if (length == 0 || length > most_message) return lose("a frame of " + std::to_string(length) + " bytes");
            if (rest.size() - frame_head < length) break;
            const std::uint64_t line = number(rest.subspan(4, 4));
            tell_(name_ + "message " + std::to_string(++count_) +
                      (line != 0 ? " (line " + std::to_string(line) + ")" : ""),
                  rest.subspan(frame_head, length));
            rest = rest.subspan(frame_head + length);
        }
        rest_.erase(rest_.begin(), rest_.end() - static_cast<std::ptrdiff_t>(rest.size()));
    }

private:
    /// Nobody knows where the next frame begins.
    void lose(const std::string& reason) {
        damaged_(name_ + "after message " + std::to_string(count_) + ": " + reason);
        is_lost_ = true;
        rest_ = {};
    }

    const std::string name_;
    const TellMessage& tell_;
    const TellDamage& damaged_;
    Bytes rest_;
    std::uint64_t count_ = 0;
    bool is_lost_ = false;
};

/// Shows on a terminal how far a long file has been read.
class Progress {
public:
    explicit Progress(std::FILE* file) : file_(file) {
        struct stat about {};
        if (isatty(STDERR_FILENO) != 0 && fstat(fileno(file), &about) == 0 && S_ISREG(about.st_mode))
            size_ = about.st_size;
    }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress() {
        if (is_shown_) std::fputs("\r\033[K", stderr);
    }
    void step() {
        if (size_ == 0 || ++steps_ % 256 != 0) return;
        const auto now = Clock::now();
        if (now < next_) return;
        next_ = now + std::chrono::milliseconds(200);
        is_shown_ = std::fprintf(stderr, "\r%3.0f %%\r",
                                 100.0 * static_cast<double>(ftello(file_)) / static_cast<double>(size_)) > 0;
    }

private:
    using Clock = std::chrono::steady_clock;
    std::FILE* const file_;
    off_t size_ = 0;
    std::uint32_t steps_ = 0;
    Clock::time_point next_ = Clock::now() + std::chrono::milliseconds(500);
    bool is_shown_ = false;
};

void read_stream(const MessageSource& source, const TellMessage& tell, const TellDamage& damaged) {
    const InputFile file = open_input(source.file);
    Progress progress(file.get());
    Frames frames("", tell, damaged);
    each_block(file.get(), [&](ByteView block) {
        frames.add(block);
        progress.step();
    });
}

// ---- captures ----

template <class Address>
std::string end_point(const Address& address, std::uint16_t port) {
    const std::string text = address.to_string();
    return (text.find(':') != text.npos ? "[" + text + "]" : text) + ":" + std::to_string(port);
}

template <class From, class To>
std::string way(const From& from, std::uint16_t from_port, const To& to, std::uint16_t to_port) {
    return end_point(from, from_port) + " > " + end_point(to, to_port) + ": ";
}

class Capture {
public:
    Capture(const TellMessage& tell, const TellDamage& damaged) : tell_(tell), damaged_(damaged) {
        follower_.follow_partial_streams(true);
        follower_.new_stream_callback([this](Stream& stream) { follow(stream); });
    }

    void add(Tins::PDU& packet) {
        if (const auto* datagram = packet.find_pdu<Tins::UDP>())
            take(packet, *datagram);
        else if (packet.find_pdu<Tins::TCP>() != nullptr)
            follower_.process_packet(packet);
    }

private:
    using Stream = Tins::TCPIP::Stream;
    using Follower = Tins::TCPIP::StreamFollower;

    static std::string name_of(const Stream& stream, bool is_back = false) {
        const auto told = [&](const auto& client, const auto& server) {
            return is_back ? way(server, stream.server_port(), client, stream.client_port())
                           : way(client, stream.client_port(), server, stream.server_port());
        };
        return stream.is_v6() ? told(stream.client_addr_v6(), stream.server_addr_v6())
                              : told(stream.client_addr_v4(), stream.server_addr_v4());
    }

    /// The frames live as long as the stream that has their callbacks.
    void follow(Stream& stream) {
        const auto there = std::make_shared<Frames>(name_of(stream), tell_, damaged_);
        const auto back = std::make_shared<Frames>(name_of(stream, true), tell_, damaged_);
        // Bytes ahead of those that were added may come into their turn later.
        const auto ahead = [](const Tins::TCPIP::Flow& flow, std::uint32_t place) {
            return static_cast<std::int32_t>(place - flow.sequence_number()) > 0;
        };
        stream.client_out_of_order_callback([=](Stream& s, std::uint32_t place, const auto&) {
            there->has_gap = there->has_gap || ahead(s.client_flow(), place);
        });
        stream.server_out_of_order_callback([=](Stream& s, std::uint32_t place, const auto&) {
            back->has_gap = back->has_gap || ahead(s.server_flow(), place);
        });
        stream.client_data_callback([there](Stream& s) {
            there->has_gap = !s.client_flow().buffered_payload().empty();
            there->add(s.client_payload());
        });
        stream.server_data_callback([back](Stream& s) {
            back->has_gap = !s.server_flow().buffered_payload().empty();
            back->add(s.server_payload());
        });
    }

    void take(const Tins::PDU& packet, const Tins::UDP& datagram) {
        const auto* content = datagram.find_pdu<Tins::RawPDU>();
        if (content == nullptr) return;
        const auto told = [&](const auto& ip) {
            tell_(way(ip.src_addr(), datagram.sport(), ip.dst_addr(), datagram.dport()) + "datagram " +
                      std::to_string(++datagrams_),
                  content->payload());
        };
        if (const auto* ip = packet.find_pdu<Tins::IP>())
            told(*ip);
        else if (const auto* ip6 = packet.find_pdu<Tins::IPv6>())
            told(*ip6);
    }

    const TellMessage& tell_;
    const TellDamage& damaged_;
    Follower follower_;
    std::uint64_t datagrams_ = 0;
};

void read_capture(const MessageSource& source, const TellMessage& tell, const TellDamage& damaged) try {
    if (source.file != "-" && access(source.file.c_str(), R_OK) != 0) throw Failure{has_no_file, std::strerror(errno)};
    Tins::FileSniffer sniffer(source.file, source.filter);
    Progress progress(pcap_file(sniffer.get_pcap_handle()));
    Capture capture(tell, damaged);
    sniffer.sniff_loop([&](Tins::PDU& packet) {
        capture.add(packet);
        progress.step();
        return true;
    });
    if (const char* error = pcap_geterr(sniffer.get_pcap_handle()); error != nullptr && *error != '\0')
        throw Failure{is_damaged, error};
} catch (const Tins::invalid_pcap_filter& error) {
    throw Failure{is_bad_call, std::string("--filter: ") + error.what()};
} catch (const Tins::exception_base& error) {
    throw Failure{has_no_file, error.what()};
}

} // namespace

void each_message(const MessageSource& source, const TellMessage& tell, const TellDamage& damaged) {
    (source.is_capture ? read_capture : read_stream)(source, tell, damaged);
}

} // namespace epm::tool
