// All that the module allocates for, again and again with the 1st, 2nd, 3rd ... allocation failing, once and for good.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "packets.h"
#include "test_stream.h"

using namespace test_support;

namespace
{

constexpr uint16_t kPackets = 3; // of a frame

// A remote user's stream and one of the local user, with memory that fails as told.
class Story
{
  public:
    Story(size_t nth, bool is_for_good)
    {
        rtc_list_init(&service_.free_user_video_streams);
        rtc_list_init(&channel_.video_stream_q);
        rtc_list_init(&user_.video_streams_q);
        channel_.service = &service_;
        channel_.bandwidth_est_opt.enable_bandwidth_est_downlink = true;
        world.refuse = [this, nth, is_for_good](size_t, const allocation &request) {
            // The packets are the test's own, and without its statistics the process ends.
            if (request.tag == "test packet" || request.tag == "statistics") {
                return false;
            }
            n_asked++;
            const bool is_refused = is_for_good ? n_asked >= nth : n_asked == nth;
            refused[request.tag] += is_refused ? 1 : 0;
            return is_refused;
        };
    }

    ~Story()
    {
        service_video_streams_cleanup(&service_, &user_.video_streams_q, true);
        service_video_streams_cleanup(&service_, &channel_.video_stream_q, true);
        while (list_head *node = list_remove_head(&service_.free_user_video_streams.head)) {
            zeb_free_impl(node);
        }
    }

    Story(const Story &) = delete;
    Story &operator=(const Story &) = delete;

    void play()
    {
        for (const bool should_free : {false, true}) { // the record goes to the pool and comes from there
            get_streams();
            for (uint32_t i = 0; i < 3; i++) {
                receive_native(i, i % 2 == 1);
                receive_rtp(i == 0);
            }
            if (stream != nullptr) {
                video_stream_reset(stream, true);
                expect_invariants();
            }
            receive_native(7, false);
            receive_rtp(true);
            renew_ring();
            receive_rtp(true);
            service_video_streams_cleanup(&service_, &user_.video_streams_q, should_free);
            service_video_streams_cleanup(&service_, &channel_.video_stream_q, should_free);
        }
    }

    // With memory again a frame of each kind comes out whole.
    void expect_recovery()
    {
        world.refuse = nullptr;
        get_streams();
        ASSERT_NE(stream, nullptr);
        EXPECT_TRUE(receive_native(20, true));
        webrtc_video_cache_reset(&stream->video_cache_q);
        world.added.clear();
        receive_rtp(true);
        EXPECT_EQ(world.added.size(), kPackets);
    }

    // Each refusal is told, and nothing else is.
    void expect_told() const
    {
        EXPECT_EQ(said(RTC_LOG_EMERG, ""), n_refused("__service_alloc_user_video_stream"));
        EXPECT_EQ(said(RTC_LOG_ERROR, "malloc pkts failed, seq") + said(RTC_LOG_WARNING, "malloc pkts_status failed\n"),
                  n_refused("video_frames_q_insert_video_packet"));
        EXPECT_EQ(said(RTC_LOG_ERROR, "malloc for webrtc_frame_t failed\n"), n_refused("webrtc_video_insert_frm_map"));
        EXPECT_EQ(said(RTC_LOG_ERROR, "insert frm map failed\n"), n_refused("webrtc_video_insert_frm_map"));
        EXPECT_EQ(said(RTC_LOG_WARNING, "malloc for pkt_arr failed\n"), n_refused("webrtc_video_cache_alloc"));
        EXPECT_EQ(said(RTC_LOG_ERROR, "webrtc_video_cache_alloc failed\n"),
                  n_refused("webrtc_video_cache_alloc") - n_refused_rings);
    }

    World world;
    user_video_stream *stream = nullptr;
    size_t n_asked = 0;
    size_t n_refused_rings = 0; // of those that were asked for by name
    std::map<std::string, size_t> refused;

  private:
    size_t n_refused(const std::string &tag) const
    {
        const auto found = refused.find(tag);
        return found == refused.end() ? 0 : found->second;
    }

    size_t said(int level, const std::string &part) const
    {
        size_t n = 0;
        for (const log_line &line : world.log_at(level)) {
            n += line.text.find(part) != std::string::npos ? 1 : 0;
        }
        return n;
    }

    void get_streams()
    {
        stream =
            service_video_streams_get_video_stream(&service_, &user_, &channel_, &user_.video_streams_q, 0, 1, &now_);
        service_video_streams_get_video_stream_local(&service_, &channel_, &channel_.video_stream_q, 0, 1);
        expect_invariants();
    }

    void expect_invariants() const
    {
        if (stream != nullptr) {
            EXPECT_EQ(broken_invariants(*stream), "");
        }
    }

    // True when the frame came out with all its bytes. A packet that was copied, or not taken, is still the caller's.
    bool receive_native(uint32_t frame_seq, bool copy)
    {
        video_frame *frame = nullptr;
        for (uint16_t i = 0; i < kPackets && stream != nullptr; i++) {
            native_fields fields;
            fields.frame_seq = frame_seq;
            fields.n_pkts = kPackets;
            fields.subseq = i;
            fields.seq = static_cast<seq_t>(frame_seq * kPackets + i);
            fields.body = {static_cast<uint8_t>(0xA0 + i)};
            PVideoData4 video = native_packet(fields);
            frame = video_stream_insert_video_packet(stream, &video, copy ? 1 : 0, &now_);
            EXPECT_TRUE(!copy || video.payload.values != nullptr);
            EXPECT_TRUE(frame != nullptr || video.payload.values != nullptr) << "taken, but in no frame";
            release(&video);
            expect_invariants();
        }
        if (frame == nullptr || frame->is_complete == 0) {
            return false;
        }
        const bool is_whole = assemble(*frame);
        video_stream_remove_frame(stream, frame);
        expect_invariants();
        return is_whole;
    }

    // What comes out is right, or there is nothing.
    bool assemble(const video_frame &frame)
    {
        video_frame parsed = {};
        size_t size = 0;
        const size_t n_refused_before = n_refused("video_frame_parse_payload");
        EXPECT_EQ(video_frame_parse_payload(&frame, &parsed), 0);
        EXPECT_EQ(parsed.pkts == nullptr, n_refused("video_frame_parse_payload") > n_refused_before);
        auto *bitstream = static_cast<uint8_t *>(video_frame_regroup_pkts(&parsed, PACKETIZER_TYPE_H264, &size));
        if (bitstream != nullptr) {
            const std::vector<uint8_t> bytes(bitstream, bitstream + size);
            const std::vector<uint8_t> sent = {0, 0, 0, 1, 0xA0, 0, 0, 0, 1, 0xA1, 0, 0, 0, 1, 0xA2};
            EXPECT_EQ(bytes, sent);
        }
        const bool is_whole = bitstream != nullptr;
        zeb_free_impl(bitstream);
        zeb_free_impl(parsed.pkts);
        return is_whole;
    }

    // A frame with its second packet last, and the check.
    void receive_rtp(bool is_key)
    {
        timestamp_ += 3000;
        for (const uint16_t i : {uint16_t{0}, uint16_t{2}, uint16_t{1}}) {
            if (stream != nullptr) {
                PVideoData4 video = rtp_packet(static_cast<seq_t>(seq_ + i), timestamp_, is_key, i == kPackets - 1);
                webrtc_video_cache_process(&stream->video_cache_q, &video, 0, &now_);
                release(&video);
                expect_invariants();
            }
        }
        seq_ = static_cast<uint16_t>(seq_ + kPackets);
        now_ += 40;
        if (stream != nullptr) {
            webrtc_video_cache_check_deliver(&stream->video_cache_q, &now_);
            expect_invariants();
        }
    }

    void renew_ring()
    {
        if (stream == nullptr) {
            return;
        }
        webrtc_video_cache_fini(&stream->video_cache_q);
        webrtc_video_cache_init(&stream->video_cache_q, stream);
        const int result = webrtc_video_cache_alloc(&stream->video_cache_q);
        EXPECT_EQ(result, stream->video_cache_q.pkt_arr != nullptr ? 0 : -1);
        n_refused_rings += result == 0 ? 0 : 1;
        expect_invariants();
    }

    rtc_service service_ = {};
    rtc_channel channel_ = {};
    rtc_user user_ = {};
    zeb_ts_t now_ = 100000;
    uint16_t seq_ = 65530;
    uint32_t timestamp_ = 0xFFFFF000u;
};

class ModuleAllocationFailure : public testing::TestWithParam<bool>
{
};

TEST_P(ModuleAllocationFailure, OfAnyBlockIsToldAndHealed)
{
    size_t n_asked = SIZE_MAX;
    size_t nth = 1;
    for (; nth <= n_asked && !HasFailure(); nth++) {
        SCOPED_TRACE("without allocation " + std::to_string(nth));
        Story story(nth, GetParam());
        story.play();
        n_asked = story.n_asked;
        story.expect_told();
        story.expect_recovery();
    }
    EXPECT_GT(nth, 30u);
}

INSTANTIATE_TEST_SUITE_P(Sweep, ModuleAllocationFailure, testing::Values(false, true),
                         [](const auto &param) { return param.param ? "ForGood" : "Once"; });

} // namespace
