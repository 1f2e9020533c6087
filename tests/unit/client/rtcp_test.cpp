#include "wire/rtcp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "random_damage.h"
#include "rtcp_text.h"

namespace
{

const char kBlock[] = " A0A1A2A3 40000005 00021234 00000064 B705A000 00010000";
const char kBlockText[] = " [A0A1A2A3 fraction 64 lost 5 highest 21234 jitter 100 lsr B705A000 dlsr 65536]";

const std::string kSenderReport = "80 C8 0006 11111111 E8E9EAEB 80000000 00015F90 00000007 00002000";
const std::string kSenderReportText = "SR 11111111 ntp E8E9EAEB80000000 rtp 90000 packets 7 octets 8192";
const std::string kPli = "81 CE 0002 22222222 11111111";
const std::string kPliText = "PLI 22222222 for 11111111";

struct reading_case {
    const char *name;
    std::string datagram;
    std::string text;
};

void expect_readings(const std::vector<reading_case> &rows)
{
    for (const reading_case &row : rows) {
        EXPECT_EQ(row.text, rtcp_to_text(hex(row.datagram))) << row.name;
    }
}

TEST(RtcpReports, AreReadWithTheirBlocks)
{
    expect_readings({
        {"sender report alone", kSenderReport, kSenderReportText},
        {"sender report, a block", "81 C8 000C" + kSenderReport.substr(10) + kBlock, kSenderReportText + kBlockText},
        {"receiver report alone", "80 C9 0001 22222222", "RR 22222222"},
        {"receiver report, a block", std::string("81 C9 0007 22222222") + kBlock,
         std::string("RR 22222222") + kBlockText},
        {"receiver report, two blocks", std::string("82 C9 000D 22222222") + kBlock + kBlock,
         std::string("RR 22222222") + kBlockText + kBlockText},
        {"profile's own extension behind the block", std::string("81 C9 0008 22222222") + kBlock + "FFFFFFFF",
         std::string("RR 22222222") + kBlockText},
    });
}

TEST(RtcpReports, CarryLossAsANumberWithASign)
{
    const struct {
        const char *wire;
        int lost;
    } rows[] = {{"000000", 0}, {"7FFFFF", 8388607}, {"800000", -8388608}, {"FFFFFF", -1}};
    for (const auto &row : rows) {
        const bytes block = hex(std::string("00000001 00") + row.wire + "00000000 00000000 00000000 00000000");
        const rtcp_list list = {block.data(), 1};
        EXPECT_EQ(row.lost, rtcp_block_at(&list, 0).cumulative_lost) << row.wire;
    }
}

TEST(RtcpSourceDescription, GivesTheCnameOfEachSource)
{
    expect_readings({
        {"filled up to a word", "81 CA 0003 11111111 01 03 616263 000000", "CNAME 11111111 'abc'"},
        {"a whole word of zeroes at the end", "81 CA 0003 11111111 01 02 6162 00000000", "CNAME 11111111 'ab'"},
        {"one zero is enough", "81 CA 0002 11111111 01 01 61 00", "CNAME 11111111 'a'"},
        {"no text", "81 CA 0002 11111111 01 00 00 00", "CNAME 11111111 ''"},
        {"behind another item", "81 CA 0003 11111111 02 01 78 01 01 61 0000", "CNAME 11111111 'a'"},
        {"the first of two counts", "81 CA 0003 11111111 01 01 61 01 01 62 0000", "CNAME 11111111 'a'"},
        {"two sources", "82 CA 0004 11111111 01 01 61 00 22222222 01 01 62 00",
         "CNAME 11111111 'a'\nCNAME 22222222 'b'"},
        {"no CNAME", "81 CA 0002 11111111 02 01 78 00", ""},
        {"no item", "81 CA 0002 11111111 00000000", ""},
        {"no source", "80 CA 0000", ""},
        {"the second source alone has one", "82 CA 0004 11111111 00000000 22222222 01 01 62 00", "CNAME 22222222 'b'"},
    });
}

TEST(RtcpBye, ListsSourcesAndReason)
{
    expect_readings({
        {"one source", "81 CB 0001 11111111", "BYE 11111111 ''"},
        {"two sources", "82 CB 0002 11111111 22222222", "BYE 11111111 22222222 ''"},
        {"a reason", "81 CB 0002 11111111 03 627965", "BYE 11111111 'bye'"},
        {"a reason and zeroes", "81 CB 0003 11111111 04 62796521 000000", "BYE 11111111 'bye!'"},
        {"an empty reason", "81 CB 0002 11111111 00000000", "BYE 11111111 ''"},
        {"no source", "80 CB 0000", "BYE ''"},
    });
}

TEST(RtcpFeedback, IsReadByKind)
{
    const std::string remb = "8F CE 0005 22222222 00000000 52454D42 ";
    const std::string remb_text = "REMB 22222222 ";
    expect_readings({
        {"one number missing", "81 CD 0003 22222222 11111111 0064 0000", "NACK 22222222 for 11111111: 100"},
        {"the next and the last bit", "81 CD 0003 22222222 11111111 0064 8001",
         "NACK 22222222 for 11111111: 100 101 116"},
        {"across 65535", "81 CD 0003 22222222 11111111 FFFE 0006", "NACK 22222222 for 11111111: 65534 0 1"},
        {"two pairs", "81 CD 0004 22222222 11111111 0001 0000 0100 0001", "NACK 22222222 for 11111111: 1 256 257"},
        {"picture loss", kPli, kPliText},
        {"key frame request", "84 CE 0004 22222222 00000000 11111111 07000000", "FIR 22222222 for 11111111 #7"},
        {"two key frame requests", "84 CE 0006 22222222 00000000 11111111 07000000 33333333 FF000000",
         "FIR 22222222 for 11111111 #7 33333333 #255"},
        {"1 Mbit/s", remb + "010BD090 11111111", remb_text + "1000000 for 11111111"},
        {"two sources", "8F CE 0006 22222222 00000000 52454D42 0200FFFF 11111111 33333333",
         remb_text + "65535 for 11111111 33333333"},
        {"no source", "8F CE 0004 22222222 00000000 52454D42 00000001", remb_text + "1 for"},
        {"the largest bitrate", remb + "01BBFFFF 11111111", remb_text + "18446673704965373952 for 11111111"},
        {"a larger one than 64 bits hold", remb + "01FFFFFF 11111111", remb_text + "18446744073709551615 for 11111111"},
        {"zero times much", remb + "01FC0000 11111111", remb_text + "0 for 11111111"},
    });
}

TEST(RtcpDatagram, PassesOverWhatItDoesNotKnow)
{
    expect_readings({
        {"application packet", "80 CC 0002 11111111 41424344", ""},
        {"extended report", "80 CF 0001 11111111" + kPli, kPliText},
        {"another transport feedback", "8F CD 0004 22222222 11111111 00010001 00000000" + kPli, kPliText},
        {"another payload feedback", "82 CE 0003 22222222 11111111 00000000" + kPli, kPliText},
        {"another application's feedback", "8F CE 0003 22222222 00000000 41424344" + kPli, kPliText},
        {"application feedback without a name", "8F CE 0002 22222222 00000000" + kPli, kPliText},
    });
}

TEST(RtcpDatagram, IsReadPacketByPacket)
{
    expect_readings({
        {"compound", kSenderReport + "81 CA 0002 11111111 01 01 61 00" + kPli,
         kSenderReportText + "\nCNAME 11111111 'a'\n" + kPliText},
        {"reduced size", kPli + "81 CB 0001 11111111", kPliText + "\nBYE 11111111 ''"},
        {"padding behind the last packet", kSenderReport + "A1 CE 0003 22222222 11111111 00000004",
         kSenderReportText + "\n" + kPliText},
        {"padding of two words", "A1 CD 0005 22222222 11111111 0064 0000 FFFFFFFF FFFFFF08",
         "NACK 22222222 for 11111111: 100"},
        {"padding behind a text", "A1 CA 0003 11111111 01 01 61 00 00000004", "CNAME 11111111 'a'"},
        {"a packet that is nothing but padding", kPli + "A0 CC 0001 00000004", kPliText},
    });
}

TEST(RtcpDatagram, IsRefusedAsAWhole)
{
    expect_readings({
        {"nothing", "", "refused"},
        {"less than a header", "80 C9 00", "refused"},
        {"version 1", "40 C9 0001 22222222", "refused"},
        {"version 1 in the second packet", kPli + "40 C9 0001 22222222", "refused"},
        {"RTP", "80 60 0001 00000000 22222222", "refused"},
        {"longer than the datagram", kPli + "81 CE 0003 22222222 11111111", "refused"},
        {"a byte too many", kPli + "00", "refused"},
        {"a word too many", kPli + "00000000", "refused"},
        {"padding in front", "A1 CE 0003 22222222 11111111 00000004" + kPli, "refused"},
        {"padding of none", "A1 CE 0003 22222222 11111111 00000000", "refused"},
        {"padding of less than a word", "A1 CE 0003 22222222 11111111 00000003", "refused"},
        {"padding into the header", "A0 CC 0001 00000008", "refused"},
        {"padding into the fields", "A1 CE 0002 22222222 00000004", "refused"},
        {"sender report cut", "80 C8 0005 11111111 E8E9EAEB 80000000 00015F90 00000007", "refused"},
        {"fewer blocks than counted", std::string("82 C9 0007 22222222") + kBlock, "refused"},
        {"blocks in the padding", std::string("A1 C9 0007 22222222") + kBlock, "refused"},
        {"receiver report of nobody", "80 C9 0000", "refused"},
        {"source description without an end", "81 CA 0002 11111111 01 02 6162", "refused"},
        {"source description with no items at all", "81 CA 0001 11111111", "refused"},
        {"text longer than the packet", "81 CA 0002 11111111 01 03 6162", "refused"},
        {"text without a length", "81 CA 0002 11111111 02 01 61 01", "refused"},
        {"fewer sources than counted", "82 CA 0002 11111111 01 01 61 00", "refused"},
        {"fewer sources leave than counted", "82 CB 0001 11111111", "refused"},
        {"reason longer than the packet", "81 CB 0002 11111111 04 627965", "refused"},
        {"NACK for nothing", "81 CD 0002 22222222 11111111", "refused"},
        {"feedback without sources", "81 CE 0001 22222222", "refused"},
        {"key frame request for nobody", "84 CE 0002 22222222 00000000", "refused"},
        {"half a key frame request", "84 CE 0003 22222222 00000000 11111111", "refused"},
        {"bitrate missing", "8F CE 0003 22222222 00000000 52454D42", "refused"},
        {"bitrate for fewer sources", "8F CE 0005 22222222 00000000 52454D42 020BD090 11111111", "refused"},
    });
}

TEST(RtcpDatagram, GivesNothingWhenItsLastPacketIsBad)
{
    const exact_copy datagram(hex(kSenderReport + "81 CD 0002 22222222 11111111"));
    rtcp_cursor cursor = rtcp_cursor_begin(datagram.data(), datagram.size());
    rtcp_item item = {};
    EXPECT_FALSE(rtcp_next(&cursor, &item));
}

TEST(RtcpDatagram, CanOnlyBeCutBetweenPackets)
{
    const std::vector<std::string> packets = {
        kSenderReport,
        std::string("81 C9 0007 22222222") + kBlock,
        "81 CA 0003 11111111 01 03 616263 000000",
        "81 CB 0002 11111111 03 627965",
        "81 CD 0003 22222222 11111111 0064 8001",
        kPli,
        "84 CE 0004 22222222 00000000 11111111 07000000",
        "8F CE 0005 22222222 00000000 52454D42 010BD090 11111111",
    };
    bytes whole;
    std::vector<size_t> ends;
    for (const std::string &packet : packets) {
        const bytes each = hex(packet);
        whole.insert(whole.end(), each.begin(), each.end());
        ends.push_back(whole.size());
    }
    for (size_t size = 0; size <= whole.size(); size++) {
        const bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
        const bool is_end = std::find(ends.begin(), ends.end(), size) != ends.end();
        EXPECT_EQ(is_end, rtcp_to_text(cut) != "refused") << size << " bytes";
    }
}

TEST(RtcpDatagram, SurvivesRandomDamage)
{
    const bytes whole =
        hex(kSenderReport + "82 CA 0006 11111111 02 01 78 01 03 616263 00000000 22222222 01 01 62 00" +
            "82 CB 0003 11111111 22222222 03 627965" + "81 CD 0004 22222222 11111111 0001 0000 0100 0001" +
            "84 CE 0004 22222222 00000000 11111111 07000000" +
            "AF CE 0006 22222222 00000000 52454D42 010BD090 11111111 00000004");
    ASSERT_NE("refused", rtcp_to_text(whole));
    std::mt19937 random(4585);
    int accepted = 0;
    int changed = 0;
    const std::string undamaged = rtcp_to_text(whole);
    for (int round = 0; round < 100000; round++) {
        const std::string text = rtcp_to_text(random_damage(whole, &random));
        accepted += text != "refused" ? 1 : 0;
        changed += text != "refused" && text != undamaged ? 1 : 0;
    }
    EXPECT_GT(accepted, 1000);
    EXPECT_LT(accepted, 99000);
    EXPECT_GT(changed, 1000);
}

TEST(RtcpDemultiplexing, GoesByTheSecondByteAlone)
{
    for (unsigned type = 0; type < 256; type++) {
        const exact_copy datagram(bytes{0x80, static_cast<uint8_t>(type)});
        EXPECT_EQ(type >= 192 && type <= 223, rtcp_is_rtcp(datagram.data(), 2)) << type;
    }
    const exact_copy one(bytes{0x80});
    EXPECT_FALSE(rtcp_is_rtcp(one.data(), 1));
    EXPECT_FALSE(rtcp_is_rtcp(nullptr, 0));
}

} // namespace
