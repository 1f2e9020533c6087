// Shows on a terminal how far a long run is.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace vrc
{

// One line on standard error. It appears only when standard error is a terminal and the work takes longer than a
// moment, and is wiped away at the end.
class progress_bar
{
  public:
    // `total`: the position at which the work is done; 0 when it is not known, which shows nothing.
    progress_bar(std::string label, uint64_t total, bool is_wanted);
    ~progress_bar();
    progress_bar(const progress_bar &) = delete;
    progress_bar &operator=(const progress_bar &) = delete;

    void update(uint64_t position);

  private:
    using clock = std::chrono::steady_clock;

    std::string label_;
    uint64_t total_;
    bool is_enabled_;
    bool is_shown_ = false;
    clock::time_point next_update_;
};

// One line without the end of line: "label [#####.....]  50 %".
std::string progress_line(const std::string &label, uint64_t position, uint64_t total);

} // namespace vrc
