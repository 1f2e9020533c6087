// What rtcp_next reads from a datagram, as text: one line an item.
#pragma once

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "exact_copy.h"
#include "hex_bytes.h"
#include "wire/rtcp.h"

namespace rtcp_text_detail
{

__attribute__((format(printf, 1, 2))) inline std::string format(const char *text, ...)
{
    char line[512];
    va_list args;
    va_start(args, text);
    vsnprintf(line, sizeof(line), text, args);
    va_end(args);
    return line;
}

inline std::string of_blocks(const rtcp_list &blocks)
{
    std::string result;
    for (size_t i = 0; i < blocks.count; i++) {
        const rtcp_report_block block = rtcp_block_at(&blocks, i);
        result += format(" [%08" PRIX32 " fraction %u lost %" PRId32 " highest %" PRIX32 " jitter %" PRIu32
                         " lsr %08" PRIX32 " dlsr %" PRIu32 "]",
                         block.ssrc, block.fraction_lost, block.cumulative_lost, block.highest_seq, block.jitter,
                         block.last_sr, block.delay_since_sr);
    }
    return result;
}

inline std::string of_ssrcs(const rtcp_list &ssrcs)
{
    std::string result;
    for (size_t i = 0; i < ssrcs.count; i++) {
        result += format(" %08" PRIX32, rtcp_ssrc_at(&ssrcs, i));
    }
    return result;
}

inline std::string of_nack(const rtcp_nack &nack)
{
    std::string result;
    rtcp_nack_cursor cursor = rtcp_nack_begin(&nack);
    seq_t seq = 0;
    while (rtcp_nack_next(&cursor, &seq)) {
        result += format(" %u", seq);
    }
    return result;
}

inline std::string of_fir(const rtcp_fir &fir)
{
    std::string result;
    for (size_t i = 0; i < fir.entries.count; i++) {
        const rtcp_fir_entry entry = rtcp_fir_at(&fir.entries, i);
        result += format(" %08" PRIX32 " #%u", entry.ssrc, entry.command_seq);
    }
    return result;
}

inline std::string of_text(const rtcp_text &text)
{
    return " '" + std::string(text.bytes == nullptr ? "" : text.bytes, text.size) + "'";
}

inline std::string of_item(const rtcp_item &item)
{
    switch (item.kind) {
    case RTCP_ITEM_SENDER_REPORT:
        return format("SR %08" PRIX32 " ntp %llX rtp %" PRIu32 " packets %" PRIu32 " octets %" PRIu32, item.ssrc,
                      static_cast<unsigned long long>(item.sender_report.ntp_time), item.sender_report.rtp_timestamp,
                      item.sender_report.packet_count, item.sender_report.octet_count) +
               of_blocks(item.sender_report.blocks);
    case RTCP_ITEM_RECEIVER_REPORT:
        return format("RR %08" PRIX32, item.ssrc) + of_blocks(item.receiver_report.blocks);
    case RTCP_ITEM_CNAME:
        return format("CNAME %08" PRIX32, item.ssrc) + of_text(item.cname);
    case RTCP_ITEM_BYE:
        return "BYE" + of_ssrcs(item.bye.ssrcs) + of_text(item.bye.reason);
    case RTCP_ITEM_NACK:
        return format("NACK %08" PRIX32 " for %08" PRIX32 ":", item.ssrc, item.nack.media_ssrc) + of_nack(item.nack);
    case RTCP_ITEM_PLI:
        return format("PLI %08" PRIX32 " for %08" PRIX32, item.ssrc, item.pli.media_ssrc);
    case RTCP_ITEM_FIR:
        return format("FIR %08" PRIX32 " for", item.ssrc) + of_fir(item.fir);
    case RTCP_ITEM_REMB:
        return format("REMB %08" PRIX32 " %llu for", item.ssrc, static_cast<unsigned long long>(item.remb.bitrate)) +
               of_ssrcs(item.remb.ssrcs);
    }
    return "unknown";
}

} // namespace rtcp_text_detail

// "refused" when the datagram is not well-formed; "" when nothing in it is read.
inline std::string rtcp_to_text(const bytes &datagram)
{
    const exact_copy copy(datagram);
    if (!rtcp_validate(copy.data(), copy.size())) {
        return "refused";
    }
    std::string result;
    rtcp_cursor cursor = rtcp_cursor_begin(copy.data(), copy.size());
    rtcp_item item = {};
    while (rtcp_next(&cursor, &item)) {
        result += (result.empty() ? "" : "\n") + rtcp_text_detail::of_item(item);
    }
    return result;
}
