// Every message of the reorder cache: its level and whole text, and that it is only made when it may be.

#include <algorithm>
#include <functional>

#include <gtest/gtest.h>

#include "packets.h"
#include "reorder_scene.h"

using namespace test_support;

namespace
{

// One message and what brings it about in an empty cache at sequence number 0 and timestamp 0.
struct message {
    const char *name;
    int level;
    const char *text;
    std::function<void(ReorderScene &)> trigger;
};

void refuse_frames(ReorderScene &scene)
{
    scene.world.refuse_tag("webrtc_video_insert_frm_map");
}

void refuse_ring(ReorderScene &scene)
{
    scene.world.refuse_tag("webrtc_video_cache_alloc");
}

const std::vector<message> messages = {
    {"RingAllocationFailed", 5, "[WARNING][RCV_VID] malloc for pkt_arr failed\n",
     [](ReorderScene &scene) {
         refuse_ring(scene);
         webrtc_video_cache_alloc(scene.cache);
     }},
    {"PacketWithoutARing", 4, "[ERROR][RCV_VID] webrtc_video_cache_alloc failed\n",
     [](ReorderScene &scene) {
         refuse_ring(scene);
         scene.run(K(0, 1));
     }},
    {"KeyFramePacket", 7, "[INFO][RCV_VID] restrans=0 key=1 timestamp=3000 pkt_seq=65535 rtp.end=0\n",
     [](ReorderScene &scene) { scene.run(K(65535, 1)); }},
    {"RetransmittedLastPacketAtTheGate", 7,
     "[INFO][RCV_VID] restrans=1 key=0 timestamp=4294964296 pkt_seq=1 rtp.end=1\n",
     [](ReorderScene &scene) { scene.run(P(1, -1).m().again()); }},
    {"SharedSlot", 5, "[WARNING][RCV_VID] pkt_pos has been set before !!!!!!\n",
     [](ReorderScene &scene) {
         scene.run(K(0, 1));
         scene.run(P(8192, 1));
     }},
    {"FrameAllocationFailed", 4, "[ERROR][RCV_VID] malloc for webrtc_frame_t failed\n",
     [](ReorderScene &scene) {
         refuse_frames(scene);
         scene.run(K(0, 1));
     }},
    {"PacketWithoutAFrame", 4, "[ERROR][RCV_VID] insert frm map failed\n",
     [](ReorderScene &scene) {
         refuse_frames(scene);
         scene.run(K(0, 1));
     }},
    {"NullArgument", 4, "[ERROR][RCV_VID] Check param error\n",
     [](ReorderScene &scene) { webrtc_video_frame_add_pkt(scene.cache, nullptr, nullptr); }},
    {"OldPacket", 7, "[INFO][RCV_VID] time-out pkt 65534 < 65535\n",
     [](ReorderScene &scene) {
         scene.run(K(65534, 1));
         scene.run(P(65534, 1));
     }},
    {"PacketBehindAGap", 7, "[INFO][RCV_VID] time-exceed pkt 1 > 65535\n",
     [](ReorderScene &scene) {
         scene.run(K(65534, 1));
         scene.run(P(1, 1));
     }},
    {"RemovedIncompleteFrame", 7, "[INFO][RCV_VID] remove frm: state=1 key=1 3000 [65535, 2][65535, 4294967295] 3/0\n",
     [](ReorderScene &scene) {
         scene.run(K(65535, 1));
         scene.run(P(0, 1));
         scene.run(P(2, 1));
         scene.run(check().at(2000));
     }},
    {"RemovedCompleteFrame", 7, "[INFO][RCV_VID] remove frm: state=2 key=1 3000 [65535, 0][65535, 0] 2/2\n",
     [](ReorderScene &scene) {
         scene.run(K(65535, 1));
         scene.run(P(0, 1).m());
     }},
    {"NothingHeldBehindTheRemovedFrame", 3, "[CRIT][RCV_VID] no avaliable webrtc video packet ???\n",
     [](ReorderScene &scene) {
         scene.run(K(0, 1));
         scene.run(P(1, 1));
         scene.run(P(8192, 5));
         scene.run(check().at(2000));
     }},
    {"Drop", 6, "[NOTICE][RCV_VID] remove_to_key_frame !!!!!!\n",
     [](ReorderScene &scene) {
         scene.run(K(0, 1));
         scene.run(check().at(2000));
     }},
    {"DumpAtTheDrop", 6,
     "[NOTICE][RCV_VID] video_cache: pkt_cnt=1 exp_seq=1 pkt_seq=[0, 0] frm_cnt=1 frm_ts=[3000, 3000]"
     " last_ordered=[3000, 0]\n",
     [](ReorderScene &scene) {
         scene.run(K(0, 1));
         scene.run(check().at(2000));
     }},
    {"DropAtAPacketWithoutAFrame", 4, "[ERROR][RCV_VID] frm_ptr is null\n",
     [](ReorderScene &scene) {
         scene.run(K(0, 1));
         refuse_frames(scene);
         scene.run(P(1, 2));
         scene.world.log.clear();
         scene.run(check().at(2000));
     }},
    {"DeliveryAtAPacketWithoutAFrame", 4, "[ERROR][RCV_VID] frm_ptr is null\n",
     [](ReorderScene &scene) {
         refuse_frames(scene);
         scene.run(K(0, 1));
         scene.world.refuse = nullptr;
         scene.run(K(1, 2).m());
     }},
    {"IncompleteHeadGivenUp", 6, "[NOTICE][RCV_VID] in-compelete frame[0, 2][0, 2] timeout, clear!!!\n",
     [](ReorderScene &scene) {
         scene.run(K(0, 1));
         scene.run(P(2, 1).m());
         scene.run(check().at(2000));
     }},
    {"GapGivenUp", 6, "[NOTICE][RCV_VID] no-continuous frame[5, 6][5, 6] timeout, clear!!!\n",
     [](ReorderScene &scene) {
         scene.run(K(0, 1).m());
         scene.run(P(8, 3));
         scene.run(K(5, 9));
         scene.run(K(6, 9).m());
         scene.run(check().at(2000));
     }},
    {"Delivery", 7, "[INFO][RCV_VID] deliver: key:0 [1001] [6000] [1, 2] 2/2\n",
     [](ReorderScene &scene) {
         scene.run(K(0, 1).m());
         scene.run(P(1, 2));
         scene.run(P(2, 2).m());
     }},
    {"FreeSlotInACompleteFrame", 5, "[WARNING][RCV_VID] pkt is null !!!!!!!!\n",
     [](ReorderScene &scene) {
         scene.run(K(0, 1));
         scene.run(P(2, 1).m());
         scene.run(P(4, 1));
     }},
};

class ReorderCacheLog : public testing::TestWithParam<message>
{
  protected:
    size_t lines() const
    {
        return static_cast<size_t>(
            std::count(scene_.world.log.begin(), scene_.world.log.end(), log_line{GetParam().level, GetParam().text}));
    }

    ReorderScene scene_;
};

TEST_P(ReorderCacheLog, IsMadeOnceWhileTheModulesLevelAllowsIt)
{
    // Other modules have no say.
    for (log_mod_t &module : g_log_mod_arr) {
        module.m_level = RTC_LOG_DEFAULT;
    }
    g_log_mod_arr[LM_RCV_VID].m_level = GetParam().level;
    GetParam().trigger(scene_);
    EXPECT_EQ(lines(), 1u);
}

TEST_P(ReorderCacheLog, IsNotMadeBelowTheModulesLevel)
{
    g_log_mod_arr[LM_RCV_VID].m_level = GetParam().level - 1;
    GetParam().trigger(scene_);
    EXPECT_EQ(lines(), 0u);
    for (const log_line &line : scene_.world.log) {
        EXPECT_LT(line.level, GetParam().level) << line.text;
    }
}

TEST_P(ReorderCacheLog, IsNotMadeWhileLoggingIsOff)
{
    scene_.world.silence_log();
    GetParam().trigger(scene_);
    EXPECT_TRUE(scene_.world.log.empty());
}

INSTANTIATE_TEST_SUITE_P(Message, ReorderCacheLog, testing::ValuesIn(messages),
                         [](const testing::TestParamInfo<message> &row) { return row.param.name; });

} // namespace
