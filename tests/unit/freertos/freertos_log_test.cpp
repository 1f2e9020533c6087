#include "freertos_log.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "api/log.h"

namespace
{

std::vector<std::string> g_lines;

void take_line(const char *text, size_t size)
{
    EXPECT_EQ(text[size], '\0');
    g_lines.emplace_back(text, size);
}

class FreertosLog : public testing::Test
{
  protected:
    FreertosLog()
    {
        g_lines.clear();
        freertos_log_start(take_line);
    }

    ~FreertosLog() override
    {
        freertos_log_start(nullptr);
        rtc_log_set_sink(nullptr, nullptr);
    }
};

TEST_F(FreertosLog, HandsOverWholeLines)
{
    kelvra_rtc_log(RTC_LOG_ERROR, "[%s][%s] seq %u\n", "ERROR", "RCV_VID", 65535u);
    kelvra_rtc_log(RTC_LOG_INFO, "[%s] \n", "INFO");
    EXPECT_EQ(g_lines, (std::vector<std::string>{"[ERROR][RCV_VID] seq 65535\n", "[INFO] \n"}));
}

TEST_F(FreertosLog, CutsWhatIsTooLong)
{
    const std::string text(kFreertosLogLineMax, 'x');

    for (const size_t size : {kFreertosLogLineMax - 1, kFreertosLogLineMax}) {
        kelvra_rtc_log(RTC_LOG_ERROR, "%s", text.substr(0, size).c_str());
    }
    EXPECT_EQ(g_lines, (std::vector<std::string>(2, text.substr(1))));
}

TEST_F(FreertosLog, IsSilentWithoutAWriter)
{
    freertos_log_start(nullptr);
    kelvra_rtc_log(RTC_LOG_ERROR, "[%s] nobody hears\n", "ERROR");
    EXPECT_TRUE(g_lines.empty());
}

} // namespace
