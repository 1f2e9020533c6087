// What the images that receive live are told on their command line, and what they have of the client:
//
//     IMAGE OUTPUT PORT SSRC PAYLOAD_TYPE CODEC
#pragma once

#include <cstdio>

#include "api/channel.h"
#include "api/service.h"

// After the sender's BYE, milliseconds: longer than the receiver waits for what is missing.
constexpr zeb_ts_t kLiveSettled = 2'100;

struct live_options {
    const char *output; // the host's file, for the frames
    uint16_t port;      // of the board, RTP and RTCP
    uint32_t ssrc;
    uint8_t payload_type;
    uint8_t codec; // VIDEO_PACKET_TYPE, from "h264" or "h265"
};

// The client of an image. Belongs to whoever has the service.
struct live_client {
    rtc_service *service;
    rtc_channel *channel;
    std::FILE *output;
    uint32_t ssrc;
    bool cannot_write; // a frame
};

// Reads the arguments of main, which must stay. False when they are no such command line.
bool live_options_read(int argc, char **argv, live_options *read);

// True for RTCP on the port of RTP (RFC 5761, 4).
bool live_is_rtcp(const uint8_t *datagram, size_t size);

// Opens the output with a buffer of its own, which one client can have. False when it cannot be written.
bool live_client_open(live_client *self, const live_options &what);

// Makes service and channel; what is to be sent goes to `on_rtcp`. False without memory.
bool live_client_start(live_client *self, const live_options &what, channel_rtcp_callback on_rtcp);

// What happened to the sender's stream; null before its first packet.
const stream_report *live_client_report(const live_client &self);

// Closes the output, writes the counts to standard output and destroys the service. Returns the image's exit status: 0;
// 1 when no frame came out; 3 when the output cannot be written.
int live_client_finish(live_client *self);
