// What the fuzzers of the two depacketizers share. The input is a list of packets, a size in front of each; the size 255
// ends the frame, and the next one is written over it. The size 254 says that the size follows in two bytes.
#pragma once

#include <cstring>
#include <vector>

#include "check.h"
#include "codec/annexb.h"
#include "codec/unit_chain.h"
#include "depacketizer.h"
#include "fuzz_input.h"
#include "payload_model.h"

namespace fuzz
{

using depacketizer = int (*)(uint8_t *, const uint8_t *, const uint8_t *, size_t *, size_t *);

struct depacketizer_of {
    uint8_t codec;
    depacketizer packet_write;
};

constexpr uint8_t kFrameEnds = 255;
constexpr uint8_t kSizeFollows = 254;
constexpr size_t kRoomOfPacket = 32; // bytes beyond the payload

// The room that the packets of a frame have together is all that may be written.
inline bytes depacketize(depacketizer packet_write, const std::vector<bytes> &packets)
{
    static const uint8_t nothing[1] = {};
    size_t room = 0;
    for (const bytes &packet : packets) {
        room += packet.size() + kRoomOfPacket;
    }
    bytes frame(room, 0xA5);
    size_t offset = 0;
    size_t size = 0;
    room = 0;
    for (const bytes &packet : packets) {
        room += packet.size() + kRoomOfPacket;
        const uint8_t *begin = packet.empty() ? nothing : packet.data();
        check(packet_write(frame.data(), begin, begin + packet.size(), &offset, &size) == 0,
              "the next packet is wanted");
        check(offset == size && offset <= room, "a packet keeps to its room");
    }
    frame.resize(offset);
    return frame;
}

inline payload_fault_e fault_of(uint8_t codec, const std::vector<bytes> &packets)
{
    unit_chain units = {};
    for (const bytes &packet : packets) {
        const payload_fault_e fault = unit_chain_note(&units, codec, packet.data(), packet.size());
        if (fault != PAYLOAD_FAULTS) {
            return fault;
        }
    }
    return unit_chain_end(&units);
}

inline std::vector<bytes> with_room(uint8_t codec, std::vector<bytes> packets)
{
    for (bytes &packet : packets) {
        const size_t room = annexb_room_appended(codec, packet.data(), packet.size(), UINT16_MAX - packet.size());
        check((room > 0) == (fault_of(codec, {packet}) == PAYLOAD_FAULT_NO_ROOM), "room is for what needs it");
        packet.insert(packet.end(), room, 0);
        packet.shrink_to_fit();
    }
    return packets;
}

// A frame that is given out is its NAL units, each of them and nothing else. `packets` have their room.
inline void check_units(const depacketizer_of &format, const std::vector<bytes> &packets)
{
    const auto units = units_of(format.codec, packets);
    const payload_fault_e fault = fault_of(format.codec, packets);
    check(fault != PAYLOAD_FAULT_NO_ROOM, "there is room for every unit");
    check((fault == PAYLOAD_FAULTS) == units.has_value(), "payloads that are no whole units have a fault");
    check(!units || depacketize(format.packet_write, packets) == annexb_of(*units), "the units that went in come out");
}

inline bytes next_packet(Input *input, uint8_t length)
{
    return input->bytes(length == kSizeFollows ? input->u16() : length);
}

inline void depacketize_input(const depacketizer_of &format, const uint8_t *data, size_t size)
{
    Input input(data, size);
    while (!input.is_empty()) {
        std::vector<bytes> packets;
        uint8_t length = input.u8();
        while (length != kFrameEnds && (length > 0 || !input.is_empty())) {
            packets.push_back(next_packet(&input, length));
            length = input.u8();
        }
        const bytes frame = depacketize(format.packet_write, packets);
        const uint8_t start_code[] = {0, 0, 0, 1};
        check(frame.empty() ||
                  (frame.size() > sizeof(start_code) && std::memcmp(frame.data(), start_code, sizeof(start_code)) == 0),
              "a frame begins with a unit");
        // What the frame before left behind is no part of this one.
        check(depacketize(format.packet_write, packets) == frame, "the same packets make the same frame");
        const std::vector<bytes> roomy = with_room(format.codec, packets);
        check(units_of(format.codec, roomy) == units_of(format.codec, packets), "room is no unit");
        check_units(format, roomy);
    }
}

} // namespace fuzz
