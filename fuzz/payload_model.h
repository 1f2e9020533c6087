// What the payloads of a frame hold by the payload formats' own words (RFC 6184, 5.2 to 5.8, packetization mode 1; RFC 7798,
// 4.4, without DONL), read without the client's code.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "video_stream.h"

namespace fuzz
{

using bytes = std::vector<uint8_t>;

// The packet types of a payload format and where they stand.
struct payload_rules {
    size_t header;       // bytes of a NAL unit's or payload's header
    unsigned type_shift; // of its first byte
    uint8_t type_mask;   // of its first byte, shifted
    uint8_t first_unit, last_unit;
    uint8_t aggregate;
    uint8_t fragment;
    uint8_t fragment_type_mask; // of the FU header
};

constexpr payload_rules kRulesOfH264 = {1, 0, 0x1F, 1, 23, 24, 28, 0x1F};
constexpr payload_rules kRulesOfH265 = {2, 1, 0x3F, 0, 47, 48, 49, 0x3F};

// Takes payload after payload of a frame. Once `ok` is false the frame is none.
class PayloadModel
{
  public:
    explicit PayloadModel(uint8_t codec) : rules_(codec == VIDEO_TYPE_H265 ? kRulesOfH265 : kRulesOfH264)
    {
    }

    // An empty payload says nothing.
    void add(const bytes &payload)
    {
        if (payload.empty()) {
            return;
        }
        if (payload.size() < rules_.header) {
            ok_ = false;
        } else if (type_of(payload) == rules_.fragment) {
            add_fragment(payload);
        } else if (type_of(payload) == rules_.aggregate) {
            add_aggregate(payload);
        } else {
            add_unit(payload);
        }
    }

    // The frame's NAL units; none when its payloads are not whole units one behind the other.
    std::optional<std::vector<bytes>> units() const
    {
        return ok_ && !is_open_ ? std::optional(units_) : std::nullopt;
    }

  private:
    const payload_rules &rules_;
    std::vector<bytes> units_;
    bool ok_ = true;
    bool is_open_ = false; // the last unit goes on

    uint8_t type_of(const bytes &unit) const
    {
        return static_cast<uint8_t>(unit[0] >> rules_.type_shift & rules_.type_mask);
    }

    bool is_unit_type(uint8_t type) const
    {
        return type >= rules_.first_unit && type <= rules_.last_unit;
    }

    void add_unit(const bytes &unit)
    {
        ok_ = ok_ && !is_open_ && unit.size() >= rules_.header && is_unit_type(type_of(unit));
        units_.push_back(unit);
    }

    void add_aggregate(const bytes &payload)
    {
        size_t at = rules_.header;
        ok_ = ok_ && !is_open_ && at < payload.size();
        while (at < payload.size()) {
            const size_t from = at + 2;
            const size_t to = from <= payload.size() ? from + payload[at] * size_t{256} + payload[at + 1] : SIZE_MAX;
            if (to > payload.size()) {
                ok_ = false;
                return;
            }
            if (to > from) {
                add_unit(bytes(payload.begin() + static_cast<ptrdiff_t>(from),
                               payload.begin() + static_cast<ptrdiff_t>(to)));
            }
            at = to;
        }
    }

    void add_fragment(const bytes &payload)
    {
        if (payload.size() <= rules_.header) {
            ok_ = false;
            return;
        }
        const uint8_t fu_header = payload[rules_.header];
        const auto type = static_cast<uint8_t>(fu_header & rules_.fragment_type_mask);
        const bool is_start = (fu_header & 0x80) != 0;
        const auto content = payload.begin() + static_cast<ptrdiff_t>(rules_.header) + 1;
        ok_ = ok_ && is_unit_type(type) && is_start == !is_open_;
        if (is_start) {
            bytes unit(payload.begin(), payload.begin() + static_cast<ptrdiff_t>(rules_.header));
            unit[0] =
                static_cast<uint8_t>((unit[0] & ~(rules_.type_mask << rules_.type_shift)) | type << rules_.type_shift);
            units_.push_back(unit);
        }
        ok_ = ok_ && !units_.empty() && type_of(units_.back()) == type;
        if (ok_) {
            units_.back().insert(units_.back().end(), content, payload.end());
        }
        is_open_ = (fu_header & 0x40) == 0;
    }
};

// The NAL units of a frame's payloads; none when they are not whole units one behind the other.
inline std::optional<std::vector<bytes>> units_of(uint8_t codec, const std::vector<bytes> &payloads)
{
    PayloadModel model(codec);
    for (const bytes &payload : payloads) {
        model.add(payload);
    }
    return model.units();
}

inline bytes annexb_of(const std::vector<bytes> &units)
{
    bytes stream;
    for (const bytes &unit : units) {
        stream.insert(stream.end(), {0, 0, 0, 1});
        stream.insert(stream.end(), unit.begin(), unit.end());
    }
    return stream;
}

} // namespace fuzz
