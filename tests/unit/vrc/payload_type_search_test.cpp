#include "live/payload_type_search.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "capture_builder.h"
#include "video_stream.h"

using namespace vrc;
using namespace vrc_test;

namespace
{

constexpr uint32_t kHonest = 0xABCD;

class search_scene
{
  public:
    bool send(uint8_t host, const rtp_fields &fields, const bytes &payload)
    {
        const bytes packet = rtp(fields, payload);
        udp_datagram datagram;
        datagram.path.source.address.bytes[0] = host;
        datagram.payload = {packet.data(), packet.size()};
        const uint64_t before = search_.comparisons();
        const bool is_found = search_.observe(datagram, ++now_);
        most_comparisons_ = std::max(most_comparisons_, search_.comparisons() - before);
        return is_found;
    }

    // One packet each of as many streams as nobody sent before.
    void send_junk(uint8_t host, unsigned count, const bytes &payload)
    {
        for (unsigned i = 0; i < count; ++i) {
            EXPECT_FALSE(send(host, {0, 0, false, 0x10000 + junk_++, 97}, payload));
        }
    }

    // The honest sender's next packet: a key frame in front.
    bool send_honest(uint8_t host)
    {
        const bool is_key = honest_ == 0;
        const rtp_fields fields{static_cast<uint16_t>(honest_), honest_ * 3000u, true, kHonest, 96};
        ++honest_;
        return send(host, fields, is_key ? h264_parameter_sets() : h264_inter_slice(100));
    }

    uint64_t most_comparisons() const
    {
        return most_comparisons_;
    }

    std::vector<rtp_stream> streams() const
    {
        return search_.streams();
    }

  private:
    payload_type_search search_{VIDEO_TYPE_H264};
    zeb_ts_t now_ = 0;
    uint32_t junk_ = 0;
    unsigned honest_ = 0;
    uint64_t most_comparisons_ = 0;
};

} // namespace

TEST(PayloadTypeSearch, CostsTheSameForEveryPacketWhateverCameBefore)
{
    search_scene scene;
    scene.send_junk(1, 20'000, {});
    EXPECT_LE(scene.most_comparisons(), 6 * kSearchedStreamsMax);
    EXPECT_EQ(scene.streams().size(), kSearchedStreamsMax);
}

// Between two packets of the honest sender come as many of made-up streams.
TEST(PayloadTypeSearch, FindsVideoAmongMadeUpStreams)
{
    struct {
        const char *what;
        uint8_t junk_host; // the sender's is 1
        unsigned per_packet;
        bytes payload;
    } const rows[] = {
        {"empty packets of the sender's host", 1, 1000, {}},
        {"what is no video, of the sender's host", 1, 1000, bytes(100, 0xFF)},
        {"what one packet of video looks like, of the sender's host", 1, 8, h264_inter_slice(100)},
        {"the same, of another host", 2, 1000, h264_inter_slice(100)},
        {"parameter sets, of another host", 2, 1000, h264_parameter_sets()},
    };
    for (const auto &row : rows) {
        search_scene scene;
        scene.send_junk(row.junk_host, 2000, row.payload);
        unsigned packets = 1;
        while (!scene.send_honest(1) && packets < 20) {
            scene.send_junk(row.junk_host, row.per_packet, row.payload);
            ++packets;
        }
        EXPECT_LE(packets, 6u) << row.what;
        EXPECT_LE(scene.most_comparisons(), 6 * kSearchedStreamsMax) << row.what;
    }
}

TEST(PayloadTypeSearch, GivesUpFirstWhatSentEnoughToBeVideoAndIsNot)
{
    search_scene scene;
    for (uint16_t seq = 0; seq < 40; ++seq) {
        for (uint32_t ssrc = 1; ssrc <= kSearchedStreamsMax; ++ssrc) {
            // Half of it looks like video.
            EXPECT_FALSE(
                scene.send(1, {seq, seq * 3000u, true, ssrc, 97}, seq % 2 == 0 ? h264_inter_slice(50) : bytes{0xFF}));
        }
    }
    unsigned packets = 1;
    while (!scene.send_honest(1) && packets < 20) {
        scene.send_junk(1, 8, h264_inter_slice(100));
        ++packets;
    }
    EXPECT_LE(packets, 6u);
}

TEST(PayloadTypeSearch, TakesNoStaticTypeAndNoOtherCodec)
{
    search_scene scene;
    payload_type_search other(VIDEO_TYPE_H265);
    for (uint16_t seq = 0; seq < 50; ++seq) {
        EXPECT_FALSE(scene.send(1, {seq, seq * 3000u, true, 5, 34}, h264_inter_slice(100)));
        const bytes packet = rtp({seq, seq * 3000u, true, 5, 96}, h264_inter_slice(100));
        EXPECT_FALSE(other.observe({{}, {packet.data(), packet.size()}}, seq));
        EXPECT_FALSE(other.observe({{}, {packet.data(), 5}}, seq));
    }
    EXPECT_EQ(other.streams().size(), 1u);
    EXPECT_EQ(other.streams()[0].codec, VIDEO_TYPE_H264);
}
