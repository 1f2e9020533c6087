// Writes what arrives as a capture.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "capture/datagram_parser.h"
#include "output/output_file.h"

namespace vrc
{

// The datagram behind UDP and IP headers with their checksums, as it would stand on a link without headers of its
// own. Both ends are of the source's IP version. Payloads are cut to what fits an IP packet.
std::vector<uint8_t> ip_packet_make(const udp_datagram &datagram);

// A file in the classic capture format: raw IP, stamps in microseconds.
class packet_recorder
{
  public:
    // Throws failure (no_access) when the file cannot be created.
    explicit packet_recorder(const std::string &path);

    // Writes one datagram that came `stamp_us` microseconds after 1970. Returns false when this or an earlier write
    // failed.
    bool write(uint64_t stamp_us, const udp_datagram &datagram);

    // Throws failure (no_access) when something could not be written.
    void close()
    {
        file_.close();
    }

  private:
    output_file file_;
};

} // namespace vrc
