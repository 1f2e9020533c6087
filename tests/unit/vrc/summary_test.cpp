#include "report/summary.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <set>

#include "video_stream.h"

using namespace vrc;

namespace
{

rtp_stream stream_of_test()
{
    rtp_stream stream;
    stream.identity.path.source = {{false, {192, 0, 2, 1}}, 4000};
    stream.identity.path.destination = {{false, {192, 0, 2, 2}}, 5004};
    stream.identity.ssrc = 0xCDA46D5C;
    stream.identity.payload_type = 104;
    stream.codec = VIDEO_TYPE_H265;
    stream.likelihood = 0.987;
    stream.packets = 407;
    stream.bytes = 250'000;
    stream.lost = 3;
    stream.first_us = 1'000'000;
    stream.last_us = 3'000'000;
    return stream;
}

replay_result result_of_test()
{
    replay_result result;
    result.stream = stream_of_test();
    result.capture.frames = 500;
    result.capture.udp = 410;
    result.capture.duration_us = 2'500'000;
    stream_report &report = result.report;
    report.packets = 407;
    report.bytes = 250'000;
    report.packets_reordered = 7;
    report.packets_retransmitted = 21;
    report.packets_repaired = 20;
    report.packets_padding = 22;
    report.sender_reports = 23;
    report.byes = 24;
    report.restarts[RESTART_PAUSE] = 25;
    report.losses_given_up[LOSS_END_HELD_KEY_FRAME] = 2;
    report.packets_lost = 3;
    report.gaps = 2;
    report.packets_dropped[PACKET_DROP_DUPLICATE] = 5;
    report.packets_dropped[PACKET_DROP_LATE] = 1;
    result.refused[PACKET_DROP_BAD_HEADER] = 4;
    report.frames = 61;
    report.key_frames = 2;
    report.frame_bytes = 240'000;
    report.frames_dropped[FRAME_DROP_INCOMPLETE] = 3;
    report.key_frame_requests = 8;
    report.retransmission_requests = 9;
    report.nacks_sent = 12;
    report.packets_asked_for = 13;
    report.plis_sent = 14;
    report.watchdog[WATCHDOG_KEY_FRAME_STUCK] = 1;
    report.freezes_200ms = 2;
    report.frozen_200ms = 900;
    report.freezes_500ms = 1;
    report.frozen_500ms = 600;
    report.freezes_600ms = 1;
    report.frozen_600ms = 600;
    report.first_packet_at = 10'000;
    report.last_packet_at = 12'000;
    report.first_frame_at = 10'000;
    report.last_frame_at = 12'000;
    report.jitter = 31;
    return result;
}

} // namespace

TEST(Summary, TellsPeopleWhatBecameOfStream)
{
    EXPECT_EQ(replay_text(result_of_test(), "call.pcap"),
              "capture     call.pcap: 500 packets, 410 UDP datagrams, 2.500 s\n"
              "stream      192.0.2.1:4000 > 192.0.2.2:5004, SSRC 0xcda46d5c, payload type 104, h265 (likelihood 0.99)\n"
              "packets     407 received (250.0 kB), 3 lost in 2 gaps, 7 reordered\n"
              "            5 duplicates, 1 late, 21 retransmitted, 20 lost ones repaired, 22 padding\n"
              "  dropped   10: 4 bad header, 5 duplicate, 1 late\n"
              "frames      61 delivered (240.0 kB), 2 of them key frames\n"
              "  dropped   3: 3 incomplete\n"
              "time        2.000 s, 1.00 Mbit/s, 30.00 frames/s, jitter 31 timestamp units\n"
              "freezes     200 ms: 2 (900 ms), 500 ms: 1 (600 ms), 600 ms: 1 (600 ms)\n"
              "requests    key frame 8, retransmission 9 (times the need was seen)\n"
              "waits cut   2: 2 held key frame\n"
              "watchdog    1: 1 key frame stuck\n"
              "sender      23 reports and 24 BYE received; restarts 25: 25 pause\n"
              "would send  12 NACKs for 13 packets, 14 PLIs\n");
}

TEST(Summary, NotesWhatIsOddAboutCapture)
{
    replay_result result = result_of_test();
    result.silence_skipped_ms = 5000;
    result.capture.damage = "truncated dump file";
    result.capture.truncated = 1;
    result.capture.fragments = 2;
    result.capture.damaged = 3;
    result.capture.clock_steps_back = 4;
    result.capture.largest_clock_step_back_us = 1500;
    result.decryption = {21, 22, 23, 24};
    const std::string text = replay_text(result, "call.pcap");
    EXPECT_NE(text.find("srtp        21 packets decrypted, dropped 69: 22 not authentic, 23 replayed, 24 malformed\n"),
              std::string::npos)
        << text;
    EXPECT_EQ(text.substr(text.find("note")),
              "note        5000 ms of silence skipped\n"
              "note        the capture is damaged after packet 500: truncated dump file\n"
              "note        1 packets skipped: cut by the capture's snap length\n"
              "note        2 packets skipped: fragments of IP packets, which are not put together\n"
              "note        3 packets skipped: their headers contradict themselves\n"
              "note        the capture's clock went back 4 times, by up to 1.500 ms; time stood still instead\n");
}

TEST(Summary, TellsMachinesTheSame)
{
    replay_result result = result_of_test();
    result.decryption = {21, 22, 23, 24};
    const json object = replay_json(result, "call.pcap");
    EXPECT_EQ(object["capture"]["path"], "call.pcap");
    EXPECT_EQ(object["capture"]["packets"], 500);
    EXPECT_EQ(object["capture"]["is_cut_short"], false);
    EXPECT_EQ(object["stream"]["ssrc"], 0xCDA46D5C);
    EXPECT_EQ(object["stream"]["codec"], "h265");
    EXPECT_EQ(object["packets"]["received"], 407);
    EXPECT_EQ(object["packets"]["lost"], 3);
    EXPECT_EQ(object["packets"]["gaps"], 2);
    EXPECT_EQ(object["packets"]["duplicates"], 5);
    EXPECT_EQ(object["packets"]["late"], 1);
    EXPECT_EQ(object["packets"]["dropped"], 10);
    EXPECT_EQ(object["packets"]["dropped_by_reason"]["bad_header"], 4);
    EXPECT_EQ(object["frames"]["delivered"], 61);
    EXPECT_EQ(object["frames"]["key"], 2);
    EXPECT_EQ(object["frames"]["dropped_by_reason"]["incomplete"], 3);
    EXPECT_EQ(object["requests"]["key_frame"], 8);
    EXPECT_EQ(object["requests"]["retransmission"], 9);
    EXPECT_EQ(object["requests"]["nacks"], 12);
    EXPECT_EQ(object["requests"]["packets_asked_for"], 13);
    EXPECT_EQ(object["requests"]["plis"], 14);
    EXPECT_EQ(object["srtp"]["decrypted"], 21);
    EXPECT_EQ(object["srtp"]["replayed"], 23);
    EXPECT_EQ(object["watchdog"]["key_frame_stuck"], 1);
    EXPECT_EQ(object["packets"]["repaired"], 20);
    EXPECT_EQ(object["packets"]["padding"], 22);
    EXPECT_EQ(object["sender"]["reports"], 23);
    EXPECT_EQ(object["sender"]["byes"], 24);
    EXPECT_EQ(object["sender"]["restarts"]["pause"], 25);
    EXPECT_EQ(object["waits_cut_short"]["held_key_frame"], 2);
    EXPECT_EQ(object["freezes"]["count_200ms"], 2);
    EXPECT_EQ(object["freezes"]["duration_600ms_ms"], 600);
    EXPECT_DOUBLE_EQ(object["timing"]["bit_rate"], 1'000'000);
    EXPECT_DOUBLE_EQ(object["timing"]["frame_rate"], 30);
}

TEST(Summary, NamesEveryReasonInJsonAlsoWhenItDidNotHappen)
{
    const json object = replay_json(replay_result{}, "call.pcap");
    EXPECT_EQ(object["packets"]["dropped_by_reason"].size(), static_cast<size_t>(PACKET_DROP_REASONS));
    EXPECT_EQ(object["frames"]["dropped_by_reason"].size(), static_cast<size_t>(FRAME_DROP_REASONS));
    EXPECT_EQ(object["watchdog"].size(), static_cast<size_t>(WATCHDOG_REASONS));
    EXPECT_EQ(object["waits_cut_short"].size(), static_cast<size_t>(LOSS_ENDS));
    EXPECT_EQ(object["sender"]["restarts"].size(), static_cast<size_t>(RESTART_REASONS));
    EXPECT_EQ(object["timing"]["bit_rate"], 0);
    EXPECT_EQ(object["timing"]["frame_rate"], 0);
}

TEST(Summary, CountsEverythingOnALineEach)
{
    const std::string text = "\n" + replay_counts_text(result_of_test());
    for (const char *line :
         {"packets 407", "packets_lost 3", "gaps 2", "packets_dropped.duplicate 5", "packets_dropped.late 1",
          "packets_refused.bad_header 4", "packets_refused.late 0", "frames 61", "frames_dropped.incomplete 3",
          "losses_given_up.held_key_frame 2", "restarts.pause 25", "nacks_sent 12", "byes 24"}) {
        EXPECT_NE(text.find("\n" + std::string(line) + "\n"), std::string::npos) << line;
    }
}

// A line for each field, and for each reason of its arrays: what is added to the report is to be added to the counts.
TEST(Summary, CountsEveryFieldOfTheReport)
{
    const std::string text = replay_counts_text(result_of_test());
    const size_t other_than_64_bits = 4; // three counts of freezes, and the jitter
    const size_t in_report = (offsetof(stream_report, last_second) - other_than_64_bits * 4) / 8 + other_than_64_bits;
    const size_t beside_it = PACKET_DROP_REASONS + 1; // refused packets, and the silence that was skipped
    EXPECT_EQ(static_cast<size_t>(std::count(text.begin(), text.end(), '\n')), in_report + beside_it);
}

TEST(Summary, ListsStreamsThatBehaveLikeRtp)
{
    search_result found;
    found.streams = {stream_of_test(), stream_of_test(), stream_of_test()};
    found.streams[1].likelihood = 0.02;
    found.streams[1].codec = VIDEO_TYPE_UNKNOWN;
    found.streams[1].behaves_like_rtp = true;
    found.streams[1].looks_encrypted = true;
    found.streams[2].likelihood = 0.02; // one that does not
    EXPECT_EQ(
        streams_text(found),
        "STREAM                                SSRC  PT CODEC      LIKELY  PACKETS   LOST  DURATION      BIT RATE\n"
        "192.0.2.1:4000 > 192.0.2.2:5004 0xcda46d5c 104 h265         0.99      407      3    2.00 s   1.00 Mbit/s\n"
        "192.0.2.1:4000 > 192.0.2.2:5004 0xcda46d5c 104 encrypted?   0.02      407      3    2.00 s   1.00 Mbit/s\n");
    const json object = streams_json(found, "call.pcap");
    ASSERT_EQ(object["streams"].size(), 2u);
    EXPECT_EQ(object["streams"][0]["packets"], 407);
    EXPECT_EQ(object["streams"][0]["is_video"], true);
    EXPECT_EQ(object["streams"][1]["looks_encrypted"], true);
}
