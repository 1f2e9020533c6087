#include "ledger.h"

#include <cstring>

namespace simulation
{

namespace
{

constexpr zeb_ts_t kMemory = 30000; // ms

// What comes out of the frame next.
struct frame_rest {
    const uint8_t *at;
    const uint8_t *end;
};

// Takes the unit off the front of the frame's rest, if it stands there.
bool take_off(const picture &made, const picture_unit &unit, frame_rest *rest)
{
    const size_t size = unit.end - unit.begin;
    const bool is_there = static_cast<size_t>(rest->end - rest->at) >= size &&
                          std::memcmp(&made.expected[unit.begin], rest->at, size) == 0;
    rest->at += is_there ? size : 0;
    return is_there;
}

// The first unit that is not as it was sent, as words; empty when all are.
std::string difference(const picture &made, const channel_frame &frame)
{
    frame_rest rest = {frame.data, frame.data + frame.size};
    for (size_t i = 0; i < made.units.size(); i++) {
        const picture_unit &unit = made.units[i];
        if (!take_off(made, unit, &rest) && !unit.is_optional) {
            return "unit " + std::to_string(i) + " of " + std::to_string(made.units.size()) + ", " +
                   std::to_string(unit.end - unit.begin) + " bytes at " + std::to_string(rest.at - frame.data);
        }
    }
    return rest.at == rest.end ? "" : std::to_string(rest.end - rest.at) + " bytes behind all units";
}

std::string words(const sent_frame &frame)
{
    return (frame.made.is_key ? "key frame " : "frame ") + std::to_string(frame.place) + " of " +
           std::to_string(frame.made.expected.size()) + " bytes, sent at " + std::to_string(frame.at);
}

} // namespace

void Ledger::note(uint32_t name, seq_t first_seq, picture made, zeb_ts_t now)
{
    const size_t n_packets = made.payloads.size();
    made.payloads.clear();
    sent_.push_back({numbering_, n_sent_++, name, first_seq, n_packets, now, std::move(made), false});
    while (sent_.front().at + kMemory < now) {
        forget_first();
    }
}

void Ledger::forget_first()
{
    const sent_frame &first = sent_.front();
    const bool is_missing = first.place >= first_out_ && !first.is_out && !is_passed_over(0);
    if (is_missing && n_missing_++ == 0) {
        first_missing_ = words(first);
    }
    sent_.pop_front();
}

void Ledger::shift(zeb_ts_t span)
{
    for (sent_frame &sent : sent_) {
        sent.at += span;
    }
}

void Ledger::renumber()
{
    numbering_++;
    has_given_sets_ = false;
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
        if (sent->name == name && difference(sent->made, frame).empty()) {
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
    if (!sent.made.fault.empty()) {
        return "came out with " + sent.made.fault;
    }
    const std::string other = difference(sent.made, frame);
    if (!other.empty()) {
        return "other bytes than sent, " + std::to_string(frame.size) + " of them: " + other;
    }
    if (frame.codec != codec_ || frame.is_key != sent.made.is_key) {
        return "another codec or kind than sent";
    }
    if (sent.is_out) {
        return "given out twice";
    }
    if (has_last_ && sent.place <= last_place_ && sent.numbering == last_numbering_) {
        return "behind frame " + std::to_string(last_place_);
    }
    const bool is_next = has_last_ && sent.place == last_place_ + 1 && sent.numbering == last_numbering_;
    if (!sent.made.is_key && !is_next && tainted_.empty()) {
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
    n_out_++;
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
        has_given_sets_ = has_given_sets_ || (sent->made.has_sets && sent->numbering == numbering_);
    }
    std::string text = wrong.empty() ? "" : words(*sent) + ": " + wrong;
    if (n_known_++ == 0) {
        first_out_ = sent->place;
        n_missing_ = 0;
    }
    n_shortened_ += wrong.empty() && frame.size < sent->made.expected.size() ? 1 : 0;
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

bool Ledger::is_passed_over(size_t index) const
{
    const sent_frame &sent = sent_[index];
    if (sent.is_out || sent.n_packets != 1 || index + 1 == sent_.size()) {
        return false;
    }
    const sent_frame &next = sent_[index + 1];
    return next.made.is_key && next.is_out;
}

size_t Ledger::count_missing(zeb_ts_t to, std::string *first) const
{
    size_t n = n_missing_;
    *first = first_missing_;
    for (size_t i = 0; i < sent_.size(); i++) {
        const sent_frame &sent = sent_[i];
        if (sent.place >= first_out_ && sent.at < to && !sent.is_out && !is_passed_over(i) && n++ == 0) {
            *first = words(sent);
        }
    }
    return n;
}

} // namespace simulation
