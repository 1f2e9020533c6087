#include "codec/parameter_sets.h"

#include <sstream>
#include <string>
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

constexpr uint32_t kFrame = 0x10005; // a packet of the frame that the sets are for

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
    void describe(const Bytes &nal, uint8_t codec = VIDEO_TYPE_H264)
    {
        parameter_sets_describe(&sets, codec, nal.data(), nal.size());
    }

    void note(const Bytes &nal, uint8_t codec = VIDEO_TYPE_H264)
    {
        note_at(kFrame, nal, codec);
    }

    void note_at(uint32_t number, const Bytes &nal, uint8_t codec = VIDEO_TYPE_H264)
    {
        parameter_sets_note_payload(&sets, codec, nal.data(), nal.size(), number);
    }

    // What is to stand in front of the frame.
    Bytes missing(const std::vector<Bytes> &units, uint8_t codec = VIDEO_TYPE_H264) const
    {
        return missing_at(kFrame, units, codec);
    }

    Bytes missing_at(uint32_t last, const std::vector<Bytes> &units, uint8_t codec = VIDEO_TYPE_H264) const
    {
        const Bytes frame = annexb(units);
        Bytes written(parameter_sets_missing_size(&sets, codec, last, frame.data(), frame.size()));
        if (!written.empty()) {
            parameter_sets_write(&sets, codec, last, written.data());
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
    parameter_sets_note_payload(&sets, VIDEO_TYPE_H264, stap.data(), stap.size(), kFrame);
    EXPECT_EQ(missing({kIdr}), annexb({kSps0, kPps0}));
}

TEST_F(ParameterSets, AreNotTakenOutOfAggregatesThatAreCutOrHoldPackets)
{
    const Bytes cut = {0x78, 0, 6, 0x67, 0x42, 0xC0, 0x1E, 0x80, 0x11, 0, 3, 0x68, 0x80};
    parameter_sets_note_payload(&sets, VIDEO_TYPE_H264, cut.data(), cut.size(), kFrame);
    const Bytes nested = {0x78, 0, 6, 0x67, 0x42, 0xC0, 0x1E, 0x80, 0x11, 0, 3, 0x78, 0x00, 0x00};
    parameter_sets_note_payload(&sets, VIDEO_TYPE_H264, nested.data(), nested.size(), kFrame);
    EXPECT_EQ(missing({kIdr}), Bytes());
}

TEST_F(ParameterSets, AreNotTakenOutOfPartsOfAUnit)
{
    const Bytes start = {0x7C, 0x87, 0x42, 0xC0};
    parameter_sets_note_payload(&sets, VIDEO_TYPE_H264, start.data(), start.size(), kFrame);
    const Bytes end = {0x7C, 0x47, 0x42, 0xC0};
    parameter_sets_note_payload(&sets, VIDEO_TYPE_H264, end.data(), end.size(), kFrame);
    EXPECT_EQ(missing({kIdr}), Bytes());
}

TEST_F(ParameterSets, AreTakenOutOfAUnitInOneFragment)
{
    const Bytes whole = {0x7C, 0xC7, 0x42, 0xC0, 0x1E, 0x80, 0x11};
    parameter_sets_note_payload(&sets, VIDEO_TYPE_H264, whole.data(), whole.size(), kFrame);
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

// What holds at the numbers 0 to 9 when sets a, b and c of one kind came at those that are given; d is described.
struct version_row {
    const char *came; // "a2 b5": a in packet 2, then b in packet 5
    const char *holds;
};

const version_row kVersionRows[] = {
    {"a2", "--aaaaaaaa"},       {"a2 b5", "--aaabbbbb"},    {"b5 a2", "--aaabbbbb"}, // a packet came late
    {"a2 a5", "--aaaaaaaa"},                                                         // shown again
    {"a5 a2", "--aaaaaaaa"},                                                         // the same, late
    {"a2 b5 a7", "-----bbaaa"},                                                      // as before, and two are kept
    {"a7 b5 a2", "-----bbaaa"},                                                      // older than both that are kept
    {"a2 b5 c7", "-----bbccc"},                                                      // two are kept
    {"a2 c7 b5", "-----bbccc"}, {"a2 b5 b3", "--abbbbbbb"},                          // seen earlier
    {"a2 b2", "--bbbbbbbb"},                                                         // of one packet the last
    {"d b5", "dddddbbbbb"},     {"b5 d", "dddddbbbbb"},     {"d b5 c7", "-----bbccc"}, {"d d5", "dddddddddd"},
};

class ParameterSetVersions : public ParameterSets, public testing::WithParamInterface<uint32_t>
{
  protected:
    static Bytes version(char name)
    {
        return {0x67, 0x42, 0xC0, 0x1E, 0x80, static_cast<uint8_t>(name)};
    }

    void come(const std::string &words)
    {
        std::istringstream stream(words);
        for (std::string word; stream >> word;) {
            if (word.size() == 1) {
                describe(version(word[0]));
            } else {
                note_at(GetParam() + static_cast<uint32_t>(word[1] - '0'), version(word[0]));
            }
        }
    }

    std::string held() const
    {
        std::string names;
        for (uint32_t number = 0; number < 10; number++) {
            const Bytes before = missing_at(GetParam() + number, {kIdr});
            names += before.empty() ? '-' : static_cast<char>(before.back());
            EXPECT_LE(before.size(), annexb({version('a')}).size()) << "one of a kind";
        }
        return names;
    }
};

TEST_P(ParameterSetVersions, HoldFromThePacketThatBroughtThem)
{
    for (const version_row &row : kVersionRows) {
        sets = {};
        come(row.came);
        EXPECT_EQ(held(), row.holds) << row.came;
    }
}

INSTANTIATE_TEST_SUITE_P(Anywhere, ParameterSetVersions, testing::Values(0x10000u, 0xFFFFFFFBu));

TEST_F(ParameterSets, ThatHoldAreNotGivenUpForNewOnesWhileOthersAreSuperseded)
{
    for (uint8_t id = 0; id < kParameterSetsMax - 1; id++) { // identifiers 0 to 6: 1, 010, 011, 00100 to 00111
        const uint8_t codes[] = {0x80, 0x40, 0x60, 0x20, 0x28, 0x30, 0x38};
        note_at(kFrame, {0x68, codes[id], id});
    }
    note_at(kFrame + 1, {0x68, 0x80, 0x77}); // takes the last place
    note_at(kFrame + 2, kSps0);
    const Bytes all = missing_at(kFrame + 2, {kIdr});
    EXPECT_EQ(all.size(), annexb({kSps0}).size() + 7 * annexb({kPps0}).size());
}

} // namespace
