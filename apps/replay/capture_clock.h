// The time that a capture tells, made fit to drive a receiver.
#pragma once

#include <cstdint>

namespace vrc
{

// Time since the first packet. It never goes back, though a capture's clock may: packets that two queues of a
// network card stamped stand a little out of order, and a clock that is set jumps. After a small step back the
// time stands still until the capture has caught up; after a large one it runs on from where it was.
class capture_clock
{
  public:
    // Takes the stamp of the next packet, microseconds from any origin. Returns microseconds since the first one.
    uint64_t advance(int64_t stamp_us);

    // How often a stamp was earlier than one before it, and by how much at most, microseconds.
    uint64_t steps_back() const
    {
        return steps_back_;
    }

    uint64_t largest_step_back_us() const
    {
        return largest_step_back_us_;
    }

  private:
    bool is_started_ = false;
    int64_t latest_stamp_us_ = 0; // the stamp that `elapsed_us_` stands for
    uint64_t elapsed_us_ = 0;
    uint64_t steps_back_ = 0;
    uint64_t largest_step_back_us_ = 0;
};

} // namespace vrc
