#include "replay_options.h"

#include <cstdlib>
#include <cstring>

#include "video_stream.h"

bool replay_options_read(int argc, char **argv, replay_options *read)
{
    if (argc != 6) {
        return false;
    }
    read->capture = argv[1];
    read->output = argv[2];
    read->stream.ssrc = static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 0));
    read->stream.payload_type = static_cast<uint8_t>(std::strtoul(argv[4], nullptr, 0));
    read->codec = std::strcmp(argv[5], "h265") == 0 ? VIDEO_TYPE_H265 : VIDEO_TYPE_H264;
    return read->codec == VIDEO_TYPE_H265 || std::strcmp(argv[5], "h264") == 0;
}

bool replay_options_match(const replay_options &options, const captured_packet &packet)
{
    vrc::packet_owner owner = {};
    return vrc::packet_owner_read(packet.payload, packet.size, &owner) && owner.ssrc == options.stream.ssrc &&
           owner.payload_type == options.stream.payload_type;
}
