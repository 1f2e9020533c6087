// When the frame queue logs: each message has a module and a level, and is made only while both let it through.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "frame_queue_fixture.h"

using namespace frame_queue_test;

namespace
{

// Whose level a message is held against.
enum class module_of {
    stream,    // RCV_VID or SND_VID
    reception, // RCV_VID whatever the stream is
    nobody     // MIN
};

class FrameQueueLog;

struct message {
    const char *name;
    module_of module;
    int level;
    const char *part; // of the text
    void (*provoke)(FrameQueueLog &queue);
    bool is_of_receiving_only;
};

class FrameQueueLog : public FrameQueue, public ::testing::WithParamInterface<message>
{
  public:
    using FrameQueue::auto_forward;
    using FrameQueue::drop;
    using FrameQueue::insert;
    using FrameQueue::insert_bytes;
    using FrameQueue::packet;
    using FrameQueue::q;
    using FrameQueue::remove;
    using FrameQueue::slot_of;
    using FrameQueue::world;

    int module() const
    {
        switch (GetParam().module) {
        case module_of::stream:
            return is_receiving ? LM_RCV_VID : LM_SND_VID;
        case module_of::reception:
            return LM_RCV_VID;
        case module_of::nobody:
            return LM_MIN;
        }
        return LM_MAX;
    }

    // How often the message is made with these levels.
    size_t made(stream_kind kind, int own_level, int other_level)
    {
        use(kind);
        for (log_mod_t &entry : g_log_mod_arr) {
            entry.m_level = other_level;
        }
        g_log_mod_arr[module()].m_level = own_level;
        GetParam().provoke(*this);
        world.refuse = nullptr;
        return world.count_logged(GetParam().part);
    }

    std::vector<stream_kind> kinds() const
    {
        return GetParam().is_of_receiving_only ? std::vector<stream_kind>{stream_kind::receiving}
                                               : std::vector<stream_kind>{stream_kind::receiving, stream_kind::sending};
    }
};

const message kMessages[] = {
    {"IndexOutOfRange", module_of::nobody, RTC_LOG_CRIT, "[CRIT] pkt_cnt 4 should be bigger than subseq 5 from ",
     [](FrameQueueLog &queue) { queue.insert(queue.packet(1, 100, 4, 5)); }, false},
    {"OverlapOfAnOldFrame", module_of::stream, RTC_LOG_INFO, "insertQ: overlap an old frame\n",
     [](FrameQueueLog &queue) {
         queue.insert(queue.packet(1, 100, 1, 0));
         queue.insert(queue.packet(41, 200, 1, 0));
     },
     false},
    {"OutdatedPacket", module_of::stream, RTC_LOG_WARNING, " pkt 100\n",
     [](FrameQueueLog &queue) {
         queue.insert(queue.packet(41, 200, 1, 0));
         queue.insert(queue.packet(1, 100, 1, 0));
     },
     false},
    {"DuplicatedPacket", module_of::stream, RTC_LOG_WARNING, "insertQ: Ignore an duplicated ",
     [](FrameQueueLog &queue) {
         queue.insert(queue.packet(1, 100, 1, 0));
         queue.insert(queue.packet(1, 100, 1, 0));
     },
     false},
    {"FrameThatHoldsTheEntry", module_of::stream, RTC_LOG_CRIT, "_VID] 17\n",
     [](FrameQueueLog &queue) {
         queue.insert(queue.packet(17, 100, 1, 0));
         queue.insert(queue.packet(18, 1380, 1, 0));
     },
     false},
    {"OverlappedFrame", module_of::stream, RTC_LOG_WARNING, "insertQ: Frame 0 overlapped 17\n",
     [](FrameQueueLog &queue) {
         queue.insert(queue.packet(17, 100, 1, 0));
         queue.insert(queue.packet(18, 1380, 1, 0));
     },
     false},
    {"OutdatedPacketOfATakenEntry", module_of::stream, RTC_LOG_WARNING, " pkt 100 from receiving\n",
     [](FrameQueueLog &queue) {
         queue.insert(queue.packet(17, 1380, 1, 0));
         queue.insert(queue.packet(16, 100, 1, 0));
     },
     false},
    {"TotalFrameCount", module_of::nobody, RTC_LOG_CRIT, "[CRIT] insertQ: total frame count[41] > [40]\n",
     [](FrameQueueLog &queue) {
         queue.insert(queue.packet(1, 100, 1, 0));
         queue.q->count = 40;
         queue.insert(queue.packet(2, 101, 1, 0));
     },
     false},
    {"UpdatedFrame", module_of::stream, RTC_LOG_DEBUG, "update_frame: idr 0, codec 2, ",
     [](FrameQueueLog &queue) { queue.insert(queue.packet(1, 100, 1, 0)); }, false},
    {"NoPacketArray", module_of::reception, RTC_LOG_ERROR, "[ERROR][RCV_VID] malloc pkts failed, seq 1 pkts_count 3\n",
     [](FrameQueueLog &queue) {
         queue.world.refuse_tag(kArraysTag);
         queue.insert(queue.packet(1, 100, 3, 0));
     },
     false},
    {"NoStatusArray", module_of::reception, RTC_LOG_WARNING, "[WARNING][RCV_VID] malloc pkts_status failed\n",
     [](FrameQueueLog &queue) {
         queue.world.refuse_tag(kArraysTag, 1);
         queue.insert(queue.packet(1, 100, 3, 0));
     },
     false},
    {"FirstExpectedPacket", module_of::stream, RTC_LOG_INFO, "initialize expect_seq to 100\n",
     [](FrameQueueLog &queue) { queue.insert(queue.packet(1, 100, 1, 0)); }, false},
    {"PacketNotStored", module_of::nobody, RTC_LOG_CRIT,
     "[CRIT] insert packet fail because invalid packet or non-empty frame->pkts\n",
     [](FrameQueueLog &queue) { queue.insert_bytes(queue.packet(1, 100, 1, 0), {}); }, false},
    {"FrameOutOfBounds", module_of::stream, RTC_LOG_CRIT,
     "[chan] remove frame fail, frame_seq [1], but min/max frame_seq[2/2]\n",
     [](FrameQueueLog &queue) {
         queue.insert(queue.packet(1, 100, 1, 0));
         queue.q->min_frame_seq = 2;
         queue.q->max_frame_seq = 2;
         queue.remove(queue.slot_of(1));
     },
     false},
    {"MoveForARemovedFrame", module_of::stream, RTC_LOG_DEBUG, "[chan] auto fwd due to remove frame, index 1\n",
     [](FrameQueueLog &queue) {
         queue.insert(queue.packet(1, 100, 1, 0));
         queue.remove(queue.slot_of(1));
     },
     true},
    {"NoFrameBehindTheOldest", module_of::stream, RTC_LOG_CRIT,
     "[chan] Next frame should exist, Q.min=1, Q.max=2, Q.count=1\n",
     [](FrameQueueLog &queue) {
         queue.insert(queue.packet(1, 100, 1, 0));
         queue.insert(queue.packet(2, 101, 1, 0));
         queue.drop(queue.slot_of(2));
         queue.remove(queue.slot_of(1));
     },
     false},
    {"NoFrameBeforeTheNewest", module_of::stream, RTC_LOG_CRIT,
     "[chan] Next frame should exist, Q.min=1, Q.max=2, Q.count=1\n",
     [](FrameQueueLog &queue) {
         queue.insert(queue.packet(1, 100, 1, 0));
         queue.insert(queue.packet(2, 101, 1, 0));
         queue.drop(queue.slot_of(1));
         queue.remove(queue.slot_of(2));
     },
     false},
    {"MoveOverAWholeFrame", module_of::reception, RTC_LOG_INFO,
     "[INFO][RCV_VID] get all pkts, n_pkts_total 1, n_pkts_received 1, expect_seq 100 --> 101\n",
     [](FrameQueueLog &queue) { queue.auto_forward(queue.insert(queue.packet(1, 100, 1, 0)), 0); }, false},
    {"MoveIntoAnIncompleteFrame", module_of::reception, RTC_LOG_INFO,
     "[INFO][RCV_VID] part of pkts, n_pkts_total 2, n_pkts_received 1, expect_seq 100 --> 101\n",
     [](FrameQueueLog &queue) { queue.auto_forward(queue.insert(queue.packet(1, 100, 2, 0)), 0); }, false},
};

void PrintTo(const message &value, std::ostream *out)
{
    *out << value.part;
}

std::string message_name(const ::testing::TestParamInfo<message> &info)
{
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Message, FrameQueueLog, ::testing::ValuesIn(kMessages), message_name);

using FrameQueueLogPrefix = FrameQueue;

} // namespace

TEST_P(FrameQueueLog, MakesAMessageOnceAtItsModulesLevel)
{
    for (const stream_kind kind : kinds()) {
        EXPECT_EQ(made(kind, GetParam().level, RTC_LOG_DEFAULT), 1u);
        for (const test_support::log_line &entry : world.log) {
            EXPECT_LE(entry.level, GetParam().level) << entry.text;
        }
    }
}

TEST_P(FrameQueueLog, MakesNoMessageOneLevelBelow)
{
    for (const stream_kind kind : kinds()) {
        EXPECT_EQ(made(kind, GetParam().level - 1, RTC_LOG_DEBUG), 0u);
    }
}

TEST_P(FrameQueueLog, MakesNoMessageWhileTheLogIsOff)
{
    world.silence_log();
    for (const stream_kind kind : kinds()) {
        EXPECT_EQ(made(kind, RTC_LOG_DEBUG, RTC_LOG_DEBUG), 0u);
        EXPECT_TRUE(world.log.empty());
    }
}

// Nothing of a message is looked at while it is not made, so what it would name need not be there.
TEST_P(FrameQueueLog, NeedsNoNamesWhileTheLogIsOff)
{
    const std::vector<log_mod_t> modules(g_log_mod_arr, g_log_mod_arr + LM_MAX);

    world.silence_log();
    for (log_mod_t &entry : g_log_mod_arr) {
        entry.m_name = nullptr;
    }
    for (const stream_kind kind : kinds()) {
        EXPECT_EQ(made(kind, RTC_LOG_DEBUG, RTC_LOG_DEBUG), 0u);
    }
    std::copy(modules.begin(), modules.end(), g_log_mod_arr);
}

TEST_F(FrameQueueLogPrefix, TakesTheLabelAndTheNamesFromTheTablesAndTheChannel)
{
    g_log_mod_arr[LM_RCV_VID].m_name = "down";
    const char *const label = g_log_level_arr[RTC_LOG_CRIT];
    g_log_level_arr[RTC_LOG_CRIT] = "critical";
    std::snprintf(owner->channel.name_id, sizeof(owner->channel.name_id), "room 7");
    insert(packet(1, 100, 2, 0));
    video_frame outside = {};
    world.log.clear();
    remove(&outside);
    insert_bytes(packet(1, 100, 2, 1), {});
    g_log_level_arr[RTC_LOG_CRIT] = label;
    EXPECT_EQ(logged(), (lines{"3 [critical][down][room 7] remove frame fail, frame_seq [0], but min/max "
                               "frame_seq[1/1]",
                               "3 [critical] insert packet fail because invalid packet or non-empty frame->pkts"}));
}
