// Which ways to restart are told from the newest packets of a stream.
#include "arrival/restart_watch.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "video_stream.h"

namespace
{

struct Packet {
    reception_verdict verdict;
    uint8_t codec;
    uint32_t timestamp;
    zeb_ts_t at; // ms
};

struct Row {
    const char *what;
    Packet first, second;
    const char *counted;
};

constexpr uint8_t kH264 = VIDEO_TYPE_H264;
constexpr uint8_t kH265 = VIDEO_TYPE_H265;
constexpr uint32_t kSecond = 90000;

const Row kRows[] = {
    {"Nothing", {RECEPTION_NEWEST, kH264, 0, 0}, {RECEPTION_NEWEST, kH264, 3000, 33}, ""},
    {"NumbersAnew", {RECEPTION_NEWEST, kH264, 0, 0}, {RECEPTION_RESTARTED, kH264, 3000, 33}, "sequence_jump"},
    {"LongLoss", {RECEPTION_NEWEST, kH264, 0, 0}, {RECEPTION_RESUMED, kH264, 90000, 1000}, "long_loss"},
    {"Codec", {RECEPTION_NEWEST, kH264, 0, 0}, {RECEPTION_NEWEST, kH265, 3000, 33}, "codec_change"},
    {"ShortPause", {RECEPTION_NEWEST, kH264, 0, 0}, {RECEPTION_NEWEST, kH264, 449910, 4999}, ""},
    {"Pause", {RECEPTION_NEWEST, kH264, 0, 0}, {RECEPTION_NEWEST, kH264, 450000, 5000}, "pause"},
    {"PauseOfAStandingClock", {RECEPTION_NEWEST, kH264, 7, 0}, {RECEPTION_NEWEST, kH264, 3007, 180000}, "pause"},
    {"TimestampABitBack", {RECEPTION_NEWEST, kH264, 9000, 0}, {RECEPTION_NEWEST, kH264, 3000, 3}, ""},
    {"TimestampBack", {RECEPTION_NEWEST, kH264, 10 * kSecond, 0}, {RECEPTION_NEWEST, kH264, 0, 33}, "timestamp_jump"},
    {"TimestampFarAhead",
     {RECEPTION_NEWEST, kH264, 0, 0},
     {RECEPTION_NEWEST, kH264, 10 * kSecond, 33},
     "timestamp_jump"},
    {"TimestampAcrossItsWrap", {RECEPTION_NEWEST, kH264, 0xFFFFFF00u, 0}, {RECEPTION_NEWEST, kH264, 2744, 33}, ""},
    {"AllAnew",
     {RECEPTION_NEWEST, kH264, 100 * kSecond, 0},
     {RECEPTION_RESTARTED, kH265, 0, 60000},
     "sequence_jump timestamp_jump pause codec_change"},
    {"ADayLater", {RECEPTION_NEWEST, kH264, 0, 0}, {RECEPTION_NEWEST, kH264, 0x80000000u, 86400000}, "pause"},
};

std::string counted(const stream_report &report)
{
    std::string text;
    for (size_t i = 0; i < RESTART_REASONS; i++) {
        for (uint64_t n = 0; n < report.restarts[i]; n++) {
            text += (text.empty() ? "" : " ") + std::string(restart_name(static_cast<restart_e>(i)));
        }
    }
    return text;
}

class RestartWatch : public testing::TestWithParam<Row>
{
};

TEST_P(RestartWatch, CountsByName)
{
    restart_watch watch = {};
    stream_report report = {};
    for (const Packet &packet : {GetParam().first, GetParam().second}) {
        restart_watch_note(&watch, &report, packet.verdict, packet.codec, packet.timestamp, 1000 + packet.at);
    }
    EXPECT_EQ(counted(report), GetParam().counted);
}

INSTANTIATE_TEST_SUITE_P(Of, RestartWatch, testing::ValuesIn(kRows),
                         [](const testing::TestParamInfo<Row> &row) { return std::string(row.param.what); });

} // namespace
