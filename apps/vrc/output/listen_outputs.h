// What `vrc listen` writes while it listens: frames, statistics and a capture.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "live/listen.h"
#include "output/frame_files.h"
#include "output/packet_recorder.h"
#include "report/listen_summary.h"

namespace vrc
{

// What is written to returns false when the run is to end: there is enough, or something could not be written, which
// `close` tells.
class listen_outputs
{
  public:
    // Throws failure (wrong_usage) when two of the files are one, one that is read among them.
    static void check(const listen_options &options);

    // Creates the files; as long as one of them cannot be opened, none is emptied. Throws failure (no_access).
    explicit listen_outputs(const listen_options &options);

    bool write_frame(size_t section, const channel_frame &frame) noexcept;
    bool write_datagram(const udp_datagram &datagram);

    // A record of statistics for each stream, if any are wanted.
    bool write_records(const std::vector<listened_stream> &streams);

    bool has_records() const
    {
        return stats_.has_value();
    }

    // The name of the sender's own file for frames; empty when there is none.
    std::string frames_name(const frame_owner &owner) const
    {
        return frames_.name_of(owner);
    }

    // Frames of senders beyond those that files are created for.
    uint64_t frames_without_file() const
    {
        return frames_.unwritten();
    }

    // Throws failure (no_access) when something could not be written.
    void close();

  private:
    frame_files frames_;
    std::optional<output_file> stats_;
    std::optional<packet_recorder> recorder_;
    uint64_t frames_left_; // before there are enough
};

} // namespace vrc
