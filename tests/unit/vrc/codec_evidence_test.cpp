#include "capture/codec_evidence.h"

#include <gtest/gtest.h>

#include <random>

#include "capture_builder.h"

using namespace vrc;
using namespace vrc_test;

namespace
{

// H.265, one of each: headers of layer 0 and temporal identifier 0.
const bytes kVps = {0x40, 0x01, 0x0C, 0x01, 0xFF, 0xFF, 0x01, 0x60, 0x00, 0x00};
const bytes kSps = {0x42, 0x01, 0x01, 0x01, 0x60, 0x00, 0x00, 0x03, 0x00, 0x90, 0x00, 0x00, 0x03, 0x00, 0x5D, 0xA0};
const bytes kPps = {0x44, 0x01, 0xC0, 0xF3, 0xC0, 0x02, 0x10};
const bytes kIdr = {0x26, 0x01, 0xAF, 0x78, 0xF7};   // first slice, pic_parameter_set_id 0
const bytes kTrail = {0x02, 0x01, 0xD0, 0x0A, 0x20}; // the same

bytes h265_aggregate(const std::vector<bytes> &units)
{
    bytes payload = {0x60, 0x01};
    for (const bytes &unit : units) {
        payload = payload + be16(static_cast<unsigned>(unit.size())) + unit;
    }
    return payload;
}

// A fragment of a slice of the type 19 (IDR).
bytes h265_fragment(bool is_start, bool is_end)
{
    const unsigned header = (is_start ? 0x80u : 0u) | (is_end ? 0x40u : 0u) | 19u;
    return {0x62, 0x01, static_cast<uint8_t>(header), 0xAF, 0x78, 0xF7};
}

struct fits {
    double h264;
    double h265;
};

// How well a stream of these payloads fits each codec.
fits look(const std::vector<bytes> &payloads)
{
    codec_evidence h264(nal_rules_h264);
    codec_evidence h265(nal_rules_h265);
    uint16_t seq = 65530;
    for (const bytes &payload : payloads) {
        h264.observe(seq, {payload.data(), payload.size()});
        h265.observe(seq, {payload.data(), payload.size()});
        ++seq;
    }
    return {h264.fit(), h265.fit()};
}

std::vector<bytes> repeated(const std::vector<bytes> &payloads, size_t times)
{
    std::vector<bytes> all;
    for (size_t i = 0; i < times; ++i) {
        all.insert(all.end(), payloads.begin(), payloads.end());
    }
    return all;
}

std::vector<bytes> h264_stream()
{
    std::vector<bytes> payloads = {h264_parameter_sets()};
    for (const bytes &fragment : h264_fragments(h264_idr_slice(300), 4)) {
        payloads.push_back(fragment);
    }
    payloads.insert(payloads.end(), 10, h264_inter_slice(50));
    return payloads;
}

std::vector<bytes> h265_stream()
{
    std::vector<bytes> payloads = {h265_aggregate({kVps, kSps, kPps}), h265_fragment(true, false),
                                   h265_fragment(false, false), h265_fragment(false, true)};
    payloads.insert(payloads.end(), 10, kTrail);
    return payloads;
}

std::vector<bytes> random_payloads(size_t count, size_t size)
{
    std::mt19937 random(7);
    std::vector<bytes> payloads(count, bytes(size));
    for (bytes &payload : payloads) {
        for (uint8_t &byte : payload) {
            byte = static_cast<uint8_t>(random());
        }
    }
    return payloads;
}

} // namespace

TEST(CodecEvidence, TellsTheCodecsApart)
{
    const fits h264 = look(h264_stream());
    EXPECT_GT(h264.h264, 0.9);
    EXPECT_LT(h264.h265, 0.1);
    const fits h265 = look(h265_stream());
    EXPECT_LT(h265.h264, 0.1);
    EXPECT_GT(h265.h265, 0.9);
}

TEST(CodecEvidence, TellsThemApartWithoutParameterSets)
{
    const fits h264 = look(repeated({h264_inter_slice(80)}, 20));
    EXPECT_GT(h264.h264, 0.9);
    EXPECT_LT(h264.h265, 0.1);
    const fits h265 = look(repeated({kTrail}, 20));
    EXPECT_LT(h265.h264, 0.1);
    EXPECT_GT(h265.h265, 0.9);
}

TEST(CodecEvidence, RefusesWhatIsNoVideo)
{
    struct {
        const char *name;
        std::vector<bytes> payloads;
    } const rows[] = {
        {"encrypted", random_payloads(500, 100)},
        {"one random datagram", random_payloads(1, 100)},
        {"G.711 silence", repeated({bytes(160, 0xFF)}, 100)},
        {"audio that begins like a PPS", repeated({bytes{0x68} + bytes(60, 0xB5)}, 100)},
        {"audio that begins like FU-A", repeated({{0x7C, 0x0B, 1, 2, 3}, {0x7C, 0xE4, 1, 2}, {0x7C, 0x87, 5}}, 50)},
        {"audio that begins like STAP-A", repeated({{0x78, 0xE6, 1, 2, 3, 4}, {0x78, 0x00, 0x02, 1, 2, 3}}, 50)},
        {"MPEG-2 transport stream", repeated({bytes{0x47, 0x01, 0x00, 0x10} + bytes(184, 0x55)}, 50)},
        {"VP8", repeated({{0x90, 0xE0, 0x80, 1, 0x10, 2, 0, 0x9D}, {0x80, 0xE0, 0x80, 2, 0x31, 1}}, 50)},
        {"MPEG-4 Part 2", repeated({{0x00, 0x00, 0x01, 0xB6, 0x10, 0x60}}, 50)},
        {"zeros", repeated({bytes(100, 0)}, 50)},
        {"single bytes", repeated({{0x41}, {0x02}}, 50)},
        {"nothing but SPS", repeated({{0x67, 0x42, 0xC0, 0x1E, 0xD9, 0x00}}, 50)},
        {"empty payloads", repeated({{}}, 50)},
    };
    for (const auto &row : rows) {
        const fits found = look(row.payloads);
        EXPECT_LT(found.h264, 0.6) << row.name;
        EXPECT_LT(found.h265, 0.6) << row.name;
    }
}

TEST(CodecEvidence, KeepsFaithInStreamWithSomeDamage)
{
    std::vector<bytes> payloads = repeated(h264_stream(), 10);
    for (size_t i = 0; i < payloads.size(); i += 10) {
        payloads[i] = bytes(20, 0xFF);
    }
    EXPECT_GT(look(payloads).h264, 0.6);
}

TEST(CodecEvidence, CountsFragmentsOutOfOrderAgainstTheCodec)
{
    const std::vector<bytes> right = h264_fragments(h264_idr_slice(300), 5);
    const std::vector<bytes> wrong = {right[0], right[4], right[2], right[0], right[0]};
    EXPECT_GT(look(repeated(right, 10)).h264, look(repeated(wrong, 10)).h264 + 0.2);
}

TEST(CodecEvidence, DoesNotHoldLossAgainstTheCodec)
{
    const std::vector<bytes> fragments = h264_fragments(h264_idr_slice(300), 5);
    codec_evidence evidence(nal_rules_h264);
    for (uint16_t seq = 0; seq < 200; ++seq) {
        if (seq % 3 != 1) {
            const bytes &payload = fragments[seq % 5u];
            evidence.observe(seq, {payload.data(), payload.size()});
        }
    }
    EXPECT_GT(evidence.fit(), 0.95);
}

TEST(CodecEvidence, ReadsNoByteBeyondPayloadsCutAnywhere)
{
    std::vector<bytes> payloads = h264_stream();
    const std::vector<bytes> h265 = h265_stream();
    payloads.insert(payloads.end(), h265.begin(), h265.end());
    payloads.push_back(kIdr);
    for (const bytes &payload : payloads) {
        for (size_t size = 0; size <= payload.size(); ++size) {
            bytes cut(payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(size));
            cut.shrink_to_fit();
            const fits found = look({cut, cut});
            EXPECT_LT(found.h264, 1.0);
            EXPECT_LT(found.h265, 1.0);
        }
    }
}

TEST(NalPlausibility, WeighsH264Units)
{
    struct {
        const char *name;
        bytes unit;
        nal_weight weight;
    } const rows[] = {
        {"slice", h264_inter_slice(10), kNalFits},
        {"slice without reference", {0x01, 0x9A, 0x24}, kNalFits},
        {"IDR slice", h264_idr_slice(10), kNalFits},
        {"IDR slice of type P", {0x65, 0x9A, 0x24}, kNalContradicts},
        {"IDR slice without reference", {0x05, 0x88, 0x84}, kNalContradicts},
        {"slice of type 10", {0x41, 0x8B, 0xFF}, kNalContradicts}, // 1 0001011 1...
        {"slice without a header", {0x41}, kNalContradicts},
        {"forbidden bit", {0xC1, 0x9A, 0x24}, kNalContradicts},
        {"data partition", {0x42, 0x9A, 0x24}, kNalContradicts},
        {"SEI", {0x06, 0x05, 0x01}, kNalSaysNothing},
        {"SEI for reference", {0x66, 0x05, 0x01}, kNalContradicts},
        {"baseline SPS", {0x67, 0x42, 0xC0, 0x1E, 0xD9}, kNalIsParameterSet},
        {"high SPS", {0x67, 0x64, 0x00, 0x28, 0xAC}, kNalIsParameterSet},
        {"SPS of an unknown profile", {0x67, 0x43, 0x00, 0x28, 0xAC}, kNalContradicts},
        {"SPS with reserved bits", {0x67, 0x42, 0x03, 0x1E, 0xD9}, kNalContradicts},
        {"SPS of level 25.5", {0x67, 0x42, 0x00, 0xFF, 0xD9}, kNalContradicts},
        {"SPS cut short", {0x67, 0x42, 0xC0, 0x1E}, kNalContradicts},
        {"PPS", {0x68, 0xCE, 0x3C, 0x80}, kNalFits},
        {"PPS of a thousand bytes", bytes{0x68, 0xCE} + bytes(1000, 1), kNalContradicts},
        {"delimiter", {0x09, 0xF0}, kNalFits},
        {"delimiter without its stop bit", {0x09, 0xE0}, kNalContradicts},
        {"end of sequence", {0x0A}, kNalSaysNothing},
        {"end of sequence with a body", {0x0A, 1}, kNalContradicts},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(nal_rules_h264.unit_weight({row.unit.data(), row.unit.size()}), row.weight) << row.name;
    }
}

TEST(NalPlausibility, WeighsH265Units)
{
    struct {
        const char *name;
        bytes unit;
        nal_weight weight;
    } const rows[] = {
        {"slice", kTrail, kNalFits},
        {"slice of a higher temporal layer", {0x02, 0x03, 0xD0}, kNalFits},
        {"slice of another layer", {0x02, 0x09, 0xD0}, kNalContradicts},
        {"slice without temporal identifier", {0x02, 0x00, 0xD0}, kNalContradicts},
        {"slice without a header", {0x02, 0x01}, kNalContradicts},
        {"IDR slice", kIdr, kNalFits},
        {"IDR slice of a higher temporal layer", {0x26, 0x02, 0xAF}, kNalContradicts},
        {"reserved intra type", {0x2C, 0x01, 0xAF}, kNalContradicts},
        {"VPS", kVps, kNalIsParameterSet},
        {"VPS without its reserved bits", {0x40, 0x01, 0x0C, 0x01, 0xFF, 0xFE, 0x01}, kNalContradicts},
        {"SPS", kSps, kNalIsParameterSet},
        {"SPS with an odd level", {0x42, 1, 1, 1, 0x60, 0, 0, 3, 0, 0x90, 0, 0, 3, 0, 0x5E}, kNalContradicts},
        {"SPS cut short", {0x42, 0x01, 0x01, 0x01, 0x60}, kNalContradicts},
        {"PPS", kPps, kNalFits},
        {"delimiter", {0x46, 0x01, 0x50}, kNalFits},
        {"end of sequence", {0x48, 0x01}, kNalSaysNothing},
        {"SEI", {0x4E, 0x01, 0x05}, kNalSaysNothing},
        {"reserved type", {0x52, 0x01, 0x05}, kNalContradicts},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(nal_rules_h265.unit_weight({row.unit.data(), row.unit.size()}), row.weight) << row.name;
    }
}
