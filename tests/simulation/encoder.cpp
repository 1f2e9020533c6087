#include "encoder.h"

#include <algorithm>
#include <cstring>

namespace simulation
{

namespace
{

// What the two formats name differently (RFC 6184, 5.2; RFC 7798, 4.4).
struct unit_types {
    size_t header_size;
    std::vector<uint8_t> sets;
    uint8_t key_slice, delta_slice, delimiter, comment;
    uint8_t aggregate, fragment;
};

const unit_types &types_of(uint8_t codec)
{
    static const unit_types h264 = {1, {7, 8}, 5, 1, 9, 6, 24, 28};
    static const unit_types h265 = {2, {32, 33, 34}, 19, 1, 35, 39, 48, 49};
    return codec == VIDEO_TYPE_H265 ? h265 : h264;
}

bytes header_of(uint8_t codec, uint8_t type)
{
    if (codec == VIDEO_TYPE_H265) {
        return {static_cast<uint8_t>(type << 1), 1};
    }
    const bool is_disposable = type == 6 || type == 9;
    return {static_cast<uint8_t>((is_disposable ? 0 : 0x60) | type)};
}

// No byte is 0, so that no start code can come about.
void append_noise(bytes *to, size_t size, Random *random)
{
    const size_t begin = to->size();
    to->resize(begin + size);
    for (size_t i = 0; i < size; i += 8) {
        const uint64_t word = random->next() | 0x0101010101010101u;
        std::memcpy(to->data() + begin + i, &word, std::min<size_t>(8, size - i));
    }
}

bytes fragment_header(uint8_t codec, const bytes &unit, bool is_start, bool is_end)
{
    const auto edges = static_cast<uint8_t>((is_start ? 0x80 : 0) | (is_end ? 0x40 : 0));
    const uint8_t fragment = types_of(codec).fragment;
    if (codec == VIDEO_TYPE_H265) {
        return {static_cast<uint8_t>((unit[0] & 0x81) | fragment << 1), unit[1],
                static_cast<uint8_t>(edges | (unit[0] >> 1 & 0x3F))};
    }
    return {static_cast<uint8_t>((unit[0] & 0xE0) | fragment), static_cast<uint8_t>(edges | (unit[0] & 0x1F))};
}

void append_fragments(uint8_t codec, const bytes &unit, size_t payload_max, std::vector<bytes> *payloads)
{
    const size_t begin = types_of(codec).header_size;
    // One fragment alone, both start and end, must not be sent.
    const size_t n = std::max<size_t>(2, (unit.size() - begin + payload_max - 1) / payload_max);
    const size_t piece = (unit.size() - begin + n - 1) / n;
    for (size_t from = begin; from < unit.size(); from += piece) {
        const size_t to = std::min(unit.size(), from + piece);
        bytes payload = fragment_header(codec, unit, from == begin, to == unit.size());
        payload.insert(payload.end(), unit.begin() + static_cast<long>(from), unit.begin() + static_cast<long>(to));
        payloads->push_back(std::move(payload));
    }
}

// How many units from `first` on fit into one payload.
size_t count_together(const std::vector<bytes> &units, size_t first, size_t payload_max)
{
    constexpr size_t together_max = 6; // a packet has room for so many start codes
    size_t size = 2;
    size_t n = 0;
    while (first + n < units.size() && n < together_max && size + 2 + units[first + n].size() <= payload_max) {
        size += 2 + units[first + n].size();
        n++;
    }
    return n;
}

bytes aggregate(uint8_t codec, const bytes *units, size_t n)
{
    bytes payload = header_of(codec, types_of(codec).aggregate);
    for (size_t i = 0; i < n; i++) {
        rtp_builder::append_number(payload, static_cast<uint32_t>(units[i].size()), 2);
        payload.insert(payload.end(), units[i].begin(), units[i].end());
    }
    return payload;
}

std::vector<bytes> packetize(const encoder_settings &settings, const std::vector<bytes> &units)
{
    std::vector<bytes> payloads;
    for (size_t i = 0; i < units.size();) {
        const size_t n = settings.aggregates ? count_together(units, i, settings.payload_max) : 0;
        if (n >= 2) {
            payloads.push_back(aggregate(settings.codec, &units[i], n));
            i += n;
            continue;
        }
        if (units[i].size() <= settings.payload_max) {
            payloads.push_back(units[i]);
        } else {
            append_fragments(settings.codec, units[i], settings.payload_max, &payloads);
        }
        i++;
    }
    return payloads;
}

} // namespace

Encoder::Encoder(const encoder_settings &settings, uint64_t seed) : settings_(settings), random_(seed)
{
    draw_parameter_sets();
}

std::vector<bytes> Encoder::make_parameter_sets(uint8_t codec, Random *random)
{
    std::vector<bytes> sets;
    for (const uint8_t type : types_of(codec).sets) {
        sets.push_back(header_of(codec, type));
        append_noise(&sets.back(), random->between(6, 40), random);
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
    return static_cast<size_t>(std::clamp(size, 8.0, 200e3));
}

bytes Encoder::unit(uint8_t type, size_t size)
{
    bytes made = header_of(settings_.codec, type);
    append_noise(&made, size, &random_);
    return made;
}

void Encoder::add_slices(std::vector<bytes> *units, bool is_key)
{
    const unit_types &types = types_of(settings_.codec);
    const size_t size = draw_size(is_key);
    const size_t n = random_.between(1, settings_.slices);
    for (size_t i = 0; i < n; i++) {
        bytes slice = unit(is_key ? types.key_slice : types.delta_slice, size / n + 1);
        // The first slice of a picture says so: macroblock 0 in H.264, a flag in H.265, the same bit in both.
        uint8_t &begin = slice[types.header_size];
        begin = static_cast<uint8_t>(i == 0 ? begin | 0x80 : begin & 0x7F);
        units->push_back(std::move(slice));
    }
}

std::vector<bytes> Encoder::units(bool is_key)
{
    const unit_types &types = types_of(settings_.codec);
    std::vector<bytes> made;
    if (settings_.delimits) {
        made.push_back(unit(types.delimiter, 1));
    }
    if (is_key && !describes_sets()) {
        made.insert(made.end(), sets_.begin(), sets_.end());
    }
    if (settings_.comments && random_.happens(0.2)) {
        made.push_back(unit(types.comment, random_.between(4, 60)));
    }
    add_slices(&made, is_key);
    return made;
}

bool Encoder::is_optional(const bytes &unit) const
{
    const unit_types &types = types_of(settings_.codec);
    return unit.front() == header_of(settings_.codec, types.delimiter).front() ||
           unit.front() == header_of(settings_.codec, types.comment).front();
}

void Encoder::append_annexb(picture *to, const std::vector<bytes> &units) const
{
    for (const bytes &unit : units) {
        const size_t begin = to->expected.size();
        to->expected.insert(to->expected.end(), {0, 0, 0, 1});
        to->expected.insert(to->expected.end(), unit.begin(), unit.end());
        if (is_optional(unit)) {
            to->optional.push_back({begin, to->expected.size()});
        }
    }
}

// Each payload begins with a byte of its own, and the last one ends with padding that holds its size.
picture Encoder::encode_generic(bool is_key)
{
    picture made;
    made.is_key = is_key;
    append_noise(&made.expected, draw_size(is_key), &random_);
    const auto padding = static_cast<uint8_t>(random_.between(1, 8));
    bytes padded = made.expected;
    padded.insert(padded.end(), padding, padding);
    for (size_t from = 0; from < padded.size(); from += settings_.payload_max) {
        const size_t to = std::min(padded.size(), from + settings_.payload_max);
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

picture Encoder::encode(bool is_key)
{
    if (settings_.codec == VIDEO_TYPE_GENERIC) {
        return encode_generic(is_key);
    }
    picture made;
    made.is_key = is_key;
    const std::vector<bytes> all = units(is_key);
    made.payloads = packetize(settings_, all);
    if (is_key && describes_sets()) {
        append_annexb(&made, sets_);
    }
    append_annexb(&made, all);
    return made;
}

} // namespace simulation
