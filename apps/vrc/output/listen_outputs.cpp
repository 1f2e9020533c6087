#include "output/listen_outputs.h"

#include <fmt/format.h>

#include <chrono>

#include "output/file_use.h"
#include "report/stats_record.h"

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

void listen_outputs::check(const listen_options &options)
{
    if (options.is_all && options.output == "-") {
        throw failure(exit_code::wrong_usage,
                      "--all writes a file for each sender, and -o - is one: name a file, as in "
                      "-o call.h264");
    }
    const bool is_stdout_taken = options.output == "-" || options.stats == "-" || options.record == "-";
    std::vector<file_use> uses = options.key_files;
    uses.push_back({"--sdp", options.sdp, false});
    uses.push_back({"-o", options.output, true});
    uses.push_back({"--stats", options.stats, true});
    uses.push_back({"--record", options.record, true});
    uses.push_back({"the summary", is_stdout_taken ? "" : "-", true});
    file_uses_check(uses);
    for (const file_use &use : uses) {
        if (options.is_all && sender_file_is_possible(options.output, use.path)) {
            throw failure(exit_code::wrong_usage,
                          fmt::format("'{}' ({}) is what --all would call a sender's file: name another one", use.path,
                                      use.what));
        }
    }
}

listen_outputs::listen_outputs(const listen_options &options)
    : frames_(options.output, options.is_all), frames_left_(options.frames != 0 ? options.frames : UINT64_MAX)
{
    if (!options.stats.empty()) {
        stats_.emplace(options.stats, file_privacy::shared);
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
