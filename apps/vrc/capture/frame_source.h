// What a capture file holds, whatever its format.
#pragma once

#include <cstdint>
#include <string>

#include "capture/datagram_parser.h"

namespace vrc
{

struct captured_frame {
    int64_t stamp_us = 0; // from any origin
    frame_kind kind = frame_kind::damaged;
    udp_datagram udp; // when `kind` is udp; valid until the next frame is read
};

class frame_source
{
  public:
    frame_source() = default;
    virtual ~frame_source() = default;
    frame_source(const frame_source &) = delete;
    frame_source &operator=(const frame_source &) = delete;

    // False at the end, or where the file is damaged; then `*damage` says what is wrong. Throws failure (no_access) when
    // the file can no longer be read.
    virtual bool next(captured_frame *frame, std::string *damage) = 0;

    // How far into the file, bytes; runs ahead by what is buffered.
    virtual uint64_t position() const = 0;
};

} // namespace vrc
