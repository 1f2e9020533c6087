// Runs the command-line tool as a user does.
#include <gtest/gtest.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "cli_bench.h"

using namespace vrc_test;

namespace
{

// The bitstream that those packets carry.
bytes video_bitstream()
{
    const bytes start_code = {0, 0, 0, 1};
    const bytes sets = h264_parameter_sets();
    const size_t sps_size = sets[2];
    const bytes sps(sets.begin() + 3, sets.begin() + 3 + static_cast<std::ptrdiff_t>(sps_size));
    const bytes pps(sets.begin() + 5 + static_cast<std::ptrdiff_t>(sps_size), sets.end());
    bytes stream = start_code + sps + start_code + pps + start_code + h264_idr_slice(3000);
    for (unsigned picture = 1; picture < 30; ++picture) {
        stream = stream + start_code + h264_inter_slice(200 + picture);
    }
    return stream;
}

} // namespace

TEST(VrcUsage, PrintsVersion)
{
    const outcome result = vrc("--version");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out.substr(0, 4), "vrc ");
}

TEST(VrcUsage, PrintsHelpWithExamples)
{
    for (const char *arguments : {"--help", "replay --help", "info --help"}) {
        const outcome result = vrc(arguments);
        EXPECT_EQ(result.status, 0) << arguments;
        EXPECT_TRUE(contains(result.out, "Usage:")) << result.out;
    }
    EXPECT_TRUE(contains(vrc("--help").out, "vrc replay call.pcapng -o call.h264"));
}

TEST(VrcUsage, RefusesWrongUsageAndSaysWhy)
{
    const temporary_file capture(video().file());
    struct {
        std::string arguments;
        const char *message;
    } const rows[] = {
        {"", "subcommand"},
        {"play x.pcap", "unknown command 'play'; known are info, replay and listen"},
        {"info", "CAPTURE"},
        {"replay", "CAPTURE"},
        {"replay --no-such-option x.pcap", "--no-such-option"},
        {"replay x.pcap --codec vp8", "unknown codec 'vp8'; known are h264 and h265"},
        {"replay x.pcap --pt 128", "'128' is no number from 0 to 127"},
        {"replay x.pcap --pt -1", "--pt"},
        {"replay x.pcap --port 65536", "'65536' is no number from 0 to 65535"},
        {"replay x.pcap --ssrc 0x100000000", "'0x100000000' is no number"},
        {"replay x.pcap --ssrc cafe", "'cafe' is no number"},
        {"replay " + capture.path() + " -o " + capture.path(), "are the same file"},
        {"replay " + capture.path() + " --frames " + capture.path(), "are the same file"},
        {"replay " + capture.path() + " -o same --frames same", "are the same file"},
    };
    for (const auto &row : rows) {
        const outcome result = vrc(row.arguments);
        EXPECT_EQ(result.status, 2) << row.arguments;
        EXPECT_TRUE(contains(result.err, row.message)) << row.arguments << "\n" << result.err;
        EXPECT_EQ(result.out, "") << row.arguments;
    }
    EXPECT_EQ(content(capture.path()), text_of(video().file())) << "the capture was written to";
}

TEST(VrcInput, SaysWhichFileCannotBeReadAndWhy)
{
    const temporary_file text(bytes(100, 'x'));
    const temporary_file empty;
    const temporary_file compressed(bytes{0x1F, 0x8B, 8, 0} + bytes(60, 1));
    const temporary_file wireless(pcap_builder(105).file());
    struct {
        std::string path;
        const char *message;
    } const rows[] = {
        {"/no/such/file.pcap", "cannot read '/no/such/file.pcap': No such file or directory"},
        {"/", "cannot read '/': Is a directory"},
        {text.path(), "is not a capture"},
        {empty.path(), "is not a capture"},
        {compressed.path(), "compressed with gzip"},
        {wireless.path(), "link type IEEE802_11 (105) is not supported"},
    };
    for (const auto &row : rows) {
        for (const char *command : {"info ", "replay "}) {
            const outcome result = vrc(command + row.path);
            EXPECT_EQ(result.status, 3) << row.path;
            EXPECT_TRUE(contains(result.err, row.message)) << result.err;
            EXPECT_EQ(result.out, "") << row.path;
        }
    }
}

TEST(VrcInput, SaysWhyThereIsNoVideo)
{
    pcap_builder noise;
    noise.add(kStart, ethernet(kTypeIpv4, ipv4(udp(bytes(100, 'x')))));
    pcap_builder encrypted;
    uint32_t state = 1;
    for (uint16_t seq = 0; seq < 100; ++seq) {
        bytes payload(200);
        for (uint8_t &byte : payload) {
            state = state * 1664525 + 1013904223;
            byte = static_cast<uint8_t>(state >> 24);
        }
        encrypted.add_rtp(kStart + seq * 10'000u, {seq, seq * 900u}, payload);
    }
    struct {
        const char *name;
        bytes file;
        const char *message;
    } const rows[] = {
        {"nothing at all", pcap_builder().file(), "none of its 0 frames holds a UDP datagram"},
        {"no RTP", noise.file(), "none of its 1 UDP datagrams belongs to an RTP stream"},
        {"encrypted", encrypted.file(), "looks encrypted (SRTP): its key can be given to replay with --srtp"},
    };
    for (const auto &row : rows) {
        const temporary_file capture(row.file);
        for (const char *command : {"info ", "replay "}) {
            const outcome result = vrc(command + capture.path());
            EXPECT_EQ(result.status, 1) << row.name;
            EXPECT_TRUE(contains(result.err, "no RTP video in '" + capture.path() + "'")) << result.err;
            EXPECT_TRUE(contains(result.err, row.message)) << result.err;
        }
    }
}

TEST(VrcInfo, ListsStreams)
{
    const temporary_file capture(video().file());
    const outcome result = vrc("info " + capture.path());
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(contains(result.out, "192.0.2.1:4000 > 192.0.2.2:5004")) << result.out;
    EXPECT_TRUE(contains(result.out, "0x11223344")) << result.out;
    EXPECT_TRUE(contains(result.out, "h264")) << result.out;
    EXPECT_EQ(result.err, "");
}

TEST(VrcInfo, WritesJson)
{
    const temporary_file capture(video().file());
    const outcome result = vrc("info --json " + capture.path());
    ASSERT_EQ(result.status, 0);
    const auto json = nlohmann::json::parse(result.out);
    EXPECT_EQ(json["capture"]["packets"], 33);
    ASSERT_EQ(json["streams"].size(), 1u);
    EXPECT_EQ(json["streams"][0]["ssrc"], 0x11223344);
    EXPECT_EQ(json["streams"][0]["payload_type"], 96);
    EXPECT_EQ(json["streams"][0]["codec"], "h264");
    EXPECT_EQ(json["streams"][0]["packets"], 33);
    EXPECT_EQ(json["streams"][0]["lost"], 0);
}

TEST(VrcInfo, ReadsPipe)
{
    const temporary_file capture(video().file());
    const outcome result = vrc("info - <" + capture.path());
    EXPECT_EQ(result.status, 0);
    const outcome piped = vrc("--version >/dev/null; cat " + capture.path() + " | \"" + VRC_PROGRAM + "\" info -");
    EXPECT_EQ(piped.status, 0) << piped.err;
    EXPECT_EQ(piped.out, result.out);
}

TEST(VrcReplay, WritesBitstreamAndSummary)
{
    for (const uint16_t first : {uint16_t{1}, uint16_t{65530}}) {
        const temporary_file capture(video({first, 0xFFFFF000}).file());
        const temporary_file out;
        const outcome result = vrc("replay " + capture.path() + " -o " + out.path());
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_TRUE(contains(result.out, "frames      30 delivered")) << result.out;
        EXPECT_EQ(content(out.path()), text_of(video_bitstream()));
        EXPECT_EQ(result.err, "");
    }
}

TEST(VrcReplay, WritesBitstreamToStandardOutputAndSummaryToStandardError)
{
    const temporary_file capture(video().file());
    const outcome result = vrc("replay " + capture.path() + " -o -");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, text_of(video_bitstream()));
    EXPECT_TRUE(contains(result.err, "frames      30 delivered")) << result.err;
}

TEST(VrcReplay, WritesJson)
{
    const temporary_file capture(video().file());
    const outcome result = vrc("replay --json " + capture.path());
    ASSERT_EQ(result.status, 0) << result.err;
    const auto json = nlohmann::json::parse(result.out);
    EXPECT_EQ(json["packets"]["received"], 33);
    EXPECT_EQ(json["packets"]["lost"], 0);
    EXPECT_EQ(json["packets"]["dropped"], 0);
    EXPECT_EQ(json["frames"]["delivered"], 30);
    EXPECT_EQ(json["frames"]["key"], 1);
    EXPECT_EQ(json["frames"]["bytes"], video_bitstream().size());
    EXPECT_EQ(json["frames"]["dropped"], 0);
    EXPECT_NEAR(json["timing"]["frame_rate"].get<double>(), 30.0, 0.1);
}

TEST(VrcReplay, ListsFrames)
{
    const temporary_file capture(video({65534, 1000}).file());
    const temporary_file list;
    ASSERT_EQ(vrc("replay " + capture.path() + " --frames " + list.path()).status, 0);
    std::istringstream lines(content(list.path()));
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "index,rtp_timestamp,is_key,size,first_seq,last_seq");
    std::getline(lines, line);
    EXPECT_EQ(line, "0,1000,1,3026,65534,1");
    std::getline(lines, line);
    EXPECT_EQ(line, "1,4000,0,205,2,2");
    size_t count = 2;
    while (std::getline(lines, line)) {
        ++count;
    }
    EXPECT_EQ(count, 30u);
}

TEST(VrcReplay, GivesReferenceFramesOfWholeCaptures)
{
    for (const char *name : {"h264_stap_fu", "h264_slices", "h265_ap_fu"}) {
        const std::string data = std::string(VRC_TEST_DATA) + "/" + name;
        const temporary_file out;
        const temporary_file list;
        const outcome result = vrc("replay " + data + ".pcap -o " + out.path() + " --frames " + list.path() +
                                   " && sha256sum " + out.path());
        ASSERT_EQ(result.status, 0) << result.err;
        std::istringstream frames(content(list.path()));
        std::istringstream references(content(data + ".frames"));
        std::string frame;
        std::getline(frames, frame); // the heading
        for (std::string reference; std::getline(references, reference);) {
            std::istringstream words(reference);
            std::string timestamp;
            std::string size;
            std::string hash;
            words >> timestamp >> size >> hash;
            if (timestamp == "stream") {
                EXPECT_TRUE(contains(result.out, hash)) << name << "\n" << result.out;
            } else {
                ASSERT_TRUE(std::getline(frames, frame)) << name << " ends before " << reference;
                EXPECT_TRUE(contains(frame, "," + timestamp + ",")) << name << ": " << frame << " is not " << reference;
                EXPECT_TRUE(contains(frame, "," + size + ",")) << name << ": " << frame << " is not " << reference;
            }
        }
        EXPECT_FALSE(std::getline(frames, frame)) << name << ": one frame too many, " << frame;
    }
}

// Packets of one frame come up to six milliseconds apart in them, which is no lost end of a frame.
TEST(VrcReplay, WouldAskForNothingOfWholeCaptures)
{
    for (const char *name : {"h264_stap_fu", "h264_slices", "h265_ap_fu"}) {
        const outcome result = vrc("replay --json " + std::string(VRC_TEST_DATA) + "/" + name + ".pcap");
        ASSERT_EQ(result.status, 0) << result.err;
        const auto requests = nlohmann::json::parse(result.out)["requests"];
        EXPECT_EQ(requests["packets_asked_for"], 0) << name;
        EXPECT_EQ(requests["plis"], 0) << name;
    }
}

TEST(VrcReplay, PrintsReceiversLogOnlyWhenAsked)
{
    const temporary_file capture(video().file());
    EXPECT_EQ(vrc("replay " + capture.path()).err, "");
    EXPECT_NE(vrc("replay -vv " + capture.path()).err, "");
}

TEST(VrcReplay, BelievesUserAboutStreamAndCodec)
{
    const temporary_file capture(video({1, 0, false, 0x11223344, 10}).file()); // a payload type for audio
    EXPECT_EQ(vrc("replay " + capture.path()).status, 1);
    for (const char *choice : {"--pt 10 --codec h264", "--ssrc 0x11223344 --codec H.264",
                               "--ssrc 287454020 --codec avc", "--port 5004 --codec h264"}) {
        const outcome result = vrc("replay " + capture.path() + " " + choice);
        EXPECT_EQ(result.status, 0) << choice << "\n" << result.err;
        EXPECT_TRUE(contains(result.out, "frames      30 delivered")) << choice;
    }
}

TEST(VrcReplay, SaysWhenNoStreamMatches)
{
    const temporary_file capture(video().file());
    for (const char *choice : {"--pt 97", "--ssrc 5", "--port 9", "--pt 96 --port 9"}) {
        const outcome result = vrc("replay " + capture.path() + " " + choice);
        EXPECT_EQ(result.status, 1) << choice;
        EXPECT_TRUE(contains(result.err, choice[2] == 's' ? "--ssrc 0x00000005" : choice)) << result.err;
        EXPECT_TRUE(contains(result.err, "vrc info")) << result.err;
    }
}

TEST(VrcReplay, FailsWithSummaryWhenNoFrameComesOut)
{
    pcap_builder no_key_frame;
    for (uint16_t seq = 0; seq < 30; ++seq) {
        no_key_frame.add_rtp(kStart + seq * kFrameTime, {seq, seq * 3000u, true}, h264_inter_slice(100));
    }
    const temporary_file capture(no_key_frame.file());
    const outcome result = vrc("replay " + capture.path());
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.err, "no frame came out")) << result.err;
    EXPECT_TRUE(contains(result.out, "30 waiting for key frame")) << result.out;
}

TEST(VrcReplay, ReplaysDamagedCaptureUpToTheDamage)
{
    bytes file = video().file();
    file.resize(file.size() - 100);
    const temporary_file capture(file);
    const outcome result = vrc("replay " + capture.path());
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.out, "frames      29 delivered")) << result.out;
    EXPECT_TRUE(contains(result.out, "the capture is damaged after packet 32: truncated dump file")) << result.out;
    const auto json = nlohmann::json::parse(vrc("replay --json " + capture.path()).out);
    EXPECT_EQ(json["capture"]["is_cut_short"], true);
}

TEST(VrcReplay, NotesClockThatWentBack)
{
    pcap_builder builder = video();
    builder.add_rtp(kStart, {34, 90'000, true}, h264_inter_slice(100));
    const temporary_file capture(builder.file());
    const outcome result = vrc("replay " + capture.path());
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(contains(result.out, "clock went back 1 times")) << result.out;
}

TEST(VrcReplay, PassesOverSilenceOfYears)
{
    pcap_builder builder = video();
    builder.add_rtp(kStart + UINT64_C(30'000'000'000'000), {33, 90'000, true}, h264_inter_slice(100));
    const temporary_file capture(builder.file());
    const outcome result = vrc("replay " + capture.path());
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(contains(result.out, "frames      31 delivered")) << result.out;
    EXPECT_TRUE(contains(result.out, "of silence skipped")) << result.out;
}

TEST(VrcOutput, SaysWhichFileCannotBeWrittenAndWhy)
{
    const temporary_file capture(video().file());
    struct {
        std::string arguments;
        const char *message;
    } const rows[] = {
        {"replay " + capture.path() + " -o /dev/full", "cannot write '/dev/full': No space left on device"},
        {"replay " + capture.path() + " --frames /dev/full", "cannot write '/dev/full': No space left on device"},
        {"replay " + capture.path() + " -o /no/such/out.h264", "cannot write '/no/such/out.h264': No such file"},
        {"replay " + capture.path() + " -o - >/dev/full", "cannot write standard output: No space left on device"},
        {"replay " + capture.path() + " >/dev/full", "cannot write standard output: No space left on device"},
        {"info " + capture.path() + " >/dev/full", "cannot write standard output: No space left on device"},
    };
    for (const auto &row : rows) {
        const outcome result = vrc(row.arguments);
        EXPECT_EQ(result.status, 3) << row.arguments;
        EXPECT_TRUE(contains(result.err, row.message)) << row.arguments << "\n" << result.err;
    }
}
