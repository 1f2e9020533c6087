#include "live/sender_succession.h"

#include <new>
#include <utility>

namespace vrc
{

sender_succession::sender_succession(report_finder find, frame_writer write, const succession_options &options)
    : find_(std::move(find)), write_(std::move(write)), options_(options)
{
}

void sender_succession::take(const channel_frame &frame, zeb_ts_t now)
{
    tick(now);
    if (written_.empty()) {
        begin(frame.uid);
    }
    if (frame.uid == written_.back()) {
        write_(frame);
    } else if (frame.is_key && is_back(frame.uid)) {
        drop_held();
        begin(frame.uid);
        write_(frame);
    } else if (candidate_ ? *candidate_ == frame.uid : frame.is_key) {
        take_other(frame, now);
    }
}

void sender_succession::tick(zeb_ts_t now)
{
    if (!candidate_) {
        return;
    }
    if (is_current_alive(held_since_)) {
        drop_held();
    } else if (is_current_over(now)) {
        succeed();
    }
}

void sender_succession::finish()
{
    const stream_report *current = candidate_ ? find_(written_.back()) : nullptr;
    if (current != nullptr && current->has_left) {
        succeed();
    }
}

// Whether it sent something after that time.
bool sender_succession::is_current_alive(zeb_ts_t since) const
{
    const stream_report *current = find_(written_.back());
    return current != nullptr && current->last_packet_at > since;
}

bool sender_succession::is_current_over(zeb_ts_t now) const
{
    const stream_report *current = find_(written_.back());
    if (current == nullptr) {
        return true;
    }
    const bool is_gone = current->has_left && options_.is_bye_authentic;
    return is_gone || now - current->last_packet_at >= kSuccessionSilence;
}

// Whether it goes on after the BYE that it was succeeded for.
bool sender_succession::is_back(uint32_t ssrc) const
{
    const stream_report *report = left_ == ssrc ? find_(ssrc) : nullptr;
    return report != nullptr && !report->has_left;
}

void sender_succession::take_other(const channel_frame &frame, zeb_ts_t now)
{
    if (!candidate_) {
        candidate_ = frame.uid;
        held_since_ = now;
    }
    if (is_current_over(now)) {
        succeed();
        write_(frame);
    } else {
        hold(frame);
    }
}

void sender_succession::hold(const channel_frame &frame)
{
    const size_t size = sizeof(held_frame) + frame.size;
    try {
        if (size <= options_.hold_max && held_size_ <= options_.hold_max - size) {
            held_.push_back({{frame.data, frame.data + frame.size}, frame});
            held_size_ += size;
            return;
        }
    } catch (const std::bad_alloc &) {
        // as if it did not fit
    }
    frames_not_held_ += held_.size() + 1;
    drop_held();
}

void sender_succession::drop_held()
{
    candidate_.reset();
    held_ = {};
    held_size_ = 0;
}

void sender_succession::begin(uint32_t ssrc)
{
    written_.push_back(ssrc);
    left_.reset();
}

void sender_succession::succeed()
{
    const uint32_t before = written_.back();
    const stream_report *report = find_(before);
    const bool has_left = report != nullptr && report->has_left;
    begin(*candidate_);
    if (has_left) {
        left_ = before;
    }
    std::vector<held_frame> held = std::exchange(held_, {});
    drop_held();
    for (held_frame &one : held) {
        one.frame.data = one.bytes.data();
        write_(one.frame);
    }
}

} // namespace vrc
