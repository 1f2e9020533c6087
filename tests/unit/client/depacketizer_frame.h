// Runs a depacketizer over the packets of frames the way the module does, and checks what must hold after every
// call whatever the packets are.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "hex_bytes.h"

using depacketizer = int (*)(uint8_t *, const uint8_t *, const uint8_t *, size_t *, size_t *);

// The Annex B stream of some NAL units.
inline bytes annexb(const std::vector<bytes> &units)
{
    bytes stream;
    for (const bytes &unit : units) {
        stream.insert(stream.end(), {0, 0, 0, 1});
        stream.insert(stream.end(), unit.begin(), unit.end());
    }
    return stream;
}

// Takes packet after packet of one frame. All memory is exactly as large as the module's, so that the address
// sanitizer sees a step outside.
class depacketizer_frame
{
  public:
    depacketizer_frame(depacketizer unpack, const std::vector<bytes> &packets) : unpack_(unpack)
    {
        size_t size = 0;
        for (const bytes &packet : packets) {
            size += packet.size() + 32;
        }
        data_ = std::make_unique<uint8_t[]>(size);
    }

    // An empty packet is passed without an address, as one that is missing.
    void add(const bytes &packet)
    {
        const auto copy = std::make_unique<uint8_t[]>(packet.size());
        if (!packet.empty()) {
            memcpy(copy.get(), packet.data(), packet.size());
        }
        const uint8_t *begin = packet.empty() ? nullptr : copy.get();
        const size_t before = offset_;
        ASSERT_EQ(0, unpack_(data_.get(), begin, begin + packet.size(), &offset_, &frame_size_));
        ASSERT_EQ(offset_, frame_size_);
        ASSERT_LE(offset_, before + packet.size() + 32);
    }

    bytes stream() const
    {
        return {data_.get(), data_.get() + frame_size_};
    }

    size_t offset() const
    {
        return offset_;
    }

  private:
    depacketizer unpack_;
    std::unique_ptr<uint8_t[]> data_;
    size_t offset_ = 0;
    size_t frame_size_ = 0;
};

inline bytes unpack_frame(depacketizer unpack, const std::vector<bytes> &packets)
{
    depacketizer_frame frame(unpack, packets);
    for (const bytes &packet : packets) {
        frame.add(packet);
    }
    return frame.stream();
}

// One frame: packets in, NAL units out, both in hexadecimal.
struct depacketizer_case {
    std::string name;
    std::vector<std::string> packets;
    std::vector<std::string> units;
};

inline void PrintTo(const depacketizer_case &row, std::ostream *out)
{
    for (const std::string &packet : row.packets) {
        *out << "[" << packet << "] ";
    }
    *out << "->";
    for (const std::string &unit : row.units) {
        *out << " [" << unit << "]";
    }
}

inline std::string case_name(const testing::TestParamInfo<depacketizer_case> &info)
{
    return info.param.name;
}

inline std::vector<bytes> hex_all(const std::vector<std::string> &texts)
{
    std::vector<bytes> result;
    result.reserve(texts.size());
    for (const std::string &text : texts) {
        result.push_back(hex(text));
    }
    return result;
}

inline void expect_unpacked(depacketizer unpack, const depacketizer_case &row)
{
    EXPECT_EQ(annexb(hex_all(row.units)), unpack_frame(unpack, hex_all(row.packets)));
}

// Cuts a packet off after every byte; `wholes[i]` is the size from which on the first i + 1 units are whole.
inline void expect_whole_units_of_every_cut(depacketizer unpack, const bytes &packet, const std::vector<bytes> &units,
                                            const std::vector<size_t> &wholes)
{
    for (size_t size = 0; size <= packet.size(); size++) {
        std::vector<bytes> expected;
        for (size_t i = 0; i < units.size() && wholes[i] <= size; i++) {
            expected.push_back(units[i]);
        }
        const bytes cut(packet.begin(), packet.begin() + static_cast<ptrdiff_t>(size));
        EXPECT_EQ(annexb(expected), unpack_frame(unpack, {cut})) << "cut to " << size << " bytes";
    }
}
