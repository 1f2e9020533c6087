// Streams over links that lose, repeat, reorder and damage packets. Whatever the link does, what comes out is what was
// sent, in order, and everything that it refers to came out before it.
#include <gtest/gtest.h>

#include <map>
#include <queue>

#include "client_bench.h"

using namespace client_bench;
using rtp_builder::frame;
using rtp_builder::nal_unit;
using rtp_builder::Sender;

namespace
{

// A fixed linear congruential generator: the same runs everywhere.
class Random
{
  public:
    explicit Random(uint32_t seed) : state_(seed * 2654435761u + 1)
    {
    }

    uint32_t below(uint32_t n)
    {
        state_ = state_ * 1664525u + 1013904223u;
        return (state_ >> 8) % n;
    }

    bool happens(uint32_t per_mille)
    {
        return below(1000) < per_mille;
    }

  private:
    uint32_t state_;
};

struct link {
    const char *name;
    uint32_t loss;            // per mille
    uint32_t duplicates;      // per mille
    uint32_t delayed;         // per mille
    uint32_t delay;           // milliseconds, up to
    uint32_t retransmissions; // per mille of the lost packets come again, 100 ms later
    uint32_t damage;          // per mille of the packets come with a bit changed in their first 16 bytes
};

std::ostream &operator<<(std::ostream &out, const link &preset)
{
    return out << preset.name;
}

struct arrival {
    zeb_ts_t at;
    uint64_t order;
    bytes packet;
    bool is_retrans;

    bool operator<(const arrival &other) const
    {
        return at != other.at ? at > other.at : order > other.order; // the earliest on top
    }
};

class Link
{
  public:
    Link(const link &preset, uint32_t seed) : preset_(preset), random_(seed)
    {
    }

    void send(const bytes &packet, zeb_ts_t now)
    {
        if (random_.happens(preset_.loss)) {
            if (random_.happens(preset_.retransmissions)) {
                push(packet, now + 100, true);
            }
            return;
        }
        const zeb_ts_t delay = random_.happens(preset_.delayed) ? random_.below(preset_.delay + 1) : 0;
        push(packet, now + delay, false);
        if (random_.happens(preset_.duplicates)) {
            push(packet, now + random_.below(50), false);
        }
    }

    void deliver(Client &client)
    {
        while (!on_the_way_.empty() && on_the_way_.top().at <= client.now) {
            client.receive(on_the_way_.top().packet, on_the_way_.top().is_retrans);
            on_the_way_.pop();
        }
    }

  private:
    void push(bytes packet, zeb_ts_t at, bool is_retrans)
    {
        if (random_.happens(preset_.damage)) {
            packet[random_.below(16)] ^= static_cast<uint8_t>(1u << random_.below(8));
        }
        on_the_way_.push({at, order_++, std::move(packet), is_retrans});
    }

    link preset_;
    Random random_;
    std::priority_queue<arrival> on_the_way_;
    uint64_t order_ = 0;
};

frame next_frame(Sender &sender, Random &random, int i)
{
    if (i % 30 == 0) {
        return sender.key_frame(3 + random.below(20));
    }
    return sender.delta_frame(1 + random.below(4));
}

// Sends `n` frames, one each 33 ms.
std::vector<frame> run(Client &client, Sender &sender, Link &link, Random &random, int n)
{
    std::vector<frame> sent;
    for (int i = 0; i < n; i++) {
        sent.push_back(next_frame(sender, random, i));
        for (const bytes &packet : sent.back().packets) {
            link.send(packet, client.now);
        }
        for (int k = 0; k < 3; k++) {
            link.deliver(client);
            client.pass(11);
        }
    }
    return sent;
}

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

class DamagedLink : public testing::TestWithParam<std::tuple<link, uint32_t>>
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
    testing::Combine(testing::Values(link{"clean", 0, 0, 0, 0, 0, 0}, link{"duplicates", 0, 300, 0, 0, 0, 0},
                                     link{"reordering", 0, 0, 300, 80, 0, 0}, link{"loss 1 %", 10, 0, 0, 0, 0, 0},
                                     link{"loss 20 %", 200, 0, 0, 0, 0, 0},
                                     link{"loss 5 %, repaired", 50, 0, 0, 0, 1000, 0},
                                     link{"everything", 30, 30, 100, 150, 700, 0},
                                     link{"long delays", 5, 5, 20, 3000, 500, 0}),
                     testing::Range<uint32_t>(1, 6)));

class LosslessLink : public testing::TestWithParam<std::tuple<link, uint32_t>>
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
                         testing::Combine(testing::Values(link{"clean", 0, 0, 0, 0, 0, 0},
                                                          link{"duplicates", 0, 500, 0, 0, 0, 0},
                                                          link{"reordering", 0, 100, 300, 80, 0, 0},
                                                          link{"repaired", 50, 20, 0, 0, 1000, 0}),
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
