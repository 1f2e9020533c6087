// Whose frames are written where one sender at a time is: a stream that goes on under another SSRC goes on in the file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "api/channel.h"

namespace vrc
{

// A sender that is silent for as long, milliseconds, while another one sends, is succeeded by that.
constexpr zeb_ts_t kSuccessionSilence = 1000;

struct succession_options {
    size_t hold_max = 0; // bytes of frames that are held
    // Whether BYE comes from the sender that it names. Then no silence is waited for behind it; a sender that goes on all
    // the same is written again from its next key frame on. Otherwise anybody can say it, and it says no more than
    // silence does.
    bool is_bye_authentic = false;
};

class sender_succession
{
  public:
    using report_finder = std::function<const stream_report *(uint32_t ssrc)>; // null when it is not known any more
    using frame_writer = std::function<void(const channel_frame &frame)>;

    // `write` gets the frames of the first sender that has one. When that one has fallen silent, and another one sends a
    // key frame, it gets the frames of the other one from there on. While it is not clear who is to be written the other
    // one's frames are held; what does not fit is dropped with all that is held, and the other one is taken from a later
    // key frame on. Neither function may throw.
    sender_succession(report_finder find, frame_writer write, const succession_options &options);

    // Takes a frame of any sender.
    void take(const channel_frame &frame, zeb_ts_t now);

    // Looks again whether a held frame may be written.
    void tick(zeb_ts_t now);

    // Nothing comes any more: writes what is held when the sender before said BYE.
    void finish();

    // The senders whose frames were written, in that order.
    const std::vector<uint32_t> &written() const
    {
        return written_;
    }

    // Frames of a possible successor that were dropped because `hold_max` or the memory was used up.
    uint64_t frames_not_held() const
    {
        return frames_not_held_;
    }

  private:
    struct held_frame {
        std::vector<uint8_t> bytes;
        channel_frame frame; // without its bytes
    };

    bool is_current_alive(zeb_ts_t since) const;
    bool is_current_over(zeb_ts_t now) const;
    bool is_back(uint32_t ssrc) const;
    void take_other(const channel_frame &frame, zeb_ts_t now);
    void hold(const channel_frame &frame);
    void drop_held();
    void begin(uint32_t ssrc);
    void succeed();

    report_finder find_;
    frame_writer write_;
    succession_options options_;
    std::vector<uint32_t> written_;
    std::optional<uint32_t> left_;      // the sender before, which was succeeded for its BYE
    std::optional<uint32_t> candidate_; // whose frames are held
    zeb_ts_t held_since_ = 0;
    std::vector<held_frame> held_;
    size_t held_size_ = 0; // bytes, records included
    uint64_t frames_not_held_ = 0;
};

} // namespace vrc
