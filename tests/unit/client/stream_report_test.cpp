#include "api/stream_report.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace
{

template <typename Reason> std::set<std::string> names(const char *(*name)(Reason), int n)
{
    std::set<std::string> all;
    for (int i = 0; i < n; i++) {
        all.insert(name(static_cast<Reason>(i)));
    }
    return all;
}

TEST(StreamReportNames, AreDifferentForAllReasons)
{
    EXPECT_EQ(names(packet_drop_name, PACKET_DROP_REASONS).size(), size_t{PACKET_DROP_REASONS});
    EXPECT_EQ(names(frame_drop_name, FRAME_DROP_REASONS).size(), size_t{FRAME_DROP_REASONS});
    EXPECT_EQ(names(payload_fault_name, PAYLOAD_FAULTS).size(), size_t{PAYLOAD_FAULTS});
    EXPECT_EQ(names(watchdog_name, WATCHDOG_REASONS).size(), size_t{WATCHDOG_REASONS});
    EXPECT_EQ(names(restart_name, RESTART_REASONS).size(), size_t{RESTART_REASONS});
}

TEST(StreamReportNames, StandWithTheirReasons)
{
    EXPECT_STREQ(packet_drop_name(PACKET_DROP_BAD_VERSION), "bad_version");
    EXPECT_STREQ(packet_drop_name(PACKET_DROP_WRONG_PATH), "wrong_path");
    EXPECT_STREQ(packet_drop_name(PACKET_DROP_LATE), "late");
    EXPECT_STREQ(frame_drop_name(FRAME_DROP_TORN), "torn");
    EXPECT_STREQ(frame_drop_name(FRAME_DROP_WATCHDOG), "watchdog");
    EXPECT_STREQ(frame_drop_name(FRAME_DROP_MALFORMED), "malformed");
    EXPECT_STREQ(payload_fault_name(PAYLOAD_FAULT_BROKEN_FRAGMENT), "broken_fragment");
    EXPECT_STREQ(payload_fault_name(PAYLOAD_FAULT_NO_ROOM), "no_room");
    EXPECT_STREQ(watchdog_name(WATCHDOG_KEY_FRAME_STUCK), "key_frame_stuck");
    EXPECT_STREQ(restart_name(RESTART_CODEC_CHANGE), "codec_change");
}

TEST(StreamReportNames, HaveOneForAnUnknownReason)
{
    EXPECT_STREQ(packet_drop_name(PACKET_DROP_REASONS), "unknown");
    EXPECT_STREQ(frame_drop_name(FRAME_DROP_REASONS), "unknown");
    EXPECT_STREQ(payload_fault_name(PAYLOAD_FAULTS), "unknown");
    EXPECT_STREQ(watchdog_name(WATCHDOG_REASONS), "unknown");
    EXPECT_STREQ(restart_name(RESTART_REASONS), "unknown");
}

} // namespace
