// Whether bytes can be the NAL units of a codec. What random bytes or another format's would often get wrong is
// looked at, no more: this tells streams apart, it does not validate them.
#pragma once

#include <cstdint>

#include "capture/byte_view.h"
#include "codec/nal_payload.h"

namespace vrc
{

// What a look at a NAL unit is worth. Parameter sets have many fixed bits, so that one alone means a lot.
enum nal_weight : int {
    kNalContradicts = -1,
    kNalSaysNothing = 0,
    kNalFits = 1,
    kNalIsParameterSet = 4,
};

struct nal_rules {
    const nal_format &format;
    // `unit` begins with the NAL unit header and may end before the unit does. Its type is one that
    // `format.unit_type` gives.
    nal_weight (*unit_weight)(byte_view unit);
    // Whether a fragmentation unit's own headers, at the start of `payload`, may stand before more of it.
    bool (*fragment_fits)(byte_view payload);
    bool (*is_slice)(uint8_t type);
};

extern const nal_rules nal_rules_h264; // ITU-T H.264, 7.3 and 7.4
extern const nal_rules nal_rules_h265; // ITU-T H.265, 7.3 and 7.4

} // namespace vrc
