#include "sender_succession.h"

#include <utility>

namespace vrc
{

sender_succession::sender_succession(report_finder find, frame_writer write)
    : find_(std::move(find)), write_(std::move(write))
{
}

void sender_succession::take(const channel_frame &frame, zeb_ts_t now)
{
    tick(now);
    if (written_.empty()) {
        written_.push_back(frame.uid);
    }
    if (frame.uid == written_.back()) {
        write_(frame);
    } else if (candidate_ ? *candidate_ == frame.uid : frame.is_key) {
        hold(frame, now);
        tick(now);
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

// Whether it sent something after that time.
bool sender_succession::is_current_alive(zeb_ts_t since) const
{
    const stream_report *current = find_(written_.back());
    return current != nullptr && current->last_packet_at > since;
}

bool sender_succession::is_current_over(zeb_ts_t now) const
{
    const stream_report *current = find_(written_.back());
    return current == nullptr || current->byes > 0 || now - current->last_packet_at >= kSuccessionSilence;
}

void sender_succession::hold(const channel_frame &frame, zeb_ts_t now)
{
    if (!candidate_) {
        candidate_ = frame.uid;
        held_since_ = now;
    }
    held_.push_back({{frame.data, frame.data + frame.size}, frame});
}

void sender_succession::drop_held()
{
    candidate_.reset();
    held_.clear();
}

void sender_succession::succeed()
{
    written_.push_back(*candidate_);
    for (held_frame &one : std::exchange(held_, {})) {
        one.frame.data = one.bytes.data();
        write_(one.frame);
    }
    candidate_.reset();
}

} // namespace vrc
