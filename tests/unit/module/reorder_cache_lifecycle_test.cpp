// Making, clearing and releasing the reorder cache and its records.

#include <algorithm>
#include <cstring>

#include <gtest/gtest.h>

#include "packets.h"
#include "reorder_scene.h"

using namespace test_support;

namespace
{

constexpr uint32_t kUnknown = 0xFFFFFFFF;
constexpr uint64_t kUnknown64 = ~uint64_t{0};

template <typename Record> void fill_with_garbage(Record &record)
{
    std::memset(static_cast<void *>(&record), 0xA5, sizeof(record));
}

template <typename Record> std::vector<uint8_t> bytes_of(const Record &record)
{
    const auto *first = reinterpret_cast<const uint8_t *>(&record);

    return std::vector<uint8_t>(first, first + sizeof(record));
}

template <typename Record> void expect_all_zero(const Record &record)
{
    EXPECT_EQ(bytes_of(record), std::vector<uint8_t>(sizeof(record), 0));
}

// A dynamic array of two elements.
rtn_vector_t some_values()
{
    rtn_vector_t array = {2, 2, nullptr};

    array.values = zeb_malloc_impl_dbg(16, "values", __LINE__);
    return array;
}

webrtc_video_packet_t used_slot()
{
    webrtc_video_packet_t pkt;

    fill_with_garbage(pkt);
    pkt.state = WEBRTC_VIDEO_PKT_SET;
    pkt.video.payload = some_values();
    return pkt;
}

webrtc_video_frame_t *new_frame()
{
    auto *frm = static_cast<webrtc_video_frame_t *>(zeb_malloc_impl_dbg(sizeof(webrtc_video_frame_t), "node", 0));

    webrtc_video_frame_init(frm);
    return frm;
}

// Two frames and four packets, one of them ahead of a gap.
void fill(ReorderScene &scene)
{
    scene.run(K(0, 1));
    scene.run(P(1, 1));
    scene.run(P(2, 2));
    scene.run(P(9, 2));
}

// Gives every counter and history field a value that is not its initial one.
void disturb(webrtc_video_cache_t &cache)
{
    cache.frm_all_cnt = 5;
    cache.frm_flag = 0x6;
    cache.last_deliver_frm_ts = 6;
    cache.last_deliver_frm_seq = 7;
    cache.last_deliver_pkt_seq = 8;
    cache.last_removed_timestamp = 9;
    cache.n_retrans_req_recent = 10;
    cache.n_intra_req_sent_recent = 11;
    cache.next_retrans_req_should_at = 12;
    cache.next_intra_req_should_at = 13;
}

void expect_initial_history(const webrtc_video_cache_t &cache)
{
    EXPECT_EQ(cache.pkt_cur_cnt, 0u);
    EXPECT_EQ(cache.pkt_exp_seq, kUnknown);
    EXPECT_EQ(cache.pkt_min_seq, kUnknown);
    EXPECT_EQ(cache.pkt_max_seq, kUnknown);
    EXPECT_EQ(cache.frm_map.rb_node, nullptr);
    EXPECT_EQ(cache.frm_map.count, 0u);
    EXPECT_NE(cache.frm_map.rb_cmp, nullptr);
    EXPECT_EQ(cache.frm_cur_cnt, 0u);
    EXPECT_EQ(cache.frm_all_cnt, 0u);
    EXPECT_EQ(cache.frm_min_timestamp, kUnknown64);
    EXPECT_EQ(cache.frm_max_timestamp, kUnknown64);
    EXPECT_EQ(cache.last_deliver_frm_ts, 0u);
    EXPECT_EQ(cache.last_deliver_frm_seq, kUnknown64);
    EXPECT_EQ(cache.last_deliver_pkt_seq, kUnknown);
    EXPECT_EQ(cache.last_ordered_pkt_seq, kUnknown);
    EXPECT_EQ(cache.last_ordered_timestamp, kUnknown64);
    EXPECT_EQ(cache.last_removed_timestamp, kUnknown64);
    EXPECT_EQ(cache.n_retrans_req_recent, 0);
    EXPECT_EQ(cache.n_intra_req_sent_recent, 0);
    EXPECT_EQ(cache.next_retrans_req_should_at, 0u);
    EXPECT_EQ(cache.next_intra_req_should_at, 0u);
}

} // namespace

TEST(ReorderCacheRecords, IgnoreNull)
{
    World world;

    webrtc_video_packet_init(nullptr);
    webrtc_video_packet_reset(nullptr);
    webrtc_video_frame_init(nullptr);
    webrtc_video_frame_fini(nullptr);
    webrtc_video_frame_reset(nullptr);
    webrtc_video_cache_fini(nullptr);
    webrtc_video_cache_reset(nullptr);
    webrtc_video_cache_dump(nullptr);
    EXPECT_EQ(webrtc_video_cache_alloc(nullptr), -1);
    EXPECT_TRUE(world.allocations.empty());
    EXPECT_TRUE(world.log.empty());
}

// -- Packet slots --

TEST(ReorderCachePacket, InitClearsTheWholeSlot)
{
    World world;
    webrtc_video_packet_t pkt;

    fill_with_garbage(pkt);
    webrtc_video_packet_init(&pkt);
    expect_all_zero(pkt);
}

TEST(ReorderCachePacket, ResetLeavesAFreeSlotUntouched)
{
    World world;
    webrtc_video_packet_t pkt;

    fill_with_garbage(pkt);
    pkt.state = WEBRTC_VIDEO_PKT_NONE;
    const std::vector<uint8_t> before = bytes_of(pkt);
    webrtc_video_packet_reset(&pkt);
    EXPECT_EQ(bytes_of(pkt), before);
}

TEST(ReorderCachePacket, ResetReleasesThePayloadAndClearsTheSlot)
{
    World world;
    webrtc_video_packet_t pkt = used_slot();

    webrtc_video_packet_reset(&pkt);
    EXPECT_TRUE(world.live.empty());
    expect_all_zero(pkt);
}

TEST(ReorderCachePacket, ResetClearsASlotWhosePayloadWasTaken)
{
    World world;
    webrtc_video_packet_t pkt;

    fill_with_garbage(pkt);
    pkt.state = WEBRTC_VIDEO_PKT_SET;
    pkt.video.payload.values = nullptr;
    webrtc_video_packet_reset(&pkt);
    expect_all_zero(pkt);
}

// -- Frame nodes --

TEST(ReorderCacheFrame, InitClearsTheNodeAndForgetsTheBounds)
{
    World world;
    webrtc_video_frame_t frm;

    fill_with_garbage(frm);
    webrtc_video_frame_init(&frm);
    EXPECT_EQ(frm.min_seq, kUnknown);
    EXPECT_EQ(frm.max_seq, kUnknown);
    EXPECT_EQ(frm.cur_min_seq, kUnknown);
    EXPECT_EQ(frm.cur_max_seq, kUnknown);
    frm.min_seq = frm.max_seq = frm.cur_min_seq = frm.cur_max_seq = 0;
    expect_all_zero(frm);
}

TEST(ReorderCacheFrame, ResetReleasesTheArrayAndSetsTheBoundsToZero)
{
    World world;

    for (const bool has_array : {true, false}) {
        webrtc_video_frame_t frm;
        webrtc_video_frame_init(&frm);
        frm.timestamp = 5;
        if (has_array) {
            frm.pkts = some_values();
        }
        webrtc_video_frame_reset(&frm);
        EXPECT_TRUE(world.live.empty());
        expect_all_zero(frm);
    }
}

TEST(ReorderCacheFrame, FiniReleasesTheArrayAndTheNode)
{
    World world;

    webrtc_video_frame_fini(new_frame());
    EXPECT_TRUE(world.live.empty());
    webrtc_video_frame_t *frm = new_frame();
    frm->pkts = some_values();
    EXPECT_EQ(world.live.size(), 2u);
    webrtc_video_frame_fini(frm);
    EXPECT_TRUE(world.live.empty());
}

// -- Init --

TEST(ReorderCacheInit, MakesAnEmptyCacheWithoutARing)
{
    ReorderScene scene;
    webrtc_video_cache_t cache;
    const size_t allocations = scene.world.allocations.size();

    fill_with_garbage(cache);
    webrtc_video_cache_init(&cache, scene.stream);
    EXPECT_EQ(cache.stream, scene.stream);
    EXPECT_EQ(cache.pkt_arr, nullptr);
    EXPECT_EQ(cache.pkt_all_cnt, 0u);
    EXPECT_EQ(cache.frm_flag, 1u);
    expect_initial_history(cache);
    EXPECT_EQ(scene.world.allocations.size(), allocations);
}

TEST(ReorderCacheInit, NeedsBothArguments)
{
    ReorderScene scene;
    webrtc_video_cache_t cache;

    fill_with_garbage(cache);
    const std::vector<uint8_t> before = bytes_of(cache);
    webrtc_video_cache_init(&cache, nullptr);
    EXPECT_EQ(bytes_of(cache), before);
    webrtc_video_cache_init(nullptr, scene.stream);
}

// -- The ring --

TEST(ReorderCacheAlloc, MakesEightThousandOneHundredNinetyTwoFreeSlots)
{
    ReorderScene scene;

    EXPECT_EQ(webrtc_video_cache_alloc(scene.cache), 0);
    EXPECT_EQ(scene.cache->pkt_all_cnt, 8192u);
    EXPECT_EQ(scene.cache->pkt_cur_cnt, 0u);
    EXPECT_EQ(scene.world.allocations.back().tag, "webrtc_video_cache_alloc");
    EXPECT_EQ(scene.world.allocations.back().size, 8192 * sizeof(webrtc_video_packet_t));
    const auto *first = reinterpret_cast<const uint8_t *>(scene.cache->pkt_arr);
    const std::vector<uint8_t> ring(first, first + 8192 * sizeof(webrtc_video_packet_t));
    EXPECT_EQ(std::count(ring.begin(), ring.end(), 0), static_cast<ptrdiff_t>(ring.size()));
    EXPECT_EQ(scene.cache->frm_flag, 1u); // all else stays
    expect_initial_history(*scene.cache);
}

TEST(ReorderCacheAlloc, LeavesTheCacheWithoutARingWhenMemoryIsShort)
{
    ReorderScene scene;

    scene.world.refuse_tag("webrtc_video_cache_alloc");
    scene.cache->pkt_all_cnt = 3;
    scene.cache->pkt_cur_cnt = 4;
    EXPECT_EQ(webrtc_video_cache_alloc(scene.cache), -1);
    EXPECT_EQ(scene.cache->pkt_arr, nullptr);
    EXPECT_EQ(scene.cache->pkt_all_cnt, 0u);
    EXPECT_EQ(scene.cache->pkt_cur_cnt, 0u);
    EXPECT_EQ(scene.world.log, (std::vector<log_line>{{5, "[WARNING][RCV_VID] malloc for pkt_arr failed\n"}}));
}

TEST(ReorderCacheAlloc, DoesNotLookForARingThatIsThere)
{
    ReorderScene scene;

    ASSERT_EQ(webrtc_video_cache_alloc(scene.cache), 0);
    webrtc_video_packet_t *first = scene.cache->pkt_arr;
    EXPECT_EQ(webrtc_video_cache_alloc(scene.cache), 0);
    EXPECT_NE(scene.cache->pkt_arr, first);
    zeb_free_impl(first);
}

// -- Reset --

TEST(ReorderCacheReset, LeavesACacheWithoutARingAsItIs)
{
    ReorderScene scene;

    disturb(*scene.cache);
    scene.cache->frm_flag = 0;
    scene.cache->pkt_exp_seq = 77;
    const std::vector<uint8_t> before = bytes_of(*scene.cache);
    webrtc_video_cache_reset(scene.cache);
    EXPECT_EQ(bytes_of(*scene.cache), before);
}

TEST(ReorderCacheReset, EmptiesTheCacheAndKeepsTheRing)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        fill(scene);
        const webrtc_video_packet_t *ring = scene.cache->pkt_arr;
        disturb(*scene.cache);
        EXPECT_EQ(scene.run(reset()), "");
        expect_initial_history(*scene.cache);
        EXPECT_EQ(scene.cache->stream, scene.stream);
        EXPECT_EQ(scene.cache->pkt_arr, ring);
        EXPECT_EQ(scene.cache->pkt_all_cnt, 8192u);
        EXPECT_EQ(scene.cache->frm_flag, 0x7u); // closed, other bits kept
        EXPECT_EQ(scene.world.count_of("webrtc_video_cache_alloc"), 1u);
        for (const int seq : {0, 1, 2, 9}) {
            expect_all_zero(scene.slot(seq));
        }
    }
}

TEST(ReorderCacheReset, ReleasesTheArraysOfFrames)
{
    ReorderScene scene;

    fill(scene);
    scene.frame(1)->pkts = some_values();
    scene.frame(2)->pkts = some_values();
    scene.run(reset());
    EXPECT_EQ(scene.cache->frm_map.count, 0u);
}

TEST(ReorderCacheReset, VisitsTheLastSlotWhenTheRangeIsUnknown)
{
    ReorderScene scene;

    ASSERT_EQ(webrtc_video_cache_alloc(scene.cache), 0);
    scene.cache->pkt_arr[0x1FFF] = used_slot();
    webrtc_video_cache_reset(scene.cache);
    expect_all_zero(scene.cache->pkt_arr[0x1FFF]);
}

// Slots that were filled by hand are in no count, so nothing looks for them.
TEST(ReorderCacheReset, VisitsNoOtherSlotWhenTheRangeIsUnknownAndNothingIsCounted)
{
    ReorderScene scene;
    webrtc_video_packet_t by_hand = {};

    ASSERT_EQ(webrtc_video_cache_alloc(scene.cache), 0);
    by_hand.state = WEBRTC_VIDEO_PKT_SET;
    by_hand.sub_seq = 1234;
    for (const size_t slot : {size_t{0}, size_t{7}, size_t{0x1FFE}, size_t{0x1FFF}}) {
        scene.cache->pkt_arr[slot] = by_hand;
    }
    webrtc_video_cache_reset(scene.cache);
    expect_all_zero(scene.cache->pkt_arr[0x1FFF]);
    EXPECT_EQ(scene.cache->pkt_cur_cnt, 0u);
    for (const size_t slot : {size_t{0}, size_t{7}, size_t{0x1FFE}}) {
        EXPECT_EQ(scene.cache->pkt_arr[slot].sub_seq, 1234) << slot;
        scene.cache->pkt_arr[slot] = {};
    }
}

TEST(ReorderCacheReset, SkipsFreeSlots)
{
    ReorderScene scene;

    fill(scene);
    scene.cache->pkt_arr[5].sub_seq = 1234; // of a free slot within the range
    scene.run(reset());
    EXPECT_EQ(scene.cache->pkt_arr[5].sub_seq, 1234);
}

// -- Fini --

TEST(ReorderCacheFini, ReleasesAllThatTheCacheOwns)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        const size_t without_cache = scene.world.live.size();
        fill(scene);
        scene.frame(2)->pkts = some_values();
        scene.cache->frm_all_cnt = 5;
        webrtc_video_cache_fini(scene.cache);
        EXPECT_EQ(scene.world.live.size(), without_cache);
        EXPECT_EQ(scene.cache->pkt_arr, nullptr);
        EXPECT_EQ(scene.cache->pkt_all_cnt, 0u);
        EXPECT_EQ(scene.cache->pkt_cur_cnt, 0u);
        EXPECT_EQ(scene.cache->pkt_min_seq, 0u); // not unknown
        EXPECT_EQ(scene.cache->pkt_max_seq, 0u);
        EXPECT_EQ(scene.cache->frm_map.rb_node, nullptr);
        EXPECT_EQ(scene.cache->frm_map.count, 0u);
        EXPECT_EQ(scene.cache->frm_cur_cnt, 0u);
        EXPECT_EQ(scene.cache->frm_all_cnt, 0u);
    }
}

TEST(ReorderCacheFini, LeavesEverythingElseAsItIs)
{
    ReorderScene scene;

    fill(scene);
    disturb(*scene.cache);
    webrtc_video_cache_t before = *scene.cache;
    webrtc_video_cache_fini(scene.cache);
    before.pkt_arr = nullptr;
    before.pkt_all_cnt = before.pkt_cur_cnt = before.pkt_min_seq = before.pkt_max_seq = 0;
    before.frm_map.rb_node = nullptr;
    before.frm_map.count = before.frm_cur_cnt = before.frm_all_cnt = 0;
    EXPECT_EQ(bytes_of(*scene.cache), bytes_of(before));
}

TEST(ReorderCacheFini, OnlyClearsTheFrameCountsOfACacheWithoutARing)
{
    ReorderScene scene;
    webrtc_video_cache_t expected;

    disturb(*scene.cache);
    scene.cache->frm_cur_cnt = 3;
    std::memcpy(static_cast<void *>(&expected), scene.cache, sizeof(expected));
    webrtc_video_cache_fini(scene.cache);
    expected.frm_cur_cnt = expected.frm_all_cnt = 0;
    EXPECT_EQ(bytes_of(*scene.cache), bytes_of(expected));
}

TEST(ReorderCacheFini, ReleasesPayloadsInTheRangeWhateverTheSlotsState)
{
    ReorderScene scene;
    const size_t without_cache = scene.world.live.size();

    fill(scene);
    scene.cache->pkt_arr[5].video.payload = some_values(); // of a slot that is free
    webrtc_video_cache_fini(scene.cache);
    EXPECT_EQ(scene.world.live.size(), without_cache);
}

TEST(ReorderCacheFini, ReleasesNoOtherPayloadWhenTheRangeIsUnknownAndNothingIsCounted)
{
    ReorderScene scene;
    const size_t without_cache = scene.world.live.size();
    webrtc_video_packet_t by_hand = {};

    ASSERT_EQ(webrtc_video_cache_alloc(scene.cache), 0);
    by_hand.state = WEBRTC_VIDEO_PKT_SET;
    by_hand.video.payload = some_values();
    rtn_vector_t not_visited = by_hand.video.payload;
    scene.cache->pkt_arr[7] = by_hand;
    by_hand.video.payload = some_values();
    scene.cache->pkt_arr[0x1FFF] = by_hand;
    webrtc_video_cache_fini(scene.cache);
    EXPECT_EQ(scene.world.live.size(), without_cache + 1);
    zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &not_visited);
}

TEST(ReorderCacheFini, LetsTheCacheBeMadeAgain)
{
    ReorderScene scene;

    fill(scene);
    webrtc_video_cache_fini(scene.cache);
    webrtc_video_cache_init(scene.cache, scene.stream);
    expect_initial_history(*scene.cache);
    EXPECT_EQ(scene.run(P(3, 2)), "dropped, asks key");
    EXPECT_EQ(scene.run(K(4, 3).m()), "kept, 1000:4 key");
}

// -- Dump --

TEST(ReorderCacheDump, LogsCountsAndBounds)
{
    ReorderScene scene;

    scene.run(K(100, 1));
    scene.run(P(102, 2));
    scene.run(P(103, 4));
    scene.world.log.clear();
    webrtc_video_cache_dump(scene.cache);
    EXPECT_EQ(
        scene.world.log,
        (std::vector<log_line>{{6, "[NOTICE][RCV_VID] video_cache: pkt_cnt=3 exp_seq=101 pkt_seq=[100, 103] frm_cnt=3"
                                   " frm_ts=[3000, 12000] last_ordered=[3000, 100]\n"}}));
}

TEST(ReorderCacheDump, LogsAnEmptyCache)
{
    ReorderScene scene;

    webrtc_video_cache_dump(scene.cache);
    EXPECT_EQ(scene.world.log,
              (std::vector<log_line>{
                  {6, "[NOTICE][RCV_VID] video_cache: pkt_cnt=0 exp_seq=4294967295 pkt_seq=[4294967295, 4294967295]"
                      " frm_cnt=0 frm_ts=[4294967295, 4294967295] last_ordered=[4294967295, 4294967295]\n"}}));
}

TEST(ReorderCacheDump, PrintsTheLowHalfOfTimestamps)
{
    ReorderScene scene;

    scene.cache->pkt_cur_cnt = 1;
    scene.cache->pkt_exp_seq = 2;
    scene.cache->pkt_min_seq = 3;
    scene.cache->pkt_max_seq = 4;
    scene.cache->frm_cur_cnt = 5;
    scene.cache->frm_min_timestamp = 0x700000006;
    scene.cache->frm_max_timestamp = 0x800000007;
    scene.cache->last_ordered_timestamp = 0x900000008;
    scene.cache->last_ordered_pkt_seq = 9;
    webrtc_video_cache_dump(scene.cache);
    EXPECT_EQ(scene.world.log,
              (std::vector<log_line>{{6, "[NOTICE][RCV_VID] video_cache: pkt_cnt=1 exp_seq=2 pkt_seq=[3, 4] frm_cnt=5"
                                         " frm_ts=[6, 7] last_ordered=[8, 9]\n"}}));
    scene.cache->pkt_cur_cnt = scene.cache->frm_cur_cnt = 0;
}

TEST(ReorderCacheReset, CountsNoPacketsWhateverItCountedBefore)
{
    ReorderScene scene;

    scene.run(K(0, 1));
    scene.cache->pkt_cur_cnt = 7;
    webrtc_video_cache_reset(scene.cache);
    EXPECT_EQ(scene.cache->pkt_cur_cnt, 0u);
}
