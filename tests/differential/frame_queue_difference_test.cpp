// The frame queue against its model: the same random operations on both, everything compared after each.
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "circle.h"
#include "differences.h"
#include "fake_layers.h"
#include "frame_queue_model.h"
#include "packets.h"
#include "test_stream.h"

using namespace differential;
using namespace test_support;

namespace
{

enum class what {
    insert,
    remove,
    release,
    move_forward,
    auto_forward,
    count,
    reset
};

// One step. Frames are numbered from the scene's first, and those after it follow the ones before.
struct operation {
    what kind;
    int frame_step; // from the newest frame so far
    int64_t far;    // added to the frame number
    int subseq;     // modulo the frame's packets, unless `beyond`
    int beyond;     // index behind the frame's packets
    int more_pkts;  // on top of the frame's packet count
    int seq_shift;  // added to the packet sequence number
    uint32_t n_fec; // in the header
    bool is_key;
    bool is_copied;
    size_t size; // bytes of the payload
    refused memory;
    uint64_t ms; // since the step before
};

struct scene {
    uint32_t first_frame;
    uint16_t first_pkt;
    int stride; // packet sequence numbers from frame to frame
    bool is_receiving;
};

std::ostream &operator<<(std::ostream &out, const operation &step)
{
    static const char *const names[] = {"insert",       "remove", "release", "move_forward",
                                        "auto_forward", "count",  "reset"};

    return out << "\n  " << names[static_cast<size_t>(step.kind)] << " frame_step " << step.frame_step << " far "
               << step.far << " subseq " << step.subseq << " beyond " << step.beyond << " more_pkts " << step.more_pkts
               << " seq_shift " << step.seq_shift << " n_fec " << step.n_fec << " key " << step.is_key << " copied "
               << step.is_copied << " size " << step.size << " refused " << static_cast<int>(step.memory) << " ms "
               << step.ms;
}

std::ostream &operator<<(std::ostream &out, const scene &where)
{
    return out << "first_frame " << where.first_frame << " first_pkt " << where.first_pkt << " stride " << where.stride
               << " receiving " << where.is_receiving;
}

rc::Gen<scene> scenes()
{
    return rc::gen::build<scene>(
        rc::gen::set(&scene::first_frame, rc::gen::element<uint32_t>(0, 39, 1000, 0xFFFFFFF0, 0x7FFFFFF0)),
        rc::gen::set(&scene::first_pkt, rc::gen::element<uint16_t>(0, 1270, 0xFFF0, 0x7FF0, 40000)),
        rc::gen::set(&scene::stride, rc::gen::element(4, 6, 2, 40, 32, 64, 1280, 900)),
        rc::gen::set(&scene::is_receiving, rc::gen::weightedElement<bool>({{3, true}, {1, false}})));
}

// A sender's packets for the most part; each value that is not one's own comes now and then.
rc::Gen<operation> operations()
{
    return rc::gen::build<operation>(
        rc::gen::set(&operation::kind, rc::gen::weightedElement<what>({{48, what::insert},
                                                                       {8, what::remove},
                                                                       {2, what::release},
                                                                       {2, what::move_forward},
                                                                       {4, what::auto_forward},
                                                                       {4, what::count},
                                                                       {1, what::reset}})),
        rc::gen::set(&operation::frame_step,
                     rc::gen::weightedElement<int>(
                         {{12, 0}, {8, 1}, {4, -1}, {2, 2}, {2, -2}, {1, -7}, {1, -20}, {1, -39}, {1, 9}, {1, 40}})),
        rc::gen::set(&operation::far, rc::gen::weightedElement<int64_t>({{60, 0},
                                                                         {1, 0x7FFFFFD8},
                                                                         {1, 0x80000000},
                                                                         {1, 0x80000001},
                                                                         {1, 0x80000028},
                                                                         {1, -0x7FFFFFFF},
                                                                         {1, 40},
                                                                         {1, -40}})),
        rc::gen::set(&operation::subseq, rc::gen::inRange(0, 6)),
        rc::gen::set(&operation::beyond, rc::gen::weightedElement<int>({{40, 0}, {1, 1}, {1, 3}})),
        rc::gen::set(&operation::more_pkts, rc::gen::weightedElement<int>({{40, 0}, {1, 1}, {1, -1}, {1, -4}})),
        rc::gen::set(&operation::seq_shift,
                     rc::gen::weightedElement<int>(
                         {{60, 0}, {1, 1}, {1, -1}, {1, 5}, {1, 1280}, {1, -1280}, {1, 0x8000}, {1, 0x7FFF}})),
        rc::gen::set(&operation::n_fec, rc::gen::weightedElement<uint32_t>({{6, 0}, {2, 1}, {1, 2}, {1, 9}})),
        rc::gen::set(&operation::is_key, rc::gen::weightedElement<bool>({{3, false}, {1, true}})),
        rc::gen::set(&operation::is_copied, rc::gen::arbitrary<bool>()),
        rc::gen::set(&operation::size, rc::gen::weightedElement<size_t>({{20, 13}, {1, 0}, {1, 1}, {1, 3}, {1, 5}})),
        rc::gen::set(
            &operation::memory,
            rc::gen::weightedElement<refused>(
                {{40, refused::nothing}, {1, refused::packets}, {1, refused::statuses}, {1, refused::payload}})),
        rc::gen::set(&operation::ms, rc::gen::inRange<uint64_t>(0, 50)));
}

// What the two do not agree in; empty when in nothing.
class FrameQueues
{
  public:
    explicit FrameQueues(const scene &where)
        : where_(where), surroundings_(where.is_receiving ? stream_kind::receiving : stream_kind::sending),
          stream_(surroundings_.stream), q_(surroundings_.q), model_(where.is_receiving)
    {
        world_.silence_log();
    }

    std::string run(const operation &step)
    {
        now_ += step.ms;
        do_step(step);
        const std::string broken = broken_invariants(*stream_);
        return broken.empty() ? compare() : broken;
    }

  private:
    native_fields fields_of(const operation &step)
    {
        native_fields fields;

        newest_ += step.frame_step > 0 ? step.frame_step : 0;
        const int64_t nth = step.frame_step > 0 ? newest_ : newest_ + step.frame_step;
        const int n_pkts = 1 + static_cast<int>(steps(0, nth, 5));
        fields.frame_seq = plus32(where_.first_frame, nth + step.far);
        fields.n_pkts = static_cast<uint16_t>(std::max(0, n_pkts + step.more_pkts));
        fields.subseq = static_cast<uint16_t>(step.beyond == 0 ? step.subseq % n_pkts : n_pkts + step.beyond - 1);
        fields.seq = plus16(where_.first_pkt, nth * where_.stride + fields.subseq + step.seq_shift);
        fields.sent_ts = static_cast<uint16_t>(now_ * 3);
        fields.reserved = 0xAB000000U | step.n_fec << 8;
        fields.video_type = step.is_key ? kKey : kDelta;
        fields.codec = static_cast<uint8_t>(now_);
        fields.protocol_version = static_cast<uint8_t>(now_ >> 4);
        fields.rtp = {plus16(fields.seq, 77), static_cast<uint32_t>(now_ * 90001), step.is_key,
                      static_cast<uint8_t>(now_ & 0x7F)};
        fields.body = {static_cast<uint8_t>(fields.seq)};
        return fields;
    }

    static const char *tag_of(refused memory)
    {
        return memory == refused::payload ? "zeb_dynamic_bytes_copy" : "video_frames_q_insert_video_packet";
    }

    void insert(const operation &step)
    {
        const native_fields fields = fields_of(step);
        bytes payload = rtp_bytes(fields.rtp, fields.body);
        PVideoData4 video = native_packet(fields);

        payload.resize(step.size);
        video.payload.count = static_cast<uint16_t>(step.size);
        if (step.memory != refused::nothing) {
            world_.refuse_tag(tag_of(step.memory), step.memory == refused::statuses ? 1 : 0);
        }
        const video_frame *frame = video_stream_insert_video_packet(stream_, &video, step.is_copied ? 1 : 0, &now_);
        world_.refuse = nullptr;
        release(&video);
        // A payload that is taken over needs no memory.
        const bool is_refused = step.memory != refused::payload || step.is_copied;
        const auto slot = model_.insert(fields, payload, is_refused ? step.memory : refused::nothing, now_);
        differences_.expect("returned slot", slot_of(frame), slot);
    }

    // A slot of a frame near the newest.
    size_t slot_near(const operation &step) const
    {
        return plus32(where_.first_frame, newest_ - step.subseq + step.frame_step) % 40;
    }

    uint16_t seq_near(const operation &step) const
    {
        return plus16(where_.first_pkt, newest_ * where_.stride + step.subseq + step.seq_shift - 5);
    }

    void do_step(const operation &step)
    {
        const size_t slot = slot_near(step);
        const uint16_t seq = seq_near(step);

        switch (step.kind) {
        case what::insert:
            insert(step);
            break;
        case what::remove:
            differences_.expect("removed", video_stream_remove_frame(stream_, &q_->video_frames[slot]),
                                model_.remove(slot) ? 0 : -1);
            break;
        case what::release:
            video_stream_delete_frame(stream_, &q_->video_frames[slot]);
            model_.release(slot);
            break;
        case what::move_forward:
            video_stream_pkt_seq_move_forward(stream_, seq);
            model_.move_forward(seq);
            break;
        case what::auto_forward:
            video_stream_pkt_seq_auto_forward(stream_, &q_->video_frames[slot], static_cast<uint16_t>(step.beyond));
            model_.auto_forward(slot, static_cast<uint16_t>(step.beyond));
            break;
        case what::count:
            q_->pkt_tc_pairs[seq % 1280].n = step.ms + 1;
            model_.counters[seq % 1280] = step.ms + 1;
            break;
        case what::reset:
            video_stream_reset(stream_, step.is_copied);
            model_.reset(step.is_copied);
            break;
        }
    }

    std::optional<size_t> slot_of(const video_frame *frame) const
    {
        return frame == nullptr ? std::nullopt : std::make_optional(static_cast<size_t>(frame - q_->video_frames));
    }

    std::string compare()
    {
        compare_stream();
        compare_index();
        for (size_t i = 0; i < model_.slots.size(); i++) {
            compare_frame(i);
            if ((i + n_steps_) % 8 == 0) {
                compare_lookups(i);
            }
        }
        n_steps_++;
        return differences_.take();
    }

    void compare_stream()
    {
        differences_.expect("count", q_->count, model_.count);
        differences_.expect("min_ts", q_->min_ts, model_.min_ts);
        differences_.expect("max_ts", q_->max_ts, model_.max_ts);
        differences_.expect("min_frame_seq", q_->min_frame_seq, model_.min_frame_seq);
        differences_.expect("max_frame_seq", q_->max_frame_seq, model_.max_frame_seq);
        differences_.expect("pkt_seq", stream_->pkt_seq, model_.expected ? uint32_t{*model_.expected} : 0xFFFFFFFF);
        differences_.expect("last_to_user_at", stream_->last_to_user_at, model_.last_to_user_at);
        differences_.expect("n_overlapped_frames_recent", stream_->n_overlapped_frames_recent, model_.n_overlapped);
        differences_.expect("n_key_recent", stream_->n_key_recent, model_.n_key);
        differences_.expect("lowest frame", video_frames_q_get_min_frame_seq(q_),
                            model_.count == 0 ? -1 : int64_t{model_.min_frame_seq});
        differences_.expect("highest frame", video_frames_q_get_max_frame_seq(q_),
                            model_.count == 0 ? -1 : int64_t{model_.max_frame_seq});
        const auto bound = [&](uint32_t frame_seq) {
            return model_.count == 0 ? std::nullopt : std::make_optional<size_t>(frame_seq % 40);
        };
        differences_.expect("lowest slot", slot_of(video_frames_q_get_min_seq_frame(q_)), bound(model_.min_frame_seq));
        differences_.expect("highest slot", slot_of(video_frames_q_get_max_seq_frame(q_)), bound(model_.max_frame_seq));
    }

    // Nearly all entries are free, and their counters 0.
    void compare_index()
    {
        size_t n_claimed = 0;
        size_t n_counting = 0;

        for (uint16_t i = 0; i < 1280; i++) {
            if (const int16_t slot = q_->pkt_frame_pos[i]; slot != -1) {
                const auto entry = model_.index.find(i);
                n_claimed++;
                differences_.within("index entry", i);
                differences_.expect("slot", slot,
                                    entry == model_.index.end() ? -1 : static_cast<int16_t>(entry->second));
            }
            if (const uint64_t n = q_->pkt_tc_pairs[i].n; n != 0) {
                const auto counter = model_.counters.find(i);
                n_counting++;
                differences_.within("index entry", i);
                differences_.expect("counter", n, counter == model_.counters.end() ? 0 : counter->second);
            }
        }
        differences_.expect("claimed index entries", n_claimed, model_.index.size());
        differences_.expect("counters that are not 0", n_counting, model_.counters.size());
    }

    void compare_frame(size_t slot)
    {
        const video_frame &real = q_->video_frames[slot];
        const FrameQueueModel::Frame &frame = model_.slots[slot];

        differences_.within("slot", static_cast<int64_t>(slot));
        differences_.expect("queued_ts", real.queued_ts, frame.queued_ts);
        differences_.expect("frame_seq", real.frame_seq, frame.frame_seq);
        differences_.expect("n_pkts_total", real.n_pkts_total, frame.n_pkts_total);
        differences_.expect("n_pkts_media", real.n_pkts_media, frame.n_pkts_media);
        differences_.expect("n_pkts_received", real.n_pkts_received, frame.n_pkts_received);
        differences_.expect("n_pkts_received_media", real.n_pkts_received_media, frame.n_pkts_received_media);
        differences_.expect("n_pkts_received_fec", real.n_pkts_received_fec, frame.n_pkts_received_fec);
        differences_.expect("n_pkts_fec", real.n_pkts_fec, frame.n_pkts_fec);
        differences_.expect("protocol_version", real.protocol_version, frame.protocol_version);
        differences_.expect("is_key_frame", real.is_key_frame, frame.is_key_frame ? 1 : 0);
        differences_.expect("is_complete", real.is_complete, frame.is_complete ? 1 : 0);
        differences_.expect("codec", real.codec, frame.codec);
        differences_.expect("payload_type", real.payload_type, frame.payload_type);
        differences_.expect("ts", real.ts, frame.ts);
        differences_.expect("reserved", real.reserved, frame.reserved);
        differences_.expect("first_pkt_seq", real.first_pkt_seq, frame.first_pkt_seq);
        differences_.expect("min_seq", real.min_seq, frame.min_seq);
        differences_.expect("max_seq", real.max_seq, frame.max_seq);
        differences_.expect("min_rtp_seq", real.min_rtp_seq, frame.min_rtp_seq);
        differences_.expect("max_rtp_seq", real.max_rtp_seq, frame.max_rtp_seq);
        differences_.expect("rtp_timestamp", real.rtp_timestamp, frame.rtp_timestamp);
        differences_.expect("rexfer_cnt", real.rexfer_cnt, frame.rexfer_cnt);
        for (uint16_t k = 0; k < std::min(real.n_pkts_total, frame.n_pkts_total); k++) {
            const auto *first = static_cast<const uint8_t *>(real.pkts[k].values);
            const auto stored = frame.pkts.find(k);
            differences_.within("packet", k);
            differences_.expect("payload", bytes(first, first + real.pkts[k].count),
                                stored == frame.pkts.end() ? bytes() : stored->second);
        }
    }

    void compare_lookups(size_t slot)
    {
        video_frame *frame = &q_->video_frames[slot];
        const FrameQueueModel::Frame &ours = model_.slots[slot];

        differences_.within("from slot", static_cast<int64_t>(slot));
        differences_.expect("next", slot_of(video_frames_q_next_frame(q_, frame)),
                            model_.count == 0 ? std::nullopt : model_.next(slot));
        differences_.expect("prev", slot_of(video_frames_q_prev_frame(q_, frame)),
                            model_.count == 0 ? std::nullopt : model_.prev(slot));
        for (const uint16_t seq : {plus16(ours.min_seq, -1), ours.min_seq, ours.max_seq, plus16(ours.max_seq, 1)}) {
            differences_.within("packet", seq);
            differences_.expect("found in slot", slot_of(video_stream_find_frame_by_pkt_seq(stream_, seq)),
                                model_.find_by_packet(seq));
        }
    }

    scene where_;
    World world_;
    TestStream surroundings_;
    user_video_stream *stream_;
    rtc_video_frames_t *q_;
    FrameQueueModel model_;
    Differences differences_;
    zeb_ts_t now_ = 100;
    int64_t newest_ = 0;
    size_t n_steps_ = 0;
};

} // namespace

RC_GTEST_PROP(FrameQueueAgainstItsModel, AgreesAfterEveryStep, ())
{
    const scene where = *scenes();
    const auto all = *rc::gen::scale(4.0, rc::gen::container<std::vector<operation>>(operations()));
    FrameQueues both(where);

    for (size_t i = 0; i < all.size(); i++) {
        const std::string difference = both.run(all[i]);
        if (!difference.empty()) {
            RC_FAIL("after step " + std::to_string(i) + ":\n" + difference);
        }
    }
}
