// What a peer of the policy exchange does with bytes that no sender of ours writes. What the program does is in a
// transcript.
#include "examples/policy_exchange/peer.hpp"
#include "examples/policy_exchange/traces.hpp"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

namespace {

using Bytes = std::vector<uint8_t>;

/// A peer on these bytes: its exit status, and what it shows and tells.
struct Heard {
    int status;
    std::string shown, told;
    bool has_totals;
};
Heard hear(const Bytes& bytes) {
    int sockets[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
    EXPECT_EQ(write(sockets[0], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    shutdown(sockets[0], SHUT_WR);
    exchange::File output(std::tmpfile(), &std::fclose);
    testing::internal::CaptureStderr();
    Heard heard = {};
    heard.status = exchange::receive_messages({"peer 1", 127}, sockets[1], output.get());
    heard.told = testing::internal::GetCapturedStderr();
    close(sockets[1]);
    exchange::Totals totals;
    heard.has_totals = exchange::receive_all(sockets[0], &totals, sizeof totals) == sizeof totals;
    close(sockets[0]);
    std::rewind(output.get());
    for (int c; (c = std::fgetc(output.get())) != EOF;) heard.shown += static_cast<char>(c);
    return heard;
}

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
Bytes frame(uint8_t line, const Bytes& message) {
    return Bytes{0, 0, 0, static_cast<uint8_t>(message.size()), 0, 0, 0, line} + message;
}

// preauth create: variant, flags, jump word, tag (variant, 8), arm (variant, flags, jump word, is_create)
const Bytes preauth = {1, 0, 0, 0, 0, 19, 1, 0, 0, 0, 8, 0, 0, 0, 0, 0, 8, 0, 0, 0, 1};
const std::string preauth_text = "line 7@orlan_ial_svm_epm_data: {\n"
                                 "  epm_type@orlan_ial_svm_epm_type_e:ORLAN_IAL_SVM_EPM_TYPE_PREAUTH\n"
                                 "  epm_type.preauthacl_data@orlan_ial_svm_preauthacl_data: {\n"
                                 "    is_create@u_int32:1\n  }\n}\n";

TEST(PolicyExchangePeer, RefusesFramesThatNoSenderWrites) {
    const Bytes good = frame(7, preauth);
    const struct {
        Bytes bytes;
        std::string told;
    } streams[] = {
        {{0x7F, 0xFF, 0xFF, 0xFF, 0, 0, 0, 8}, "a frame of 2147483647 bytes; 1 to 65536 are allowed"},
        {{0, 1, 0, 1, 0, 0, 0, 8}, "a frame of 65537 bytes; 1 to 65536 are allowed"},
        {{0, 0, 0, 0, 0, 0, 0, 8}, "a frame of 0 bytes; 1 to 65536 are allowed"},
        {{0, 0, 0}, "the stream ends within a frame"},
        {Bytes(good.begin(), good.end() - 1), "the stream ends within a frame"},
        {{}, ""},
    };
    for (const auto& [bytes, told] : streams) {
        const Heard heard = hear(good + bytes);
        EXPECT_EQ(heard.status, told.empty() ? 0 : 1);
        EXPECT_EQ(heard.told, told.empty() ? "" : "peer 1: " + told + "\n");
        EXPECT_EQ(heard.has_totals, told.empty());
        EXPECT_EQ(heard.shown, preauth_text);
    }
}

TEST(PolicyExchangePeer, JumpsOverWhatIsNewerAndDropsWhatIsDamaged) {
    std::string reason;
    ASSERT_TRUE(exchange::open_traces(reason)) << reason;
    exchange::show_traces_as("peer 1");

    // A newer sender's field of two bytes follows those that this build knows.
    Bytes newer = preauth + Bytes{0xAB, 0xCD};
    newer[5] += 2;
    const Heard jumped = hear(frame(7, newer));
    EXPECT_EQ(jumped.status, 0);
    EXPECT_EQ(jumped.shown, preauth_text);
    EXPECT_EQ(jumped.told, "peer 1: notice: offset_jump read_len 21 offset_jump_base 2 _zur_variant_jump 21\n");

    Bytes beyond = preauth; // its jump word leads behind the frame
    beyond[2] = 0x40;
    newer.pop_back(); // all that this build knows is there
    const Heard damaged = hear(frame(7, beyond) + frame(8, Bytes(preauth.begin(), preauth.end() - 3)) +
                               frame(9, newer) + frame(7, preauth));
    EXPECT_EQ(damaged.status, 1);
    EXPECT_EQ(damaged.shown, preauth_text) << "the good message behind the damaged ones";
    for (const char* told : {"peer 1: line 7: a message of 21 bytes: it says that it has 1073741845\n",
                             "peer 1: line 8: a message of 18 bytes: status 90 (Message too long)\n",
                             "peer 1: line 9: a message of 22 bytes: it says that it has 23\n"})
        EXPECT_NE(damaged.told.find(told), std::string::npos) << damaged.told;
}

} // namespace
