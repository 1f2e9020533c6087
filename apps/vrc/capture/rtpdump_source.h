// Reads the packet dumps of the RTP tools: RTP and RTCP packets without the layers below.
#pragma once

#include <cstdio>
#include <memory>
#include <vector>

#include "capture/capture_file.h"
#include "capture/frame_source.h"

namespace vrc
{

// True when a file begins as a dump does.
bool rtpdump_is_dump(const capture_file &file);

// A line "#!rtpplay1.0 ADDRESS/PORT", a binary header of 16 bytes, and packets behind headers of eight bytes. All
// packets have the same path: from the address in the binary header to the one in the first line.
class rtpdump_source : public frame_source
{
  public:
    // Throws failure (no_access) when the headers are not whole. `file` must outlive the object.
    explicit rtpdump_source(const capture_file &file);

    bool next(captured_frame *frame, std::string *damage) override;
    uint64_t position() const override;

  private:
    void header_read();
    size_t read(uint8_t *bytes, size_t size);

    const capture_file &file_;
    std::unique_ptr<std::FILE, int (*)(std::FILE *)> stream_;
    int64_t start_us_ = 0;
    flow path_;
    std::vector<uint8_t> packet_;
};

} // namespace vrc
