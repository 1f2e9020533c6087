// A fixed set of simulated calls, with the stream records looked at after every call of the client; and that what looks
// for faults would find them.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "blocks.h"
#include "failing_memory.h"
#include "kelvra_bcm_stat.h"
#include "kelvra_rtc_log.h"
#include "world.h"

using namespace simulation;

namespace
{

world_result run(const preset &kind, uint64_t seed)
{
    g_log_enable = 0; // bad paths make it talk
    world_settings settings;
    settings.seed = seed;
    settings.kind = &kind;
    settings.length = 30000;
    settings.call_max = 24000;
    settings.bad_min = 2000;
    settings.bad_max = 6000;
    return World(settings).run();
}

std::string joined(const std::vector<std::string> &lines)
{
    return std::accumulate(lines.begin(), lines.end(), std::string(),
                           [](const std::string &all, const std::string &line) { return all + line + "\n"; });
}

class Simulation : public testing::TestWithParam<preset>
{
};

TEST_P(Simulation, BreaksNothing)
{
    for (const uint64_t seed : {1u, 2u}) {
        const world_result result = run(GetParam(), seed);
        EXPECT_EQ(joined(result.findings), "") << "script/simulate --seed " << seed;
        EXPECT_GT(result.frames, result.frames_sent / 10);
        EXPECT_GT(result.checks, 1000u);
    }
}

INSTANTIATE_TEST_SUITE_P(OverA, Simulation, testing::ValuesIn(presets()),
                         [](const testing::TestParamInfo<preset> &param) {
                             std::string name = param.param.name;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

TEST(SimulationSeed, DecidesEverything)
{
    const preset &kind = *find_preset("hostile-mix");
    const world_result first = run(kind, 5);
    const world_result again = run(kind, 5);
    const world_result other = run(kind, 6);
    EXPECT_EQ(first.digest, again.digest);
    EXPECT_EQ(first.packets, again.packets);
    EXPECT_NE(first.digest, other.digest);
}

// ---- What looks for faults ----

channel_frame frame_of(const bytes &data, bool is_key)
{
    channel_frame frame = {};
    frame.data = data.data();
    frame.size = data.size();
    frame.codec = VIDEO_TYPE_H264;
    frame.is_key = is_key;
    return frame;
}

// Frames 0 to 3, of which 0 and 3 are key frames, under the names 100 to 103.
class LedgerOfFour : public testing::Test
{
  protected:
    LedgerOfFour()
    {
        for (uint8_t i = 0; i < 4; i++) {
            data_.push_back({0, 0, 0, 1, 9, i, 0, 0, 0, 1, 5, i});
            picture made;
            made.is_key = is_key(i);
            made.payloads = {{9, i}, {5, i}};
            made.expected = data_.back();
            made.units = {{0, 6, true}, {6, 12, false}};
            ledger_.note(100u + i, static_cast<seq_t>(65533 + 2 * i), std::move(made), 1000 + 40 * i);
        }
    }

    static bool is_key(size_t i)
    {
        return i % 3 == 0;
    }

    std::string take(size_t i)
    {
        return ledger_.take(frame_of(data_[i], is_key(i)), static_cast<uint32_t>(100 + i));
    }

    Ledger ledger_{VIDEO_TYPE_H264};
    std::vector<bytes> data_;
};

TEST_F(LedgerOfFour, AcceptsWhatWasSent)
{
    for (size_t i = 0; i < 4; i++) {
        EXPECT_EQ(take(i), "") << i;
    }
    std::string first;
    EXPECT_EQ(ledger_.count_missing(0, 2000, &first), 0u);
}

TEST_F(LedgerOfFour, AcceptsAKeyFrameBehindAGap)
{
    EXPECT_EQ(take(0), "");
    EXPECT_EQ(take(3), "");
    std::string first;
    EXPECT_EQ(ledger_.count_missing(1040, 1120, &first), 2u);
    EXPECT_EQ(first, "frame 1 of 12 bytes, sent at 1040");
}

TEST_F(LedgerOfFour, FindsAnotherFrameBehindAGap)
{
    EXPECT_EQ(take(0), "");
    EXPECT_NE(take(2).find("the one before did not come out"), std::string::npos);
}

TEST_F(LedgerOfFour, FindsFramesOutOfOrderAndTwice)
{
    EXPECT_EQ(take(3), "");
    EXPECT_NE(take(0).find("behind frame 3"), std::string::npos);
    EXPECT_NE(take(3).find("twice"), std::string::npos);
}

TEST_F(LedgerOfFour, FindsOtherBytes)
{
    data_[0][11] ^= 1;
    EXPECT_NE(take(0).find("other bytes"), std::string::npos);
    data_[0][11] ^= 1;
    data_[0].push_back(0);
    EXPECT_NE(take(0).find("other bytes"), std::string::npos);
    data_[0].resize(11);
    EXPECT_NE(take(0).find("other bytes"), std::string::npos);
}

TEST_F(LedgerOfFour, FindsAnotherKind)
{
    EXPECT_NE(ledger_.take(frame_of(data_[0], false), 100).find("kind"), std::string::npos);
}

TEST_F(LedgerOfFour, FindsWhatWasNeverSent)
{
    EXPECT_EQ(ledger_.take(frame_of(data_[0], true), 99), "frame 99 was never sent");
}

TEST_F(LedgerOfFour, LetsOptionalBytesBeMissing)
{
    data_[0].erase(data_[0].begin(), data_[0].begin() + 6);
    EXPECT_EQ(take(0), "");
    EXPECT_EQ(ledger_.n_shortened(), 1u);
}

TEST_F(LedgerOfFour, AsksNothingOfFramesThatWereChangedUnderWay)
{
    data_[0][11] ^= 1;
    ledger_.taint(100);
    EXPECT_EQ(take(0), "");
    data_[2][11] ^= 1;
    ledger_.taint_seq(2); // the second packet of frame 2, across the wrap
    EXPECT_EQ(take(2), "");
    data_[3][11] ^= 1;
    EXPECT_NE(take(3), "");
}

TEST_F(LedgerOfFour, NamesTheFirstUnitThatDiffers)
{
    data_[0][11] ^= 1;
    EXPECT_NE(take(0).find("unit 1 of 2, 6 bytes at 6"), std::string::npos);
    data_[0].resize(6);
    EXPECT_NE(take(0).find("unit 1 of 2, 6 bytes at 6"), std::string::npos);
    data_[0].insert(data_[0].end(), {0, 0, 0, 1, 5, 0, 7});
    EXPECT_NE(take(0).find("1 bytes behind all units"), std::string::npos);
}

TEST_F(LedgerOfFour, FindsAFrameThatMustNotComeOut)
{
    picture made;
    made.is_key = true;
    made.payloads = {{5, 4}};
    made.expected = {0, 0, 0, 1, 5, 4};
    made.units = {{0, 6, false}};
    made.fault = "a reserved type";
    const bytes data = made.expected;
    ledger_.note(104, 5, std::move(made), 1160);
    EXPECT_NE(ledger_.take(frame_of(data, true), 104).find("came out with a reserved type"), std::string::npos);
}

TEST_F(LedgerOfFour, CountsWhatDidNotComeOutHoweverLongAgo)
{
    std::string first;
    EXPECT_EQ(ledger_.count_missing(1120, &first), 3u);
    EXPECT_EQ(take(0), "");
    EXPECT_EQ(take(3), "");
    EXPECT_EQ(ledger_.count_missing(2000, &first), 2u);
    EXPECT_EQ(first, "frame 1 of 12 bytes, sent at 1040");
    picture later;
    later.payloads = {{1}};
    ledger_.note(200, 9, std::move(later), 60000);
    EXPECT_EQ(ledger_.count_missing(2000, &first), 2u);
    EXPECT_EQ(first, "frame 1 of 12 bytes, sent at 1040");
}

TEST_F(LedgerOfFour, CountsNothingInFrontOfTheFirstFrameThatCameOut)
{
    std::string first;
    EXPECT_EQ(take(3), "");
    EXPECT_EQ(ledger_.first_out(), 3u);
    EXPECT_EQ(ledger_.count_missing(2000, &first), 0u);
    picture later;
    later.payloads = {{1}};
    ledger_.note(200, 9, std::move(later), 60000);
    EXPECT_EQ(ledger_.count_missing(2000, &first), 0u);
}

TEST_F(LedgerOfFour, PassesOverAFrameOfOnePacketInFrontOfAKeyFrame)
{
    for (const bool is_key : {true, false, true}) {
        picture made;
        made.is_key = is_key;
        made.payloads = {{5}};
        made.expected = {0, 0, 0, 1, 5};
        made.units = {{0, 5, false}};
        ledger_.note(is_key ? 300 : 301, 9, std::move(made), 1200);
    }
    EXPECT_EQ(take(3), "");
    EXPECT_EQ(ledger_.take(frame_of({0, 0, 0, 1, 5}, true), 300), "");
    std::string first;
    EXPECT_EQ(ledger_.count_missing(2000, &first), 1u); // the key frame behind the one in front of them
}

TEST_F(LedgerOfFour, KnowsWhenAKeyFrameWithParameterSetsCameOut)
{
    picture made;
    made.is_key = made.has_sets = true;
    made.payloads = {{5}};
    made.expected = {0, 0, 0, 1, 5};
    made.units = {{0, 5, false}};
    ledger_.note(104, 5, std::move(made), 1160);
    EXPECT_EQ(take(3), "");
    EXPECT_FALSE(ledger_.has_given_sets());
    EXPECT_EQ(ledger_.take(frame_of({0, 0, 0, 1, 5}, true), 104), "");
    EXPECT_TRUE(ledger_.has_given_sets());
    ledger_.renumber();
    EXPECT_FALSE(ledger_.has_given_sets());
}

TEST(SimulatedSamples, AreThoseThatTheStatisticsGot)
{
    take_samples();
    const KelvraBcmStatisticsConfig config = {};
    KelvraBcmStatistics *stat = KelvraBcmStat_Create(&config);
    ASSERT_NE(stat, nullptr);
    KelvraBcmStat_OnRecvPacket(stat, 65535, 4000000000u, 1200, 5000000000u, 1);
    const std::vector<received_sample> samples = take_samples();
    ASSERT_EQ(samples.size(), 1u);
    EXPECT_EQ(samples[0].seq, 65535);
    EXPECT_EQ(samples[0].timestamp, 4000000000u);
    EXPECT_EQ(samples[0].size, 1200);
    EXPECT_EQ(samples[0].now, 5000000000u);
    EXPECT_TRUE(samples[0].is_retrans);
    EXPECT_TRUE(take_samples().empty());
    KelvraBcmStat_Destroy(stat);
}

TEST(CountedBlocks, AreThoseOfAServiceAndNoOthers)
{
    const long before = failing_memory::in_use();
    rtc_service *service = rtc_service_create();
    channel_config config = {};
    config.name = "blocks";
    config.enable_bandwidth_est_downlink = true;
    rtc_channel *channel = rtc_channel_create(service, &config);
    rtc_channel_set_payload_type(channel, kPayloadTypeH264, VIDEO_TYPE_H264);
    const zeb_ts_t now = 1000;
    for (const uint32_t ssrc : {1u, 2u}) {
        rtp_builder::rtp_fields fields;
        fields.ssrc = ssrc;
        fields.payload_type = kPayloadTypeH264;
        fields.payload = {0x65, 0x88, 1, 2, 3};
        const bytes packet = rtp_builder::rtp_packet(fields);
        rtc_channel_receive_rtp(channel, packet.data(), packet.size(), false, &now);
    }
    EXPECT_GT(count_blocks(*service, channel), 8);
    EXPECT_EQ(count_blocks(*service, channel), failing_memory::in_use() - before);
    void *other = zeb_malloc_impl_dbg(1, "other", 0);
    EXPECT_EQ(count_blocks(*service, channel), failing_memory::in_use() - before - 1);
    zeb_free_impl(other);
    rtc_channel_destroy(channel);
    EXPECT_EQ(count_blocks(*service, nullptr), failing_memory::in_use() - before);
    rtc_service_destroy(service);
    EXPECT_EQ(failing_memory::in_use(), before);
}

// ---- Links ----

size_t count_arrivals(Link *link, int n)
{
    size_t arrived = 0;
    for (int i = 0; i < n; i++) {
        arrived += link->send(100, static_cast<zeb_ts_t>(i) * 10).size();
    }
    return arrived;
}

TEST(SimulatedLink, LosesAsMuchAsItShouldInBursts)
{
    link_settings settings;
    settings.to_bad = 0.01;
    settings.to_good = 0.1;
    settings.loss_bad = 1;
    Link link(settings, 1);
    EXPECT_NEAR(static_cast<double>(count_arrivals(&link, 100000)), 100000 * (1 - 0.01 / 0.11), 1500);
    link.set_clean(true);
    EXPECT_EQ(count_arrivals(&link, 1000), 1000u);
}

TEST(SimulatedLink, KeepsToItsRateAndQueue)
{
    link_settings settings;
    settings.rate_kbps = 80; // 100 bytes in 10 ms
    settings.queue = 50;
    Link link(settings, 1);
    std::vector<zeb_ts_t> delays;
    for (zeb_ts_t now = 0; now < 1000; now += 5) {
        for (const passage &copy : link.send(100, now)) {
            delays.push_back(copy.at - now);
        }
    }
    EXPECT_NEAR(static_cast<double>(delays.size()), 105, 3);
    EXPECT_LE(*std::max_element(delays.begin(), delays.end()), settings.one_way + settings.queue + 10);
}

} // namespace
