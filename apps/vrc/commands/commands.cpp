#include "commands/commands.h"

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <cinttypes>
#include <cstdio>
#include <optional>
#include <string_view>

#include "commands/replay.h"
#include "output/output_file.h"
#include "output/progress_bar.h"
#include "output/tool_log.h"
#include "report/summary.h"

namespace vrc
{
namespace
{

search_result streams_find_with_progress(const capture_file &file, bool is_quiet,
                                         const std::vector<sdp_crypto> &keys = {})
{
    progress_bar bar("looking for streams", file.size(), !is_quiet);
    return streams_find(
        file, [&bar](uint64_t position) { bar.update(position); }, keys);
}

bool is_stdout_taken(const replay_options &options)
{
    return options.output == "-" || options.frames == "-";
}

void files_check(const replay_options &options)
{
    std::vector<file_use> uses = {{"the capture", options.capture, false}};
    uses.insert(uses.end(), options.inputs.begin(), options.inputs.end());
    uses.push_back({"-o", options.output, true});
    uses.push_back({"--frames", options.frames, true});
    uses.push_back({"the summary", is_stdout_taken(options) ? "" : "-", true});
    file_uses_check(uses);
}

// Where frames go: their bytes to one file, a line for each to another.
class frame_writer
{
  public:
    explicit frame_writer(const replay_options &options)
    {
        if (!options.output.empty()) {
            bitstream_.emplace(options.output, file_privacy::owner_only);
        }
        if (!options.frames.empty()) {
            constexpr std::string_view heading = "index,rtp_timestamp,is_key,size,first_seq,last_seq\n";
            list_.emplace(options.frames, file_privacy::shared);
            list_->write(heading.data(), heading.size());
        }
    }

    // Throws nothing: it is called from within the receiver.
    bool write(const channel_frame &frame) noexcept
    {
        const bool is_written = !bitstream_ || bitstream_->write(frame.data, frame.size);
        return write_line(frame) && is_written;
    }

    void close()
    {
        for (std::optional<output_file> *file : {&bitstream_, &list_}) {
            if (*file) {
                (*file)->close();
            }
        }
    }

  private:
    bool write_line(const channel_frame &frame) noexcept
    {
        const uint64_t index = count_++;
        if (!list_) {
            return true;
        }
        std::array<char, 128> text{}; // six numbers of at most 20 digits
        const int size =
            std::snprintf(text.data(), text.size(), "%" PRIu64 ",%" PRIu32 ",%d,%zu,%d,%d\n", index,
                          frame.rtp_timestamp, frame.is_key ? 1 : 0, frame.size, frame.first_seq, frame.last_seq);
        return list_->write(text.data(), static_cast<size_t>(size));
    }

    std::optional<output_file> bitstream_;
    std::optional<output_file> list_;
    uint64_t count_ = 0;
};

replay_result replay_with_progress(const capture_file &file, const rtp_stream &stream, frame_writer *writer,
                                   const replay_options &options)
{
    progress_bar bar("replaying", file.size(), options.verbosity == 0);
    return stream_replay(
        file, stream, [writer](const channel_frame &frame) { return writer->write(frame); },
        [&bar](uint64_t position) { bar.update(position); }, options.setup);
}

// Without it the search would find nothing and not know why.
void decryption_check(const search_result &found, const std::string &capture)
{
    const srtp_counts &seen = found.decryption;
    if (seen.decrypted == 0 && seen.not_authentic > 0) {
        throw failure(exit_code::nothing_usable,
                      fmt::format("none of the {} SRTP packets in '{}' is authentic under the keys given: check suite "
                                  "and key",
                                  seen.not_authentic, capture));
    }
}

void other_videos_note(const search_result &found, const rtp_stream &chosen)
{
    for (const rtp_stream &stream : found.streams) {
        if (stream.is_video() && !(stream.identity == chosen.identity)) {
            text_write(stderr, fmt::format("vrc: there is another video stream, SSRC 0x{:08x} with payload type {}: "
                                           "choose with --ssrc and --pt\n",
                                           stream.identity.ssrc, stream.identity.payload_type));
        }
    }
}

std::string replay_summary(const replay_options &options, const replay_result &result, const std::string &capture)
{
    if (options.is_counts) {
        return replay_counts_text(result);
    }
    return options.is_json ? json_text(replay_json(result, capture)) : replay_text(result, capture);
}

} // namespace

exit_code info_run(const info_options &options)
{
    file_uses_check({{"the capture", options.capture, false}, {"the list of streams", "-", true}});
    const capture_file file(options.capture, options.copy_max);
    const search_result found = streams_find_with_progress(file, false);
    text_write(stdout, options.is_json ? json_text(streams_json(found, file.name())) : streams_text(found));
    if (found.streams.empty() || !found.streams.front().is_video()) {
        throw failure(exit_code::nothing_usable,
                      fmt::format("no RTP video in '{}': {}", file.name(), no_video_reason(found)));
    }
    return exit_code::success;
}

exit_code replay_run(const replay_options &options)
{
    files_check(options);
    const capture_file file(options.capture, options.copy_max);
    log_prepare(options.verbosity);
    search_result found = streams_find_with_progress(file, options.verbosity > 0, options.setup.keys);
    decryption_check(found, file.name());
    if (options.setup.session) {
        streams_describe(*options.setup.session, &found);
    }
    const rtp_stream stream = stream_choose(found, options.choice, file.name());
    other_videos_note(found, stream);

    frame_writer writer(options);
    const replay_result result = replay_with_progress(file, stream, &writer, options);
    writer.close();

    text_write(is_stdout_taken(options) ? stderr : stdout, replay_summary(options, result, file.name()));
    if (result.report.frames == 0) {
        throw failure(exit_code::nothing_usable,
                      fmt::format("no frame came out of the stream in '{}'; the summary says what became of its "
                                  "packets",
                                  file.name()));
    }
    return exit_code::success;
}

} // namespace vrc
