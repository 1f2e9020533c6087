// An honest sender streams to `vrc listen` over a path that loses packets, while a neighbour does harm: from another
// host, and from the sender's own. Whatever he does, all pictures of the sender come out, so that requests for lost
// packets reach the sender too, and what the neighbour is sent stays below three times what he spent.
//
// To add an attack, add a row to kAttacks. `act` is called before each picture of the sender, every 10 ms; it sends
// what it likes with neighbour::send_rtp and neighbour::send_rtcp, which count it. `arguments` are given to the tool. With
// `is_encrypted` the sender uses SRTP and the tool has the key; the neighbour does not. What one attack has to show besides is a
// test of its own, which plays the scene with `play` and looks at what it leaves.
#include <gtest/gtest.h>
#include <srtp2/srtp.h>

#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "capture_builder.h"
#include "listen_bench.h"
#include "srtp/srtp_context.h"
#include "srtp/srtp_key.h"
#include "srtp/srtp_session.h"

using namespace vrc_test;

namespace
{

constexpr uint32_t kHonest = 7; // SSRC
constexpr unsigned kPictures = 150;
constexpr const char *kKey = "AES_CM_128_HMAC_SHA1_80:YWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFh";

// Somebody else who can reach the ports.
class neighbour
{
  public:
    // `host` is the last number of his address; 1 is the sender's.
    neighbour(uint16_t port, uint8_t host) : port_(port), rtp_(0, AF_INET, host), rtcp_(0, AF_INET, host)
    {
    }

    void send_rtp(const bytes &datagram)
    {
        rtp_.send(port_, datagram);
        sent_ += datagram.size();
    }

    void send_rtcp(const bytes &datagram)
    {
        rtcp_.send(static_cast<uint16_t>(port_ + 1), datagram);
        sent_ += datagram.size();
    }

    // UDP payload, bytes.
    uint64_t sent() const
    {
        return sent_;
    }

    // Of what came to his sockets so far.
    uint64_t received()
    {
        for (const udp_socket *one : {&rtp_, &rtcp_}) {
            for (bytes datagram = one->receive(milliseconds(0)); !datagram.empty();
                 datagram = one->receive(milliseconds(0))) {
                received_ += datagram.size();
            }
        }
        return received_;
    }

    // From the same seed each time.
    uint32_t random()
    {
        return static_cast<uint32_t>(random_());
    }

    bytes random_bytes(size_t size)
    {
        bytes made(size);
        for (uint8_t &byte : made) {
            byte = static_cast<uint8_t>(random());
        }
        return made;
    }

  private:
    uint16_t port_;
    udp_socket rtp_;
    udp_socket rtcp_;
    uint64_t sent_ = 0;
    uint64_t received_ = 0;
    std::mt19937 random_{1};
};

// A sender report without a block.
bytes report_of(uint32_t ssrc)
{
    return bytes{0x80, 200} + be16(6) + be32(ssrc) + be32(1) + be32(2) + be32(3) + be32(4) + be32(5);
}

struct attack {
    const char *name;
    bool is_encrypted;
    const char *arguments;
    void (*act)(neighbour &attacker, unsigned turn);
    bool is_type_searched = false; // the tool is not told the payload type
};

std::ostream &operator<<(std::ostream &out, const attack &one)
{
    return out << one.name;
}

constexpr uint32_t kOther = 99; // an SSRC of the neighbour's own

// A key frame each turn, of a sender that would like to be written.
void send_key_frame(neighbour &attacker, unsigned turn, size_t size)
{
    const auto first = static_cast<uint16_t>(turn * 100);
    attacker.send_rtp(rtp({first, turn * 900, false, kOther}, h264_parameter_sets()));
    const std::vector<bytes> fragments = h264_fragments(h264_idr_slice(size), size / 1000 + 2);
    for (size_t i = 0; i < fragments.size(); ++i) {
        const auto seq = static_cast<uint16_t>(first + 1 + i);
        attacker.send_rtp(rtp({seq, turn * 900, i + 1 == fragments.size(), kOther}, fragments[i]));
    }
}

// What may be packets of senders under SRTP who have yet to be found: 2000 a second, of 1000 SSRCs.
void send_junk(neighbour &attacker, unsigned turn)
{
    const unsigned n_packets = turn == 0 ? 100 : 20;
    for (unsigned i = 0; i < n_packets; ++i) {
        const uint32_t ssrc = 0xBAD00 + (turn * 20 + i) % 1000;
        attacker.send_rtp(rtp({static_cast<uint16_t>(turn), 0, true, ssrc}, bytes(100, 1)));
    }
}

const attack kAttacks[] = {
    {"Nothing", false, "", [](neighbour &, unsigned) {}},
    {"NothingUnderSrtp", true, "", [](neighbour &, unsigned) {}},
    // Numbers with gaps of a stream without a key frame: there is much to ask for.
    {"SmallPackets", false, "--feedback nack,pli,reports",
     [](neighbour &attacker, unsigned turn) {
         if (turn % 20 == 10) {
             attacker.send_rtp(rtp({static_cast<uint16_t>(turn * 2), turn * 900, true, 0xBAD}, {0x41}));
         }
     }},
    // A thousand a second: made-up streams of nothing, and some that look like video.
    {"MadeUpStreamsBesideTheSearchForVideo", false, "",
     [](neighbour &attacker, unsigned turn) {
         for (uint32_t i = 0; i < 10; ++i) {
             attacker.send_rtp(rtp({1, 0, true, 0x10000 + turn * 10 + i, 97}, {}));
         }
         if (turn < 20) {
             attacker.send_rtp(rtp({static_cast<uint16_t>(turn), turn * 900, true, kOther, 98}, h264_inter_slice(50)));
         }
     },
     true},
    {"SecondSenderWithLargeKeyFrames", false, "",
     [](neighbour &attacker, unsigned turn) {
         if (turn > 0) {
             send_key_frame(attacker, turn, 50'000);
         }
     }},
    {"RandomBytes", false, "",
     [](neighbour &attacker, unsigned) {
         attacker.send_rtp(attacker.random_bytes(attacker.random() % 1400));
         attacker.send_rtcp(attacker.random_bytes(attacker.random() % 1400));
     }},
    {"RandomBytesUnderSrtp", true, "",
     [](neighbour &attacker, unsigned) {
         attacker.send_rtp(attacker.random_bytes(attacker.random() % 1400));
         attacker.send_rtcp(attacker.random_bytes(attacker.random() % 1400));
     }},
    {"WordsToTheRtcpPort", false, "",
     [](neighbour &attacker, unsigned turn) {
         const bytes words[] = {{0}, {0x80}, bytes{0x80} + bytes(11, 0), report_of(kHonest), report_of(0xBAD)};
         attacker.send_rtcp(words[turn % std::size(words)]);
         attacker.send_rtp(report_of(kHonest));
     }},
    {"WordsToTheRtcpPortUnderSrtp", true, "",
     [](neighbour &attacker, unsigned turn) {
         const bytes words[] = {{0}, {0x80}, bytes{0x80} + bytes(11, 0), report_of(kHonest), report_of(0xBAD)};
         attacker.send_rtcp(words[turn % std::size(words)]);
         attacker.send_rtp(report_of(kHonest));
     }},
    {"JunkUnderSrtp", true, "", send_junk},
    // A packet that came before, so that it does nothing to the stream itself.
    {"CopiesOfTheSendersPackets", false, "",
     [](neighbour &attacker, unsigned turn) {
         if (turn > 20) {
             attacker.send_rtp(rtp({kFirstNumber, 0, false, kHonest}, h264_parameter_sets()));
         }
     }},
};

// What the sender does to his packets, whose numbers went around `rollovers` times before.
class encryption
{
  public:
    explicit encryption(uint32_t rollovers)
        : key_(vrc::srtp_key_parse(kKey)), context_(vrc::srtp_context_outgoing(key_)), feedback_({key_})
    {
        EXPECT_TRUE(vrc::srtp_context_add_sender(context_, key_, kHonest, rollovers));
    }

    bytes protect(const bytes &packet)
    {
        bytes made = packet;
        int size = static_cast<int>(made.size());
        made.resize(made.size() + SRTP_MAX_TRAILER_LEN);
        EXPECT_EQ(srtp_protect(context_.srtp.get(), made.data(), &size), srtp_err_status_ok);
        made.resize(static_cast<size_t>(size));
        return made;
    }

    // Empty when it is not authentic.
    bytes unprotect(const bytes &datagram)
    {
        vrc::byte_view view(datagram.data(), datagram.size());
        return feedback_.unprotect({}, &view, 1) ? bytes(view.data(), view.data() + view.size()) : bytes();
    }

  private:
    sdp_crypto key_;
    vrc::srtp_context context_;
    vrc::srtp_session feedback_;
};

// What a scene leaves.
struct outcome {
    int status;
    std::string error;
    json summary;
    bool is_whole; // what was written is what the sender sent
    uint64_t sent; // by the neighbour, and to him
    uint64_t received;
};

outcome play(const attack &what, uint8_t host, uint32_t rollovers = 0)
{
    const uint16_t port = free_port_pair();
    const temporary_file out;
    const std::string keys = what.is_encrypted ? std::string(" --srtp ") + kKey : "";
    listening_tool tool(port, std::string("--codec h264") + (what.is_type_searched ? "" : " --pt 96") + " -o " +
                                  out.path() + keys + " " + what.arguments);
    lossy_sender sender(port, kHonest);
    encryption cipher(rollovers);
    if (what.is_encrypted) {
        sender.convert([&cipher](const bytes &packet) { return cipher.protect(packet); },
                       [&cipher](const bytes &datagram) { return cipher.unprotect(datagram); });
    }
    neighbour attacker(port, host);
    if (host == 1 && !what.is_encrypted) {
        sender.say_rtcp(report_of(kHonest)); // nothing else tells the two apart
    }
    for (unsigned turn = 0; turn < kPictures; ++turn) {
        what.act(attacker, turn);
        sender.send_pictures(1);
    }
    sender.answer(milliseconds(300));
    tool.stop();
    const int status = tool.status();
    const bool is_whole = content(out.path()) == sender.bitstream();
    return {status, tool.error(), tool.summary(), is_whole, attacker.sent(), attacker.received()};
}

using neighbour_case = std::tuple<attack, uint8_t>;

class HostileNeighbour : public testing::TestWithParam<neighbour_case>
{
};

std::string case_name(const testing::TestParamInfo<neighbour_case> &info)
{
    const bool is_same_host = std::get<1>(info.param) == 1;
    return std::string(std::get<0>(info.param).name) + (is_same_host ? "FromTheSendersHost" : "FromAnotherHost");
}

} // namespace

TEST_P(HostileNeighbour, LeavesTheSenderHisPictureAndGainsNothing)
{
    const auto &[what, host] = GetParam();
    const outcome left = play(what, host);
    EXPECT_EQ(left.status, 0) << left.error;
    EXPECT_TRUE(left.is_whole) << left.summary.dump(1);
    EXPECT_TRUE(left.received == 0 || left.received < 3 * left.sent) << left.received << " for " << left.sent;
}

TEST(VrcListenAmplification, OnePacketCausesLessThanThreeTimesItsBytesAndNothingAfterFiveSeconds)
{
    const uint16_t port = free_port_pair();
    listening_tool tool(port, "--codec h264 --pt 96");
    neighbour attackers[] = {{port, 66}, {port, 67}, {port, 68}};
    uint32_t ssrc = 0xBAD;
    for (const size_t size : {13u, 60u, 1200u}) {
        attackers[ssrc - 0xBAD].send_rtp(rtp({1, 0, true, ssrc}, bytes(size - 12, 0x41)));
        ++ssrc;
    }
    std::this_thread::sleep_for(milliseconds(5500));
    uint64_t received = 0;
    for (neighbour &attacker : attackers) {
        EXPECT_LT(attacker.received(), 3 * attacker.sent());
        received += attacker.received();
    }
    EXPECT_GT(received, 0u) << "it asks for a key frame";
    std::this_thread::sleep_for(milliseconds(2000));
    for (neighbour &attacker : attackers) {
        received -= attacker.received();
    }
    EXPECT_EQ(received, 0u) << "something came later";
}

TEST(VrcListenAmongJunk, HearsASenderWhoseNumbersWentAroundBefore)
{
    for (const uint32_t rollovers : {1u, 1000u}) {
        const outcome left = play({"", true, "", send_junk}, 66, rollovers);
        EXPECT_EQ(left.status, 0) << left.error;
        EXPECT_TRUE(left.is_whole) << left.summary.dump(1);
    }
}

INSTANTIATE_TEST_SUITE_P(EveryAttack, HostileNeighbour,
                         testing::Combine(testing::ValuesIn(kAttacks), testing::Values(uint8_t{1}, uint8_t{66})),
                         case_name);

// From another host: whoever sends RTCP from the sender's own is sent the feedback (README), so that losses stay.
TEST(HostileNeighbourBye, DoesNotHandTheOutputToAnotherSender)
{
    const attack forged_bye = {"ForgedBye", false, "", [](neighbour &attacker, unsigned turn) {
                                   if (turn > 0) {
                                       attacker.send_rtcp(bytes{0x81, 203} + be16(1) + be32(kHonest));
                                       send_key_frame(attacker, turn, 2000);
                                   }
                               }};
    const outcome left = play(forged_bye, 66);
    EXPECT_EQ(left.status, 0) << left.error;
    EXPECT_TRUE(left.is_whole) << left.summary.dump(1);
    EXPECT_EQ(left.summary["sender"]["byes"], kPictures - 1);
    EXPECT_EQ(left.summary["listen"]["senders_written"], 1);
}
