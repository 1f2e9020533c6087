#include "test_stream.h"

#include <map>
#include <set>
#include <sstream>

namespace test_support
{

namespace
{

// A record among others of its kind. The checker runs after every call: words are only made of what is wrong.
struct place {
    const char *kind;
    size_t index;
};

// Collects what is wrong.
class Findings
{
  public:
    void expect(bool holds, const char *what)
    {
        if (!holds) {
            text_ << what << '\n';
        }
    }

    void expect(bool holds, const place &where, const char *what)
    {
        if (!holds) {
            text_ << where.kind << ' ' << where.index << ": " << what << '\n';
        }
    }

    std::string text() const
    {
        return text_.str();
    }

  private:
    std::ostringstream text_;
};

void check_empty_frame_slot(const video_frame &frame, const place &where, Findings &findings)
{
    findings.expect(frame.pkts == nullptr, where, "empty, but has packets");
    findings.expect(frame.is_complete == 0, where, "empty, but complete");
}

void check_frame(const video_frame &frame, size_t slot, const place &where, Findings &findings)
{
    size_t n_stored = 0;

    findings.expect(frame.frame_seq % VIDEO_FRAMES_Q_SLOTS == slot, where, "holds a frame of another slot");
    findings.expect(frame.pkts != nullptr && frame.pkts_status != nullptr, where, "occupied without arrays");
    if (frame.pkts == nullptr || frame.pkts_status == nullptr) {
        return;
    }
    for (size_t i = 0; i < frame.n_pkts_total; i++) {
        const bool is_stored = frame.pkts[i].count != 0;
        n_stored += is_stored;
        findings.expect(frame.pkts_status[i].is_received == (is_stored ? 1 : 0), where, "status against packet");
    }
    findings.expect(frame.n_pkts_received == n_stored, where, "n_pkts_received against packets");
    findings.expect(frame.n_pkts_received == frame.n_pkts_received_media + frame.n_pkts_received_fec, where,
                    "media and FEC against all");
    findings.expect(frame.is_complete == 0 || frame.n_pkts_received >= frame.n_pkts_media, where, "complete too early");
}

void check_frame_queue(const rtc_video_frames_t &q, Findings &findings)
{
    for (size_t slot = 0; slot < VIDEO_FRAMES_Q_SLOTS; slot++) {
        const place where = {"frame slot", slot};
        if (q.video_frames[slot].n_pkts_total == 0) {
            check_empty_frame_slot(q.video_frames[slot], where, findings);
        } else {
            check_frame(q.video_frames[slot], slot, where, findings);
        }
    }
    for (size_t i = 0; i < VIDEO_FRAMES_Q_PKT_INDEX; i++) {
        findings.expect(q.pkt_frame_pos[i] >= -1 && q.pkt_frame_pos[i] < VIDEO_FRAMES_Q_SLOTS, {"index entry", i},
                        "names no slot");
    }
}

int collect_frame(zeb_rb_node *node, void *frames)
{
    static_cast<std::set<const webrtc_video_frame_t *> *>(frames)->insert(
        reinterpret_cast<const webrtc_video_frame_t *>(node));
    return 0;
}

bool owns_nothing(const webrtc_video_packet_t &pkt)
{
    return pkt.state == WEBRTC_VIDEO_PKT_NONE && pkt.video.payload.values == nullptr && pkt.frm_ptr == nullptr;
}

void check_ring_slot(const webrtc_video_packet_t &pkt, size_t slot,
                     const std::set<const webrtc_video_frame_t *> &frames, Findings &findings)
{
    const place where = {"ring slot", slot};

    if (pkt.state == WEBRTC_VIDEO_PKT_NONE) {
        findings.expect(pkt.video.payload.values == nullptr, where, "free, but owns a payload");
        findings.expect(pkt.frm_ptr == nullptr, where, "free, but belongs to a frame");
        return;
    }
    findings.expect(pkt.state == WEBRTC_VIDEO_PKT_SET, where, "state is neither");
    findings.expect((pkt.pkt_seq & (WEBRTC_VIDEO_RING_SLOTS - 1)) == slot, where, "holds a packet of another slot");
    if (pkt.frm_ptr == nullptr) {
        return;
    }
    const bool is_live = frames.count(pkt.frm_ptr) == 1;
    findings.expect(is_live, where, "its frame is not in the map");
    findings.expect(!is_live || pkt.frm_ptr->timestamp == pkt.timestamp, where, "its frame has another timestamp");
}

void check_cache_frame(const webrtc_video_frame_t &frm, size_t n_slots, Findings &findings)
{
    const place where = {"cache frame", frm.timestamp};

    findings.expect(frm.state == WEBRTC_VIDEO_FRM_INCOMPLETE || frm.state == WEBRTC_VIDEO_FRM_COMPLETE, where,
                    "has no state");
    findings.expect(frm.n_pkts_received >= n_slots, where, "more slots than packets received");
    findings.expect(frm.state != WEBRTC_VIDEO_FRM_COMPLETE || (frm.min_seq <= 0xFFFF && frm.max_seq <= 0xFFFF), where,
                    "complete without both ends");
}

void check_cache(const webrtc_video_cache_t &cache, Findings &findings)
{
    std::set<const webrtc_video_frame_t *> frames;
    std::map<const webrtc_video_frame_t *, size_t> slots_of;
    size_t n_set = 0;

    zeb_rb_traverse_ldr(const_cast<zeb_rb_root *>(&cache.frm_map), collect_frame, &frames);
    findings.expect(cache.frm_cur_cnt == frames.size() && cache.frm_map.count == frames.size(),
                    "frm_cur_cnt against the map");
    findings.expect(cache.pkt_all_cnt == (cache.pkt_arr != nullptr ? uint32_t{WEBRTC_VIDEO_RING_SLOTS} : 0u),
                    "pkt_all_cnt against the ring");
    for (size_t slot = 0; cache.pkt_arr != nullptr && slot < WEBRTC_VIDEO_RING_SLOTS; slot++) {
        const webrtc_video_packet_t &pkt = cache.pkt_arr[slot];
        if (owns_nothing(pkt)) { // nearly all of them: no words are made about those
            continue;
        }
        check_ring_slot(pkt, slot, frames, findings);
        n_set += pkt.state == WEBRTC_VIDEO_PKT_SET;
        slots_of[pkt.frm_ptr]++;
    }
    findings.expect(cache.pkt_cur_cnt == n_set, "pkt_cur_cnt against the ring");
    findings.expect(n_set == 0 || (cache.pkt_min_seq <= 0xFFFF && cache.pkt_max_seq <= 0xFFFF),
                    "packets held, but their bounds are unknown");
    for (const webrtc_video_frame_t *frm : frames) {
        check_cache_frame(*frm, slots_of[frm], findings);
    }
}

} // namespace

std::string broken_invariants(const user_video_stream &stream)
{
    Findings findings;

    check_frame_queue(stream.video_frames_q, findings);
    check_cache(stream.video_cache_q, findings);
    return findings.text();
}

} // namespace test_support
