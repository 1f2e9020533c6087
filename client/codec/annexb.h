// Writing the NAL units of RTP payloads as an Annex B byte stream: what the depacketizers share.
#pragma once

#include "codec/nal_payload.h"

// Does for one packet what depacketizer.h says of a depacketizer; the payload is in `format`.
int annexb_packet_write(const nal_format *format, uint8_t *frame_data, const uint8_t *cur_ptr, const uint8_t *end_ptr,
                        size_t *frame_offset, size_t *frame_size);

// Bytes that a payload of `payload_size` bytes with these contents, written with start codes, is longer than what a
// depacketizer may write for it: the payload and 32 bytes. 0 when it fits, and for a payload with a fault.
size_t annexb_room_missing(const nal_contents *contents, size_t payload_size);

// Zero bytes that give a payload of `codec`, a VIDEO_PACKET_TYPE, the room that it is missing when they are appended to
// it: in an aggregate two of them are an empty unit (RFC 6184, 5.7.1; RFC 7798, 4.4.2), which is passed over. 0 when none
// are needed, or more than `limit`.
size_t annexb_room_appended(uint8_t codec, const uint8_t *payload, size_t payload_size, size_t limit);
