#include "feedback_address.h"

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
    address.note_rtp(peer(1), 7);
    EXPECT_EQ(port_of(*address.get(7)), 1);
    address.note_rtcp(peer(2), {});
    EXPECT_EQ(port_of(*address.get(7)), 2);
    address.note_rtp(peer(3), 7);
    EXPECT_EQ(port_of(*address.get(7)), 2);
    address.name(peer(4));
    address.note_rtcp(peer(5), {7});
    EXPECT_EQ(port_of(*address.get(7)), 4);
}

TEST(FeedbackAddress, FollowsSenderThatMoves)
{
    feedback_address address;
    address.note_rtp(peer(1), 7);
    address.note_rtp(peer(2), 7);
    EXPECT_EQ(port_of(*address.get(7)), 2);
    address.note_rtcp(peer(3), {});
    address.note_rtcp(peer(4), {7});
    EXPECT_EQ(port_of(*address.get(7)), 4);
    address.note_rtcp(peer(5), {});
    EXPECT_EQ(port_of(*address.get(7)), 5);
}

TEST(FeedbackAddress, TakesUnnamedRtcpForThatOfItsHost)
{
    feedback_address address;
    address.note_rtcp(peer(1, 9), {}); // from a host that sends no RTP
    address.note_rtp(peer(2, 1), 7);
    address.note_rtp(peer(3, 2), 8);
    EXPECT_EQ(port_of(*address.get(7)), 1);
    EXPECT_EQ(port_of(*address.get(8)), 1);
    address.note_rtcp(peer(4, 1), {});
    EXPECT_EQ(port_of(*address.get(7)), 4);
    EXPECT_EQ(port_of(*address.get(8)), 3);
}

TEST(FeedbackAddress, KeepsSendersOfOneHostApart)
{
    feedback_address address;
    address.note_rtcp(peer(1), {7}); // before its RTP
    address.note_rtp(peer(2), 7);
    address.note_rtp(peer(3), 8);
    EXPECT_EQ(port_of(*address.get(7)), 1);
    EXPECT_EQ(port_of(*address.get(8)), 3);
    address.note_rtcp(peer(4), {8});
    EXPECT_EQ(port_of(*address.get(7)), 1);
    EXPECT_EQ(port_of(*address.get(8)), 4);
}

TEST(FeedbackAddress, CanTrustSendersOnly)
{
    feedback_address address(true);
    address.note_rtp(peer(1), 7);
    address.note_rtcp(peer(2), {});
    EXPECT_EQ(port_of(*address.get(7)), 2) << "nothing better is known";
    address.note_rtcp(peer(3), {7});
    address.note_rtcp(peer(4), {});
    EXPECT_EQ(port_of(*address.get(7)), 3);
}

TEST(FeedbackAddress, IsNotFilledUpByMadeUpSenders)
{
    feedback_address address;
    for (uint32_t ssrc = 0; ssrc < 100'000; ++ssrc) {
        address.note_rtp(peer(1), ssrc);
    }
    address.note_rtp(peer(2), 100'000);
    EXPECT_EQ(port_of(*address.get(0)), 1);
    EXPECT_EQ(port_of(*address.get(100'000)), 2);
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
