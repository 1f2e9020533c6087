// A sender of frames given payload by payload, over RTP or over the native path, and the NAL units to put into them.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "client_bench.h"

namespace payload_sender
{

using client_bench::bytes;
using client_bench::Client;

inline bytes joined(const std::vector<bytes> &parts)
{
    bytes all;
    for (const bytes &part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

inline bytes annexb_of(const std::vector<bytes> &units)
{
    bytes all;
    for (const bytes &unit : units) {
        all.insert(all.end(), {0, 0, 0, 1});
        all.insert(all.end(), unit.begin(), unit.end());
    }
    return all;
}

// What the two payload formats (RFC 6184, RFC 7798) have each for itself.
struct payload_format {
    const char *name;
    uint8_t codec;
    size_t header_size;         // of a NAL unit
    std::vector<bytes> sets;    // parameter sets, which a key frame begins with
    bytes key_slice_header;     // NAL unit header
    bytes delta_slice_header;   // NAL unit header
    bytes aggregate_header;     // payload header
    bytes delta_fragment_start; // payload header of a fragment of a delta slice
    bytes delta_fragment_middle;
    bytes delta_fragment_end;
    bytes delta_fragment_whole; // start and end
};

inline const payload_format &h264()
{
    static const payload_format made = {
        "H264",       VIDEO_TYPE_H264, 1,           {{0x67, 0x42, 0x00, 0x1F, 0x95}, {0x68, 0xCE, 0x38, 0x80}},
        {0x65},       {0x61},          {0x78},      {0x7C, 0x81},
        {0x7C, 0x01}, {0x7C, 0x41},    {0x7C, 0xC1}};
    return made;
}

inline const payload_format &h265()
{
    static const payload_format made = {"H265",
                                        VIDEO_TYPE_H265,
                                        2,
                                        {{0x40, 0x01, 0x0C, 0x01}, {0x42, 0x01, 0x01, 0x01}, {0x44, 0x01, 0xC1, 0x72}},
                                        {0x26, 0x01},
                                        {0x02, 0x01},
                                        {0x60, 0x01},
                                        {0x62, 0x01, 0x81},
                                        {0x62, 0x01, 0x01},
                                        {0x62, 0x01, 0x41},
                                        {0x62, 0x01, 0xC1}};
    return made;
}

// A slice of `size` bytes with its header; the first one of its picture says so. No start code can come about in it.
inline bytes slice(const bytes &header, size_t size, bool is_first, uint32_t salt = 0)
{
    bytes unit = header;
    for (uint32_t i = 0; unit.size() < size; i++) {
        unit.push_back(static_cast<uint8_t>(1 + (i * 7 + salt * 13) % 100));
    }
    if (unit.size() > header.size()) {
        unit[header.size()] = static_cast<uint8_t>(unit[header.size()] | (is_first ? 0x80 : 0));
    }
    return unit;
}

inline bytes sized(const bytes &unit)
{
    return joined({{static_cast<uint8_t>(unit.size() >> 8), static_cast<uint8_t>(unit.size())}, unit});
}

inline bytes aggregate(const payload_format &format, const std::vector<bytes> &units)
{
    bytes payload = format.aggregate_header;
    for (const bytes &unit : units) {
        payload = joined({payload, sized(unit)});
    }
    return payload;
}

enum class transport {
    RTP,
    NATIVE
};

// Sends frames one behind the other; every packet comes at once, and then 30 ms pass.
class Sender
{
  public:
    uint16_t seq = 65530;
    uint32_t timestamp = 0xFFFFFFFF - 4500;
    uint32_t frame_seq = 0xFFFFFFFF;
    uint32_t encapsulation = 0; // native: `reserved` of the header

    Sender(Client *client, const payload_format &format, transport path) : client_(client), format_(format), path_(path)
    {
        rtc_channel_set_payload_type(client->channel, 96, format.codec);
    }

    // A key frame in single NAL unit packets. Gives back its units.
    std::vector<bytes> key_frame()
    {
        std::vector<bytes> units = format_.sets;
        units.push_back(slice(format_.key_slice_header, 50, true));
        frame(units, true);
        return units;
    }

    void frame(const std::vector<bytes> &payloads, bool is_key = false)
    {
        for (size_t i = 0; i < payloads.size(); i++) {
            send(payloads, i, is_key);
        }
        seq = static_cast<uint16_t>(seq + payloads.size());
        timestamp += 2700;
        frame_seq++;
        client_->pass(30);
    }

    uint32_t uid() const
    {
        return 0x11223344;
    }

  private:
    Client *client_;
    const payload_format &format_;
    transport path_;

    void send(const std::vector<bytes> &payloads, size_t index, bool is_key)
    {
        rtp_builder::rtp_fields fields;
        fields.seq = static_cast<uint16_t>(seq + index);
        fields.timestamp = timestamp;
        fields.marker = index + 1 == payloads.size();
        fields.payload = payloads[index];
        if (path_ == transport::RTP) {
            client_->receive(rtp_packet(fields));
            return;
        }
        fields.payload_type = encapsulation != 0 ? 116 : 96;
        const bytes packet = rtp_packet(fields);
        PVideoData4 video = {};
        video.common.uid = uid();
        video.common.seq = fields.seq;
        video.header.frame_seq = frame_seq;
        video.header.n_pkts = static_cast<uint16_t>(payloads.size());
        video.header.subseq = static_cast<uint16_t>(index);
        video.header.video_type = is_key ? 0x00 : 0x10;
        video.header.codec = format_.codec;
        video.header.protocol_version = 10;
        video.header.reserved = encapsulation;
        video.payload.values = zeb_malloc_impl_dbg(packet.size(), __func__, __LINE__);
        video.payload.count = video.payload.allocated = static_cast<uint16_t>(packet.size());
        memcpy(video.payload.values, packet.data(), packet.size());
        rtc_channel_receive_native(client_->channel, &video, 0, false, &client_->now);
    }
};

// Both payload formats on both paths.
struct way {
    const payload_format *format;
    transport path;
};

inline void PrintTo(const way &way, std::ostream *out)
{
    *out << way.format->name;
}

inline std::string way_name(const testing::TestParamInfo<way> &info)
{
    return std::string(info.param.format->name) + (info.param.path == transport::RTP ? "OverRtp" : "Native");
}

inline auto all_ways()
{
    return testing::Values(way{&h264(), transport::RTP}, way{&h265(), transport::RTP}, way{&h264(), transport::NATIVE},
                           way{&h265(), transport::NATIVE});
}

} // namespace payload_sender
