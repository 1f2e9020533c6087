#include "reorder_scene.h"

#include <algorithm>
#include <random>
#include <sstream>

#include <gtest/gtest.h>

#include "packets.h"
#include "seed.h"

namespace test_support
{

namespace
{

void append(std::string &items, const std::string &item)
{
    if (!item.empty()) {
        items += (items.empty() ? "" : ", ") + item;
    }
}

std::string times(size_t n, const std::string &what)
{
    return n == 0 ? "" : n == 1 ? what : what + " x" + std::to_string(n);
}

bool continues_frame(const added_packet &previous, const added_packet &packet)
{
    return packet.frame_seq == previous.frame_seq && packet.subseq > previous.subseq &&
           packet.is_key == previous.is_key;
}

void play_with(const std::vector<reorder_row> &rows, const numbering &base, bool takes_payload)
{
    ReorderScene scene(base);
    std::ostringstream story;

    scene.world.takes_payload = takes_payload;
    story << "packet 0 is " << base.seq << ", timestamp 0 is " << base.timestamp << '\n';
    for (const reorder_row &row : rows) {
        const std::string out = scene.run(row.step);
        story << "  " << row.step << "  ->  " << (out.empty() ? "nothing" : out) << '\n';
        if (out != row.out) {
            ADD_FAILURE() << story.str() << "  must be: " << (row.out.empty() ? "nothing" : row.out);
            return;
        }
    }
}

} // namespace

reorder_step reorder_step::m() const
{
    reorder_step step = *this;
    step.marker = true;
    return step;
}

reorder_step reorder_step::again() const
{
    reorder_step step = *this;
    step.is_retrans = true;
    return step;
}

reorder_step reorder_step::at(int64_t when) const
{
    reorder_step step = *this;
    step.ms = when;
    return step;
}

reorder_step K(int seq, int ts)
{
    reorder_step step = P(seq, ts);
    step.is_key = true;
    return step;
}

reorder_step P(int seq, int ts)
{
    reorder_step step;
    step.seq = seq;
    step.ts = ts;
    return step;
}

reorder_step check()
{
    reorder_step step;
    step.what = reorder_step::kind::check;
    return step;
}

reorder_step reset()
{
    reorder_step step;
    step.what = reorder_step::kind::reset;
    return step;
}

std::ostream &operator<<(std::ostream &out, const reorder_step &step)
{
    if (step.what == reorder_step::kind::packet) {
        out << (step.is_key ? 'K' : 'P') << step.seq << " ts" << step.ts << (step.marker ? " m" : "")
            << (step.is_retrans ? " again" : "");
    } else {
        out << (step.what == reorder_step::kind::check ? "check" : "reset");
    }
    if (step.ms >= 0) {
        out << " @" << step.ms;
    }
    return out;
}

ReorderScene::ReorderScene(numbering base) : base_(base)
{
}

std::string ReorderScene::run(const reorder_step &step)
{
    std::string out = run_unchecked(step);

    expect_invariants();
    return out;
}

std::string ReorderScene::run_unchecked(const reorder_step &step)
{
    const size_t intra_requests = world.intra_requests;
    const size_t rexfer_requests = world.rexfer_requests;
    std::string out;

    if (step.ms >= 0) {
        now = start + static_cast<zeb_ts_t>(step.ms);
    }
    world.added.clear();
    world.reset_states.clear();
    switch (step.what) {
    case reorder_step::kind::packet:
        append(out, process(step));
        break;
    case reorder_step::kind::check:
        webrtc_video_cache_check_deliver(cache, &now);
        break;
    case reorder_step::kind::reset:
        webrtc_video_cache_reset(cache);
        break;
    }
    append(out, requests_since(intra_requests, rexfer_requests));
    append(out, describe_delivery());
    forget_taken_payloads();
    return out;
}

void ReorderScene::expect_invariants() const
{
    EXPECT_EQ(broken_invariants(*stream), "");
}

seq_t ReorderScene::seq(int relative_seq) const
{
    return static_cast<seq_t>(base_.seq + relative_seq);
}

uint32_t ReorderScene::timestamp(int relative_ts) const
{
    return base_.timestamp + static_cast<uint32_t>(relative_ts) * kTicksPerFrame;
}

const webrtc_video_packet_t &ReorderScene::slot(int relative_seq) const
{
    return cache->pkt_arr[seq(relative_seq) & (WEBRTC_VIDEO_RING_SLOTS - 1)];
}

webrtc_video_frame_t *ReorderScene::frame(int relative_ts) const
{
    return reinterpret_cast<webrtc_video_frame_t *>(zeb_find_rb_node(&cache->frm_map, timestamp(relative_ts)));
}

PVideoData4 ReorderScene::packet(const reorder_step &step) const
{
    return rtp_packet(seq(step.seq), timestamp(step.ts), step.is_key, step.marker);
}

std::string ReorderScene::process(const reorder_step &step)
{
    static const PVideoData4 empty = {};
    PVideoData4 video = packet(step);
    const auto *bytes = static_cast<const uint8_t *>(video.payload.values);
    const std::vector<uint8_t> payload(bytes, bytes + video.payload.count);
    const auto kept_before = kept_.find(video.common.seq);
    const std::vector<uint8_t> previous = kept_before == kept_.end() ? std::vector<uint8_t>() : kept_before->second;

    kept_[video.common.seq] = payload; // delivery may come before the call returns
    webrtc_video_cache_process(cache, &video, step.is_retrans, &now);
    if (video.payload.values == nullptr) {
        EXPECT_TRUE(video.payload.count == empty.payload.count && video.common.seq == empty.common.seq)
            << "a packet that was taken over is left empty";
        return "kept";
    }
    kept_[video.common.seq] = previous;
    EXPECT_TRUE(std::equal(payload.begin(), payload.end(), static_cast<const uint8_t *>(video.payload.values)))
        << "a dropped packet was written to";
    release(&video);
    return "dropped";
}

std::string ReorderScene::requests_since(size_t intra_requests, size_t rexfer_requests) const
{
    std::string items;

    append(items, times(world.intra_requests - intra_requests, "asks key"));
    append(items, times(world.rexfer_requests - rexfer_requests, "asks packets"));
    for (const zeb_ts_t at : world.reset_states) {
        append(items, "restart@" + std::to_string(at - start));
    }
    return items;
}

std::string ReorderScene::describe_delivery() const
{
    std::string items;
    const added_packet *end = world.added.data() + world.added.size();

    for (const added_packet *first = world.added.data(); first != end;) {
        const added_packet *next = first + 1;
        while (next != end && continues_frame(next[-1], *next)) {
            next++;
        }
        append(items, describe_frame(first, next));
        first = next;
    }
    return items;
}

std::string ReorderScene::describe_frame(const added_packet *first, const added_packet *end) const
{
    std::ostringstream text;

    text << first->frame_seq << ':';
    if (is_whole(first, end)) {
        text << relative(first->seq);
        if (end - first > 1) {
            text << '-' << relative(end[-1].seq);
        }
    } else {
        for (const added_packet *packet = first; packet != end; packet++) {
            text << (packet == first ? "" : " ") << relative(packet->seq) << '[' << packet->subseq << '/'
                 << packet->n_pkts << ']';
        }
    }
    text << (first->is_key ? " key" : "");
    for (const added_packet *packet = first; packet != end; packet++) {
        text << (packet->is_retrans == 1 ? " again " + std::to_string(relative(packet->seq)) : "")
             << (is_as_sent(*packet) ? "" : " DAMAGED");
    }
    return text.str();
}

bool ReorderScene::is_whole(const added_packet *first, const added_packet *end) const
{
    for (const added_packet *packet = first; packet != end; packet++) {
        const auto index = static_cast<uint16_t>(packet - first);
        if (packet->subseq != index || packet->seq != static_cast<seq_t>(first->seq + index) ||
            packet->n_pkts != end - first) {
            return false;
        }
    }
    return true;
}

bool ReorderScene::is_as_sent(const added_packet &packet) const
{
    const auto kept = kept_.find(packet.seq);
    const bool has_payload = kept != kept_.end() && packet.payload == kept->second;

    return packet.stream == stream && packet.now == now && (packet.is_key == 0 || packet.is_key == 1) &&
           (packet.is_retrans == 0 || packet.is_retrans == 1) && (has_payload || was_taken_in_this_call(packet));
}

bool ReorderScene::was_taken_in_this_call(const added_packet &packet) const
{
    const bool came_before = std::any_of(world.added.data(), &packet,
                                         [&](const added_packet &earlier) { return earlier.seq == packet.seq; });

    return world.takes_payload && packet.payload.empty() && came_before;
}

// A packet may be handed over more than once. A taker leaves nothing for the next time.
void ReorderScene::forget_taken_payloads()
{
    for (const added_packet &packet : world.added) {
        if (world.takes_payload) {
            kept_[packet.seq].clear();
        }
    }
}

seq_t ReorderScene::relative(seq_t absolute) const
{
    return static_cast<seq_t>(absolute - base_.seq);
}

std::vector<numbering> numberings()
{
    std::mt19937 random(test_seed());
    // Timestamp 1, 2 or 3 of the table is the first one behind the wrap.
    const uint32_t wraps[] = {0u - kTicksPerFrame, 1u - 2 * kTicksPerFrame, 0u - 2 * kTicksPerFrame - 1};

    return {{static_cast<seq_t>(random()), static_cast<uint32_t>(random())},
            {0, 0},
            {65535, wraps[0]},
            {65534, wraps[1]},
            {65533, wraps[2]},
            {65530, wraps[1]},
            {8191, wraps[0]},
            {0x7FFE, 0x7FFFFFFF}};
}

void play(const std::vector<reorder_row> &rows)
{
    for (const numbering &base : numberings()) {
        play_with(rows, base, false);
    }
}

void play_to_a_taker(const std::vector<reorder_row> &rows)
{
    for (const numbering &base : numberings()) {
        play_with(rows, base, true);
    }
}

} // namespace test_support
