#include "nal_edges.h"

#include <gtest/gtest.h>

#include <vector>

#include "video_stream.h"

namespace
{

struct row {
    const char *what;
    uint8_t codec;
    std::vector<uint8_t> payload;
    bool begins;
    bool ends;
};

class NalEdges : public testing::TestWithParam<row>
{
};

TEST_P(NalEdges, SaysWhereANalUnitIsCut)
{
    const row &expected = GetParam();
    const nal_edges edges = nal_edges_inspect(expected.codec, expected.payload.data(), expected.payload.size());
    EXPECT_EQ(edges.begins, expected.begins) << expected.what;
    EXPECT_EQ(edges.ends, expected.ends) << expected.what;
}

INSTANTIATE_TEST_SUITE_P(
    Table, NalEdges,
    testing::Values(row{"H.264 slice", VIDEO_TYPE_H264, {0x41, 0x9A, 0x01}, true, true},
                    row{"H.264 STAP-A", VIDEO_TYPE_H264, {0x18, 0x00, 0x02, 0x67, 0x42}, true, true},
                    row{"H.264 FU-A start", VIDEO_TYPE_H264, {0x7C, 0x85, 0x11}, true, false},
                    row{"H.264 FU-A middle", VIDEO_TYPE_H264, {0x7C, 0x05, 0x11}, false, false},
                    row{"H.264 FU-A end", VIDEO_TYPE_H264, {0x7C, 0x45, 0x11}, false, true},
                    row{"H.265 slice", VIDEO_TYPE_H265, {0x02, 0x01, 0xD0}, true, true},
                    row{"H.265 FU start", VIDEO_TYPE_H265, {0x62, 0x01, 0x94, 0xAF}, true, false},
                    row{"H.265 FU middle", VIDEO_TYPE_H265, {0x62, 0x01, 0x14, 0xAF}, false, false},
                    row{"H.265 FU end", VIDEO_TYPE_H265, {0x62, 0x01, 0x54, 0xAF}, false, true},
                    row{"no payload", VIDEO_TYPE_H264, {}, true, true},
                    row{"a codec without fragments", VIDEO_TYPE_GENERIC, {0x7C, 0x05, 0x11}, true, true}));

} // namespace
