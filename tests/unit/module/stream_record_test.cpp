#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "packets.h"
#include "stream_fields.h"
#include "test_stream.h"

using namespace test_support;

namespace
{

void expect_field(const user_video_stream &stream, const stream_field &field, field_value value)
{
    EXPECT_EQ(bytes_of(value, field.size), bytes_of(stream, field)) << field.name;
}

TEST(StreamRecord, HasNoFieldThatTheTableLeavesOut)
{
    size_t end = 0;

    for (const stream_field &field : kStreamFields) {
        EXPECT_EQ((end + field.alignment - 1) / field.alignment * field.alignment, field.offset) << field.name;
        end = field.offset + field.size;
    }
    const size_t alignment = alignof(user_video_stream);
    EXPECT_EQ((end + alignment - 1) / alignment * alignment, sizeof(user_video_stream));
}

TEST(StreamRecord, BeginsWithItsLink)
{
    World world;
    TestStream t;

    EXPECT_EQ(static_cast<void *>(t.stream), static_cast<void *>(&t.stream->node));
}

// The record's memory is full of a pattern before init.
TEST(StreamRecord, HoldsNothingOfItsFormerLifeAfterInitAsRemoteStream)
{
    World world;
    TestStream t(stream_kind::receiving, 7);

    for (const stream_field &field : kStreamFields) {
        if (field.init_receiving != field_value::own_test) {
            expect_field(*t.stream, field, field.init_receiving);
        }
    }
    EXPECT_EQ(&t.user, t.stream->user);
    EXPECT_EQ(&t.channel, t.stream->channel);
    EXPECT_EQ(7, t.stream->stream_id);
    EXPECT_EQ(1u, world.live.count(t.stream->current_net_rcv_quality));
}

TEST(StreamRecord, HoldsNothingOfItsFormerLifeAfterInitAsLocalStream)
{
    World world;
    TestStream t(stream_kind::sending, 255);

    for (const stream_field &field : kStreamFields) {
        if (field.init_sending != field_value::own_test) {
            expect_field(*t.stream, field, field.init_sending);
        }
    }
    EXPECT_EQ(&t.channel, t.stream->channel);
    EXPECT_EQ(255, t.stream->stream_id);
}

TEST(StreamRecord, NeverHoldsOwnedObjectsAsLocalStream)
{
    World world;
    TestStream t(stream_kind::sending, 0, true);

    EXPECT_EQ(nullptr, t.stream->current_net_rcv_quality);
    EXPECT_EQ(nullptr, t.stream->old_net_rcv_quality);
    EXPECT_EQ(nullptr, t.stream->bcm_stat);
    EXPECT_EQ(0u, world.analyzers_made);
    EXPECT_TRUE(world.statistics_configs.empty());
    EXPECT_TRUE(world.live.empty());
}

TEST(StreamRecord, HasAnEmptyClearedFrameQueueAfterInit)
{
    World world;
    TestStream t;

    EXPECT_EQ(0, t.q->count);
    EXPECT_EQ(0, t.q->min_ts);
    EXPECT_EQ(0, t.q->max_ts);
    EXPECT_EQ(0u, t.q->min_frame_seq);
    EXPECT_EQ(0u, t.q->max_frame_seq);
    EXPECT_TRUE(std::all_of(std::begin(t.q->pkt_frame_pos), std::end(t.q->pkt_frame_pos),
                            [](int16_t pos) { return pos == -1; }));
    EXPECT_TRUE(std::all_of(std::begin(t.q->pkt_tc_pairs), std::end(t.q->pkt_tc_pairs),
                            [](const rtc_timer_counter_pair_t &pair) { return pair.at == 0 && pair.n == 0; }));
    const auto *slots = reinterpret_cast<const uint8_t *>(t.q->video_frames);
    EXPECT_TRUE(std::all_of(slots, slots + sizeof(t.q->video_frames), [](uint8_t byte) { return byte == 0; }));
}

TEST(StreamRecord, HasAReorderCacheOfItsOwnWithoutRingAfterInit)
{
    constexpr uint32_t kUnknown = 0xFFFFFFFFu;
    constexpr uint64_t kUnknownWide = 0xFFFFFFFFFFFFFFFFu;
    World world;
    TestStream t;

    EXPECT_EQ(t.stream, t.cache->stream);
    EXPECT_EQ(nullptr, t.cache->pkt_arr);
    EXPECT_EQ(0u, t.cache->pkt_cur_cnt);
    EXPECT_EQ(0u, t.cache->pkt_all_cnt);
    EXPECT_EQ(kUnknown, t.cache->pkt_exp_seq);
    EXPECT_EQ(kUnknown, t.cache->pkt_min_seq);
    EXPECT_EQ(kUnknown, t.cache->pkt_max_seq);
    EXPECT_EQ(nullptr, t.cache->frm_map.rb_node);
    EXPECT_NE(nullptr, t.cache->frm_map.rb_cmp);
    EXPECT_EQ(0u, t.cache->frm_map.count);
    EXPECT_EQ(0u, t.cache->frm_cur_cnt);
    EXPECT_EQ(0u, t.cache->frm_all_cnt);
    EXPECT_EQ(kUnknownWide, t.cache->frm_min_timestamp);
    EXPECT_EQ(kUnknownWide, t.cache->frm_max_timestamp);
    EXPECT_EQ(1u, t.cache->frm_flag);
    EXPECT_EQ(0u, t.cache->last_deliver_frm_ts);
    EXPECT_EQ(kUnknownWide, t.cache->last_deliver_frm_seq);
    EXPECT_EQ(kUnknown, t.cache->last_deliver_pkt_seq);
    EXPECT_EQ(kUnknown, t.cache->last_ordered_pkt_seq);
    EXPECT_EQ(kUnknownWide, t.cache->last_ordered_timestamp);
    EXPECT_EQ(kUnknownWide, t.cache->last_removed_timestamp);
    EXPECT_EQ(0, t.cache->n_retrans_req_recent);
    EXPECT_EQ(0, t.cache->n_intra_req_sent_recent);
    EXPECT_EQ(0u, t.cache->next_retrans_req_should_at);
    EXPECT_EQ(0u, t.cache->next_intra_req_should_at);
}

// Fills every field that reset may touch freely with a pattern and tells what reset made of each.
class ResetOfPattern : public ::testing::TestWithParam<std::tuple<stream_kind, bool>>
{
};

TEST_P(ResetOfPattern, SetsEachFieldToZeroOrItsMarkerOrKeepsIt)
{
    constexpr uint8_t kPattern = 0x5A;
    const auto [kind, reset_seq] = GetParam();
    World world;
    TestStream t(kind, 3);
    auto *first = reinterpret_cast<uint8_t *>(t.stream);

    for (const stream_field &field : kStreamFields) {
        if (field.reset != field_value::own_test) {
            memset(first + field.offset, kPattern, field.size);
        }
    }
    video_stream_reset(t.stream, reset_seq);

    for (const stream_field &field : kStreamFields) {
        const bool is_kept = field.reset == field_value::kept || (field.reset == field_value::sequence && !reset_seq);
        if (field.reset == field_value::own_test) {
            continue;
        }
        if (is_kept) {
            EXPECT_EQ(std::vector<uint8_t>(field.size, kPattern), bytes_of(*t.stream, field)) << field.name;
        } else {
            expect_field(*t.stream, field, field.reset == field_value::sequence ? field_value::all_ones : field.reset);
        }
    }
    EXPECT_EQ(kind == stream_kind::receiving ? &t.user : nullptr, t.stream->user);
    EXPECT_EQ(&t.channel, t.stream->channel);
    EXPECT_EQ("", broken_invariants(*t.stream));
}

INSTANTIATE_TEST_SUITE_P(StreamRecord, ResetOfPattern,
                         ::testing::Combine(::testing::Values(stream_kind::receiving, stream_kind::sending),
                                            ::testing::Bool()),
                         [](const auto &instance) {
                             const bool is_receiving = std::get<0>(instance.param) == stream_kind::receiving;
                             return std::string(is_receiving ? "Receiving" : "Sending") +
                                    (std::get<1>(instance.param) ? "WithSequences" : "WithoutSequences");
                         });

TEST(StreamRecord, TurnsInitMarkersIntoResetMarkers)
{
    World world;
    TestStream t;

    EXPECT_EQ(0xFFFFFFFFu, t.stream->pkt_seq);
    EXPECT_EQ(0u, t.stream->frame_seq);
    EXPECT_EQ(0, t.stream->first_rcv_key_frame_seq);
    EXPECT_EQ(-1, t.stream->second_rcv_key_frame_seq);
    EXPECT_EQ(1u, t.stream->s_flags);

    video_stream_reset(t.stream, true);
    EXPECT_EQ(0xFFFFFFFFu, t.stream->pkt_seq);
    EXPECT_EQ(0xFFFFFFFFu, t.stream->frame_seq);
    EXPECT_EQ(-1, t.stream->first_rcv_key_frame_seq);
    EXPECT_EQ(-1, t.stream->second_rcv_key_frame_seq);
    EXPECT_EQ(1u, t.stream->s_flags);
}

} // namespace
