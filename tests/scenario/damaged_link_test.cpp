// Streams over links that lose, repeat, reorder and damage packets. Whatever the link does, what comes out is what was
// sent, in order, and everything that it refers to came out before it.
#include <gtest/gtest.h>

#include <map>

#include "damaged_link.h"

using client_bench::taken_frame;
using namespace damaged_link;

namespace
{

void expect_decodable(const std::vector<taken_frame> &taken, const std::vector<frame> &sent)
{
    std::map<uint32_t, size_t> places;
    for (size_t i = 0; i < sent.size(); i++) {
        places[sent[i].timestamp] = i;
    }
    size_t last = 0;
    bool is_first = true;
    for (const taken_frame &frame : taken) {
        const auto found = places.find(frame.rtp_timestamp);
        ASSERT_NE(found, places.end()) << "never sent";
        const size_t place = found->second;
        ASSERT_EQ(frame.data, sent[place].annexb) << "frame " << place;
        ASSERT_TRUE(is_first || place > last) << "out of order";
        ASSERT_TRUE(frame.is_key || (!is_first && place == last + 1)) << "frame " << place << " behind a gap";
        last = place;
        is_first = false;
    }
}

class DamagedLink : public testing::TestWithParam<std::tuple<settings, uint32_t>>
{
};

TEST_P(DamagedLink, LetsNothingOutButWhatWasSentInOrderWithAllReferences)
{
    const auto &[preset, seed] = GetParam();
    SCOPED_TRACE(testing::Message() << preset << ", seed " << seed);
    Random random(seed);
    Client client;
    Sender sender;
    sender.seq = static_cast<uint16_t>(random.below(65536));
    sender.timestamp = 0xFFFFFFFFu - random.below(1000000);
    Link link(preset, seed + 1000);
    const std::vector<frame> sent = run(client, sender, link, random, 400);
    expect_decodable(client.frames, sent);
    EXPECT_EQ(client.report().frames, client.frames.size());

    // On a good link the stream is whole again with the next key frame.
    client.pass(6000);
    Link good({}, 1);
    client.frames.clear();
    const std::vector<frame> after = run(client, sender, good, random, 30);
    client.pass(300);
    ASSERT_EQ(client.frames.size(), after.size());
    expect_decodable(client.frames, after);
}

INSTANTIATE_TEST_SUITE_P(
    Presets, DamagedLink,
    testing::Combine(testing::Values(settings{"clean", 0, 0, 0, 0, 0, 0}, settings{"duplicates", 0, 300, 0, 0, 0, 0},
                                     settings{"reordering", 0, 0, 300, 80, 0, 0},
                                     settings{"loss 1 %", 10, 0, 0, 0, 0, 0}, settings{"loss 20 %", 200, 0, 0, 0, 0, 0},
                                     settings{"loss 5 %, repaired", 50, 0, 0, 0, 1000, 0},
                                     settings{"everything", 30, 30, 100, 150, 700, 0},
                                     settings{"long delays", 5, 5, 20, 3000, 500, 0}),
                     testing::Range<uint32_t>(1, 6)));

class LosslessLink : public testing::TestWithParam<std::tuple<settings, uint32_t>>
{
};

TEST_P(LosslessLink, LosesNothing)
{
    const auto &[preset, seed] = GetParam();
    SCOPED_TRACE(testing::Message() << preset << ", seed " << seed);
    Random random(seed);
    Client client;
    Sender sender;
    Link link(preset, seed);
    const std::vector<frame> sent = run(client, sender, link, random, 300);
    for (int i = 0; i < 100; i++) {
        client.pass(10);
        link.deliver(client);
    }
    client.pass(300);
    EXPECT_EQ(client.frames.size(), sent.size());
    EXPECT_EQ(client.frame_drops(), "");
    EXPECT_EQ(client.report().packets_lost, 0u);
}

INSTANTIATE_TEST_SUITE_P(Presets, LosslessLink,
                         testing::Combine(testing::Values(settings{"clean", 0, 0, 0, 0, 0, 0},
                                                          settings{"duplicates", 0, 500, 0, 0, 0, 0},
                                                          settings{"reordering", 0, 100, 300, 80, 0, 0},
                                                          settings{"repaired", 50, 20, 0, 0, 1000, 0}),
                                          testing::Range<uint32_t>(1, 11)));

// With damaged headers a frame may come out that was never sent so; nothing worse may happen, and it must end.
class DamagingLink : public testing::TestWithParam<uint32_t>
{
};

INSTANTIATE_TEST_SUITE_P(Seeds, DamagingLink, testing::Range<uint32_t>(1, 21));

TEST_P(DamagingLink, IsSurvivedAndLeavesAStreamThatRecovers)
{
    Random random(GetParam());
    Client client;
    Sender sender;
    sender.seq = static_cast<uint16_t>(random.below(65536));
    Link link({"damage", 20, 50, 100, 200, 500, 200}, GetParam());
    run(client, sender, link, random, 400);
    client.pass(6000);
    Link good({}, 1);
    client.frames.clear();
    const std::vector<frame> after = run(client, sender, good, random, 60);
    client.pass(300);
    ASSERT_FALSE(client.frames.empty());
    EXPECT_EQ(client.frames.back().data, after.back().annexb);
}

} // namespace
