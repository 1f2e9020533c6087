// Reads the UDP datagrams of a capture file on the board: what tests/data has, that is, classic pcap in little-endian
// order with microseconds, Ethernet, IPv4.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

// One frame of the capture.
struct captured_packet {
    int64_t stamp_us;       // microseconds since 1970
    const uint8_t *payload; // of the UDP datagram, valid until the next one is read; null when the frame is none
    size_t size;            // bytes of it
};

class pcap_reader
{
  public:
    pcap_reader() = default;
    ~pcap_reader();
    pcap_reader(const pcap_reader &) = delete;
    pcap_reader &operator=(const pcap_reader &) = delete;

    // Opens the host's file `path`. False when it cannot be read or is no such capture.
    bool open(const char *path);

    // Reads the next frame. False at the end of the capture, or where it is cut off or damaged.
    bool next(captured_packet *packet);

  private:
    static constexpr size_t kFrameSizeMax = 65536; // bytes

    std::FILE *file_ = nullptr;
    uint8_t frame_[kFrameSizeMax] = {};
};
