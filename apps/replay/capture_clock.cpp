#include "capture_clock.h"

#include <algorithm>

namespace vrc
{
namespace
{

constexpr uint64_t kSetBackUs = 1'000'000; // a step back from here on means that the clock was set

uint64_t difference(int64_t later, int64_t earlier)
{
    return static_cast<uint64_t>(later) - static_cast<uint64_t>(earlier);
}

} // namespace

uint64_t capture_clock::advance(int64_t stamp_us)
{
    if (!is_started_) {
        is_started_ = true;
        latest_stamp_us_ = stamp_us;
        return elapsed_us_;
    }
    if (stamp_us >= latest_stamp_us_) {
        const uint64_t step = difference(stamp_us, latest_stamp_us_);
        elapsed_us_ += std::min(step, UINT64_MAX - elapsed_us_);
        latest_stamp_us_ = stamp_us;
        return elapsed_us_;
    }
    const uint64_t step = difference(latest_stamp_us_, stamp_us);
    ++steps_back_;
    largest_step_back_us_ = std::max(largest_step_back_us_, step);
    if (step >= kSetBackUs) {
        latest_stamp_us_ = stamp_us;
    }
    return elapsed_us_;
}

} // namespace vrc
