#include "codec/nal.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>

#include "hex_bytes.h"
#include "video_stream.h"

namespace
{

nal_summary inspect(uint8_t codec, const bytes &payload)
{
    const auto copy = std::make_unique<uint8_t[]>(payload.size());
    if (!payload.empty()) {
        memcpy(copy.get(), payload.data(), payload.size());
    }
    return nal_inspect(codec, copy.get(), payload.size());
}

struct nal_case {
    const char *name;
    const char *payload;
    bool is_key;
    bool starts_access_unit;
};

void expect_said(uint8_t codec, const nal_case &row)
{
    SCOPED_TRACE(row.name);
    const nal_summary said = inspect(codec, hex(row.payload));
    EXPECT_EQ(row.is_key, said.is_key);
    EXPECT_EQ(row.starts_access_unit, said.starts_access_unit);
}

constexpr bool kKey = true;
constexpr bool kStart = true;

TEST(NalInspectH264, KnowsKeyUnitsAndAccessUnitStartsByType)
{
    for (int type = 0; type < 32; type++) {
        const nal_summary said = inspect(VIDEO_TYPE_H264, {static_cast<uint8_t>(0x60 | type), 0x01});
        EXPECT_EQ(type == 5 || type == 7 || type == 8, said.is_key) << type;
        EXPECT_EQ(type == 7 || type == 9, said.starts_access_unit) << type;
        EXPECT_EQ(type >= 6 && type <= 9, said.leads_picture) << type;
    }
}

const nal_case kH264[] = {
    {"Empty", "", false, false},
    {"IdrOfHeaderAlone", "65", kKey, false},
    {"ForbiddenBit", "E7 42", false, false},
    {"AggregateOfParameterSets", "78 00 02 67 42 00 02 68 CE", kKey, kStart},
    {"AggregateBegunByDelimiter", "78 00 02 09 10 00 02 61 01", false, kStart},
    {"AggregateWithKeyUnitBehindOthers", "78 00 02 06 05 00 02 61 01 00 02 65 88", kKey, false},
    {"AggregateWithSpsInSecondPlace", "78 00 02 68 CE 00 02 67 42", kKey, false},
    {"AggregateBegunByEmptyUnit", "78 00 00 00 02 67 42", kKey, kStart},
    {"AggregateWithKeyUnitCut", "78 00 02 61 01 00 03 65 88", false, false},
    {"AggregateCutInFirstUnit", "78 00 03 67 42", false, false},
    {"AggregateOfForbiddenUnit", "78 00 02 E7 42 00 02 61 01", false, false},
    {"AggregateInAggregate", "78 00 05 78 00 02 67 42", false, false},
    {"AggregateWithoutUnits", "78", false, false},
    {"FirstFragmentOfIdr", "7C 85 88", kKey, false},
    {"MiddleFragmentOfIdr", "7C 05 88", kKey, false},
    {"LastFragmentOfIdr", "7C 45 88", kKey, false},
    {"FragmentWithoutBytes", "7C 05", kKey, false},
    {"FirstFragmentOfSlice", "7C 81 88", false, false},
    {"FirstFragmentOfSps", "7C 87 42", kKey, kStart},
    {"MiddleFragmentOfSps", "7C 07 42", kKey, false},
    {"LastFragmentOfSps", "7C 47 42", kKey, false},
    {"FirstFragmentOfDelimiter", "7C 89 10", false, kStart},
    {"FragmentWithForbiddenBit", "FC 85 88", false, false},
    {"FragmentWithoutItsHeader", "7C", false, false},
    {"UnitInOneFragment", "7C C7 42", kKey, kStart},
    {"FragmentOfAggregate", "7C 98 00 02 67 42", false, false},
    {"StapB", "79 00 00 00 02 67 42", false, false},
    {"Mtap16", "7A 00 00 00 05 00 00 00 67 42", false, false},
    {"FuB", "7D 85 00 00 88", false, false},
};

TEST(NalInspectH264, LooksIntoEveryPacketKind)
{
    for (const nal_case &row : kH264) {
        expect_said(VIDEO_TYPE_H264, row);
    }
}

TEST(NalInspectH265, KnowsKeyUnitsAndAccessUnitStartsByType)
{
    for (int type = 0; type < 64; type++) {
        const nal_summary said = inspect(VIDEO_TYPE_H265, {static_cast<uint8_t>(type << 1), 0x01, 0x01});
        EXPECT_EQ((type >= 16 && type <= 23) || (type >= 32 && type <= 34), said.is_key) << type;
        EXPECT_EQ(type == 32 || type == 35, said.starts_access_unit) << type;
        EXPECT_EQ((type >= 32 && type <= 35) || type == 39, said.leads_picture) << type;
    }
}

const nal_case kH265[] = {
    {"Empty", "", false, false},
    {"HalfAHeader", "26", false, false},
    {"IdrOfHeaderAlone", "26 01", kKey, false},
    {"IdrOfHigherLayer", "27 09", kKey, false},
    {"ForbiddenBit", "C0 01 0C", false, false},
    {"AggregateOfParameterSets", "60 01 00 03 40 01 0C 00 03 42 01 01 00 03 44 01 C0", kKey, kStart},
    {"AggregateBegunByDelimiter", "60 01 00 03 46 01 50 00 02 02 01", false, kStart},
    {"AggregateWithKeyUnitBehindOthers", "60 01 00 02 4E 01 00 02 26 01", kKey, false},
    {"AggregateWithVpsInSecondPlace", "60 01 00 02 42 01 00 02 40 01", kKey, false},
    {"AggregateBegunByEmptyUnit", "60 01 00 00 00 02 40 01", kKey, kStart},
    {"AggregateWithKeyUnitCut", "60 01 00 02 02 01 00 03 26 01", false, false},
    {"AggregateOfHalfAHeader", "60 01 00 01 40", false, false},
    {"AggregateOfForbiddenUnit", "60 01 00 02 C0 01", false, false},
    {"AggregateInAggregate", "60 01 00 06 60 01 00 02 40 01", false, false},
    {"AggregateWithoutUnits", "60 01", false, false},
    {"FirstFragmentOfIdr", "62 01 93 AF", kKey, false},
    {"MiddleFragmentOfIdr", "62 01 13 AF", kKey, false},
    {"LastFragmentOfIdr", "62 01 53 AF", kKey, false},
    {"FragmentWithoutBytes", "62 01 13", kKey, false},
    {"FirstFragmentOfSlice", "62 01 81 AF", false, false},
    {"FirstFragmentOfVps", "62 01 A0 0C", kKey, kStart},
    {"MiddleFragmentOfVps", "62 01 20 0C", kKey, false},
    {"FragmentWithForbiddenBit", "E2 01 93 AF", false, false},
    {"FragmentWithoutItsHeader", "62 01", false, false},
    {"UnitInOneFragment", "62 01 D3 AF", kKey, false},
    {"FragmentOfAggregate", "62 01 B0 00", false, false},
    {"Paci", "64 01 26 00 01", false, false},
};

TEST(NalInspectH265, LooksIntoEveryPacketKind)
{
    for (const nal_case &row : kH265) {
        expect_said(VIDEO_TYPE_H265, row);
    }
}

struct slice_case {
    const char *name;
    const char *payload;
    uint8_t codec;
    bool is_so;
};

// The first bit behind the NAL unit's header decides.
const slice_case kSlices[] = {
    {"H.264 slice from macroblock 0", "61 9A", VIDEO_TYPE_H264, true},
    {"H.264 slice from macroblock 1", "61 4A", VIDEO_TYPE_H264, false},
    {"H.264 data partition A", "62 9A", VIDEO_TYPE_H264, true},
    {"H.264 data partition B", "63 9A", VIDEO_TYPE_H264, false},
    {"H.264 IDR slice from macroblock 0", "65 88", VIDEO_TYPE_H264, true},
    {"H.264 slice without its header", "61", VIDEO_TYPE_H264, false},
    {"H.264 supplemental information", "06 85", VIDEO_TYPE_H264, false},
    {"H.264 first fragment", "7C 81 9A", VIDEO_TYPE_H264, true},
    {"H.264 first fragment of a later slice", "7C 81 4A", VIDEO_TYPE_H264, false},
    {"H.264 first fragment without bytes", "7C 81", VIDEO_TYPE_H264, false},
    {"H.264 middle fragment", "7C 01 9A", VIDEO_TYPE_H264, false},
    {"H.264 aggregate begun by it", "78 00 02 61 9A 00 02 61 4A", VIDEO_TYPE_H264, true},
    {"H.264 aggregate with it in second place", "78 00 02 06 05 00 02 61 9A", VIDEO_TYPE_H264, false},
    {"H.265 first slice segment", "02 01 D0", VIDEO_TYPE_H265, true},
    {"H.265 later slice segment", "02 01 50", VIDEO_TYPE_H265, false},
    {"H.265 IDR", "26 01 AF", VIDEO_TYPE_H265, true},
    {"H.265 parameter set", "42 01 81", VIDEO_TYPE_H265, false},
    {"H.265 first fragment", "62 01 81 D0", VIDEO_TYPE_H265, true},
    {"H.265 middle fragment", "62 01 01 D0", VIDEO_TYPE_H265, false},
};

TEST(NalInspect, KnowsThePicturesFirstSlice)
{
    for (const slice_case &row : kSlices) {
        EXPECT_EQ(row.is_so, inspect(row.codec, hex(row.payload)).is_first_slice) << row.name;
    }
}

const slice_case kContinuing[] = {
    {"H.264 slice", "41 9A 01", VIDEO_TYPE_H264, false},
    {"H.264 STAP-A", "18 00 02 67 42", VIDEO_TYPE_H264, false},
    {"H.264 FU-A start", "7C 85 11", VIDEO_TYPE_H264, false},
    {"H.264 FU-A middle", "7C 05 11", VIDEO_TYPE_H264, true},
    {"H.264 FU-A end", "7C 45 11", VIDEO_TYPE_H264, true},
    {"H.264 FU-A start and end", "7C C5 11", VIDEO_TYPE_H264, false},
    {"H.264 FU-A middle with the forbidden bit", "FC 05 11", VIDEO_TYPE_H264, true},
    {"H.265 slice", "02 01 D0", VIDEO_TYPE_H265, false},
    {"H.265 FU start", "62 01 94 AF", VIDEO_TYPE_H265, false},
    {"H.265 FU middle", "62 01 14 AF", VIDEO_TYPE_H265, true},
    {"H.265 FU end", "62 01 54 AF", VIDEO_TYPE_H265, true},
    {"no payload", "", VIDEO_TYPE_H264, false},
    {"a codec without fragments", "7C 05 11", VIDEO_TYPE_GENERIC, false},
};

TEST(NalInspect, KnowsAPayloadThatGoesOnWithAUnit)
{
    for (const slice_case &row : kContinuing) {
        EXPECT_EQ(row.is_so, inspect(row.codec, hex(row.payload)).continues_unit) << row.name;
    }
}

TEST(NalInspect, KnowsNothingOfOtherCodecs)
{
    for (int codec = 0; codec < 256; codec++) {
        if (codec == VIDEO_TYPE_H264 || codec == VIDEO_TYPE_H265) {
            continue;
        }
        const nal_summary said = inspect(static_cast<uint8_t>(codec), hex("67 42 00 1F"));
        EXPECT_FALSE(said.is_key) << codec;
        EXPECT_FALSE(said.starts_access_unit) << codec;
    }
}

TEST(NalInspect, TakesNoPayload)
{
    EXPECT_FALSE(nal_inspect(VIDEO_TYPE_H264, nullptr, 0).is_key);
    EXPECT_FALSE(nal_inspect(VIDEO_TYPE_H265, nullptr, 0).is_key);
}

// The sanitizer watches the ends of the payload.
TEST(NalInspect, StaysWithinThePayloadForNoise)
{
    std::mt19937 random(6184);
    std::uniform_int_distribution<int> byte(0, 255);
    int keys = 0;
    for (int round = 0; round < 50000; round++) {
        bytes payload(static_cast<size_t>(byte(random)) / 8);
        for (uint8_t &each : payload) {
            each = static_cast<uint8_t>(byte(random) < 128 ? byte(random) & 7 : byte(random));
        }
        if (!payload.empty() && round % 2 == 0) {
            payload[0] = round % 4 == 0 ? 0x78 : 0x60;
        }
        keys += inspect(VIDEO_TYPE_H264, payload).is_key ? 1 : 0;
        keys += inspect(VIDEO_TYPE_H265, payload).is_key ? 1 : 0;
    }
    EXPECT_GT(keys, 100);
}

} // namespace
