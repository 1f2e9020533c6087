// The reorder cache against its model: the same random operations on both, everything compared after each.
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
#include "packets.h"
#include "reorder_cache_model.h"
#include "test_stream.h"

using namespace differential;
using namespace test_support;

namespace
{

using refused = ReorderCacheModel::refused;

enum class what {
    packet,
    check,
    give_up, // somebody names a frame as given up
    reset,
    start_anew
};

// One step. A sender numbers its packets one by one; what is not 0 or false goes another way.
struct operation {
    what kind;
    int lost;        // packets of the sender that never come, before this one
    int back;        // this many packets back, instead of the next
    int far;         // added to the sequence number
    int other_frame; // frames away from its own
    int64_t far_ts;  // added to the timestamp
    bool flips_key;
    bool flips_marker;
    bool is_retrans;
    refused memory;
    int64_t ms; // since the step before
};

struct scene {
    uint16_t first_seq;
    uint32_t first_ts;
    int length;   // packets of a frame
    int interval; // frames from key frame to key frame
    bool takes_payload;
};

std::ostream &operator<<(std::ostream &out, const operation &step)
{
    static const char *const names[] = {"packet", "check", "give_up", "reset", "start_anew"};

    return out << "\n  " << names[static_cast<size_t>(step.kind)] << " lost " << step.lost << " back " << step.back
               << " far " << step.far << " other_frame " << step.other_frame << " far_ts " << step.far_ts << " key "
               << step.flips_key << " marker " << step.flips_marker << " retrans " << step.is_retrans << " refused "
               << static_cast<int>(step.memory) << " ms " << step.ms;
}

std::ostream &operator<<(std::ostream &out, const scene &where)
{
    return out << "first_seq " << where.first_seq << " first_ts " << where.first_ts << " length " << where.length
               << " interval " << where.interval << " takes_payload " << where.takes_payload;
}

rc::Gen<scene> scenes()
{
    return rc::gen::build<scene>(
        rc::gen::set(&scene::first_seq, rc::gen::element<uint16_t>(0, 8180, 0xFFF0, 0x7FF0, 40000)),
        rc::gen::set(&scene::first_ts, rc::gen::element<uint32_t>(0, 0xFFFF0000, 0x7FFF0000, 123456)),
        rc::gen::set(&scene::length, rc::gen::element(3, 1, 2, 5)),
        rc::gen::set(&scene::interval, rc::gen::element(4, 1, 2, 9)),
        rc::gen::set(&scene::takes_payload, rc::gen::arbitrary<bool>()));
}

template <typename Value> rc::Gen<Value> mostly(Value usual, size_t how_much, const std::vector<Value> &others)
{
    std::vector<std::pair<std::size_t, Value>> weighted = {{how_much, usual}};

    for (const Value &other : others) {
        weighted.emplace_back(1, other);
    }
    return rc::gen::exec([weighted] {
        size_t total = 0;
        for (const auto &each : weighted) {
            total += each.first;
        }
        size_t drawn = *rc::gen::inRange<size_t>(0, total);
        for (const auto &each : weighted) {
            if (drawn < each.first) {
                return each.second;
            }
            drawn -= each.first;
        }
        return weighted.front().second;
    });
}

rc::Gen<operation> operations()
{
    return rc::gen::build<operation>(
        rc::gen::set(
            &operation::kind,
            rc::gen::weightedElement<what>(
                {{80, what::packet}, {16, what::check}, {1, what::give_up}, {1, what::reset}, {1, what::start_anew}})),
        rc::gen::set(&operation::lost, mostly(0, 24, {1, 1, 1, 2, 3, 6})),
        rc::gen::set(&operation::back, mostly(0, 12, {1, 1, 2, 3, 4, 8, 20})),
        rc::gen::set(&operation::far, mostly(0, 100, {8192, -8192, 16384, 0x8000, 0x7FFF, -0x7FFF, 0x6000, 300})),
        rc::gen::set(&operation::other_frame, mostly(0, 40, {1, -1, 2, -2})),
        rc::gen::set(&operation::far_ts, mostly<int64_t>(0, 100, {0x80000000, 0x7FFFFFFF, -0x7FFFFFFF, 1})),
        rc::gen::set(&operation::flips_key, rc::gen::weightedElement<bool>({{20, false}, {1, true}})),
        rc::gen::set(&operation::flips_marker, rc::gen::weightedElement<bool>({{14, false}, {1, true}})),
        rc::gen::set(&operation::is_retrans, rc::gen::arbitrary<bool>()),
        rc::gen::set(&operation::memory, mostly(refused::nothing, 60, {refused::ring, refused::frame})),
        rc::gen::set(&operation::ms, mostly<int64_t>(10, 30, {0, 1, 100, 999, 1999, 2000, 2001, -50})));
}

class ReorderCaches
{
  public:
    explicit ReorderCaches(const scene &where) : where_(where), cache_(surroundings_.cache)
    {
        world_.silence_log();
        world_.takes_payload = where.takes_payload;
        model_.takes_payload = where.takes_payload;
    }

    // What the two do not agree in; empty when in nothing.
    std::string run(const operation &step)
    {
        now_ += static_cast<zeb_ts_t>(step.ms);
        do_step(step);
        compare_cache();
        compare_packets();
        compare_frames();
        compare_calls();
        return differences_.take();
    }

    // The same for the whole ring, which takes longer.
    std::string broken() const
    {
        return broken_invariants(*surroundings_.stream);
    }

  private:
    ReorderCacheModel::Arrival arrival_of(const operation &step)
    {
        ReorderCacheModel::Arrival arrival;

        sent_ += step.back == 0 ? step.lost + 1 : 0;
        const int64_t nth = sent_ - 1 - step.back;
        const int64_t frame = (nth - steps(0, nth, where_.length)) / where_.length;
        arrival.seq = plus16(where_.first_seq, nth + step.far);
        arrival.timestamp = plus32(where_.first_ts, (frame + step.other_frame) * 3000 + step.far_ts);
        arrival.is_key = (steps(0, frame, where_.interval) == 0) != step.flips_key;
        arrival.marker = (steps(0, nth, where_.length) == where_.length - 1) != step.flips_marker;
        arrival.is_retrans = step.is_retrans;
        return arrival;
    }

    void process(const operation &step)
    {
        ReorderCacheModel::Arrival arrival = arrival_of(step);
        PVideoData4 video = rtp_packet(arrival.seq, arrival.timestamp, arrival.is_key, arrival.marker);
        const auto *first = static_cast<const uint8_t *>(video.payload.values);

        arrival.payload.assign(first, first + video.payload.count);
        if (step.memory == refused::ring) {
            world_.refuse_tag("webrtc_video_cache_alloc");
        } else if (step.memory == refused::frame) {
            world_.refuse = [](size_t, const allocation &request) { return request.tag != "webrtc_video_cache_alloc"; };
        }
        webrtc_video_cache_process(cache_, &video, step.is_retrans, &now_);
        world_.refuse = nullptr;
        const bool is_taken = video.payload.values == nullptr;
        release(&video);
        differences_.expect("taken over", is_taken, model_.process(arrival, step.memory, now_));
    }

    void do_step(const operation &step)
    {
        switch (step.kind) {
        case what::packet:
            process(step);
            break;
        case what::check:
            webrtc_video_cache_check_deliver(cache_, &now_);
            model_.check(now_);
            break;
        case what::give_up:
            model_.last_removed_timestamp = arrival_of(step).timestamp;
            cache_->last_removed_timestamp = *model_.last_removed_timestamp;
            break;
        case what::reset:
            webrtc_video_cache_reset(cache_);
            model_.reset();
            break;
        case what::start_anew:
            webrtc_video_cache_fini(cache_);
            webrtc_video_cache_init(cache_, surroundings_.stream);
            model_.start_anew();
            break;
        }
    }

    template <typename Value> static uint32_t or_ones32(const std::optional<Value> &value)
    {
        return value ? uint32_t{*value} : 0xFFFFFFFF;
    }

    template <typename Value> static uint64_t or_ones64(const std::optional<Value> &value)
    {
        return value ? uint64_t{*value} : UINT64_MAX;
    }

    void compare_cache()
    {
        differences_.expect("pkt_cur_cnt", cache_->pkt_cur_cnt, model_.ring.size());
        differences_.expect("pkt_all_cnt", cache_->pkt_all_cnt, model_.has_ring ? 8192 : 0);
        differences_.expect("pkt_exp_seq", cache_->pkt_exp_seq, or_ones32(model_.exp_seq));
        differences_.expect("pkt_min_seq", cache_->pkt_min_seq, or_ones32(model_.min_seq));
        differences_.expect("pkt_max_seq", cache_->pkt_max_seq, or_ones32(model_.max_seq));
        differences_.expect("frm_cur_cnt", cache_->frm_cur_cnt, model_.frames.size());
        differences_.expect("frm_min_timestamp", cache_->frm_min_timestamp, or_ones64(model_.min_timestamp));
        differences_.expect("frm_max_timestamp", cache_->frm_max_timestamp, or_ones64(model_.max_timestamp));
        differences_.expect("frm_flag", cache_->frm_flag, model_.waits_for_key ? 1 : 0);
        differences_.expect("last_deliver_frm_ts", cache_->last_deliver_frm_ts, model_.last_deliver_ts);
        differences_.expect("last_deliver_frm_seq", cache_->last_deliver_frm_seq,
                            or_ones64(model_.last_deliver_frm_seq));
        differences_.expect("last_deliver_pkt_seq", cache_->last_deliver_pkt_seq,
                            or_ones32(model_.last_deliver_pkt_seq));
        differences_.expect("last_ordered_pkt_seq", cache_->last_ordered_pkt_seq,
                            or_ones32(model_.last_ordered_pkt_seq));
        differences_.expect("last_ordered_timestamp", cache_->last_ordered_timestamp,
                            or_ones64(model_.last_ordered_timestamp));
        differences_.expect("last_removed_timestamp", cache_->last_removed_timestamp,
                            or_ones64(model_.last_removed_timestamp));
    }

    void compare_packets()
    {
        for (const auto &[slot, packet] : model_.ring) {
            const webrtc_video_packet_t &real = cache_->pkt_arr[slot];
            const auto *first = static_cast<const uint8_t *>(real.video.payload.values);

            differences_.within("ring slot", slot);
            differences_.expect("state", real.state, uint8_t{WEBRTC_VIDEO_PKT_SET});
            differences_.expect("ts", real.ts, packet.ts);
            differences_.expect("is_retrans", real.is_retrans, packet.sent.is_retrans ? 1 : 0);
            differences_.expect("is_key", real.is_key, packet.sent.is_key ? 1 : 0);
            differences_.expect("endmark", real.endmark, packet.sent.marker ? 1 : 0);
            differences_.expect("timestamp", real.timestamp, packet.sent.timestamp);
            differences_.expect("pkt_seq", real.pkt_seq, packet.sent.seq);
            differences_.expect("has a frame", real.frm_ptr != nullptr, packet.is_filed);
            differences_.expect("frm_seq", real.frm_seq, packet.frm_seq);
            differences_.expect("sub_seq", real.sub_seq, packet.sub_seq);
            differences_.expect("header.frame_seq", real.video.header.frame_seq, packet.header_frame_seq);
            differences_.expect("header.subseq", real.video.header.subseq, packet.header_subseq);
            differences_.expect("header.n_pkts", real.video.header.n_pkts, packet.n_pkts);
            differences_.expect("payload", bytes(first, first + real.video.payload.count), packet.sent.payload);
        }
    }

    void compare_frames()
    {
        for (const auto &[timestamp, frame] : model_.frames) {
            const auto *real =
                reinterpret_cast<const webrtc_video_frame_t *>(zeb_find_rb_node(&cache_->frm_map, timestamp));

            differences_.within("frame", timestamp);
            differences_.expect("in the map", real != nullptr, true);
            if (real == nullptr) {
                continue;
            }
            const int state = frame.is_complete ? WEBRTC_VIDEO_FRM_COMPLETE : WEBRTC_VIDEO_FRM_INCOMPLETE;
            differences_.expect("state", real->state, frame.has_packets ? state : WEBRTC_VIDEO_FRM_NONE);
            differences_.expect("ts", real->ts, frame.ts);
            differences_.expect("is_key", real->is_key, frame.is_key ? 1 : 0);
            differences_.expect("frm_seq", real->frm_seq, frame.frm_seq);
            differences_.expect("min_seq", real->min_seq, or_ones32(frame.min_seq));
            differences_.expect("max_seq", real->max_seq, or_ones32(frame.max_seq));
            differences_.expect("cur_min_seq", real->cur_min_seq, or_ones32(frame.cur_min_seq));
            differences_.expect("cur_max_seq", real->cur_max_seq, or_ones32(frame.cur_max_seq));
            differences_.expect("n_pkts_total", real->n_pkts_total, frame.n_pkts_total);
            differences_.expect("n_pkts_received", real->n_pkts_received, frame.n_pkts_received);
        }
    }

    void compare_calls()
    {
        differences_.within("calls");
        differences_.expect("key-frame requests", world_.intra_requests, model_.n_key_requests);
        differences_.expect("retransmission requests", world_.rexfer_requests, model_.n_packet_requests);
        differences_.expect("restarts", world_.reset_states, model_.restarts);
        differences_.expect("packets handed over", world_.added.size(), model_.deliveries.size());
        for (; n_compared_ < std::min(world_.added.size(), model_.deliveries.size()); n_compared_++) {
            const added_packet &real = world_.added[n_compared_];
            const ReorderCacheModel::Delivery &delivery = model_.deliveries[n_compared_];

            differences_.within("packet handed over", static_cast<int64_t>(n_compared_));
            differences_.expect("frame_seq", real.frame_seq, delivery.frame_seq);
            differences_.expect("subseq", real.subseq, delivery.subseq);
            differences_.expect("n_pkts", real.n_pkts, delivery.n_pkts);
            differences_.expect("seq", real.seq, delivery.seq);
            differences_.expect("is_retrans", real.is_retrans, delivery.is_retrans ? 1 : 0);
            differences_.expect("is_key", real.is_key, delivery.is_key ? 1 : 0);
            differences_.expect("now", real.now, delivery.now);
            differences_.expect("payload", real.payload, delivery.payload);
        }
    }

    scene where_;
    World world_;
    TestStream surroundings_;
    webrtc_video_cache_t *cache_;
    ReorderCacheModel model_;
    Differences differences_;
    zeb_ts_t now_ = 100000;
    int64_t sent_ = 0;
    size_t n_compared_ = 0;
};

} // namespace

RC_GTEST_PROP(ReorderCacheAgainstItsModel, AgreesAfterEveryStep, ())
{
    const scene where = *scenes();
    const auto all = *rc::gen::scale(6.0, rc::gen::container<std::vector<operation>>(operations()));
    ReorderCaches both(where);

    for (size_t i = 0; i < all.size(); i++) {
        std::string difference = both.run(all[i]);
        if (difference.empty() && (i % 32 == 0 || i + 1 == all.size())) {
            difference = both.broken();
        }
        if (!difference.empty()) {
            RC_FAIL("after step " + std::to_string(i) + ":\n" + difference);
        }
    }
}
