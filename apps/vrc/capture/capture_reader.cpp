#include "capture/capture_reader.h"

#include "capture/pcap_source.h"
#include "capture/rtpdump_source.h"

namespace vrc
{
namespace
{

std::unique_ptr<frame_source> source_open(const capture_file &file)
{
    if (rtpdump_is_dump(file)) {
        return std::make_unique<rtpdump_source>(file);
    }
    return std::make_unique<pcap_source>(file);
}

} // namespace

capture_reader::capture_reader(const capture_file &file) : source_(source_open(file))
{
}

void capture_reader::count(frame_kind kind)
{
    switch (kind) {
    case frame_kind::udp:
        ++counts_.udp;
        break;
    case frame_kind::not_ip:
    case frame_kind::not_udp:
        ++counts_.not_udp;
        break;
    case frame_kind::fragment:
        ++counts_.fragments;
        break;
    case frame_kind::truncated:
        ++counts_.truncated;
        break;
    case frame_kind::damaged:
        ++counts_.damaged;
        break;
    }
}

bool capture_reader::next(captured_datagram *datagram)
{
    captured_frame frame;
    while (source_->next(&frame, &counts_.damage)) {
        ++counts_.frames;
        datagram->elapsed_us = clock_.advance(frame.stamp_us);
        counts_.duration_us = datagram->elapsed_us;
        counts_.clock_steps_back = clock_.steps_back();
        counts_.largest_clock_step_back_us = clock_.largest_step_back_us();
        count(frame.kind);
        if (frame.kind == frame_kind::udp) {
            datagram->udp = frame.udp;
            return true;
        }
    }
    return false;
}

uint64_t capture_reader::position() const
{
    return source_->position();
}

} // namespace vrc
