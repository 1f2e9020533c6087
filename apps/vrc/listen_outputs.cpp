#include "listen_outputs.h"

#include <fmt/format.h>

#include <array>
#include <chrono>
#include <filesystem>

#include "stats_record.h"

namespace vrc
{
namespace
{

uint64_t wall_clock_us()
{
    const auto since_1970 = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(since_1970).count());
}

} // namespace

// Each file has one use. Standard output is one as well, and it cannot be split.
void listen_outputs::check(const listen_options &options)
{
    const std::array<const std::string *, 4> paths = {&options.output, &options.stats, &options.record, &options.sdp};
    if (options.is_all && options.output == "-") {
        throw failure(exit_code::wrong_usage,
                      "--all writes a file for each sender, and -o - is one: name a file, as in "
                      "-o call.h264");
    }
    for (size_t i = 0; i < paths.size(); ++i) {
        for (size_t k = 0; k < i; ++k) {
            std::error_code error;
            if (!paths[i]->empty() &&
                (*paths[i] == *paths[k] || std::filesystem::equivalent(*paths[i], *paths[k], error))) {
                throw failure(exit_code::wrong_usage, fmt::format("'{}' is named twice: name another file", *paths[i]));
            }
        }
    }
}

listen_outputs::listen_outputs(const listen_options &options)
    : frames_(options.output, options.is_all), frames_left_(options.frames != 0 ? options.frames : UINT64_MAX)
{
    if (!options.stats.empty()) {
        stats_.emplace(options.stats);
    }
    if (!options.record.empty()) {
        recorder_.emplace(options.record);
    }
}

bool listen_outputs::write_frame(size_t section, const channel_frame &frame) noexcept
{
    if (frames_left_ == 0) {
        return false;
    }
    --frames_left_;
    return frames_.write(section, frame) && frames_left_ != 0;
}

bool listen_outputs::write_datagram(const udp_datagram &datagram)
{
    return !recorder_ || recorder_->write(wall_clock_us(), datagram);
}

bool listen_outputs::write_records(const std::vector<listened_stream> &streams)
{
    if (!stats_) {
        return true;
    }
    bool is_written = true;
    for (const listened_stream &stream : streams) {
        const stats_moment moment{wall_clock_us() / 1000, stream.received.stream.identity.ssrc, stream.header_bytes,
                                  stream.decryption};
        const std::string text = stats_record(stream.received.report, moment).dump() + "\n";
        is_written = stats_->write(text.data(), text.size()) && is_written;
    }
    return stats_->flush() && is_written;
}

void listen_outputs::close()
{
    frames_.close();
    if (stats_) {
        stats_->close();
    }
    if (recorder_) {
        recorder_->close();
    }
}

} // namespace vrc
