// Reads the UDP datagrams of a capture, one after the other.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "capture/capture_file.h"
#include "capture/datagram_parser.h"
#include "capture/frame_source.h"
#include "capture_clock.h"

namespace vrc
{

// What the frames of a capture were.
struct capture_counts {
    uint64_t frames = 0;
    uint64_t udp = 0;
    uint64_t not_udp = 0;   // IP of another protocol, or no IP
    uint64_t fragments = 0; // of IP packets, skipped
    uint64_t truncated = 0; // cut by the capture's snap length, skipped
    uint64_t damaged = 0;   // unreadable, skipped
    uint64_t clock_steps_back = 0;
    uint64_t largest_clock_step_back_us = 0;
    uint64_t duration_us = 0; // from the first frame to the last
    std::string damage;       // why reading ended before the end of the file; empty when it did not
};

struct captured_datagram {
    uint64_t elapsed_us = 0; // since the capture's first frame; never decreases
    udp_datagram udp;        // valid until the next one is read
};

// Reads pcap, pcapng and rtpdump files. The constructor throws failure (no_access) when the file is no capture or its link
// type is not known. `file` must outlive the reader.
class capture_reader
{
  public:
    explicit capture_reader(const capture_file &file);

    // Moves to the next datagram. False at the end of the capture or where it is damaged; counts().damage tells
    // which. Throws failure (no_access) when the file can no longer be read.
    bool next(captured_datagram *datagram);

    const capture_counts &counts() const
    {
        return counts_;
    }

    // How far into the file, bytes; runs ahead by what is buffered.
    uint64_t position() const;

  private:
    void count(frame_kind kind);

    std::unique_ptr<frame_source> source_;
    capture_clock clock_;
    capture_counts counts_;
};

} // namespace vrc
