#include "commands/session_description.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "api/service.h"
#include "capture_builder.h"
#include "failure.h"
#include "video_stream.h"

using namespace vrc;
using namespace vrc_test;

namespace
{

// The parameter sets are those of h264_parameter_sets().
const std::string kDescription = "v=0\r\n"
                                 "o=- 1 1 IN IP4 192.0.2.1\r\n"
                                 "s=-\r\n"
                                 "c=IN IP4 192.0.2.2\r\n"
                                 "t=0 0\r\n"
                                 "m=video 5004 RTP/AVPF 98\r\n"
                                 "a=rtpmap:98 H265/90000\r\n"
                                 "m=video 5006 RTP/AVPF 96 97 99\r\n"
                                 "a=rtpmap:96 H264/90000\r\n"
                                 "a=fmtp:96 packetization-mode=1;sprop-parameter-sets=Z0LAHtkAoEf+yA==,aM48gA==\r\n"
                                 "a=rtpmap:97 rtx/90000\r\n"
                                 "a=fmtp:97 apt=96\r\n"
                                 "a=rtpmap:99 H264/90000\r\n"
                                 "a=fmtp:99 packetization-mode=2\r\n"
                                 "a=ssrc-group:FID 287454020 85\r\n"; // 0x11223344

std::unique_ptr<sdp_session> session_of(const std::string &text)
{
    const temporary_file stored(bytes(text.begin(), text.end()));
    return session_read(stored.path());
}

struct seen_frames {
    size_t count = 0;
    bytes first;
};

void take(void *context, const channel_frame *frame)
{
    auto *seen = static_cast<seen_frames *>(context);
    if (seen->count++ == 0) {
        seen->first.assign(frame->data, frame->data + frame->size);
    }
}

class session_applied : public testing::Test
{
  protected:
    void SetUp() override
    {
        const channel_config config = {"test", false, take, &seen_};
        channel_ = rtc_channel_create(service_.get(), &config);
        ASSERT_NE(channel_, nullptr);
        session_apply(*session_of(kDescription), 1, channel_);
    }

    int receive(const bytes &packet)
    {
        return rtc_channel_receive_rtp(channel_, packet.data(), packet.size(), false, &now_);
    }

    void live_on(zeb_ts_t milliseconds)
    {
        for (const zeb_ts_t end = now_ + milliseconds; now_ < end;) {
            rtc_service_tick(service_.get(), &now_);
            now_ += 10;
        }
    }

    std::unique_ptr<rtc_service, void (*)(rtc_service *)> service_{rtc_service_create(), rtc_service_destroy};
    rtc_channel *channel_ = nullptr;
    seen_frames seen_;
    zeb_ts_t now_ = 10'000;
};

rtp_fields packet_of(uint16_t seq, uint8_t payload_type, uint32_t ssrc = 0x11223344)
{
    return {seq, 3000, true, ssrc, payload_type};
}

} // namespace

using SessionDescription = session_applied;

TEST_F(SessionDescription, PutsParameterSetsInFrontOfKeyFrame)
{
    // Nothing tells that the very first frame is whole; the second key frame is.
    rtp_fields fields = packet_of(1, 96);
    for (; fields.seq < 10; ++fields.seq) {
        const bool is_key = fields.seq == 1 || fields.seq == 5;
        EXPECT_EQ(receive(rtp(fields, is_key ? h264_idr_slice(50) : h264_inter_slice(50))), 0);
        fields.timestamp += 3000;
        live_on(33);
    }
    live_on(3000);
    ASSERT_GT(seen_.count, 0u);
    const bytes start_code = {0, 0, 0, 1};
    const bytes sets = h264_parameter_sets(); // 78, length, 10 bytes, length, 4 bytes
    EXPECT_EQ(seen_.first, start_code + bytes(sets.begin() + 3, sets.begin() + 13) + start_code +
                               bytes(sets.begin() + 15, sets.end()) + start_code + h264_idr_slice(50));
}

TEST_F(SessionDescription, MakesRetransmissionsOfPairedSenderKnown)
{
    EXPECT_EQ(receive(rtp(packet_of(1, 96), h264_idr_slice(50))), 0);
    EXPECT_EQ(receive(rtp(packet_of(3, 96), h264_inter_slice(50))), 0);
    EXPECT_EQ(receive(rtp(packet_of(7, 97, 85), be16(2) + h264_inter_slice(50))), 0);
    const user_video_stream *stream = rtc_channel_find_stream(channel_, 0x11223344, 0);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(rtc_channel_stream_report(stream)->packets_retransmitted, 1u);
}

TEST_F(SessionDescription, RefusesPayloadTypesThatCannotBeReceived)
{
    EXPECT_EQ(receive(rtp(packet_of(1, 99), h264_idr_slice(50))), -1); // interleaved
    EXPECT_EQ(receive(rtp(packet_of(1, 98), h264_idr_slice(50))), -1); // of the other section
    EXPECT_EQ(rtc_channel_packets_refused(channel_)[PACKET_DROP_UNKNOWN_PAYLOAD_TYPE], 2u);
}

TEST(SessionDescriptionSections, AreFoundByPayloadType)
{
    const auto session = session_of(kDescription);
    EXPECT_EQ(session_find_media(*session, 98), std::optional<size_t>(0));
    EXPECT_EQ(session_find_media(*session, 97), std::optional<size_t>(1));
    EXPECT_EQ(session_find_media(*session, 100), std::nullopt);
}

TEST(SessionDescriptionFile, IsRefusedWithReason)
{
    struct {
        std::string text;
        const char *complaint;
    } const rows[] = {
        {"v=0\r\nm=video 5004 RTP/AVPF 96\r\na=rtpmap:96\r\n", "line 3"},
        {std::string((1 << 20) + 1, '\n'), "too large"},
    };
    for (const auto &row : rows) {
        try {
            session_of(row.text);
            ADD_FAILURE() << row.complaint;
        } catch (const failure &error) {
            EXPECT_EQ(error.code(), exit_code::wrong_usage);
            EXPECT_NE(std::string(error.what()).find(row.complaint), std::string::npos) << error.what();
        }
    }
}

TEST(SessionDescriptionFile, ThatCannotBeReadEndsTheCommand)
{
    for (const std::string &path : {testing::TempDir() + "no_such_file.sdp", testing::TempDir()}) {
        try {
            session_read(path);
            ADD_FAILURE() << path;
        } catch (const failure &error) {
            EXPECT_EQ(error.code(), exit_code::no_access);
        }
    }
}
