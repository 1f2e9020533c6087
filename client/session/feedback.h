// What a stream's sender is told (RFC 3550, 4585, 5104, 5506): requests for packets and key frames, receiver reports,
// the rate to keep to. Decides when, writes the datagrams and hands them to the channel's callback.
#pragma once

#include "arrival/reception.h"
#include "repair/frame_end_watch.h"
#include "repair/nack_list.h"
#include "wire/rtcp.h"

struct channel_state;
struct stream_state;

constexpr zeb_ts_t kReportInterval = 1000;     // ms between receiver reports
constexpr zeb_ts_t kKeyFrameIntervalMin = 100; // ms between key-frame requests; else two round trips, or an answer
constexpr zeb_ts_t kKeyFrameIntervalMax = 500; // ms
constexpr zeb_ts_t kFeedbackSilence = 5000;    // ms without a packet after which a sender is told nothing more

// A packet's source address may be forged, so a stream's sender is sent less than this many times the bytes that came
// from it (the bound of RFC 9000, 8.1). It holds for the whole stream: a sender of RTP says nothing that proves that
// it reads what it is sent. RTP packets count without the headers below them, RTCP datagrams with kFeedbackHeaders
// more. What the bound forbids waits for further packets.
constexpr uint64_t kFeedbackRatio = 3;
constexpr uint64_t kFeedbackHeaders = 48; // bytes of IPv6 and UDP, the longest

// All zero: nothing was sent, nothing is missing.
struct stream_feedback {
    nack_list nacks;
    frame_end_watch frame_end;
    bool has_sender_report;
    uint32_t sender_report_ntp; // middle 32 bits of its NTP time
    zeb_ts_t sender_report_at;
    zeb_ts_t next_report_at;
    uint64_t bytes_sent; // with kFeedbackHeaders for each datagram
    zeb_ts_t nack_sent_at;
    zeb_ts_t key_frame_asked_at;
    zeb_ts_t key_packet_at;        // when a packet of a key frame came last
    bool is_key_frame_coming;      // and what came of it was not cleared away
    bool is_key_frame_asked_again; // what comes may answer either request
    uint8_t fir_command_seq;       // of the request that is under way
    uint16_t key_frame_answer;     // ms from a request to the key frame that came next, at the least; 0: none did
};

// The pacing that the stream's reorder cache keeps for its requests; a reset of the cache would forget it.
struct request_pacing {
    uint16_t n_retransmission_recent;
    uint16_t n_key_frame_recent;
    zeb_ts_t next_retransmission_at;
    zeb_ts_t next_key_frame_at;
};

request_pacing feedback_pacing_save(const stream_state *state);
void feedback_pacing_restore(stream_state *state, const request_pacing *pacing);

// Takes note of a packet that came: `newest_before` is the newest number before it.
void feedback_note_packet(stream_state *state, reception_verdict verdict, const reception_packet *packet,
                          uint32_t newest_before, zeb_ts_t now);

// The key frame that is held has something in front of its first packet so far, which nobody has seen missing: the
// stream began with a loss. Asks for it.
void feedback_note_missing_beginning(stream_state *state, uint32_t number);

// Takes note that it belongs to a key frame.
void feedback_note_key_packet(stream_state *state, zeb_ts_t now);

// What the reorder cache held was cleared away: nothing before what comes next is missing.
void feedback_note_cleared(stream_state *state);

// A key frame is wanted: asks for one unless that was just done.
void feedback_ask_key_frame(stream_state *state, zeb_ts_t now);

// Asks for the missing packets that are due.
void feedback_ask_retransmissions(stream_state *state, zeb_ts_t now);

// Sends what is due: requests again, reports, the rate.
void feedback_tick(stream_state *state, zeb_ts_t now);

// When feedback_tick has to look again; kNackNever: nothing is planned.
zeb_ts_t feedback_next_at(const stream_state *state);

// Takes in a well-formed RTCP datagram.
void feedback_take_rtcp(channel_state *channel, const uint8_t *datagram, size_t size, zeb_ts_t now);
