// The module through its exported functions: each input is a little program of operations on three streams of one
// service. After each operation the stream's invariants hold, and every block that is allocated hangs from a stream.
// The layers around are the recorders of the unit tests; make_seeds writes programs in this encoding.

#include <algorithm>
#include <iterator>
#include <memory>
#include <set>

#include <gtest/gtest.h>

#include "check.h"
#include "fake_layers.h"
#include "fuzz_input.h"
#include "owned_memory.h"
#include "packets.h"
#include "test_stream.h"

using namespace test_support;

namespace
{

constexpr size_t kOperationsMax = 600;
constexpr uint16_t kPacketsOfFrameMax = 1280; // more are let into few frames of an input: each takes a megabyte
constexpr size_t kHugeFramesMax = 2;

// Where numbers wrap, and where slots do.
constexpr uint32_t kFrameOrigins[] = {1000, 0xFFFFFFF8u, 0, 0x7FFFFFF8u};
constexpr uint16_t kSeqOrigins[] = {1000, 0xFFF8, 0x1FF8, 0x7FF8};
constexpr uint32_t kTimestampOrigins[] = {90000, 0xFFFFE000u, 0, 0x7FFFE000u};
constexpr zeb_ts_t kTimeOrigins[] = {100000, 1, 0xFFFFFF00u, zeb_ts_t{1} << 62};
constexpr uint32_t kTimestampStep = 3000;

constexpr uint16_t kPacketCounts[] = {0, 1279, 1280, 1281, 4096, 32768, 65535};
constexpr int kCodecs[] = {VIDEO_TYPE_H264,
                           VIDEO_TYPE_H265,
                           VIDEO_TYPE_GENERIC,
                           VIDEO_TYPE_GENERIC_H264,
                           VIDEO_TYPE_GENERIC_JPEG,
                           VIDEO_TYPE_VP8,
                           0,
                           VIDEO_TYPE_UNKNOWN};
constexpr PACKETIZER_TYPE kPacketizers[] = {PACKETIZER_TYPE_GENERIC, PACKETIZER_TYPE_H264, PACKETIZER_TYPE_H265,
                                            PACKETIZER_TYPE_UNKNOWN};

class Program
{
  public:
    explicit Program(fuzz::Input &input);
    ~Program();
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;

    void run();

  private:
    enum which {
        kMain,  // of a remote user; reports feedback where the channel wants it
        kOther, // of the same user
        kLocal, // of the local user
        kStreams
    };

    void get_streams();
    void run_operation(uint8_t code);
    void check_all();

    // Operations: each takes its own bytes.
    void insert_native();
    void process_rtp();
    void pass_time();
    void remove_or_delete();
    void assemble();
    void look_up();
    void move_expected();
    void report();
    void reset();
    void renew_cache();
    void clean_up();
    void refuse_memory();
    void move_origins();

    std::vector<uint8_t> packet_bytes(const rtp_fields &fields, bool is_raw);
    uint16_t packet_count();
    video_frame *any_slot();
    void pass_deliveries_on();
    bool has_frame(const video_frame *frame) const;

    fuzz::Input &input_;
    World world_;
    rtc_service service_ = {};
    rtc_channel channel_ = {};
    rtc_user user_ = {};
    user_video_stream *streams_[kStreams] = {};
    which chosen_ = kMain;
    user_video_stream *stream_ = nullptr; // the chosen one; null while there is no memory for it
    zeb_ts_t now_;
    uint32_t frame_origin_;
    uint16_t seq_origin_;
    uint32_t timestamp_origin_;
    bool passes_on_; // deliveries of the reorder cache go into the frame queue
    size_t huge_frames_ = 0;
    size_t refused_at_ = SIZE_MAX; // requests from now on
    bool refuses_all_ = false;
};

Program::Program(fuzz::Input &input) : input_(input)
{
    const uint8_t origins = input_.u8();
    const uint8_t options = input_.u8();
    frame_origin_ = kFrameOrigins[origins & 3];
    seq_origin_ = kSeqOrigins[origins >> 2 & 3];
    timestamp_origin_ = kTimestampOrigins[origins >> 4 & 3];
    now_ = kTimeOrigins[origins >> 6];
    passes_on_ = (options & 1) != 0;
    world_.takes_payload = (options & 2) != 0;
    world_.no_analyzer = (options & 4) != 0;
    world_.silence_log();
    world_.refuse = [this](size_t, const allocation &request) {
        // Without its statistics object the process ends; the packets are this program's own.
        if (request.tag == "statistics" || request.tag == "test packet") {
            return false;
        }
        const bool is_refused = refuses_all_ || refused_at_ == 0;
        refused_at_ -= refused_at_ == SIZE_MAX ? 0 : 1;
        return is_refused;
    };
    rtc_list_init(&service_.free_user_video_streams);
    rtc_list_init(&channel_.video_stream_q);
    rtc_list_init(&user_.video_streams_q);
    channel_.service = &service_;
    channel_.bandwidth_est_opt.enable_bandwidth_est_downlink = (options & 8) != 0;
    get_streams();
}

Program::~Program()
{
    service_video_streams_cleanup(&service_, &user_.video_streams_q, true);
    service_video_streams_cleanup(&service_, &channel_.video_stream_q, true);
    while (list_head *node = list_remove_head(&service_.free_user_video_streams.head)) {
        zeb_free_impl(node);
    }
    fuzz::check(world_.live.empty(), "nothing is allocated when the streams are gone");
}

void Program::get_streams()
{
    rtc_list_t *const remote = &user_.video_streams_q;
    streams_[kMain] = service_video_streams_get_video_stream(&service_, &user_, &channel_, remote, 0, 1, &now_);
    streams_[kOther] = service_video_streams_get_video_stream(&service_, &user_, &channel_, remote, 7, 1, nullptr);
    streams_[kLocal] =
        service_video_streams_get_video_stream_local(&service_, &channel_, &channel_.video_stream_q, 0, 1);
    stream_ = streams_[chosen_];
}

void Program::run()
{
    for (size_t i = 0; i < kOperationsMax && !input_.is_empty(); i++) {
        const uint8_t code = input_.u8();
        if (stream_ == nullptr) {
            get_streams();
        }
        run_operation(code);
        if (stream_ != nullptr) {
            pass_deliveries_on();
            fuzz::check_none(broken_invariants(*stream_));
        }
        check_all();
    }
}

void Program::run_operation(uint8_t code)
{
    using operation = void (Program::*)();
    static constexpr operation kOperations[] = {
        &Program::insert_native, &Program::process_rtp,   &Program::pass_time,     &Program::remove_or_delete,
        &Program::assemble,      &Program::look_up,       &Program::move_expected, &Program::report,
        &Program::reset,         &Program::renew_cache,   &Program::clean_up,      &Program::refuse_memory,
        &Program::move_origins,  &Program::insert_native, &Program::process_rtp,   &Program::process_rtp};

    if (stream_ != nullptr) {
        (this->*kOperations[code % std::size(kOperations)])();
    }
}

// What is allocated is exactly what hangs from the streams: nothing is lost, nothing is freed that is still named.
void Program::check_all()
{
    static std::vector<const void *> owned; // keeps its room
    owned.clear();
    const auto collect_list = [](const rtc_list_t &list, bool is_live) {
        size_t n = 0;
        for (const list_head *node = list.head.next; node != &list.head; node = node->next, n++) {
            owned.push_back(node);
            if (is_live) {
                fuzz::collect_owned(*reinterpret_cast<const user_video_stream *>(node), &owned);
            }
        }
        fuzz::check(n == list.count, "a list counts its elements");
    };
    collect_list(user_.video_streams_q, true);
    collect_list(channel_.video_stream_q, true);
    collect_list(service_.free_user_video_streams, false);
    owned.erase(std::remove(owned.begin(), owned.end(), nullptr), owned.end());
    for (const void *block : owned) {
        fuzz::check(world_.live.count(const_cast<void *>(block)) == 1, "what a stream names is allocated");
    }
    fuzz::check(owned.size() == world_.live.size(), "what is allocated hangs from a stream, once");
}

// ---- Packets ----

std::vector<uint8_t> Program::packet_bytes(const rtp_fields &fields, bool is_raw)
{
    const uint8_t size = input_.u8();
    if (is_raw) {
        return input_.bytes(size);
    }
    return rtp_bytes(fields, std::vector<uint8_t>(size, static_cast<uint8_t>(size)));
}

uint16_t Program::packet_count()
{
    const uint8_t code = input_.u8();
    if (code < 200) {
        return code;
    }
    const auto count = static_cast<uint16_t>(code < 249 ? (code - 199) * 32 : kPacketCounts[code - 249]);
    if (count <= kPacketsOfFrameMax) {
        return count;
    }
    return huge_frames_++ < kHugeFramesMax ? count : kPacketsOfFrameMax;
}

// Frames have four packets unless they say otherwise: their numbers touch then, and overlap when they have more.
void Program::insert_native()
{
    const uint8_t flags = input_.u8();
    const uint8_t kind = input_.u8();
    native_fields fields;
    fields.frame_seq = (flags & 1) != 0 ? input_.u32() : frame_origin_ + input_.step();
    fields.n_pkts = packet_count();
    fields.subseq = (flags & 2) != 0 ? input_.u16() : input_.u8();
    fields.seq = static_cast<seq_t>((flags & 4) != 0 ? input_.u16() : fields.frame_seq * 4 + fields.subseq);
    fields.video_type = (flags & 8) != 0 ? kKey : kDelta;
    fields.codec = static_cast<uint8_t>(kCodecs[kind & 7]);
    fields.protocol_version = (kind & 8) != 0 ? 9 : 10;
    fields.reserved = (kind & 0x70u) >> 1 | ((flags & 0x10) != 0 ? uint32_t{input_.u8()} << 8 : 0);
    fields.sent_ts = static_cast<uint16_t>(now_);
    fields.rtp.seq = fields.seq;
    fields.rtp.timestamp = fields.frame_seq * kTimestampStep;
    fields.rtp.payload_type = (kind & 0x80) != 0 ? 116 : 96;
    PVideoData4 video = native_packet(fields);
    release(&video);
    video.payload = packet_with(packet_bytes(fields.rtp, (flags & 0x20) != 0)).payload;
    const video_frame *frame = video_stream_insert_video_packet(stream_, &video, (flags & 0x40) != 0, &now_);
    fuzz::check(frame == nullptr || has_frame(frame), "a packet's frame is one of the queue's");
    release(&video);
}

void Program::process_rtp()
{
    const uint8_t flags = input_.u8();
    const auto seq_step = static_cast<uint16_t>(input_.step());
    const uint16_t seq = (flags & 1) != 0 ? input_.u16() : static_cast<uint16_t>(seq_origin_ + seq_step);
    const auto timestamp_step = input_.step();
    rtp_fields fields;
    fields.seq = seq;
    fields.timestamp = (flags & 2) != 0 ? input_.u32() : timestamp_origin_ + kTimestampStep * timestamp_step;
    fields.marker = (flags & 4) != 0;
    PVideoData4 video = packet_with(packet_bytes(fields, (flags & 0x20) != 0));
    video.common.seq = seq;
    video.header.video_type = (flags & 8) != 0 ? kKey : kDelta;
    video.header.codec = VIDEO_TYPE_H264;
    video.header.protocol_version = 10;
    webrtc_video_cache_process(&stream_->video_cache_q, &video, (flags & 0x10) != 0, &now_);
    release(&video);
    if ((flags & 0x40) != 0) {
        seq_origin_ = static_cast<uint16_t>(seq + 1);
        timestamp_origin_ = fields.timestamp;
    }
}

// The channel layer's part, at its simplest.
void Program::pass_deliveries_on()
{
    for (const added_packet &packet : world_.added) {
        if (!passes_on_) {
            break;
        }
        PVideoData4 video = packet_with(packet.payload);
        video.common.seq = packet.seq;
        video.header.frame_seq = packet.frame_seq;
        video.header.subseq = packet.subseq;
        video.header.n_pkts = packet.n_pkts;
        video_stream_insert_video_packet(packet.stream, &video, 0, &now_);
        release(&video);
    }
    world_.added.clear();
    world_.allocations.clear();
}

// ---- Everything else ----

void Program::pass_time()
{
    const uint8_t code = input_.u8();
    now_ += (code & 0x80) != 0 ? (code & 0x7Fu) * 100 : code;
    webrtc_video_cache_check_deliver(&stream_->video_cache_q, &now_);
}

video_frame *Program::any_slot()
{
    return &stream_->video_frames_q.video_frames[input_.u8() % VIDEO_FRAMES_Q_SLOTS];
}

bool Program::has_frame(const video_frame *frame) const
{
    const video_frame *slots = stream_->video_frames_q.video_frames;
    return frame >= slots && frame < slots + VIDEO_FRAMES_Q_SLOTS;
}

void Program::remove_or_delete()
{
    video_frame *frame = any_slot();
    const uint8_t way = input_.u8();
    if (way % 4 == 3) {
        video_stream_delete_frame(stream_, frame);
        return;
    }
    if (way % 4 == 1) {
        frame = video_frames_q_get_min_seq_frame(&stream_->video_frames_q);
    } else if (way % 4 == 2) {
        frame = video_frames_q_get_max_seq_frame(&stream_->video_frames_q);
    }
    if (frame != nullptr) {
        const int result = video_stream_remove_frame(stream_, frame);
        fuzz::check(result == 0 || result == -1, "removal gives 0 or -1");
    }
}

// A header that claims more than its packet has makes a view that no caller may go on with.
bool is_within(const rtn_bytes_t &view, const rtn_bytes_t &packet)
{
    const auto begin = reinterpret_cast<uintptr_t>(packet.values);
    const auto from = reinterpret_cast<uintptr_t>(view.values);
    return view.count == 0 || (from >= begin && from + view.count <= begin + packet.count);
}

void Program::assemble()
{
    const video_frame *frame = any_slot();
    const PACKETIZER_TYPE packetizer = kPacketizers[input_.u8() & 3];
    if (frame->n_pkts_total == 0) {
        return;
    }
    video_frame parsed = {};
    video_frame_parse_payload(frame, &parsed);
    bool is_sound = true;
    for (size_t i = 0; parsed.pkts != nullptr && i < parsed.n_pkts_total; i++) {
        is_sound = is_sound && is_within(parsed.pkts[i], frame->pkts[i]);
    }
    if (is_sound) {
        size_t size = 0;
        uint8_t *bitstream = video_frame_regroup_pkts(&parsed, packetizer, &size);
        fuzz::check(bitstream == nullptr || size != 0, "a bitstream has a size");
        zeb_free_impl(bitstream);
    }
    zeb_free_impl(parsed.pkts);
    world_.depacketized.clear();
}

void Program::look_up()
{
    rtc_video_frames_t *q = &stream_->video_frames_q;
    video_frame *frame = any_slot();
    const video_frame *next = video_frames_q_next_frame(q, frame);
    const video_frame *prev = video_frames_q_prev_frame(q, frame);
    const video_frame *found = video_stream_find_frame_by_pkt_seq(stream_, input_.u16());
    fuzz::check(next == nullptr || (has_frame(next) && next->n_pkts_total != 0), "the next frame is there");
    fuzz::check(prev == nullptr || (has_frame(prev) && prev->n_pkts_total != 0), "the previous frame is there");
    fuzz::check(found == nullptr || (has_frame(found) && found->n_pkts_total != 0), "the frame found is there");
    fuzz::check((video_frames_q_get_min_frame_seq(q) == -1) == (q->count == 0), "an empty queue has no bounds");
    fuzz::check((video_frames_q_get_max_frame_seq(q) == -1) == (q->count == 0), "an empty queue has no bounds");
    webrtc_video_cache_dump(&stream_->video_cache_q);
}

void Program::move_expected()
{
    const uint8_t way = input_.u8();
    if ((way & 1) != 0) {
        video_stream_pkt_seq_move_forward(stream_, input_.u16());
    } else {
        video_frame *frame = any_slot();
        video_stream_pkt_seq_auto_forward(stream_, frame, way >> 1);
    }
}

void Program::report()
{
    const uint8_t way = input_.u8();
    stream_->is_nass = (way & 0x80) == 0;
    if (stream_->bcm_stat != nullptr) {
        stream_->bcm_stat->use_sent_ts_enable_ = (way & 0x40) != 0;
    }
    switch (way & 3) {
    case 0:
        video_stream_send_goodbad_pic(stream_, any_slot(), (way & 4) != 0, &now_);
        break;
    case 1:
        video_stream_check_send_goodbad_pic(stream_, &now_);
        break;
    default: {
        const std::vector<uint8_t> bytes = input_.bytes(way >> 2 & 15);
        PVideoData4 video = packet_with(bytes);
        video_stream_send_bandwidth_est(stream_, &video, (way & 1) != 0, &now_);
        release(&video);
    }
    }
    world_.decode_results.clear();
    world_.samples.clear();
}

void Program::reset()
{
    const uint8_t way = input_.u8();
    if ((way & 2) != 0) {
        webrtc_video_cache_reset(&stream_->video_cache_q);
    } else {
        video_stream_reset(stream_, (way & 1) != 0);
    }
}

void Program::renew_cache()
{
    const uint8_t way = input_.u8();
    webrtc_video_cache_fini(&stream_->video_cache_q);
    if ((way & 1) != 0) {
        webrtc_video_cache_init(&stream_->video_cache_q, stream_);
    }
    if ((way & 2) != 0) {
        webrtc_video_cache_alloc(&stream_->video_cache_q);
    }
}

void Program::clean_up()
{
    const uint8_t way = input_.u8();
    rtc_list_t *list = (way & 1) != 0 ? &channel_.video_stream_q : &user_.video_streams_q;
    service_video_streams_cleanup(&service_, list, (way & 2) != 0);
    chosen_ = static_cast<which>((way >> 2) % kStreams);
    get_streams();
}

void Program::refuse_memory()
{
    const uint8_t way = input_.u8();
    refuses_all_ = way == 0xFF;
    refused_at_ = way == 0 ? SIZE_MAX : way - 1u;
}

void Program::move_origins()
{
    frame_origin_ += input_.step();
    const auto steps = input_.step();
    seq_origin_ = static_cast<uint16_t>(seq_origin_ + steps * 64);
    timestamp_origin_ += steps * 64 * kTimestampStep;
}

// What the recorders find wrong, a second release say, ends the run.
class Abort : public testing::EmptyTestEventListener
{
    void OnTestPartResult(const testing::TestPartResult &result) override
    {
        fuzz::check(!result.failed(), result.message());
    }
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    testing::UnitTest::GetInstance()->listeners().Append(new Abort);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    Program(input).run();
    return 0;
}
