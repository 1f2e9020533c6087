#include "report/report_sum.h"

#include <gtest/gtest.h>

using namespace vrc;

TEST(ReportSum, AddsCounts)
{
    stream_report total{};
    total.packets = 10;
    total.packets_dropped[PACKET_DROP_LATE] = 2;
    total.frames_dropped[FRAME_DROP_TORN] = 1;
    total.payload_faults[PAYLOAD_FAULT_NESTED] = 3;
    total.watchdog[WATCHDOG_KEY_FRAME_STUCK] = 1;
    total.byes = 1;
    total.jitter = 5;
    stream_report next{};
    next.packets = 20;
    next.packets_dropped[PACKET_DROP_LATE] = 3;
    next.frames_dropped[FRAME_DROP_TORN] = 4;
    next.payload_faults[PAYLOAD_FAULT_NESTED] = 8;
    next.watchdog[WATCHDOG_KEY_FRAME_STUCK] = 5;
    next.byes = 6;
    next.jitter = 7;
    report_add(&total, next);
    EXPECT_EQ(total.packets, 30u);
    EXPECT_EQ(total.packets_dropped[PACKET_DROP_LATE], 5u);
    EXPECT_EQ(total.frames_dropped[FRAME_DROP_TORN], 5u);
    EXPECT_EQ(total.payload_faults[PAYLOAD_FAULT_NESTED], 11u);
    EXPECT_EQ(total.watchdog[WATCHDOG_KEY_FRAME_STUCK], 6u);
    EXPECT_EQ(total.byes, 7u);
    EXPECT_EQ(total.jitter, 7u);
}

TEST(ReportSum, SpansTimesAndCountsPauseBetween)
{
    struct {
        zeb_ts_t pause;
        uint32_t of_200, of_500, of_600;
    } const rows[] = {{199, 0, 0, 0}, {200, 1, 0, 0}, {500, 1, 1, 0}, {600, 1, 1, 1}, {3000, 1, 1, 1}};
    for (const auto &row : rows) {
        stream_report total{};
        total.first_packet_at = 1000;
        total.last_packet_at = 2000;
        total.first_frame_at = 1010;
        total.last_frame_at = 2010;
        stream_report next{};
        next.first_packet_at = 2005 + row.pause;
        next.last_packet_at = 9000;
        next.first_frame_at = 2010 + row.pause;
        next.last_frame_at = 9010;
        next.freezes_200ms = 2;
        next.frozen_200ms = 450;
        report_add(&total, next);
        EXPECT_EQ(total.first_packet_at, 1000u);
        EXPECT_EQ(total.last_packet_at, 9000u);
        EXPECT_EQ(total.first_frame_at, 1010u);
        EXPECT_EQ(total.last_frame_at, 9010u);
        EXPECT_EQ(total.freezes_200ms, 2 + row.of_200) << row.pause;
        EXPECT_EQ(total.frozen_200ms, 450 + (row.of_200 ? row.pause : 0)) << row.pause;
        EXPECT_EQ(total.freezes_500ms, row.of_500) << row.pause;
        EXPECT_EQ(total.freezes_600ms, row.of_600) << row.pause;
    }
}

TEST(ReportSum, TakesFirstStreamAsItIs)
{
    stream_report total{};
    stream_report next{};
    next.first_packet_at = 1000;
    next.first_frame_at = 5000;
    next.last_frame_at = 6000;
    report_add(&total, next);
    EXPECT_EQ(total.first_frame_at, 5000u);
    EXPECT_EQ(total.freezes_200ms, 0u);
}
