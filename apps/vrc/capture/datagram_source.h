// The datagrams of a capture as the receiver sees them: decrypted where keys are known.
#pragma once

#include <cstdint>
#include <vector>

#include "capture/capture_reader.h"
#include "srtp/srtp_session.h"

namespace vrc
{

// Reads a capture from its beginning. Throws what capture_reader and srtp_session throw.
class datagram_source
{
  public:
    // Without keys everything is taken as it is. `file` must outlive the object.
    datagram_source(const capture_file &file, const std::vector<sdp_crypto> &keys) : reader_(file), srtp_(keys)
    {
    }

    // As capture_reader::next; datagrams that cannot be decrypted are counted and left out.
    bool next(captured_datagram *datagram);

    const capture_counts &counts() const
    {
        return reader_.counts();
    }

    const srtp_counts &decryption() const
    {
        return srtp_.counts();
    }

    uint64_t position() const
    {
        return reader_.position();
    }

  private:
    capture_reader reader_;
    srtp_session srtp_;
};

} // namespace vrc
