// Whose frames are written where one sender at a time is: a stream that goes on under another SSRC goes on in the file.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "channel.h"

namespace vrc
{

// A sender that is silent for as long, milliseconds, while another one sends, is succeeded by that.
constexpr zeb_ts_t kSuccessionSilence = 1000;

class sender_succession
{
  public:
    using report_finder = std::function<const stream_report *(uint32_t ssrc)>; // null when it is not known any more
    using frame_writer = std::function<void(const channel_frame &frame)>;

    // `write` gets the frames of the first sender that has one. When that one has said BYE or fallen silent, and another
    // one sends a key frame, it gets the frames of the other one from there on; they are held until that is clear.
    // Neither may throw.
    sender_succession(report_finder find, frame_writer write);

    // Takes a frame of any sender.
    void take(const channel_frame &frame, zeb_ts_t now);

    // Looks again whether a held frame may be written.
    void tick(zeb_ts_t now);

    // The senders whose frames were written, in that order.
    const std::vector<uint32_t> &written() const
    {
        return written_;
    }

  private:
    struct held_frame {
        std::vector<uint8_t> bytes;
        channel_frame frame; // without its bytes
    };

    bool is_current_alive(zeb_ts_t since) const;
    bool is_current_over(zeb_ts_t now) const;
    void hold(const channel_frame &frame, zeb_ts_t now);
    void drop_held();
    void succeed();

    report_finder find_;
    frame_writer write_;
    std::vector<uint32_t> written_;
    std::optional<uint32_t> candidate_; // whose frames are held
    zeb_ts_t held_since_ = 0;
    std::vector<held_frame> held_;
};

} // namespace vrc
