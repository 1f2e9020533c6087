// Readers of packed words and packet bytes, and the codec mapping, on every value.

#include "../../rtc/video_stream.cpp" // NOLINT(bugprone-suspicious-include)

#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

namespace
{

constexpr uint32_t kHalf = 0x10000;

// The first 32-bit word that a test says no to; none is -1.
template <typename Holds> int64_t first_wrong(Holds holds)
{
    for (uint32_t high = 0; high < kHalf; high++) {
        uint32_t wrong = 0;
        for (uint32_t low = 0; low < kHalf; low++) {
            wrong |= holds(high << 16 | low) ? 0U : 1U;
        }
        if (wrong != 0) {
            return static_cast<int64_t>(high) << 16;
        }
    }
    return -1;
}

// The bit of weight 2^n.
uint32_t bit(uint32_t word, uint32_t n)
{
    return word / (1U << n) % 2;
}

// What both numberings know, they number alike.
uint8_t shared_codec(uint32_t codec)
{
    const uint32_t low = codec % 0x100;

    return static_cast<uint8_t>(low == 2 || low == 3 || low == 6 || low == 20 ? low : 254);
}

// Four bytes, and four for each word while there are fewer than 256 of them. Beyond, bits of the two length bytes meet
// that a sum would count twice.
uint32_t extension_size(uint32_t length_high, uint32_t length_low)
{
    uint32_t size = 4 + 0x100 * length_high + 4 * length_low;

    size -= bit(length_high, 0) == 1 && bit(length_low, 6) == 1 ? 0x100 : 0;
    size -= bit(length_high, 1) == 1 && bit(length_low, 7) == 1 ? 0x200 : 0;
    return size;
}

rtn_bytes_t bytes_view(uint8_t *bytes, size_t count)
{
    return {static_cast<uint16_t>(count), static_cast<uint16_t>(count), bytes};
}

} // namespace

TEST(AllWords, HoldTheFecMethodInBits3To5)
{
    EXPECT_EQ(first_wrong(
                  [](uint32_t word) { return fec_method(word) == bit(word, 3) + 2 * bit(word, 4) + 4 * bit(word, 5); }),
              -1);
}

TEST(AllWords, HoldTheFecPacketCountInTheSecondByte)
{
    EXPECT_EQ(first_wrong([](uint32_t word) { return fec_packet_count(word) == word % kHalf / 0x100; }), -1);
}

TEST(AllWords, MapAsCodecsByTheirLowByteToTheNumberThatBothSidesKnow)
{
    EXPECT_EQ(first_wrong([](uint32_t codec) {
                  return video_codec_to_inner(static_cast<video_data_type_e>(codec)) == shared_codec(codec);
              }),
              -1);
    EXPECT_EQ(first_wrong([](uint32_t codec) {
                  return video_codec_to_outer(static_cast<VIDEO_PACKET_TYPE>(codec)) == shared_codec(codec);
              }),
              -1);
}

TEST(AllFrames, AreGenericBelowVersionTenAndByCodec)
{
    video_frame frame = {};

    for (uint32_t version = 0; version < kHalf; version++) {
        frame.protocol_version = static_cast<uint16_t>(version);
        for (uint32_t codec = 0; codec <= 0xFF; codec++) {
            frame.codec = static_cast<uint8_t>(codec);
            const bool is_generic = version <= 9 || codec == 6 || codec == 7 || codec == 20;
            ASSERT_EQ(video_frame_is_generic(&frame), is_generic ? 1 : 0) << version << ' ' << codec;
        }
    }
}

TEST(AllRtpHeaders, AreReadBitByBit)
{
    uint8_t bytes[12] = {};
    const rtn_bytes_t packet = bytes_view(bytes, sizeof(bytes));

    for (uint32_t first = 0; first <= 0xFF; first++) {
        bytes[0] = static_cast<uint8_t>(first);
        ASSERT_EQ(rtp_csrc_count(&packet), bit(first, 0) + 2 * bit(first, 1) + 4 * bit(first, 2) + 8 * bit(first, 3));
        ASSERT_EQ(rtp_has_extension(&packet), bit(first, 4) == 1);
    }
    for (uint32_t second = 0; second <= 0xFF; second++) {
        bytes[1] = static_cast<uint8_t>(second);
        ASSERT_EQ(rtp_marker(&packet), bit(second, 7));
        ASSERT_EQ(rtp_payload_type(&packet), second % 128);
    }
    for (uint32_t seq = 0; seq < kHalf; seq++) {
        bytes[2] = static_cast<uint8_t>(seq / 0x100);
        bytes[3] = static_cast<uint8_t>(seq % 0x100);
        ASSERT_EQ(rtp_seq(&packet), seq);
    }
}

TEST(AllRtpHeaders, HoldTheirTimestampMostSignificantByteFirst)
{
    uint8_t bytes[12] = {};
    const rtn_bytes_t packet = bytes_view(bytes, sizeof(bytes));

    EXPECT_EQ(first_wrong([&](uint32_t timestamp) {
                  bytes[4] = static_cast<uint8_t>(timestamp / 0x1000000);
                  bytes[5] = static_cast<uint8_t>(timestamp / 0x10000);
                  bytes[6] = static_cast<uint8_t>(timestamp / 0x100);
                  bytes[7] = static_cast<uint8_t>(timestamp);
                  return rtp_timestamp(&packet) == timestamp;
              }),
              -1);
}

TEST(AllRtpHeaders, ReadZeroForEveryByteThatIsMissing)
{
    uint8_t bytes[12];
    uint8_t padded[12];

    for (uint32_t count = 0; count <= sizeof(bytes); count++) {
        memset(bytes, 0xFF, sizeof(bytes));
        memset(padded, 0, sizeof(padded));
        memcpy(padded, bytes, count);
        const rtn_bytes_t cut = bytes_view(bytes, count);
        const rtn_bytes_t whole = bytes_view(padded, sizeof(padded));
        EXPECT_EQ(rtp_csrc_count(&cut), rtp_csrc_count(&whole)) << count;
        EXPECT_EQ(rtp_has_extension(&cut), rtp_has_extension(&whole)) << count;
        EXPECT_EQ(rtp_marker(&cut), rtp_marker(&whole)) << count;
        EXPECT_EQ(rtp_payload_type(&cut), rtp_payload_type(&whole)) << count;
        EXPECT_EQ(rtp_seq(&cut), rtp_seq(&whole)) << count;
        EXPECT_EQ(rtp_timestamp(&cut), rtp_timestamp(&whole)) << count;
    }
}

TEST(AllWords, HaveTheirFrameSlotByRemainder)
{
    EXPECT_EQ(first_wrong([](uint32_t frame_seq) {
                  const uint32_t rounds = frame_seq / 40;
                  return frame_pos(frame_seq) == static_cast<int16_t>(frame_seq - rounds * 40);
              }),
              -1);
}

TEST(AllSlots, OfTheIndexAreRemainders)
{
    static rtc_video_frames_t q;

    for (uint32_t seq = 0; seq < kHalf; seq++) {
        const uint32_t rounds = seq / 1280;
        ASSERT_EQ(index_entry(&q, static_cast<seq_t>(seq)) - q.pkt_frame_pos, seq - rounds * 1280);
    }
}

TEST(AllSlots, OfTheRingAreTheLow13Bits)
{
    std::vector<webrtc_video_packet_t> ring(8192);
    webrtc_video_cache_t cache = {};

    cache.pkt_arr = ring.data();
    for (uint32_t seq = 0; seq < kHalf; seq++) {
        const uint32_t rounds = seq / 8192;
        ASSERT_EQ(ring_slot(&cache, seq) - ring.data(), seq - rounds * 8192);
    }
}

// Every value of each byte that has a say: the source count, the extension bit and its length bytes decide where the
// encapsulation begins, and that is decided by the rest.
TEST(AllHeaderSizes, AreTheSumOfTheirParts)
{
    std::vector<uint8_t> bytes(UINT16_MAX);
    const rtn_bytes_t packet = bytes_view(bytes.data(), bytes.size());

    for (uint32_t first = 0; first <= 0xFF; first++) {
        const uint32_t n_sources = first % 16;
        const bool has_extension = first / 16 % 2 == 1;
        const uint32_t fixed = 12 + 4 * n_sources;
        for (uint32_t length = 0; length < kHalf; length++) {
            bytes[0] = static_cast<uint8_t>(first);
            bytes[fixed + 2] = static_cast<uint8_t>(length / 0x100);
            bytes[fixed + 3] = static_cast<uint8_t>(length % 0x100);
            const uint32_t size = fixed + (has_extension ? extension_size(length / 0x100, length % 0x100) : 0);
            ASSERT_EQ(get_packet_header_size(&packet, 0, 0, 0), size) << first << ' ' << length;
            ASSERT_EQ(get_packet_header_size(&packet, 1, 1, 2), size + 2) << first << ' ' << length;
        }
    }
}

TEST(AllHeaderSizes, CountTheEncapsulationByItsMethod)
{
    std::vector<uint8_t> bytes(100);
    const rtn_bytes_t packet = bytes_view(bytes.data(), bytes.size());

    g_log_enable = 0;
    for (uint32_t byte = 0; byte <= 0xFF; byte++) {
        for (uint32_t second = 0; second <= 0xFF; second++) {
            bytes[1] = static_cast<uint8_t>(second);
            bytes[12] = static_cast<uint8_t>(byte);
            for (const bool is_generic : {false, true}) {
                for (const bool is_fec : {false, true}) {
                    const bool is_116 = second % 128 == 116;
                    const uint32_t by_first_byte = is_116 && byte == 127 ? 2 : is_116 && byte == 107 ? 1 : 0;
                    const uint32_t by_kind = is_generic && is_fec ? 2 : is_generic ? 1 : 0;
                    const uint32_t sizes[] = {is_generic ? 1U : 0U, by_first_byte, by_kind, 0, 0, 0, 0, 0};
                    for (uint8_t method = 0; method < 8; method++) {
                        ASSERT_EQ(get_packet_header_size(&packet, is_generic, is_fec, method), 12 + sizes[method])
                            << second << ' ' << byte << ' ' << +method;
                    }
                }
            }
        }
    }
}

TEST(AllHeaderSizes, TakeMissingBytesForZero)
{
    std::vector<uint8_t> bytes(100);
    std::vector<uint8_t> padded(bytes.size());

    for (uint32_t first = 0; first <= 0xFF; first++) {
        for (size_t count = 0; count < bytes.size(); count++) {
            std::fill(bytes.begin(), bytes.end(), uint8_t{0x6B});
            bytes[0] = static_cast<uint8_t>(first);
            bytes[1] = 116;
            std::fill(padded.begin(), padded.end(), uint8_t{0});
            std::copy(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(count), padded.begin());
            const rtn_bytes_t cut = bytes_view(bytes.data(), count);
            const rtn_bytes_t whole = bytes_view(padded.data(), padded.size());
            ASSERT_EQ(get_packet_header_size(&cut, 0, 0, 1), get_packet_header_size(&whole, 0, 0, 1))
                << first << ' ' << count;
        }
    }
}
