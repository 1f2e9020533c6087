// What a client's RTCP datagrams say, in words.
#pragma once

#include <string>
#include <vector>

#include "client_bench.h"
#include "wire/rtcp.h"

namespace client_bench
{

inline std::string nack_text(const rtcp_nack &nack)
{
    std::string text = "nack";
    rtcp_nack_cursor cursor = rtcp_nack_begin(&nack);
    seq_t seq = 0;
    while (rtcp_nack_next(&cursor, &seq)) {
        text += " " + std::to_string(seq);
    }
    return text;
}

inline std::string item_text(const rtcp_item &item)
{
    switch (item.kind) {
    case RTCP_ITEM_NACK:
        return nack_text(item.nack);
    case RTCP_ITEM_PLI:
        return "pli";
    case RTCP_ITEM_FIR:
        return "fir " + std::to_string(rtcp_fir_at(&item.fir.entries, 0).command_seq);
    case RTCP_ITEM_REMB:
        return "remb";
    case RTCP_ITEM_RECEIVER_REPORT:
        return item.receiver_report.blocks.count == 0 ? "" : "report";
    default:
        return "";
    }
}

// "110: nack 7 8" for each datagram that says something, with the time since `from`. Empty reports, and SDES, are
// left out.
inline std::vector<std::string> sent_texts(const Client &client, zeb_ts_t from)
{
    std::vector<std::string> texts;
    for (const sent_datagram &datagram : client.sent) {
        std::string text;
        rtcp_cursor cursor = rtcp_cursor_begin(datagram.data.data(), datagram.data.size());
        rtcp_item item;
        while (rtcp_next(&cursor, &item)) {
            const std::string said = item_text(item);
            text += said.empty() || text.empty() ? said : ", " + said;
        }
        if (!text.empty()) {
            texts.push_back(std::to_string(datagram.at - from) + ": " + text);
        }
    }
    return texts;
}

} // namespace client_bench
