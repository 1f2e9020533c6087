#include "api/log.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace
{

struct message {
    int level;
    std::string text;
};

void record(void *context, int level, const char *format, va_list args)
{
    char text[256];
    vsnprintf(text, sizeof(text), format, args);
    static_cast<std::vector<message> *>(context)->push_back({level, text});
}

// Each test finds the tables as the program does and leaves them so.
class Log : public testing::Test
{
  protected:
    void TearDown() override
    {
        rtc_log_set_sink(nullptr, nullptr);
        rtc_log_set_level(RTC_LOG_WARNING);
    }
};

TEST_F(Log, IsEnabledAtFirst)
{
    EXPECT_EQ(1, g_log_enable);
}

TEST_F(Log, KnowsEachModuleByItsIdentifier)
{
    const char *const names[LM_MAX] = {"MIN", "SVC", "CHN", "USR", "-", "-", "-", "-", "-", "SND_VID", "RCV_VID", "-",
                                       "-",   "-",   "-",   "-",   "-", "-", "-", "-", "-", "-",       "RDT"};
    for (int i = 0; i < LM_MAX; i++) {
        EXPECT_EQ(i, g_log_mod_arr[i].m_id);
        EXPECT_STREQ(names[i], g_log_mod_arr[i].m_name) << i;
        EXPECT_EQ(RTC_LOG_WARNING, g_log_mod_arr[i].m_level) << i;
    }
}

TEST_F(Log, LabelsEachLevel)
{
    const char *const labels[] = {"DEFAULT", "EMERG", "ALERT", "CRIT", "ERROR", "WARNING", "NOTICE", "INFO", "DEBUG"};
    for (int level = RTC_LOG_DEFAULT; level <= RTC_LOG_DEBUG; level++) {
        EXPECT_STREQ(labels[level], g_log_level_arr[level]);
    }
}

TEST_F(Log, SetsTheLevelOfEveryModule)
{
    rtc_log_set_level(RTC_LOG_DEBUG);
    for (const log_mod_t &mod : g_log_mod_arr) {
        EXPECT_EQ(RTC_LOG_DEBUG, mod.m_level);
    }
}

TEST_F(Log, GivesMessagesToTheSinkWithTheirArguments)
{
    std::vector<message> messages;
    rtc_log_set_sink(record, &messages);
    kelvra_rtc_log(RTC_LOG_ERROR, "[%s] [%s] seq %u of %d\n", g_log_level_arr[RTC_LOG_ERROR],
                   g_log_mod_arr[LM_RCV_VID].m_name, 7u, -1);
    ASSERT_EQ(1u, messages.size());
    EXPECT_EQ(RTC_LOG_ERROR, messages[0].level);
    EXPECT_EQ("[ERROR] [RCV_VID] seq 7 of -1\n", messages[0].text);
}

TEST_F(Log, LeavesTheTestOfSwitchAndLevelToTheCaller)
{
    std::vector<message> messages;
    rtc_log_set_sink(record, &messages);
    rtc_log_set_level(RTC_LOG_DEFAULT);
    kelvra_rtc_log(RTC_LOG_DEBUG, "said\n");
    EXPECT_EQ(1u, messages.size());
}

#if GTEST_HAS_STREAM_REDIRECTION

TEST_F(Log, WritesToStandardErrorWithoutASink)
{
    std::vector<message> messages;
    rtc_log_set_sink(record, &messages);
    rtc_log_set_sink(nullptr, &messages);
    testing::internal::CaptureStderr();
    kelvra_rtc_log(RTC_LOG_WARNING, "[%s] %d\n", "WARNING", 42);
    EXPECT_EQ("[WARNING] 42\n", testing::internal::GetCapturedStderr());
    EXPECT_TRUE(messages.empty());
}

#endif

} // namespace
