#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "log_gate.h"
#include "packets.h"
#include "test_stream.h"

using namespace test_support;

namespace
{

constexpr char kAllocTag[] = "__service_alloc_user_video_stream";

// A service, a channel named "chan" and a remote user with an empty list of streams. Whatever streams are left at
// the end are destroyed and the pool is emptied, as the layers around do when they shut down.
class Registry
{
  public:
    Registry()
    {
        rtc_list_init(&service.free_user_video_streams);
        rtc_list_init(&channel.video_stream_q);
        rtc_list_init(&user.video_streams_q);
        strcpy(channel.name_id, "chan");
        channel.service = &service;
    }

    ~Registry()
    {
        service_video_streams_cleanup(&service, streams, true);
        service_video_streams_cleanup(&service, local_streams, true);
        while (list_head *node = list_remove_head(&pool->head)) {
            zeb_free_impl(node);
        }
    }

    Registry(const Registry &) = delete;
    Registry &operator=(const Registry &) = delete;

    user_video_stream *get(uint8_t stream_id, int create = 1)
    {
        return service_video_streams_get_video_stream(&service, &user, &channel, streams, stream_id, create, &now);
    }

    user_video_stream *get_local(uint8_t stream_id, int create = 1)
    {
        return service_video_streams_get_video_stream_local(&service, &channel, local_streams, stream_id, create);
    }

    void cleanup(bool should_free)
    {
        service_video_streams_cleanup(&service, streams, should_free);
    }

    rtc_service service = {};
    rtc_channel channel = {};
    rtc_user user = {};
    zeb_ts_t now = 1000;
    rtc_list_t *pool = &service.free_user_video_streams;
    rtc_list_t *streams = &user.video_streams_q;
    rtc_list_t *local_streams = &channel.video_stream_q;
};

std::vector<void *> elements_of(const rtc_list_t &list)
{
    std::vector<void *> elements;

    for (list_head *node = list.head.next; node != &list.head; node = node->next) {
        elements.push_back(node);
    }
    EXPECT_EQ(list.count, elements.size());
    return elements;
}

using records = std::vector<void *>;

// -- Find and create --

TEST(StreamRegistryFind, FindsByStreamId)
{
    World world;
    Registry r;
    user_video_stream *first = r.get(3);
    user_video_stream *second = r.get(0);
    user_video_stream *third = r.get(255);

    EXPECT_EQ(first, video_streams_find_video_stream(r.streams, 3));
    EXPECT_EQ(second, video_streams_find_video_stream(r.streams, 0));
    EXPECT_EQ(third, video_streams_find_video_stream(r.streams, 255));
    EXPECT_EQ(nullptr, video_streams_find_video_stream(r.streams, 4));
}

TEST(StreamRegistryFind, FindsNothingInAnEmptyListAndCreatesNothing)
{
    World world;
    Registry r;

    EXPECT_EQ(nullptr, video_streams_find_video_stream(r.streams, 0));
    EXPECT_TRUE(world.allocations.empty());
    EXPECT_TRUE(world.created.empty());
}

TEST(StreamRegistryFind, TakesTheFirstOfTwoWithTheSameId)
{
    World world;
    Registry r;
    user_video_stream *first = r.get(1);
    user_video_stream *second = r.get(2);
    second->stream_id = 1;

    EXPECT_EQ(first, video_streams_find_video_stream(r.streams, 1));
    EXPECT_EQ(first, r.get(1));
    EXPECT_EQ(2u, r.streams->count);
}

TEST(StreamRegistryGet, CreatesNothingUnlessAskedTo)
{
    World world;
    Registry r;

    EXPECT_EQ(nullptr, r.get(0, 0));
    EXPECT_EQ(nullptr, r.get_local(0, 0));
    EXPECT_TRUE(world.allocations.empty());
    EXPECT_TRUE(world.created.empty());
    EXPECT_TRUE(world.log.empty());
    EXPECT_EQ(records(), elements_of(*r.streams));
}

TEST(StreamRegistryGet, TakesAnyNonZeroCreateForYes)
{
    World world;
    Registry r;

    EXPECT_NE(nullptr, r.get(0, 1));
    EXPECT_NE(nullptr, r.get(1, -1));
    EXPECT_NE(nullptr, r.get(2, 256));
}

TEST(StreamRegistryGet, AllocatesOneRecordAndInitialisesIt)
{
    World world;
    Registry r;
    r.channel.bandwidth_est_opt.enable_bandwidth_est_downlink = true;

    user_video_stream *stream = r.get(0);
    ASSERT_NE(nullptr, stream);
    ASSERT_FALSE(world.allocations.empty());
    EXPECT_EQ(sizeof(user_video_stream), world.allocations[0].size);
    EXPECT_EQ(kAllocTag, world.allocations[0].tag);
    EXPECT_EQ(1u, world.count_of(kAllocTag));
    EXPECT_EQ(&r.user, stream->user);
    EXPECT_EQ(&r.channel, stream->channel);
    EXPECT_EQ(0, stream->stream_id);
    EXPECT_EQ(1u, stream->s_flags);
    EXPECT_EQ(0xFFFFFFFFu, stream->pkt_seq);
    EXPECT_EQ(0u, stream->frame_seq);
    EXPECT_NE(nullptr, stream->current_net_rcv_quality);
    EXPECT_NE(nullptr, stream->bcm_stat);
    EXPECT_TRUE(world.log.empty());
    EXPECT_EQ("", broken_invariants(*stream));
}

TEST(StreamRegistryGet, AppendsInOrderOfCreation)
{
    World world;
    Registry r;
    user_video_stream *high = r.get(9);
    user_video_stream *low = r.get(1);
    user_video_stream *middle = r.get(5);

    EXPECT_EQ((records{high, low, middle}), elements_of(*r.streams));
}

TEST(StreamRegistryGet, FindsWhatIsThereWhetherOrNotAskedToCreate)
{
    World world;
    Registry r;
    user_video_stream *stream = r.get(4);

    EXPECT_EQ(stream, r.get(4, 1));
    EXPECT_EQ(stream, r.get(4, 0));
    EXPECT_EQ(1u, world.created.size());
    EXPECT_EQ(1u, world.count_of(kAllocTag));
    EXPECT_EQ(records{stream}, elements_of(*r.streams));
}

TEST(StreamRegistryGet, AnnouncesAStreamThatIsInItsListAlready)
{
    World world;
    Registry r;
    size_t n_announced = 0;
    world.on_created = [&](rtc_channel *channel, user_video_stream *stream) {
        n_announced++;
        EXPECT_EQ(&r.channel, channel);
        EXPECT_EQ(6, stream->stream_id);
        EXPECT_EQ(1u, stream->s_flags);
        EXPECT_EQ(records{stream}, elements_of(*r.streams));
    };

    user_video_stream *stream = r.get(6);
    EXPECT_EQ(1u, n_announced);
    EXPECT_EQ(std::vector<user_video_stream *>{stream}, world.created);
}

TEST(StreamRegistryGet, DoesNotNeedTheTime)
{
    World world;
    Registry r;

    EXPECT_NE(nullptr,
              service_video_streams_get_video_stream(&r.service, &r.user, &r.channel, r.streams, 0, 1, nullptr));
}

TEST(StreamRegistryGet, MakesStreamsWithoutChannel)
{
    World world;
    Registry r;

    user_video_stream *stream =
        service_video_streams_get_video_stream(&r.service, &r.user, nullptr, r.streams, 0, 1, &r.now);
    ASSERT_NE(nullptr, stream);
    EXPECT_EQ(nullptr, stream->channel);
    EXPECT_EQ(nullptr, stream->bcm_stat);
    r.cleanup(true);
    EXPECT_EQ(records{stream}, elements_of(*r.pool));
}

// -- No memory --

TEST(StreamRegistryWithoutMemory, GivesNullAndLeavesTheListAlone)
{
    World world;
    Registry r;
    user_video_stream *other = r.get(1);
    world.created.clear();
    world.refuse_tag(kAllocTag);

    EXPECT_EQ(nullptr, r.get(0));
    EXPECT_EQ(records{other}, elements_of(*r.streams));
    EXPECT_TRUE(world.created.empty());
    EXPECT_EQ((std::vector<log_line>{{RTC_LOG_EMERG, "[EMERG][chan] \n"}}), world.log);

    EXPECT_EQ(nullptr, r.get_local(0));
    EXPECT_EQ(records(), elements_of(*r.local_streams));
    EXPECT_TRUE(world.created.empty());
    EXPECT_EQ(2u, world.count_logged("[EMERG][chan] \n"));
}

TEST(StreamRegistryWithoutMemory, TriesAgainOnTheNextCall)
{
    World world;
    Registry r;
    world.refuse = [](size_t index, const allocation &) { return index == 0; };

    EXPECT_EQ(nullptr, r.get(0));
    EXPECT_NE(nullptr, r.get(0));
}

TEST(StreamRegistryWithoutMemory, NeedsNoneWhileThePoolHasRecords)
{
    World world;
    Registry r;
    user_video_stream *stream = r.get(0);
    r.cleanup(true);
    world.refuse_tag(kAllocTag);

    EXPECT_EQ(stream, r.get(0));
    EXPECT_TRUE(world.log.empty());
}

TEST(StreamRegistryWithoutMemory, NamesNoChannelWhereNoneIs)
{
    World world;
    Registry r;
    world.refuse_tag(kAllocTag);

    EXPECT_EQ(nullptr, service_video_streams_get_video_stream(&r.service, &r.user, nullptr, r.streams, 0, 1, &r.now));
    EXPECT_EQ((std::vector<log_line>{{RTC_LOG_EMERG, "[EMERG][] \n"}}), world.log);
}

TEST(StreamRegistryWithoutMemory, LogsUnderTheFirstModuleAlone)
{
    for (const log_gate &gate : log_gates(RTC_LOG_EMERG)) {
        SCOPED_TRACE(gate.name);
        World world;
        Registry r;
        world.refuse_tag(kAllocTag);
        gate.set(LM_MIN);

        EXPECT_EQ(nullptr, r.get(0));
        EXPECT_EQ(gate.is_open ? 1u : 0u, world.log.size());
    }
}

// -- Streams of the local user --

TEST(StreamRegistryLocal, NumbersANewStreamFromZero)
{
    World world;
    Registry r;
    r.channel.bandwidth_est_opt.enable_bandwidth_est_downlink = true;

    user_video_stream *stream = r.get_local(0);
    ASSERT_NE(nullptr, stream);
    EXPECT_EQ(0u, stream->pkt_seq);
    EXPECT_EQ(nullptr, stream->user);
    EXPECT_EQ(&r.channel, stream->channel);
    EXPECT_EQ(nullptr, stream->current_net_rcv_quality);
    EXPECT_EQ(nullptr, stream->bcm_stat);
    EXPECT_EQ(records{stream}, elements_of(*r.local_streams));
    EXPECT_EQ(records(), elements_of(*r.streams));
    EXPECT_EQ(std::vector<user_video_stream *>{stream}, world.created);
}

// The channel learns of the stream before its numbering starts.
TEST(StreamRegistryLocal, NumbersAfterTheAnnouncement)
{
    World world;
    Registry r;
    world.on_created = [](rtc_channel *, user_video_stream *stream) { EXPECT_EQ(0xFFFFFFFFu, stream->pkt_seq); };

    EXPECT_EQ(0u, r.get_local(0)->pkt_seq);
}

TEST(StreamRegistryLocal, TurnsAnUnknownSequenceIntoZeroOnEveryLookup)
{
    World world;
    Registry r;
    user_video_stream *stream = r.get_local(2);

    for (const int create : {0, 1}) {
        video_stream_reset(stream, true);
        ASSERT_EQ(0xFFFFFFFFu, stream->pkt_seq);
        EXPECT_EQ(stream, r.get_local(2, create));
        EXPECT_EQ(0u, stream->pkt_seq);
        EXPECT_EQ(0xFFFFFFFFu, stream->frame_seq);
    }
}

TEST(StreamRegistryLocal, KeepsAKnownSequence)
{
    World world;
    Registry r;
    r.get_local(2)->pkt_seq = 65535;

    EXPECT_EQ(65535u, r.get_local(2)->pkt_seq);
}

TEST(StreamRegistryLocal, LeavesTheSequenceUnknownForOtherLookups)
{
    World world;
    Registry r;
    user_video_stream *stream = r.get(2);

    EXPECT_EQ(stream, r.get(2));
    EXPECT_EQ(stream, video_streams_find_video_stream(r.streams, 2));
    EXPECT_EQ(0xFFFFFFFFu, stream->pkt_seq);
}

// -- The pool --

TEST(StreamPool, ReusesADestroyedRecord)
{
    World world;
    Registry r;
    user_video_stream *stream = r.get(0);
    r.cleanup(true);
    EXPECT_EQ(records{stream}, elements_of(*r.pool));

    EXPECT_EQ(stream, r.get(8));
    EXPECT_EQ(records(), elements_of(*r.pool));
    EXPECT_EQ(1u, world.count_of(kAllocTag));
}

TEST(StreamPool, GivesOutTheOldestRecordFirst)
{
    World world;
    Registry r;
    user_video_stream *first = r.get(1);
    user_video_stream *second = r.get(2);
    user_video_stream *third = r.get(3);
    r.cleanup(true);
    EXPECT_EQ((records{first, second, third}), elements_of(*r.pool));

    EXPECT_EQ(first, r.get(7));
    EXPECT_EQ((records{second, third}), elements_of(*r.pool));
    EXPECT_EQ(second, r.get(8));
    EXPECT_EQ(third, r.get(9));
    EXPECT_NE(nullptr, r.get(10));
    EXPECT_EQ(4u, world.count_of(kAllocTag));
}

TEST(StreamPool, SharesRecordsBetweenRemoteAndLocalStreams)
{
    World world;
    Registry r;
    user_video_stream *stream = r.get(0);
    stream->codec = 2;
    stream->width = 640;
    stream->n_xfer_bytes = 99;
    r.cleanup(true);

    EXPECT_EQ(stream, r.get_local(1));
    EXPECT_EQ(nullptr, stream->user);
    EXPECT_EQ(1, stream->stream_id);
    EXPECT_EQ(0, stream->codec);
    EXPECT_EQ(0u, stream->width);
    EXPECT_EQ(0u, stream->n_xfer_bytes);
    EXPECT_EQ(0, stream->second_rcv_key_frame_seq);
    EXPECT_EQ(nullptr, stream->current_net_rcv_quality);
}

TEST(StreamPool, KeepsTheContentsOfARecordStale)
{
    World world;
    Registry r;
    user_video_stream *stream = r.get(5);
    stream->width = 640;
    stream->pkt_seq = 77;
    r.cleanup(true);

    EXPECT_EQ(5, stream->stream_id);
    EXPECT_EQ(640u, stream->width);
    EXPECT_EQ(77u, stream->pkt_seq);
}

TEST(StreamPool, FreesWhatDoesNotFitInto256Records)
{
    World world;
    Registry r;
    user_video_stream *last = nullptr;
    for (int id = 0; id < 255; id++) {
        last = r.get(static_cast<uint8_t>(id));
    }
    r.cleanup(true);
    ASSERT_EQ(255u, r.pool->count);
    ASSERT_EQ(last, static_cast<void *>(r.pool->head.prev));

    for (int id = 0; id < 256; id++) { // 255 records from the pool and a new one
        last = r.get(static_cast<uint8_t>(id));
    }
    user_video_stream *one_more = r.get_local(0);
    ASSERT_EQ(0u, r.pool->count);
    r.cleanup(true);
    EXPECT_EQ(256u, elements_of(*r.pool).size());
    EXPECT_EQ(last, static_cast<void *>(r.pool->head.prev));
    EXPECT_EQ(1u, world.live.count(last));

    service_video_streams_cleanup(&r.service, r.local_streams, true);
    EXPECT_EQ(256u, elements_of(*r.pool).size());
    EXPECT_EQ(last, static_cast<void *>(r.pool->head.prev));
    EXPECT_EQ(0u, world.live.count(one_more));
    EXPECT_EQ(256u, world.live.size());
}

// -- Cleanup --

// Puts a native packet and two RTP packets into a stream.
void fill(user_video_stream *stream)
{
    const zeb_ts_t now = 1000;
    PVideoData4 native = native_packet({10, 2, 0, 100});
    ASSERT_NE(nullptr, video_stream_insert_video_packet(stream, &native, 0, &now));
    for (PVideoData4 video : {rtp_packet(500, 9000, true, false), rtp_packet(502, 9000, true, false)}) {
        webrtc_video_cache_process(&stream->video_cache_q, &video, false, &now);
        release(&video);
    }
    ASSERT_EQ(1, stream->video_frames_q.count);
    ASSERT_EQ(2u, stream->video_cache_q.pkt_cur_cnt);
}

TEST(StreamCleanup, IgnoresNull)
{
    World world;
    Registry r;

    service_video_streams_cleanup(&r.service, nullptr, true);
    service_video_streams_cleanup(&r.service, nullptr, false);
    EXPECT_TRUE(world.log.empty());
}

TEST(StreamCleanup, LeavesAnEmptyListEmpty)
{
    World world;
    Registry r;

    r.cleanup(true);
    r.cleanup(false);
    EXPECT_EQ(records(), elements_of(*r.streams));
    EXPECT_EQ(records(), elements_of(*r.pool));
}

TEST(StreamCleanup, DestroysAllThatEveryStreamOwns)
{
    World world;
    Registry r;
    r.channel.bandwidth_est_opt.enable_bandwidth_est_downlink = true;
    const records created = {r.get(0), r.get(1), r.get(2)};
    for (void *stream : created) {
        ASSERT_NO_FATAL_FAILURE(fill(static_cast<user_video_stream *>(stream)));
    }

    r.cleanup(true);
    EXPECT_EQ(records(), elements_of(*r.streams));
    EXPECT_EQ(created, elements_of(*r.pool));
    EXPECT_EQ(3u, world.live.size()) << "the records alone";
    EXPECT_EQ(3u, world.analyzers_deleted);
    EXPECT_EQ(1u, world.statistics_destroyed);
    EXPECT_EQ(0u, world.analyzers_reset);
    EXPECT_EQ(0u, world.statistics_reset);
    for (void *element : created) {
        const auto *stream = static_cast<user_video_stream *>(element);
        EXPECT_EQ(0, stream->video_frames_q.count);
        EXPECT_EQ(nullptr, stream->video_cache_q.pkt_arr);
        EXPECT_EQ(0u, stream->video_cache_q.pkt_all_cnt);
        EXPECT_EQ(nullptr, stream->bcm_stat);
        EXPECT_EQ(nullptr, stream->current_net_rcv_quality);
        EXPECT_EQ("", broken_invariants(*stream));
    }
}

TEST(StreamCleanup, DestroysOnlyTheListThatIsGiven)
{
    World world;
    Registry r;
    r.get(0);
    user_video_stream *local = r.get_local(0);

    r.cleanup(true);
    EXPECT_EQ(records{local}, elements_of(*r.local_streams));
}

TEST(StreamCleanup, DeletesBothAnalyzersOfAStream)
{
    World world;
    Registry r;
    r.get(0)->old_net_rcv_quality = net_rcv_analyzer_new();

    r.cleanup(true);
    EXPECT_EQ(2u, world.analyzers_deleted);
}

// The old analyser goes only together with a current one; its owner is then whoever set it.
TEST(StreamCleanup, LeavesTheOldAnalyzerWhenThereIsNoCurrentOne)
{
    World world;
    Registry r;
    user_video_stream *stream = r.get(0);
    net_rcv_analyzer_del(&stream->current_net_rcv_quality);
    net_rcv_analyzer_t *old = net_rcv_analyzer_new();
    stream->old_net_rcv_quality = old;

    r.cleanup(true);
    EXPECT_EQ(1u, world.analyzers_deleted) << "by this test";
    EXPECT_EQ(1u, world.live.count(old));
    EXPECT_EQ(old, stream->old_net_rcv_quality);
    net_rcv_analyzer_del(&old);
}

// A stream of the local user never gets any; were they there, they would not be its own.
TEST(StreamCleanup, SkipsAnalyzersAndStatisticsOfALocalStream)
{
    World world;
    Registry r;
    KelvraBcmStatisticsConfig config = {};
    user_video_stream *stream = r.get_local(0);
    net_rcv_analyzer_t *analyzer = net_rcv_analyzer_new();
    KelvraBcmStatistics *stat = KelvraBcmStat_Create(&config);
    stream->current_net_rcv_quality = analyzer;
    stream->bcm_stat = stat;

    service_video_streams_cleanup(&r.service, r.local_streams, true);
    EXPECT_EQ(0u, world.analyzers_deleted);
    EXPECT_EQ(0u, world.statistics_destroyed);
    net_rcv_analyzer_del(&analyzer);
    KelvraBcmStat_Destroy(stat);
}

TEST(StreamCleanup, DestroysAStreamWithoutAnalyzer)
{
    World world;
    Registry r;
    world.no_analyzer = true;
    r.get(0);

    r.cleanup(true);
    EXPECT_EQ(0u, world.analyzers_deleted);
}

TEST(StreamCleanup, ResetsEveryStreamInPlace)
{
    World world;
    Registry r;
    r.channel.bandwidth_est_opt.enable_bandwidth_est_downlink = true;
    const records created = {r.get(0), r.get(1)};
    for (void *element : created) {
        auto *stream = static_cast<user_video_stream *>(element);
        ASSERT_NO_FATAL_FAILURE(fill(stream));
        stream->pkt_seq = 4711;
        stream->frame_seq = 4712;
        stream->n_xfer_bytes = 5;
        stream->codec = VIDEO_TYPE_H265;
    }

    r.cleanup(false);
    EXPECT_EQ(created, elements_of(*r.streams));
    EXPECT_EQ(records(), elements_of(*r.pool));
    EXPECT_EQ(2u, world.analyzers_reset);
    EXPECT_EQ(1u, world.statistics_reset);
    EXPECT_EQ(0u, world.analyzers_deleted);
    EXPECT_EQ(0u, world.statistics_destroyed);
    for (void *element : created) {
        const auto *stream = static_cast<user_video_stream *>(element);
        EXPECT_EQ(4711u, stream->pkt_seq);
        EXPECT_EQ(4712u, stream->frame_seq);
        EXPECT_EQ(0u, stream->n_xfer_bytes);
        EXPECT_EQ(VIDEO_TYPE_H265, stream->codec);
        EXPECT_EQ(0, stream->video_frames_q.count);
        EXPECT_EQ(0u, stream->video_cache_q.pkt_cur_cnt);
        EXPECT_NE(nullptr, stream->video_cache_q.pkt_arr);
        EXPECT_EQ("", broken_invariants(*stream));
    }
}

TEST(StreamCleanup, DestroysAfterAReset)
{
    World world;
    Registry r;
    user_video_stream *stream = r.get(0);
    ASSERT_NO_FATAL_FAILURE(fill(stream));

    r.cleanup(false);
    r.cleanup(true);
    EXPECT_EQ(1u, world.live.size()) << "the record alone";
}

} // namespace
