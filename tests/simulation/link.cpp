#include "link.h"

#include <algorithm>

namespace simulation
{

Link::Link(const link_settings &settings, uint64_t seed) : settings_(settings), random_(seed)
{
}

void Link::set_clean(bool is_clean)
{
    is_clean_ = is_clean;
    free_at_ = 0;
    outage_begin_ = outage_end_ = 0;
}

void Link::shift(zeb_ts_t span)
{
    free_at_ += static_cast<double>(span);
    in_order_ += span;
    latest_ += span;
    outage_begin_ += span;
    outage_end_ += span;
}

bool Link::is_out(zeb_ts_t now)
{
    if (settings_.outage_every == 0) {
        return false;
    }
    if (now >= outage_end_) {
        outage_begin_ = now + random_.between(settings_.outage_every / 2, settings_.outage_every * 3 / 2);
        outage_end_ = outage_begin_ + random_.between(settings_.outage_min, settings_.outage_max);
    }
    return now >= outage_begin_;
}

bool Link::is_lost()
{
    is_bad_ = is_bad_ ? !random_.happens(settings_.to_good) : random_.happens(settings_.to_bad);
    return random_.happens(is_bad_ ? settings_.loss_bad : settings_.loss_good);
}

// False when the queue is full.
bool Link::wait_in_queue(size_t size, zeb_ts_t now)
{
    if (settings_.rate_kbps <= 0) {
        return true;
    }
    const auto begin = std::max(free_at_, static_cast<double>(now));
    if (begin - static_cast<double>(now) > static_cast<double>(settings_.queue)) {
        return false;
    }
    free_at_ = begin + static_cast<double>(size) * 8 / settings_.rate_kbps;
    return true;
}

passage Link::pass(zeb_ts_t now)
{
    zeb_ts_t at = std::max(now, static_cast<zeb_ts_t>(free_at_)) + settings_.one_way;
    if (settings_.jitter > 0) {
        at += random_.between(0, settings_.jitter);
    }
    if (random_.happens(settings_.reordered)) {
        at += random_.between(1, settings_.reorder_by);
    } else {
        in_order_ = at = std::max(at, in_order_);
    }
    latest_ = std::max(latest_, at);
    return {at, random_.happens(settings_.corrupted)};
}

std::vector<passage> Link::send(size_t size, zeb_ts_t now)
{
    if (is_clean_) {
        in_order_ = std::max(in_order_, now + settings_.one_way);
        latest_ = std::max(latest_, in_order_);
        return {{in_order_, false}};
    }
    std::vector<passage> passages;
    if (is_out(now) || is_lost() || !wait_in_queue(size, now)) {
        return passages;
    }
    const size_t n = random_.happens(settings_.duplicated) ? 2 : 1;
    for (size_t i = 0; i < n; i++) {
        const passage copy = pass(now);
        if (!copy.is_corrupted || settings_.corrupted_arrive) {
            passages.push_back(copy);
        }
    }
    return passages;
}

} // namespace simulation
