#include "wire/rtx.h"

#include <cstring>

#include "wire/byte_order.h"
#include "wire/rtp.h"

namespace
{

constexpr size_t kOriginalSeqSize = 2;

void original_write(const uint8_t *packet, const rtp_view *view, uint8_t payload_type, uint32_t ssrc, uint8_t *original)
{
    const uint8_t *payload = packet + view->header_size;
    // Read before anything is written: the buffer may be the packet itself.
    const seq_t seq = be16_read(payload);
    const uint8_t first = packet[0] & static_cast<uint8_t>(~0x20U); // without the padding bit
    memmove(original, packet, view->header_size);
    memmove(original + view->header_size, payload + kOriginalSeqSize, view->payload_size - kOriginalSeqSize);
    original[0] = first;
    original[1] = static_cast<uint8_t>((view->marker ? 0x80 : 0) | (payload_type & 0x7F));
    be16_write(original + 2, seq);
    be32_write(original + 8, ssrc);
}

} // namespace

rtx_result rtx_restore(const uint8_t *packet, size_t size, uint8_t payload_type, uint32_t ssrc, uint8_t *buffer,
                       size_t capacity, size_t *restored_size)
{
    *restored_size = 0;
    rtp_view view = {};
    if (rtp_parse(packet, size, &view) != PACKET_DROP_REASONS) {
        return RTX_NOT_RTP;
    }
    if (view.payload_size == 0 && view.padding_size > 0) {
        return RTX_PADDING_ONLY;
    }
    if (view.payload_size < kOriginalSeqSize) {
        return RTX_TOO_SHORT;
    }
    const size_t original_size = view.header_size + view.payload_size - kOriginalSeqSize;
    if (original_size > capacity) {
        return RTX_NO_ROOM;
    }
    original_write(packet, &view, payload_type, ssrc, buffer);
    *restored_size = original_size;
    return RTX_RESTORED;
}
