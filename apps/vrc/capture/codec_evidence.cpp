#include "capture/codec_evidence.h"

#include <array>

namespace vrc
{
namespace
{

// Bytes of a NAL unit that are looked at when it comes in fragments.
constexpr size_t kUnitStartSize = 32;

// Every NAL unit looks a little like one; without a single slice it is something else most of the time.
constexpr double kWithoutSlices = 0.3;

} // namespace

void codec_evidence::weigh(int weight)
{
    if (weight > 0) {
        fits_ += static_cast<uint64_t>(weight);
    } else {
        contradicts_ += static_cast<uint64_t>(-weight);
    }
}

void codec_evidence::observe_unit(byte_view unit)
{
    const uint8_t type = rules_->format.unit_type({unit.data(), unit.size()});
    if (type == kNalTypeNone) {
        weigh(kNalContradicts);
        return;
    }
    const nal_weight weight = rules_->unit_weight(unit);
    has_slice_ = has_slice_ || (weight > 0 && rules_->is_slice(type));
    weigh(weight);
}

void codec_evidence::observe_aggregate(nal_bytes rest)
{
    nal_bytes unit{};
    bool has_unit = false;
    while (nal_aggregate_next(&rest, &unit)) {
        has_unit = true;
        observe_unit({unit.data, unit.size});
    }
    weigh(has_unit && rest.size == 0 ? kNalFits : kNalContradicts);
}

void codec_evidence::observe_fragment(byte_view payload, const nal_payload &fragment)
{
    if (!rules_->fragment_fits(payload)) {
        weigh(kNalContradicts);
        return;
    }
    weigh(kNalFits);
    if (fragment.is_start) {
        std::array<uint8_t, kUnitStartSize> start{};
        const byte_view bytes =
            byte_view(fragment.bytes.data, fragment.bytes.size).first(start.size() - fragment.header_size);
        std::copy_n(fragment.header, fragment.header_size, start.begin());
        std::copy_n(bytes.data(), bytes.size(), start.begin() + fragment.header_size);
        observe_unit({start.data(), fragment.header_size + bytes.size()});
    }
}

// `follows`: the packet has the sequence number after the one before.
void codec_evidence::observe_order(const fragment_place &place, bool follows)
{
    const bool goes_on = place.is_fragment && !place.is_start;
    if (follows && (open_type_ || place.is_fragment)) {
        const bool is_in_order = open_type_ ? goes_on && place.type == *open_type_ : !goes_on;
        weigh(is_in_order ? kNalFits : kNalContradicts);
    }
    open_type_.reset();
    if (place.is_fragment && !place.is_end) {
        open_type_ = place.type;
    }
}

void codec_evidence::observe(uint16_t seq, byte_view payload)
{
    const bool follows = last_seq_ && static_cast<uint16_t>(*last_seq_ + 1) == seq;
    last_seq_ = seq;
    if (!follows) {
        open_type_.reset();
    }
    if (payload.empty()) {
        return;
    }
    const nal_payload parsed = rules_->format.payload_parse({payload.data(), payload.size()});
    fragment_place place;
    switch (parsed.kind) {
    case NAL_PAYLOAD_SINGLE:
        observe_unit(payload);
        break;
    case NAL_PAYLOAD_AGGREGATE:
        observe_aggregate(parsed.bytes);
        break;
    case NAL_PAYLOAD_FRAGMENT:
        observe_fragment(payload, parsed);
        place = {true, parsed.is_start, parsed.is_end, parsed.type};
        break;
    case NAL_PAYLOAD_OTHER:
        weigh(kNalContradicts);
        break;
    }
    observe_order(place, follows);
}

double codec_evidence::fit() const
{
    const auto fits = static_cast<double>(fits_);
    const double share = fits / (fits + static_cast<double>(contradicts_) + 1.0);
    return has_slice_ ? share : share * kWithoutSlices;
}

} // namespace vrc
