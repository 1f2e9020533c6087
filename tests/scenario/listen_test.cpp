// Lets `vrc listen` receive from a sender over the loopback interface.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "capture_builder.h"
#include "listen_bench.h"
#include "wire/rtcp.h"

using namespace vrc_test;

namespace
{

std::vector<json> lines(const std::string &path)
{
    std::ifstream file(path);
    std::vector<json> found;
    for (std::string line; std::getline(file, line);) {
        found.push_back(json::parse(line));
    }
    return found;
}

json last_line(const std::string &path)
{
    const std::string text = content(path);
    const size_t begin = text.rfind('\n', text.size() - 2);
    return json::parse(text.substr(begin == std::string::npos ? 0 : begin + 1));
}

} // namespace

TEST(VrcListen, ReceivesFfmpegUntilItIsTerminated)
{
    const uint16_t port = free_port_pair();
    const temporary_file out;
    const temporary_file messages;
    listening_tool tool(port, "--codec h264 -o " + out.path());
    const std::string send = "ffmpeg -nostdin -v error -re -f lavfi -i testsrc2=size=320x240:rate=30 -t 3 -c:v libx264 "
                             "-preset ultrafast -g 30 -f rtp rtp://127.0.0.1:" +
                             std::to_string(port) + " >/dev/null";
    ASSERT_EQ(std::system(send.c_str()), 0);
    std::this_thread::sleep_for(milliseconds(200));
    tool.stop();
    ASSERT_EQ(tool.status(), 0) << tool.error();
    const json summary = tool.summary();
    EXPECT_GT(summary["frames"]["delivered"], 60);
    EXPECT_EQ(summary["stream"]["codec"], "h264");
    EXPECT_GT(summary["feedback"]["reports"], 0);
    const std::string decode = "ffmpeg -nostdin -v error -xerror -i " + out.path() + " -f null - 2>" + messages.path();
    EXPECT_EQ(std::system(decode.c_str()), 0);
    EXPECT_EQ(content(messages.path()), "");
}

TEST(VrcListen, AsksForLostPacketsUntilAllFramesAreWhole)
{
    constexpr unsigned pictures = 150;
    const uint16_t port = free_port_pair();
    const temporary_file out;
    const temporary_file stats;
    const temporary_file record;
    listening_tool tool(port, "--codec h264 --pt 96 --frames 150 -o " + out.path() + " --stats " + stats.path() +
                                  " --record " + record.path());
    lossy_sender sender(port);
    sender.send_pictures(pictures);
    sender.answer(milliseconds(500));
    ASSERT_EQ(tool.status(), 0) << tool.error();

    const json summary = tool.summary();
    EXPECT_EQ(summary["frames"]["delivered"], pictures);
    EXPECT_EQ(summary["frames"]["dropped"], 0);
    EXPECT_EQ(summary["packets"]["lost"], 0);
    EXPECT_TRUE(content(out.path()) == sender.bitstream());
    EXPECT_EQ(sender.lost_numbers().size(), 22u);
    for (const uint16_t seq : sender.lost_numbers()) {
        EXPECT_EQ(sender.repeated().count(seq), 1u) << seq;
    }
    const json last = last_line(stats.path());
    EXPECT_GT(last["nackCount"], 0);
    EXPECT_EQ(last["framesAssembled"], pictures);

    const std::string replay =
        std::string("\"") + VRC_PROGRAM + "\" replay " + record.path() + " -o - 2>/dev/null | cmp -s - " + out.path();
    EXPECT_EQ(std::system(replay.c_str()), 0) << "the recorded capture gives other frames";
}

namespace
{

constexpr const char *kKey = "YWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFh";
constexpr const char *kSuite = "AES_CM_128_HMAC_SHA1_80";

// The NAL units of an Annex B stream, whatever the length of their start codes.
std::vector<std::string> nal_units(const std::string &stream)
{
    const std::string start_code("\0\0\1", 3);
    std::vector<std::string> units;
    for (size_t at = stream.find(start_code); at != std::string::npos;) {
        const size_t begin = at + start_code.size();
        at = stream.find(start_code, begin);
        std::string unit = stream.substr(begin, at == std::string::npos ? at : at - begin);
        unit.erase(unit.find_last_not_of('\0') + 1);
        units.push_back(std::move(unit));
    }
    return units;
}

} // namespace

TEST(VrcListen, GivesWhatFfmpegSendsEncrypted)
{
    struct {
        const char *codec;
        const char *encoder;
        bool has_description;
    } const rows[] = {{"h264", "libx264", true}, {"hevc", "libx265 -x265-params log-level=none", false}};
    for (const auto &row : rows) {
        const temporary_file sent;
        const temporary_file out;
        const temporary_file record;
        const uint16_t port = free_port_pair();
        const std::string text = "v=0\no=- 0 0 IN IP4 127.0.0.1\ns=No Name\nc=IN IP4 127.0.0.1\nt=0 0\nm=video " +
                                 std::to_string(port) + " RTP/AVP 96\na=rtpmap:96 H264/90000\na=crypto:1 " + kSuite +
                                 " inline:" + kKey + "\n"; // FFmpeg's own
        const temporary_file description(bytes(text.begin(), text.end()));
        const std::string what = row.has_description ? "--sdp " + description.path()
                                                     : std::string("--codec h265 --srtp ") + kSuite + ":" + kKey;
        const std::string send =
            std::string("ffmpeg -nostdin -y -v error -readrate 3 -f lavfi -i testsrc2=size=320x240:"
                        "rate=30 -t 2 -preset ultrafast -bf 0 -g 30 -c:v ") +
            row.encoder + " -map 0 -f tee '[f=rtp:srtp_out_suite=" + kSuite + ":srtp_out_params=" + kKey +
            "]srtp://127.0.0.1:" + std::to_string(port) + "|[f=" + row.codec + "]" + sent.path() + "'";
        listening_tool tool(port, what + " --frames 60 -o " + out.path() + " --record " + record.path());
        ASSERT_EQ(std::system(send.c_str()), 0);
        ASSERT_EQ(tool.status(), 0) << tool.error();
        EXPECT_TRUE(nal_units(content(out.path())) == nal_units(content(sent.path())))
            << row.codec << ": other NAL units came out than were sent";
        const json summary = tool.summary();
        EXPECT_EQ(summary["frames"]["delivered"], 60);
        EXPECT_GE(summary["srtp"]["decrypted"], summary["packets"]["received"]);
        EXPECT_EQ(summary["srtp"]["not_authentic"], 0);
        const std::string replay = std::string("\"") + VRC_PROGRAM + "\" replay " + record.path() +
                                   " -o - 2>/dev/null | cmp -s - " + out.path();
        EXPECT_EQ(std::system(replay.c_str()), 0) << "the recorded capture gives other frames";
    }
}

TEST(VrcListen, SaysWhenTheKeyIsWrong)
{
    const uint16_t port = free_port_pair();
    listening_tool tool(port, std::string("--codec h264 --srtp ") + kSuite + ":" + kKey);
    plain_sender sender(port, 7);
    sender.send_pictures(5);
    std::this_thread::sleep_for(milliseconds(1200)); // it is said while there is time to do something about it
    EXPECT_NE(tool.error().find("vrc: none of 16 SRTP packets is authentic"), std::string::npos) << tool.error();
    tool.stop();
    EXPECT_EQ(tool.status(), 1);
    EXPECT_NE(tool.error().find("no frame came out"), std::string::npos) << tool.error();
    EXPECT_EQ(tool.summary()["srtp"]["not_authentic"], 16);
    EXPECT_EQ(tool.summary()["srtp"]["decrypted"], 0);
}

TEST(VrcListen, WritesEverySenderToItsOwnFile)
{
    const uint16_t port = free_port_pair();
    const uint16_t other_port = free_port_pair();
    const std::string text = "v=0\r\no=- 0 0 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=video " +
                             std::to_string(port) + " RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\nm=video " +
                             std::to_string(other_port) + " RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\n";
    const temporary_file description(bytes(text.begin(), text.end()));
    const temporary_file place;
    const temporary_file stats;
    listening_tool tool("--all --sdp " + description.path() + " --frames 60 -o " + place.path() + " --stats " +
                            stats.path(),
                        static_cast<uint16_t>(other_port + 1));
    plain_sender senders[] = {{port, 0xA}, {port, 0xB}, {other_port, 0xC}};
    for (int i = 0; i < 20; ++i) {
        for (plain_sender &sender : senders) {
            sender.send_pictures(1);
        }
    }
    ASSERT_EQ(tool.status(), 0) << tool.error();
    const json summary = tool.summary();
    ASSERT_EQ(summary["streams"].size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        const json &stream = summary["streams"][i];
        const std::string name = place.path() + "-0000000" + "abc"[i] + ".h264";
        EXPECT_EQ(stream["stream"]["ssrc"], 0xA + i);
        EXPECT_EQ(stream["file"], name);
        EXPECT_EQ(stream["frames"]["delivered"], 20);
        EXPECT_EQ(stream["packets"]["received"], 61);
        EXPECT_TRUE(content(name) == senders[i].bitstream());
        std::remove(name.c_str());
    }
    std::map<uint32_t, unsigned> assembled;
    for (const json &line : lines(stats.path())) {
        assembled[line["ssrc"]] = line["framesAssembled"];
    }
    EXPECT_EQ(assembled, (std::map<uint32_t, unsigned>{{0xA, 20}, {0xB, 20}, {0xC, 20}}));
}

TEST(VrcListen, GoesOnWithSenderThatIsStartedAgain)
{
    const uint16_t port = free_port_pair();
    const temporary_file out;
    listening_tool tool(port, "--codec h264 --frames 60 -o " + out.path());
    plain_sender first(port, 0xA);
    first.send_pictures(20);
    plain_sender second(port, 0xB); // at once, without a word
    second.send_pictures(20);
    std::this_thread::sleep_for(milliseconds(1100));
    second.say_bye();
    plain_sender third(port, 0xC); // after BYE
    third.send_pictures(20);
    ASSERT_EQ(tool.status(), 0) << tool.error();
    EXPECT_TRUE(content(out.path()) == first.bitstream() + second.bitstream() + third.bitstream());
    const json summary = tool.summary();
    EXPECT_EQ(summary["frames"]["delivered"], 60);
    EXPECT_EQ(summary["packets"]["received"], 3 * 61);
    EXPECT_EQ(summary["listen"]["senders_written"], 3);
    EXPECT_EQ(summary["listen"]["other_senders"], 0);
}

TEST(VrcListen, ReceivesAndAnswersOverIpv6)
{
    const uint16_t port = free_port_pair();
    const temporary_file out;
    listening_tool tool(port, "--codec h264 --pt 96 --frames 20 -o " + out.path());
    plain_sender sender(port, 7, AF_INET6);
    sender.socket().send(port, rtp({65499, 0U - 900, true, 7}, h264_inter_slice(100))); // a key frame is missing
    EXPECT_FALSE(sender.socket().receive(milliseconds(2000)).empty());
    sender.send_pictures(20);
    ASSERT_EQ(tool.status(), 0) << tool.error();
    EXPECT_TRUE(content(out.path()) == sender.bitstream());
    EXPECT_EQ(tool.summary()["stream"]["destination"], "[::1]:" + std::to_string(port));
}

TEST(VrcListen, WritesFramesToPipe)
{
    const uint16_t port = free_port_pair();
    const std::string arguments = "--codec h264 --pt 96 --port " + std::to_string(port) + " -o - ";
    {
        listening_tool tool(arguments + "--frames 20", static_cast<uint16_t>(port + 1), "| cat");
        plain_sender sender(port, 7);
        sender.send_pictures(20);
        EXPECT_EQ(tool.status(), 0);
        EXPECT_TRUE(content(tool.out()) == sender.bitstream());
        EXPECT_EQ(json::parse(tool.error())["frames"]["delivered"], 20);
    }
    // A player that is closed ends it; the summary comes all the same.
    listening_tool tool(arguments, static_cast<uint16_t>(port + 1), "| head -c 1000");
    plain_sender sender(port, 7);
    sender.send_pictures(100);
    tool.status();
    EXPECT_TRUE(content(tool.out()) == sender.bitstream().substr(0, 1000));
    EXPECT_NE(tool.error().find("\"delivered\""), std::string::npos) << tool.error();
    EXPECT_NE(tool.error().find("cannot write standard output: Broken pipe"), std::string::npos) << tool.error();
}

TEST(VrcListen, EndsWithSummaryWhenInterrupted)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        const uint16_t port = free_port_pair();
        const temporary_file out;
        listening_tool tool(port, "--codec h264 --pt 96 -o " + out.path());
        plain_sender sender(port, 7);
        sender.send_pictures(10);
        std::this_thread::sleep_for(milliseconds(200));
        tool.stop(signal);
        EXPECT_EQ(tool.status(), 0) << tool.error();
        EXPECT_EQ(tool.summary()["frames"]["delivered"], 10);
        EXPECT_TRUE(content(out.path()) == sender.bitstream());
    }
}

TEST(VrcListen, TellsEachSecondHowItGoes)
{
    const uint16_t port = free_port_pair();
    const temporary_file stats;
    const temporary_file terminal;
    // The line is for people who watch: standard error is a terminal here.
    const std::string command = std::string("script -qefc '\"") + VRC_PROGRAM +
                                "\" listen --codec h264 --pt 96 --port " + std::to_string(port) +
                                " --duration 3.5 --stats " + stats.path() + "' /dev/null >" + terminal.path();
    std::thread tool([&command] { EXPECT_EQ(std::system(command.c_str()), 0); });
    wait_until_bound(static_cast<uint16_t>(port + 1));
    plain_sender sender(port, 7);
    for (int i = 0; i < 300; ++i) {
        sender.send_pictures(1);
        std::this_thread::sleep_for(milliseconds(5));
    }
    tool.join();
    const std::vector<json> records = lines(stats.path());
    ASSERT_GE(records.size(), 3u);
    EXPECT_LE(records.size(), 5u);
    uint64_t packets = 0;
    for (const json &record : records) {
        EXPECT_GE(record["packetsReceived"], packets);
        packets = record["packetsReceived"];
        EXPECT_EQ(record["ssrc"], 7);
    }
    EXPECT_GT(records.back()["packetsReceived"], records.front()["packetsReceived"]);
    const std::string shown = content(terminal.path());
    EXPECT_NE(shown.find("\r\x1B[K1 s: "), std::string::npos) << shown;
    EXPECT_NE(shown.find("frames, 1 of them key frames; "), std::string::npos) << shown;
}

TEST(VrcListen, SendsRtcpWhereItIsTold)
{
    const uint16_t port = free_port_pair();
    const udp_socket told;
    listening_tool tool(port, "--codec h264 --pt 96 --rtcp 127.0.0.1:" + std::to_string(told.port()));
    const udp_socket rtp_socket;
    const udp_socket rtcp_socket;
    rtcp_socket.send(static_cast<uint16_t>(port + 1), bytes(12, 0x80));
    rtp_socket.send(port, rtp({1, 0, true, 7}, h264_inter_slice(100)));
    const bytes request = told.receive(milliseconds(2000));
    EXPECT_TRUE(rtcp_validate(request.data(), request.size()));
    EXPECT_TRUE(rtcp_socket.receive(milliseconds(50)).empty());
    EXPECT_TRUE(rtp_socket.receive(milliseconds(50)).empty());
}

TEST(VrcListen, SendsRtcpToWhoeverShowsASocketForIt)
{
    const uint16_t port = free_port_pair();
    listening_tool tool(port, "--codec h264 --pt 96");
    const udp_socket rtp_socket;
    const udp_socket rtcp_socket;
    // Too late for a gateway's first word: where RTP comes from is all that is known.
    rtp_socket.send(port, rtp({1, 0, true, 7}, h264_inter_slice(100)));
    bytes request = rtp_socket.receive(milliseconds(2000));
    EXPECT_TRUE(rtcp_validate(request.data(), request.size()));
    rtcp_socket.send(static_cast<uint16_t>(port + 1), bytes(12, 0x80));
    request = rtcp_socket.receive(milliseconds(2000)); // the request is repeated
    EXPECT_TRUE(rtcp_validate(request.data(), request.size()));
    tool.stop();
    tool.status();
    EXPECT_EQ(tool.summary()["listen"]["rtcp_malformed"], 1);
}

TEST(VrcListen, GivesUpWhatItDoesNotNeedOnceItListens)
{
    const auto settles = [](const listening_tool &tool, const std::string &filter) {
        const auto end = steady_clock::now() + std::chrono::seconds(5);
        while (tool.system_status("Seccomp") != filter && steady_clock::now() < end) {
            std::this_thread::sleep_for(milliseconds(10));
        }
        return tool.system_status("Seccomp") == filter;
    };
    {
        const uint16_t port = free_port_pair();
        const temporary_file out;
        listening_tool tool(port, "-v --codec h264 --pt 96 --frames 10 -o " + out.path());
        EXPECT_TRUE(settles(tool, VRC_HAS_SANDBOX ? "2" : "0")) << tool.system_status("Seccomp");
        EXPECT_EQ(tool.system_status("NoNewPrivs"), VRC_HAS_SANDBOX ? "1" : "0");
        plain_sender sender(port, 7);
        sender.send_pictures(10);
        EXPECT_EQ(tool.status(), 0) << tool.error();
        EXPECT_TRUE(content(out.path()) == sender.bitstream());
        EXPECT_EQ(tool.error().find("vrc: from now on") != std::string::npos, bool{VRC_HAS_SANDBOX}) << tool.error();
    }
    {
        const uint16_t port = free_port_pair();
        listening_tool tool(port, "--no-sandbox --codec h264 --pt 96 --frames 10");
        plain_sender sender(port, 7);
        sender.send_pictures(5); // it is past the point where it would
        std::this_thread::sleep_for(milliseconds(100));
        EXPECT_EQ(tool.system_status("Seccomp"), "0");
        EXPECT_EQ(tool.system_status("NoNewPrivs"), "0");
        sender.send_pictures(5);
        EXPECT_EQ(tool.status(), 0) << tool.error();
    }
}

// Two senders of five pictures each, one behind the other: 32 packets, of which the small ones have parameter sets.
TEST(VrcListen, TakesNoMoreFromStrangersThanTheOptionsSay)
{
    struct {
        const char *options;
        int status;
        const char *limit; // in the summary
        const char *key;
        unsigned count;
        unsigned frames;
    } const rows[] = {
        {"--from 127.0.0.0/8 --from ::1", 0, "limits", "datagrams_foreign", 0, 10},
        {"--from 127.0.0.2 --from 10.0.0.0/8", 1, "limits", "datagrams_foreign", 32, 0},
        {"--max-packet 65536", 0, "limits", "datagrams_too_large", 0, 10},
        {"--max-packet 100", 1, "limits", "datagrams_too_large", 30, 0},
        {"--max-senders 2", 0, "refused", "too_many_senders", 0, 10},
        {"--max-senders 1", 0, "refused", "too_many_senders", 16, 5},
    };
    for (const auto &row : rows) {
        const uint16_t port = free_port_pair();
        listening_tool tool(port, std::string("--codec h264 --pt 96 --all ") + row.options);
        for (const uint32_t ssrc : {7U, 8U}) {
            plain_sender(port, ssrc).send_pictures(5);
        }
        std::this_thread::sleep_for(milliseconds(100));
        tool.stop();
        EXPECT_EQ(tool.status(), row.status) << tool.error();
        const json summary = tool.summary();
        EXPECT_EQ(summary[row.limit][row.key], row.count) << row.options;
        unsigned frames = 0;
        for (const json &stream : summary["streams"]) {
            frames += stream["frames"]["delivered"].get<unsigned>();
        }
        EXPECT_EQ(frames, row.frames) << row.options;
    }
}

// Each sender takes a ring of 768 KiB.
TEST(VrcListen, RefusesSendersThatThereIsNoMemoryForAndGoesOn)
{
    const uint16_t port = free_port_pair();
    listening_tool tool(port, "--codec h264 --pt 96 --all --memory 4 --max-senders 30 --feedback remb,reports");
    plain_sender honest(port, 7);
    honest.send_pictures(5);
    for (uint32_t ssrc = 100; ssrc < 120; ++ssrc) {
        plain_sender(port, ssrc).send_pictures(1);
    }
    honest.send_pictures(20);
    std::this_thread::sleep_for(milliseconds(100));
    tool.stop();
    EXPECT_EQ(tool.status(), 0) << tool.error();
    const json summary = tool.summary();
    uint64_t refused = summary["refused"]["no_memory"].get<uint64_t>();
    for (const json &stream : summary["streams"]) {
        refused += stream["packets"]["dropped_by_reason"]["no_memory"].get<uint64_t>();
    }
    EXPECT_GT(refused, 0u);
    EXPECT_EQ(summary["streams"][0]["stream"]["ssrc"], 7);
    EXPECT_EQ(summary["streams"][0]["frames"]["delivered"], 25);
}

TEST(VrcListen, SaysWhenNothingComes)
{
    listening_tool tool(free_port_pair(), "--codec h264");
    tool.stop();
    EXPECT_EQ(tool.status(), 1);
    EXPECT_NE(tool.error().find("no RTP came"), std::string::npos) << tool.error();
    EXPECT_EQ(tool.summary()["packets"]["received"], 0);
}

TEST(VrcListen, EmptiesNoFileForAPortThatIsTaken)
{
    const udp_socket taken;
    const std::string text = "the recording of another day";
    const temporary_file kept(bytes(text.begin(), text.end()));
    const std::string command = std::string("\"") + VRC_PROGRAM + "\" listen --codec h264 --port " +
                                std::to_string(taken.port()) + " -o " + kept.path() + " 2>/dev/null";
    EXPECT_NE(std::system(command.c_str()), 0);
    EXPECT_EQ(content(kept.path()), text);
}

TEST(VrcListen, SaysWhatIsWrongBeforeItListens)
{
    const udp_socket taken;
    const std::string in_use = std::to_string(taken.port());
    struct {
        std::string arguments;
        int status;
        std::string message;
    } const rows[] = {
        {"", 2, "--codec h264"},
        {"--codec vp8", 2, "unknown codec 'vp8'"},
        {"--codec h264 --feedback nack,ack", 2, "unknown feedback 'ack'"},
        {"--codec h264 --bind nowhere", 2, "'nowhere' is no IPv4 or IPv6 address"},
        {"--codec h264 --rtcp 127.0.0.1", 2, "'127.0.0.1' is no HOST:PORT"},
        {"--codec h264 -o same --record same", 2, "are the same file"},
        {"--codec h264 --all -o -", 2, "--all writes a file for each sender"},
        {"--codec h264 --srtp nonsense", 2, "SRTP key: write the suite, a colon and the key"},
        {std::string("--codec h264 --srtp-send ") + kSuite + ":" + kKey, 2, "--srtp-send without the sender's key"},
        {"--codec h264 --rtx 97", 2, "'97' is not two payload types"},
        {"--codec h264 --from 10.0.0.1/8", 2, "'10.0.0.1/8' has bits set behind its prefix of 8 bits"},
        {"--codec h264 --from here", 2, "'here' is no ADDRESS/PREFIX"},
        {"--codec h264 --max-packet 10", 2, "--max-packet"},
        {"--codec h264 --max-packet 70000", 2, "--max-packet"},
        {"--codec h264 --max-senders 0", 2, "--max-senders"},
        {"--codec h264 --max-senders 129", 2, "--max-senders"},
        {"--codec h264 --memory 1", 2, "--memory"},
        {"--codec h264 --port " + in_use, 3, "cannot listen on 127.0.0.1:" + in_use + " (UDP): address already in use"},
        {"--codec h264 --bind 192.0.2.1", 3, "cannot listen on 192.0.2.1:5004 (UDP): address not available"},
#if VRC_HAS_SANDBOX
        {"--codec h264 --all -o /no/such/call.h264", 3, "cannot write in '/no/such': No such file or directory"},
#endif
        {"--sdp /no/such.sdp", 3, "cannot read '/no/such.sdp': No such file or directory"},
    };
    for (const auto &row : rows) {
        const temporary_file err;
        const std::string command =
            std::string("\"") + VRC_PROGRAM + "\" listen --duration 1 " + row.arguments + " 2>" + err.path();
        const int status = std::system(command.c_str());
        EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, row.status) << row.arguments;
        EXPECT_NE(content(err.path()).find(row.message), std::string::npos) << content(err.path());
    }
}
