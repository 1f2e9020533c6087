// Long random runs of the reorder cache: any packets at all, and a lossy network in front of a sane sender.

#include <queue>
#include <random>

#include <gtest/gtest.h>

#include "packets.h"
#include "reorder_scene.h"
#include "seed.h"

using namespace test_support;

namespace
{

int below(std::mt19937 &random, int limit)
{
    return static_cast<int>(random() % static_cast<uint32_t>(limit));
}

bool one_in(std::mt19937 &random, int n)
{
    return below(random, n) == 0;
}

// Keeps what the recorders collect from growing.
void forget_records(World &world)
{
    world.log.clear();
    world.allocations.clear();
}

// -- Any packets at all --

// Packets come from a window of sequence numbers that moves on, and now and then jumps by a distance at which slots are
// shared or the order turns round. Most packets are as the frame at their place would have them.
struct storm {
    const char *name;
    int window;       // sequence numbers
    int drift;        // the window moves on by one every so many packets
    int jump_every;   // packets between jumps
    int reset_every;  // packets between resets
    int strange;      // one packet in so many has the timestamp, the marker or the key flag of another
    bool jumps_in_ts; // the timestamps jump too
};

std::ostream &operator<<(std::ostream &out, const storm &what)
{
    return out << what.name;
}

class ReorderCacheStorm : public testing::TestWithParam<storm>
{
};

// Draws the steps of a storm.
class StormSource
{
  public:
    StormSource(std::mt19937 &random, const storm &what) : random_(random), what_(what)
    {
    }

    reorder_step next()
    {
        if (one_in(random_, 4)) {
            ms_ += one_in(random_, 50) ? below(random_, 3000) : below(random_, 10);
        }
        if (one_in(random_, 10)) {
            return check().at(ms_);
        }
        if (one_in(random_, what_.reset_every)) {
            return reset();
        }
        first_ += one_in(random_, what_.drift) ? 1 : 0;
        if (one_in(random_, what_.jump_every)) {
            jump();
        }
        return packet(first_ + below(random_, what_.window));
    }

  private:
    void jump()
    {
        const int distances[] = {8192, 16384, 0x7FFF, 0x8000, 0x8001, below(random_, 65536)};

        first_ += distances[below(random_, 6)] - below(random_, what_.window);
        ts_jump_ += what_.jumps_in_ts ? below(random_, 1431655) : 0; // up to the whole circle of timestamps
    }

    // Frames of three packets, every fourth a key frame.
    reorder_step packet(int seq)
    {
        const int frame = seq / 3;
        const int strange_frame = one_in(random_, what_.strange) ? frame + below(random_, 5) - 2 : frame;
        reorder_step step = P(seq, strange_frame + ts_jump_).at(ms_);

        step.is_key = (frame % 4 == 0) != one_in(random_, what_.strange);
        step.marker = (seq % 3 == 2) != one_in(random_, what_.strange);
        step.is_retrans = one_in(random_, 5);
        return step;
    }

    std::mt19937 &random_;
    const storm &what_;
    int64_t ms_ = 0;
    int first_ = 0;
    int ts_jump_ = 0;
};

TEST_P(ReorderCacheStorm, KeepsItsInvariantsAndDeliversOnlyWhatItKept)
{
    constexpr int steps = 60000;
    std::mt19937 random(test_seed());
    ReorderScene scene({static_cast<seq_t>(random()), static_cast<uint32_t>(random())});
    StormSource source(random, GetParam());
    size_t delivered = 0;

    for (int n = 0; n < steps && !HasFailure(); n++) {
        const reorder_step step = source.next();
        scene.world.takes_payload = one_in(random, 2);
        scene.world.refuse = nullptr;
        if (one_in(random, 500)) {
            scene.world.refuse = [](size_t, const allocation &request) { return request.tag != "test packet"; };
        }
        const std::string out = scene.run_unchecked(step);
        EXPECT_EQ(out.find("DAMAGED"), std::string::npos) << "step " << n << ": " << step << " -> " << out;
        delivered += scene.world.added.size();
        if (n % 500 == 0) {
            scene.expect_invariants();
        }
        forget_records(scene.world);
    }
    scene.expect_invariants();
    EXPECT_GT(delivered, 0u);
}

INSTANTIATE_TEST_SUITE_P(Packets, ReorderCacheStorm,
                         testing::Values(storm{"AlmostSane", 12, 1, 20000, 5000, 50, false},
                                         storm{"Strange", 12, 1, 5000, 500, 4, false},
                                         storm{"NarrowWithManyDuplicates", 6, 4, 5000, 200, 10, false},
                                         storm{"SharedSlots", 12, 1, 50, 300, 10, false},
                                         storm{"JumpsInTime", 30, 1, 200, 300, 20, true},
                                         storm{"WiderThanTheRing", 20000, 1, 1000, 200, 10, false},
                                         storm{"AllNumbers", 65536, 1, 100, 100, 10, true}),
                         [](const testing::TestParamInfo<storm> &row) { return std::string(row.param.name); });

// -- A lossy network in front of a sane sender --

struct sent_frame {
    int first; // sequence number that does not wrap
    int n_pkts;
    bool is_key;
};

struct arrival {
    int64_t ms;
    int order; // of sending
    reorder_step step;

    bool operator<(const arrival &other) const // the earliest is on top of a queue
    {
        return ms != other.ms ? ms > other.ms : order > other.order;
    }
};

// Sends whole frames, 30 ms apart, through a network that loses, doubles and reorders the packets of delta frames and
// brings some of the lost ones late. Packets of key frames come in order, since a key frame is believed to begin with the
// lowest packet that came.
class Sender
{
  public:
    explicit Sender(std::mt19937 &random) : random_(random)
    {
    }

    void send_frame(int64_t ms, bool wants_key)
    {
        const sent_frame frame = {next_seq_, 1 + below(random_, 6), frames.empty() || wants_key || one_in(random_, 40)};
        const auto ts = static_cast<int>(frames.size());

        for (int i = 0; i < frame.n_pkts; i++) {
            reorder_step step = frame.is_key ? K(frame.first + i, ts) : P(frame.first + i, ts);
            step.marker = i == frame.n_pkts - 1;
            send_packet(step, ms);
        }
        frames.push_back(frame);
        next_seq_ += frame.n_pkts;
    }

    std::priority_queue<arrival> network;
    std::vector<sent_frame> frames;

  private:
    void send_packet(const reorder_step &step, int64_t ms)
    {
        if (step.is_key) {
            arrive(step, ms + 20);
        } else if (one_in(random_, 30)) {
            if (!one_in(random_, 8)) {
                arrive(step.again(), ms + 100 + below(random_, 400));
            }
        } else {
            arrive(step, ms + below(random_, 60));
            if (one_in(random_, 40)) {
                arrive(step, ms + below(random_, 300));
            }
        }
    }

    void arrive(const reorder_step &step, int64_t ms)
    {
        network.push({ms, order_++, step.at(ms)});
    }

    std::mt19937 &random_;
    int next_seq_ = 0;
    int order_ = 0;
};

// What was delivered must be frames as they were sent, in order, none twice, numbered without a gap while no frame is left out.
class Receiver
{
  public:
    Receiver(const ReorderScene &scene, const std::vector<sent_frame> &frames) : scene_(scene), frames_(frames)
    {
    }

    // The frames of one call.
    void take(const std::vector<added_packet> &packets)
    {
        for (size_t i = 0; i < packets.size();) {
            const size_t index = find_frame(packets[i].seq);
            ASSERT_LT(index, frames_.size()) << "packet " << packets[i].seq << " begins no later frame";
            const auto n_pkts = static_cast<size_t>(frames_[index].n_pkts);
            ASSERT_LE(i + n_pkts, packets.size());
            for (size_t k = 0; k < n_pkts; k++) {
                check_packet(packets[i + k], frames_[index], static_cast<int>(k));
            }
            const bool follows = delivered > 0 && index == next_;
            ASSERT_TRUE(packets[i].frame_seq == 1000 || (follows && packets[i].frame_seq == frame_seq_ + 1));
            frame_seq_ = packets[i].frame_seq;
            next_ = index + 1;
            delivered++;
            i += n_pkts;
        }
    }

    size_t delivered = 0;

  private:
    size_t find_frame(seq_t seq) const
    {
        size_t index = next_;

        while (index < frames_.size() && scene_.seq(frames_[index].first) != seq) {
            index++;
        }
        return index;
    }

    void check_packet(const added_packet &packet, const sent_frame &frame, int k) const
    {
        EXPECT_EQ(packet.seq, scene_.seq(frame.first + k));
        EXPECT_EQ(packet.subseq, k);
        EXPECT_EQ(packet.n_pkts, frame.n_pkts);
        EXPECT_EQ(packet.is_key, frame.is_key ? 1 : 0);
    }

    const ReorderScene &scene_;
    const std::vector<sent_frame> &frames_;
    size_t next_ = 0;
    uint32_t frame_seq_ = 0;
};

TEST(ReorderCacheOnALossyNetwork, DeliversWholeFramesInOrder)
{
    constexpr int64_t duration = 600000; // ms
    std::mt19937 random(test_seed());
    ReorderScene scene({60000, 0xFFF00000});
    Sender sender(random);
    Receiver receiver(scene, sender.frames);
    bool wants_key = false;

    for (int64_t ms = 0; ms < duration && !HasFailure(); ms += 10) {
        const size_t intra_requests = scene.world.intra_requests;
        if (ms % 30 == 0) {
            sender.send_frame(ms, wants_key);
            wants_key = false;
        }
        while (!sender.network.empty() && sender.network.top().ms <= ms) {
            scene.run_unchecked(sender.network.top().step);
            sender.network.pop();
            receiver.take(scene.world.added);
        }
        scene.run_unchecked(check().at(ms));
        receiver.take(scene.world.added);
        wants_key = wants_key || scene.world.intra_requests != intra_requests;
        if (ms % 5000 == 0) {
            scene.expect_invariants();
        }
        forget_records(scene.world);
    }
    EXPECT_GT(receiver.delivered, sender.frames.size() / 4);
    RecordProperty("frames_sent", static_cast<int>(sender.frames.size()));
    RecordProperty("frames_delivered", static_cast<int>(receiver.delivered));
}

} // namespace
