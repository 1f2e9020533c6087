#include "packetizer.h"

#include <algorithm>

#include "video_stream.h"

namespace simulation
{

namespace
{

bytes fragment_header(uint8_t codec, const bytes &unit, bool is_start, bool is_end)
{
    const auto edges = static_cast<uint8_t>((is_start ? 0x80 : 0) | (is_end ? 0x40 : 0));
    const uint8_t fragment = types_of(codec).fragment;
    if (codec == VIDEO_TYPE_H265) {
        return {static_cast<uint8_t>((unit[0] & 0x81) | fragment << 1), unit[1],
                static_cast<uint8_t>(edges | type_of(codec, unit))};
    }
    return {static_cast<uint8_t>((unit[0] & 0xE0) | fragment), static_cast<uint8_t>(edges | type_of(codec, unit))};
}

// The unit's bytes from `from` to `to` as one fragment.
bytes fragment_of(uint8_t codec, const bytes &unit, size_t from, size_t to)
{
    bytes payload = fragment_header(codec, unit, from == types_of(codec).header_size, to == unit.size());
    payload.insert(payload.end(), unit.begin() + static_cast<long>(from), unit.begin() + static_cast<long>(to));
    return payload;
}

void append_aggregated(bytes *payload, const bytes &unit)
{
    rtp_builder::append_number(*payload, static_cast<uint32_t>(unit.size()), 2);
    payload->insert(payload->end(), unit.begin(), unit.end());
}

class Packetizer
{
  public:
    Packetizer(const packetizer_settings &settings, uint8_t codec, Random *random)
        : settings_(settings), codec_(codec), random_(random)
    {
    }

    std::vector<bytes> packetize(const std::vector<bytes> &units)
    {
        for (size_t i = 0; i < units.size();) {
            const size_t n = count_together(units, i);
            if (n >= 2) {
                append_aggregate(&units[i], n);
                i += n;
            } else {
                append_alone(units[i]);
                i++;
            }
        }
        return std::move(payloads_);
    }

  private:
    bool is_odd()
    {
        return random_->happens(settings_.oddities);
    }

    // How many units from `first` on fit into one payload.
    size_t count_together(const std::vector<bytes> &units, size_t first) const
    {
        size_t size = types_of(codec_).header_size;
        size_t n = 0;
        while (first + n < units.size() && n < settings_.together_max &&
               size + 2 + units[first + n].size() <= settings_.payload_max) {
            size += 2 + units[first + n].size();
            n++;
        }
        return n;
    }

    void append_aggregate(const bytes *units, size_t n)
    {
        bytes payload = header_of(codec_, types_of(codec_).aggregate);
        for (size_t i = 0; i < n; i++) {
            append_aggregated(&payload, units[i]);
            if (is_odd()) {
                append_aggregated(&payload, {});
            }
        }
        payloads_.push_back(std::move(payload));
    }

    void append_alone(const bytes &unit)
    {
        const size_t header_size = types_of(codec_).header_size;
        if (unit.size() > settings_.payload_max) {
            append_fragments(unit);
        } else if (unit.size() > header_size && is_odd()) {
            payloads_.push_back(fragment_of(codec_, unit, header_size, unit.size())); // both start and end
        } else if (codec_ == VIDEO_TYPE_H264 && is_odd()) {
            append_aggregate(&unit, 1);
        } else {
            payloads_.push_back(unit);
        }
    }

    void append_fragments(const bytes &unit)
    {
        const size_t begin = types_of(codec_).header_size;
        const size_t n = std::max<size_t>(2, (unit.size() - begin + settings_.payload_max - 1) / settings_.payload_max);
        const size_t even = (unit.size() - begin + n - 1) / n;
        for (size_t from = begin; from < unit.size();) {
            // The end does not come with the first one.
            const size_t rest = unit.size() - from - (from == begin ? 1 : 0);
            const size_t piece = std::min(rest, is_odd() ? random_->between(1, even) : even);
            payloads_.push_back(fragment_of(codec_, unit, from, from + piece));
            from += piece;
            if (from < unit.size() && is_odd()) {
                payloads_.push_back(fragment_header(codec_, unit, false, false)); // without bytes
            }
        }
    }

    const packetizer_settings &settings_;
    uint8_t codec_;
    Random *random_;
    std::vector<bytes> payloads_;
};

// ---- What no frame may be taken from ----

bytes noise_unit(uint8_t codec, uint8_t type, Random *random)
{
    bytes unit = header_of(codec, type);
    append_noise(&unit, random->between(4, 80), random);
    return unit;
}

struct spoiled {
    std::string what;
    std::vector<bytes> payloads;
};

// With decoding order numbers, which interleaved mode alone has (RFC 6184, 5.7 and 5.8).
spoiled interleaved(Random *random)
{
    constexpr uint8_t types[] = {25, 26, 27, 29};
    const uint8_t type = random->one_of(types);
    bytes payload = {static_cast<uint8_t>(0x60 | type)};
    if (type == 29) {
        payload.push_back(0xC5);
    }
    append_noise(&payload, 2, random);
    append_aggregated(&payload, noise_unit(VIDEO_TYPE_H264, 1, random));
    return {"type " + std::to_string(type) + " of interleaved mode", {payload}};
}

spoiled reserved(uint8_t codec, Random *random)
{
    constexpr uint8_t h264_types[] = {0, 30, 31};
    const uint8_t type = codec == VIDEO_TYPE_H264 ? random->one_of(h264_types)
                                                  : static_cast<uint8_t>(random->between(50, 63)); // 50: PACI
    return {"type " + std::to_string(type) + " of no packet", {noise_unit(codec, type, random)}};
}

spoiled damaged_aggregate(uint8_t codec, Random *random)
{
    const unit_types &types = types_of(codec);
    bytes payload = header_of(codec, types.aggregate);
    append_aggregated(&payload, noise_unit(codec, types.comment, random));
    const bytes last = noise_unit(codec, types.delta_slices[0], random);
    switch (random->below(3)) {
    case 0:
        append_aggregated(&payload, last);
        payload.resize(payload.size() - random->between(1, last.size()));
        return {"an aggregate cut short", {payload}};
    case 1:
        append_aggregated(&payload, last);
        payload.push_back(7);
        return {"an aggregate and a byte", {payload}};
    default:
        append_aggregated(&payload, noise_unit(codec, random->happens(0.5) ? types.aggregate : types.fragment, random));
        return {"an aggregate that holds a packet", {payload}};
    }
}

// Fragments of supplemental information, which no sender here sends in fragments that do not hold all of it.
spoiled broken_fragments(uint8_t codec, Random *random)
{
    const unit_types &types = types_of(codec);
    const bytes unit = noise_unit(codec, types.comment, random);
    const bytes other = noise_unit(codec, types.trailers[0], random);
    const size_t begin = types.header_size;
    switch (random->below(4)) {
    case 0:
        return {"a fragment's start without an end", {fragment_of(codec, unit, begin, begin + 2)}};
    case 1:
        return {"a fragment's end without a start", {fragment_of(codec, unit, begin + 2, unit.size())}};
    case 2:
        return {"a fragment without start and end", {fragment_of(codec, unit, begin + 1, begin + 3)}};
    default:
        return {"a fragment that goes on as another type",
                {fragment_of(codec, unit, begin, begin + 2), fragment_of(codec, other, begin + 2, other.size())}};
    }
}

spoiled too_short(uint8_t codec, Random *random)
{
    const unit_types &types = types_of(codec);
    const bytes header = header_of(codec, types.fragment);
    const bool is_half = codec == VIDEO_TYPE_H265 && random->happens(0.5);
    return {"a payload of less than its headers", {is_half ? bytes{header[0]} : header}};
}

spoiled draw_spoiled(uint8_t codec, Random *random)
{
    switch (random->below(5)) {
    case 0:
        return damaged_aggregate(codec, random);
    case 1:
        return broken_fragments(codec, random);
    case 2:
        return too_short(codec, random);
    case 3:
        return codec == VIDEO_TYPE_H264 ? interleaved(random) : reserved(codec, random);
    default:
        return reserved(codec, random);
    }
}

} // namespace

std::vector<bytes> packetize(const packetizer_settings &settings, uint8_t codec, const std::vector<bytes> &units,
                             Random *random)
{
    return Packetizer(settings, codec, random).packetize(units);
}

std::string spoil(uint8_t codec, std::vector<bytes> *payloads, Random *random)
{
    const spoiled made = draw_spoiled(codec, random);
    const bool is_alone = payloads->size() == 1;
    const bool replaces = is_alone || random->happens(0.5);
    const size_t at = is_alone ? 0 : random->between(1, payloads->size() - (replaces ? 1 : 0));
    auto place = payloads->begin() + static_cast<long>(at);
    if (replaces) {
        place = payloads->erase(place);
    }
    payloads->insert(place, made.payloads.begin(), made.payloads.end());
    return made.what;
}

} // namespace simulation
