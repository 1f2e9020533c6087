// Packet sequences that a reorder cache cannot get over by its own rules, and how the service tick gets it going again.
#include "module/watchdog.h"

#include <gtest/gtest.h>

#include "client_bench.h"

using namespace client_bench;
using rtp_builder::frame;
using rtp_builder::nal_unit;
using rtp_builder::rtp_fields;
using rtp_builder::Sender;

namespace
{

constexpr uint8_t kSps = 7;
constexpr uint8_t kSlice = 1;
constexpr uint8_t kIdr = 5;

bytes packet(uint16_t seq, uint32_t timestamp, uint8_t nal_type, bool marker = false)
{
    rtp_fields fields;
    fields.seq = seq;
    fields.timestamp = timestamp;
    fields.marker = marker;
    fields.payload = nal_unit(nal_type, 20);
    return rtp_packet(fields);
}

// The stream goes on from `seq` as if nothing had been.
void expect_recovery(Client &client, uint16_t seq)
{
    Sender sender;
    sender.seq = seq;
    sender.timestamp = 1000000;
    const frame key = sender.key_frame(4);
    const frame delta = sender.delta_frame(3);
    const size_t before = client.frames.size();
    client.receive(key);
    client.receive(delta);
    client.pass(300);
    ASSERT_EQ(client.frames.size(), before + 2);
    EXPECT_EQ(client.frames[before].data, key.annexb);
    EXPECT_EQ(client.frames[before + 1].data, delta.annexb);
}

TEST(Watchdog, ClearsACacheWithFramesThatHaveNoPackets)
{
    Client client;
    const uint32_t a = 9000;
    const uint32_t b = 12000;
    client.receive(packet(100, a, kSps));
    client.receive(packet(101, b, kSlice));
    client.receive(packet(102, a, kSlice, true));
    client.receive(packet(103, a, kSlice));
    const webrtc_video_cache_t &cache = client.stream()->video_cache_q;
    ASSERT_GT(cache.frm_cur_cnt, cache.pkt_cur_cnt);
    const uint64_t asked = client.report().key_frame_requests;
    client.pass(10);
    EXPECT_EQ(client.watchdogs(), "frames_without_packets=1");
    EXPECT_EQ(client.report().frames_dropped[FRAME_DROP_WATCHDOG], 1u);
    EXPECT_EQ(client.report().key_frame_requests, asked + 1);
    EXPECT_EQ(cache.frm_cur_cnt, 0u);
    expect_recovery(client, 104);
}

// Frames in decoding order: those that are shown earlier have smaller timestamps, and come later.
TEST(Watchdog, ClearsAnIncompleteKeyFrameThatTheCacheTakesForTheOneToGoOnWith)
{
    Client client;
    client.receive(packet(100, 3000, kSps));
    client.receive(packet(101, 3000, kIdr, true));
    ASSERT_EQ(client.frames.size(), 1u);
    client.receive(packet(102, 12000, kSps));
    client.receive(packet(104, 6000, kSlice, true));
    client.receive(packet(105, 9000, kSlice, true));
    client.pass(1990);
    EXPECT_EQ(client.watchdogs(), "");
    client.pass(20);
    EXPECT_EQ(client.watchdogs(), "key_frame_stuck=1");
    EXPECT_EQ(client.report().frames_dropped[FRAME_DROP_WATCHDOG], 3u);
    expect_recovery(client, 106);
}

TEST(Watchdog, LeavesAnIncompleteKeyFrameToTheCacheThatDropsIt)
{
    Client client;
    client.receive(packet(100, 3000, kSps));
    client.receive(packet(101, 3000, kIdr, true));
    client.receive(packet(102, 6000, kSps));
    client.receive(packet(104, 9000, kSlice, true));
    client.pass(3000);
    EXPECT_EQ(client.watchdogs(), "");
    EXPECT_EQ(client.frame_drops(), "incomplete=2");
    expect_recovery(client, 105);
}

// Key frames come, each without its end, so that there is always one to wait for.
TEST(Watchdog, ClearsACacheThatDeliversNothingWhilePacketsCome)
{
    Client client;
    client.receive(packet(100, 3000, kSps));
    client.receive(packet(101, 3000, kIdr, true));
    const zeb_ts_t since = client.now;
    uint16_t seq = 102;
    uint32_t timestamp = 6000;
    while (client.watchdogs().empty() && client.now - since < 10000) {
        client.receive(packet(seq, timestamp, kSps));
        seq = static_cast<uint16_t>(seq + 2);
        timestamp += 3000;
        client.pass(50);
    }
    EXPECT_EQ(client.watchdogs(), "nothing_delivered=1");
    EXPECT_GE(client.now - since, kWatchdogDeliveryPatience);
    EXPECT_LE(client.now - since, kWatchdogDeliveryPatience + 300);
    expect_recovery(client, static_cast<uint16_t>(seq + 1));
}

TEST(Watchdog, LeavesASilentStreamAlone)
{
    Client client;
    client.receive(packet(100, 3000, kSps));
    client.receive(packet(101, 3000, kIdr, true));
    client.receive(packet(102, 6000, kSlice));
    client.pass(60000);
    EXPECT_EQ(client.watchdogs(), "");
    EXPECT_EQ(client.frame_drops(), "incomplete=1");
}

TEST(Watchdog, LeavesAStreamThatIsWaitingForItsKeyFrameAlone)
{
    Client client;
    for (uint16_t i = 0; i < 1000; i++) {
        client.receive(packet(i, 3000u * i, kSlice, true));
        client.pass(20);
    }
    EXPECT_EQ(client.watchdogs(), "");
}

// What was thrown away must not come back as pieces.
TEST(Watchdog, TakesNoPacketsFromBeforeItClearedTheCache)
{
    Client client;
    client.receive(packet(100, 9000, kSps));
    client.receive(packet(101, 12000, kSlice));
    client.receive(packet(102, 9000, kSlice, true));
    client.receive(packet(104, 9000, kSlice));
    client.receive(packet(103, 9000, kSlice));
    client.pass(10);
    if (client.watchdogs().empty()) {
        client.pass(6000);
    }
    const uint64_t late = client.report().packets_dropped[PACKET_DROP_LATE];
    EXPECT_EQ(client.receive(packet(99, 6000, kSps, true)), -1);
    EXPECT_EQ(client.report().packets_dropped[PACKET_DROP_LATE], late + 1);
    expect_recovery(client, 105);
}

// ---- On a cache made by hand ----

class WatchdogOnCache : public testing::Test
{
  protected:
    WatchdogOnCache() : slots(WEBRTC_VIDEO_RING_SLOTS)
    {
        cache.pkt_arr = slots.data();
        cache.pkt_min_seq = UINT32_MAX;
        slots[5].frm_ptr = &frame;
    }

    // One packet of one frame, number 5.
    void hold_one()
    {
        cache.pkt_min_seq = cache.pkt_max_seq = 5;
        cache.pkt_cur_cnt = cache.frm_cur_cnt = 1;
    }

    watchdog_e find(zeb_ts_t now)
    {
        watchdog_look(&dog, &cache, now);
        return watchdog_find(&dog, &cache, &progress, now);
    }

    void packet_comes(zeb_ts_t at)
    {
        progress.n_packets += 1;
        progress.last_packet_at = at;
    }

    watchdog dog = {};
    watchdog_progress progress = {};
    webrtc_video_cache_t cache = {};
    webrtc_video_frame_t frame = {};
    std::vector<webrtc_video_packet_t> slots;
};

TEST_F(WatchdogOnCache, FindsNothingInAnEmptyOne)
{
    EXPECT_EQ(find(100000), WATCHDOG_REASONS);
    cache.pkt_arr = nullptr;
    cache.pkt_min_seq = 0;
    EXPECT_EQ(find(100000), WATCHDOG_REASONS) << "without a ring";
}

TEST_F(WatchdogOnCache, FindsAHeadWithoutAFrameAtOnce)
{
    hold_one();
    EXPECT_EQ(find(1000), WATCHDOG_REASONS);
    slots[5].frm_ptr = nullptr;
    EXPECT_EQ(find(1000), WATCHDOG_HEAD_WITHOUT_FRAME);
}

TEST_F(WatchdogOnCache, FindsAnOverdueKeyFrameThatStays)
{
    hold_one();
    frame.is_key = 1;
    frame.ts = 1000;
    EXPECT_EQ(find(2999), WATCHDOG_REASONS);
    EXPECT_EQ(find(3000), WATCHDOG_KEY_FRAME_STUCK);
    frame.state = WEBRTC_VIDEO_FRM_COMPLETE;
    EXPECT_EQ(find(3000), WATCHDOG_REASONS) << "complete";
}

struct delivery_row {
    const char *what;
    std::function<void(watchdog_progress &, webrtc_video_cache_t &)> meanwhile;
    watchdog_e found;
};

TEST_F(WatchdogOnCache, CountsTheTimeInWhichPacketsCameAndNothingWentOut)
{
    const std::vector<delivery_row> rows = {
        {"packets came", [](watchdog_progress &, webrtc_video_cache_t &) {}, WATCHDOG_NOTHING_DELIVERED},
        {"a frame went out", [](watchdog_progress &so_far, webrtc_video_cache_t &) { so_far.n_delivered++; },
         WATCHDOG_REASONS},
        {"a key frame is waited for", [](watchdog_progress &, webrtc_video_cache_t &waiting) { waiting.frm_flag = 1; },
         WATCHDOG_REASONS},
        {"the last packet came early",
         [](watchdog_progress &so_far, webrtc_video_cache_t &) { so_far.last_packet_at -= 1; }, WATCHDOG_REASONS}};
    for (const delivery_row &row : rows) {
        dog = {};
        cache.frm_flag = 0;
        find(50000);
        packet_comes(54000);
        row.meanwhile(progress, cache);
        EXPECT_EQ(find(54000), row.found) << row.what;
    }
}

TEST_F(WatchdogOnCache, CountsFromTheFirstPacketBehindASilence)
{
    packet_comes(1000);
    find(1000);
    find(60000);
    packet_comes(60005);
    EXPECT_EQ(find(60010), WATCHDOG_REASONS);
    packet_comes(63999);
    EXPECT_EQ(find(64000), WATCHDOG_REASONS);
    packet_comes(64000);
    EXPECT_EQ(find(64000), WATCHDOG_NOTHING_DELIVERED);
    packet_comes(64001);
    EXPECT_EQ(find(64010), WATCHDOG_REASONS) << "said once";
}

} // namespace
