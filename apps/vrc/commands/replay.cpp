#include "commands/replay.h"

#include <algorithm>
#include <bitset>
#include <new>
#include <optional>

#include "capture/datagram_source.h"
#include "commands/session_description.h"
#include "packet_owner.h"
#include "replay_player.h"

namespace vrc
{
namespace
{

// The section of the session description that the stream belongs to.
std::optional<size_t> media_of(const rtp_stream &stream, const replay_setup &setup)
{
    return setup.session ? session_find_media(*setup.session, stream.identity.payload_type) : std::nullopt;
}

// Knows the packets of a stream and those that retransmit them.
class stream_filter
{
  public:
    stream_filter(const rtp_stream &stream, const replay_setup &setup) : identity_(stream.identity)
    {
        for (const rtx_mapping &rtx : setup.rtx) {
            add_rtx(rtx.rtx_payload_type, rtx.payload_type);
        }
        if (const std::optional<size_t> media = media_of(stream, setup)) {
            add_session(setup.session->videos[*media]);
        }
    }

    bool takes(const udp_datagram &datagram) const
    {
        const std::optional<stream_identity> identity = stream_identity_read(datagram);
        return identity && (*identity == identity_ || is_retransmission(*identity));
    }

  private:
    void add_rtx(uint8_t rtx_payload_type, uint8_t payload_type)
    {
        if (payload_type == identity_.payload_type) {
            rtx_payload_types_.set(rtx_payload_type & 0x7F);
        }
    }

    void add_session(const sdp_video &video)
    {
        for (size_t i = 0; i < video.n_formats; ++i) {
            const sdp_format &format = video.formats[i];
            if (format.codec == SDP_CODEC_RTX) {
                add_rtx(format.payload_type, format.apt);
            }
        }
        for (size_t i = 0; i < video.n_source_pairs; ++i) {
            if (video.source_pairs[i].ssrc == identity_.ssrc) {
                rtx_ssrc_ = video.source_pairs[i].rtx_ssrc;
            }
        }
    }

    bool is_retransmission(const stream_identity &identity) const
    {
        return rtx_payload_types_[identity.payload_type] && flow_key(identity.path) == flow_key(identity_.path) &&
               (!rtx_ssrc_ || *rtx_ssrc_ == identity.ssrc);
    }

    stream_identity identity_;
    std::bitset<128> rtx_payload_types_;
    std::optional<uint32_t> rtx_ssrc_; // none: any sender may be the one
};

// Tells the player what is known about the stream.
void player_set_up(const rtp_stream &stream, const replay_setup &setup, rtc_channel *channel)
{
    if (const std::optional<size_t> media = media_of(stream, setup)) {
        session_apply(*setup.session, *media, channel);
    }
    for (const rtx_mapping &rtx : setup.rtx) {
        rtc_channel_set_rtx(channel, rtx.rtx_payload_type, rtx.payload_type);
    }
    rtc_channel_set_payload_type(channel, stream.identity.payload_type, stream.codec);
}

bool take_frame(void *context, const channel_frame *frame)
{
    return (*static_cast<const frame_taker *>(context))(*frame);
}

void player_describe(const replay_player &player, replay_result *result)
{
    if (const stream_report *found = player.report()) {
        result->report = *found;
    }
    std::copy_n(player.packets_refused(), result->refused.size(), result->refused.begin());
    result->silence_skipped_ms = player.silence_skipped();
}

} // namespace

replay_result stream_replay(const capture_file &file, const rtp_stream &stream, const frame_taker &on_frame,
                            const std::function<void(uint64_t position)> &progress, const replay_setup &setup)
{
    constexpr uint64_t packets_between_reports = 256;
    replay_result result;
    result.stream = stream;
    datagram_source reader(file, setup.keys);
    const stream_filter filter(stream, setup);
    frame_taker taker = on_frame;
    replay_player player(stream.identity.ssrc, setup.gives_up_early, take_frame, &taker);
    if (player.channel() == nullptr) {
        throw std::bad_alloc();
    }
    player_set_up(stream, setup, player.channel());
    captured_datagram datagram;
    while (!player.is_stopped() && reader.next(&datagram)) {
        const byte_view payload = datagram.udp.payload;
        if (filter.takes(datagram.udp)) {
            player.advance(datagram.elapsed_us);
            player.receive_rtp(payload.data(), payload.size());
        } else if (rtcp_concerns(payload.data(), payload.size(), stream.identity.ssrc)) {
            player.advance(datagram.elapsed_us);
            player.receive_rtcp(payload.data(), payload.size());
        }
        if (progress && reader.counts().udp % packets_between_reports == 0) {
            progress(reader.position());
        }
    }
    player.settle();
    player_describe(player, &result);
    result.capture = reader.counts();
    result.decryption = reader.decryption();
    return result;
}

} // namespace vrc
