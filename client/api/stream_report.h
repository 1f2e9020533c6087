// What happened to one received stream, counted by name. The channel layer counts, the application reads.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zeb_platform.h"

// Why a packet did not reach a frame.
enum packet_drop_e : uint8_t {
    PACKET_DROP_BAD_VERSION,       // RTP version other than 2
    PACKET_DROP_BAD_HEADER,        // fixed header or CSRC list longer than the packet
    PACKET_DROP_BAD_EXTENSION,     // header extension longer than the packet
    PACKET_DROP_BAD_ENCAPSULATION, // encapsulation bytes longer than the packet
    PACKET_DROP_BAD_PADDING,       // padding longer than the payload, or of length 0
    PACKET_DROP_BAD_FRAME_HEADER,  // native header: n_pkts 0 or above 1280, subseq or FEC count beyond it
    PACKET_DROP_TOO_LARGE,         // above 65,535 bytes
    PACKET_DROP_UNKNOWN_PAYLOAD_TYPE,
    PACKET_DROP_WRONG_PATH,              // an RTP packet for a native stream, or the other way round
    PACKET_DROP_UNPAIRED_RETRANSMISSION, // of a sender that nothing names, or for a number nobody asked for
    PACKET_DROP_TOO_MANY_SENDERS,
    PACKET_DROP_NO_MEMORY,
    PACKET_DROP_WAITING_FOR_KEY_FRAME,
    PACKET_DROP_DUPLICATE,
    PACKET_DROP_LATE, // older than what is expected next
    PACKET_DROP_REASONS
};

// Why a frame was not handed out.
enum frame_drop_e : uint8_t {
    FRAME_DROP_INCOMPLETE,    // packets were still missing when the patience ended
    FRAME_DROP_AFTER_GAP,     // whole, but frames before it were lost, and it is no key frame
    FRAME_DROP_TORN,          // complete by its numbers, but its beginning or its end was never seen
    FRAME_DROP_OUT_OF_ORDER,  // older than one already handed out
    FRAME_DROP_NOT_ASSEMBLED, // its packets made no bitstream
    FRAME_DROP_WATCHDOG,      // thrown away when a stuck cache was cleared
    FRAME_DROP_GIVEN_UP,      // thrown away because nothing would have completed it
    FRAME_DROP_MALFORMED,     // a payload of it does not hold whole NAL units; why is counted as a payload_fault_e
    FRAME_DROP_REASONS
};

// Why the NAL units of a payload, or of a frame's payloads together, cannot be written out whole (RFC 6184 in
// packetization mode 1, RFC 7798 without DONL).
enum payload_fault_e : uint8_t {
    PAYLOAD_FAULT_TRUNCATED,       // shorter than its headers, or units that do not fill their aggregate
    PAYLOAD_FAULT_INTERLEAVED,     // STAP-B, MTAP16, MTAP24, FU-B: of packetization mode 2
    PAYLOAD_FAULT_PACI,            // RFC 7798, 4.4.4
    PAYLOAD_FAULT_RESERVED_TYPE,   // H.264 types 0, 30 and 31, H.265 types 51 to 63
    PAYLOAD_FAULT_NESTED,          // an aggregate or a fragment within another one
    PAYLOAD_FAULT_BROKEN_FRAGMENT, // a fragment that does not go on where the one before ended
    PAYLOAD_FAULT_NO_ROOM,         // so many units in one packet that their start codes have no room
    PAYLOAD_FAULTS
};

// What the watchdog found when it cleared a reorder cache.
enum watchdog_e : uint8_t {
    WATCHDOG_HEAD_WITHOUT_FRAME,
    WATCHDOG_FRAMES_WITHOUT_PACKETS,
    WATCHDOG_KEY_FRAME_STUCK,
    WATCHDOG_NOTHING_DELIVERED,
    WATCHDOG_REASONS
};

// How a wait for packets that nothing will bring was cut short.
enum loss_end_e : uint8_t {
    LOSS_END_HELD_KEY_FRAME, // a key frame behind the loss was held, and delivery went on with it
    LOSS_END_CLEARED,        // the reorder cache was cleared and a key frame asked for
    LOSS_ENDS
};

// How a sender broke off and went on. One packet may be several of them.
enum restart_e : uint8_t {
    RESTART_NEW_SSRC,       // the channel had a sender before this one
    RESTART_SEQUENCE_JUMP,  // numbers its packets anew
    RESTART_LONG_LOSS,      // went on a hundred numbers ahead or more
    RESTART_TIMESTAMP_JUMP, // the timestamp went back, or ahead by more than time had passed
    RESTART_PAUSE,          // was silent for seconds
    RESTART_CODEC_CHANGE,
    RESTART_REASONS
};

const char *packet_drop_name(packet_drop_e reason);
const char *frame_drop_name(frame_drop_e reason);
const char *payload_fault_name(payload_fault_e fault);
const char *watchdog_name(watchdog_e reason);
const char *loss_end_name(loss_end_e end);
const char *restart_name(restart_e reason);

// What the stream did in one second of the service's time. A tick that comes late ends a longer one.
struct stream_second {
    uint32_t bytes;               // RTP headers included, as in the other two
    uint32_t bytes_original;      // first transmissions
    uint32_t bytes_retransmitted; // retransmissions
    uint16_t retransmissions;
    uint16_t retransmission_requests; // NACK messages sent
    uint16_t key_frame_requests;      // PLI or FIR messages sent
    uint16_t frames;                  // handed out
    uint32_t frame_bytes;             // of those
    uint8_t percent_loss_raw;         // of the packets expected: that did not come at first
    uint8_t percent_lost_after_arq;   // of the packets expected: that no retransmission brought either
};

struct stream_report {
    uint64_t packets;        // well-formed packets that came in, whatever became of them
    uint64_t bytes;          // of those, RTP headers included
    uint64_t packets_unique; // of those, the first with their number, and none far from all others
    uint64_t packets_retransmitted;
    uint64_t packets_reordered;    // came after a packet with a later number
    uint64_t packets_repaired;     // lost ones that a retransmission brought
    uint64_t packets_lost;         // numbers never seen between the first and the newest one
    uint64_t gaps;                 // runs of numbers that were missing when a later one came
    uint64_t packets_padding;      // came without payload: senders probe with them
    uint64_t packets_padding_lost; // numbers never seen that nothing else can have had
    uint64_t packets_dropped[PACKET_DROP_REASONS];

    uint64_t frames;      // handed out
    uint64_t key_frames;  // of those
    uint64_t frame_bytes; // of those
    zeb_ts_t frame_delay; // of those: milliseconds from the first packet to the handing out, in total
    uint64_t frames_dropped[FRAME_DROP_REASONS];
    uint64_t payload_faults[PAYLOAD_FAULTS]; // the first of each malformed frame

    uint64_t key_frame_requests;      // times the need was seen; the pacing comes behind it
    uint64_t retransmission_requests; // the same
    uint64_t watchdog[WATCHDOG_REASONS];

    uint64_t nacks_sent;        // messages
    uint64_t packets_asked_for; // in those, a packet counts each time
    uint64_t plis_sent;
    uint64_t firs_sent;
    uint64_t reports_sent;
    uint64_t rembs_sent;
    uint64_t sender_reports; // received
    uint64_t byes;           // received
    uint64_t losses_given_up[LOSS_ENDS];
    uint64_t restarts[RESTART_REASONS];

    uint32_t freezes_200ms, freezes_500ms, freezes_600ms; // pauses between frames of at least that long
    zeb_ts_t frozen_200ms, frozen_500ms, frozen_600ms;    // milliseconds of those pauses

    zeb_ts_t first_packet_at, last_packet_at; // milliseconds; both 0 before the first packet
    zeb_ts_t first_frame_at, last_frame_at;   // milliseconds; both 0 before the first frame
    uint32_t jitter;                          // RFC 3550 interarrival jitter, timestamp units

    stream_second last_second; // the last full one; all 0 before

    bool has_left; // the last that came from the sender is a BYE (RFC 3550, 6.6)
};
