#include "packet_owner.h"

#include "wire/byte_order.h"
#include "wire/rtcp.h"
#include "wire/rtp.h"

namespace vrc
{
namespace
{

bool says_bye(const rtcp_item &item, uint32_t ssrc)
{
    const size_t count = item.kind == RTCP_ITEM_BYE ? item.bye.ssrcs.count : 0;
    for (size_t i = 0; i < count; ++i) {
        if (rtcp_ssrc_at(&item.bye.ssrcs, i) == ssrc) {
            return true;
        }
    }
    return false;
}

} // namespace

bool packet_owner_read(const uint8_t *packet, size_t size, packet_owner *owner)
{
    if (size < kRtpHeaderSize || packet[0] >> 6 != 2) {
        return false;
    }
    owner->ssrc = be32_read(packet + 8);
    owner->payload_type = packet[1] & 0x7F;
    return owner->payload_type < 64 || owner->payload_type > 95;
}

bool rtcp_concerns(const uint8_t *datagram, size_t size, uint32_t ssrc)
{
    rtcp_cursor cursor = rtcp_cursor_begin(datagram, size);
    for (rtcp_item item{}; rtcp_next(&cursor, &item);) {
        if ((item.kind == RTCP_ITEM_SENDER_REPORT && item.ssrc == ssrc) || says_bye(item, ssrc)) {
            return true;
        }
    }
    return false;
}

} // namespace vrc
