#include "report/listen_summary.h"

#include <gtest/gtest.h>

using namespace vrc;

namespace
{

listened_stream stream_of(uint32_t ssrc, uint64_t packets)
{
    listened_stream stream;
    stream.received.stream.identity.ssrc = ssrc;
    stream.received.stream.identity.payload_type = 96;
    stream.received.report.packets = packets;
    stream.received.report.packets_lost = 1;
    stream.received.report.frames = packets / 2;
    stream.received.report.nacks_sent = 3;
    stream.received.report.reports_sent = 4;
    stream.header_bytes = 12 * packets;
    return stream;
}

listen_result result_of(bool is_all, const std::vector<listened_stream> &streams)
{
    listen_result result;
    result.is_all = is_all;
    result.streams = streams;
    result.refused[PACKET_DROP_UNKNOWN_PAYLOAD_TYPE] = 5;
    result.decryption = {300, 6, 0, 0};
    result.counts = {311, 7, 8, 9};
    result.rtcp_malformed = 2;
    result.where = "127.0.0.1:5004";
    result.duration_ms = 12'345;
    return result;
}

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

} // namespace

TEST(ListenSummary, JoinsStreamsThatFollowedEachOther)
{
    listen_result result = result_of(false, {stream_of(1, 10), stream_of(2, 20), stream_of(3, 40), stream_of(4, 80)});
    result.written = {3, 1, 3}; // came back
    streams_join(&result);
    ASSERT_EQ(result.streams.size(), 1u);
    EXPECT_EQ(result.streams[0].received.report.packets, 50u);
    EXPECT_EQ(result.streams[0].header_bytes, 600u);
    EXPECT_EQ(result.streams[0].received.stream.identity.ssrc, 1u);
    EXPECT_EQ(result.other_senders, 2u);
    EXPECT_TRUE(contains(listen_text(result), "3 senders followed each other, and were written as one stream: "
                                              "0x00000003 0x00000001 0x00000003\n"));
    EXPECT_TRUE(contains(listen_text(result), "2 other senders were received and not written: --all writes all\n"));
}

TEST(ListenSummary, ShowsFirstSenderWhileNothingIsWritten)
{
    listen_result result = result_of(false, {stream_of(1, 10), stream_of(2, 20)});
    streams_join(&result);
    ASSERT_EQ(result.streams.size(), 1u);
    EXPECT_EQ(result.streams[0].received.stream.identity.ssrc, 1u);
    EXPECT_EQ(result.other_senders, 1u);
    listen_result nothing = result_of(false, {});
    streams_join(&nothing);
    EXPECT_TRUE(nothing.streams.empty());
}

TEST(ListenSummary, TellsOfOneStreamAllThatCame)
{
    const listen_result result = result_of(false, {stream_of(1, 10)});
    const std::string text = listen_text(result);
    EXPECT_TRUE(contains(text, "listened    127.0.0.1:5004: 311 RTP and 7 RTCP datagrams (2 malformed), 12.345 s\n"
                               "sent        8 RTCP datagrams, 9 could not be\n"))
        << text;
    EXPECT_TRUE(contains(text, "srtp        300 packets decrypted, dropped 6: 6 not authentic\n")) << text;
    EXPECT_TRUE(contains(text, "  dropped   5: 5 unknown payload type\n")) << text;
    EXPECT_TRUE(contains(text, "feedback    3 NACK for 0 packets, 0 PLI, 0 FIR, 4 reports, 0 REMB\n")) << text;
    const json object = listen_json(result);
    EXPECT_EQ(object["listen"]["rtp_datagrams"], 311);
    EXPECT_EQ(object["listen"]["senders_written"], 0);
    EXPECT_EQ(object["feedback"]["rtcp_sent"], 8);
    EXPECT_EQ(object["feedback"]["nacks"], 3);
    EXPECT_EQ(object["packets"]["received"], 10);
    EXPECT_EQ(object["packets"]["dropped"], 5);
    EXPECT_EQ(object["srtp"]["not_authentic"], 6);
    EXPECT_FALSE(object.contains("streams"));
}

TEST(ListenSummary, TellsOfEachStreamWhenAllAreWanted)
{
    listen_result result = result_of(true, {stream_of(1, 10), stream_of(2, 20)});
    result.streams[1].file = "call-00000002.h264";
    const std::string text = listen_text(result);
    EXPECT_TRUE(contains(text, "refused     5: 5 unknown payload type\n")) << text;
    EXPECT_TRUE(contains(text, "SSRC 0x00000001")) << text;
    EXPECT_TRUE(contains(text, "SSRC 0x00000002")) << text;
    EXPECT_TRUE(contains(text, "output      call-00000002.h264\n")) << text;
    const json object = listen_json(result);
    ASSERT_EQ(object["streams"].size(), 2u);
    EXPECT_EQ(object["streams"][0]["packets"]["received"], 10);
    EXPECT_EQ(object["streams"][0]["packets"]["dropped"], 0);
    EXPECT_EQ(object["streams"][1]["feedback"]["nacks"], 3);
    EXPECT_EQ(object["streams"][1]["file"], "call-00000002.h264");
    EXPECT_EQ(object["refused"]["unknown_payload_type"], 5);
    EXPECT_EQ(object["srtp"]["decrypted"], 300);
    EXPECT_EQ(object["feedback"]["rtcp_unsent"], 9);
}

TEST(ListenSummary, TellsWhatWasLeftOutForALimit)
{
    listen_result result = result_of(false, {stream_of(1, 10)});
    EXPECT_EQ(listen_text(result).find("note"), std::string::npos);
    result.limits.frames_not_held = 21;
    result.limits.times_without_memory = 22;
    result.limits.frames_without_file = 23;
    result.limits.datagrams = {24, 25};
    const std::string text = listen_text(result);
    EXPECT_TRUE(contains(text, "note        21 frames of another sender were dropped")) << text;
    EXPECT_TRUE(contains(text, "note        22 times there was no memory")) << text;
    const json limits = listen_json(result)["limits"];
    EXPECT_EQ(limits["frames_not_held"], 21);
    EXPECT_EQ(limits["times_without_memory"], 22);
    EXPECT_TRUE(contains(text, "note        23 frames were not written: there were more senders than files\n")) << text;
    EXPECT_EQ(limits["frames_without_file"], 23);
    EXPECT_TRUE(contains(text, "note        24 datagrams were ignored: they came from elsewhere than --from says\n"))
        << text;
    EXPECT_EQ(limits["datagrams_foreign"], 24);
    EXPECT_TRUE(contains(text, "note        25 datagrams were ignored: they were larger than --max-packet says\n"))
        << text;
    EXPECT_EQ(limits["datagrams_too_large"], 25);
}

TEST(ListenSummary, TellsOfSendersThatAreCountedTogether)
{
    listen_result result = result_of(true, {stream_of(1, 10)});
    EXPECT_EQ(listen_text(result).find("more than 256 senders"), std::string::npos);
    result.silent = {31, 32, 33, 34, 35};
    const std::string text = listen_text(result);
    EXPECT_TRUE(contains(text, "more than 256 senders: 31 silent ones are counted together, 32 packets and 35 frames"))
        << text;
    const json silent = listen_json(result)["silent_senders"];
    EXPECT_EQ(silent, (json{{"senders", 31}, {"packets", 32}, {"bytes", 33}, {"lost", 34}, {"frames", 35}}));
    result.is_all = false;
    result.written = {1};
    streams_join(&result);
    EXPECT_EQ(result.other_senders, 31u);
}

TEST(ListenSummary, FitsStatusOnALine)
{
    listen_result result = result_of(true, {stream_of(1, 10), stream_of(2, 20)});
    EXPECT_EQ(listen_status(result), "12 s: 2 streams, 30 packets, 2 lost; 15 frames, 0 of them key frames; 6 NACK, "
                                     "0 PLI; 6 packets not authentic");
    result.is_all = false;
    result.streams.pop_back();
    result.decryption = {};
    EXPECT_EQ(listen_status(result), "12 s: 10 packets, 1 lost; 5 frames, 0 of them key frames; 3 NACK, 0 PLI");
    result.streams.clear();
    EXPECT_EQ(listen_status(result), "12 s: no video yet, 311 RTP and 7 RTCP datagrams");
}
