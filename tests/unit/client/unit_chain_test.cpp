#include "unit_chain.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "exact_copy.h"
#include "hex_bytes.h"
#include "video_stream.h"

namespace
{

// The payloads of a frame, and what the chain says of the last one that it takes, or of the frame's end.
struct row {
    const char *name;
    uint8_t codec;
    std::vector<const char *> payloads;
    payload_fault_e fault;
};

void PrintTo(const row &row, std::ostream *out)
{
    *out << row.name;
}

std::string row_name(const testing::TestParamInfo<row> &info)
{
    return info.param.name;
}

payload_fault_e fault_of(const row &row)
{
    unit_chain units = {};
    for (const char *text : row.payloads) {
        const bytes payload = hex(text);
        const exact_copy copy(payload);
        const payload_fault_e fault = unit_chain_note(&units, row.codec, copy.data(), payload.size());
        if (fault != PAYLOAD_FAULTS) {
            return fault;
        }
    }
    return unit_chain_end(&units);
}

class UnitChain : public testing::TestWithParam<row>
{
};

TEST_P(UnitChain, NamesTheFaultOfAFramesPayloads)
{
    EXPECT_STREQ(payload_fault_name(fault_of(GetParam())), payload_fault_name(GetParam().fault));
}

constexpr uint8_t kH264 = VIDEO_TYPE_H264;
constexpr uint8_t kH265 = VIDEO_TYPE_H265;

const row kWhole[] = {
    {"H264Units", kH264, {"67 42", "68 CE", "65 88"}, PAYLOAD_FAULTS},
    {"H264UnitOfHeaderAlone", kH264, {"0A"}, PAYLOAD_FAULTS},
    {"H264ForbiddenBit", kH264, {"E5 88"}, PAYLOAD_FAULTS},
    {"H264Aggregate", kH264, {"78 00 02 67 42 00 02 68 CE"}, PAYLOAD_FAULTS},
    {"H264AggregateWithEmptyUnits", kH264, {"78 00 00 00 02 67 42 00 00"}, PAYLOAD_FAULTS},
    {"H264Fragments", kH264, {"7C 85 01", "7C 05 02", "7C 45 03"}, PAYLOAD_FAULTS},
    {"H264FragmentsWithoutBytes", kH264, {"7C 85", "7C 05", "7C 45"}, PAYLOAD_FAULTS},
    {"H264UnitInOneFragment", kH264, {"7C C5 01", "61 02"}, PAYLOAD_FAULTS},
    {"H264FragmentsOfSeveralUnits",
     kH264,
     {"7C 85 01", "7C 45 02", "7C C1 03", "7C 81 04", "7C 41 05"},
     PAYLOAD_FAULTS},
    {"H264PaddingBetweenFragments", kH264, {"7C 85 01", "", "7C 45 03"}, PAYLOAD_FAULTS},
    {"H265Units", kH265, {"40 01 0C", "26 01 80"}, PAYLOAD_FAULTS},
    {"H265UnitOfHeaderAlone", kH265, {"48 01"}, PAYLOAD_FAULTS},
    {"H265Aggregate", kH265, {"60 01 00 03 40 01 0C 00 02 42 01"}, PAYLOAD_FAULTS},
    {"H265Fragments", kH265, {"62 01 93 01", "62 01 13 02", "62 01 53 03"}, PAYLOAD_FAULTS},
    {"H265UnitInOneFragment", kH265, {"62 01 D3 01", "02 01 02"}, PAYLOAD_FAULTS},
    {"NoPayloads", kH264, {}, PAYLOAD_FAULTS},
    {"AnotherCodec", VIDEO_TYPE_GENERIC, {"7C 05 11", "79 00"}, PAYLOAD_FAULTS},
};
INSTANTIATE_TEST_SUITE_P(Whole, UnitChain, testing::ValuesIn(kWhole), row_name);

const row kForbidden[] = {
    {"H264Type0", kH264, {"60 01"}, PAYLOAD_FAULT_RESERVED_TYPE},
    {"H264Type30", kH264, {"7E 01"}, PAYLOAD_FAULT_RESERVED_TYPE},
    {"H264Type31", kH264, {"7F 01"}, PAYLOAD_FAULT_RESERVED_TYPE},
    {"H264StapB", kH264, {"79 00 00 00 02 65 01"}, PAYLOAD_FAULT_INTERLEAVED},
    {"H264Mtap16", kH264, {"7A 00 00 00 05 00 00 00 65 01"}, PAYLOAD_FAULT_INTERLEAVED},
    {"H264Mtap24", kH264, {"7B 00 00 00 06 00 00 00 00 65 01"}, PAYLOAD_FAULT_INTERLEAVED},
    {"H264FuB", kH264, {"7D 85 00 00 01"}, PAYLOAD_FAULT_INTERLEAVED},
    {"H264AggregateWithAnAggregate", kH264, {"78 00 02 67 42 00 05 78 00 02 65 01"}, PAYLOAD_FAULT_NESTED},
    {"H264AggregateWithAFragment", kH264, {"78 00 03 7C 85 01"}, PAYLOAD_FAULT_NESTED},
    {"H264AggregateWithStapB", kH264, {"78 00 03 79 00 01"}, PAYLOAD_FAULT_INTERLEAVED},
    {"H264AggregateWithType0", kH264, {"78 00 02 60 42"}, PAYLOAD_FAULT_RESERVED_TYPE},
    {"H264AggregateWithType31", kH264, {"78 00 01 7F 00 01 68"}, PAYLOAD_FAULT_RESERVED_TYPE},
    {"H264FragmentOfAnAggregate", kH264, {"7C 98 01"}, PAYLOAD_FAULT_NESTED},
    {"H264FragmentOfAFragment", kH264, {"7C 9C 01"}, PAYLOAD_FAULT_NESTED},
    {"H264FragmentOfType0", kH264, {"7C 80 01"}, PAYLOAD_FAULT_RESERVED_TYPE},
    {"H264FragmentOfType30", kH264, {"7C 9E 01"}, PAYLOAD_FAULT_RESERVED_TYPE},
    {"H265Paci", kH265, {"64 01 00 00 26 01"}, PAYLOAD_FAULT_PACI},
    {"H265Type51", kH265, {"66 01 00"}, PAYLOAD_FAULT_RESERVED_TYPE},
    {"H265Type63", kH265, {"7E 01 00"}, PAYLOAD_FAULT_RESERVED_TYPE},
    {"H265AggregateWithAnAggregate", kH265, {"60 01 00 06 60 01 00 02 40 01"}, PAYLOAD_FAULT_NESTED},
    {"H265AggregateWithAFragment", kH265, {"60 01 00 04 62 01 93 01"}, PAYLOAD_FAULT_NESTED},
    {"H265AggregateWithPaci", kH265, {"60 01 00 02 64 01"}, PAYLOAD_FAULT_PACI},
    {"H265FragmentOfAnAggregate", kH265, {"62 01 B0 01"}, PAYLOAD_FAULT_NESTED},
    {"H265FragmentOfPaci", kH265, {"62 01 B2 01"}, PAYLOAD_FAULT_NESTED},
    {"H265FragmentOfType51", kH265, {"62 01 B3 01"}, PAYLOAD_FAULT_RESERVED_TYPE},
};
INSTANTIATE_TEST_SUITE_P(Forbidden, UnitChain, testing::ValuesIn(kForbidden), row_name);

const row kTruncated[] = {
    {"H264FragmentOfOneByte", kH264, {"7C"}, PAYLOAD_FAULT_TRUNCATED},
    {"H264AggregateWithoutUnits", kH264, {"78"}, PAYLOAD_FAULT_TRUNCATED},
    {"H264AggregateOfALongerUnit", kH264, {"78 00 02 67 42 00 03 68 CE"}, PAYLOAD_FAULT_TRUNCATED},
    {"H264AggregateOfAnEnormousUnit", kH264, {"78 FF FF 67 42"}, PAYLOAD_FAULT_TRUNCATED},
    {"H264AggregateWithAByteLeft", kH264, {"78 00 02 67 42 00"}, PAYLOAD_FAULT_TRUNCATED},
    {"H265UnitOfOneByte", kH265, {"26"}, PAYLOAD_FAULT_TRUNCATED},
    {"H265FragmentOfTwoBytes", kH265, {"62 01"}, PAYLOAD_FAULT_TRUNCATED},
    {"H265AggregateWithoutUnits", kH265, {"60 01"}, PAYLOAD_FAULT_TRUNCATED},
    {"H265AggregateWithAUnitOfOneByte", kH265, {"60 01 00 01 40"}, PAYLOAD_FAULT_TRUNCATED},
    {"H265AggregateOfALongerUnit", kH265, {"60 01 00 04 40 01 0C"}, PAYLOAD_FAULT_TRUNCATED},
    {"H265AggregateWithAByteLeft", kH265, {"60 01 00 02 40 01 00"}, PAYLOAD_FAULT_TRUNCATED},
};
INSTANTIATE_TEST_SUITE_P(Truncated, UnitChain, testing::ValuesIn(kTruncated), row_name);

const row kFragments[] = {
    {"H264MiddleFirst", kH264, {"7C 05 01"}, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264EndFirst", kH264, {"7C 45 01"}, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264StartAlone", kH264, {"7C 85 01"}, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264StartAndMiddleAlone", kH264, {"7C 85 01", "7C 05 02"}, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264StartBehindStart", kH264, {"7C 85 01", "7C 85 01", "7C 45 02"}, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264UnitBehindStart", kH264, {"7C 85 01", "61 02"}, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264AggregateBehindStart", kH264, {"7C 85 01", "78 00 02 67 42"}, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264WholeFragmentBehindStart", kH264, {"7C 85 01", "7C C5 02"}, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264MiddleOfAnotherType", kH264, {"7C 85 01", "7C 01 02"}, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264EndOfAnotherType", kH264, {"7C 85 01", "7C 41 02"}, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264MiddleBehindEnd", kH264, {"7C 85 01", "7C 45 02", "7C 05 03"}, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264EndBehindWholeFragment", kH264, {"7C C5 01", "7C 45 02"}, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H265MiddleFirst", kH265, {"62 01 13 01"}, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H265StartAlone", kH265, {"62 01 93 01"}, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H265UnitBehindStart", kH265, {"62 01 93 01", "02 01"}, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H265EndOfAnotherType", kH265, {"62 01 93 01", "62 01 41 02"}, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H265MiddleOfType0BehindAUnit", kH265, {"02 01 01", "62 01 00 02"}, PAYLOAD_FAULT_BROKEN_FRAGMENT},
};
INSTANTIATE_TEST_SUITE_P(Fragments, UnitChain, testing::ValuesIn(kFragments), row_name);

// 1 + 3 n bytes come in and 5 n go out: with 32 more there is room for 16 units.
TEST(UnitChainRoom, IsMissingForAnAggregateOfSeventeenUnits)
{
    for (const size_t n : {16u, 17u}) {
        bytes payload = hex("78");
        for (size_t i = 0; i < n; i++) {
            payload.insert(payload.end(), {0, 1, 0x61});
        }
        unit_chain units = {};
        EXPECT_EQ(unit_chain_note(&units, kH264, payload.data(), payload.size()),
                  n == 16 ? PAYLOAD_FAULTS : PAYLOAD_FAULT_NO_ROOM);
        payload.insert(payload.end(), 2, 0);
        EXPECT_EQ(unit_chain_note(&units, kH264, payload.data(), payload.size()), PAYLOAD_FAULTS);
    }
}

} // namespace
