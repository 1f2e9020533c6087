/* From RTP payloads to Annex B byte streams. */
#ifndef DEPACKETIZER_H
#define DEPACKETIZER_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Appends the NAL units that one packet of a frame carries, each behind a four-byte start code.
 *
 * `frame_data` is the frame's buffer, [`cur_ptr`, `end_ptr`) the packet's payload behind all headers.
 * Bytes are written at `frame_data + *frame_offset`; `*frame_offset` and `*frame_size` advance by the
 * bytes written. The caller zeroes both before the first packet of a frame, passes the packets of a
 * frame in order, and has room for the payload and 32 bytes more for each packet.
 *
 * A fragment whose start is missing is dropped; a fragmented NAL unit that another NAL unit interrupts
 * is taken back out, so the counters may also step back by what it had written. Of an aggregate that is
 * cut short the whole NAL units before the cut are kept, and of one with so many that their start codes
 * take more than those 32 bytes the first ones that fit. A caller that must not lose a unit looks at the
 * payloads before, and appends zero bytes, which are empty units, to an aggregate that needs more room.
 *
 * Returns 0 to go on with the next packet, non-zero to stop. */

/* H.264, RFC 6184: single NAL unit packets, STAP-A and FU-A. */
int depacketizer_h264_packet(uint8_t *frame_data, const uint8_t *cur_ptr, const uint8_t *end_ptr, size_t *frame_offset,
                             size_t *frame_size);

/* H.265, RFC 7798: single NAL unit packets, aggregation packets and fragmentation units, without DONL. */
int depacketizer_h265_packet(uint8_t *frame_data, const uint8_t *cur_ptr, const uint8_t *end_ptr, size_t *frame_offset,
                             size_t *frame_size);

#ifdef __cplusplus
}
#endif

#endif
