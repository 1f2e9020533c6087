// Builds what a sender of H.264 video puts on the wire, packet by packet, together with the Annex B bytes that have to
// come out of a whole frame.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace rtp_builder
{

using bytes = std::vector<uint8_t>;

// One RTP packet (RFC 3550, 5.1).
struct rtp_fields {
    uint16_t seq = 0;
    uint32_t timestamp = 0;
    bool marker = false;
    bytes payload = {0x41, 0xAA};
    uint32_t ssrc = 0x11223344;
    uint8_t payload_type = 96;
    uint8_t version = 2;
    uint8_t csrcs = 0;
    int extension_words = -1; // below 0: no extension
    uint8_t padding = 0;      // bytes, the count included
};

inline void append_number(bytes &to, uint32_t value, int size)
{
    for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) {
        to.push_back(static_cast<uint8_t>(value >> shift));
    }
}

inline bytes rtp_packet(const rtp_fields &fields)
{
    bytes packet;
    packet.push_back(static_cast<uint8_t>(fields.version << 6 | (fields.padding != 0 ? 0x20 : 0) |
                                          (fields.extension_words >= 0 ? 0x10 : 0) | fields.csrcs));
    packet.push_back(static_cast<uint8_t>((fields.marker ? 0x80 : 0) | fields.payload_type));
    append_number(packet, fields.seq, 2);
    append_number(packet, fields.timestamp, 4);
    append_number(packet, fields.ssrc, 4);
    packet.insert(packet.end(), size_t{4} * fields.csrcs, 0xC5);
    if (fields.extension_words >= 0) {
        append_number(packet, 0xBEDE, 2);
        append_number(packet, static_cast<uint32_t>(fields.extension_words), 2);
        packet.insert(packet.end(), size_t{4} * static_cast<size_t>(fields.extension_words), 0xE7);
    }
    packet.insert(packet.end(), fields.payload.begin(), fields.payload.end());
    if (fields.padding != 0) {
        packet.insert(packet.end(), fields.padding - size_t{1}, 0);
        packet.push_back(fields.padding);
    }
    return packet;
}

// A packet as a retransmission (RFC 4588, 4): another payload type and SSRC, numbers of its own, the original one in front
// of the payload.
struct rtx_fields {
    uint8_t payload_type;
    uint16_t seq;
    uint32_t ssrc;
};

inline bytes rtx_packet(const bytes &original, const rtx_fields &fields)
{
    bytes packet = {original[0], static_cast<uint8_t>((original[1] & 0x80) | fields.payload_type)};
    append_number(packet, fields.seq, 2);
    packet.insert(packet.end(), original.begin() + 4, original.begin() + 8);
    append_number(packet, fields.ssrc, 4);
    packet.insert(packet.end(), original.begin() + 2, original.begin() + 4);
    packet.insert(packet.end(), original.begin() + 12, original.end());
    return packet;
}

// A NAL unit of `size` bytes behind a header byte of type `type`; no start code can come about in it.
inline bytes nal_unit(uint8_t type, size_t size, uint32_t salt = 0)
{
    bytes nal = {static_cast<uint8_t>(0x60 | type)};
    for (size_t i = 0; i < size; i++) {
        nal.push_back(static_cast<uint8_t>(1 + (i * 7 + salt * 13) % 250));
    }
    const bool is_slice = type == 1 || type == 5;
    if (is_slice && size > 0) {
        nal[1] |= 0x80; // its first macroblock is number 0
    }
    return nal;
}

// A NAL unit in `n` FU-A payloads (RFC 6184, 5.8), or in a single one.
inline std::vector<bytes> fragments(const bytes &nal, size_t n)
{
    if (n == 1) {
        return {nal};
    }
    std::vector<bytes> payloads;
    const size_t piece = (nal.size() - 1 + n - 1) / n;
    for (size_t i = 0; i < n; i++) {
        const size_t from = std::min(nal.size(), 1 + i * piece);
        const size_t to = std::min(nal.size(), from + piece);
        bytes payload = {static_cast<uint8_t>((nal[0] & 0xE0) | 28),
                         static_cast<uint8_t>((i == 0 ? 0x80 : 0) | (i == n - 1 ? 0x40 : 0) | (nal[0] & 0x1F))};
        payload.insert(payload.end(), nal.begin() + static_cast<long>(from), nal.begin() + static_cast<long>(to));
        payloads.push_back(payload);
    }
    return payloads;
}

// A frame on the wire, and in Annex B.
struct frame {
    std::vector<bytes> packets;
    bytes annexb;
    uint32_t timestamp = 0;
    uint16_t first_seq = 0;
    uint16_t last_seq = 0;
    bool is_key = false;
};

// A sender that numbers its packets and frames on.
class Sender
{
  public:
    uint16_t seq = 1000;
    uint32_t timestamp = 90000;
    uint32_t ssrc = 0x11223344;
    uint8_t payload_type = 96;
    uint32_t timestamp_step = 3000;
    size_t nal_size = 300;

    // A key frame in `n` packets: SPS, PPS and an IDR slice in the others. At least three.
    frame key_frame(size_t n = 3)
    {
        frame made = begin(true);
        add(made, nal_unit(7, 10), 1);
        add(made, nal_unit(8, 4), 1);
        add(made, nal_unit(5, nal_size, salt_), n - 2);
        return end(made);
    }

    // A frame of one non-IDR slice in `n` packets.
    frame delta_frame(size_t n = 1)
    {
        frame made = begin(false);
        add(made, nal_unit(1, nal_size, salt_), n);
        return end(made);
    }

    // A frame of any payloads, one a packet.
    frame raw_frame(const std::vector<bytes> &payloads, bool is_key)
    {
        frame made = begin(is_key);
        for (const bytes &payload : payloads) {
            add(made, payload, 1);
        }
        return end(made);
    }

    // Packets without payload, padded, as senders probe a path with; they have the timestamp of the frame before.
    bytes filler()
    {
        rtp_fields fields = header();
        fields.timestamp = timestamp - timestamp_step;
        fields.payload = {};
        fields.padding = 200;
        return rtp_packet(fields);
    }

  private:
    uint32_t salt_ = 0;

    rtp_fields header()
    {
        rtp_fields fields;
        fields.seq = seq++;
        fields.timestamp = timestamp;
        fields.ssrc = ssrc;
        fields.payload_type = payload_type;
        return fields;
    }

    frame begin(bool is_key)
    {
        frame made;
        made.is_key = is_key;
        made.timestamp = timestamp;
        made.first_seq = seq;
        salt_++;
        return made;
    }

    void add(frame &to, const bytes &nal, size_t n)
    {
        for (const bytes &payload : fragments(nal, n)) {
            rtp_fields fields = header();
            fields.payload = payload;
            to.packets.push_back(rtp_packet(fields));
        }
        to.annexb.insert(to.annexb.end(), {0, 0, 0, 1});
        to.annexb.insert(to.annexb.end(), nal.begin(), nal.end());
    }

    frame end(frame made)
    {
        made.packets.back()[1] |= 0x80;
        made.last_seq = static_cast<uint16_t>(seq - 1);
        timestamp += timestamp_step;
        return made;
    }
};

} // namespace rtp_builder
