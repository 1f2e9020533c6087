// Judges whether the payloads of an RTP stream are those of a video codec.
#pragma once

#include <cstdint>
#include <optional>

#include "capture/byte_view.h"
#include "capture/nal_plausibility.h"

namespace vrc
{

// Packet by packet, it weighs what fits one codec against what contradicts it: what the NAL units look like,
// whether sizes within aggregates add up, and whether fragments come in order.
class codec_evidence
{
  public:
    // `rules` must outlive the object.
    explicit codec_evidence(const nal_rules &rules) : rules_(&rules)
    {
    }

    // Looks at the payload of the packet `seq`, without padding. Empty ones say nothing.
    void observe(uint16_t seq, byte_view payload);

    // How well the payloads fit, 0 to below 1. A few packets do not reach what many can.
    double fit() const;

  private:
    // How a packet takes part in a NAL unit that is sent in fragments.
    struct fragment_place {
        bool is_fragment = false;
        bool is_start = false;
        bool is_end = false;
        uint8_t type = 0;
    };

    void weigh(int weight);
    void observe_unit(byte_view unit);
    void observe_aggregate(nal_bytes rest);
    void observe_fragment(byte_view payload, const nal_payload &fragment);
    void observe_order(const fragment_place &place, bool follows);

    const nal_rules *rules_;
    uint64_t fits_ = 0; // sums of weights
    uint64_t contradicts_ = 0;
    bool has_slice_ = false;
    std::optional<uint16_t> last_seq_;
    std::optional<uint8_t> open_type_; // of the unit that goes on in the next packet
};

} // namespace vrc
