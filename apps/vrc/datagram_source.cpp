#include "datagram_source.h"

namespace vrc
{

bool datagram_source::next(captured_datagram *datagram)
{
    while (reader_.next(datagram)) {
        if (srtp_.unprotect(&datagram->udp.payload)) {
            return true;
        }
    }
    return false;
}

} // namespace vrc
