#include "depacketizer.h"

#include <algorithm>
#include <iterator>

#include "depacketizer_frame.h"
#include "depacketizer_random.h"
#include "video_stream.h"

namespace
{

// F and NRI stand in the top three bits of a first byte: 60 with type 1 is 61, with 5 is 65, with 7 is 67, with
// STAP-A (24) is 78, with FU-A (28) is 7C. FU headers: 85 starts type 5, 05 goes on, 45 ends it.

class DepacketizerH264 : public testing::TestWithParam<depacketizer_case>
{
};

TEST_P(DepacketizerH264, Unpacks)
{
    expect_unpacked(depacketizer_h264_packet, GetParam());
}

const depacketizer_case kSingle[] = {
    {"PutsStartCodeBeforeSingleUnit", {"65 88 84"}, {"65 88 84"}},
    {"TakesUnitOfHeaderAlone", {"0A"}, {"0A"}},
    {"JoinsPacketsInOrder", {"67 42", "68 CE", "65 88"}, {"67 42", "68 CE", "65 88"}},
    {"TakesLowestType", {"61 01"}, {"61 01"}},
    {"TakesHighestType", {"77 01"}, {"77 01"}},
    {"KeepsForbiddenBit", {"E5 01"}, {"E5 01"}},
    {"IgnoresType0", {"60 01", "65 02"}, {"65 02"}},
    {"IgnoresStapB", {"79 00 00 00 02 65 01", "65 02"}, {"65 02"}},
    {"IgnoresMtap16", {"7A 00 00 00 05 00 00 00 65 01", "65 02"}, {"65 02"}},
    {"IgnoresMtap24", {"7B 00 00 00 06 00 00 00 00 65 01", "65 02"}, {"65 02"}},
    {"IgnoresFuB", {"7D 85 00 00 01", "65 02"}, {"65 02"}},
    {"IgnoresType30", {"7E 01", "65 02"}, {"65 02"}},
    {"IgnoresType31", {"7F 01", "65 02"}, {"65 02"}},
    {"IgnoresEmptyPacket", {"", "65 02"}, {"65 02"}},
};
INSTANTIATE_TEST_SUITE_P(SingleUnit, DepacketizerH264, testing::ValuesIn(kSingle), case_name);

const depacketizer_case kAggregates[] = {
    {"SplitsIntoUnits", {"78 00 03 67 42 1F 00 02 68 CE"}, {"67 42 1F", "68 CE"}},
    {"TakesUnitsOfOneByte", {"78 00 01 0A 00 01 0B"}, {"0A", "0B"}},
    {"PassesOverEmptyUnits", {"78 00 00 00 02 67 42 00 00 00 01 68 00 00"}, {"67 42", "68"}},
    {"DropsNestedAggregateAndKeepsTheRest", {"78 00 02 67 42 00 05 78 00 02 65 01 00 02 68 CE"}, {"67 42", "68 CE"}},
    {"DropsNestedFragmentAndKeepsTheRest", {"78 00 03 7C 85 01 00 02 68 CE"}, {"68 CE"}},
    {"DropsNestedType31", {"78 00 01 7F 00 01 68"}, {"68"}},
    {"DropsUnitThatIsCut", {"78 00 02 67 42 00 03 68 CE"}, {"67 42"}},
    {"DropsUnitOfEnormousSize", {"78 00 02 67 42 FF FF 68 CE"}, {"67 42"}},
    {"EndsAtHalfASize", {"78 00 02 67 42 00"}, {"67 42"}},
    {"IsEmptyWithoutUnits", {"78"}, {}},
    {"ReadsSizeInNetworkOrder", {"78 01 00 67 42"}, {}},
};
INSTANTIATE_TEST_SUITE_P(Aggregate, DepacketizerH264, testing::ValuesIn(kAggregates), case_name);

const depacketizer_case kFragments[] = {
    {"JoinsFragments", {"7C 85 01 02", "7C 05 03", "7C 45 04"}, {"65 01 02 03 04"}},
    {"JoinsStartAndEnd", {"7C 85 01", "7C 45 02"}, {"65 01 02"}},
    {"TakesImportanceFromIndicator", {"1C 81 01", "1C 41 02"}, {"01 01 02"}},
    {"TakesForbiddenBitFromIndicator", {"FC 85 01", "7C 45 02"}, {"E5 01 02"}},
    {"IgnoresReservedBit", {"7C A5 01", "7C 65 02"}, {"65 01 02"}},
    {"KeepsUnitsAround", {"67 42", "7C 85 01", "7C 45 02", "61 03"}, {"67 42", "65 01 02", "61 03"}},
    {"JoinsSeveralUnits", {"7C 85 01", "7C 45 02", "7C 81 03", "7C 41 04"}, {"65 01 02", "61 03 04"}},
    {"TakesEmptyStart", {"7C 85", "7C 05 01", "7C 45 02"}, {"65 01 02"}},
    {"TakesAUnitInOneFragment", {"67 42", "7C C5 01 02", "61 05"}, {"67 42", "65 01 02", "61 05"}},
    {"TakesAUnitOfHeaderAloneInOneFragment", {"7C C5", "61 05"}, {"65", "61 05"}},
    {"TakesEmptyMiddle", {"7C 85 01", "7C 05", "7C 45 02"}, {"65 01 02"}},
    {"TakesEmptyEnd", {"7C 85 01", "7C 05 02", "7C 45"}, {"65 01 02"}},
};
INSTANTIATE_TEST_SUITE_P(Fragments, DepacketizerH264, testing::ValuesIn(kFragments), case_name);

const depacketizer_case kLosses[] = {
    {"DropsRestWithoutStart", {"7C 05 03", "7C 45 04", "61 05"}, {"61 05"}},
    {"DropsRestWithoutStartBehindAUnit", {"67 42", "7C 05 03", "7C 45 04"}, {"67 42"}},
    {"DropsRestAfterAnotherUnitsEnd", {"7C 85 01", "7C 45 02", "7C 05 03", "7C 45 04"}, {"65 01 02"}},
    {"TakesBackWhenMiddleIsMissing", {"67 42", "7C 85 01", "", "7C 45 04", "61 05"}, {"67 42", "61 05"}},
    {"TakesBackWhenEndIsMissing", {"67 42", "7C 85 01", "7C 05 02", "", "61 05"}, {"67 42", "61 05"}},
    {"TakesBackForAnotherUnit", {"7C 85 01", "7C 05 02", "61 05"}, {"61 05"}},
    {"TakesBackForAnAggregate", {"7C 85 01", "78 00 01 67 00 01 68"}, {"67", "68"}},
    {"TakesBackForAnotherStart", {"7C 85 01", "7C 85 02", "7C 45 03"}, {"65 02 03"}},
    {"TakesBackForAnotherTypesMiddle", {"7C 85 01", "7C 01 02", "7C 45 03"}, {}},
    {"TakesBackForAnotherTypesEnd", {"67 42", "7C 85 01", "7C 41 02", "7C 45 03"}, {"67 42"}},
    {"TakesBackForAnIgnoredPacket", {"7C 85 01", "7F 00", "7C 45 03"}, {}},
    {"TakesBackForACutFragment", {"7C 85 01", "7C", "7C 45 03"}, {}},
    {"TakesBackForAUnitInOneFragment", {"7C 85 01", "7C C5 02", "7C 45 03"}, {"65 02"}},
    {"DropsRestBehindAUnitInOneFragment", {"7C C5 01", "7C 05 02", "7C 45 03"}, {"65 01"}},
    {"DropsFragmentsOfPacketTypes", {"7C 98 01", "7C 58 02", "7C 9C 01", "7C 5C 02"}, {}},
    {"DropsFragmentsOfType0", {"7C 80 01", "7C 40 02"}, {}},
    {"TakesBackOnlyTheOpenUnit", {"7C 85 01", "7C 45 02", "7C 81 03", "61 04"}, {"65 01 02", "61 04"}},
};
INSTANTIATE_TEST_SUITE_P(Losses, DepacketizerH264, testing::ValuesIn(kLosses), case_name);

TEST(DepacketizerH264Counters, AdvanceByTheBytesWrittenAndStepBackWithTheUnit)
{
    depacketizer_frame frame(depacketizer_h264_packet, hex_all({"67 42", "7C 85 01 02", "7C 05 03", "61"}));
    frame.add(hex("67 42"));
    EXPECT_EQ(6u, frame.offset());
    frame.add(hex("7C 85 01 02"));
    EXPECT_EQ(13u, frame.offset());
    frame.add(hex("7C 05 03"));
    EXPECT_EQ(14u, frame.offset());
    frame.add(hex("61"));
    EXPECT_EQ(11u, frame.offset());
}

TEST(DepacketizerH264Counters, AreWhereTheCallerPutThem)
{
    bytes data(64, 0xEE);
    const bytes packet = hex("65 01");
    size_t offset = 10;
    size_t size = 3;
    EXPECT_EQ(0, depacketizer_h264_packet(data.data(), packet.data(), packet.data() + 2, &offset, &size));
    EXPECT_EQ(16u, offset);
    EXPECT_EQ(9u, size);
    EXPECT_EQ(hex("EE 00 00 00 01 65 01 EE"), bytes(data.begin() + 9, data.begin() + 17));
}

TEST(DepacketizerH264Arguments, StopWithoutABufferOrCounters)
{
    bytes data(64);
    const bytes packet = hex("65 01");
    const uint8_t *end = packet.data() + packet.size();
    size_t offset = 0;
    size_t size = 0;
    EXPECT_NE(0, depacketizer_h264_packet(nullptr, packet.data(), end, &offset, &size));
    EXPECT_NE(0, depacketizer_h264_packet(data.data(), packet.data(), end, nullptr, &size));
    EXPECT_NE(0, depacketizer_h264_packet(data.data(), packet.data(), end, &offset, nullptr));
    EXPECT_EQ(0u, offset);
    EXPECT_EQ(0u, size);
}

TEST(DepacketizerH264OpenUnit, OfAnEarlierFrameIsNotContinued)
{
    bytes data(256);
    const bytes start = hex("7C 85 01 02 03");
    const bytes end = hex("7C 45 04");
    size_t offset = 0;
    size_t size = 0;
    ASSERT_EQ(0, depacketizer_h264_packet(data.data(), start.data(), start.data() + start.size(), &offset, &size));
    ASSERT_EQ(8u, size);

    // The next frame in the same memory.
    offset = 0;
    size = 0;
    EXPECT_EQ(0, depacketizer_h264_packet(data.data(), end.data(), end.data() + end.size(), &offset, &size));
    EXPECT_EQ(0u, size);
}

TEST(DepacketizerH264OpenUnit, OfAnotherBufferIsNotContinued)
{
    bytes data(256);
    bytes other(256);
    const bytes start = hex("7C 85 01 02 03");
    const bytes end = hex("7C 45 04");
    size_t offset = 0;
    size_t size = 0;
    ASSERT_EQ(0, depacketizer_h264_packet(data.data(), start.data(), start.data() + start.size(), &offset, &size));
    EXPECT_EQ(0, depacketizer_h264_packet(other.data(), end.data(), end.data() + end.size(), &offset, &size));
    EXPECT_EQ(8u, offset);
    EXPECT_EQ(8u, size);
    EXPECT_EQ(0, depacketizer_h264_packet(data.data(), end.data(), end.data() + end.size(), &offset, &size));
    EXPECT_EQ(8u, offset) << "the unit was closed by the call in between";
}

TEST(DepacketizerH264Cut, KeepsWholeUnitsOfAnAggregateCutAnywhere)
{
    expect_whole_units_of_every_cut(depacketizer_h264_packet, hex("78 00 03 67 42 1F 00 01 68 00 04 65 01 02 03"),
                                    hex_all({"67 42 1F", "68", "65 01 02 03"}), {6, 9, 15});
}

TEST(DepacketizerH264Cut, KeepsWhatIsThereOfAStartCutAnywhere)
{
    const bytes packet = hex("7C 85 01 02 03");
    const std::vector<std::vector<std::string>> expected = {{}, {}, {"65"}, {"65 01"}, {"65 01 02"}, {"65 01 02 03"}};
    for (size_t size = 0; size <= packet.size(); size++) {
        const bytes cut(packet.begin(), packet.begin() + static_cast<ptrdiff_t>(size));
        EXPECT_EQ(annexb(hex_all(expected[size])), unpack_frame(depacketizer_h264_packet, {cut})) << size;
    }
}

TEST(DepacketizerH264Headroom, KeepsTheFirstUnitsOfAnAggregateThatFit)
{
    // 1 + 3 n bytes come in and 5 n go out: with 32 more there is room for (33 + 3 n) / 5 units.
    const struct {
        size_t units_in;
        size_t units_out;
    } rows[] = {{8, 8}, {16, 16}, {17, 16}, {18, 17}, {40, 30}, {1000, 606}};
    for (const auto &row : rows) {
        bytes packet = hex("78");
        for (size_t i = 0; i < row.units_in; i++) {
            packet.insert(packet.end(), {0, 1, 0x61});
        }
        const std::vector<bytes> expected(row.units_out, hex("61"));
        EXPECT_EQ(annexb(expected), unpack_frame(depacketizer_h264_packet, {packet})) << row.units_in;
    }
}

bytes random_unit(std::mt19937 &random, size_t size)
{
    bytes unit(size);
    for (uint8_t &byte : unit) {
        byte = static_cast<uint8_t>(std::uniform_int_distribution<int>(2, 255)(random));
    }
    unit[0] = static_cast<uint8_t>(0x60 | std::uniform_int_distribution<int>(1, 23)(random));
    return unit;
}

bytes fragment_of(const bytes &unit, size_t begin, size_t end, bool is_first, bool is_last)
{
    bytes packet = {static_cast<uint8_t>((unit[0] & 0xE0) | 28),
                    static_cast<uint8_t>((is_first ? 0x80 : 0) | (is_last ? 0x40 : 0) | (unit[0] & 0x1F))};
    std::copy(unit.begin() + static_cast<ptrdiff_t>(begin), unit.begin() + static_cast<ptrdiff_t>(end),
              std::back_inserter(packet));
    return packet;
}

const packet_writer kWriter = {random_unit, fragment_of, {0x78}, 1, VIDEO_TYPE_H264};

TEST(DepacketizerH264Random, GivesBackWhatWasSent)
{
    expect_round_trip(depacketizer_h264_packet, kWriter, 264001);
}

TEST(DepacketizerH264Random, NeverTearsAUnitWhenPacketsAreMissing)
{
    expect_no_torn_unit(depacketizer_h264_packet, kWriter, 264002);
}

TEST(DepacketizerH264Random, WritesOnlyUnitsOfKnownTypesForSpoiledPackets)
{
    packet_source source(kWriter, 264003);
    size_t packets_taken = 0;
    while (packets_taken < 100000) {
        const std::vector<bytes> packets = source.spoiled_frame();
        packets_taken += packets.size();
        for (const bytes &unit : units_of(unpack_frame(depacketizer_h264_packet, packets))) {
            ASSERT_FALSE(unit.empty());
            ASSERT_GE(unit[0] & 0x1F, 1);
            ASSERT_LE(unit[0] & 0x1F, 23);
        }
    }
}

} // namespace
