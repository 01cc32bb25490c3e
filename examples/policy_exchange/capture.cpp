// The file format is pcap, with bare IPv4 packets. The times of its packets are real; if SOURCE_DATE_EPOCH is set, they
// are that second and the microseconds after it, so that the same messages give the same file.
#include "capture.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <cstdlib>
#include <netinet/ip.h>
#include <netinet/tcp.h>

namespace exchange {

namespace {

constexpr uint32_t magic = 0xA1B2C3D4; // times are in microseconds
constexpr uint16_t major_version = 2, minor_version = 4;
constexpr uint32_t most_captured = 65535, bare_ip = 101;
constexpr std::size_t most_content = most_captured - sizeof(iphdr) - sizeof(tcphdr);
constexpr uint16_t first_port = 49152; // of the sender
constexpr uint32_t sender_address = 0x7F000001, peers_address = 0x7F00000A;

std::span<const uint8_t> bytes_of(const auto& object) {
    return {reinterpret_cast<const uint8_t*>(&object), sizeof object};
}

void put(std::ostream& file, const auto&... numbers) {
    (file.write(reinterpret_cast<const char*>(&numbers), sizeof numbers), ...);
}

/// The sum of 16-bit words that all internet checksums are made of.
uint32_t sum(std::span<const uint8_t> bytes) {
    uint32_t result = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) result += i % 2 == 0 ? uint32_t{bytes[i]} << 8 : bytes[i];
    return result;
}

uint16_t checksum(uint32_t sum) {
    while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
    return htons(static_cast<uint16_t>(~sum));
}

uint64_t microseconds(uint64_t packet) {
    if (const char* epoch = std::getenv("SOURCE_DATE_EPOCH"))
        return std::strtoull(epoch, nullptr, 10) * 1'000'000 + packet;
    using namespace std::chrono;
    return static_cast<uint64_t>(
        duration_cast<std::chrono::microseconds>(system_clock::now().time_since_epoch()).count());
}

} // namespace

bool Capture::open(const char* path) {
    file_.open(path, std::ios::binary);
    put(file_, magic, major_version, minor_version, uint32_t{0}, uint32_t{0}, most_captured, bare_ip);
    return file_.good();
}

bool Capture::close() {
    file_.close();
    return file_.good();
}

void Capture::connect(uint8_t peer) {
    packet(peer, From::sender, TH_SYN);
    packet(peer, From::peer, TH_SYN | TH_ACK);
    packet(peer, From::sender, TH_ACK);
}

void Capture::send(uint8_t peer, std::span<const uint8_t> bytes) {
    while (!bytes.empty()) {
        const auto content = bytes.first(std::min(bytes.size(), most_content));
        packet(peer, From::sender, TH_PUSH | TH_ACK, content);
        bytes = bytes.subspan(content.size());
    }
}

void Capture::finish(uint8_t peer) {
    packet(peer, From::sender, TH_FIN | TH_ACK);
    packet(peer, From::peer, TH_FIN | TH_ACK);
    packet(peer, From::sender, TH_ACK);
}

void Capture::packet(uint8_t peer, From from, uint8_t flags, std::span<const uint8_t> content) {
    const bool is_sent = from == From::sender;
    Sent& stream = streams_[peer];
    uint32_t& mine = is_sent ? stream.by_sender : stream.by_peer;

    iphdr ip = {};
    ip.version = IPVERSION;
    ip.ihl = sizeof ip / 4;
    const std::size_t length = sizeof ip + sizeof(tcphdr) + content.size();
    ip.tot_len = htons(static_cast<uint16_t>(length));
    ip.ttl = IPDEFTTL;
    ip.protocol = IPPROTO_TCP;
    ip.saddr = htonl(is_sent ? sender_address : peers_address + peer);
    ip.daddr = htonl(is_sent ? peers_address + peer : sender_address);
    ip.check = checksum(sum(bytes_of(ip)));

    tcphdr tcp = {};
    const auto sender_port = static_cast<uint16_t>(first_port + peer);
    tcp.th_sport = htons(is_sent ? sender_port : port);
    tcp.th_dport = htons(is_sent ? port : sender_port);
    tcp.th_seq = htonl(mine);
    if ((flags & TH_ACK) != 0) tcp.th_ack = htonl(is_sent ? stream.by_peer : stream.by_sender);
    tcp.th_off = sizeof tcp / 4;
    tcp.th_flags = flags;
    tcp.th_win = 0xFFFF;
    const uint32_t addresses = sum(bytes_of(ip.saddr)) + sum(bytes_of(ip.daddr));
    const auto tcp_length = static_cast<uint32_t>(sizeof tcp + content.size());
    tcp.th_sum = checksum(addresses + IPPROTO_TCP + tcp_length + sum(bytes_of(tcp)) + sum(content));
    mine += static_cast<uint32_t>(content.size()) + ((flags & (TH_SYN | TH_FIN)) != 0 ? 1 : 0);

    const uint64_t time = microseconds(packets_++);
    const auto captured = static_cast<uint32_t>(length);
    put(file_, static_cast<uint32_t>(time / 1'000'000), static_cast<uint32_t>(time % 1'000'000), captured, captured);
    put(file_, ip, tcp);
    file_.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
}

} // namespace exchange
