#include "output/frame_files.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "capture_builder.h"
#include "failure.h"
#include "video_stream.h"

using namespace vrc;
using namespace vrc_test;

namespace
{

bool write(frame_files *files, size_t section, uint32_t ssrc, const bytes &data)
{
    channel_frame frame{};
    frame.data = data.data();
    frame.size = data.size();
    frame.codec = VIDEO_TYPE_H265;
    frame.uid = ssrc;
    return files->write(section, frame);
}

std::string content(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace

TEST(SenderFileName, HasSsrcInFrontOfExtension)
{
    struct {
        const char *path;
        unsigned copy;
        const char *name;
    } const rows[] = {
        {"call.h264", 1, "call-0000cafe.h264"},      {"call", 1, "call-0000cafe.h265"},
        {"/a.b/call", 1, "/a.b/call-0000cafe.h265"}, {"a/call.x.bin", 1, "a/call.x-0000cafe.bin"},
        {"call.h264", 2, "call-0000cafe-2.h264"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(sender_file_name(row.path, 0xCAFE, VIDEO_TYPE_H265, row.copy), row.name);
    }
}

TEST(FrameFiles, KnowsWhichFilesASenderCouldChoose)
{
    struct {
        const char *output;
        const char *name;
        bool is_possible;
    } const rows[] = {
        {"call.h264", "call-1122aabb.h264", true},
        {"call.h264", "./call-1122aabb.h264", true},
        {"call.h264", "call-1122aabb-2.h264", true},
        {"call", "call-1122aabb.h265", true},
        {"/tmp/call.h264", "call-1122aabb.h264", false},
        {"call.h264", "call-1122aabb.pcap", false},
        {"call.h264", "call-1122aab.h264", false},
        {"call.h264", "call-record.h264", false},
        {"call.h264", "call.h264", false},
        {"call.h264", "", false},
        {"", "-00000001.h264", false},
        {"call.h264", "-", false},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(sender_file_is_possible(row.output, row.name), row.is_possible) << row.output << " " << row.name;
    }
}

TEST(FrameFiles, WritesAllToOneFile)
{
    const temporary_file out;
    frame_files files(out.path(), false);
    EXPECT_TRUE(write(&files, 0, 1, {'a'}));
    EXPECT_TRUE(write(&files, 0, 2, {'b'}));
    EXPECT_EQ(content(out.path()), "ab") << "a reader need not wait for the end";
    files.close();
    EXPECT_EQ(files.name_of({0, 1}), "");
}

TEST(FrameFiles, GivesEachSenderItsOwn)
{
    const temporary_file place;
    frame_files files(place.path(), true);
    EXPECT_TRUE(write(&files, 0, 1, {'a'}));
    EXPECT_TRUE(write(&files, 0, 2, {'b'}));
    EXPECT_TRUE(write(&files, 0, 1, {'c'}));
    EXPECT_TRUE(write(&files, 1, 1, {'d'})); // the same SSRC in another session
    files.close();
    EXPECT_EQ(content(place.path()), "");
    const std::pair<frame_owner, const char *> rows[] = {{{0, 1}, "ac"}, {{0, 2}, "b"}, {{1, 1}, "d"}};
    for (const auto &[owner, text] : rows) {
        const std::string name = files.name_of(owner);
        EXPECT_EQ(content(name), text) << name;
        std::remove(name.c_str());
    }
    EXPECT_EQ(files.name_of({1, 2}), "");
}

namespace
{

size_t open_descriptors()
{
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(descriptors), end(descriptors)));
}

} // namespace

// Each of many senders sends twice, so that every file is closed once and gone on with.
TEST(FrameFiles, KeepsFewFilesOpenForAnyNumberOfSenders)
{
    constexpr uint32_t senders = 500;
    const temporary_file place;
    frame_files files(place.path(), true, {1000, 8});
    const size_t open_before = open_descriptors();
    for (const uint8_t letter : {uint8_t{'a'}, uint8_t{'b'}}) {
        for (uint32_t ssrc = 1; ssrc <= senders; ++ssrc) {
            ASSERT_TRUE(write(&files, 0, ssrc, {letter})) << ssrc;
            ASSERT_LE(open_descriptors(), open_before + 8);
        }
    }
    files.close();
    EXPECT_EQ(files.unwritten(), 0u);
    for (uint32_t ssrc = 1; ssrc <= senders; ++ssrc) {
        const std::string name = files.name_of({0, ssrc});
        EXPECT_EQ(content(name), "ab") << name;
        std::remove(name.c_str());
    }
}

TEST(FrameFiles, ClosesTheOneThatWasWrittenLeastRecently)
{
    const temporary_file place;
    frame_files files(place.path(), true, {1000, 2});
    EXPECT_TRUE(write(&files, 0, 1, {'a'}));
    EXPECT_TRUE(write(&files, 0, 2, {'a'}));
    EXPECT_TRUE(write(&files, 0, 1, {'b'}));
    std::remove(files.name_of({0, 2}).c_str()); // it cannot be gone on with once it is closed
    EXPECT_TRUE(write(&files, 0, 3, {'a'}));
    EXPECT_TRUE(write(&files, 0, 1, {'c'}));
    EXPECT_FALSE(write(&files, 0, 2, {'b'}));
    EXPECT_THROW(files.close(), failure);
    EXPECT_EQ(content(files.name_of({0, 1})), "abc");
    std::remove(files.name_of({0, 1}).c_str());
    std::remove(files.name_of({0, 3}).c_str());
}

TEST(FrameFiles, CreatesNoMoreThanItMayAndGoesOn)
{
    const temporary_file place;
    frame_files files(place.path(), true, {3, 2});
    for (const uint8_t letter : {uint8_t{'a'}, uint8_t{'b'}}) {
        for (uint32_t ssrc = 1; ssrc <= 5; ++ssrc) {
            EXPECT_TRUE(write(&files, 0, ssrc, {letter}));
        }
    }
    files.close();
    EXPECT_EQ(files.unwritten(), 4u);
    for (uint32_t ssrc = 1; ssrc <= 3; ++ssrc) {
        EXPECT_EQ(content(files.name_of({0, ssrc})), "ab");
        std::remove(files.name_of({0, ssrc}).c_str());
    }
    EXPECT_EQ(files.name_of({0, 4}), "");
}

TEST(FrameFiles, TellsAtTheEndWhatCouldNotBeCreated)
{
    frame_files files("/no/such/place", true);
    EXPECT_FALSE(write(&files, 0, 1, {'a'}));
    EXPECT_FALSE(write(&files, 0, 1, {'a'}));
    EXPECT_THROW(files.close(), failure);
    EXPECT_THROW(frame_files("/no/such/place", false), failure);
}

TEST(FrameFiles, WritesNothingWithoutName)
{
    frame_files files("", false);
    EXPECT_TRUE(write(&files, 0, 1, {'a'}));
    files.close();
}
