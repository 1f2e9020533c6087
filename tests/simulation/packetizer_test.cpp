// What senders are made of puts on the wire what the payload formats say: read back here by a reader of its own.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "packetizer.h"
#include "video_stream.h"

using namespace simulation;

namespace
{

// Takes units out of payloads, strictly (RFC 6184, 5; RFC 7798, 4.4).
class Reader
{
  public:
    explicit Reader(uint8_t codec) : is_h265_(codec == VIDEO_TYPE_H265)
    {
    }

    // False when what was read so far must not be sent.
    bool read(const std::vector<bytes> &payloads)
    {
        bool is_good = true;
        for (const bytes &payload : payloads) {
            is_good = is_good && read(payload);
        }
        return is_good && open_.empty();
    }

    std::vector<bytes> units;
    std::map<std::string, size_t> seen; // structures, and how many units the largest aggregate had

  private:
    size_t header_size() const
    {
        return is_h265_ ? 2 : 1;
    }

    int type_of_header(uint8_t first) const
    {
        return is_h265_ ? first >> 1 & 0x3F : first & 0x1F;
    }

    bool is_unit(const bytes &unit) const
    {
        const int type = unit.size() < header_size() ? -1 : type_of_header(unit[0]);
        return is_h265_ ? type >= 0 && type <= 47 : type >= 1 && type <= 23;
    }

    bool take(const bytes &unit)
    {
        units.push_back(unit);
        return open_.empty() && is_unit(unit);
    }

    bool read(const bytes &payload)
    {
        if (payload.size() < header_size()) {
            return false;
        }
        const int type = type_of_header(payload[0]);
        if (type == (is_h265_ ? 48 : 24)) {
            return read_aggregate(payload);
        }
        if (type == (is_h265_ ? 49 : 28)) {
            return payload.size() > header_size() && read_fragment(payload);
        }
        seen["unit"]++;
        return take(payload);
    }

    bool read_aggregate(const bytes &payload)
    {
        size_t at = header_size();
        size_t n = 0;
        while (at + 2 <= payload.size()) {
            const size_t size = static_cast<size_t>(payload[at] << 8 | payload[at + 1]);
            at += 2;
            if (at + size > payload.size()) {
                return false;
            }
            seen["empty unit"] += size == 0 ? 1 : 0;
            if (size > 0 &&
                !take({payload.begin() + static_cast<long>(at), payload.begin() + static_cast<long>(at + size)})) {
                return false;
            }
            n += size > 0 ? 1 : 0;
            at += size;
        }
        seen["aggregate"] = std::max(seen["aggregate"], n);
        return at == payload.size();
    }

    bool read_fragment(const bytes &payload)
    {
        const uint8_t fu = payload[header_size()];
        const bool is_start = (fu & 0x80) != 0;
        const bool is_end = (fu & 0x40) != 0;
        const uint8_t type = fu & (is_h265_ ? 0x3F : 0x1F);
        if (is_start != open_.empty()) {
            return false;
        }
        if (is_start && is_h265_) {
            open_ = {static_cast<uint8_t>((payload[0] & 0x81) | type << 1), payload[1]};
        } else if (is_start) {
            open_ = {static_cast<uint8_t>((payload[0] & 0xE0) | type)};
        }
        if (type_of_header(open_[0]) != type) {
            return false;
        }
        seen["whole fragment"] += is_start && is_end ? 1 : 0;
        seen["empty fragment"] += payload.size() == header_size() + 1 ? 1 : 0;
        seen["fragment"]++;
        open_.insert(open_.end(), payload.begin() + static_cast<long>(header_size()) + 1, payload.end());
        if (!is_end) {
            return true;
        }
        const bytes unit = std::exchange(open_, {});
        return take(unit);
    }

    bool is_h265_;
    bytes open_;
};

std::vector<bytes> draw_units(uint8_t codec, Random *random)
{
    const unit_types &types = types_of(codec);
    const double large = random->happens(0.5) ? 0.2 : 0;
    std::vector<bytes> units;
    for (uint64_t n = random->between(1, 80); n > 0; n--) {
        units.push_back(header_of(codec, types.delta_slices[0]));
        append_noise(&units.back(), random->happens(large) ? random->between(1, 3000) : random->between(1, 30), random);
    }
    return units;
}

class SimulatedPayloads : public testing::TestWithParam<uint8_t>
{
};

TEST_P(SimulatedPayloads, HoldEveryUnitInOrderInEveryStructure)
{
    std::map<std::string, size_t> seen;
    for (uint64_t seed = 0; seed < 300; seed++) {
        Random random(seed);
        packetizer_settings settings;
        settings.payload_max = random.between(150, 8850);
        constexpr size_t together[] = {0, 2, 6, 1000};
        settings.together_max = random.one_of(together);
        settings.oddities = random.happens(0.5) ? 0.2 : 0;
        const std::vector<bytes> units = draw_units(GetParam(), &random);
        const std::vector<bytes> payloads = packetize(settings, GetParam(), units, &random);
        Reader reader(GetParam());
        ASSERT_TRUE(reader.read(payloads)) << seed;
        ASSERT_EQ(reader.units, units) << seed;
        for (const auto &[structure, n] : reader.seen) {
            seen[structure] = std::max(seen[structure], n);
        }
    }
    for (const char *structure : {"unit", "fragment", "whole fragment", "empty fragment", "empty unit"}) {
        EXPECT_GT(seen[structure], 0u) << structure;
    }
    EXPECT_GT(seen["aggregate"], 60u);
}

TEST_P(SimulatedPayloads, AreNotAllowedOnceTheyAreSpoiled)
{
    std::set<std::string> faults;
    for (uint64_t seed = 0; seed < 1000; seed++) {
        Random random(seed);
        std::vector<bytes> payloads = packetize({}, GetParam(), draw_units(GetParam(), &random), &random);
        const bytes first = payloads[0];
        const bool is_alone = payloads.size() == 1;
        const std::string fault = spoil(GetParam(), &payloads, &random);
        EXPECT_FALSE(Reader(GetParam()).read(payloads)) << seed << ": " << fault;
        EXPECT_TRUE(is_alone || payloads[0] == first) << seed << ": " << fault;
        faults.insert(fault);
    }
    EXPECT_GE(faults.size(), 15u); // a reserved type is one for each
}

INSTANTIATE_TEST_SUITE_P(Of, SimulatedPayloads, testing::Values(VIDEO_TYPE_H264, VIDEO_TYPE_H265),
                         [](const testing::TestParamInfo<uint8_t> &param) {
                             return param.param == VIDEO_TYPE_H264 ? "H264" : "H265";
                         });

} // namespace
