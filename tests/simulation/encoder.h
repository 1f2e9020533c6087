// Makes pictures as an encoder does, cut into payloads, together with the bytes that have to come out of them.
#pragma once

#include <vector>

#include "random.h"
#include "rtp_builder.h"
#include "video_stream.h"

namespace simulation
{

using rtp_builder::bytes;

struct encoder_settings {
    uint8_t codec = VIDEO_TYPE_H264; // or H.265, or generic
    double mean_bytes = 1000;        // of a delta frame
    double spread = 0.4;             // of the logarithm of a delta frame's size
    double key_scale = 6;            // times a delta frame
    size_t payload_max = 1100;
    unsigned slices = 1;    // at most, a frame
    bool delimits = false;  // begins frames with an access unit delimiter
    bool comments = false;  // adds an SEI unit now and then
    bool aggregates = true; // puts small NAL units into one payload
    // The parameter sets, where a session description has them; else they are drawn and sent with each key frame.
    std::vector<bytes> described_sets;
};

// Bytes of a picture that hold nothing of it: a delimiter, supplemental information. It may come out without them when
// they were lost in a packet of their own, as nobody can tell that from padding.
struct optional_bytes {
    size_t begin;
    size_t end;
};

struct picture {
    bool is_key = false;
    std::vector<bytes> payloads;
    bytes expected; // Annex B, or the bytes of a generic frame
    std::vector<optional_bytes> optional;
};

class Encoder
{
  public:
    Encoder(const encoder_settings &settings, uint64_t seed);

    picture encode(bool is_key);

    // An encoder that was made anew has others.
    void draw_parameter_sets();

    // Parameter sets for a codec, in the order in which they belong in front of a key frame.
    static std::vector<bytes> make_parameter_sets(uint8_t codec, Random *random);

  private:
    size_t draw_size(bool is_key);
    bytes unit(uint8_t type, size_t size);
    bool describes_sets() const
    {
        return !settings_.described_sets.empty();
    }
    std::vector<bytes> units(bool is_key);
    void add_slices(std::vector<bytes> *units, bool is_key);
    bool is_optional(const bytes &unit) const;
    void append_annexb(picture *to, const std::vector<bytes> &units) const;
    picture encode_generic(bool is_key);

    encoder_settings settings_;
    Random random_;
    std::vector<bytes> sets_;
};

} // namespace simulation
