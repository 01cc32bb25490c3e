// What a peer of the policy exchange does with bytes that no sender of ours writes. What the program does is in a
// transcript.
#include "examples/policy_exchange/peer.hpp"
#include "examples/policy_exchange/traces.hpp"

#include <gmock/gmock.h>

#include <sys/socket.h>
#include <unistd.h>

namespace {

using Bytes = std::vector<uint8_t>;

/// What a peer on these bytes shows, then what it tells, with its exit status and whether its totals come.
std::string hear(const Bytes& bytes) {
    int sockets[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
    EXPECT_EQ(write(sockets[0], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    shutdown(sockets[0], SHUT_WR);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int status = exchange::receive_messages({"peer 1", 127}, sockets[1], stdout);
    std::string told = testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
    told += "status " + std::to_string(status);
    close(sockets[1]);
    exchange::Totals totals;
    if (exchange::receive_all(sockets[0], &totals, sizeof totals) == sizeof totals) told += ", totals";
    close(sockets[0]);
    return told;
}

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// preauth create: variant, flags, jump word, tag (variant, 8), arm (variant, flags, jump word, is_create)
Bytes preauth(uint8_t frame_length, uint8_t jump, const Bytes& end = {0, 0, 0, 1}) {
    const Bytes start = {0, 0, 0, frame_length, 0, 0, 0, 7, 1, 0, 0, 0, 0, jump, 1, 0, 0, 0, 8, 0, 0, 0, 0, 0, 8};
    return start + end;
}

TEST(PolicyExchangePeer, RefusesWhatIsDamagedAndJumpsOverWhatIsNewer) {
    std::string reason;
    ASSERT_TRUE(exchange::open_traces(reason)) << reason;
    exchange::show_traces_as("peer 1");
    const Bytes good = preauth(21, 19);
    const std::string shown = "line 7@orlan_ial_svm_epm_data: {\n"
                              "  epm_type@orlan_ial_svm_epm_type_e:ORLAN_IAL_SVM_EPM_TYPE_PREAUTH\n"
                              "  epm_type.preauthacl_data@orlan_ial_svm_preauthacl_data: {\n"
                              "    is_create@u_int32:1\n  }\n}\n";
    const std::string frames = "peer 1: a frame of ", damaged = "peer 1: line 7: a message of ",
                      notice = "peer 1: notice: offset_jump read_len ";
    const std::pair<Bytes, std::string> streams[] = {
        {good + Bytes{0, 1, 0, 1, 0, 0, 0, 8}, frames + "65537 bytes; 1 to 65536 are allowed\nstatus 1"},
        {good + Bytes{0, 0, 0, 0, 0, 0, 0, 8}, frames + "0 bytes; 1 to 65536 are allowed\nstatus 1"},
        {good + Bytes{0, 0, 0}, "peer 1: the stream ends within a frame\nstatus 1"},
        {good + Bytes(good.begin(), good.end() - 1), "peer 1: the stream ends within a frame\nstatus 1"},
        {good, "status 0, totals"},
        // A newer sender's field of two bytes follows those that this build knows.
        {preauth(23, 21, {0, 0, 0, 1, 0xAB, 0xCD}),
         notice + "21 offset_jump_base 2 _zur_variant_jump 21\nstatus 0, totals"},
        // Of it, one byte is missing; the next message is cut. The good one behind these damaged ones arrives.
        {preauth(22, 21, {0, 0, 0, 1, 0xAB}) + preauth(18, 19, {0}) + good,
         damaged + "22 bytes: it says that it has 23\n" + notice + "6 offset_jump_base 2 _zur_variant_jump 8\n" +
             damaged +
             "18 bytes: status 90 (a message of the wrong length, or a buffer too short for one)\nstatus 1, totals"},
    };
    for (const auto& [bytes, told] : streams) {
        const std::string heard = hear(bytes);
        EXPECT_THAT(heard, testing::StartsWith(shown));
        EXPECT_THAT(heard, testing::EndsWith(told));
    }
}

} // namespace
