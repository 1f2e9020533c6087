// RTCP: checking and reading datagrams.
//
// Checking and reading are one: each kind of packet has one function that reads it and says when it cannot, and a
// datagram is well-formed when all of them can.
#include "wire/rtcp.h"

#include "wire/byte_order.h"
#include "wire/rtcp_format.h"

namespace
{

// One packet of a datagram, its padding left out.
struct rtcp_packet {
    const uint8_t *bytes;
    size_t size;  // at least a common header
    size_t whole; // with padding
};

enum rtcp_reading : uint8_t {
    RTCP_READING_ITEM,
    RTCP_READING_NOTHING, // well-formed, of a kind that is passed over
    RTCP_READING_BAD
};

uint8_t count_of(const rtcp_packet *packet)
{
    return packet->bytes[0] & 0x1F;
}

uint8_t type_of(const rtcp_packet *packet)
{
    return packet->bytes[1];
}

bool padding_bit(const uint8_t *packet)
{
    return (packet[0] & 0x20) != 0;
}

// Cuts the first packet off. False when it has not version 2, is longer than the bytes, or is padded without being
// the last or in a way that makes no sense.
bool packet_cut(const uint8_t *bytes, size_t size, rtcp_packet *packet)
{
    if (size < kRtcpHeaderSize || bytes[0] >> 6 != 2) {
        return false;
    }
    const size_t whole = size_t{4} * (size_t{be16_read(bytes + 2)} + 1);
    if (whole > size) {
        return false;
    }
    size_t padding = 0;
    if (padding_bit(bytes)) {
        padding = bytes[whole - 1];
        if (whole != size || padding == 0 || padding % 4 != 0 || padding > whole - kRtcpHeaderSize) {
            return false;
        }
    }
    *packet = {bytes, whole - padding, whole};
    return true;
}

// `count` entries of `entry_size` bytes at `offset`. False when they are not all there; what follows them may be
// an extension of the format.
bool list_read(const rtcp_packet *packet, size_t offset, size_t count, size_t entry_size, rtcp_list *list)
{
    if (packet->size < offset || (packet->size - offset) / entry_size < count) {
        return false;
    }
    *list = {packet->bytes + offset, count};
    return true;
}

// The entries that fill the rest of the packet. False when there is none, or one in part.
bool list_read_all(const rtcp_packet *packet, size_t offset, size_t entry_size, rtcp_list *list)
{
    if (packet->size <= offset || (packet->size - offset) % entry_size != 0) {
        return false;
    }
    *list = {packet->bytes + offset, (packet->size - offset) / entry_size};
    return true;
}

// ---- Packets -----------------------------------------------------------------------------------------------------

rtcp_reading sr_read(const rtcp_packet *packet, rtcp_item *item)
{
    rtcp_list blocks = {};
    if (!list_read(packet, kRtcpReportHeaderSize + kRtcpSenderInfoSize, count_of(packet), kRtcpBlockSize, &blocks)) {
        return RTCP_READING_BAD;
    }
    const uint8_t *info = packet->bytes + kRtcpReportHeaderSize;
    item->kind = RTCP_ITEM_SENDER_REPORT;
    item->ssrc = be32_read(packet->bytes + 4);
    item->sender_report.ntp_time = (static_cast<uint64_t>(be32_read(info)) << 32) | be32_read(info + 4);
    item->sender_report.rtp_timestamp = be32_read(info + 8);
    item->sender_report.packet_count = be32_read(info + 12);
    item->sender_report.octet_count = be32_read(info + 16);
    item->sender_report.blocks = blocks;
    return RTCP_READING_ITEM;
}

rtcp_reading rr_read(const rtcp_packet *packet, rtcp_item *item)
{
    rtcp_list blocks = {};
    if (!list_read(packet, kRtcpReportHeaderSize, count_of(packet), kRtcpBlockSize, &blocks)) {
        return RTCP_READING_BAD;
    }
    item->kind = RTCP_ITEM_RECEIVER_REPORT;
    item->ssrc = be32_read(packet->bytes + 4);
    item->receiver_report.blocks = blocks;
    return RTCP_READING_ITEM;
}

rtcp_reading bye_read(const rtcp_packet *packet, rtcp_item *item)
{
    rtcp_list ssrcs = {};
    if (!list_read(packet, kRtcpHeaderSize, count_of(packet), kRtcpSsrcSize, &ssrcs)) {
        return RTCP_READING_BAD;
    }
    rtcp_text reason = {};
    const uint8_t *rest = ssrcs.bytes + kRtcpSsrcSize * ssrcs.count;
    const size_t rest_size = static_cast<size_t>(packet->bytes + packet->size - rest);
    if (rest_size > 0) {
        reason = {reinterpret_cast<const char *>(rest + 1), rest[0]};
        if (reason.size > rest_size - 1) {
            return RTCP_READING_BAD;
        }
    }
    item->kind = RTCP_ITEM_BYE;
    item->ssrc = 0;
    item->bye = {ssrcs, reason};
    return RTCP_READING_ITEM;
}

rtcp_reading nack_read(const rtcp_packet *packet, rtcp_item *item)
{
    rtcp_list pairs = {};
    if (!list_read_all(packet, kRtcpFeedbackHeaderSize, kRtcpNackPairSize, &pairs)) {
        return RTCP_READING_BAD;
    }
    item->kind = RTCP_ITEM_NACK;
    item->nack = {be32_read(packet->bytes + 8), pairs};
    return RTCP_READING_ITEM;
}

rtcp_reading fir_read(const rtcp_packet *packet, rtcp_item *item)
{
    rtcp_list entries = {};
    if (!list_read_all(packet, kRtcpFeedbackHeaderSize, kRtcpFirEntrySize, &entries)) {
        return RTCP_READING_BAD;
    }
    item->kind = RTCP_ITEM_FIR;
    item->fir = {entries};
    return RTCP_READING_ITEM;
}

uint64_t bitrate_unpack(uint32_t word)
{
    const uint64_t mantissa = word & ((1U << kRtcpRembMantissaBits) - 1);
    const unsigned exponent = (word >> kRtcpRembMantissaBits) & 0x3F;
    const uint64_t bitrate = mantissa << exponent;
    return bitrate >> exponent == mantissa ? bitrate : UINT64_MAX;
}

// An application layer message of another kind than REMB is not ours to judge.
rtcp_reading application_feedback_read(const rtcp_packet *packet, rtcp_item *item)
{
    if (packet->size < kRtcpFeedbackHeaderSize + 4 || be32_read(packet->bytes + 12) != kRtcpRembIdentifier) {
        return RTCP_READING_NOTHING;
    }
    if (packet->size < kRtcpRembHeaderSize) {
        return RTCP_READING_BAD;
    }
    const uint32_t word = be32_read(packet->bytes + 16);
    rtcp_list ssrcs = {};
    if (!list_read(packet, kRtcpRembHeaderSize, word >> 24, kRtcpSsrcSize, &ssrcs)) {
        return RTCP_READING_BAD;
    }
    item->kind = RTCP_ITEM_REMB;
    item->remb = {bitrate_unpack(word), ssrcs};
    return RTCP_READING_ITEM;
}

rtcp_reading transport_feedback_read(const rtcp_packet *packet, rtcp_item *item)
{
    return count_of(packet) == kRtcpNack ? nack_read(packet, item) : RTCP_READING_NOTHING;
}

rtcp_reading payload_feedback_read(const rtcp_packet *packet, rtcp_item *item)
{
    switch (count_of(packet)) {
    case kRtcpPli:
        item->kind = RTCP_ITEM_PLI;
        item->pli = {be32_read(packet->bytes + 8)};
        return RTCP_READING_ITEM;
    case kRtcpFir:
        return fir_read(packet, item);
    case kRtcpApplicationFeedback:
        return application_feedback_read(packet, item);
    default:
        return RTCP_READING_NOTHING;
    }
}

rtcp_reading feedback_read(const rtcp_packet *packet, rtcp_item *item)
{
    if (packet->size < kRtcpFeedbackHeaderSize) {
        return RTCP_READING_BAD;
    }
    item->ssrc = be32_read(packet->bytes + 4);
    return type_of(packet) == kRtcpTransportFeedback ? transport_feedback_read(packet, item)
                                                     : payload_feedback_read(packet, item);
}

// Everything but a source description, which holds more than one item.
rtcp_reading packet_read(const rtcp_packet *packet, rtcp_item *item)
{
    switch (type_of(packet)) {
    case kRtcpSr:
        return sr_read(packet, item);
    case kRtcpRr:
        return rr_read(packet, item);
    case kRtcpBye:
        return bye_read(packet, item);
    case kRtcpTransportFeedback:
    case kRtcpPayloadFeedback:
        return feedback_read(packet, item);
    default:
        return RTCP_READING_NOTHING;
    }
}

// ---- Source descriptions -----------------------------------------------------------------------------------------

void chunks_begin(rtcp_cursor *cursor, const rtcp_packet *packet)
{
    cursor->chunks = packet->bytes + kRtcpHeaderSize;
    cursor->chunks_size = packet->size - kRtcpHeaderSize;
    cursor->n_chunks = count_of(packet);
}

// Reads one source's items up to the zero byte that ends them, and steps to the next word.
rtcp_reading chunk_read(rtcp_cursor *cursor, rtcp_item *item)
{
    const uint8_t *chunk = cursor->chunks;
    const size_t size = cursor->chunks_size;
    rtcp_reading reading = RTCP_READING_NOTHING;
    size_t at = kRtcpSsrcSize;
    while (at < size && chunk[at] != kRtcpSdesEnd) {
        if (size - at < kRtcpSdesItemHeaderSize || size - at - kRtcpSdesItemHeaderSize < chunk[at + 1]) {
            return RTCP_READING_BAD;
        }
        // One CNAME is what a source has; if there are more, the first one counts.
        if (chunk[at] == kRtcpSdesCname && reading == RTCP_READING_NOTHING) {
            item->kind = RTCP_ITEM_CNAME;
            item->ssrc = be32_read(chunk);
            item->cname = {reinterpret_cast<const char *>(chunk + at + kRtcpSdesItemHeaderSize), chunk[at + 1]};
            reading = RTCP_READING_ITEM;
        }
        at += kRtcpSdesItemHeaderSize + chunk[at + 1];
    }
    if (at >= size) {
        return RTCP_READING_BAD;
    }
    // Chunk and rest are whole words, so the last word of the chunk is there.
    at = (at / 4 + 1) * 4;
    cursor->chunks += at;
    cursor->chunks_size -= at;
    cursor->n_chunks--;
    return reading;
}

bool chunks_validate(const rtcp_packet *packet)
{
    rtcp_cursor cursor = {};
    chunks_begin(&cursor, packet);
    while (cursor.n_chunks > 0) {
        rtcp_item item;
        if (chunk_read(&cursor, &item) == RTCP_READING_BAD) {
            return false;
        }
    }
    return true;
}

} // namespace

// ---- Datagrams ---------------------------------------------------------------------------------------------------

bool rtcp_is_rtcp(const uint8_t *bytes, size_t size)
{
    return size >= 2 && bytes[1] >= 192 && bytes[1] <= 223;
}

bool rtcp_validate(const uint8_t *bytes, size_t size)
{
    if (!rtcp_is_rtcp(bytes, size)) {
        return false;
    }
    size_t at = 0;
    while (at < size) {
        rtcp_packet packet = {};
        rtcp_item item;
        if (!packet_cut(bytes + at, size - at, &packet)) {
            return false;
        }
        const bool is_good =
            type_of(&packet) == kRtcpSdes ? chunks_validate(&packet) : packet_read(&packet, &item) != RTCP_READING_BAD;
        if (!is_good) {
            return false;
        }
        at += packet.whole;
    }
    return true;
}

rtcp_cursor rtcp_cursor_begin(const uint8_t *bytes, size_t size)
{
    rtcp_cursor cursor = {};
    if (rtcp_validate(bytes, size)) {
        cursor.bytes = bytes;
        cursor.size = size;
    }
    return cursor;
}

// Each turn takes a chunk or a packet off the cursor.
bool rtcp_next(rtcp_cursor *cursor, rtcp_item *item)
{
    while (cursor->n_chunks > 0 || cursor->size > 0) {
        if (cursor->n_chunks > 0) {
            if (chunk_read(cursor, item) == RTCP_READING_ITEM) {
                return true;
            }
            continue;
        }
        rtcp_packet packet = {};
        if (!packet_cut(cursor->bytes, cursor->size, &packet)) {
            return false;
        }
        cursor->bytes += packet.whole;
        cursor->size -= packet.whole;
        if (type_of(&packet) == kRtcpSdes) {
            chunks_begin(cursor, &packet);
        } else if (packet_read(&packet, item) == RTCP_READING_ITEM) {
            return true;
        }
    }
    return false;
}

// ---- Lists -------------------------------------------------------------------------------------------------------

rtcp_report_block rtcp_block_at(const rtcp_list *blocks, size_t index)
{
    const uint8_t *bytes = blocks->bytes + kRtcpBlockSize * index;
    const uint32_t lost = be32_read(bytes + 4) & 0xFFFFFF;
    rtcp_report_block block = {};
    block.ssrc = be32_read(bytes);
    block.fraction_lost = bytes[4];
    block.cumulative_lost = static_cast<int32_t>(lost) - ((lost & 0x800000) != 0 ? 0x1000000 : 0);
    block.highest_seq = be32_read(bytes + 8);
    block.jitter = be32_read(bytes + 12);
    block.last_sr = be32_read(bytes + 16);
    block.delay_since_sr = be32_read(bytes + 20);
    return block;
}

uint32_t rtcp_ssrc_at(const rtcp_list *ssrcs, size_t index)
{
    return be32_read(ssrcs->bytes + kRtcpSsrcSize * index);
}

rtcp_fir_entry rtcp_fir_at(const rtcp_list *entries, size_t index)
{
    const uint8_t *bytes = entries->bytes + kRtcpFirEntrySize * index;
    return {be32_read(bytes), bytes[4]};
}

rtcp_nack_cursor rtcp_nack_begin(const rtcp_nack *nack)
{
    return {nack->pairs, 0};
}

bool rtcp_nack_next(rtcp_nack_cursor *cursor, seq_t *seq)
{
    while (cursor->pairs.count > 0) {
        const uint8_t *pair = cursor->pairs.bytes;
        const uint32_t set = (static_cast<uint32_t>(be16_read(pair + 2)) << 1) | 1;
        while (cursor->bit < kRtcpNackPairSpan) {
            const unsigned bit = cursor->bit++;
            if ((set >> bit & 1) != 0) {
                *seq = static_cast<seq_t>(be16_read(pair) + bit);
                return true;
            }
        }
        cursor->pairs = {pair + kRtcpNackPairSize, cursor->pairs.count - 1};
        cursor->bit = 0;
    }
    return false;
}
