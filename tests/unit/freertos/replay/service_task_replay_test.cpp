// Captures posted to a service task at their own times, and what `vrc replay` makes of them.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "capture/capture_file.h"
#include "capture/stream_choice.h"
#include "commands/replay.h"
#include "freertos_double.h"
#include "service_task.h"

namespace
{

struct got_frame {
    uint32_t timestamp;
    bool is_key;
    std::vector<uint8_t> data;

    bool operator==(const got_frame &other) const
    {
        return timestamp == other.timestamp && is_key == other.is_key && data == other.data;
    }
};

std::ostream &operator<<(std::ostream &out, const got_frame &frame)
{
    return out << frame.timestamp << (frame.is_key ? " key" : "") << ", " << frame.data.size() << " bytes";
}

got_frame copy_of(const channel_frame &frame)
{
    return {frame.rtp_timestamp, frame.is_key, {frame.data, frame.data + frame.size}};
}

void drop_request(void * /*context*/, const uint8_t * /*datagram*/, size_t /*size*/)
{
}

void take_frame(void *context, const channel_frame *frame)
{
    static_cast<std::vector<got_frame> *>(context)->push_back(copy_of(*frame));
}

// The frames that come out of a service task when another task, which has the network, posts the stream's packets.
class TaskReplay
{
  public:
    std::vector<got_frame> frames;

    TaskReplay(const vrc::capture_file &file, const vrc::rtp_stream &stream)
    {
        freertos_double::start(0xFFFFF000); // the count of ticks wraps on the way
        const service_task_config config = make_client(stream);
        task_ = service_task_create(&config);
        post_all(file, stream);
        freertos_double::run_task();
        rtc_service_destroy(config.service);
    }

  private:
    service_task_config make_client(const vrc::rtp_stream &stream)
    {
        channel_config client = {};
        client.name = "task";
        client.on_frame = take_frame;
        client.on_frame_context = &frames;
        client.feedback.nack = true;
        client.feedback.pli = true;
        client.feedback.reduced_size = true;
        client.on_rtcp = drop_request;
        rtc_service *service = rtc_service_create();
        rtc_channel *channel = rtc_channel_create(service, &client);
        rtc_channel_set_payload_type(channel, stream.identity.payload_type, stream.codec);
        return {service, channel, 64, 1536, 3, nullptr, nullptr};
    }

    void post_all(const vrc::capture_file &file, const vrc::rtp_stream &stream)
    {
        vrc::capture_reader source(file);
        vrc::captured_datagram datagram;
        TickType_t last = 0;

        while (source.next(&datagram)) {
            const auto identity = vrc::stream_identity_read(datagram.udp);
            if (identity && *identity == stream.identity) {
                last = static_cast<TickType_t>(datagram.elapsed_us / 1000);
                const vrc::byte_view bytes = datagram.udp.payload;
                const std::vector<uint8_t> packet(bytes.data(), bytes.data() + bytes.size());
                freertos_double::after(last, [this, packet] {
                    EXPECT_EQ(service_task_post(task_, SERVICE_TASK_RTP, packet.data(), packet.size(), 0), 0);
                });
            }
        }
        freertos_double::after(last + 10000, [this] { service_task_stop(task_); });
    }

    service_task *task_ = nullptr;
};

class ServiceTaskReplay : public testing::TestWithParam<const char *>
{
};

TEST_P(ServiceTaskReplay, MakesTheFramesThatTheToolMakes)
{
    const vrc::capture_file file(std::string(VRC_TEST_DATA) + "/" + GetParam());
    const vrc::rtp_stream stream = vrc::stream_choose(vrc::streams_find(file, {}), {}, file.name());
    std::vector<got_frame> expected;
    const vrc::frame_taker take = [&expected](const channel_frame &frame) {
        expected.push_back(copy_of(frame));
        return true;
    };

    vrc::stream_replay(file, stream, take, {});
    EXPECT_GT(expected.size(), 100u);
    EXPECT_EQ(TaskReplay(file, stream).frames, expected);
    EXPECT_EQ(freertos_double::blocks_in_use(), 0);
}

INSTANTIATE_TEST_SUITE_P(Captures, ServiceTaskReplay,
                         testing::Values("h264_slices.pcap", "h264_stap_fu.pcap", "h265_ap_fu.pcap"),
                         [](const testing::TestParamInfo<const char *> &row) {
                             const std::string name = row.param;
                             return name.substr(0, name.find('.'));
                         });

} // namespace
