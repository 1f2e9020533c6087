#include "test_stream.h"

#include <cstring>

namespace test_support
{

TestStream::TestStream(stream_kind kind, uint8_t stream_id, bool estimates_downlink)
    : record_(std::make_unique<user_video_stream>())
{
    rtc_list_init(&service.free_user_video_streams);
    rtc_list_init(&channel.video_stream_q);
    rtc_list_init(&user.video_streams_q);
    std::strcpy(channel.name_id, "chan");
    channel.service = &service;
    channel.bandwidth_est_opt.enable_bandwidth_est_downlink = estimates_downlink;
    stream = record_.get();
    std::memset(static_cast<void *>(stream), 0xA5, sizeof(*stream)); // init clears whatever was there
    video_stream_init(stream, stream_id, kind == stream_kind::receiving ? &user : nullptr, &channel);
    q = &stream->video_frames_q;
    cache = &stream->video_cache_q;
}

TestStream::~TestStream()
{
    video_stream_reset(stream, true);
    webrtc_video_cache_fini(cache);
    if (stream->current_net_rcv_quality != nullptr) {
        net_rcv_analyzer_del(&stream->current_net_rcv_quality);
    }
    if (stream->old_net_rcv_quality != nullptr) {
        net_rcv_analyzer_del(&stream->old_net_rcv_quality);
    }
    if (stream->bcm_stat != nullptr) {
        KelvraBcmStat_Destroy(stream->bcm_stat);
    }
}

} // namespace test_support
