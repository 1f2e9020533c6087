// The counters of a stream's own record and its receive-quality analysers, fed with each packet that comes in.
#pragma once

#include "arrival/reception.h"
#include "video_stream.h"

struct stream_state;

// What the counters want to know of a packet.
struct counted_packet {
    reception_packet arrival;
    uint32_t highest; // newest extended sequence number, this packet's included
    uint16_t sent_ts; // sender's time of sending, milliseconds modulo 2^16
    bool is_fec;
    reception_verdict verdict;
};

void stream_counters_note(stream_state *state, const counted_packet *packet, zeb_ts_t now);
