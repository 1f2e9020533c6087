// What the fuzzers of the two depacketizers share. The input is a list of packets, a size in front of each; the size 255
// ends the frame, and the next one is written over it.
#pragma once

#include <cstring>
#include <vector>

#include "check.h"
#include "depacketizer.h"
#include "fuzz_input.h"

namespace fuzz
{

using depacketizer = int (*)(uint8_t *, const uint8_t *, const uint8_t *, size_t *, size_t *);

constexpr uint8_t kFrameEnds = 255;
constexpr size_t kRoomOfPacket = 32; // bytes beyond the payload

// The room that the packets of a frame have together is all that may be written.
inline std::vector<uint8_t> depacketize(depacketizer packet_write, const std::vector<std::vector<uint8_t>> &packets)
{
    size_t room = 0;
    for (const std::vector<uint8_t> &packet : packets) {
        room += packet.size() + kRoomOfPacket;
    }
    std::vector<uint8_t> frame(room, 0xA5);
    size_t offset = 0;
    size_t size = 0;
    room = 0;
    for (const std::vector<uint8_t> &packet : packets) {
        room += packet.size() + kRoomOfPacket;
        check(packet_write(frame.data(), packet.data(), packet.data() + packet.size(), &offset, &size) == 0,
              "the next packet is wanted");
        check(offset == size && offset <= room, "a packet keeps to its room");
    }
    frame.resize(offset);
    return frame;
}

inline void depacketize_input(depacketizer packet_write, const uint8_t *data, size_t size)
{
    Input input(data, size);
    while (!input.is_empty()) {
        std::vector<std::vector<uint8_t>> packets;
        uint8_t length = input.u8();
        while (length != kFrameEnds && (length > 0 || !input.is_empty())) {
            packets.push_back(input.bytes(length));
            length = input.u8();
        }
        const std::vector<uint8_t> frame = depacketize(packet_write, packets);
        const uint8_t start_code[] = {0, 0, 0, 1};
        check(frame.empty() ||
                  (frame.size() > sizeof(start_code) && std::memcmp(frame.data(), start_code, sizeof(start_code)) == 0),
              "a frame begins with a unit");
        // What the frame before left behind is no part of this one.
        check(depacketize(packet_write, packets) == frame, "the same packets make the same frame");
    }
}

} // namespace fuzz
