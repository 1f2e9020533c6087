#include "live/feedback_address.h"

#include <gtest/gtest.h>
#include <netinet/in.h>

#include <cstring>

#include "failure.h"

using namespace vrc;

namespace
{

// A socket of 192.0.2.`host`.
feedback_peer peer(uint16_t port, uint8_t host = 1)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(0xC0000200u + host);
    address.sin_port = htons(port);
    feedback_peer made;
    std::memcpy(&made.address, &address, sizeof address);
    return made;
}

uint16_t port_of(const feedback_peer &made)
{
    sockaddr_in address{};
    std::memcpy(&address, &made.address, sizeof address);
    return ntohs(address.sin_port);
}

exit_code parse_failure(const std::string &text)
{
    try {
        feedback_peer_parse(text);
    } catch (const failure &error) {
        EXPECT_NE(std::string(error.what()).find('\''), std::string::npos) << error.what();
        return error.code();
    }
    return exit_code::success;
}

} // namespace

TEST(FeedbackAddress, IsUnknownBeforeAnythingCame)
{
    EXPECT_FALSE(feedback_address().get(7));
}

TEST(FeedbackAddress, PrefersNamedOverRtcpOverRtp)
{
    feedback_address address;
    address.note_rtp(peer(1), 7, 1, 1000);
    EXPECT_EQ(port_of(*address.get(7)), 1);
    address.note_rtcp(peer(2), {}, 1000);
    EXPECT_EQ(port_of(*address.get(7)), 2);
    address.note_rtp(peer(1), 7, 2, 1000);
    EXPECT_EQ(port_of(*address.get(7)), 2);
    address.note_rtcp(peer(3), {7}, 1000);
    EXPECT_EQ(port_of(*address.get(7)), 3);
    address.note_rtcp(peer(2), {}, 1000);
    EXPECT_EQ(port_of(*address.get(7)), 3);
    address.name(peer(4));
    address.note_rtcp(peer(5), {7}, 1000);
    EXPECT_EQ(port_of(*address.get(7)), 4);
}

TEST(FeedbackAddress, TakesRtcpOnlyFromTheHostOfTheSendersRtp)
{
    struct {
        const char *what;
        std::vector<uint32_t> named;
        uint8_t host;
        bool is_before_rtp;
        uint16_t port; // that is answered
    } const rows[] = {
        {"names nobody, from elsewhere", {}, 66, false, 1},
        {"names the sender, from elsewhere", {7}, 66, false, 1},
        {"names somebody else, from elsewhere", {9}, 66, false, 1},
        {"names nobody, from elsewhere, before", {}, 66, true, 1},
        {"names the sender, from elsewhere, before", {7}, 66, true, 1},
        {"names nobody, from the host", {}, 1, false, 2},
        {"names the sender, from the host", {7}, 1, false, 2},
        {"names somebody else, from the host", {9}, 1, false, 2},
        {"names nobody, from the host, before", {}, 1, true, 2},
        {"names the sender, from the host, before", {7}, 1, true, 2},
    };
    for (const auto &row : rows) {
        feedback_address address;
        if (row.is_before_rtp) {
            address.note_rtcp(peer(2, row.host), row.named, 1000);
            EXPECT_FALSE(address.get(7)) << row.what;
        }
        address.note_rtp(peer(1), 7, 1, 1000);
        if (!row.is_before_rtp) {
            address.note_rtcp(peer(2, row.host), row.named, 1000);
        }
        EXPECT_EQ(port_of(*address.get(7)), row.port) << row.what;
    }
}

TEST(FeedbackAddress, KeepsSendersOfOneHostApart)
{
    feedback_address address;
    address.note_rtcp(peer(1), {7}, 1000); // before its RTP
    address.note_rtp(peer(2), 7, 1, 1000);
    address.note_rtp(peer(3), 8, 1, 1000);
    EXPECT_EQ(port_of(*address.get(7)), 1);
    EXPECT_EQ(port_of(*address.get(8)), 3);
    address.note_rtcp(peer(4), {8}, 1000);
    EXPECT_EQ(port_of(*address.get(7)), 1);
    EXPECT_EQ(port_of(*address.get(8)), 4);
}

TEST(FeedbackAddress, BelievesWhoSpeaksInASendersNameFirst)
{
    for (const bool is_rtp_first : {false, true}) {
        feedback_address address;
        if (is_rtp_first) {
            address.note_rtp(peer(1), 7, 1, 1000);
        }
        for (const uint16_t port : {uint16_t{2}, uint16_t{3}, uint16_t{2}, uint16_t{3}}) {
            address.note_rtcp(peer(port), {7}, 1000);
        }
        address.note_rtp(peer(1), 7, 2, 1000);
        EXPECT_EQ(port_of(*address.get(7)), 2);
    }
}

TEST(FeedbackAddress, TakesAnotherRtcpSocketOfASenderWhenTheFirstHasGone)
{
    feedback_address address;
    address.note_rtp(peer(1), 7, 1, 1000);
    address.note_rtcp(peer(2), {7}, 1000);
    address.note_rtcp(peer(3), {7}, 1000 + kRtcpSilence - 1);
    EXPECT_EQ(port_of(*address.get(7)), 2);
    address.note_rtcp(peer(3), {7}, 1000 + kRtcpSilence);
    EXPECT_EQ(port_of(*address.get(7)), 3);
}

// A sender at `peer(1)` that has proven itself, and packets in its name from elsewhere.
struct move_row {
    const char *what;
    std::vector<uint16_t> seqs;
    zeb_ts_t old_silence; // from its last packet to the first of those
    zeb_ts_t step;        // between two of them, milliseconds
    bool does_old_go_on;  // between two of them
    bool moves;
};

std::vector<uint16_t> numbers(uint16_t first, int count, int step = 1)
{
    std::vector<uint16_t> made;
    made.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        made.push_back(static_cast<uint16_t>(first + i * step));
    }
    return made;
}

TEST(FeedbackAddress, FollowsASenderThatMovesAndNoForgedPackets)
{
    const move_row rows[] = {
        {"one packet", numbers(500, 1), 5000, 5, false, false},
        {"nine", numbers(500, 9), 5000, 5, false, false},
        {"ten", numbers(500, 10), 5000, 5, false, true},
        {"ten across the end of the numbers", numbers(65531, 10), 5000, 5, false, true},
        {"ten with gaps, as of a lossy path", numbers(500, 10, 3), 5000, 5, false, true},
        {"a hundred copies of one", numbers(500, 100, 0), 5000, 5, false, false},
        {"a hundred that go back", numbers(500, 100, -1), 5000, 5, false, false},
        {"a hundred far apart", numbers(500, 100, 1000), 5000, 5, false, false},
        {"ten at once, the old address is not silent yet", numbers(500, 10), 1, 0, false, false},
        {"until the old address is silent for a second", numbers(500, 201), 0, 5, false, true},
        {"a thousand beside the sender", numbers(500, 1000), 1, 5, true, false},
    };
    for (const uint8_t host : {uint8_t{1}, uint8_t{66}}) {
        for (const move_row &row : rows) {
            feedback_address address;
            zeb_ts_t now = 1000;
            for (uint16_t seq = 0; seq < kMovePackets; ++seq) {
                address.note_rtp(peer(1), 7, seq, now);
            }
            uint16_t old_seq = kMovePackets;
            now += row.old_silence;
            for (const uint16_t seq : row.seqs) {
                address.note_rtp(peer(2, host), 7, seq, now);
                if (row.does_old_go_on) {
                    address.note_rtp(peer(1), 7, old_seq++, now);
                }
                now += row.step;
            }
            EXPECT_EQ(port_of(*address.get(7)), row.moves ? 2 : 1) << row.what << ", host " << int{host};
        }
    }
}

TEST(FeedbackAddress, GivesASenderHisAddressBackThatWasTakenBeforeHim)
{
    feedback_address address;
    address.note_rtp(peer(2, 66), 7, 500, 1000);
    for (uint16_t seq = 0; seq < kMovePackets; ++seq) {
        address.note_rtp(peer(1), 7, seq, 1000);
    }
    EXPECT_EQ(port_of(*address.get(7)), 1);
}

TEST(FeedbackAddress, ForgetsTheRtcpSocketOfASenderThatMovedToAnotherHost)
{
    for (const uint8_t host : {uint8_t{1}, uint8_t{2}}) {
        feedback_address address;
        address.note_rtp(peer(1), 7, 0, 1000);
        address.note_rtcp(peer(3), {7}, 1000);
        for (uint16_t seq = 0; seq < kMovePackets; ++seq) {
            address.note_rtp(peer(2, host), 7, seq, 1000);
        }
        EXPECT_EQ(port_of(*address.get(7)), host == 1 ? 3 : 2);
    }
}

TEST(FeedbackAddress, BelievesAuthenticPacketsAtOnce)
{
    feedback_address address(true);
    for (uint16_t seq = 0; seq < kMovePackets; ++seq) {
        address.note_rtp(peer(1), 7, seq, 1000);
    }
    address.note_rtp(peer(2, 2), 7, 500, 1000);
    EXPECT_EQ(port_of(*address.get(7)), 2);
    address.note_rtcp(peer(3, 3), {}, 1000);
    EXPECT_EQ(port_of(*address.get(7)), 2) << "names nobody, and comes from another host";
    address.note_rtcp(peer(4, 2), {}, 1000);
    EXPECT_EQ(port_of(*address.get(7)), 4) << "nothing better is known";
    address.note_rtcp(peer(5, 3), {7}, 1000);
    EXPECT_EQ(port_of(*address.get(7)), 5);
    address.note_rtcp(peer(6, 3), {7}, 1000);
    EXPECT_EQ(port_of(*address.get(7)), 6);
    address.note_rtcp(peer(4, 2), {}, 1000);
    EXPECT_EQ(port_of(*address.get(7)), 6);
}

// Each row is a flood of made-up senders; the honest one is there before, or comes after it.
TEST(FeedbackAddress, IsNotFilledUpByMadeUpSenders)
{
    feedback_address address;
    for (uint16_t seq = 0; seq < kMovePackets; ++seq) {
        address.note_rtp(peer(1), 7, seq, 1000);
    }
    address.note_rtcp(peer(2), {7}, 1000);
    for (uint32_t ssrc = 1000; ssrc < 101'000; ++ssrc) {
        address.note_rtp(peer(66, 66), ssrc, 1, 1001 + ssrc % 3);
    }
    EXPECT_EQ(port_of(*address.get(7)), 2);
    address.note_rtp(peer(3), 8, 1, 1010);
    EXPECT_EQ(port_of(*address.get(8)), 3);
    EXPECT_FALSE(address.get(999)) << "nothing came from there";
}

TEST(FeedbackAddress, ForgetsSendersThatFellSilentForNewOnes)
{
    feedback_address address;
    for (uint32_t ssrc = 0; ssrc < kFeedbackSendersMax; ++ssrc) {
        for (uint16_t seq = 0; seq < kMovePackets; ++seq) {
            address.note_rtp(peer(1), ssrc, seq, 1000 + ssrc);
        }
    }
    address.note_rtp(peer(2), 1000, 1, 1000 + kSenderSilence - 1);
    EXPECT_FALSE(address.get(1000)) << "all of them are active";
    address.note_rtp(peer(2), 1000, 1, 1000 + kSenderSilence);
    EXPECT_EQ(port_of(*address.get(1000)), 2);
    EXPECT_FALSE(address.get(0)) << "the one that was silent for the longest time";
    EXPECT_TRUE(address.get(1));
}

TEST(FeedbackAddress, RemembersTheRtcpOfASenderThroughAFloodFromElsewhere)
{
    feedback_address address;
    address.note_rtp(peer(1), 8, 1, 1000); // another sender of the host
    address.note_rtcp(peer(2), {7}, 1000);
    for (uint32_t i = 0; i < 100'000; ++i) {
        address.note_rtcp(peer(static_cast<uint16_t>(i), static_cast<uint8_t>(2 + i % 200)), {i + 1000}, 1001);
    }
    address.note_rtp(peer(3), 7, 1, 1010);
    EXPECT_EQ(port_of(*address.get(7)), 2);
}

TEST(FeedbackPeerParse, ReadsBothFamilies)
{
    const feedback_peer v4 = feedback_peer_parse("192.0.2.1:5005");
    EXPECT_EQ(v4.address.ss_family, AF_INET);
    EXPECT_EQ(port_of(v4), 5005);
    EXPECT_FALSE(v4.binding);
    const feedback_peer v6 = feedback_peer_parse("[2001:db8::1]:6000");
    sockaddr_in6 address{};
    std::memcpy(&address, &v6.address, sizeof address);
    EXPECT_EQ(address.sin6_family, AF_INET6);
    EXPECT_EQ(ntohs(address.sin6_port), 6000);
    EXPECT_EQ(address.sin6_addr.s6_addr[0], 0x20);
    EXPECT_EQ(address.sin6_addr.s6_addr[15], 1);
}

TEST(FeedbackPeerParse, RefusesWhatIsNoHostAndPort)
{
    for (const char *text : {"", ":", "192.0.2.1", ":5005", "192.0.2.1:", "192.0.2.1:0", "192.0.2.1:65536",
                             "192.0.2.1:5005x", "2001:db8::1:5005", "[]:5005", "[2001:db8::1]"}) {
        EXPECT_EQ(parse_failure(text), exit_code::wrong_usage) << text;
    }
}
