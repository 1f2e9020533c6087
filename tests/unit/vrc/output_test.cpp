#include <gtest/gtest.h>

#include <filesystem>

#include "capture_builder.h"
#include "failure.h"
#include "output/output_file.h"
#include "output/progress_bar.h"

using namespace vrc;
using namespace vrc_test;

namespace
{

template <typename Action> std::string error_of(Action action)
{
    try {
        action();
    } catch (const failure &error) {
        EXPECT_EQ(error.code(), exit_code::no_access);
        return error.what();
    }
    return "";
}

} // namespace

TEST(OutputFile, ReplacesContentAndCountsBytes)
{
    const temporary_file target(bytes(100, 'x'));
    output_file file(target.path(), file_privacy::shared);
    EXPECT_TRUE(file.write("abc", 3));
    EXPECT_TRUE(file.write("de", 2));
    EXPECT_EQ(file.size(), 5u);
    file.close();
    char content[8] = {};
    std::FILE *read = std::fopen(target.path().c_str(), "rb");
    EXPECT_EQ(std::fread(content, 1, sizeof(content), read), 5u);
    std::fclose(read);
    EXPECT_STREQ(content, "abcde");
}

TEST(OutputFile, KeepsContentUntilItIsWrittenOrClosed)
{
    const temporary_file target(bytes(100, 'x'));
    const auto size = [&target] { return std::filesystem::file_size(target.path()); };
    {
        const output_file never_written(target.path(), file_privacy::shared);
    }
    EXPECT_EQ(size(), 100u);
    output_file file(target.path(), file_privacy::shared);
    EXPECT_EQ(size(), 100u);
    EXPECT_TRUE(file.flush());
    EXPECT_EQ(size(), 0u);
    file.close();
    output_file(target.path(), file_privacy::shared).close();
    EXPECT_EQ(size(), 0u);
}

TEST(OutputFile, SaysWhyItCannotBeCreated)
{
    EXPECT_EQ(error_of([] { output_file file("/no/such/place", file_privacy::shared); }),
              "cannot write '/no/such/place': No such file or directory");
}

TEST(OutputFile, TellsFullDiskAtTheLatestWhenClosed)
{
    const char *expected = "cannot write '/dev/full': No space left on device";
    EXPECT_EQ(error_of([] {
                  output_file file("/dev/full", file_privacy::owner_only);
                  EXPECT_TRUE(file.write("abc", 3)); // buffered
                  file.close();
              }),
              expected);
    EXPECT_EQ(error_of([] {
                  output_file file("/dev/full", file_privacy::owner_only);
                  const bytes much(1 << 20);
                  EXPECT_FALSE(file.write(much.data(), much.size()));
                  EXPECT_FALSE(file.write("abc", 3));
                  EXPECT_EQ(file.size(), 0u);
                  file.close();
              }),
              expected);
}

TEST(ProgressLine, ShowsShareOfTheWork)
{
    const std::string tenth(4, '#');
    EXPECT_EQ(progress_line("work", 0, 100), "work [" + std::string(40, '.') + "]   0 %");
    EXPECT_EQ(progress_line("work", 10, 100), "work [" + tenth + std::string(36, '.') + "]  10 %");
    EXPECT_EQ(progress_line("work", 100, 100), "work [" + std::string(40, '#') + "] 100 %");
    EXPECT_EQ(progress_line("work", 150, 100), "work [" + std::string(40, '#') + "] 100 %");
}

TEST(ProgressBar, KeepsQuietWithoutTerminal)
{
    testing::internal::CaptureStderr();
    {
        progress_bar bar("work", 100, true);
        bar.update(50);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}
