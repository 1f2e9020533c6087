// Follows the sequence numbers of one RTP stream (RFC 3550, A.1) in order to count what is missing.
#pragma once

#include <bitset>
#include <cstdint>

namespace vrc
{

class sequence_tracker
{
  public:
    void observe(uint16_t seq);

    // Numbers seen, each once.
    uint64_t received() const
    {
        return received_;
    }

    // Numbers between the first and the newest one that were never seen.
    uint64_t lost() const;

    uint64_t duplicates() const
    {
        return duplicates_;
    }

    // Packets that came after one with a later number.
    uint64_t reordered() const
    {
        return reordered_;
    }

    // Steps too far for loss or reordering: the sender started anew, or these are no sequence numbers.
    uint64_t jumps() const
    {
        return jumps_;
    }

  private:
    static constexpr int kMaxStep = 3000; // numbers; RFC 3550's MAX_DROPOUT

    void start(uint16_t seq);
    void advance(int step);
    void look_back(int distance);

    bool is_started_ = false;
    uint16_t newest_ = 0;
    // Bit n stands for the number `newest_ - n`; it covers every step back that is no jump.
    std::bitset<kMaxStep + 1> seen_;
    uint64_t covered_ = 0;        // numbers from the oldest to the newest, since the last jump
    uint64_t covered_before_ = 0; // the same, before it
    uint64_t received_ = 0;
    uint64_t duplicates_ = 0;
    uint64_t reordered_ = 0;
    uint64_t jumps_ = 0;
};

} // namespace vrc
