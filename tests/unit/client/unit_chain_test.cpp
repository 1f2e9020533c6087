#include "codec/unit_chain.h"

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
    std::vector<const char *> payloads;
    uint8_t codec;
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
    {"H264Units", {"67 42", "68 CE", "65 88"}, kH264, PAYLOAD_FAULTS},
    {"H264UnitOfHeaderAlone", {"0A"}, kH264, PAYLOAD_FAULTS},
    {"H264ForbiddenBit", {"E5 88"}, kH264, PAYLOAD_FAULTS},
    {"H264Aggregate", {"78 00 02 67 42 00 02 68 CE"}, kH264, PAYLOAD_FAULTS},
    {"H264AggregateWithEmptyUnits", {"78 00 00 00 02 67 42 00 00"}, kH264, PAYLOAD_FAULTS},
    {"H264Fragments", {"7C 85 01", "7C 05 02", "7C 45 03"}, kH264, PAYLOAD_FAULTS},
    {"H264FragmentsWithoutBytes", {"7C 85", "7C 05", "7C 45"}, kH264, PAYLOAD_FAULTS},
    {"H264UnitInOneFragment", {"7C C5 01", "61 02"}, kH264, PAYLOAD_FAULTS},
    {"H264FragmentsOfSeveralUnits",
     {"7C 85 01", "7C 45 02", "7C C1 03", "7C 81 04", "7C 41 05"},
     kH264,
     PAYLOAD_FAULTS},
    {"H264PaddingBetweenFragments", {"7C 85 01", "", "7C 45 03"}, kH264, PAYLOAD_FAULTS},
    {"H265Units", {"40 01 0C", "26 01 80"}, kH265, PAYLOAD_FAULTS},
    {"H265UnitOfHeaderAlone", {"48 01"}, kH265, PAYLOAD_FAULTS},
    {"H265Aggregate", {"60 01 00 03 40 01 0C 00 02 42 01"}, kH265, PAYLOAD_FAULTS},
    {"H265Fragments", {"62 01 93 01", "62 01 13 02", "62 01 53 03"}, kH265, PAYLOAD_FAULTS},
    {"H265UnitInOneFragment", {"62 01 D3 01", "02 01 02"}, kH265, PAYLOAD_FAULTS},
    {"NoPayloads", {}, kH264, PAYLOAD_FAULTS},
    {"AnotherCodec", {"7C 05 11", "79 00"}, VIDEO_TYPE_GENERIC, PAYLOAD_FAULTS},
};
INSTANTIATE_TEST_SUITE_P(Whole, UnitChain, testing::ValuesIn(kWhole), row_name);

const row kForbidden[] = {
    {"H264Type0", {"60 01"}, kH264, PAYLOAD_FAULT_RESERVED_TYPE},
    {"H264Type30", {"7E 01"}, kH264, PAYLOAD_FAULT_RESERVED_TYPE},
    {"H264Type31", {"7F 01"}, kH264, PAYLOAD_FAULT_RESERVED_TYPE},
    {"H264StapB", {"79 00 00 00 02 65 01"}, kH264, PAYLOAD_FAULT_INTERLEAVED},
    {"H264Mtap16", {"7A 00 00 00 05 00 00 00 65 01"}, kH264, PAYLOAD_FAULT_INTERLEAVED},
    {"H264Mtap24", {"7B 00 00 00 06 00 00 00 00 65 01"}, kH264, PAYLOAD_FAULT_INTERLEAVED},
    {"H264FuB", {"7D 85 00 00 01"}, kH264, PAYLOAD_FAULT_INTERLEAVED},
    {"H264AggregateWithAnAggregate", {"78 00 02 67 42 00 05 78 00 02 65 01"}, kH264, PAYLOAD_FAULT_NESTED},
    {"H264AggregateWithAFragment", {"78 00 03 7C 85 01"}, kH264, PAYLOAD_FAULT_NESTED},
    {"H264AggregateWithStapB", {"78 00 03 79 00 01"}, kH264, PAYLOAD_FAULT_INTERLEAVED},
    {"H264AggregateWithType0", {"78 00 02 60 42"}, kH264, PAYLOAD_FAULT_RESERVED_TYPE},
    {"H264AggregateWithType31", {"78 00 01 7F 00 01 68"}, kH264, PAYLOAD_FAULT_RESERVED_TYPE},
    {"H264FragmentOfAnAggregate", {"7C 98 01"}, kH264, PAYLOAD_FAULT_NESTED},
    {"H264FragmentOfAFragment", {"7C 9C 01"}, kH264, PAYLOAD_FAULT_NESTED},
    {"H264FragmentOfType0", {"7C 80 01"}, kH264, PAYLOAD_FAULT_RESERVED_TYPE},
    {"H264FragmentOfType30", {"7C 9E 01"}, kH264, PAYLOAD_FAULT_RESERVED_TYPE},
    {"H265Paci", {"64 01 00 00 26 01"}, kH265, PAYLOAD_FAULT_PACI},
    {"H265Type51", {"66 01 00"}, kH265, PAYLOAD_FAULT_RESERVED_TYPE},
    {"H265Type63", {"7E 01 00"}, kH265, PAYLOAD_FAULT_RESERVED_TYPE},
    {"H265AggregateWithAnAggregate", {"60 01 00 06 60 01 00 02 40 01"}, kH265, PAYLOAD_FAULT_NESTED},
    {"H265AggregateWithAFragment", {"60 01 00 04 62 01 93 01"}, kH265, PAYLOAD_FAULT_NESTED},
    {"H265AggregateWithPaci", {"60 01 00 02 64 01"}, kH265, PAYLOAD_FAULT_PACI},
    {"H265FragmentOfAnAggregate", {"62 01 B0 01"}, kH265, PAYLOAD_FAULT_NESTED},
    {"H265FragmentOfPaci", {"62 01 B2 01"}, kH265, PAYLOAD_FAULT_NESTED},
    {"H265FragmentOfType51", {"62 01 B3 01"}, kH265, PAYLOAD_FAULT_RESERVED_TYPE},
};
INSTANTIATE_TEST_SUITE_P(Forbidden, UnitChain, testing::ValuesIn(kForbidden), row_name);

const row kTruncated[] = {
    {"H264FragmentOfOneByte", {"7C"}, kH264, PAYLOAD_FAULT_TRUNCATED},
    {"H264AggregateWithoutUnits", {"78"}, kH264, PAYLOAD_FAULT_TRUNCATED},
    {"H264AggregateOfALongerUnit", {"78 00 02 67 42 00 03 68 CE"}, kH264, PAYLOAD_FAULT_TRUNCATED},
    {"H264AggregateOfAnEnormousUnit", {"78 FF FF 67 42"}, kH264, PAYLOAD_FAULT_TRUNCATED},
    {"H264AggregateWithAByteLeft", {"78 00 02 67 42 00"}, kH264, PAYLOAD_FAULT_TRUNCATED},
    {"H265UnitOfOneByte", {"26"}, kH265, PAYLOAD_FAULT_TRUNCATED},
    {"H265FragmentOfTwoBytes", {"62 01"}, kH265, PAYLOAD_FAULT_TRUNCATED},
    {"H265AggregateWithoutUnits", {"60 01"}, kH265, PAYLOAD_FAULT_TRUNCATED},
    {"H265AggregateWithAUnitOfOneByte", {"60 01 00 01 40"}, kH265, PAYLOAD_FAULT_TRUNCATED},
    {"H265AggregateOfALongerUnit", {"60 01 00 04 40 01 0C"}, kH265, PAYLOAD_FAULT_TRUNCATED},
    {"H265AggregateWithAByteLeft", {"60 01 00 02 40 01 00"}, kH265, PAYLOAD_FAULT_TRUNCATED},
};
INSTANTIATE_TEST_SUITE_P(Truncated, UnitChain, testing::ValuesIn(kTruncated), row_name);

const row kFragments[] = {
    {"H264MiddleFirst", {"7C 05 01"}, kH264, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264EndFirst", {"7C 45 01"}, kH264, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264StartAlone", {"7C 85 01"}, kH264, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264StartAndMiddleAlone", {"7C 85 01", "7C 05 02"}, kH264, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264StartBehindStart", {"7C 85 01", "7C 85 01", "7C 45 02"}, kH264, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264UnitBehindStart", {"7C 85 01", "61 02"}, kH264, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264AggregateBehindStart", {"7C 85 01", "78 00 02 67 42"}, kH264, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264WholeFragmentBehindStart", {"7C 85 01", "7C C5 02"}, kH264, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264MiddleOfAnotherType", {"7C 85 01", "7C 01 02"}, kH264, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264EndOfAnotherType", {"7C 85 01", "7C 41 02"}, kH264, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264MiddleBehindEnd", {"7C 85 01", "7C 45 02", "7C 05 03"}, kH264, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H264EndBehindWholeFragment", {"7C C5 01", "7C 45 02"}, kH264, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H265MiddleFirst", {"62 01 13 01"}, kH265, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H265StartAlone", {"62 01 93 01"}, kH265, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H265UnitBehindStart", {"62 01 93 01", "02 01"}, kH265, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H265EndOfAnotherType", {"62 01 93 01", "62 01 41 02"}, kH265, PAYLOAD_FAULT_BROKEN_FRAGMENT},
    {"H265MiddleOfType0BehindAUnit", {"02 01 01", "62 01 00 02"}, kH265, PAYLOAD_FAULT_BROKEN_FRAGMENT},
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
