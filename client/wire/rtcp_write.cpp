// RTCP: building packets.
#include "wire/rtcp.h"

#include <cstring>

#include "wire/byte_order.h"
#include "wire/rtcp_format.h"

namespace
{

constexpr int32_t kCumulativeLostMin = -0x800000;
constexpr int32_t kCumulativeLostMax = 0x7FFFFF;

// Bytes that one more packet may have.
size_t room_of(const rtcp_output *out)
{
    const size_t left = out->capacity - out->size;
    return left < kRtcpPacketSizeMax ? left : kRtcpPacketSizeMax;
}

// Takes `size` bytes, a multiple of 4, for a packet and writes its common header. Null when there is no room.
uint8_t *packet_begin(rtcp_output *out, uint8_t type, size_t count_or_format, size_t size)
{
    if (size > room_of(out)) {
        return nullptr;
    }
    uint8_t *packet = out->bytes + out->size;
    packet[0] = static_cast<uint8_t>(0x80 | count_or_format);
    packet[1] = type;
    be16_write(packet + 2, static_cast<uint16_t>(size / 4 - 1));
    out->size += size;
    return packet;
}

uint8_t *feedback_begin(rtcp_output *out, uint8_t type, size_t format, uint32_t sender_ssrc, uint32_t media_ssrc,
                        size_t size)
{
    uint8_t *packet = packet_begin(out, type, format, size);
    if (packet != nullptr) {
        be32_write(packet + 4, sender_ssrc);
        be32_write(packet + 8, media_ssrc);
    }
    return packet;
}

void block_write(uint8_t *bytes, const rtcp_report_block *block)
{
    int32_t lost = block->cumulative_lost;
    if (lost < kCumulativeLostMin) {
        lost = kCumulativeLostMin;
    }
    if (lost > kCumulativeLostMax) {
        lost = kCumulativeLostMax;
    }
    be32_write(bytes, block->ssrc);
    be32_write(bytes + 4,
               (static_cast<uint32_t>(block->fraction_lost) << 24) | (static_cast<uint32_t>(lost) & 0xFFFFFF));
    be32_write(bytes + 8, block->highest_seq);
    be32_write(bytes + 12, block->jitter);
    be32_write(bytes + 16, block->last_sr);
    be32_write(bytes + 20, block->delay_since_sr);
}

} // namespace

size_t rtcp_rr_write(rtcp_output *out, uint32_t sender_ssrc, const rtcp_report_block *blocks, size_t count)
{
    if (count > kRtcpReportBlocksMax) {
        return 0;
    }
    const size_t size = kRtcpReportHeaderSize + kRtcpBlockSize * count;
    uint8_t *packet = packet_begin(out, kRtcpRr, count, size);
    if (packet == nullptr) {
        return 0;
    }
    be32_write(packet + 4, sender_ssrc);
    for (size_t i = 0; i < count; i++) {
        block_write(packet + kRtcpReportHeaderSize + kRtcpBlockSize * i, &blocks[i]);
    }
    return size;
}

size_t rtcp_sdes_write(rtcp_output *out, uint32_t ssrc, const char *cname, size_t size)
{
    if (size == 0 || size > kRtcpTextSizeMax) {
        return 0;
    }
    // At least one zero byte ends the list of items, and more fill up the last word.
    const size_t used = kRtcpHeaderSize + kRtcpSsrcSize + kRtcpSdesItemHeaderSize + size;
    const size_t packet_size = (used / 4 + 1) * 4;
    uint8_t *packet = packet_begin(out, kRtcpSdes, 1, packet_size);
    if (packet == nullptr) {
        return 0;
    }
    be32_write(packet + 4, ssrc);
    packet[8] = kRtcpSdesCname;
    packet[9] = static_cast<uint8_t>(size);
    memcpy(packet + 10, cname, size);
    memset(packet + used, 0, packet_size - used);
    return packet_size;
}

namespace
{

// Puts as many of the numbers as one pair can hold, at least the first, into it. Returns how many.
size_t nack_pair_write(uint8_t *bytes, const seq_t *seqs, size_t count)
{
    const seq_t first = seqs[0];
    uint16_t following = 0;
    size_t taken = 1;
    for (; taken < count; taken++) {
        const unsigned distance = static_cast<seq_t>(seqs[taken] - first);
        if (distance >= kRtcpNackPairSpan) {
            break;
        }
        if (distance > 0) {
            following = static_cast<uint16_t>(following | (1U << (distance - 1)));
        }
    }
    be16_write(bytes, first);
    be16_write(bytes + 2, following);
    return taken;
}

} // namespace

size_t rtcp_nack_write(rtcp_output *out, uint32_t sender_ssrc, uint32_t media_ssrc, const seq_t *seqs, size_t count,
                       size_t *fitted)
{
    *fitted = 0;
    const size_t room = room_of(out);
    if (count == 0 || room < kRtcpFeedbackHeaderSize + kRtcpNackPairSize) {
        return 0;
    }
    // The pairs first: only then is the packet's size known.
    uint8_t *pairs = out->bytes + out->size + kRtcpFeedbackHeaderSize;
    const size_t n_pairs_max = (room - kRtcpFeedbackHeaderSize) / kRtcpNackPairSize;
    size_t n_pairs = 0;
    for (; *fitted < count && n_pairs < n_pairs_max; n_pairs++) {
        *fitted += nack_pair_write(pairs + kRtcpNackPairSize * n_pairs, seqs + *fitted, count - *fitted);
    }
    const size_t size = kRtcpFeedbackHeaderSize + kRtcpNackPairSize * n_pairs;
    feedback_begin(out, kRtcpTransportFeedback, kRtcpNack, sender_ssrc, media_ssrc, size);
    return size;
}

size_t rtcp_pli_write(rtcp_output *out, uint32_t sender_ssrc, uint32_t media_ssrc)
{
    const size_t size = kRtcpFeedbackHeaderSize;
    return feedback_begin(out, kRtcpPayloadFeedback, kRtcpPli, sender_ssrc, media_ssrc, size) != nullptr ? size : 0;
}

size_t rtcp_fir_write(rtcp_output *out, uint32_t sender_ssrc, rtcp_fir_entry entry)
{
    const size_t size = kRtcpFeedbackHeaderSize + kRtcpFirEntrySize;
    // The entries name the sources; the header's own field is 0 (RFC 5104, 4.3.1.2).
    uint8_t *packet = feedback_begin(out, kRtcpPayloadFeedback, kRtcpFir, sender_ssrc, 0, size);
    if (packet == nullptr) {
        return 0;
    }
    be32_write(packet + 12, entry.ssrc);
    be32_write(packet + 16, static_cast<uint32_t>(entry.command_seq) << 24);
    return size;
}

namespace
{

// Exponent in 6 bits above the mantissa. At most 46 steps: then 18 of 64 bits are left.
uint32_t bitrate_pack(uint64_t bitrate)
{
    uint32_t exponent = 0;
    while (bitrate >> kRtcpRembMantissaBits != 0) {
        bitrate >>= 1;
        exponent++;
    }
    return (exponent << kRtcpRembMantissaBits) | static_cast<uint32_t>(bitrate);
}

} // namespace

size_t rtcp_remb_write(rtcp_output *out, uint32_t sender_ssrc, uint64_t bitrate, const uint32_t *ssrcs, size_t count)
{
    if (count == 0 || count > kRtcpRembSourcesMax) {
        return 0;
    }
    const size_t size = kRtcpRembHeaderSize + kRtcpSsrcSize * count;
    uint8_t *packet = feedback_begin(out, kRtcpPayloadFeedback, kRtcpApplicationFeedback, sender_ssrc, 0, size);
    if (packet == nullptr) {
        return 0;
    }
    be32_write(packet + 12, kRtcpRembIdentifier);
    be32_write(packet + 16, (static_cast<uint32_t>(count) << 24) | bitrate_pack(bitrate));
    for (size_t i = 0; i < count; i++) {
        be32_write(packet + kRtcpRembHeaderSize + kRtcpSsrcSize * i, ssrcs[i]);
    }
    return size;
}

size_t rtcp_report_write(rtcp_output *out, const rtcp_report *report)
{
    const size_t begin = out->size;
    if (rtcp_rr_write(out, report->sender_ssrc, report->blocks, report->n_blocks) == 0) {
        return 0;
    }
    if (report->cname != nullptr && rtcp_sdes_write(out, report->sender_ssrc, report->cname, report->cname_size) == 0) {
        out->size = begin;
    }
    return out->size - begin;
}
