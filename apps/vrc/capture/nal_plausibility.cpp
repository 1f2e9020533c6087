#include "capture/nal_plausibility.h"

#include <algorithm>
#include <array>
#include <optional>

namespace vrc
{
namespace
{

// Reads the first fields of a NAL unit's body. Emulation prevention bytes are left in: the few bits that are read
// here hardly ever need any.
class bit_reader
{
  public:
    explicit bit_reader(byte_view bytes) : bytes_(bytes)
    {
    }

    // The next `count` bits, up to 32; none when there are not that many.
    std::optional<uint32_t> bits(unsigned count)
    {
        uint32_t value = 0;
        for (unsigned i = 0; i < count; ++i) {
            if (position_ / 8 >= bytes_.size()) {
                return std::nullopt;
            }
            value = value << 1 | (bytes_[position_ / 8] >> (7 - position_ % 8) & 1u);
            ++position_;
        }
        return value;
    }

    // ue(v): an Exp-Golomb number of at most 16 bits.
    std::optional<uint32_t> exp_golomb()
    {
        unsigned zeros = 0;
        for (std::optional<uint32_t> bit = bits(1); bit != 1u; bit = bits(1)) {
            if (!bit || ++zeros > 16) {
                return std::nullopt;
            }
        }
        const std::optional<uint32_t> rest = bits(zeros);
        if (!rest) {
            return std::nullopt;
        }
        return (1u << zeros) - 1u + *rest;
    }

    bool exp_golomb_at_most(uint32_t limit)
    {
        const std::optional<uint32_t> value = exp_golomb();
        return value && *value <= limit;
    }

  private:
    byte_view bytes_;
    size_t position_ = 0; // bits
};

nal_weight fits_if(bool condition)
{
    return condition ? kNalFits : kNalContradicts;
}

nal_weight parameter_set_if(bool condition)
{
    return condition ? kNalIsParameterSet : kNalContradicts;
}

nal_weight nothing_if(bool condition)
{
    return condition ? kNalSaysNothing : kNalContradicts;
}

constexpr size_t kLargestPps = 512; // bytes; real ones have a dozen

// An access unit delimiter: three bits of picture type, the stop bit, and zeros.
bool is_delimiter_body(byte_view body)
{
    return body.size() == 1 && (body[0] & 0x1F) == 0x10;
}

// H.264.

bool h264_slice_fits(byte_view body, bool is_idr)
{
    constexpr uint32_t largest_picture = 139264; // macroblocks, level 6.2
    bit_reader reader(body);
    if (!reader.exp_golomb_at_most(largest_picture)) {
        return false;
    }
    const std::optional<uint32_t> slice_type = reader.exp_golomb();
    if (!slice_type || *slice_type > 9) {
        return false;
    }
    const bool is_intra = *slice_type % 5 == 2 || *slice_type % 5 == 4;
    return (is_intra || !is_idr) && reader.exp_golomb_at_most(255);
}

bool h264_sps_fits(byte_view body)
{
    constexpr std::array<uint8_t, 14> profiles{44, 66, 77, 83, 86, 88, 100, 110, 118, 122, 128, 134, 138, 244};
    constexpr size_t profile_bytes = 3; // profile, constraint flags, level
    if (body.size() <= profile_bytes) {
        return false;
    }
    const bool profile_is_known = std::find(profiles.begin(), profiles.end(), body[0]) != profiles.end();
    const bool level_fits = body[2] >= 9 && body[2] <= 62;
    bit_reader reader(body.skip(profile_bytes));
    return profile_is_known && (body[1] & 0x03) == 0 && level_fits && reader.exp_golomb_at_most(31);
}

bool h264_pps_fits(byte_view body)
{
    bit_reader reader(body);
    return body.size() <= kLargestPps && reader.exp_golomb_at_most(255) && reader.exp_golomb_at_most(31);
}

enum h264_type : uint8_t {
    kH264Slice = 1,
    kH264IdrSlice = 5,
    kH264Sei = 6,
    kH264Sps = 7,
    kH264Pps = 8,
    kH264Delimiter = 9,
    kH264EndOfSequence = 10,
    kH264EndOfStream = 11,
    kH264Filler = 12,
    kH264Prefix = 14,
    kH264SubsetSps = 15,
    kH264SliceExtension = 20,
};

// Whether decoders may refer to the unit: what the standard makes of it for each type.
bool h264_reference_fits(uint8_t type, bool is_reference)
{
    switch (type) {
    case kH264IdrSlice:
    case kH264Sps:
    case kH264Pps:
    case kH264SubsetSps:
        return is_reference;
    case kH264Sei:
    case kH264Delimiter:
    case kH264EndOfSequence:
    case kH264EndOfStream:
    case kH264Filler:
        return !is_reference;
    default:
        return true;
    }
}

nal_weight h264_unit_weight(byte_view unit)
{
    const uint8_t type = unit[0] & 0x1F;
    const byte_view body = unit.skip(1);
    if ((unit[0] & 0x80) != 0 || !h264_reference_fits(type, (unit[0] & 0x60) != 0)) {
        return kNalContradicts;
    }
    switch (type) {
    case kH264Slice:
    case kH264IdrSlice:
        return fits_if(h264_slice_fits(body, type == kH264IdrSlice));
    case kH264Sps:
        return parameter_set_if(h264_sps_fits(body));
    case kH264Pps:
        return fits_if(h264_pps_fits(body));
    case kH264Delimiter:
        return fits_if(is_delimiter_body(body));
    case kH264EndOfSequence:
    case kH264EndOfStream:
        return nothing_if(body.empty());
    case kH264Sei:
    case kH264Filler:
    case kH264Prefix:
    case kH264SubsetSps:
    case kH264SliceExtension:
        return nothing_if(!body.empty());
    default: // data partitions, auxiliary and reserved types, which nobody sends
        return kNalContradicts;
    }
}

bool h264_is_slice(uint8_t type)
{
    return type == kH264Slice || type == kH264IdrSlice;
}

// FU indicator and FU header.
bool h264_fragment_fits(byte_view payload)
{
    const uint8_t type = payload[1] & 0x1F;
    const bool is_reserved_bit_set = (payload[1] & 0x20) != 0;
    const bool is_forbidden_bit_set = (payload[0] & 0x80) != 0;
    const bool is_large = h264_is_slice(type) || type == kH264Sei || type == kH264SliceExtension;
    return !is_reserved_bit_set && !is_forbidden_bit_set && is_large &&
           h264_reference_fits(type, (payload[0] & 0x60) != 0);
}

// H.265.

enum h265_type : uint8_t {
    kH265LastInter = 9,
    kH265FirstIntra = 16,
    kH265LastIntra = 21,
    kH265Vps = 32,
    kH265Sps = 33,
    kH265Pps = 34,
    kH265Delimiter = 35,
    kH265EndOfSequence = 36,
    kH265EndOfStream = 37,
    kH265Filler = 38,
    kH265PrefixSei = 39,
    kH265SuffixSei = 40,
};

constexpr size_t kH265HeaderSize = 2;

uint8_t h265_type_of(uint8_t first_byte)
{
    return first_byte >> 1 & 0x3F;
}

bool h265_is_intra(uint8_t type)
{
    return type >= kH265FirstIntra && type <= kH265LastIntra;
}

bool h265_is_slice(uint8_t type)
{
    return type <= kH265LastInter || h265_is_intra(type);
}

// One layer, and a temporal identifier, which is 0 plus 1 where a decoder may start.
bool h265_header_fits(byte_view unit, uint8_t type)
{
    const bool is_forbidden_bit_set = (unit[0] & 0x80) != 0;
    const unsigned layer = (unit[0] & 1u) << 5 | unit[1] >> 3;
    const unsigned temporal_plus_one = unit[1] & 7u;
    const bool is_lowest_only = h265_is_intra(type) || type == kH265Vps || type == kH265Sps;
    return !is_forbidden_bit_set && layer == 0 && temporal_plus_one != 0 && (!is_lowest_only || temporal_plus_one == 1);
}

bool h265_slice_fits(byte_view body, bool is_intra)
{
    bit_reader reader(body);
    reader.bits(is_intra ? 2 : 1); // first_slice_segment_in_pic_flag, no_output_of_prior_pics_flag
    return reader.exp_golomb_at_most(63);
}

bool h265_vps_fits(byte_view body)
{
    return body.size() > 4 && body.be16(2) == 0xFFFF && (body[0] & 0x0C) == 0x0C;
}

bool h265_sps_fits(byte_view body)
{
    constexpr size_t level_offset = 12; // behind profile space, tier, profile, compatibility and constraints
    if (body.size() <= level_offset) {
        return false;
    }
    const unsigned sub_layers_minus_one = body[0] >> 1 & 7u;
    const unsigned profile_space = body[1] >> 6;
    return sub_layers_minus_one <= 6 && profile_space == 0 && body[level_offset] % 3 == 0;
}

bool h265_pps_fits(byte_view body)
{
    bit_reader reader(body);
    return body.size() <= kLargestPps && reader.exp_golomb_at_most(63) && reader.exp_golomb_at_most(15);
}

nal_weight h265_unit_weight(byte_view unit)
{
    const uint8_t type = h265_type_of(unit[0]);
    const byte_view body = unit.skip(kH265HeaderSize);
    if (!h265_header_fits(unit, type)) {
        return kNalContradicts;
    }
    if (h265_is_slice(type)) {
        return fits_if(h265_slice_fits(body, h265_is_intra(type)));
    }
    switch (type) {
    case kH265Vps:
        return parameter_set_if(h265_vps_fits(body));
    case kH265Sps:
        return parameter_set_if(h265_sps_fits(body));
    case kH265Pps:
        return fits_if(h265_pps_fits(body));
    case kH265Delimiter:
        return fits_if(is_delimiter_body(body));
    case kH265EndOfSequence:
    case kH265EndOfStream:
        return nothing_if(body.empty());
    case kH265Filler:
    case kH265PrefixSei:
    case kH265SuffixSei:
        return nothing_if(!body.empty());
    default: // reserved and unspecified types
        return kNalContradicts;
    }
}

// Payload header and FU header.
bool h265_fragment_fits(byte_view payload)
{
    const uint8_t type = payload[kH265HeaderSize] & 0x3F;
    const bool is_large = h265_is_slice(type) || type == kH265PrefixSei || type == kH265SuffixSei;
    return is_large && h265_header_fits(payload, type);
}

} // namespace

const nal_rules nal_rules_h264{nal_format_h264, h264_unit_weight, h264_fragment_fits, h264_is_slice};
const nal_rules nal_rules_h265{nal_format_h265, h265_unit_weight, h265_fragment_fits, h265_is_slice};

} // namespace vrc
