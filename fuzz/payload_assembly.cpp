// From the packets of a native frame to its bitstream: any headers, any payloads, each way of joining them.

#include "check.h"
#include "depacketize.h"

namespace
{

constexpr size_t kPacketsMax = 64;
constexpr PACKETIZER_TYPE kPacketizers[] = {PACKETIZER_TYPE_GENERIC, PACKETIZER_TYPE_H264, PACKETIZER_TYPE_H265,
                                            PACKETIZER_TYPE_UNKNOWN};

// A frame of the queue with all that it owns.
class Frame
{
  public:
    explicit Frame(fuzz::Input &input)
    {
        record.codec = input.u8();
        record.protocol_version = input.u8();
        record.reserved = input.u16();
        record.n_pkts_total = static_cast<uint16_t>(1 + input.u8() % kPacketsMax);
        record.n_pkts_fec = (record.reserved >> 8) & 0xFF;
        record.n_pkts_media = static_cast<uint16_t>(record.n_pkts_total - record.n_pkts_fec);
        bytes_.resize(record.n_pkts_total);
        packets_.resize(record.n_pkts_total);
        status_.resize(record.n_pkts_total);
        for (size_t i = 0; i < packets_.size() && !input.is_empty(); i++) {
            bytes_[i] = fuzz::next_packet(&input, input.u8());
            const auto count = static_cast<uint16_t>(bytes_[i].size());
            packets_[i] = {count, count, bytes_[i].data()};
            status_[i].is_received = count != 0;
        }
        record.pkts = packets_.data();
        record.pkts_status = status_.data();
    }

    video_frame record = {};

  private:
    std::vector<std::vector<uint8_t>> bytes_;
    std::vector<rtn_bytes_t> packets_;
    std::vector<video_packet_status_t> status_;
};

// A header that claims more than its packet has makes a view that no caller may go on with.
bool are_sound(const video_frame &parsed, const video_frame &frame)
{
    for (size_t i = 0; i < frame.n_pkts_total; i++) {
        const auto begin = reinterpret_cast<uintptr_t>(frame.pkts[i].values);
        const auto from = reinterpret_cast<uintptr_t>(parsed.pkts[i].values);
        const size_t count = parsed.pkts[i].count;
        if (count != 0 && (from < begin || from + count > begin + frame.pkts[i].count)) {
            return false;
        }
    }
    return true;
}

void regroup(video_frame *frame)
{
    size_t room = 0;
    for (size_t i = 0; i < frame->n_pkts_total; i++) {
        room += frame->pkts[i].count + fuzz::kRoomOfPacket;
    }
    for (const PACKETIZER_TYPE packetizer : kPacketizers) {
        size_t size = 0;
        uint8_t *bitstream = video_frame_regroup_pkts(frame, packetizer, &size);
        fuzz::check((bitstream == nullptr) == (size == 0), "a bitstream has a size, and nothing has none");
        fuzz::check(size <= room, "a bitstream is no longer than its packets allow");
        unsigned sum = 0;
        for (size_t i = 0; i < size; i++) {
            sum += bitstream[i];
        }
        fuzz::check(sum <= size * 255, "every byte can be read");
        zeb_free_impl(bitstream);
    }
}

// The payloads of a frame's media packets.
std::vector<fuzz::bytes> payloads_of(const video_frame &parsed)
{
    std::vector<fuzz::bytes> payloads;
    for (size_t i = 0; i < parsed.n_pkts_media && i < parsed.n_pkts_total; i++) {
        const auto *begin = static_cast<const uint8_t *>(parsed.pkts[i].values);
        payloads.emplace_back(begin, begin + parsed.pkts[i].count);
    }
    return payloads;
}

// A whole frame without fault is its NAL units, each of them and nothing else.
void check_units(video_frame *parsed, const fuzz::depacketizer_of &format, PACKETIZER_TYPE packetizer)
{
    const std::vector<fuzz::bytes> payloads = payloads_of(*parsed);
    const auto units = fuzz::units_of(format.codec, payloads);
    const payload_fault_e fault = fuzz::fault_of(format.codec, payloads);
    fuzz::check((fault == PAYLOAD_FAULTS || fault == PAYLOAD_FAULT_NO_ROOM) || !units, "whole units are no fault");
    if (fault != PAYLOAD_FAULTS) {
        return;
    }
    size_t size = 0;
    uint8_t *bitstream = video_frame_regroup_pkts(parsed, packetizer, &size);
    fuzz::check(units && fuzz::bytes(bitstream, bitstream + size) == fuzz::annexb_of(*units),
                "the units that went in come out");
    zeb_free_impl(bitstream);
}

bool is_whole(const video_frame &frame)
{
    for (size_t i = 0; i < frame.n_pkts_total; i++) {
        if (frame.pkts_status[i].is_received == 0) {
            return false;
        }
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    g_log_enable = 0;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    Frame frame(input);
    video_frame parsed = {};
    video_frame_parse_payload(&frame.record, &parsed);
    if (are_sound(parsed, frame.record)) {
        regroup(&parsed);
        if (is_whole(frame.record)) {
            check_units(&parsed, {VIDEO_TYPE_H264, depacketizer_h264_packet}, PACKETIZER_TYPE_H264);
            check_units(&parsed, {VIDEO_TYPE_H265, depacketizer_h265_packet}, PACKETIZER_TYPE_H265);
        }
    }
    regroup(&frame.record);
    zeb_free_impl(parsed.pkts);
    return 0;
}
