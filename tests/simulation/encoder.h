// Makes pictures as an encoder does, cut into payloads, together with the NAL units that have to come out of them.
#pragma once

#include <string>
#include <vector>

#include "packetizer.h"
#include "video_stream.h"

namespace simulation
{

struct encoder_settings {
    uint8_t codec = VIDEO_TYPE_H264; // or H.265, or generic
    double mean_bytes = 1000;        // of a delta frame
    double spread = 0.4;             // of the logarithm of a delta frame's size
    double key_scale = 6;            // times a delta frame
    packetizer_settings packetizer;
    unsigned slices = 1;   // at most, a frame
    bool delimits = false; // begins frames with an access unit delimiter
    unsigned comments = 0; // SEI units of a frame that has some, at most
    unsigned trailers = 0; // units behind a picture's slices, at most
    // The parameter sets, where a session description has them; else they are drawn and sent with each key frame.
    std::vector<bytes> described_sets;
};

// What of a picture's bytes belongs together: a NAL unit with its start code, or a generic frame.
struct picture_unit {
    size_t begin;
    size_t end;
    // A delimiter or supplemental information: the picture may come out without it when it was lost in a packet of its own,
    // as nobody can tell that from padding.
    bool is_optional;
};

struct picture {
    bool is_key = false;
    bool has_sets = false; // of parameters
    std::vector<bytes> payloads;
    bytes expected; // Annex B, or the bytes of a generic frame
    std::vector<picture_unit> units;
    std::string fault; // what a receiver must not take the frame for; empty: there is nothing
};

struct picture_wish {
    bool is_key = false;
    bool omits_sets = false; // the receiver has them
    bool is_spoiled = false;
};

class Encoder
{
  public:
    Encoder(const encoder_settings &settings, uint64_t seed);

    picture encode(const picture_wish &wish);

    // An encoder that was made anew has others.
    void draw_parameter_sets();

    // Parameter sets for a codec, in the order in which they belong in front of a key frame.
    static std::vector<bytes> make_parameter_sets(uint8_t codec, Random *random);

  private:
    size_t draw_size(bool is_key);
    bytes unit(uint8_t type, size_t size);
    uint8_t draw_type(const std::vector<uint8_t> &types);
    bool describes_sets() const
    {
        return !settings_.described_sets.empty();
    }
    std::vector<bytes> units(const picture_wish &wish);
    void add_slices(std::vector<bytes> *units, bool is_key);
    bool is_optional(const bytes &unit) const;
    void append_annexb(picture *to, const std::vector<bytes> &units) const;
    picture encode_generic(const picture_wish &wish);
    picture encode_units(const picture_wish &wish);

    encoder_settings settings_;
    Random random_;
    std::vector<bytes> sets_;
};

} // namespace simulation
