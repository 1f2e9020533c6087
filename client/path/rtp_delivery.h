// RTP path, behind the reorder cache: takes the packets of its frames one by one, puts them together in the frame
// queue and hands out those that a decoder can use.
//
// A frame is closed when the next one begins or when the delivery is over, not with its last packet: only then is
// it known that the cache handed over nothing else under its number.
#pragma once

#include "api/stream_report.h"
#include "arrival/reception.h"
#include "codec/unit_chain.h"
#include "repair/frame_pace.h"
#include "rtc_packet.h"

struct stream_state;

struct rtp_delivery {
    // The frame whose packets are coming in.
    bool is_open;
    bool is_key;
    bool is_continuous;    // follows the frame before without a missing number
    bool has_media;        // some packet carries payload
    frame_drop_e refusal;  // FRAME_DROP_REASONS: none so far
    payload_fault_e fault; // of FRAME_DROP_MALFORMED
    unit_chain units;      // of its packets so far
    uint8_t codec;         // VIDEO_PACKET_TYPE
    uint32_t frame_seq;
    uint32_t timestamp;
    zeb_ts_t began_at;     // when its first packet came into the cache
    uint32_t first_number; // the module's extended sequence number, as the others below
    uint16_t n_pkts;
    uint16_t next_subseq;

    bool numbering_restarts; // the cache numbers anew with its next frame
    bool needs_key_frame;    // something that a delta frame may refer to is missing
    bool has_previous;       // the cache handed over a frame that ended with `previous_number`
    bool has_output;         // a frame was handed out that ended with `output_number`
    uint32_t previous_number;
    uint32_t output_number;
    uint64_t n_handed_over; // frames that the cache handed over

    frame_pace pace;              // of the frames that the cache handed over
    packet_role usual_first_role; // of the latest frame that is no key frame
};

void rtp_delivery_init(rtp_delivery *self);

// Forgets what came before: the sender numbers anew.
void rtp_delivery_restart(rtp_delivery *self);

// The number of the last packet of the frame that is open or was closed last, the module's extended sequence number.
uint32_t rtp_delivery_last_number(const rtp_delivery *self);

// Closes the frame that is still open, when the cache has done its work. No packet may come for it any more.
void rtp_delivery_finish(stream_state *state, const zeb_ts_t *now_p);
