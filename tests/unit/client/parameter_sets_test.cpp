#include "codec/parameter_sets.h"

#include <vector>

#include <gtest/gtest.h>

#include "video_stream.h"

namespace
{

using Bytes = std::vector<uint8_t>;

// H.264: an SPS has its identifier behind profile, constraints and level; a PPS at its beginning. "1" is 0, "010" is 1.
const Bytes kSps0 = {0x67, 0x42, 0xC0, 0x1E, 0x80, 0x11};
const Bytes kSps0Newer = {0x67, 0x42, 0xC0, 0x1E, 0x80, 0x22, 0x33};
const Bytes kSps1 = {0x67, 0x42, 0xC0, 0x1E, 0x40, 0x44};
const Bytes kPps0 = {0x68, 0x80, 0x55};
const Bytes kPps1 = {0x68, 0x40, 0x66};
const Bytes kIdr = {0x65, 0x88, 0x01};
const Bytes kSlice = {0x41, 0x9A, 0x02};
// H.265, two header bytes.
const Bytes kVps = {0x40, 0x01, 0x0C, 0x01};
const Bytes kHevcSps = {0x42, 0x01, 0x01, 0x01};
const Bytes kHevcPps = {0x44, 0x01, 0x80, 0x02};
const Bytes kIdrNLp = {0x28, 0x01, 0xAF};
const Bytes kTrail = {0x02, 0x01, 0xD0};

Bytes annexb(const std::vector<Bytes> &units)
{
    Bytes frame;
    for (const Bytes &unit : units) {
        frame.insert(frame.end(), {0, 0, 0, 1});
        frame.insert(frame.end(), unit.begin(), unit.end());
    }
    return frame;
}

class ParameterSets : public testing::Test
{
  protected:
    void note(const Bytes &nal, uint8_t codec = VIDEO_TYPE_H264)
    {
        parameter_sets_note(&sets, codec, nal.data(), nal.size());
    }

    // What is to stand in front of the frame.
    Bytes missing(const std::vector<Bytes> &units, uint8_t codec = VIDEO_TYPE_H264) const
    {
        const Bytes frame = annexb(units);
        Bytes written(parameter_sets_missing_size(&sets, codec, frame.data(), frame.size()));
        if (!written.empty()) {
            parameter_sets_write(&sets, codec, written.data());
        }
        return written;
    }

    parameter_sets sets = {};
};

TEST_F(ParameterSets, StandInFrontOfAKeyFrameThatHasNone)
{
    note(kPps0);
    note(kSps0);
    EXPECT_EQ(missing({kIdr}), annexb({kSps0, kPps0}));
}

TEST_F(ParameterSets, AreNotRepeatedWhereTheFrameHasThem)
{
    note(kSps0);
    note(kPps0);
    EXPECT_EQ(missing({kSps0, kPps0, kIdr}), Bytes());
}

TEST_F(ParameterSets, AreOfNoUseToOtherFrames)
{
    note(kSps0);
    EXPECT_EQ(missing({kSlice}), Bytes());
    EXPECT_EQ(missing({}), Bytes());
}

TEST_F(ParameterSets, AreNotMadeUp)
{
    EXPECT_EQ(missing({kIdr}), Bytes());
}

TEST_F(ParameterSets, ReplaceThoseOfTheSameIdentifierAlone)
{
    note(kSps0);
    note(kSps1);
    note(kPps0);
    note(kPps1);
    note(kSps0Newer);
    EXPECT_EQ(missing({kIdr}), annexb({kSps0Newer, kSps1, kPps0, kPps1}));
}

TEST_F(ParameterSets, OfH265ComeInTheOrderOfTheirUse)
{
    note(kHevcPps, VIDEO_TYPE_H265);
    note(kHevcSps, VIDEO_TYPE_H265);
    note(kVps, VIDEO_TYPE_H265);
    EXPECT_EQ(missing({kIdrNLp}, VIDEO_TYPE_H265), annexb({kVps, kHevcSps, kHevcPps}));
    EXPECT_EQ(missing({kTrail}, VIDEO_TYPE_H265), Bytes());
}

TEST_F(ParameterSets, AreKeptApartByCodec)
{
    note(kVps, VIDEO_TYPE_H265);
    note(kHevcSps, VIDEO_TYPE_H265);
    EXPECT_EQ(missing({kIdr}), Bytes());
}

TEST_F(ParameterSets, AreTakenOutOfAggregates)
{
    const Bytes stap = {0x78, 0, 6, 0x67, 0x42, 0xC0, 0x1E, 0x80, 0x11, 0, 3, 0x68, 0x80, 0x55, 0, 3, 0x65, 0x88, 0x01};
    parameter_sets_note_payload(&sets, VIDEO_TYPE_H264, stap.data(), stap.size());
    EXPECT_EQ(missing({kIdr}), annexb({kSps0, kPps0}));
}

TEST_F(ParameterSets, AreNotTakenOutOfAggregatesThatAreCutOrHoldPackets)
{
    const Bytes cut = {0x78, 0, 6, 0x67, 0x42, 0xC0, 0x1E, 0x80, 0x11, 0, 3, 0x68, 0x80};
    parameter_sets_note_payload(&sets, VIDEO_TYPE_H264, cut.data(), cut.size());
    const Bytes nested = {0x78, 0, 6, 0x67, 0x42, 0xC0, 0x1E, 0x80, 0x11, 0, 3, 0x78, 0x00, 0x00};
    parameter_sets_note_payload(&sets, VIDEO_TYPE_H264, nested.data(), nested.size());
    EXPECT_EQ(missing({kIdr}), Bytes());
}

TEST_F(ParameterSets, AreNotTakenOutOfPartsOfAUnit)
{
    const Bytes start = {0x7C, 0x87, 0x42, 0xC0};
    parameter_sets_note_payload(&sets, VIDEO_TYPE_H264, start.data(), start.size());
    const Bytes end = {0x7C, 0x47, 0x42, 0xC0};
    parameter_sets_note_payload(&sets, VIDEO_TYPE_H264, end.data(), end.size());
    EXPECT_EQ(missing({kIdr}), Bytes());
}

TEST_F(ParameterSets, AreTakenOutOfAUnitInOneFragment)
{
    const Bytes whole = {0x7C, 0xC7, 0x42, 0xC0, 0x1E, 0x80, 0x11};
    parameter_sets_note_payload(&sets, VIDEO_TYPE_H264, whole.data(), whole.size());
    EXPECT_EQ(missing({kIdr}), annexb({kSps0}));
}

TEST_F(ParameterSets, IgnoreWhatIsNoneOrTooLargeOrDamaged)
{
    note(kIdr);
    note({});
    note({0xE7, 0x42, 0xC0, 0x1E, 0x80}); // forbidden bit
    Bytes large(kParameterSetMax + 1, 0x11);
    large[0] = 0x67;
    note(large);
    note(kSps0, VIDEO_TYPE_GENERIC);
    EXPECT_EQ(missing({kIdr}), Bytes());
    large.pop_back();
    note(large);
    EXPECT_EQ(missing({kIdr}), annexb({large}));
}

TEST_F(ParameterSets, MakeRoomForNewOnes)
{
    for (int i = 0; i < 100; i++) {
        note({0x67, 0x42, 0xC0, 0x1E, static_cast<uint8_t>(0x80 >> (i % 3)), static_cast<uint8_t>(i)});
        note({0x68, static_cast<uint8_t>(0x10 + i), 0x55});
    }
    EXPECT_FALSE(missing({kIdr}).empty());
}

} // namespace
