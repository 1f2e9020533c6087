#include "ledger.h"

#include <cstring>

namespace simulation
{

namespace
{

constexpr zeb_ts_t kMemory = 30000; // ms

// Takes `size` bytes of `expected` off the front of the frame's rest, if they stand there.
bool take_off(const uint8_t *expected, size_t size, const uint8_t **rest, const uint8_t *end)
{
    if (static_cast<size_t>(end - *rest) < size || std::memcmp(expected, *rest, size) != 0) {
        return false;
    }
    *rest += size;
    return true;
}

bool is_same(const sent_frame &sent, const channel_frame &frame)
{
    const uint8_t *rest = frame.data;
    const uint8_t *end = frame.data + frame.size;
    size_t at = 0;
    for (const optional_bytes &optional : sent.optional) {
        if (!take_off(&sent.expected[at], optional.begin - at, &rest, end)) {
            return false;
        }
        take_off(&sent.expected[optional.begin], optional.end - optional.begin, &rest, end);
        at = optional.end;
    }
    return take_off(&sent.expected[at], sent.expected.size() - at, &rest, end) && rest == end;
}

std::string words(const sent_frame &frame)
{
    return (frame.is_key ? "key frame " : "frame ") + std::to_string(frame.place) + " of " +
           std::to_string(frame.expected.size()) + " bytes, sent at " + std::to_string(frame.at);
}

} // namespace

void Ledger::note(uint32_t name, seq_t first_seq, picture *made, zeb_ts_t now)
{
    sent_.push_back({numbering_, n_sent_++, name, first_seq, made->payloads.size(), made->is_key, now,
                     std::move(made->expected), std::move(made->optional), false});
    while (sent_.front().at + kMemory < now) {
        sent_.pop_front();
    }
}

void Ledger::renumber()
{
    numbering_++;
}

void Ledger::taint(uint32_t name)
{
    tainted_.insert(name);
}

void Ledger::taint_seq(seq_t seq)
{
    tainted_seqs_.insert(seq);
}

bool Ledger::is_tainted(const sent_frame &sent) const
{
    for (size_t i = 0; i < sent.n_packets && !tainted_seqs_.empty(); i++) {
        if (tainted_seqs_.count(static_cast<seq_t>(sent.first_seq + i)) != 0) {
            return true;
        }
    }
    return tainted_.count(sent.name) != 0;
}

// The newest of that name. A sender may come back to the same numbers, so one with other bytes is only the second choice.
sent_frame *Ledger::find(const channel_frame &frame, uint32_t name)
{
    sent_frame *named = nullptr;
    for (auto sent = sent_.rbegin(); sent != sent_.rend(); ++sent) {
        if (sent->name == name && is_same(*sent, frame)) {
            return &*sent;
        }
        if (sent->name == name && named == nullptr) {
            named = &*sent;
        }
    }
    return named;
}

std::string Ledger::judge(const sent_frame &sent, const channel_frame &frame) const
{
    if (!is_same(sent, frame)) {
        return "other bytes than sent, " + std::to_string(frame.size) + " of them";
    }
    if (frame.codec != codec_ || frame.is_key != sent.is_key) {
        return "another codec or kind than sent";
    }
    if (sent.is_out) {
        return "given out twice";
    }
    if (has_last_ && sent.place <= last_place_ && sent.numbering == last_numbering_) {
        return "behind frame " + std::to_string(last_place_);
    }
    const bool is_next = has_last_ && sent.place == last_place_ + 1 && sent.numbering == last_numbering_;
    if (!sent.is_key && !is_next && tainted_.empty()) {
        return "no key frame, and the one before did not come out";
    }
    return "";
}

std::string Ledger::take_unknown(uint32_t name) const
{
    return tainted_.count(name) != 0 ? "" : "frame " + std::to_string(name) + " was never sent";
}

std::string Ledger::take(const channel_frame &frame, uint32_t name)
{
    sent_frame *sent = find(frame, name);
    if (sent == nullptr) {
        return take_unknown(name);
    }
    const bool may_be_wrong = is_tainted(*sent);
    const std::string wrong = may_be_wrong ? "" : judge(*sent, frame);
    if (!may_be_wrong) {
        has_last_ = true;
        last_numbering_ = sent->numbering;
        last_place_ = sent->place;
    }
    std::string text = wrong.empty() ? "" : words(*sent) + ": " + wrong;
    n_shortened_ += wrong.empty() && frame.size < sent->expected.size() ? 1 : 0;
    sent->is_out = true;
    return text;
}

size_t Ledger::count_missing(zeb_ts_t from, zeb_ts_t to, std::string *first) const
{
    size_t n = 0;
    for (const sent_frame &sent : sent_) {
        if (sent.at < from || sent.at >= to || sent.is_out) {
            continue;
        }
        if (n == 0) {
            *first = words(sent);
        }
        n++;
    }
    return n;
}

} // namespace simulation
