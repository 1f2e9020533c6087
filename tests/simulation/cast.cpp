#include "cast.h"

#include <algorithm>
#include <cmath>

namespace simulation
{

namespace
{

constexpr double kWithoutLimit = 1e9; // more units than any payload holds

// Small and large ones are as likely: from a path of 200 bytes a packet to one of 8900.
size_t draw_payload_max(Random *random)
{
    return static_cast<size_t>(std::exp(random->real(std::log(150.0), std::log(8850.0))));
}

packetizer_settings draw_packetizer(Random *random)
{
    constexpr double together[] = {0, 2, 6, kWithoutLimit, kWithoutLimit, kWithoutLimit};
    packetizer_settings drawn;
    drawn.payload_max = random->happens(0.5) ? random->between(300, 1180) : draw_payload_max(random);
    drawn.together_max = static_cast<size_t>(random->one_of(together));
    drawn.oddities = random->happens(0.4) ? random->real(0, 0.3) : 0;
    return drawn;
}

encoder_settings draw_encoder(const call_terms &terms, bool is_native, double fps, Random *random)
{
    constexpr uint8_t rtp_codecs[] = {VIDEO_TYPE_H264, VIDEO_TYPE_H264, VIDEO_TYPE_H265};
    constexpr uint8_t native_codecs[] = {VIDEO_TYPE_H264, VIDEO_TYPE_H265, VIDEO_TYPE_GENERIC};
    constexpr unsigned slices[] = {1, 1, 2, 3, 3, 8, 17, 30, 60};
    constexpr unsigned comments[] = {0, 0, 1, 8};
    constexpr unsigned trailers[] = {0, 0, 1, 20};
    encoder_settings drawn;
    drawn.codec = is_native ? random->one_of(native_codecs) : random->one_of(rtp_codecs);
    const double kbps = random->real(terms.kind->kbps_min, terms.kind->kbps_max);
    drawn.mean_bytes = kbps * 125 / fps;
    drawn.spread = random->real(0.1, 0.7);
    drawn.key_scale = random->real(3, 10);
    drawn.packetizer = draw_packetizer(random);
    drawn.slices = random->one_of(slices);
    drawn.delimits = random->happens(0.3);
    drawn.comments = random->one_of(comments);
    drawn.trailers = random->one_of(trailers);
    const auto described = terms.described.find(drawn.codec);
    if (!is_native && described != terms.described.end()) {
        drawn.described_sets = described->second;
    }
    return drawn;
}

// A receiver that takes a sender for a new one forgets its parameter sets.
bool may_omit_sets(const preset &kind)
{
    return !kind.link.corrupted_arrive && kind.link.outage_every == 0;
}

// A frame has at most 1280 packets; a native one 256, as the frame queue's index has no room for more across the wrap of
// their numbers.
void keep_to_packet_index(encoder_settings *drawn, bool is_native)
{
    const double packets = is_native ? 80 : 500; // of a large key frame, its parts that are not aggregated left out
    const auto least = static_cast<size_t>(3 * drawn->mean_bytes * drawn->key_scale / packets);
    drawn->packetizer.payload_max = std::max(drawn->packetizer.payload_max, least);
}

} // namespace

sender_settings draw_sender(const call_terms &terms, Random *random)
{
    constexpr double rates[] = {10, 10, 10, 12, 15, 15, 25, 30};
    constexpr repair repairs[] = {repair::none, repair::plain, repair::flagged, repair::rtx, repair::rtx};
    sender_settings drawn;
    drawn.is_native = !terms.kind->repairs_all && random->happens(0.25); // below, native packets are repeated later
    drawn.stream_id = drawn.is_native ? static_cast<uint8_t>(random->below(4)) : uint8_t{0};
    drawn.fps = random->one_of(rates);
    drawn.encoder = draw_encoder(terms, drawn.is_native, drawn.fps, random);
    keep_to_packet_index(&drawn.encoder, drawn.is_native);
    drawn.fec = random->happens(0.4) ? random->real(0.1, 0.5) : 0;
    const bool is_asked = drawn.is_native || terms.agreed.pli || terms.agreed.fir;
    drawn.key_every = is_asked && random->happens(0.6) ? 0 : random->between(1000, 2500);
    drawn.key_pause = random->happens(0.5) ? 0 : 300;
    drawn.repairs = terms.agreed.nack ? random->one_of(repairs) : repair::none;
    drawn.is_rtx_paired = random->happens(0.7);
    drawn.keeps_probes = random->happens(0.5);
    if (terms.kind->repairs_all) {
        drawn.repairs = random->happens(0.5) ? repair::plain : repair::rtx;
        drawn.is_rtx_paired = drawn.keeps_probes = true;
        drawn.keeps = 4096; // of more than a round trip
    }
    drawn.probes = random->happens(0.4) ? random->real(0, 0.2) : 0;
    drawn.extension_words = static_cast<int>(random->between(0, 8)) - 1;
    drawn.csrcs = random->happens(0.1) ? static_cast<uint8_t>(random->between(1, 15)) : uint8_t{0};
    drawn.padded = random->happens(0.3) ? random->real(0, 0.5) : 0;
    drawn.extension_records = drawn.is_native && random->happens(0.5) ? random->real(0, 0.5) : 0;
    drawn.omits_sets = !drawn.is_native && may_omit_sets(*terms.kind) && random->happens(0.4);
    drawn.spoils_every = random->happens(0.2) ? 8000 : 0;
    return drawn;
}

} // namespace simulation
