#include "srtp/srtp_protector.h"

#include <srtp2/srtp.h>

namespace vrc
{
namespace
{

constexpr size_t kIndexSize = 4;
constexpr size_t kDatagramSizeMax = 65535;

} // namespace

byte_view srtp_protector::protect(byte_view datagram)
{
    if (datagram.size() > kDatagramSizeMax) {
        return {};
    }
    protected_.assign(datagram.data(), datagram.data() + datagram.size());
    protected_.resize(datagram.size() + SRTP_MAX_TRAILER_LEN + kIndexSize);
    int size = static_cast<int>(datagram.size());
    const srtp_err_status_t status =
        srtp_protect_rtcp_mki(context_.srtp.get(), protected_.data(), &size, context_.has_mki ? 1 : 0, 0);
    return status == srtp_err_status_ok ? byte_view(protected_.data(), static_cast<size_t>(size)) : byte_view();
}

} // namespace vrc
