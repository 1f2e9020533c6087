#include "depacketizer.h"

#include <algorithm>
#include <iterator>

#include "depacketizer_frame.h"
#include "depacketizer_random.h"
#include "video_stream.h"

namespace
{

// The type stands in bits 1 to 6 of a first byte; the second byte is layer 0, temporal id 1. Type 1 is 02, 19
// (IDR) 26, 32 (VPS) 40, 33 (SPS) 42, 34 (PPS) 44, aggregation (48) 60, fragmentation (49) 62. FU headers: 93
// starts type 19, 13 goes on, 53 ends it.

class DepacketizerH265 : public testing::TestWithParam<depacketizer_case>
{
};

TEST_P(DepacketizerH265, Unpacks)
{
    expect_unpacked(depacketizer_h265_packet, GetParam());
}

const depacketizer_case kSingle[] = {
    {"PutsStartCodeBeforeSingleUnit", {"26 01 AF 08"}, {"26 01 AF 08"}},
    {"TakesUnitOfHeaderAlone", {"48 01"}, {"48 01"}},
    {"JoinsPacketsInOrder", {"40 01 0C", "42 01 01", "44 01 C0"}, {"40 01 0C", "42 01 01", "44 01 C0"}},
    {"TakesLowestType", {"00 01 01"}, {"00 01 01"}},
    {"TakesHighestType", {"5E 01 01"}, {"5E 01 01"}},
    {"KeepsForbiddenBit", {"A6 01 01"}, {"A6 01 01"}},
    {"KeepsLayerAndTemporalId", {"27 FF 01"}, {"27 FF 01"}},
    {"IgnoresPaci", {"64 01 26 00 01", "02 01 05"}, {"02 01 05"}},
    {"IgnoresType51", {"66 01 26", "02 01 05"}, {"02 01 05"}},
    {"IgnoresType63", {"7E 01 26", "02 01 05"}, {"02 01 05"}},
    {"IgnoresHalfAHeader", {"26", "02 01 05"}, {"02 01 05"}},
    {"IgnoresEmptyPacket", {"", "02 01 05"}, {"02 01 05"}},
};
INSTANTIATE_TEST_SUITE_P(SingleUnit, DepacketizerH265, testing::ValuesIn(kSingle), case_name);

const depacketizer_case kAggregates[] = {
    {"SplitsIntoUnits", {"60 01 00 03 40 01 0C 00 04 42 01 01 60"}, {"40 01 0C", "42 01 01 60"}},
    {"TakesUnitsOfHeaderAlone", {"60 01 00 02 48 01 00 02 4A 01"}, {"48 01", "4A 01"}},
    {"PassesOverEmptyUnits", {"60 01 00 00 00 02 40 01 00 00"}, {"40 01"}},
    {"DropsUnitOfHalfAHeader", {"60 01 00 01 40 00 02 42 01"}, {"42 01"}},
    {"DropsNestedAggregateAndKeepsTheRest",
     {"60 01 00 02 40 01 00 06 60 01 00 02 42 01 00 02 44 01"},
     {"40 01", "44 01"}},
    {"DropsNestedFragmentAndKeepsTheRest", {"60 01 00 04 62 01 93 01 00 02 44 01"}, {"44 01"}},
    {"DropsNestedPaci", {"60 01 00 02 64 01 00 02 44 01"}, {"44 01"}},
    {"DropsUnitThatIsCut", {"60 01 00 02 40 01 00 03 42 01"}, {"40 01"}},
    {"DropsUnitOfEnormousSize", {"60 01 00 02 40 01 FF FF 42 01"}, {"40 01"}},
    {"EndsAtHalfASize", {"60 01 00 02 40 01 00"}, {"40 01"}},
    {"IsEmptyWithoutUnits", {"60 01"}, {}},
    {"IsEmptyWithHalfAHeader", {"60"}, {}},
};
INSTANTIATE_TEST_SUITE_P(Aggregate, DepacketizerH265, testing::ValuesIn(kAggregates), case_name);

const depacketizer_case kFragments[] = {
    {"JoinsFragments", {"62 01 93 01 02", "62 01 13 03", "62 01 53 04"}, {"26 01 01 02 03 04"}},
    {"JoinsStartAndEnd", {"62 01 93 01", "62 01 53 02"}, {"26 01 01 02"}},
    {"KeepsLayerAndTemporalId", {"63 F3 93 01", "63 F3 53 02"}, {"27 F3 01 02"}},
    {"KeepsForbiddenBit", {"E2 01 93 01", "62 01 53 02"}, {"A6 01 01 02"}},
    {"TakesType0", {"62 01 80 01", "62 01 40 02"}, {"00 01 01 02"}},
    {"TakesHighestType", {"62 01 AF 01", "62 01 6F 02"}, {"5E 01 01 02"}},
    {"KeepsUnitsAround", {"40 01", "62 01 93 01", "62 01 53 02", "02 01"}, {"40 01", "26 01 01 02", "02 01"}},
    {"JoinsSeveralUnits", {"62 01 93 01", "62 01 53 02", "62 01 81 03", "62 01 41 04"}, {"26 01 01 02", "02 01 03 04"}},
    {"TakesEmptyStart", {"62 01 93", "62 01 13 01", "62 01 53 02"}, {"26 01 01 02"}},
    {"TakesAUnitInOneFragment", {"40 01", "62 01 D3 01", "02 01"}, {"40 01", "26 01 01", "02 01"}},
    {"TakesEmptyMiddle", {"62 01 93 01", "62 01 13", "62 01 53 02"}, {"26 01 01 02"}},
    {"TakesEmptyEnd", {"62 01 93 01", "62 01 13 02", "62 01 53"}, {"26 01 01 02"}},
};
INSTANTIATE_TEST_SUITE_P(Fragments, DepacketizerH265, testing::ValuesIn(kFragments), case_name);

const depacketizer_case kLosses[] = {
    {"DropsRestWithoutStart", {"62 01 13 03", "62 01 53 04", "02 01"}, {"02 01"}},
    {"DropsRestWithoutStartBehindAUnit", {"40 01", "62 01 13 03", "62 01 53 04"}, {"40 01"}},
    {"DropsRestAfterAnotherUnitsEnd", {"62 01 93 01", "62 01 53 02", "62 01 13 03", "62 01 53 04"}, {"26 01 01 02"}},
    {"TakesBackWhenMiddleIsMissing", {"40 01", "62 01 93 01", "", "62 01 53 04", "02 01"}, {"40 01", "02 01"}},
    {"TakesBackWhenEndIsMissing", {"40 01", "62 01 93 01", "62 01 13 02", "", "02 01"}, {"40 01", "02 01"}},
    {"TakesBackForAnotherUnit", {"62 01 93 01", "62 01 13 02", "02 01"}, {"02 01"}},
    {"TakesBackForAnAggregate", {"62 01 93 01", "60 01 00 02 40 01 00 02 42 01"}, {"40 01", "42 01"}},
    {"TakesBackForAnotherStart", {"62 01 93 01", "62 01 93 02", "62 01 53 03"}, {"26 01 02 03"}},
    {"TakesBackForAnotherTypesMiddle", {"62 01 93 01", "62 01 01 02", "62 01 53 03"}, {}},
    {"TakesBackForAnotherTypesEnd", {"40 01", "62 01 93 01", "62 01 41 02", "62 01 53 03"}, {"40 01"}},
    {"TakesBackForAnIgnoredPacket", {"62 01 93 01", "64 01 00", "62 01 53 03"}, {}},
    {"TakesBackForACutFragment", {"62 01 93 01", "62 01", "62 01 53 03"}, {}},
    {"TakesBackForAUnitInOneFragment", {"62 01 93 01", "62 01 D3 02", "62 01 53 03"}, {"26 01 02"}},
    {"DropsRestBehindAUnitInOneFragment", {"62 01 D3 01", "62 01 13 02", "62 01 53 03"}, {"26 01 01"}},
    {"DropsFragmentsOfPacketTypes", {"62 01 B0 01", "62 01 70 02", "62 01 B1 01", "62 01 71 02"}, {}},
    {"TakesBackOnlyTheOpenUnit",
     {"62 01 93 01", "62 01 53 02", "62 01 81 03", "02 01 04"},
     {"26 01 01 02", "02 01 04"}},
};
INSTANTIATE_TEST_SUITE_P(Losses, DepacketizerH265, testing::ValuesIn(kLosses), case_name);

TEST(DepacketizerH265Counters, AdvanceByTheBytesWrittenAndStepBackWithTheUnit)
{
    depacketizer_frame frame(depacketizer_h265_packet, hex_all({"40 01", "62 01 93 01 02", "62 01 13 03", "02 01"}));
    frame.add(hex("40 01"));
    EXPECT_EQ(6u, frame.offset());
    frame.add(hex("62 01 93 01 02"));
    EXPECT_EQ(14u, frame.offset());
    frame.add(hex("62 01 13 03"));
    EXPECT_EQ(15u, frame.offset());
    frame.add(hex("02 01"));
    EXPECT_EQ(12u, frame.offset());
}

TEST(DepacketizerH265Arguments, StopWithoutABufferOrCounters)
{
    bytes data(64);
    const bytes packet = hex("26 01");
    const uint8_t *end = packet.data() + packet.size();
    size_t offset = 0;
    size_t size = 0;
    EXPECT_NE(0, depacketizer_h265_packet(nullptr, packet.data(), end, &offset, &size));
    EXPECT_NE(0, depacketizer_h265_packet(data.data(), packet.data(), end, nullptr, &size));
    EXPECT_NE(0, depacketizer_h265_packet(data.data(), packet.data(), end, &offset, nullptr));
    EXPECT_EQ(0u, offset);
    EXPECT_EQ(0u, size);
}

TEST(DepacketizerH265Cut, KeepsWholeUnitsOfAnAggregateCutAnywhere)
{
    expect_whole_units_of_every_cut(depacketizer_h265_packet,
                                    hex("60 01 00 03 40 01 0C 00 02 42 01 00 05 26 01 02 03 04"),
                                    hex_all({"40 01 0C", "42 01", "26 01 02 03 04"}), {7, 11, 18});
}

TEST(DepacketizerH265Cut, KeepsWhatIsThereOfAStartCutAnywhere)
{
    const bytes packet = hex("62 01 93 01 02");
    const std::vector<std::vector<std::string>> expected = {{}, {}, {}, {"26 01"}, {"26 01 01"}, {"26 01 01 02"}};
    for (size_t size = 0; size <= packet.size(); size++) {
        const bytes cut(packet.begin(), packet.begin() + static_cast<ptrdiff_t>(size));
        EXPECT_EQ(annexb(hex_all(expected[size])), unpack_frame(depacketizer_h265_packet, {cut})) << size;
    }
}

TEST(DepacketizerH265Headroom, KeepsTheFirstUnitsOfAnAggregateThatFit)
{
    // 2 + 4 n bytes come in and 6 n go out: with 32 more there is room for (34 + 4 n) / 6 units.
    const struct {
        size_t units_in;
        size_t units_out;
    } rows[] = {{8, 8}, {17, 17}, {18, 17}, {19, 18}, {40, 32}, {1000, 672}};
    for (const auto &row : rows) {
        bytes packet = hex("60 01");
        for (size_t i = 0; i < row.units_in; i++) {
            packet.insert(packet.end(), {0, 2, 0x02, 0x01});
        }
        const std::vector<bytes> expected(row.units_out, hex("02 01"));
        EXPECT_EQ(annexb(expected), unpack_frame(depacketizer_h265_packet, {packet})) << row.units_in;
    }
}

bytes random_unit(std::mt19937 &random, size_t size)
{
    bytes unit(size);
    for (uint8_t &byte : unit) {
        byte = static_cast<uint8_t>(std::uniform_int_distribution<int>(2, 255)(random));
    }
    unit[0] = static_cast<uint8_t>(std::uniform_int_distribution<int>(1, 47)(random) << 1);
    return unit;
}

bytes fragment_of(const bytes &unit, size_t begin, size_t end, bool is_first, bool is_last)
{
    bytes packet = {static_cast<uint8_t>((unit[0] & 0x81) | (49 << 1)), unit[1],
                    static_cast<uint8_t>((is_first ? 0x80 : 0) | (is_last ? 0x40 : 0) | (unit[0] >> 1))};
    std::copy(unit.begin() + static_cast<ptrdiff_t>(begin), unit.begin() + static_cast<ptrdiff_t>(end),
              std::back_inserter(packet));
    return packet;
}

const packet_writer kWriter = {random_unit, fragment_of, {0x60, 0x01}, 2, VIDEO_TYPE_H265};

TEST(DepacketizerH265Random, GivesBackWhatWasSent)
{
    expect_round_trip(depacketizer_h265_packet, kWriter, 265001);
}

TEST(DepacketizerH265Random, NeverTearsAUnitWhenPacketsAreMissing)
{
    expect_no_torn_unit(depacketizer_h265_packet, kWriter, 265002);
}

TEST(DepacketizerH265Random, WritesOnlyUnitsOfKnownTypesForSpoiledPackets)
{
    packet_source source(kWriter, 265003);
    size_t packets_taken = 0;
    while (packets_taken < 100000) {
        const std::vector<bytes> packets = source.spoiled_frame();
        packets_taken += packets.size();
        for (const bytes &unit : units_of(unpack_frame(depacketizer_h265_packet, packets))) {
            ASSERT_GE(unit.size(), 2u);
            ASSERT_LE((unit[0] & 0x7E) >> 1, 47);
        }
    }
}

} // namespace
