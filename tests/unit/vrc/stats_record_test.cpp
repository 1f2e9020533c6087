#include "report/stats_record.h"

#include <gtest/gtest.h>

using namespace vrc;

TEST(StatsRecord, NamesWhatTheReportCounts)
{
    stream_report report{};
    report.packets = 100;
    report.bytes = 50'000;
    report.packets_lost = 3;
    report.packets_retransmitted = 4;
    report.packets_dropped[PACKET_DROP_LATE] = 5;
    report.packets_dropped[PACKET_DROP_DUPLICATE] = 6;
    report.frames = 20;
    report.key_frames = 2;
    report.frames_dropped[FRAME_DROP_AFTER_GAP] = 7;
    report.frames_dropped[FRAME_DROP_INCOMPLETE] = 8;
    report.payload_faults[PAYLOAD_FAULT_PACI] = 18;
    report.nacks_sent = 9;
    report.plis_sent = 10;
    report.firs_sent = 11;
    report.freezes_200ms = 12;
    report.frozen_200ms = 3456;
    report.jitter = 900;
    report.packets_repaired = 14;
    report.frame_delay = 2500;
    report.freezes_600ms = 15;
    report.restarts[RESTART_PAUSE] = 16;
    report.last_second.frames = 30;
    report.last_second.percent_loss_raw = 17;
    report.last_second.percent_lost_after_arq = 1;
    const json record = stats_record(report, {1'700'000'000'123, 0xDEADBEEF, 1200, {90, 13, 14, 15}});
    const json expected = {{"timestamp", 1'700'000'000'123},
                           {"type", "inbound-rtp"},
                           {"id", "inbound-rtp-3735928559"},
                           {"kind", "video"},
                           {"ssrc", 3735928559},
                           {"packetsReceived", 100},
                           {"packetsLost", 3},
                           {"packetsDiscarded", 5},
                           {"retransmittedPacketsReceived", 4},
                           {"packetsRepaired", 14},
                           {"bytesReceived", 48'800},
                           {"headerBytesReceived", 1200},
                           {"jitter", 0.01},
                           {"framesReceived", 27},
                           {"framesAssembled", 20},
                           {"keyFramesAssembled", 2},
                           {"framesPerSecond", 30},
                           {"jitterBufferDelay", 2.5},
                           {"jitterBufferEmittedCount", 20},
                           {"framesDropped", 15},
                           {"nackCount", 9},
                           {"pliCount", 10},
                           {"firCount", 11},
                           {"freezeCount", 12},
                           {"totalFreezesDuration", 3.456},
                           {"freezesByLength", {{"200", 12}, {"500", 0}, {"600", 15}}},
                           {"lossPercent", {{"raw", 17}, {"afterRetransmission", 1}}}};
    for (const auto &[name, value] : expected.items()) {
        EXPECT_EQ(record[name], value) << name;
    }
    EXPECT_EQ(record["restartReasons"]["pause"], 16);
    EXPECT_EQ(record["restartReasons"].size(), size_t{RESTART_REASONS});
    EXPECT_EQ(record["packetDropReasons"]["duplicate"], 6);
    EXPECT_EQ(record["packetDropReasons"].size(), size_t{PACKET_DROP_REASONS});
    EXPECT_EQ(record["frameDropReasons"]["incomplete"], 8);
    EXPECT_EQ(record["frameDropReasons"].size(), size_t{FRAME_DROP_REASONS});
    EXPECT_EQ(record["payloadFaults"]["paci"], 18);
    EXPECT_EQ(record["payloadFaults"].size(), size_t{PAYLOAD_FAULTS});
    EXPECT_EQ(record["srtp"]["decrypted"], 90);
    EXPECT_EQ(record["srtp"]["not_authentic"], 13);
    EXPECT_EQ(record.size(), expected.size() + 5);
}

TEST(StatsRecord, FitsOneLine)
{
    EXPECT_EQ(stats_record(stream_report{}, {}).dump().find('\n'), std::string::npos);
}
