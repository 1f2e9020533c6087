// Packets without payload, with which senders probe the path: in order, late, lost, and in the middle of a frame.
#include <gtest/gtest.h>

#include "client_bench.h"
#include "sent_feedback.h"
#include "wire/byte_order.h"

using namespace client_bench;
using rtp_builder::frame;
using rtp_builder::Sender;

namespace
{

// A stream at an even pace, whose packets are numbered when they are sent.
struct Stream {
    explicit Stream(bool nack) : client(false, {true, nack, true, false, false, false, true})
    {
    }

    Client client;
    Sender sender;
    uint16_t next_seq = 65520;
    std::vector<bytes> packets; // as sent since the warm-up
    std::vector<bytes> frames;  // the same
    size_t n_before = 0;        // frames that came out before

    void add(const bytes &packet)
    {
        packets.push_back(packet);
        be16_write(packets.back().data() + 2, next_seq);
        next_seq++;
    }

    void add(const frame &sent)
    {
        for (const bytes &packet : sent.packets) {
            add(packet);
        }
        frames.push_back(sent.annexb);
    }

    void arrive(size_t index)
    {
        client.receive(packets[index]);
    }

    // Frames enough to tell the pace by.
    void warm_up()
    {
        add(sender.key_frame(3));
        for (int i = 0; i < 35; i++) {
            add(sender.delta_frame(2));
        }
        for (size_t i = 0; i < packets.size(); i++) {
            arrive(i);
        }
        n_before = client.frames.size();
        packets.clear();
        frames.clear();
        client.pass(100);
        client.sent.clear();
    }

    // Which of the frames came out since the warm-up, in order; 99 for what was not sent so.
    std::vector<size_t> taken() const
    {
        std::vector<size_t> all;
        for (size_t i = n_before; i < client.frames.size(); i++) {
            const auto found = std::find(frames.begin(), frames.end(), client.frames[i].data);
            all.push_back(found == frames.end() ? 99 : static_cast<size_t>(found - frames.begin()));
        }
        return all;
    }
};

using order = std::vector<size_t>;

// The packets of a probing sender are A0 A1 . . B0 B1 . C0 C1, where . is padding: numbers 0 to 8. The row says in what
// order which of them arrive, and within how many milliseconds all three frames have to be out.
struct row {
    const char *what;
    std::vector<size_t> arrival;
    zeb_ts_t within;
};

const row kRows[] = {
    {"in order", {0, 1, 2, 3, 4, 5, 6, 7, 8}, 0},
    {"a frame before the probe in front of it", {0, 1, 4, 5, 2, 3, 6, 7, 8}, 0},
    {"probes in reverse", {0, 1, 3, 2, 4, 5, 6, 7, 8}, 0},
    {"everything in reverse", {8, 7, 6, 5, 4, 3, 2, 1, 0}, 0},
    {"probes behind everything", {0, 1, 4, 5, 7, 8, 6, 3, 2}, 0},
    {"a probe in the middle of the frame behind it", {0, 1, 2, 4, 3, 5, 6, 7, 8}, 0},
    {"a probe in front of the end of its own frame", {0, 2, 1, 3, 4, 5, 6, 7, 8}, 0},
    {"padding twice", {0, 1, 2, 2, 3, 4, 3, 5, 6, 7, 8, 6}, 0},
    {"one lost", {0, 1, 3, 4, 5, 6, 7, 8}, 400},
    {"the last one of a probe lost", {0, 1, 2, 4, 5, 6, 7, 8}, 400},
    {"a whole probe lost", {0, 1, 4, 5, 6, 7, 8}, 400},
    {"all of them lost", {0, 1, 4, 5, 7, 8}, 800},
    {"lost, and the frame behind it in reverse", {0, 1, 5, 4, 6, 7, 8}, 400},
};

class Padding : public testing::TestWithParam<bool>
{
};

INSTANTIATE_TEST_SUITE_P(WhereTheSender, Padding, testing::Bool(), [](const testing::TestParamInfo<bool> &sender) {
    return sender.param ? "Retransmits" : "NeverRetransmits";
});

TEST_P(Padding, StallsAndBreaksNoFrame)
{
    for (const row &row : kRows) {
        SCOPED_TRACE(row.what);
        Stream stream(GetParam());
        stream.warm_up();
        stream.add(stream.sender.delta_frame(2));
        stream.add(stream.sender.filler());
        stream.add(stream.sender.filler());
        stream.add(stream.sender.delta_frame(2));
        stream.add(stream.sender.filler());
        stream.add(stream.sender.delta_frame(2));
        for (const size_t index : row.arrival) {
            stream.arrive(index);
        }
        stream.client.pass(row.within);
        EXPECT_EQ(stream.taken(), (order{0, 1, 2}));
        EXPECT_EQ(stream.client.frame_drops(), "");
        EXPECT_EQ(stream.client.report().plis_sent, 0u);
    }
}

TEST_P(Padding, BetweenThePacketsOfAFrameBelongsToIt)
{
    for (const auto &arrival :
         std::vector<std::vector<size_t>>{{0, 1, 2, 3}, {0, 2, 1, 3}, {0, 2, 3, 1}, {3, 2, 1, 0}}) {
        Stream stream(GetParam());
        stream.warm_up();
        const frame sent = stream.sender.delta_frame(3);
        stream.frames.push_back(sent.annexb);
        stream.add(sent.packets[0]);
        stream.add(stream.sender.filler());
        stream.add(sent.packets[1]);
        stream.add(sent.packets[2]);
        for (const size_t index : arrival) {
            stream.arrive(index);
        }
        EXPECT_EQ(stream.taken(), order{0}) << testing::PrintToString(arrival);
        EXPECT_EQ(stream.client.frame_drops(), "");
    }
}

TEST_P(Padding, InFrontOfAKeyFrameProvesItsBeginningOrIsFoundLost)
{
    for (const bool is_lost : {false, true}) {
        Stream stream(GetParam());
        stream.warm_up();
        stream.add(stream.sender.filler());
        stream.add(stream.sender.key_frame(3));
        stream.add(stream.sender.delta_frame(2));
        for (size_t i = is_lost ? 1 : 0; i < stream.packets.size(); i++) {
            stream.arrive(i);
        }
        stream.client.pass(is_lost ? 400 : 0);
        EXPECT_EQ(stream.taken(), (order{0, 1}));
        EXPECT_EQ(stream.client.report().packets_padding_lost, is_lost ? 1u : 0u);
    }
}

TEST_P(Padding, IsNotTakenForAFrameThatWasLost)
{
    Stream stream(GetParam());
    stream.warm_up();
    stream.sender.delta_frame(1); // lost
    stream.next_seq++;
    stream.add(stream.sender.delta_frame(2));
    stream.arrive(0);
    stream.arrive(1);
    stream.client.pass(5000);
    EXPECT_EQ(stream.taken(), order{});
    EXPECT_EQ(stream.client.report().packets_padding_lost, 0u);
}

// Where frames begin with supplemental information, a picture parameter set is like them, but not first in its frame.
TEST_P(Padding, IsNotTakenForAParameterSetThatWasLost)
{
    using rtp_builder::nal_unit;
    Stream stream(GetParam());
    stream.add(stream.sender.key_frame(3));
    for (int i = 0; i < 35; i++) {
        stream.add(stream.sender.raw_frame({nal_unit(6, 9), nal_unit(1, 200)}, false));
    }
    stream.add(stream.sender.raw_frame({nal_unit(7, 10), nal_unit(8, 4), nal_unit(5, 300)}, true));
    const size_t lost = stream.packets.size() - 3;
    for (size_t i = 0; i < stream.packets.size(); i++) {
        if (i != lost) {
            stream.arrive(i);
        }
    }
    stream.client.pass(5000);
    EXPECT_EQ(stream.client.frames.size(), 36u);
    EXPECT_EQ(stream.client.report().packets_padding_lost, 0u);
}

TEST(PaddingRequests, NameTheNumbersOfTheSender)
{
    Stream stream(true);
    stream.warm_up();
    stream.add(stream.sender.filler());
    stream.add(stream.sender.filler());
    const uint16_t lost = static_cast<uint16_t>(stream.next_seq + 1);
    stream.add(stream.sender.delta_frame(3));
    for (const size_t index : order{0, 1, 2, 4}) {
        stream.arrive(index);
    }
    const zeb_ts_t began = stream.client.now;
    stream.client.pass(20);
    const std::vector<std::string> texts = sent_texts(stream.client, began);
    ASSERT_EQ(texts.size(), 1u) << testing::PrintToString(texts);
    EXPECT_EQ(texts[0].substr(texts[0].find(' ') + 1), "nack " + std::to_string(lost));
    stream.client.receive(stream.packets[3], true);
    EXPECT_EQ(stream.taken(), order{0});
    EXPECT_EQ(stream.client.report().packets_padding, 2u);
}

} // namespace
