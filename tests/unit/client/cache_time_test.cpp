// The reorder cache is given packets as of their arrival, and is made to give up by a later time than it is. A delivery
// happens when it happens.
#include <gtest/gtest.h>

#include "client_bench.h"

using client_bench::Client;
using rtp_builder::frame;
using rtp_builder::Sender;

namespace
{

constexpr zeb_ts_t kNever = 0;

// A stream that begins with a key frame, unless it is to begin with what the row does.
struct Stage {
    Client client;
    Sender sender;
    zeb_ts_t out_at = kNever; // when the latest frame came out

    explicit Stage(const channel_feedback &feedback) : client(false, feedback)
    {
        client.during_frame = [this] { out_at = client.now; };
    }

    zeb_ts_t delivered_at()
    {
        return client.stream()->video_cache_q.last_deliver_frm_ts;
    }
};

struct row {
    const char *what;
    bool begins_with_key;
    bool delivers;
    void (*play)(Stage &stage);
    channel_feedback feedback = {};
};

channel_feedback early()
{
    channel_feedback feedback = {};
    feedback.pli = true;
    feedback.give_up_early = true;
    return feedback;
}

// All but the delimiter in front, which the frame can do without.
void receive_without_delimiter(Stage &stage)
{
    using rtp_builder::nal_unit;
    const frame key = stage.sender.raw_frame({nal_unit(9, 1), nal_unit(7, 9), nal_unit(8, 4), nal_unit(5, 99)}, true);
    stage.client.receive_without(key, {0});
}

// Frames at an even pace, by which lost padding is known.
void play_frames(Stage &stage, size_t count)
{
    for (size_t i = 0; i < count; i++) {
        stage.client.pass(30);
        stage.client.receive(stage.sender.delta_frame());
    }
}

const row kRows[] = {
    {"held since the millisecond of the delivery before", true, true,
     [](Stage &stage) {
         receive_without_delimiter(stage);
         stage.client.pass(250);
     }},
    {"held since after the delivery before", true, true,
     [](Stage &stage) {
         stage.client.pass(30);
         receive_without_delimiter(stage);
         stage.client.pass(250);
     }},
    {"held since before the delivery before", true, true,
     [](Stage &stage) {
         const frame delta = stage.sender.delta_frame(2);
         stage.client.receive(delta.packets[1]);
         stage.client.pass(10);
         receive_without_delimiter(stage);
         stage.client.pass(50);
         stage.client.receive(delta.packets[0]);
         stage.client.pass(200);
     }},
    {"held since the millisecond of the delivery before, until its beginning came", true, true,
     [](Stage &stage) {
         const frame key = stage.sender.key_frame(4);
         stage.client.receive_without(key, {0});
         stage.client.pass(60);
         stage.client.receive(key.packets[0]);
     }},
    {"held in front of the first delivery", false, true,
     [](Stage &stage) {
         const frame key = stage.sender.key_frame(4);
         stage.client.receive_without(key, {0});
         stage.client.pass(60);
         stage.client.receive(key.packets[0]);
     }},
    {"padding that was lost in the millisecond of the delivery before", true, true,
     [](Stage &stage) {
         play_frames(stage, 40);
         stage.sender.filler();
         stage.client.receive(stage.sender.delta_frame());
         stage.client.pass(400);
     },
     early()},
    {"the patience ended for a key frame that is held", true, true,
     [](Stage &stage) {
         play_frames(stage, 3);
         stage.client.receive_without(stage.sender.delta_frame(3), {1});
         stage.client.receive(stage.sender.key_frame());
         stage.client.pass(150);
     },
     early()},
    {"held until it was given up, and never whole", true, false,
     [](Stage &stage) {
         stage.client.receive_without(stage.sender.key_frame(6), {0, 5});
         stage.client.pass(250);
     }},
};

TEST(CacheTime, ADeliveryIsWhenItHappensWhateverTimeTheCacheIsGiven)
{
    for (const row &row : kRows) {
        SCOPED_TRACE(row.what);
        Stage stage(row.feedback);
        if (row.begins_with_key) {
            stage.client.receive(stage.sender.key_frame());
        }
        const zeb_ts_t began = stage.client.now;
        row.play(stage);
        ASSERT_EQ(stage.out_at > began, row.delivers) << stage.client.frame_drops();
        EXPECT_EQ(stage.delivered_at(), row.delivers ? stage.out_at : began);
        EXPECT_EQ(stage.client.stream()->video_cache_q.pkt_cur_cnt != 0, !row.delivers) << "all that is held was fed";
    }
}

} // namespace
