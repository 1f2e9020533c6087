#include "capture/sequence_tracker.h"

#include <algorithm>
#include <cstdlib>

namespace vrc
{

void sequence_tracker::start(uint16_t seq)
{
    covered_before_ += covered_;
    covered_ = 1;
    newest_ = seq;
    seen_.reset();
    seen_.set(0);
    ++received_;
}

void sequence_tracker::advance(int step)
{
    seen_ <<= static_cast<size_t>(step);
    seen_.set(0);
    newest_ = static_cast<uint16_t>(newest_ + step);
    covered_ += static_cast<uint64_t>(step);
    ++received_;
}

void sequence_tracker::look_back(int distance)
{
    const auto bit = static_cast<size_t>(distance);
    if (seen_.test(bit)) {
        ++duplicates_;
        return;
    }
    seen_.set(bit);
    covered_ = std::max(covered_, static_cast<uint64_t>(distance) + 1);
    ++reordered_;
    ++received_;
}

void sequence_tracker::observe(uint16_t seq)
{
    if (!is_started_) {
        is_started_ = true;
        start(seq);
        return;
    }
    const int step = static_cast<int16_t>(static_cast<uint16_t>(seq - newest_));
    if (std::abs(step) > kMaxStep) {
        ++jumps_;
        start(seq);
    } else if (step > 0) {
        advance(step);
    } else {
        look_back(-step);
    }
}

uint64_t sequence_tracker::lost() const
{
    return covered_before_ + covered_ - received_;
}

} // namespace vrc
