// Writing the NAL units of RTP payloads as an Annex B byte stream: what the depacketizers share.
#pragma once

#include "nal_payload.h"

// Does for one packet what depacketizer.h says of a depacketizer; the payload is in `format`.
int annexb_packet_write(const nal_format *format, uint8_t *frame_data, const uint8_t *cur_ptr, const uint8_t *end_ptr,
                        size_t *frame_offset, size_t *frame_size);
