// Senders of random NAL units in random packets, and what must hold of what a depacketizer makes of them.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "codec/annexb.h"
#include "depacketizer_frame.h"

// The NAL units of a stream whose units hold no start code.
inline std::vector<bytes> units_of(const bytes &stream)
{
    std::vector<bytes> units;
    for (size_t at = 0; at < stream.size(); at++) {
        const bool is_start_code = stream.size() - at >= 4 && stream[at] == 0 && stream[at + 1] == 0 &&
                                   stream[at + 2] == 0 && stream[at + 3] == 1;
        if (is_start_code) {
            units.emplace_back();
            at += 3;
        } else if (units.empty()) {
            ADD_FAILURE() << "no start code in front";
            return units;
        } else {
            units.back().push_back(stream[at]);
        }
    }
    return units;
}

// What a sender does, by format.
struct packet_writer {
    bytes (*unit)(std::mt19937 &random, size_t size); // a NAL unit of some type that the format lets through
    bytes (*fragment)(const bytes &unit, size_t begin, size_t end, bool is_first, bool is_last);
    bytes aggregate_header;
    size_t header_size;
    uint8_t codec;
};

// Seeded, so that a failure comes back with the same number.
class packet_source
{
  public:
    packet_source(const packet_writer &writer, uint32_t seed) : writer_(writer), random_(seed)
    {
    }

    uint32_t below(uint32_t bound)
    {
        return std::uniform_int_distribution<uint32_t>(0, bound - 1)(random_);
    }

    // Some NAL units in some packets; the packets of a unit stand together.
    void frame(std::vector<bytes> *units, std::vector<std::vector<bytes>> *packets_of_units)
    {
        const uint32_t count = 1 + below(6);
        for (uint32_t i = 0; i < count; i++) {
            const uint32_t kind = below(3);
            if (kind == 0) {
                units->push_back(unit());
                packets_of_units->push_back({units->back()});
            } else if (kind == 1) {
                aggregate(units, packets_of_units);
            } else {
                units->push_back(unit());
                packets_of_units->push_back(fragments(units->back()));
            }
        }
    }

    // The packets of a frame, some in another order, with some of their bytes spoiled or cut off.
    std::vector<bytes> spoiled_frame()
    {
        std::vector<bytes> units;
        std::vector<std::vector<bytes>> packets_of_units;
        frame(&units, &packets_of_units);
        std::vector<bytes> packets;
        for (const std::vector<bytes> &some : packets_of_units) {
            for (const bytes &packet : some) {
                packets.push_back(below(3) == 0 ? spoiled(packet) : packet);
            }
        }
        if (below(4) == 0) {
            std::shuffle(packets.begin(), packets.end(), random_);
        }
        return packets;
    }

  private:
    bytes spoiled(bytes packet)
    {
        for (uint32_t count = below(4); count > 0; count--) {
            packet[below(static_cast<uint32_t>(packet.size()))] = static_cast<uint8_t>(2 + below(254));
        }
        if (below(4) == 0) {
            packet.resize(below(static_cast<uint32_t>(packet.size())));
        }
        return packet;
    }

    bytes unit(uint32_t extra)
    {
        return writer_.unit(random_, writer_.header_size + below(extra));
    }

    bytes unit()
    {
        return unit(60);
    }

    void aggregate(std::vector<bytes> *units, std::vector<std::vector<bytes>> *packets_of_units)
    {
        const uint32_t extra = 1 + below(12); // short units, so that their start codes count
        bytes packet = writer_.aggregate_header;
        for (uint32_t left = 1 + below(60); left > 0; left--) {
            units->push_back(unit(extra));
            packet.push_back(0);
            packet.push_back(static_cast<uint8_t>(units->back().size()));
            packet.insert(packet.end(), units->back().begin(), units->back().end());
        }
        const size_t room =
            annexb_room_appended(writer_.codec, packet.data(), packet.size(), UINT16_MAX - packet.size());
        packet.insert(packet.end(), room, 0);
        packets_of_units->push_back({packet});
    }

    std::vector<bytes> fragments(const bytes &unit)
    {
        std::vector<bytes> packets;
        const size_t step = 1 + below(60);
        size_t begin = writer_.header_size;
        do {
            const size_t end = std::min(unit.size(), begin + step);
            packets.push_back(writer_.fragment(unit, begin, end, begin == writer_.header_size, end == unit.size()));
            begin = end;
        } while (begin < unit.size());
        return packets;
    }

    const packet_writer &writer_;
    std::mt19937 random_;
};

// What is sent comes out again, whatever kinds of packets carried it.
inline void expect_round_trip(depacketizer unpack, const packet_writer &writer, uint32_t seed)
{
    packet_source source(writer, seed);
    for (int round = 0; round < 5000; round++) {
        std::vector<bytes> units;
        std::vector<std::vector<bytes>> packets_of_units;
        source.frame(&units, &packets_of_units);
        std::vector<bytes> packets;
        for (const std::vector<bytes> &some : packets_of_units) {
            packets.insert(packets.end(), some.begin(), some.end());
        }
        ASSERT_EQ(annexb(units), unpack_frame(unpack, packets)) << "seed " << seed << ", frame " << round;
    }
}

// With packets missing, every NAL unit that comes out is one that went in, whole and in order. Only a unit at the
// frame's end may lack its own end: no packet comes after it to say so.
inline void expect_no_torn_unit(depacketizer unpack, const packet_writer &writer, uint32_t seed)
{
    packet_source source(writer, seed);
    for (int round = 0; round < 5000; round++) {
        std::vector<bytes> units;
        std::vector<std::vector<bytes>> packets_of_units;
        source.frame(&units, &packets_of_units);
        std::vector<bytes> packets;
        for (const std::vector<bytes> &some : packets_of_units) {
            for (const bytes &packet : some) {
                packets.push_back(source.below(5) == 0 ? bytes() : packet);
            }
        }
        const std::vector<bytes> received = units_of(unpack_frame(unpack, packets));
        size_t next = 0;
        for (size_t i = 0; i < received.size(); i++) {
            const bool may_be_cut = i + 1 == received.size();
            while (next < units.size() && received[i] != units[next] &&
                   !(may_be_cut && next + 1 == units.size() &&
                     std::equal(received[i].begin(), received[i].end(), units[next].begin()))) {
                next++;
            }
            ASSERT_LT(next, units.size()) << "seed " << seed << ", frame " << round << ", unit " << i;
            next++;
        }
    }
}
