#include "service_task.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "freertos_clock.h"
#include "freertos_double.h"
#include "repair/nack_list.h"
#include "rtp_builder.h"

namespace
{

using rtp_builder::bytes;

struct got_frame {
    TickType_t tick;
    uint32_t timestamp;
    bytes data;

    bool operator==(const got_frame &other) const
    {
        return tick == other.tick && timestamp == other.timestamp && data == other.data;
    }
};

std::ostream &operator<<(std::ostream &out, const got_frame &frame)
{
    return out << frame.timestamp << " at tick " << frame.tick << ", " << frame.data.size() << " bytes";
}

// A client whose service a task owns. The network is the test.
class ServiceTask : public testing::Test
{
  protected:
    std::vector<got_frame> frames;
    std::vector<TickType_t> requests; // when they were made
    rtp_builder::Sender sender;
    rtc_service *service = nullptr;
    rtc_channel *channel = nullptr; // the service's
    service_task *task = nullptr;
    int n_stopped = 0;
    TickType_t frame_cost = 0; // ticks that the application takes for a frame

    ~ServiceTask() override
    {
        rtc_service_destroy(service);
        EXPECT_EQ(freertos_double::blocks_in_use(), 0);
    }

    service_task_config make_client()
    {
        channel_config client = {};
        client.on_frame = take_frame;
        client.on_frame_context = this;
        client.feedback.nack = true;
        client.feedback.reduced_size = true;
        client.on_rtcp = note_request;
        client.on_rtcp_context = this;
        service = rtc_service_create();
        channel = rtc_channel_create(service, &client);
        rtc_channel_set_payload_type(channel, 96, VIDEO_TYPE_H264);
        return {service, channel, 8, 1024, 3, note_stop, this};
    }

    void begin(TickType_t tick = 0)
    {
        freertos_double::start(tick);
        const service_task_config config = make_client();
        task = service_task_create(&config);
        ASSERT_NE(task, nullptr);
    }

    void post_after(TickType_t ticks, const bytes &packet)
    {
        freertos_double::after(
            ticks, [this, packet] { service_task_post(task, SERVICE_TASK_RTP, packet.data(), packet.size(), 0); });
    }

    void post_after(TickType_t ticks, const rtp_builder::frame &frame)
    {
        for (const bytes &packet : frame.packets) {
            post_after(ticks, packet);
        }
    }

    // Runs the task for that long.
    void run(TickType_t ticks)
    {
        freertos_double::after(ticks, [this] { service_task_stop(task); });
        freertos_double::run_task();
        task = nullptr;
    }

  private:
    static void take_frame(void *context, const channel_frame *frame)
    {
        auto *self = static_cast<ServiceTask *>(context);
        self->frames.push_back(
            {freertos_double::now(), frame->rtp_timestamp, {frame->data, frame->data + frame->size}});
        freertos_double::spend(self->frame_cost);
    }

    static void note_request(void *context, const uint8_t * /*datagram*/, size_t /*size*/)
    {
        static_cast<ServiceTask *>(context)->requests.push_back(freertos_double::now());
    }

    static void note_stop(void *context)
    {
        static_cast<ServiceTask *>(context)->n_stopped++;
    }
};

TEST_F(ServiceTask, IsCreatedAsConfigured)
{
    begin();
    EXPECT_EQ(freertos_double::task()->stack_depth, 1024u);
    EXPECT_EQ(freertos_double::task()->priority, 3u);
    run(0);
    EXPECT_EQ(n_stopped, 1);
    EXPECT_TRUE(freertos_double::task()->is_deleted);
}

TEST_F(ServiceTask, HandsOutTheFramesOfPostedDatagrams)
{
    begin();
    const rtp_builder::frame first = sender.key_frame(4);
    const rtp_builder::frame second = sender.delta_frame(2);
    post_after(5, first);
    post_after(38, second);
    run(1000);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0].data, first.annexb);
    EXPECT_EQ(frames[1].data, second.annexb);
    EXPECT_EQ(frames[1].tick, 38u);
}

TEST_F(ServiceTask, AsksForALostPacketWhenItsHoldIsOverAndNotAtTheNextTick)
{
    begin();
    rtp_builder::frame torn = sender.key_frame(4);
    torn.packets.erase(torn.packets.begin() + 2);
    post_after(33, torn);
    run(45);
    EXPECT_EQ(requests, std::vector<TickType_t>{static_cast<TickType_t>(33 + kNackHoldMin)});
}

TEST_F(ServiceTask, TakesWhatWasPostedBeforeItIsStopped)
{
    begin();
    const rtp_builder::frame frame = sender.key_frame(3);
    post_after(20, frame);
    run(20);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].data, frame.annexb);
}

// The ticks that give up a frame come in time although there is always a datagram waiting.
TEST_F(ServiceTask, TicksWhileDatagramsNeverStop)
{
    begin();
    const rtp_builder::frame key = sender.key_frame(3);
    const rtp_builder::frame torn = sender.delta_frame(3);
    const rtp_builder::frame next_key = sender.key_frame(3);
    post_after(0, key);
    post_after(10, torn.packets[0]);
    post_after(20, next_key);
    for (TickType_t tick = 30; tick < 3000; tick++) {
        post_after(tick, key.packets[0]); // late: refused
    }
    run(3000);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[1].data, next_key.annexb);
    EXPECT_LE(frames[1].tick, 2050u);
}

// The same packets at the same times, by the kernel's clock wherever it starts: the same frames.
TEST_F(ServiceTask, DoesTheSameAcrossTheWrapOfTheTicks)
{
    const auto play = [this](TickType_t first_tick) {
        sender = {};
        frames.clear();
        begin(first_tick);
        for (TickType_t i = 0; i < 20; i++) {
            rtp_builder::frame frame = i % 5 == 0 ? sender.key_frame(3) : sender.delta_frame(3);
            if (i % 5 == 2) {
                frame.packets.pop_back();
            }
            post_after(i * 33, frame);
        }
        run(6000);
        rtc_service_destroy(service);
        service = nullptr;
        for (got_frame &frame : frames) {
            frame.tick -= first_tick;
        }
        return frames;
    };
    const std::vector<got_frame> expected = play(0);

    EXPECT_GT(expected.size(), 4u);
    for (const TickType_t first_tick : {1000u, 0x7FFFFFFFu, 0xFFFFFFF0u, 0xFFFFFF00u}) {
        EXPECT_EQ(play(first_tick), expected) << first_tick;
    }
}

TEST_F(ServiceTask, CountsWhatDoesNotFitIntoTheQueue)
{
    begin();
    const rtp_builder::frame key = sender.key_frame(12);
    freertos_double::after(1, [&] {
        for (size_t i = 0; i < key.packets.size(); i++) {
            const bytes &packet = key.packets[i];
            EXPECT_EQ(service_task_post(task, SERVICE_TASK_RTP, packet.data(), packet.size(), 0), i < 8 ? 0 : -1);
        }
        EXPECT_EQ(service_task_dropped(task), 4u);
    });
    run(10);
    EXPECT_TRUE(frames.empty());
}

TEST_F(ServiceTask, RefusesDatagramsOfNoSizeAndOfTooGreatASize)
{
    begin();
    const bytes large(65536, 0x80);
    EXPECT_EQ(service_task_post(task, SERVICE_TASK_RTP, large.data(), 0, 0), -1);
    EXPECT_EQ(service_task_post(task, SERVICE_TASK_RTP, large.data(), large.size(), 0), -1);
    EXPECT_EQ(service_task_post(task, SERVICE_TASK_RTP, large.data(), large.size() - 1, 0), 0);
    EXPECT_EQ(service_task_dropped(task), 2u);
    run(10);
}

TEST_F(ServiceTask, DropsADatagramWithoutMemoryForIt)
{
    begin();
    const bytes packet = sender.key_frame(3).packets[0];
    freertos_double::fail_request(1);
    EXPECT_EQ(service_task_post(task, SERVICE_TASK_RTP, packet.data(), packet.size(), 0), -1);
    EXPECT_EQ(service_task_post(task, SERVICE_TASK_RTP, packet.data(), packet.size(), 0), 0);
    EXPECT_EQ(service_task_dropped(task), 1u);
    run(10);
}

TEST_F(ServiceTask, LeavesNothingBehindWhenItCannotBeCreated)
{
    freertos_double::start();
    const service_task_config config = make_client();
    const long before = freertos_double::blocks_in_use();
    for (int nth = 1; nth <= 3; nth++) {
        freertos_double::fail_request(nth);
        EXPECT_EQ(service_task_create(&config), nullptr) << nth;
        EXPECT_EQ(freertos_double::blocks_in_use(), before) << nth;
    }
}

TEST_F(ServiceTask, TakesRtcpToo)
{
    begin();
    // RFC 3550, 6.4.1: a sender report without blocks; and what is none.
    bytes report = {0x80, 200, 0, 6, 0x11, 0x22, 0x33, 0x44};
    report.resize(28);
    const bytes junk = {0x80, 200, 0, 60};
    freertos_double::after(1, [&] { service_task_post(task, SERVICE_TASK_RTCP, report.data(), report.size(), 0); });
    freertos_double::after(2, [&] { service_task_post(task, SERVICE_TASK_RTCP, junk.data(), junk.size(), 0); });
    run(10);
    EXPECT_EQ(rtc_channel_rtcp_malformed(channel), 1u);
}

// Other tasks look at the service in this way: what they have run sees all that was posted before, and nothing later.
TEST_F(ServiceTask, RunsACallBetweenWhatWasPostedBeforeAndBehindIt)
{
    begin();
    std::vector<size_t> seen;
    struct look {
        const std::vector<got_frame> *frames;
        std::vector<size_t> *seen;
    } look = {&frames, &seen};
    const auto note = [](void *context) {
        const auto *at = static_cast<struct look *>(context);
        at->seen->push_back(at->frames->size());
    };
    freertos_double::after(4, [&] { EXPECT_EQ(service_task_call(task, note, &look, 0), 0); });
    post_after(5, sender.key_frame(3));
    freertos_double::after(5, [&] { EXPECT_EQ(service_task_call(task, note, &look, 0), 0); });
    post_after(5, sender.delta_frame(2));
    freertos_double::after(9, [&] { EXPECT_EQ(service_task_call(task, note, &look, 0), 0); });
    run(9);
    EXPECT_EQ(seen, (std::vector<size_t>{0, 1, 2}));
}

TEST_F(ServiceTask, RefusesACallThatFindsNoPlaceAndCountsNoDatagram)
{
    begin();
    int n_calls = 0;
    const auto count = [](void *context) { ++*static_cast<int *>(context); };
    freertos_double::after(1, [&] {
        for (int i = 0; i < 10; i++) {
            EXPECT_EQ(service_task_call(task, count, &n_calls, 0), i < 8 ? 0 : -1) << i;
        }
        EXPECT_EQ(service_task_dropped(task), 0u);
    });
    run(10);
    EXPECT_EQ(n_calls, 8);
}

// An application that takes its time makes the task late, but what follows is as if it had not been.
TEST_F(ServiceTask, CatchesUpAfterASlowApplication)
{
    begin();
    frame_cost = 200;
    std::vector<bytes> expected;
    for (TickType_t i = 0; i < 10; i++) {
        const rtp_builder::frame frame = i == 0 ? sender.key_frame(3) : sender.delta_frame(1);
        expected.push_back(frame.annexb);
        post_after(i * 33, frame);
    }
    run(5000);
    ASSERT_EQ(frames.size(), expected.size());
    for (size_t i = 0; i < frames.size(); i++) {
        EXPECT_EQ(frames[i].data, expected[i]) << i;
    }
}

} // namespace
