// What the images that replay a capture are told on their command line:
//
//     IMAGE CAPTURE OUTPUT SSRC PAYLOAD_TYPE CODEC
#pragma once

#include "packet_owner.h"
#include "pcap_reader.h"

struct replay_options {
    const char *capture;      // the host's file
    const char *output;       // the same, for the frames
    vrc::packet_owner stream; // which one to replay
    uint8_t codec;            // VIDEO_PACKET_TYPE, from "h264" or "h265"
};

// Reads the arguments of main, which must stay. False when they are no such command line.
bool replay_options_read(int argc, char **argv, replay_options *read);

// True for the RTP packets of the stream.
bool replay_options_match(const replay_options &options, const captured_packet &packet);
