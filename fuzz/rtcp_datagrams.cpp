// RTCP datagrams: what is well-formed is read without a look beyond its end, and what was read is written and read again.

#include <algorithm>
#include <array>

#include "check.h"
#include "fuzz_input.h"
#include "wire/rtcp.h"

namespace
{

using datagram = std::array<uint8_t, 4096>;

void check_within(const std::vector<uint8_t> &bytes, const void *from, size_t size)
{
    const auto *begin = static_cast<const uint8_t *>(from);
    fuzz::check(size == 0 || (begin >= bytes.data() && begin + size <= bytes.data() + bytes.size()),
                "what an item names lies in its datagram");
}

// Writes the blocks as a receiver report and reads them again.
void check_blocks(const std::vector<uint8_t> &bytes, const rtcp_list &list)
{
    check_within(bytes, list.bytes, list.count * 24);
    std::vector<rtcp_report_block> blocks;
    for (size_t i = 0; i < list.count; i++) {
        blocks.push_back(rtcp_block_at(&list, i));
    }
    datagram buffer;
    rtcp_output out = {buffer.data(), buffer.size(), 0};
    fuzz::check(rtcp_rr_write(&out, 1, blocks.data(), blocks.size()) == out.size && out.size != 0,
                "a report is written");
    rtcp_cursor cursor = rtcp_cursor_begin(buffer.data(), out.size);
    rtcp_item item;
    fuzz::check(rtcp_next(&cursor, &item) && item.kind == RTCP_ITEM_RECEIVER_REPORT, "a report is read");
    fuzz::check(item.receiver_report.blocks.count == blocks.size(), "with all its blocks");
    for (size_t i = 0; i < blocks.size(); i++) {
        const rtcp_report_block again = rtcp_block_at(&item.receiver_report.blocks, i);
        fuzz::check(again.ssrc == blocks[i].ssrc && again.cumulative_lost == blocks[i].cumulative_lost &&
                        again.highest_seq == blocks[i].highest_seq && again.jitter == blocks[i].jitter &&
                        again.last_sr == blocks[i].last_sr && again.delay_since_sr == blocks[i].delay_since_sr &&
                        again.fraction_lost == blocks[i].fraction_lost,
                    "as they were written");
    }
}

std::vector<seq_t> numbers_of(const rtcp_nack &nack)
{
    std::vector<seq_t> numbers;
    rtcp_nack_cursor cursor = rtcp_nack_begin(&nack);
    seq_t seq = 0;
    while (rtcp_nack_next(&cursor, &seq)) {
        numbers.push_back(seq);
        fuzz::check(numbers.size() <= nack.pairs.count * 17, "a pair names seventeen packets at most");
    }
    return numbers;
}

std::vector<seq_t> sorted(std::vector<seq_t> numbers)
{
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    return numbers;
}

void check_nack(const std::vector<uint8_t> &bytes, const rtcp_nack &nack)
{
    check_within(bytes, nack.pairs.bytes, nack.pairs.count * 4);
    const std::vector<seq_t> numbers = numbers_of(nack);
    datagram buffer;
    rtcp_output out = {buffer.data(), buffer.size(), 0};
    size_t fitted = 0;
    rtcp_nack_write(&out, 1, 2, numbers.data(), numbers.size(), &fitted);
    fuzz::check(fitted <= numbers.size(), "no more numbers are written than were given");
    if (fitted == 0) {
        return;
    }
    rtcp_cursor cursor = rtcp_cursor_begin(buffer.data(), out.size);
    rtcp_item item;
    fuzz::check(rtcp_next(&cursor, &item) && item.kind == RTCP_ITEM_NACK, "a request is read");
    const std::vector<seq_t> written(numbers.begin(), numbers.begin() + static_cast<long>(fitted));
    fuzz::check(sorted(numbers_of(item.nack)) == sorted(written), "for the same packets");
}

void check_item(const std::vector<uint8_t> &bytes, const rtcp_item &item)
{
    switch (item.kind) {
    case RTCP_ITEM_SENDER_REPORT:
        return check_blocks(bytes, item.sender_report.blocks);
    case RTCP_ITEM_RECEIVER_REPORT:
        return check_blocks(bytes, item.receiver_report.blocks);
    case RTCP_ITEM_CNAME:
        return check_within(bytes, item.cname.bytes, item.cname.size);
    case RTCP_ITEM_BYE:
        check_within(bytes, item.bye.ssrcs.bytes, item.bye.ssrcs.count * 4);
        return check_within(bytes, item.bye.reason.bytes, item.bye.reason.size);
    case RTCP_ITEM_NACK:
        return check_nack(bytes, item.nack);
    case RTCP_ITEM_PLI:
        return;
    case RTCP_ITEM_FIR:
        return check_within(bytes, item.fir.entries.bytes, item.fir.entries.count * 8);
    case RTCP_ITEM_REMB:
        return check_within(bytes, item.remb.ssrcs.bytes, item.remb.ssrcs.count * 4);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    const std::vector<uint8_t> bytes = input.rest();
    const bool is_valid = rtcp_validate(bytes.data(), bytes.size());
    fuzz::check(!is_valid || rtcp_is_rtcp(bytes.data(), bytes.size()), "what is well-formed is RTCP");
    rtcp_cursor cursor = rtcp_cursor_begin(bytes.data(), bytes.size());
    rtcp_item item;
    size_t n_items = 0;
    while (rtcp_next(&cursor, &item)) {
        fuzz::check(is_valid, "nothing is read of what is refused");
        fuzz::check(++n_items <= bytes.size() / 4, "an item takes four bytes at least");
        check_item(bytes, item);
    }
    return 0;
}
