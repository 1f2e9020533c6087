#include "encoder.h"

#include <algorithm>
#include <cmath>

namespace simulation
{

Encoder::Encoder(const encoder_settings &settings, uint64_t seed) : settings_(settings), random_(seed)
{
    draw_parameter_sets();
}

// All have the identifier 0 where it can be set, so that a new one takes the place of the one before.
std::vector<bytes> Encoder::make_parameter_sets(uint8_t codec, Random *random)
{
    const unit_types &types = types_of(codec);
    std::vector<bytes> sets;
    for (size_t i = 0; i < types.sets.size(); i++) {
        sets.push_back(header_of(codec, types.sets[i]));
        append_noise(&sets.back(), random->between(6, 40), random);
        if (types.identifier_at[i] != 0) {
            sets.back()[types.identifier_at[i]] |= 0x80;
        }
    }
    return sets;
}

void Encoder::draw_parameter_sets()
{
    if (describes_sets()) {
        sets_ = settings_.described_sets;
    } else if (settings_.codec != VIDEO_TYPE_GENERIC) {
        sets_ = make_parameter_sets(settings_.codec, &random_);
    }
}

// Sizes of delta frames are spread about evenly around their mean on a logarithmic scale; key frames vary less.
size_t Encoder::draw_size(bool is_key)
{
    const double mean = settings_.mean_bytes * (is_key ? settings_.key_scale : 1);
    const double spread = settings_.spread * (is_key ? 0.4 : 1);
    const double size = mean * std::exp(spread * random_.normal() - spread * spread / 2);
    return static_cast<size_t>(std::clamp(size, 8.0, 150e3));
}

bytes Encoder::unit(uint8_t type, size_t size)
{
    bytes made = header_of(settings_.codec, type);
    append_noise(&made, size, &random_);
    return made;
}

uint8_t Encoder::draw_type(const std::vector<uint8_t> &types)
{
    return types[random_.below(types.size())];
}

void Encoder::add_slices(std::vector<bytes> *units, bool is_key)
{
    const unit_types &types = types_of(settings_.codec);
    const size_t size = draw_size(is_key);
    const size_t n = random_.between(1, settings_.slices);
    const uint8_t type = draw_type(is_key ? types.key_slices : types.delta_slices);
    for (size_t i = 0; i < n; i++) {
        bytes slice = unit(type, size / n + 1);
        // The first slice of a picture says so: macroblock 0 in H.264, a flag in H.265, the same bit in both.
        uint8_t &begin = slice[types.header_size];
        begin = static_cast<uint8_t>(i == 0 ? begin | 0x80 : begin & 0x7F);
        units->push_back(std::move(slice));
    }
}

std::vector<bytes> Encoder::units(const picture_wish &wish)
{
    const unit_types &types = types_of(settings_.codec);
    std::vector<bytes> made;
    if (settings_.delimits) {
        made.push_back(unit(types.delimiter, 1));
    }
    if (wish.is_key && !wish.omits_sets && !describes_sets()) {
        made.insert(made.end(), sets_.begin(), sets_.end());
    }
    if (settings_.comments > 0 && random_.happens(0.2)) {
        for (uint64_t n = random_.between(1, settings_.comments); n > 0; n--) {
            made.push_back(unit(types.comment, random_.between(4, 60)));
        }
    }
    add_slices(&made, wish.is_key);
    for (uint64_t n = random_.between(0, settings_.trailers); n > 0; n--) {
        made.push_back(unit(draw_type(types.trailers), random_.between(1, 30)));
    }
    return made;
}

bool Encoder::is_optional(const bytes &unit) const
{
    const unit_types &types = types_of(settings_.codec);
    const uint8_t type = type_of(settings_.codec, unit);
    return type == types.delimiter || type == types.comment;
}

void Encoder::append_annexb(picture *to, const std::vector<bytes> &units) const
{
    for (const bytes &unit : units) {
        const size_t begin = to->expected.size();
        to->expected.insert(to->expected.end(), {0, 0, 0, 1});
        to->expected.insert(to->expected.end(), unit.begin(), unit.end());
        to->units.push_back({begin, to->expected.size(), is_optional(unit)});
    }
}

// Each payload begins with a byte of its own, and the last one ends with padding that holds its size.
picture Encoder::encode_generic(const picture_wish &wish)
{
    picture made;
    append_noise(&made.expected, draw_size(wish.is_key), &random_);
    made.units.push_back({0, made.expected.size(), false});
    const auto padding = static_cast<uint8_t>(random_.between(1, 8));
    bytes padded = made.expected;
    padded.insert(padded.end(), padding, padding);
    if (wish.is_spoiled) {
        padded.back() = static_cast<uint8_t>(padding + 1);
        made.fault = "padding of another size than it says";
    }
    const size_t payload_max = settings_.packetizer.payload_max;
    for (size_t from = 0; from < padded.size(); from += payload_max) {
        const size_t to = std::min(padded.size(), from + payload_max);
        // The padding is whole in the last payload.
        const bool is_last = to + 8 >= padded.size();
        bytes payload = {0x40};
        payload.insert(payload.end(), padded.begin() + static_cast<long>(from),
                       is_last ? padded.end() : padded.begin() + static_cast<long>(to));
        made.payloads.push_back(std::move(payload));
        if (is_last) {
            break;
        }
    }
    return made;
}

picture Encoder::encode_units(const picture_wish &wish)
{
    picture made;
    const std::vector<bytes> all = units(wish);
    made.has_sets = wish.is_key && !wish.omits_sets && !describes_sets();
    made.payloads = packetize(settings_.packetizer, settings_.codec, all, &random_);
    if (wish.is_spoiled) {
        made.fault = spoil(settings_.codec, &made.payloads, &random_);
    }
    if (wish.is_key && !made.has_sets) {
        append_annexb(&made, sets_);
    }
    append_annexb(&made, all);
    return made;
}

picture Encoder::encode(const picture_wish &wish)
{
    picture made = settings_.codec == VIDEO_TYPE_GENERIC ? encode_generic(wish) : encode_units(wish);
    made.is_key = wish.is_key;
    return made;
}

} // namespace simulation
