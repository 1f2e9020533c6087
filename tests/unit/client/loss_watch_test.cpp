#include "repair/loss_watch.h"

#include <gtest/gtest.h>

#include "sent_feedback.h"

namespace
{

using client_bench::bytes;
using client_bench::Client;
using client_bench::sent_texts;
using rtp_builder::frame;
using rtp_builder::Sender;

channel_feedback feedback_with(bool nack, bool gives_up_early)
{
    channel_feedback feedback = {};
    feedback.nack = nack;
    feedback.pli = true;
    feedback.reduced_size = true;
    feedback.give_up_early = gives_up_early;
    return feedback;
}

// A sender of a frame each 30 ms that answers a request for a key frame 60 ms later.
class LiveStream
{
  public:
    LiveStream(bool nack, bool gives_up_early) : client(false, feedback_with(nack, gives_up_early))
    {
        client.receive(sender.key_frame());
        client.pass(30);
        client.receive(sender.delta_frame());
        client.pass(30);
    }

    // Sends frames for `milliseconds`; the longest pause between two that came out.
    zeb_ts_t longest_pause(zeb_ts_t milliseconds)
    {
        zeb_ts_t pause = 0;
        zeb_ts_t last_at = client.now;
        for (const zeb_ts_t end = client.now + milliseconds; client.now < end; client.pass(30)) {
            const size_t before = client.frames.size();
            client.receive(asked_60_ms_ago() ? sender.key_frame() : sender.delta_frame());
            if (client.frames.size() > before) {
                pause = std::max(pause, client.now - last_at);
                last_at = client.now;
            }
        }
        return std::max(pause, client.now - last_at);
    }

    void lose_a_packet()
    {
        client.receive_without(sender.delta_frame(3), {1});
        client.pass(30);
    }

    Client client;
    Sender sender;

  private:
    bool asked_60_ms_ago()
    {
        if (client.sent.size() == n_answered || client.sent[n_answered].at + 60 > client.now) {
            return false;
        }
        n_answered = client.sent.size();
        return true;
    }

    size_t n_answered = 0;
};

TEST(LossWatch, AsksForAKeyFrameAtOnceWhereNobodyRetransmits)
{
    LiveStream live(false, true);
    live.lose_a_packet();
    EXPECT_LE(live.longest_pause(3000), 300u);
    EXPECT_EQ(live.client.report().losses_given_up[LOSS_END_CLEARED], 1u);
    EXPECT_EQ(live.client.report().frames_dropped[FRAME_DROP_GIVEN_UP] > 0, true);
}

TEST(LossWatch, SitsThePatienceOutWhenItIsSwitchedOff)
{
    LiveStream live(false, false);
    live.lose_a_packet();
    EXPECT_GE(live.longest_pause(5000), 1900u);
    EXPECT_EQ(live.client.report().losses_given_up[LOSS_END_CLEARED], 0u);
}

TEST(LossWatch, ThrowsNothingAwayWhileARetransmissionMayCome)
{
    LiveStream live(true, true);
    const frame lossy = live.sender.delta_frame(3);
    live.client.receive_without(lossy, {1});
    live.client.pass(900);
    EXPECT_EQ(live.client.report().losses_given_up[LOSS_END_CLEARED], 0u);
    live.client.receive(lossy.packets[1], true);
    EXPECT_EQ(live.client.frames.back().data, lossy.annexb);
}

TEST(LossWatch, GivesUpWhenAllRequestsWereInVain)
{
    LiveStream live(true, true);
    live.lose_a_packet();
    live.client.pass(1300); // ten requests, 113 ms apart or a tick more
    EXPECT_EQ(live.client.report().nacks_sent, 10u);
    live.client.pass(200);
    EXPECT_EQ(live.client.report().losses_given_up[LOSS_END_CLEARED], 1u);
    EXPECT_GE(live.client.report().plis_sent, 1u);
}

TEST(LossWatch, GoesOnWithAKeyFrameThatIsHeld)
{
    LiveStream live(false, true);
    live.client.receive_without(live.sender.delta_frame(3), {1});
    const frame key = live.sender.key_frame();
    live.client.receive(key);
    const zeb_ts_t began = live.client.now;
    live.client.pass(150);
    EXPECT_EQ(live.client.frames.back().data, key.annexb);
    EXPECT_EQ(live.client.report().losses_given_up[LOSS_END_HELD_KEY_FRAME], 1u);
    EXPECT_EQ(sent_texts(live.client, began), std::vector<std::string>());
    EXPECT_LE(live.client.stream()->video_cache_q.last_deliver_frm_ts, live.client.now);
    // The stream goes on at once.
    const frame next = live.sender.delta_frame();
    live.client.receive(next);
    EXPECT_EQ(live.client.frames.back().data, next.annexb);
}

// A fragmented NAL unit without its end and no marker; the next number begins a key frame.
TEST(LossWatch, DoesNotWaitForTheEndThatASenderForgot)
{
    LiveStream live(true, true);
    frame cut = live.sender.delta_frame(3);
    live.sender.seq = static_cast<uint16_t>(live.sender.seq - 1); // the packet with the end is never sent
    live.client.receive(cut.packets[0]);
    live.client.receive(cut.packets[1]);
    live.client.pass(30);
    const frame key = live.sender.key_frame();
    live.client.receive(key);
    live.client.pass(30);
    EXPECT_EQ(live.client.frames.back().data, key.annexb);
    EXPECT_EQ(live.client.timestamps().size(), 3u); // and nothing torn in between
    const frame next = live.sender.delta_frame();
    live.client.receive(next);
    EXPECT_EQ(live.client.frames.back().data, next.annexb);
}

TEST(LossWatch, AsksForAKeyFrameBehindAFrameWithoutEnd)
{
    LiveStream live(true, true);
    frame cut = live.sender.delta_frame(3);
    live.sender.seq = static_cast<uint16_t>(live.sender.seq - 1);
    live.client.receive(cut.packets[0]);
    live.client.receive(cut.packets[1]);
    live.client.pass(30);
    EXPECT_LE(live.longest_pause(3000), 200u);
}

} // namespace
