// Which packets teach the parameter sets that a key frame without its own gets.
#include "payload_sender.h"

using namespace payload_sender;

namespace
{

const bytes kSps = {0x67, 0x42, 0x00, 0x1F, 0x95};
const bytes kPps = {0x68, 0xCE, 0x38, 0x80};
const bytes kOtherSps = {0x67, 0x64, 0x00, 0x28, 0x95, 0xAC}; // the same identifier
const bytes kIdr = {0x65, 0x88, 0x84, 0x01, 0x02};
const bytes kSlice = {0x61, 0x9A, 0x01, 0x02};

class ParameterSetLearning : public testing::Test
{
  protected:
    Client client;
    rtp_builder::rtp_fields next;

    ParameterSetLearning()
    {
        next.seq = 65500;
        next.timestamp = 0xFFFFFF00;
    }

    void receive(uint16_t seq, uint32_t timestamp, const bytes &payload, bool marker = false)
    {
        rtp_builder::rtp_fields fields = next;
        fields.seq = seq;
        fields.timestamp = timestamp;
        fields.payload = payload;
        fields.marker = marker;
        client.receive(rtp_packet(fields));
    }

    void receive_frame(const std::vector<bytes> &payloads)
    {
        for (const bytes &payload : payloads) {
            receive(next.seq++, next.timestamp, payload, &payload == &payloads.back());
        }
        next.timestamp += 3000;
        client.pass(33);
    }

    // What comes out of a key frame that has no parameter sets of its own.
    bytes bare_key_frame()
    {
        const size_t before = client.frames.size();
        receive_frame({kIdr});
        return client.frames.size() == before + 1 ? client.frames.back().data : bytes{};
    }
};

TEST_F(ParameterSetLearning, TakesThoseOfAFrame)
{
    receive_frame({kSps, kPps, kIdr});
    EXPECT_EQ(bare_key_frame(), annexb_of({kSps, kPps, kIdr}));
}

TEST_F(ParameterSetLearning, TakesAUnitInOneFragment)
{
    const bytes fragment = {0x7C, 0xC7, 0x42, 0x00, 0x1F, 0x95};
    receive_frame({fragment, kPps, kIdr});
    EXPECT_EQ(client.frames.at(0).data, annexb_of({kSps, kPps, kIdr}));
    EXPECT_EQ(bare_key_frame(), annexb_of({kSps, kPps, kIdr}));
}

TEST_F(ParameterSetLearning, TakesNothingFromADuplicate)
{
    receive_frame({kSps, kPps, kIdr});
    receive(65500, 0xFFFFFF00, kOtherSps);
    EXPECT_EQ(client.packet_drops(), "duplicate=1");
    EXPECT_EQ(bare_key_frame(), annexb_of({kSps, kPps, kIdr}));
}

TEST_F(ParameterSetLearning, TakesNothingFromAStray)
{
    receive_frame({kSps, kPps, kIdr});
    receive(static_cast<uint16_t>(next.seq + 20000), 12345, kOtherSps);
    EXPECT_EQ(bare_key_frame(), annexb_of({kSps, kPps, kIdr}));
    EXPECT_EQ(client.packet_drops(), "late=1");
}

TEST_F(ParameterSetLearning, TakesThoseOfAStrayThatIsTakenIn)
{
    receive_frame({kSps, kPps, kIdr});
    next.seq = static_cast<uint16_t>(next.seq + 20000);
    receive_frame({kOtherSps, kPps, kIdr});
    EXPECT_EQ(client.report().restarts[RESTART_SEQUENCE_JUMP], 1u);
    EXPECT_EQ(bare_key_frame(), annexb_of({kOtherSps, kPps, kIdr}));
}

TEST_F(ParameterSetLearning, TakesNothingFromAPacketThatIsLate)
{
    receive_frame({kSps, kPps, kIdr});
    receive_frame({kSlice});
    receive(65499, 0xFFFFFF00 - 3000, kOtherSps); // in front of the stream's first packet
    client.pass(300);                             // it waits for its frame's beginning first
    EXPECT_EQ(client.packet_drops(), "late=1");
    EXPECT_EQ(bare_key_frame(), annexb_of({kSps, kPps, kIdr}));
}

TEST_F(ParameterSetLearning, TakesNothingFromAPacketOfWhatWasGivenUp)
{
    receive_frame({kSps, kPps, kIdr});
    const uint16_t lost = next.seq++;
    receive_frame({kSlice});
    client.pass(6000);
    receive_frame({kSps, kPps, kIdr});
    const uint64_t late = client.report().packets_dropped[PACKET_DROP_LATE];
    receive(lost, next.timestamp - 9000, kOtherSps);
    client.pass(300); // it waits for its frame's beginning first
    EXPECT_EQ(client.report().packets_dropped[PACKET_DROP_LATE], late + 1);
    EXPECT_EQ(bare_key_frame(), annexb_of({kSps, kPps, kIdr}));
}

TEST_F(ParameterSetLearning, TakesNothingFromAnAggregateThatIsCut)
{
    receive_frame({kSps, kPps, kIdr});
    bytes cut = joined({{0x78}, sized(kOtherSps), sized(kIdr)});
    cut.pop_back();
    receive_frame({cut});
    EXPECT_EQ(client.payload_faults(), "truncated=1");
    EXPECT_EQ(bare_key_frame(), annexb_of({kSps, kPps, kIdr}));
}

// The sender goes on with its numbers and another encoder.
TEST_F(ParameterSetLearning, GivesAKeyFrameThatWaitedThoseOfItsOwnEncoder)
{
    receive_frame({kSps, kPps, kIdr});
    const uint16_t lost = next.seq++;
    receive_frame({kSlice});
    receive_frame({kIdr});
    receive_frame({kOtherSps, kPps, kIdr});
    EXPECT_EQ(client.frames.size(), 1u) << "behind the loss nothing comes out";
    receive(lost, next.timestamp - 9000, kSlice);
    ASSERT_EQ(client.frames.size(), 4u);
    EXPECT_EQ(client.frames.at(2).data, annexb_of({kSps, kPps, kIdr}));
    EXPECT_EQ(client.frames.at(3).data, annexb_of({kOtherSps, kPps, kIdr}));
    EXPECT_EQ(bare_key_frame(), annexb_of({kOtherSps, kPps, kIdr}));
}

} // namespace
