// Reads pcap and pcapng.
#pragma once

#include <memory>

#include "capture/capture_file.h"
#include "capture/frame_source.h"

struct pcap;

namespace vrc
{

class pcap_source : public frame_source
{
  public:
    // Throws failure (no_access) when the file is no capture or its link type is not known. `file` must outlive the
    // object.
    explicit pcap_source(const capture_file &file);

    bool next(captured_frame *frame, std::string *damage) override;
    uint64_t position() const override;

  private:
    const capture_file &file_;
    std::unique_ptr<pcap, void (*)(pcap *)> pcap_;
    int link_type_ = 0;
};

} // namespace vrc
