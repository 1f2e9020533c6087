#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <set>

#include "rtcp_text.h"
#include "wire/rtcp.h"

namespace
{

const rtcp_report_block kBlock = {0xA0A1A2A3, 64, 5, 0x00021234, 100, 0xB705A000, 65536};
const char kBlockHex[] = " A0A1A2A3 40000005 00021234 00000064 B705A000 00010000";

// Memory that ends where the capacity does.
struct output_memory {
    explicit output_memory(size_t capacity) : memory(new uint8_t[capacity]), out{memory.get(), capacity, 0}
    {
        std::fill_n(memory.get(), capacity, uint8_t{0xEE});
    }

    bytes written() const
    {
        return bytes(memory.get(), memory.get() + out.size);
    }

    std::unique_ptr<uint8_t[]> memory;
    rtcp_output out;
};

size_t nack_write(rtcp_output *out, const std::vector<seq_t> &seqs)
{
    size_t fitted = 0;
    const size_t size = rtcp_nack_write(out, 0x22222222, 0x11111111, seqs.data(), seqs.size(), &fitted);
    EXPECT_EQ(size > 0 ? seqs.size() : 0, fitted);
    return size;
}

size_t remb_write(rtcp_output *out, uint64_t bitrate, const std::vector<uint32_t> &ssrcs)
{
    return rtcp_remb_write(out, 0x22222222, bitrate, ssrcs.data(), ssrcs.size());
}

struct writing_case {
    const char *name;
    std::function<size_t(rtcp_output *)> write;
    std::string wire;
};

const std::vector<writing_case> &writings()
{
    static const std::vector<rtcp_report_block> two = {kBlock, kBlock};
    static const std::vector<writing_case> rows = {
        {"report without blocks", [](auto out) { return rtcp_rr_write(out, 0x22222222, nullptr, 0); },
         "80 C9 0001 22222222"},
        {"report of one block", [](auto out) { return rtcp_rr_write(out, 0x22222222, &kBlock, 1); },
         std::string("81 C9 0007 22222222") + kBlockHex},
        {"report of two blocks", [](auto out) { return rtcp_rr_write(out, 0x22222222, two.data(), 2); },
         std::string("82 C9 000D 22222222") + kBlockHex + kBlockHex},
        {"name ended by one zero", [](auto out) { return rtcp_sdes_write(out, 0x22222222, "a", 1); },
         "81 CA 0002 22222222 01 01 61 00"},
        {"name ended by three zeroes", [](auto out) { return rtcp_sdes_write(out, 0x22222222, "abc", 3); },
         "81 CA 0003 22222222 01 03 616263 000000"},
        {"name ended by a word", [](auto out) { return rtcp_sdes_write(out, 0x22222222, "ab", 2); },
         "81 CA 0003 22222222 01 02 6162 00000000"},
        {"picture loss", [](auto out) { return rtcp_pli_write(out, 0x22222222, 0x11111111); },
         "81 CE 0002 22222222 11111111"},
        {"key frame request",
         [](auto out) {
             return rtcp_fir_write(out, 0x22222222, {0x11111111, 255});
         },
         "84 CE 0004 22222222 00000000 11111111 FF000000"},
        {"bitrate 0", [](auto out) { return remb_write(out, 0, {0x11111111}); },
         "8F CE 0005 22222222 00000000 52454D42 01000000 11111111"},
        {"largest bitrate without an exponent", [](auto out) { return remb_write(out, 262143, {0x11111111}); },
         "8F CE 0005 22222222 00000000 52454D42 0103FFFF 11111111"},
        {"smallest bitrate with one", [](auto out) { return remb_write(out, 262144, {0x11111111}); },
         "8F CE 0005 22222222 00000000 52454D42 01060000 11111111"},
        {"bitrate rounded down", [](auto out) { return remb_write(out, 262145, {0x11111111}); },
         "8F CE 0005 22222222 00000000 52454D42 01060000 11111111"},
        {"1 Mbit/s for two",
         [](auto out) {
             return remb_write(out, 1000000, {0x11111111, 0x33333333});
         },
         "8F CE 0006 22222222 00000000 52454D42 020BD090 11111111 33333333"},
        {"no limit", [](auto out) { return remb_write(out, UINT64_MAX, {0x11111111}); },
         "8F CE 0005 22222222 00000000 52454D42 01BBFFFF 11111111"},
        {"one number", [](auto out) { return nack_write(out, {100}); }, "81 CD 0003 22222222 11111111 0064 0000"},
        {"numbers 1 and 16 behind",
         [](auto out) {
             return nack_write(out, {100, 101, 116});
         },
         "81 CD 0003 22222222 11111111 0064 8001"},
        {"number 17 behind",
         [](auto out) {
             return nack_write(out, {100, 117});
         },
         "81 CD 0004 22222222 11111111 0064 0000 0075 0000"},
        {"numbers across 65535",
         [](auto out) {
             return nack_write(out, {65534, 65535, 0, 14, 15});
         },
         "81 CD 0004 22222222 11111111 FFFE 8003 000F 0000"},
        {"a number twice",
         [](auto out) {
             return nack_write(out, {100, 100, 101, 101});
         },
         "81 CD 0003 22222222 11111111 0064 0001"},
        {"numbers out of order",
         [](auto out) {
             return nack_write(out, {101, 100});
         },
         "81 CD 0004 22222222 11111111 0065 0000 0064 0000"},
    };
    return rows;
}

TEST(RtcpWriting, PutsEveryBitInItsPlace)
{
    for (const writing_case &row : writings()) {
        SCOPED_TRACE(row.name);
        const bytes expected = hex(row.wire);
        output_memory memory(expected.size());
        EXPECT_EQ(expected.size(), row.write(&memory.out));
        EXPECT_EQ(expected, memory.written());
    }
}

// A NACK of more than one pair is shortened instead; it has tests of its own.
TEST(RtcpWriting, WritesNothingWithoutRoomForAll)
{
    for (const writing_case &row : writings()) {
        const size_t size = hex(row.wire).size();
        const bool can_be_shortened = row.wire.compare(0, 8, "81 CD 00") == 0;
        for (size_t capacity = 0; capacity < (can_be_shortened ? 16 : size); capacity++) {
            SCOPED_TRACE(std::string(row.name) + " into " + std::to_string(capacity));
            output_memory memory(capacity);
            EXPECT_EQ(0u, row.write(&memory.out));
            EXPECT_EQ(0u, memory.out.size);
        }
    }
}

TEST(RtcpWriting, AppendsBehindWhatIsThere)
{
    output_memory memory(12 + 8 + 7);
    EXPECT_EQ(8u, rtcp_rr_write(&memory.out, 0x22222222, nullptr, 0));
    EXPECT_EQ(12u, rtcp_pli_write(&memory.out, 0x22222222, 0x11111111));
    EXPECT_EQ(0u, rtcp_rr_write(&memory.out, 0x22222222, nullptr, 0));
    EXPECT_EQ(hex("80 C9 0001 22222222 81 CE 0002 22222222 11111111"), memory.written());
}

TEST(RtcpWriting, RefusesCountsThatTheFormatCannotHold)
{
    const std::vector<rtcp_report_block> blocks(32, kBlock);
    const std::vector<uint32_t> ssrcs(256, 0x11111111);
    const std::string name(256, 'n');
    output_memory memory(4096);
    rtcp_output *out = &memory.out;
    EXPECT_EQ(0u, rtcp_rr_write(out, 1, blocks.data(), 32));
    EXPECT_EQ(0u, rtcp_sdes_write(out, 1, name.data(), 0));
    EXPECT_EQ(0u, rtcp_sdes_write(out, 1, name.data(), 256));
    EXPECT_EQ(0u, rtcp_remb_write(out, 1, 1, ssrcs.data(), 0));
    EXPECT_EQ(0u, rtcp_remb_write(out, 1, 1, ssrcs.data(), 256));
    EXPECT_EQ(0u, out->size);
    EXPECT_EQ(8u + 31 * 24, rtcp_rr_write(out, 1, blocks.data(), 31));
    EXPECT_EQ(268u, rtcp_sdes_write(out, 1, name.data(), 255));
    EXPECT_EQ(20u + 255 * 4, rtcp_remb_write(out, 1, 1, ssrcs.data(), 255));
}

TEST(RtcpWriting, ClampsTheLossTo24Bits)
{
    const struct {
        int32_t lost;
        const char *wire;
    } rows[] = {{8388607, "7FFFFF"}, {8388608, "7FFFFF"},  {INT32_MAX, "7FFFFF"},
                {-1, "FFFFFF"},      {-8388608, "800000"}, {INT32_MIN, "800000"}};
    for (const auto &row : rows) {
        rtcp_report_block block = kBlock;
        block.cumulative_lost = row.lost;
        output_memory memory(32);
        ASSERT_EQ(32u, rtcp_rr_write(&memory.out, 1, &block, 1));
        const bytes written = memory.written();
        EXPECT_EQ(hex(row.wire), bytes(written.begin() + 13, written.begin() + 16)) << row.lost;
    }
}

// ---- NACK --------------------------------------------------------------------------------------------------------

TEST(RtcpNackWriting, IsNeverEmpty)
{
    output_memory memory(100);
    size_t fitted = 1;
    EXPECT_EQ(0u, rtcp_nack_write(&memory.out, 1, 2, nullptr, 0, &fitted));
    EXPECT_EQ(0u, fitted);
    EXPECT_EQ(0u, memory.out.size);
}

TEST(RtcpNackWriting, SaysHowManyNumbersFitted)
{
    // Pairs: 10 to 12; 100; 200 and 216.
    const seq_t seqs[] = {10, 11, 12, 100, 200, 216};
    const size_t by_pairs[] = {0, 3, 4, 6};
    for (size_t capacity = 0; capacity <= 30; capacity++) {
        const size_t n_pairs = capacity < 16 ? 0 : std::min<size_t>((capacity - 12) / 4, 3);
        output_memory memory(capacity);
        size_t fitted = 99;
        EXPECT_EQ(n_pairs == 0 ? 0 : 12 + 4 * n_pairs, rtcp_nack_write(&memory.out, 1, 2, seqs, 6, &fitted));
        EXPECT_EQ(by_pairs[n_pairs], fitted) << "into " << capacity;
    }
}

TEST(RtcpNackWriting, StopsAtTheLargestPacketThereIs)
{
    // Steps of 17: a pair for each number. 65533 pairs and the three words in front are 65536 words.
    std::vector<seq_t> seqs;
    for (unsigned i = 0; i < 70000; i++) {
        seqs.push_back(static_cast<seq_t>(17 * i));
    }
    output_memory memory(300000);
    size_t fitted = 0;
    EXPECT_EQ(262144u, rtcp_nack_write(&memory.out, 1, 2, seqs.data(), seqs.size(), &fitted));
    EXPECT_EQ(65533u, fitted);
    EXPECT_TRUE(rtcp_validate(memory.out.bytes, memory.out.size));
}

// All numbers of a NACK.
std::vector<seq_t> nack_read(const bytes &datagram)
{
    rtcp_cursor cursor = rtcp_cursor_begin(datagram.data(), datagram.size());
    rtcp_item item = {};
    std::vector<seq_t> seqs;
    if (rtcp_next(&cursor, &item) && item.kind == RTCP_ITEM_NACK) {
        rtcp_nack_cursor numbers = rtcp_nack_begin(&item.nack);
        seq_t seq = 0;
        while (rtcp_nack_next(&numbers, &seq)) {
            seqs.push_back(seq);
        }
    }
    return seqs;
}

TEST(RtcpNackWriting, CarriesExactlyTheNumbersGivenInTheirOrder)
{
    std::mt19937 random(0xB1B);
    for (int round = 0; round < 20000; round++) {
        // Mostly near the wrap, with gaps of around a pair's span, up to once around.
        seq_t seq = static_cast<seq_t>(random() % 2 != 0 ? 65536 - random() % 100 : random());
        const size_t gap = 1 + random() % 40;
        std::vector<seq_t> seqs;
        size_t distance = 0;
        for (size_t n = 1 + random() % 60; n > 0 && distance < 65000; n--) {
            seqs.push_back(seq);
            const size_t step = 1 + random() % gap;
            seq = static_cast<seq_t>(seq + step);
            distance += step;
        }
        output_memory memory(12 + 4 * seqs.size());
        ASSERT_GT(nack_write(&memory.out, seqs), 0u);
        ASSERT_EQ(seqs, nack_read(memory.written())) << "round " << round;
    }
}

TEST(RtcpNackWriting, CarriesTheSameSetWhateverTheOrder)
{
    std::mt19937 random(0xB1B);
    for (int round = 0; round < 5000; round++) {
        std::vector<seq_t> seqs(1 + random() % 50);
        const size_t first = random();
        for (seq_t &seq : seqs) {
            seq = static_cast<seq_t>(first + random() % 100);
        }
        output_memory memory(12 + 4 * seqs.size());
        ASSERT_GT(nack_write(&memory.out, seqs), 0u);
        const std::vector<seq_t> read = nack_read(memory.written());
        ASSERT_EQ(std::set<seq_t>(seqs.begin(), seqs.end()), std::set<seq_t>(read.begin(), read.end()))
            << "round " << round;
    }
}

// ---- Datagrams ---------------------------------------------------------------------------------------------------

TEST(RtcpCompound, BeginsWithReportAndName)
{
    const rtcp_report report = {0x22222222, &kBlock, 1, "ab", 2};
    output_memory memory(200);
    EXPECT_EQ(32u + 16, rtcp_report_write(&memory.out, &report));
    EXPECT_EQ(hex(std::string("81 C9 0007 22222222") + kBlockHex + "81 CA 0003 22222222 01 02 6162 00000000"),
              memory.written());
}

TEST(RtcpCompound, CanDoWithoutAName)
{
    const rtcp_report report = {0x22222222, nullptr, 0, nullptr, 0};
    output_memory memory(200);
    EXPECT_EQ(8u, rtcp_report_write(&memory.out, &report));
    EXPECT_EQ(hex("80 C9 0001 22222222"), memory.written());
}

TEST(RtcpCompound, BeginsWithAllOrNothing)
{
    const rtcp_report report = {0x22222222, &kBlock, 1, "ab", 2};
    for (size_t capacity = 0; capacity < 48; capacity++) {
        output_memory memory(capacity);
        EXPECT_EQ(0u, rtcp_report_write(&memory.out, &report)) << "into " << capacity;
        EXPECT_EQ(0u, memory.out.size);
    }
}

void feedback_write(rtcp_output *out)
{
    nack_write(out, {65535, 3});
    rtcp_pli_write(out, 0x22222222, 0x11111111);
    rtcp_fir_write(out, 0x22222222, {0x11111111, 9});
    remb_write(out, 2500000, {0x11111111, 0x33333333});
}

const char kFeedbackText[] = "NACK 22222222 for 11111111: 65535 3\n"
                             "PLI 22222222 for 11111111\n"
                             "FIR 22222222 for 11111111 #9\n"
                             "REMB 22222222 2500000 for 11111111 33333333";

TEST(RtcpRoundTrip, CompoundIsReadBack)
{
    const rtcp_report report = {0x22222222, &kBlock, 1, "viewer@example", 14};
    output_memory memory(200);
    ASSERT_GT(rtcp_report_write(&memory.out, &report), 0u);
    feedback_write(&memory.out);
    EXPECT_EQ(std::string("RR 22222222 [A0A1A2A3 fraction 64 lost 5 highest 21234 jitter 100 lsr B705A000 dlsr 65536]\n"
                          "CNAME 22222222 'viewer@example'\n") +
                  kFeedbackText,
              rtcp_to_text(memory.written()));
}

TEST(RtcpRoundTrip, ReducedSizeIsReadBack)
{
    output_memory memory(200);
    feedback_write(&memory.out);
    EXPECT_EQ(kFeedbackText, rtcp_to_text(memory.written()));
}

TEST(RtcpRoundTrip, RandomReportBlocksAreReadBack)
{
    std::mt19937 random(3550);
    const auto any = [&random] { return static_cast<uint32_t>(random()); };
    for (int round = 0; round < 10000; round++) {
        const int32_t lost = static_cast<int32_t>(random() % 0x1000000) - 0x800000;
        const rtcp_report_block block = {any(), static_cast<uint8_t>(any()), lost, any(), any(), any(), any()};
        output_memory memory(32);
        ASSERT_EQ(32u, rtcp_rr_write(&memory.out, 1, &block, 1));
        const rtcp_list list = {memory.out.bytes + 8, 1};
        const rtcp_report_block read = rtcp_block_at(&list, 0);
        ASSERT_EQ(block.ssrc, read.ssrc);
        ASSERT_EQ(block.fraction_lost, read.fraction_lost);
        ASSERT_EQ(block.cumulative_lost, read.cumulative_lost);
        ASSERT_EQ(block.highest_seq, read.highest_seq);
        ASSERT_EQ(block.jitter, read.jitter);
        ASSERT_EQ(block.last_sr, read.last_sr);
        ASSERT_EQ(block.delay_since_sr, read.delay_since_sr);
    }
}

// The bitrate read is at most the one given, and less than one part in 2^17 below it.
TEST(RtcpRoundTrip, BitrateLosesLessThan18SignificantBits)
{
    std::mt19937_64 random(5104);
    for (int round = 0; round < 10000; round++) {
        const uint64_t bitrate = random() >> (random() % 64);
        output_memory memory(24);
        ASSERT_EQ(24u, remb_write(&memory.out, bitrate, {1}));
        rtcp_cursor cursor = rtcp_cursor_begin(memory.out.bytes, memory.out.size);
        rtcp_item item = {};
        ASSERT_TRUE(rtcp_next(&cursor, &item));
        ASSERT_EQ(RTCP_ITEM_REMB, item.kind);
        ASSERT_LE(item.remb.bitrate, bitrate);
        ASSERT_LE(bitrate - item.remb.bitrate, bitrate >> 17);
    }
}

} // namespace
