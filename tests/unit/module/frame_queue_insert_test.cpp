// Packets that make frames and fill them: what a frame takes over from its packets, and who owns the bytes.
#include <gtest/gtest.h>

#include "frame_queue_fixture.h"

using namespace frame_queue_test;

namespace
{

using FrameCreation = FrameQueueFrom;
using FrameCreationEdge = FrameQueue;
using PacketStorage = FrameQueueFrom;
using PacketStorageEdge = FrameQueue;
using FrameMemory = FrameQueue;

INSTANTIATE_TEST_SUITE_P(From, FrameCreation, ::testing::Values(start::somewhere, start::across_wraps), start_name);
INSTANTIATE_TEST_SUITE_P(From, PacketStorage, ::testing::Values(start::somewhere, start::across_wraps), start_name);

const char *const kNotStored = "insert packet fail because invalid packet or non-empty frame->pkts";

} // namespace

// -- Creation --

TEST_P(FrameCreation, CountsPacketsFromTheFramesFirstIndex)
{
    const native_fields fields = packet(0, 0, 5, 3);
    const video_frame *frame = insert(fields);

    ASSERT_EQ(frame, slot_of(0));
    EXPECT_EQ(frame->frame_seq, frame_seq(0));
    EXPECT_EQ(frame->first_pkt_seq, pkt(0));
    EXPECT_EQ(frame->min_seq, pkt(3));
    EXPECT_EQ(frame->max_seq, pkt(3));
    EXPECT_EQ(q->count, 1);
    expect_bounds(0, 0);
    EXPECT_EQ(q->min_ts, ts_of(0));
    EXPECT_EQ(q->max_ts, ts_of(0));
    EXPECT_EQ(entry_of(3), slot_index_of(0));
    EXPECT_EQ(stream->pkt_seq, pkt(0));
    EXPECT_EQ(stream->last_to_user_at, 5000u);
    EXPECT_EQ(logged(),
              (lines{update_line(fields), vid(RTC_LOG_INFO, "initialize expect_seq to " + std::to_string(pkt(0)))}));
}

TEST_F(FrameCreationEdge, TakesEveryFieldFromTheFirstPacket)
{
    native_fields fields = packet(1000, 500, 9, 2);
    fields.video_type = 0x02; // a key frame of the medium stream
    fields.codec = VIDEO_TYPE_H265;
    fields.protocol_version = 200;
    fields.reserved = 0xABCD0338; // three FEC packets
    fields.sent_ts = 4321;
    fields.rtp = {0, 0x12345678, true, 101};
    slot_of(1000)->rsfec_payload_type = 77;
    now = 0x123456789A;

    const video_frame *frame = insert(fields);

    ASSERT_EQ(frame, &q->video_frames[0]);
    EXPECT_EQ(frame->queued_ts, 0x123456789Au);
    EXPECT_EQ(frame->frame_seq, 1000u);
    EXPECT_EQ(frame->n_pkts_total, 9);
    EXPECT_EQ(frame->n_pkts_media, 6);
    EXPECT_EQ(frame->n_pkts_fec, 3);
    EXPECT_EQ(frame->n_pkts_received, 1);
    EXPECT_EQ(frame->n_pkts_received_media, 1);
    EXPECT_EQ(frame->n_pkts_received_fec, 0);
    EXPECT_EQ(frame->protocol_version, 200);
    EXPECT_EQ(frame->is_key_frame, 1);
    EXPECT_EQ(frame->is_complete, 0);
    EXPECT_EQ(frame->codec, VIDEO_TYPE_H265);
    EXPECT_EQ(frame->payload_type, 101); // without the marker bit
    EXPECT_EQ(frame->rsfec_payload_type, 77);
    EXPECT_EQ(frame->ts, 4321);
    EXPECT_EQ(frame->reserved, 0xABCD0338u);
    EXPECT_EQ(frame->first_pkt_seq, 500);
    EXPECT_EQ(frame->min_seq, 502);
    EXPECT_EQ(frame->max_seq, 502);
    EXPECT_EQ(frame->min_rtp_seq, 65534); // 0 - 2
    EXPECT_EQ(frame->max_rtp_seq, 6);
    EXPECT_EQ(frame->rtp_timestamp, 0x1234);
    EXPECT_EQ(frame->rexfer_cnt, 1);
    for (uint16_t index = 0; index < 9; index++) {
        EXPECT_EQ(frame->pkts[index].count != 0, index == 2) << index;
        EXPECT_EQ(frame->pkts_status[index].is_received, index == 2 ? 1 : 0) << index;
    }
    EXPECT_EQ(stream->last_to_user_at, 0x123456789Au);
    EXPECT_EQ(logged(), (lines{"8 [DEBUG][RCV_VID] update_frame: idr 1, codec 3, n_pkts 9, n_pkts_media 6, "
                               "n_pkts_fec 3, seq 502, frame_seq 1000",
                               "7 [INFO][RCV_VID] initialize expect_seq to 500"}));
}

TEST_F(FrameCreationEdge, AllocatesOneElementOfBothArraysForEachPacket)
{
    insert(packet(1, 100, 7, 0));
    std::vector<size_t> sizes;
    for (const auto &request : world.allocations) {
        if (request.tag == kArraysTag) {
            sizes.push_back(request.size);
        }
    }
    EXPECT_EQ(sizes, (std::vector<size_t>{7 * sizeof(rtn_bytes_t), 7}));
}

TEST_F(FrameCreationEdge, LogsAHighFrameSequenceAsANegativeNumber)
{
    insert(packet(0xFFFFFFFF, 65535, 1, 0));
    EXPECT_EQ(logged(), (lines{"8 [DEBUG][RCV_VID] update_frame: idr 0, codec 2, n_pkts 1, n_pkts_media 1, "
                               "n_pkts_fec 0, seq 65535, frame_seq -1",
                               "7 [INFO][RCV_VID] initialize expect_seq to 65535"}));
}

TEST_F(FrameCreationEdge, LogsASendingStreamsFramesUnderItsOwnModule)
{
    use(stream_kind::sending);
    EXPECT_NE(insert(packet(3, 200, 2, 1)), nullptr);
    EXPECT_EQ(stream->pkt_seq, 200u);
    EXPECT_EQ(stream->last_to_user_at, 5000u);
    EXPECT_EQ(logged(), (lines{"8 [DEBUG][SND_VID] update_frame: idr 0, codec 2, n_pkts 2, n_pkts_media 2, "
                               "n_pkts_fec 0, seq 201, frame_seq 3",
                               "7 [INFO][SND_VID] initialize expect_seq to 200"}));
}

TEST_P(FrameCreation, KeepsAnExpectedPacketThatIsKnown)
{
    insert_frame(1, 10, 2, {0});
    now = 6000;
    logged();
    const native_fields earlier = packet(0, 5, 2, 0);
    insert(earlier);
    EXPECT_EQ(stream->pkt_seq, pkt(10));
    EXPECT_EQ(stream->last_to_user_at, 5000u);
    EXPECT_EQ(logged(), (lines{update_line(earlier)}));
}

TEST_P(FrameCreation, KeepsAnExpectedPacketOfZero)
{
    stream->pkt_seq = 0;
    insert_frame(0, 10, 2, {0});
    EXPECT_EQ(stream->pkt_seq, 0u);
    EXPECT_EQ(stream->last_to_user_at, 0u);
}

TEST_P(FrameCreation, MovesTheQueuesBoundsOutwards)
{
    const struct {
        uint32_t frame;
        uint32_t min;
        uint32_t max;
    } rows[] = {{4, 4, 4}, {6, 4, 6}, {5, 4, 6}, {1, 1, 6}, {2, 1, 6}, {9, 1, 9}};
    uint16_t count = 0;

    for (const auto &row : rows) {
        insert_frame(row.frame, static_cast<seq_t>(2 * row.frame), 2, {1});
        EXPECT_EQ(q->count, ++count);
        expect_bounds(row.min, row.max);
        EXPECT_EQ(q->min_ts, ts_of(row.min));
        EXPECT_EQ(q->max_ts, ts_of(row.max));
    }
}

TEST_P(FrameCreation, SetsTheBoundsAnewOnceTheQueueIsEmpty)
{
    insert_frame(3, 0, 1, {0});
    insert_frame(9, 1, 1, {0});
    remove(slot_of(3));
    remove(slot_of(9));
    insert_frame(6, 10, 1, {0});
    EXPECT_EQ(q->count, 1);
    expect_bounds(6, 6);
    EXPECT_EQ(q->min_ts, ts_of(6));
    EXPECT_EQ(q->max_ts, ts_of(6));
}

// Such a frame is neither before nor after the bounds, so it is counted but stays outside of them.
TEST_P(FrameCreation, LeavesTheBoundsForAFrameHalfACircleAway)
{
    insert_frame(0, 0, 1, {0});
    EXPECT_NE(insert_frame(0x80000000, 1, 1, {0}), nullptr);
    EXPECT_EQ(q->count, 2);
    expect_bounds(0, 0);
    EXPECT_NE(insert_frame(0x7FFFFFFF, 2, 1, {0}), nullptr);
    EXPECT_EQ(q->count, 3);
    expect_bounds(0, 0x7FFFFFFF);
}

TEST_P(FrameCreation, CountsAKeyFrameOnceWhenItIsNew)
{
    native_fields fields = packet(0, 0, 3, 0);

    fields.video_type = 0x0F;
    insert(fields);
    EXPECT_EQ(stream->n_key_recent, 1);
    fields = packet(0, 0, 3, 1);
    fields.video_type = test_support::kKey;
    insert(fields);
    EXPECT_EQ(stream->n_key_recent, 1);
    fields = packet(0, 0, 4, 2); // re-created
    fields.video_type = test_support::kKey;
    EXPECT_EQ(insert(fields)->is_key_frame, 1);
    EXPECT_EQ(stream->n_key_recent, 1);
    insert(packet(1, 4, 1, 0));
    EXPECT_EQ(slot_of(1)->is_key_frame, 0);
    EXPECT_EQ(stream->n_key_recent, 1);
    fields = packet(2, 5, 1, 0);
    fields.video_type = test_support::kKey;
    insert(fields);
    EXPECT_EQ(stream->n_key_recent, 2);
}

TEST_P(FrameCreation, KeepsItsFieldsWhenLaterPacketsDiffer)
{
    const video_frame before = *insert_frame(0, 0, 3, {0});
    native_fields fields = packet(0, 0, 3, 1);

    fields.video_type = test_support::kKey;
    fields.codec = VIDEO_TYPE_H265;
    fields.protocol_version = 3;
    fields.reserved = 0x200;
    fields.sent_ts = 1;
    fields.rtp = {9999, 0xFFFFFFFF, true, 1};
    now = 9000;
    logged();
    const video_frame *frame = insert(fields);
    EXPECT_EQ(frame->queued_ts, 5000u);
    EXPECT_EQ(frame->is_key_frame, 0);
    EXPECT_EQ(frame->codec, before.codec);
    EXPECT_EQ(frame->protocol_version, before.protocol_version);
    EXPECT_EQ(frame->reserved, 0u);
    EXPECT_EQ(frame->n_pkts_media, 3);
    EXPECT_EQ(frame->ts, ts_of(0));
    EXPECT_EQ(frame->min_rtp_seq, before.min_rtp_seq);
    EXPECT_EQ(frame->rtp_timestamp, before.rtp_timestamp);
    EXPECT_EQ(frame->payload_type, before.payload_type);
    EXPECT_EQ(q->min_ts, ts_of(0));
    EXPECT_EQ(q->max_ts, ts_of(0));
    EXPECT_TRUE(logged().empty());
}

TEST_F(FrameCreationEdge, ReadsAbsentBytesOfTheRtpHeaderAsZero)
{
    const std::vector<uint8_t> header = {0x80, 0xE5, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 1, 2, 3, 4};
    const struct {
        size_t length;
        uint8_t payload_type;
        seq_t rtp_seq;
        uint16_t timestamp;
    } rows[] = {
        {0, 0, 0, 0},
        {1, 0, 0, 0},
        {2, 0x65, 0, 0},
        {3, 0x65, 0x1200, 0},
        {4, 0x65, 0x1234, 0},
        {5, 0x65, 0x1234, 0x5600},
        {6, 0x65, 0x1234, 0x5678},
        {7, 0x65, 0x1234, 0x5678},
        {11, 0x65, 0x1234, 0x5678},
        {12, 0x65, 0x1234, 0x5678},
    };
    uint32_t frame = 0;

    for (const auto &row : rows) {
        frame++;
        const std::vector<uint8_t> payload(header.begin(), header.begin() + static_cast<ptrdiff_t>(row.length));
        const video_frame *created = insert_bytes(packet(frame, static_cast<seq_t>(10 * frame), 4, 1), payload);
        ASSERT_NE(created, nullptr);
        EXPECT_EQ(created->payload_type, row.payload_type) << row.length;
        EXPECT_EQ(created->min_rtp_seq, static_cast<seq_t>(row.rtp_seq - 1)) << row.length;
        EXPECT_EQ(created->max_rtp_seq, static_cast<seq_t>(row.rtp_seq + 2)) << row.length;
        EXPECT_EQ(created->rtp_timestamp, row.timestamp) << row.length;
        EXPECT_EQ(created->n_pkts_received, row.length == 0 ? 0 : 1) << row.length;
    }
}

// Frames that half a circle of others keeps out of the bounds are dropped without being counted out.
TEST_F(FrameCreationEdge, ReportsMoreThanFortyFramesAndGoesOn)
{
    const uint32_t far = 0x80000000;

    insert(packet(0, 0, 1, 0));
    for (seq_t seq = 1; seq < 40; seq++) {
        ASSERT_NE(insert(packet(far, seq, 1, 0)), nullptr);
    }
    EXPECT_EQ(q->count, 40);
    EXPECT_EQ(world.count_logged("total frame count"), 0u);
    logged();
    const video_frame *frame = insert(packet(far, 40, 1, 0));
    EXPECT_EQ(frame, &q->video_frames[8]);
    EXPECT_EQ(frame->n_pkts_received, 1);
    EXPECT_EQ(q->count, 41);
    EXPECT_EQ(logged(RTC_LOG_WARNING),
              (lines{"3 [CRIT][RCV_VID][chan] remove frame fail, frame_seq [2147483648], but min/max frame_seq[0/0]",
                     "3 [CRIT] insertQ: total frame count[41] > [40]"}));
    insert(packet(far, 41, 1, 0));
    EXPECT_EQ(world.count_logged("[CRIT] insertQ: total frame count[42] > [40]\n"), 1u);
}

TEST_F(FrameCreationEdge, TakesAFrameOfTheLargestPacketCount)
{
    const video_frame *frame = insert(packet(1, 100, 65535, 65534));

    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->first_pkt_seq, 100);
    EXPECT_EQ(frame->max_rtp_seq, static_cast<seq_t>(frame->min_rtp_seq + 65534));
    EXPECT_EQ(stored_body(frame, 65534), body_of(98));
}

TEST_F(FrameCreationEdge, NeedsNoChannel)
{
    stream->channel = nullptr;
    const video_frame *frame = insert(packet(1, 100, 2, 0));
    EXPECT_NE(frame, nullptr);
    EXPECT_EQ(insert(packet(1, 100, 2, 1)), frame);
}

// -- Received packets --

TEST_P(PacketStorage, WidensTheRangeReceivedBothWays)
{
    const struct {
        uint16_t index;
        seq_t min;
        seq_t max;
    } rows[] = {{4, 4, 4}, {6, 4, 6}, {5, 4, 6}, {0, 0, 6}, {2, 0, 6}, {7, 0, 7}};

    for (const auto &row : rows) {
        const video_frame *frame = insert(packet(0, 0, 8, row.index));
        EXPECT_EQ(frame->min_seq, pkt(row.min)) << row.index;
        EXPECT_EQ(frame->max_seq, pkt(row.max)) << row.index;
        EXPECT_EQ(stored_body(frame, row.index), body_of(pkt(row.index)));
        EXPECT_EQ(entry_of(row.index), slot_index_of(0));
    }
    EXPECT_EQ(q->count, 1);
}

TEST_P(PacketStorage, CountsMediaAndFecAndKnowsWhenThereIsEnough)
{
    const struct {
        uint16_t n_pkts;
        uint32_t n_fec;
        std::vector<uint16_t> indices;
        uint16_t n_media;
        uint16_t n_received_media;
        uint16_t n_received_fec;
        uint8_t is_complete;
    } rows[] = {
        {1, 0, {0}, 1, 1, 0, 1},
        {4, 1, {0}, 3, 1, 0, 0},
        {4, 1, {0, 1}, 3, 2, 0, 0},
        {4, 1, {0, 1, 2}, 3, 3, 0, 1},
        {4, 1, {3, 0, 1}, 3, 2, 1, 1}, // FEC packets count too
        {4, 1, {2, 3}, 3, 1, 1, 0},
        {4, 1, {3, 2, 1, 0}, 3, 3, 1, 1},
        {2, 2, {0}, 0, 0, 1, 1},        // nothing but FEC
        {2, 5, {0, 1}, 65533, 2, 0, 0}, // more FEC than packets: never enough
        {300, 255, {44, 45, 299}, 45, 1, 2, 0},
    };
    uint32_t number = 0;

    for (const auto &row : rows) {
        use(stream_kind::receiving);
        const video_frame *frame = nullptr;
        for (const uint16_t index : row.indices) {
            native_fields fields = packet(0, 0, row.n_pkts, index);
            fields.reserved = row.n_fec << 8;
            frame = insert(fields);
        }
        SCOPED_TRACE("row " + std::to_string(number++));
        ASSERT_NE(frame, nullptr);
        EXPECT_EQ(frame->n_pkts_fec, row.n_fec);
        EXPECT_EQ(frame->n_pkts_media, row.n_media);
        EXPECT_EQ(frame->n_pkts_received, row.indices.size());
        EXPECT_EQ(frame->n_pkts_received_media, row.n_received_media);
        EXPECT_EQ(frame->n_pkts_received_fec, row.n_received_fec);
        EXPECT_EQ(frame->is_complete, row.is_complete);
    }
}

TEST_F(PacketStorageEdge, TakesThePayloadOverOrCopiesIt)
{
    seq_t seq = 0;

    for (const int copy : {0, 1, -1, 256}) {
        const native_fields fields = packet(1, 0, 4, seq++);
        PVideoData4 video = test_support::native_packet(fields);
        const rtn_bytes_t given = video.payload;
        const video_frame *frame = video_stream_insert_video_packet(stream, &video, copy, &now);
        check();

        const rtn_bytes_t &stored = frame->pkts[fields.subseq];
        EXPECT_EQ(stored_body(frame, fields.subseq), body_of(fields.seq));
        EXPECT_EQ(stored.count, given.count);
        EXPECT_EQ(stored.values == given.values, copy == 0);
        EXPECT_EQ(video.payload.values, copy == 0 ? nullptr : given.values);
        EXPECT_EQ(video.payload.count, copy == 0 ? 0 : given.count);
        EXPECT_EQ(video.common.seq, fields.seq);
        test_support::release(&video);
        EXPECT_EQ(stored_body(frame, fields.subseq), body_of(fields.seq));
    }
}

TEST_P(PacketStorage, LeavesThePayloadOfAPacketThatIsNotStored)
{
    insert_frame(sharing_slot(0), 100, 1, {0});
    insert_frame(1, 0, 4, {0, 1});

    const native_fields not_stored[] = {
        packet(1, 0, 4, 1),  // a duplicate
        packet(0, 50, 1, 0), // outdated
        packet(1, 1, 4, 1),  // index filled: sequence number 2 with index 1
        packet(1, 0, 4, 9),  // no such index
    };
    for (native_fields fields : not_stored) {
        if (fields.subseq == 9) {
            fields.seq = pkt(3);
        }
        PVideoData4 video = test_support::native_packet(fields);
        const rtn_bytes_t given = video.payload;
        video_stream_insert_video_packet(stream, &video, 0, &now);
        check();
        EXPECT_EQ(video.payload.values, given.values) << fields.subseq;
        EXPECT_EQ(video.payload.count, given.count);
        test_support::release(&video);
    }
}

TEST_P(PacketStorage, KeepsThePacketOfAFilledIndex)
{
    const video_frame *frame = insert_frame(0, 0, 4, {0, 2});
    native_fields fields = packet(0, 0, 4, 0);

    fields.seq = pkt(1);
    fields.body = {1, 2, 3};
    logged();
    EXPECT_EQ(insert(fields), frame);
    EXPECT_EQ(logged(), (lines{unnamed(RTC_LOG_CRIT, kNotStored)}));
    EXPECT_EQ(stored_body(frame, 0), body_of(pkt(0)));
    EXPECT_EQ(frame->n_pkts_received, 2);
    EXPECT_EQ(frame->n_pkts_received_media, 2);
    EXPECT_EQ(frame->is_complete, 0);
    EXPECT_EQ(entry_of(1), slot_index_of(0));

    // The entry stays taken, so the packet whose place it is comes too late.
    EXPECT_EQ(insert(packet(0, 0, 4, 1)), nullptr);
    EXPECT_EQ(logged(),
              (lines{vid(RTC_LOG_WARNING, "insertQ: Ignore an duplicated in pkt " + std::to_string(pkt(1)))}));
}

TEST_P(PacketStorage, StoresNothingOfAPacketWithoutBytes)
{
    const video_frame *frame = insert_frame(0, 0, 3, {0});

    logged();
    EXPECT_EQ(insert_bytes(packet(0, 0, 3, 2), {}), frame);
    EXPECT_EQ(logged(), (lines{unnamed(RTC_LOG_CRIT, kNotStored)}));
    EXPECT_EQ(frame->n_pkts_received, 1);
    EXPECT_EQ(frame->pkts_status[2].is_received, 0);
    EXPECT_EQ(frame->max_seq, pkt(2));              // the range is widened all the same
    EXPECT_EQ(insert(packet(0, 0, 3, 2)), nullptr); // and its entry stays taken
}

TEST_P(PacketStorage, MakesAFrameForAPacketWithoutBytes)
{
    const native_fields fields = packet(0, 0, 3, 1);
    const video_frame *frame = insert_bytes(fields, {});

    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(q->count, 1);
    EXPECT_EQ(frame->n_pkts_total, 3);
    EXPECT_EQ(frame->n_pkts_received, 0);
    EXPECT_EQ(stream->pkt_seq, pkt(0));
    EXPECT_EQ(logged(),
              (lines{update_line(fields), vid(RTC_LOG_INFO, "initialize expect_seq to " + std::to_string(pkt(0))),
                     unnamed(RTC_LOG_CRIT, kNotStored)}));
}

TEST_P(PacketStorage, StoresThePacketOfTheLastIndexAndNoneBeyond)
{
    const struct {
        uint16_t subseq;
        bool is_stored;
    } rows[] = {{3, true}, {4, false}, {5, false}, {65535, false}};

    for (const auto kind : {stream_kind::receiving, stream_kind::sending}) {
        for (const auto &row : rows) {
            use(kind);
            const video_frame *frame = insert_frame(0, 0, 4, {0});
            native_fields fields = packet(0, 0, 4, row.subseq);
            fields.seq = pkt(3);
            logged();
            EXPECT_EQ(insert(fields), frame);
            EXPECT_EQ(frame->n_pkts_received, row.is_stored ? 2 : 1);
            const lines refused = {unnamed(RTC_LOG_CRIT, "pkt_cnt 4 should be bigger than subseq " +
                                                             std::to_string(row.subseq) + " from " +
                                                             (is_receiving ? "receiving" : "sending")),
                                   unnamed(RTC_LOG_CRIT, kNotStored)};
            EXPECT_EQ(logged(), row.is_stored ? lines{} : refused) << row.subseq;
        }
    }
}

TEST_P(PacketStorage, MakesAFrameForAPacketWhoseIndexIsOutOfRange)
{
    const native_fields fields = packet(0, 0, 2, 5);
    const video_frame *frame = insert(fields);

    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->first_pkt_seq, pkt(0));
    EXPECT_EQ(frame->min_seq, pkt(5));
    EXPECT_EQ(frame->max_seq, pkt(5));
    EXPECT_EQ(frame->n_pkts_received, 0);
    EXPECT_EQ(stream->pkt_seq, pkt(0));
    EXPECT_EQ(logged(),
              (lines{unnamed(RTC_LOG_CRIT, "pkt_cnt 2 should be bigger than subseq 5 from receiving"),
                     update_line(fields), vid(RTC_LOG_INFO, "initialize expect_seq to " + std::to_string(pkt(0))),
                     unnamed(RTC_LOG_CRIT, kNotStored)}));
}

// What a delivery that found more packets of a frame than it first counted looks like from here.
TEST_P(PacketStorage, RebuildsAOnePacketFrameForASecondPacketOfItAndStoresNothing)
{
    insert_frame(0, 0, 1, {0});
    const video_frame *frame = insert(packet(0, 0, 1, 1));
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->n_pkts_received, 0);
    EXPECT_EQ(frame->first_pkt_seq, pkt(0));
    EXPECT_EQ(q->count, 1);
    EXPECT_EQ(stream->n_overlapped_frames_recent, 1);
}

// Two packets of one frame that are 1280 apart share an entry, so the later one never gets in.
TEST_F(PacketStorageEdge, TakesAPacket1280LaterInTheSameFrameForADuplicate)
{
    const video_frame *frame = insert(packet(1, 100, 1281, 0));

    EXPECT_EQ(insert(packet(1, 100, 1281, 1279))->n_pkts_received, 2);
    logged();
    EXPECT_EQ(insert(packet(1, 100, 1281, 1280)), nullptr);
    EXPECT_EQ(logged(), (lines{"5 [WARNING][RCV_VID] insertQ: Ignore an duplicated in pkt 1380"}));
    EXPECT_EQ(frame->n_pkts_received, 2);
}

// -- Frames without packets, and without memory --

TEST_F(FrameMemory, RefusesAFrameOfNoPackets)
{
    native_fields fields = packet(7, 100, 0, 0);

    fields.video_type = test_support::kKey;
    EXPECT_EQ(insert(fields), nullptr);
    EXPECT_EQ(q->count, 0);
    expect_is_empty(slot_of(7));
    EXPECT_EQ(stream->n_overlapped_frames_recent, 1);
    EXPECT_EQ(stream->n_key_recent, 1);
    EXPECT_EQ(stream->pkt_seq, 0xFFFFFFFFu);
    EXPECT_EQ(entry_of(100), 7);
    EXPECT_EQ(logged(), (lines{"3 [CRIT] pkt_cnt 0 should be bigger than subseq 0 from receiving",
                               "8 [DEBUG][RCV_VID] update_frame: idr 1, codec 2, n_pkts 0, n_pkts_media 0, "
                               "n_pkts_fec 0, seq 100, frame_seq 7",
                               "4 [ERROR][RCV_VID] malloc pkts failed, seq 7 pkts_count 0",
                               "8 [DEBUG][RCV_VID][chan] auto fwd due to remove frame, index 0"}));
}

TEST_F(FrameMemory, CountsNoPhantomFramesOfNoPackets)
{
    insert(packet(1, 100, 1, 0));
    for (uint32_t frame = 2; frame <= 40; frame++) {
        EXPECT_EQ(insert(packet(frame, static_cast<seq_t>(100 + frame), 0, 0)), nullptr);
        EXPECT_EQ(q->count, 1);
        expect_bounds(1, 1);
        EXPECT_EQ(q->max_ts, ts_of(1));
    }
    EXPECT_EQ(stream->n_overlapped_frames_recent, 39);
}

TEST_F(FrameMemory, DropsAFrameThatIsNowSaidToHaveNoPackets)
{
    insert(packet(1, 100, 3, 0));
    insert(packet(2, 103, 1, 0));
    EXPECT_EQ(insert(packet(1, 101, 0, 0)), nullptr);
    expect_is_empty(slot_of(1));
    EXPECT_EQ(q->count, 1);
    expect_bounds(2, 2);
    EXPECT_EQ(entry_of(100), -1);
    EXPECT_EQ(entry_of(101), 1);
}

TEST_F(FrameMemory, DropsTheFrameWhosePacketArrayCannotBeHad)
{
    world.refuse_tag(kArraysTag);
    EXPECT_EQ(insert(packet(7, 100, 3, 1)), nullptr);
    EXPECT_EQ(world.count_of(kArraysTag), 1u);
    EXPECT_EQ(q->count, 0);
    expect_is_empty(slot_of(7));
    EXPECT_EQ(stream->n_overlapped_frames_recent, 1);
    EXPECT_EQ(stream->last_to_user_at, 0u);
    EXPECT_EQ(stream->pkt_seq, 103u); // the removal moves past the frame
    EXPECT_EQ(logged(), (lines{"8 [DEBUG][RCV_VID] update_frame: idr 0, codec 2, n_pkts 3, n_pkts_media 3, "
                               "n_pkts_fec 0, seq 101, frame_seq 7",
                               "4 [ERROR][RCV_VID] malloc pkts failed, seq 7 pkts_count 3",
                               "8 [DEBUG][RCV_VID][chan] auto fwd due to remove frame, index 3",
                               "7 [INFO][RCV_VID] part of pkts, n_pkts_total 3, n_pkts_received 0, "
                               "expect_seq -1 --> 103"}));
}

// While the expected packet is not known its low half, 65535, stands for it.
TEST_F(FrameMemory, LeavesTheExpectedPacketUnknownWhenTheDroppedFrameIsBehind65535)
{
    world.refuse_tag(kArraysTag);
    EXPECT_EQ(insert(packet(7, 0x9000, 3, 1)), nullptr);
    EXPECT_EQ(stream->pkt_seq, 0xFFFFFFFFu);
    EXPECT_EQ(logged(RTC_LOG_INFO), (lines{"4 [ERROR][RCV_VID] malloc pkts failed, seq 7 pkts_count 3"}));
}

TEST_F(FrameMemory, DropsTheFrameWhoseStatusArrayCannotBeHad)
{
    world.refuse_tag(kArraysTag, 1);
    EXPECT_EQ(insert(packet(7, 100, 3, 1)), nullptr);
    EXPECT_EQ(world.count_of(kArraysTag), 2u);
    EXPECT_EQ(q->count, 0);
    expect_is_empty(slot_of(7));
    EXPECT_EQ(stream->n_overlapped_frames_recent, 1);
    EXPECT_EQ(logged(), (lines{"8 [DEBUG][RCV_VID] update_frame: idr 0, codec 2, n_pkts 3, n_pkts_media 3, "
                               "n_pkts_fec 0, seq 101, frame_seq 7",
                               "5 [WARNING][RCV_VID] malloc pkts_status failed",
                               "8 [DEBUG][RCV_VID][chan] auto fwd due to remove frame, index 3",
                               "7 [INFO][RCV_VID] part of pkts, n_pkts_total 3, n_pkts_received 0, "
                               "expect_seq -1 --> 103"}));
}

// Initialisation of the queue leaves that pointer as it was.
TEST_F(FrameMemory, ReleasesNoStaleStatusArray)
{
    video_packet_status_t stale = {};

    slot_of(7)->pkts_status = &stale;
    world.refuse_tag(kArraysTag);
    EXPECT_EQ(insert(packet(7, 100, 3, 1)), nullptr);
    expect_is_empty(slot_of(7));
    slot_of(8)->pkts_status = &stale;
    EXPECT_EQ(insert(packet(8, 110, 0, 0)), nullptr);
    expect_is_empty(slot_of(8));
}

TEST_F(FrameMemory, LogsUnderTheReceivingModuleWhateverTheStream)
{
    use(stream_kind::sending);
    world.refuse_tag(kArraysTag);
    EXPECT_EQ(insert(packet(7, 100, 3, 1)), nullptr);
    EXPECT_EQ(stream->pkt_seq, 0xFFFFFFFFu);
    EXPECT_EQ(logged(RTC_LOG_INFO), (lines{"4 [ERROR][RCV_VID] malloc pkts failed, seq 7 pkts_count 3"}));
    use(stream_kind::sending);
    world.refuse_tag(kArraysTag, 1);
    EXPECT_EQ(insert(packet(7, 100, 3, 1)), nullptr);
    EXPECT_EQ(logged(RTC_LOG_INFO), (lines{"5 [WARNING][RCV_VID] malloc pkts_status failed"}));
}

TEST_F(FrameMemory, TakesTheBoundsBackWhenTheNewestOrTheOldestFrameCannotBeHad)
{
    insert(packet(5, 100, 1, 0));
    insert(packet(6, 101, 1, 0));
    world.refuse_tag(kArraysTag);
    EXPECT_EQ(insert(packet(9, 110, 2, 0)), nullptr);
    EXPECT_EQ(insert(packet(2, 90, 2, 0)), nullptr);
    EXPECT_EQ(q->count, 2);
    expect_bounds(5, 6);
    EXPECT_EQ(q->min_ts, ts_of(5));
    EXPECT_EQ(q->max_ts, ts_of(6));
    EXPECT_EQ(stream->n_overlapped_frames_recent, 2);
    EXPECT_EQ(stream->pkt_seq, 112u);
}

TEST_F(FrameMemory, DropsAFrameThatCannotBeReCreated)
{
    insert(packet(5, 100, 3, 0));
    insert(packet(6, 103, 1, 0));
    for (const size_t nth : {size_t{0}, size_t{1}}) {
        insert(packet(5, 100, 3, 0));
        world.refuse_tag(kArraysTag, nth);
        EXPECT_EQ(insert(packet(5, 100, 4, static_cast<uint16_t>(1 + nth))), nullptr);
        world.refuse = nullptr;
        EXPECT_EQ(q->count, 1);
        expect_bounds(6, 6);
        expect_is_empty(slot_of(5));
        EXPECT_EQ(entry_of(100), -1);
    }
}

// The entry of a packet that was not stored stays taken; the frame's other packets get in.
TEST_F(FrameMemory, RefusesTheSamePacketAgainButTakesTheFramesOthers)
{
    world.refuse_tag(kArraysTag);
    EXPECT_EQ(insert(packet(7, 100, 3, 0)), nullptr);
    world.refuse = nullptr;
    logged();
    EXPECT_EQ(insert(packet(7, 100, 3, 0)), nullptr);
    EXPECT_EQ(logged(), (lines{"5 [WARNING][RCV_VID] insertQ: Ignore an duplicated in pkt 100"}));
    const video_frame *frame = insert(packet(7, 100, 3, 1));
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->first_pkt_seq, 100);
    EXPECT_EQ(frame->n_pkts_received, 1);
}

// A packet whose bytes could not be copied was not received, so that its retransmission gets in.
TEST_F(FrameMemory, CountsNothingWhenThePayloadCannotBeCopied)
{
    for (const bool is_first : {true, false}) {
        use(stream_kind::receiving);
        if (!is_first) {
            insert(packet(7, 100, 3, 0));
        }
        world.refuse = [](size_t, const test_support::allocation &request) {
            return request.tag != kArraysTag && request.tag != "test packet";
        };
        const video_frame *frame = insert(packet(7, 100, 3, 1), 1);
        world.refuse = nullptr;

        ASSERT_EQ(frame, slot_of(7));
        EXPECT_EQ(q->count, 1);
        EXPECT_EQ(frame->n_pkts_received, is_first ? 0 : 1);
        EXPECT_EQ(frame->n_pkts_received_media, is_first ? 0 : 1);
        EXPECT_EQ(frame->is_complete, 0);
        EXPECT_EQ(frame->pkts_status[1].is_received, 0);
        EXPECT_EQ(frame->pkts[1].count, 0);
        EXPECT_EQ(entry_of(101), -1);
        EXPECT_EQ(stream->pkt_seq, 100u);
        EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, 101), nullptr);

        EXPECT_EQ(insert(packet(7, 100, 3, 1), 1), frame);
        EXPECT_EQ(frame->n_pkts_received, is_first ? 1 : 2);
        EXPECT_EQ(stored_body(frame, 1), body_of(101));
    }
}

TEST_F(FrameMemory, IsConsistentWhicheverAllocationFails)
{
    for (size_t nth = 0; nth < 12; nth++) {
        for (const bool is_once : {true, false}) {
            use(stream_kind::receiving);
            const size_t first = world.allocations.size();
            world.refuse = [=](size_t index, const test_support::allocation &request) {
                return request.tag != "test packet" && (is_once ? index == first + nth : index >= first + nth);
            };
            insert(packet(1, 100, 2, 0), 1);
            insert(packet(1, 100, 2, 1), 1);
            insert(packet(41, 102, 2, 0), 1);
            insert(packet(41, 102, 3, 1), 1);
            world.refuse = nullptr;
            size_t n_occupied = 0;
            for (const video_frame &frame : q->video_frames) {
                n_occupied += frame.n_pkts_total != 0;
            }
            EXPECT_EQ(q->count, n_occupied) << nth;
        }
    }
}
