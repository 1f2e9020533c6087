// RTCP on the wire: reports (RFC 3550), feedback (RFC 4585, RFC 5104, draft-alvestrand-rmcat-remb-03), compound and
// reduced-size datagrams (RFC 5506). Bytes in, records out; records in, bytes out: what to send and when is not
// decided here.
#pragma once

#include <cstddef>
#include <cstdint>

#include "rtc_seq.h"

constexpr size_t kRtcpReportBlocksMax = 31; // the count has five bits
constexpr size_t kRtcpTextSizeMax = 255;    // a text's length has one byte
constexpr size_t kRtcpRembSourcesMax = 255; // the count has one byte

// What a receiver has to say about one source (RFC 3550, 6.4.1).
struct rtcp_report_block {
    uint32_t ssrc;           // of the source
    uint8_t fraction_lost;   // since the last report, in 1/256
    int32_t cumulative_lost; // packets, negative with duplicates; 24 bits on the wire, clamped when written
    uint32_t highest_seq;    // extended: cycles in the upper, sequence number in the lower 16 bits
    uint32_t jitter;         // in units of the RTP timestamp
    uint32_t last_sr;        // middle 32 bits of the last sender report's NTP time; 0: none came
    uint32_t delay_since_sr; // since then, in 1/65536 s; 0: none came
};

// A request for a key frame (RFC 5104, 4.3.1).
struct rtcp_fir_entry {
    uint32_t ssrc;       // of the source that is to send one
    uint8_t command_seq; // a new request has a new number, a repeated one keeps its own
};

// ---- Building ----------------------------------------------------------------------------------------------------

// A datagram in the making. `bytes` is the caller's and begins at any alignment; `size` of `capacity` bytes are
// written. Each function below appends one packet and returns its size in bytes, a multiple of 4; or it returns 0
// and leaves everything as it was, when the packet does not fit or an argument is out of its range.
struct rtcp_output {
    uint8_t *bytes;
    size_t capacity;
    size_t size;
};

// Receiver report (RFC 3550, 6.4.2). `count` is 0 to kRtcpReportBlocksMax.
size_t rtcp_rr_write(rtcp_output *out, uint32_t sender_ssrc, const rtcp_report_block *blocks, size_t count);

// Source description with a CNAME alone (RFC 3550, 6.5.1). `size` is 1 to kRtcpTextSizeMax bytes, UTF-8.
size_t rtcp_sdes_write(rtcp_output *out, uint32_t ssrc, const char *cname, size_t size);

// Generic NACK (RFC 4585, 6.2.1) for the sequence numbers in `seqs`. They are best in order (across 65535 to 0):
// out of order or repeated they are reported all the same, in more bytes. When not all of them fit, it is the
// first ones that do. Without a number, or room for one, nothing is written. `*fitted` becomes the count of the
// numbers written.
size_t rtcp_nack_write(rtcp_output *out, uint32_t sender_ssrc, uint32_t media_ssrc, const seq_t *seqs, size_t count,
                       size_t *fitted);

// Picture loss indication (RFC 4585, 6.3.1).
size_t rtcp_pli_write(rtcp_output *out, uint32_t sender_ssrc, uint32_t media_ssrc);

// Full intra request for one source (RFC 5104, 4.3.1).
size_t rtcp_fir_write(rtcp_output *out, uint32_t sender_ssrc, rtcp_fir_entry entry);

// Receiver estimated maximum bitrate, in bit/s, of all sources in `ssrcs` together; 18 significant bits of it are
// sent, rounded down. `count` is 1 to kRtcpRembSourcesMax.
size_t rtcp_remb_write(rtcp_output *out, uint32_t sender_ssrc, uint64_t bitrate, const uint32_t *ssrcs, size_t count);

// The report that a compound datagram begins with.
struct rtcp_report {
    uint32_t sender_ssrc;
    const rtcp_report_block *blocks; // `n_blocks` of them; may be null when there are none
    size_t n_blocks;
    const char *cname; // null: no source description, which RFC 3550 wants in every compound datagram
    size_t cname_size;
};

// Begins a compound datagram (RFC 3550, 6.1): receiver report, source description, both or none of them. The
// feedback is appended behind. A datagram that begins with feedback is a reduced-size one (RFC 5506), which both
// sides must have agreed on. Returns the bytes written, or 0.
size_t rtcp_report_write(rtcp_output *out, const rtcp_report *report);

// ---- Reading -----------------------------------------------------------------------------------------------------

// Tells RTCP from RTP that comes to the same port (RFC 5761, 4): the second byte is 192 to 223. Looks at nothing
// else, so a datagram that is neither may be called RTCP; a size below 2 is not.
bool rtcp_is_rtcp(const uint8_t *bytes, size_t size);

// True when a compound or reduced-size datagram is well-formed (RFC 3550, A.2, without the rule that a report comes
// first): it is RTCP, each packet has version 2, their lengths add up to `size`, padding is on the last one alone,
// and each packet of a kind that is read here has room for what its counts and lengths promise. Everything else is
// refused as a whole.
bool rtcp_validate(const uint8_t *bytes, size_t size);

// Entries of equal size within a datagram, which owns them.
struct rtcp_list {
    const uint8_t *bytes;
    size_t count;
};

// Text within a datagram, which owns it: UTF-8 by the rules, any bytes in fact, no zero at its end.
struct rtcp_text {
    const char *bytes;
    size_t size;
};

enum rtcp_item_kind : uint8_t {
    RTCP_ITEM_SENDER_REPORT,
    RTCP_ITEM_RECEIVER_REPORT,
    RTCP_ITEM_CNAME,
    RTCP_ITEM_BYE,
    RTCP_ITEM_NACK,
    RTCP_ITEM_PLI,
    RTCP_ITEM_FIR,
    RTCP_ITEM_REMB
};

struct rtcp_sender_report {
    uint64_t ntp_time;      // seconds since 1900 in the upper, their fraction in the lower 32 bits
    uint32_t rtp_timestamp; // the same moment on the stream's clock
    uint32_t packet_count;
    uint32_t octet_count; // of payload
    rtcp_list blocks;     // for rtcp_block_at
};

struct rtcp_receiver_report {
    rtcp_list blocks; // for rtcp_block_at
};

struct rtcp_bye {
    rtcp_list ssrcs; // for rtcp_ssrc_at; may be none
    rtcp_text reason;
};

struct rtcp_nack {
    uint32_t media_ssrc;
    rtcp_list pairs; // for rtcp_nack_begin
};

struct rtcp_pli {
    uint32_t media_ssrc;
};

struct rtcp_fir {
    rtcp_list entries; // for rtcp_fir_at
};

struct rtcp_remb {
    uint64_t bitrate; // bit/s; UINT64_MAX stands for all that is larger
    rtcp_list ssrcs;  // for rtcp_ssrc_at; may be none
};

// What a datagram says; `kind` tells which member holds.
struct rtcp_item {
    rtcp_item_kind kind;
    uint32_t ssrc; // who sent the report or the feedback; whose CNAME it is; 0 for BYE, which lists its sources
    union {
        rtcp_sender_report sender_report;
        rtcp_receiver_report receiver_report;
        rtcp_text cname;
        rtcp_bye bye;
        rtcp_nack nack;
        rtcp_pli pli;
        rtcp_fir fir;
        rtcp_remb remb;
    };
};

// A place in a datagram.
struct rtcp_cursor {
    const uint8_t *bytes; // packets not read yet
    size_t size;
    const uint8_t *chunks; // the rest of a source description that is being read
    size_t chunks_size;
    size_t n_chunks;
};

// Stands before the first item of a datagram; before the end when rtcp_validate refuses it. The bytes must stay
// as they are while the cursor and its items are used.
rtcp_cursor rtcp_cursor_begin(const uint8_t *bytes, size_t size);

// Reads the next item; false when there is none. What is of another kind is passed over.
bool rtcp_next(rtcp_cursor *cursor, rtcp_item *item);

// Entry `index`, which must be below the list's count.
rtcp_report_block rtcp_block_at(const rtcp_list *blocks, size_t index);
uint32_t rtcp_ssrc_at(const rtcp_list *ssrcs, size_t index);
rtcp_fir_entry rtcp_fir_at(const rtcp_list *entries, size_t index);

// A place among the sequence numbers of a NACK.
struct rtcp_nack_cursor {
    rtcp_list pairs; // not read yet
    unsigned bit;    // of the first pair: 0 is the number itself, 1 to 16 those that follow it
};

rtcp_nack_cursor rtcp_nack_begin(const rtcp_nack *nack);

// Reads the next sequence number, in the order of the message; false when there is none. Pairs may overlap: the
// same number can come more than once.
bool rtcp_nack_next(rtcp_nack_cursor *cursor, seq_t *seq);
