#include "output/progress_bar.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace vrc
{
namespace
{

constexpr std::chrono::milliseconds kPatience{700}; // shorter runs show nothing
constexpr std::chrono::milliseconds kInterval{100}; // between two drawings
constexpr const char *kWipeLine = "\r\x1B[K";

} // namespace

progress_bar::progress_bar(std::string label, uint64_t total, bool is_wanted)
    : label_(std::move(label)), total_(total), is_enabled_(is_wanted && total > 0 && isatty(STDERR_FILENO) != 0),
      next_update_(clock::now() + kPatience)
{
}

progress_bar::~progress_bar()
{
    if (is_shown_) {
        std::fputs(kWipeLine, stderr);
        std::fflush(stderr);
    }
}

void progress_bar::update(uint64_t position)
{
    if (!is_enabled_ || clock::now() < next_update_) {
        return;
    }
    next_update_ = clock::now() + kInterval;
    is_shown_ = true;
    std::fputs((kWipeLine + progress_line(label_, position, total_)).c_str(), stderr);
    std::fflush(stderr);
}

std::string progress_line(const std::string &label, uint64_t position, uint64_t total)
{
    constexpr double width = 40;
    const double share = std::min(1.0, static_cast<double>(position) / static_cast<double>(total));
    const auto filled = static_cast<size_t>(share * width);
    return fmt::format("{} [{:#<{}}{:.<{}}] {:3.0f} %", label, "", filled, "", static_cast<size_t>(width) - filled,
                       share * 100);
}

} // namespace vrc
