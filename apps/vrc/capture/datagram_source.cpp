#include "capture/datagram_source.h"

namespace vrc
{

bool datagram_source::next(captured_datagram *datagram)
{
    while (reader_.next(datagram)) {
        const zeb_ts_t now = datagram->elapsed_us / 1000;
        if (srtp_.unprotect(datagram->udp.path.source, &datagram->udp.payload, now)) {
            return true;
        }
    }
    return false;
}

} // namespace vrc
