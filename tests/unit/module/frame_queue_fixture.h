// One stream's frame queue, driven packet by packet. The record's invariants are checked after every call.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "packets.h"
#include "seed.h"
#include "test_stream.h"

namespace frame_queue_test
{

using test_support::native_fields;
using test_support::stream_kind;

using lines = std::vector<std::string>;

constexpr const char *kArraysTag = "video_frames_q_insert_video_packet";

// Where a test's numbers begin: packet and frame sequence numbers of a test count from here.
struct origin_t {
    seq_t pkt;
    uint32_t frame;
};

inline std::vector<uint8_t> body_of(seq_t seq)
{
    return {static_cast<uint8_t>(seq >> 8), static_cast<uint8_t>(seq), 0x5A};
}

class FrameQueue : public ::testing::Test
{
  protected:
    FrameQueue()
    {
        use(stream_kind::receiving);
    }

    // Starts over with a fresh stream.
    void use(stream_kind kind)
    {
        is_receiving = kind == stream_kind::receiving;
        owner.reset();
        owner.emplace(kind);
        stream = owner->stream;
        q = owner->q;
        world.log.clear();
    }

    // -- Packets --

    // Packet `subseq` of a frame of `n_pkts` packets whose index 0 has sequence number `first`.
    native_fields packet(uint32_t frame, seq_t first, uint16_t n_pkts, uint16_t subseq) const
    {
        native_fields fields;

        fields.frame_seq = origin.frame + frame;
        fields.n_pkts = n_pkts;
        fields.subseq = subseq;
        fields.seq = pkt(static_cast<seq_t>(first + subseq));
        fields.sent_ts = ts_of(frame);
        fields.rtp.seq = fields.seq;
        fields.body = body_of(fields.seq);
        return fields;
    }

    seq_t pkt(seq_t offset) const
    {
        return static_cast<seq_t>(origin.pkt + offset);
    }

    uint32_t frame_seq(uint32_t offset) const
    {
        return origin.frame + offset;
    }

    // The sender's time of frame `frame`.
    static uint16_t ts_of(uint32_t frame)
    {
        return static_cast<uint16_t>(7000 + 33 * frame);
    }

    // -- Calls --

    video_frame *insert(const native_fields &fields, int copy = 0)
    {
        return insert_video(test_support::native_packet(fields), copy);
    }

    // The same with other bytes in place of the RTP header and what is behind it.
    video_frame *insert_bytes(const native_fields &fields, const std::vector<uint8_t> &payload, int copy = 0)
    {
        PVideoData4 video = test_support::native_packet(fields);
        PVideoData4 bytes = test_support::packet_with(payload);

        test_support::release(&video);
        video.payload = bytes.payload;
        return insert_video(video, copy);
    }

    // Inserts these indices of a frame.
    video_frame *insert_frame(uint32_t frame, seq_t first, uint16_t n_pkts, std::initializer_list<uint16_t> indices)
    {
        video_frame *inserted = nullptr;

        for (const uint16_t index : indices) {
            inserted = insert(packet(frame, first, n_pkts, index));
        }
        return inserted;
    }

    int remove(video_frame *frame)
    {
        const int result = video_stream_remove_frame(stream, frame);

        check();
        return result;
    }

    void drop(video_frame *frame)
    {
        video_stream_delete_frame(stream, frame);
        check();
    }

    void move_forward(uint16_t seq)
    {
        video_stream_pkt_seq_move_forward(stream, seq);
        check();
    }

    void auto_forward(video_frame *frame, uint16_t index_start)
    {
        video_stream_pkt_seq_auto_forward(stream, frame, index_start);
        check();
    }

    void check()
    {
        EXPECT_EQ(test_support::broken_invariants(*stream), "");
    }

    // -- What the queue holds --

    video_frame *slot_of(uint32_t frame)
    {
        return &q->video_frames[frame_seq(frame) % 40];
    }

    int slot_index_of(uint32_t frame) const
    {
        return static_cast<int>(frame_seq(frame) % 40);
    }

    // The index entry of a packet.
    int16_t &entry_of(seq_t offset)
    {
        return q->pkt_frame_pos[pkt(offset) % 1280];
    }

    // The nearest later frame that shares a slot with `frame`: 40 later, but sooner across the wrap.
    uint32_t sharing_slot(uint32_t frame) const
    {
        uint32_t other = frame + 1;

        while (frame_seq(other) % 40 != frame_seq(frame) % 40) {
            other++;
        }
        return other;
    }

    // The nearest later packet that shares an index entry with `offset`: 1280 later, but sooner across the wrap.
    seq_t sharing_entry(seq_t offset) const
    {
        auto other = static_cast<seq_t>(offset + 1);

        while (pkt(other) % 1280 != pkt(offset) % 1280) {
            other++;
        }
        return other;
    }

    // The body of the packet stored at an index; empty when nothing is.
    static std::vector<uint8_t> stored_body(const video_frame *frame, uint16_t index)
    {
        const rtn_bytes_t &bytes = frame->pkts[index];
        const auto *first = static_cast<const uint8_t *>(bytes.values);

        return bytes.count <= 12 ? std::vector<uint8_t>() : std::vector<uint8_t>(first + 12, first + bytes.count);
    }

    void expect_bounds(uint32_t min, uint32_t max)
    {
        EXPECT_EQ(q->min_frame_seq, frame_seq(min));
        EXPECT_EQ(q->max_frame_seq, frame_seq(max));
    }

    void expect_is_empty(const video_frame *frame)
    {
        EXPECT_EQ(frame->n_pkts_total, 0);
        EXPECT_EQ(frame->n_pkts_received, 0);
        EXPECT_EQ(frame->pkts, nullptr);
        EXPECT_EQ(frame->pkts_status, nullptr);
        EXPECT_EQ(frame->is_complete, 0);
    }

    // Marks every counter, to see which are cleared.
    void mark_counters()
    {
        for (rtc_timer_counter_pair_t &pair : q->pkt_tc_pairs) {
            pair.at = 77;
            pair.n = 5;
        }
    }

    // The entries whose counter is cleared, `at` being untouched everywhere.
    std::vector<size_t> cleared_counters() const
    {
        std::vector<size_t> cleared;

        for (size_t i = 0; i < 1280; i++) {
            EXPECT_EQ(q->pkt_tc_pairs[i].at, 77u) << i;
            if (q->pkt_tc_pairs[i].n == 0) {
                cleared.push_back(i);
            } else {
                EXPECT_EQ(q->pkt_tc_pairs[i].n, 5u) << i;
            }
        }
        return cleared;
    }

    // -- Log lines: the level's number, a blank, and the message without its newline --

    static std::string line(int level, const std::string &prefixes, const std::string &text)
    {
        static const char *const labels[] = {"DEFAULT", "EMERG",  "ALERT", "CRIT", "ERROR",
                                             "WARNING", "NOTICE", "INFO",  "DEBUG"};

        return std::to_string(level) + " [" + labels[level] + "]" + prefixes + " " + text;
    }

    // A line under the stream's module.
    std::string vid(int level, const std::string &text) const
    {
        return line(level, is_receiving ? "[RCV_VID]" : "[SND_VID]", text);
    }

    // The same with the channel's name.
    std::string vid_chan(int level, const std::string &text) const
    {
        return line(level, is_receiving ? "[RCV_VID][chan]" : "[SND_VID][chan]", text);
    }

    // A line under RCV_VID whatever the stream is.
    static std::string rcv(int level, const std::string &text)
    {
        return line(level, "[RCV_VID]", text);
    }

    // A line under MIN, which is not named.
    static std::string unnamed(int level, const std::string &text)
    {
        return line(level, "", text);
    }

    // The line of a frame that this packet creates or re-creates.
    std::string update_line(const native_fields &fields) const
    {
        const uint32_t n_fec = fields.reserved >> 8 & 0xFF;
        const uint32_t n_media = (fields.n_pkts - n_fec) & 0xFFFF;

        return vid(RTC_LOG_DEBUG, "update_frame: idr " + std::to_string(fields.video_type < 0x10 ? 1 : 0) + ", codec " +
                                      std::to_string(fields.codec) + ", n_pkts " + std::to_string(fields.n_pkts) +
                                      ", n_pkts_media " + std::to_string(n_media) + ", n_pkts_fec " +
                                      std::to_string(n_fec) + ", seq " + std::to_string(fields.seq) + ", frame_seq " +
                                      std::to_string(static_cast<int32_t>(fields.frame_seq)));
    }

    // Everything logged since the last call, at `max_level` or graver.
    lines logged(int max_level = RTC_LOG_DEBUG)
    {
        lines texts;

        for (const test_support::log_line &entry : world.log) {
            if (entry.level <= max_level) {
                std::string text = entry.text;
                EXPECT_EQ(text.empty() ? '\0' : text.back(), '\n') << text;
                text.pop_back();
                texts.push_back(std::to_string(entry.level) + " " + text);
            }
        }
        world.log.clear();
        return texts;
    }

    test_support::World world;
    zeb_ts_t now = 5000;
    origin_t origin = {0, 0};
    bool is_receiving = true;
    std::optional<test_support::TestStream> owner;
    user_video_stream *stream = nullptr;
    rtc_video_frames_t *q = nullptr;

  private:
    video_frame *insert_video(PVideoData4 video, int copy)
    {
        video_frame *frame = video_stream_insert_video_packet(stream, &video, copy, &now);

        check();
        test_support::release(&video);
        return frame;
    }
};

enum class start {
    somewhere,
    across_wraps
};

// The same from an origin drawn from the run's seed, and from just before both kinds of sequence number wrap.
class FrameQueueFrom : public FrameQueue, public ::testing::WithParamInterface<start>
{
  protected:
    FrameQueueFrom()
    {
        std::mt19937 random(test_support::test_seed());

        if (GetParam() == start::somewhere) {
            origin.pkt = static_cast<seq_t>(random() % 60000);
            origin.frame = static_cast<uint32_t>(random() % 0xFFFF0000u);
        } else {
            origin.pkt = static_cast<seq_t>(65536 - 1 - random() % 6);
            origin.frame = static_cast<uint32_t>(0u - 1u - random() % 3);
        }
    }
};

inline std::string start_name(const ::testing::TestParamInfo<start> &info)
{
    return info.param == start::somewhere ? "Somewhere" : "AcrossWraps";
}

inline void PrintTo(start value, std::ostream *out)
{
    *out << (value == start::somewhere ? "somewhere" : "across wraps");
}

} // namespace frame_queue_test
