#include "live/payload_type_search.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace vrc
{
namespace
{

// Who is no video by then has had its chance.
constexpr uint64_t kPacketsToProve = 32;

bool is_same_host(const ip_address &left, const ip_address &right)
{
    return left.is_v6 == right.is_v6 && left.bytes == right.bytes;
}

} // namespace

payload_type_search::searched_stream *payload_type_search::find(const stream_identity &identity)
{
    for (searched_stream &one : streams_) {
        ++comparisons_;
        if (one.identity == identity) {
            return &one;
        }
    }
    return nullptr;
}

void payload_type_search::host_count(const ip_address &host, int change)
{
    for (searched_stream &one : streams_) {
        ++comparisons_;
        if (is_same_host(one.identity.path.source.address, host)) {
            one.host_streams += static_cast<size_t>(change);
        }
    }
}

void payload_type_search::make_room()
{
    const auto is_given_up_before = [](const searched_stream &left, const searched_stream &right) {
        return std::make_tuple(right.host_streams, left.standing, left.heard_at) <
               std::make_tuple(left.host_streams, right.standing, right.heard_at);
    };
    comparisons_ += streams_.size();
    const auto least = std::min_element(streams_.begin(), streams_.end(), is_given_up_before);
    const ip_address host = least->identity.path.source.address;
    std::swap(*least, streams_.back());
    streams_.pop_back();
    host_count(host, -1);
}

payload_type_search::searched_stream *payload_type_search::add(const stream_identity &identity)
{
    if (streams_.size() == kSearchedStreamsMax) {
        make_room();
    }
    const ip_address &host = identity.path.source.address;
    const auto others = std::count_if(streams_.begin(), streams_.end(), [&host](const searched_stream &one) {
        return is_same_host(one.identity.path.source.address, host);
    });
    comparisons_ += streams_.size();
    searched_stream added;
    added.identity = identity;
    added.host_streams = static_cast<size_t>(others);
    streams_.push_back(added);
    host_count(host, 1);
    return &streams_.back();
}

bool payload_type_search::observe(const udp_datagram &datagram, zeb_ts_t now)
{
    const std::optional<stream_identity> identity = stream_identity_read(datagram);
    const byte_view packet = datagram.payload;
    rtp_view view{};
    if (!identity || rtp_parse(packet.data(), packet.size(), &view) != PACKET_DROP_REASONS) {
        return false;
    }
    searched_stream *known = find(*identity);
    searched_stream *stream = known != nullptr ? known : add(*identity);
    stream->seen.observe(view, packet, now * 1000);
    stream->heard_at = ++packets_;
    const rtp_stream looks = stream->seen.describe(*identity);
    const bool has_had_its_chance = looks.packets >= kPacketsToProve && !looks.is_video();
    stream->standing = has_had_its_chance ? 0 : looks.likelihood;
    return looks.codec == codec_ && identity->payload_type >= kFirstDynamicType;
}

std::vector<rtp_stream> payload_type_search::streams() const
{
    std::vector<rtp_stream> found;
    for (const searched_stream &one : streams_) {
        found.push_back(one.seen.describe(one.identity));
    }
    std::stable_sort(found.begin(), found.end(), [](const rtp_stream &left, const rtp_stream &right) {
        return std::make_tuple(!left.is_video(), right.packets) < std::make_tuple(!right.is_video(), left.packets);
    });
    return found;
}

} // namespace vrc
