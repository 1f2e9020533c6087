#include "allocation_sweep.h"

#include <algorithm>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "api/log.h"
#include "session/user.h"
#include "test_stream.h"

namespace allocation_sweep
{

namespace
{

using failing_memory::failing;
using live_scene::kFrameInterval;
using live_scene::outcome;
using live_scene::Scene;

constexpr zeb_ts_t kHealed = 6000; // ms

enum class loss {
    one,   // the packet or the frame
    maybe, // a packet that may be refused for another reason
    none
};

// Who asks for memory, what the module says when there is none, and what is lost.
struct asker {
    const char *tag;
    std::vector<const char *> lines; // one of them
    loss what;
};

const asker kAskers[] = {
    {"__service_alloc_user_video_stream", {"[%s][%s] \n"}, loss::one},
    {"webrtc_video_cache_alloc", {"[%s][%s] malloc for pkt_arr failed\n"}, loss::maybe},
    {"webrtc_video_insert_frm_map", {"[%s][%s] malloc for webrtc_frame_t failed\n"}, loss::one},
    {"video_frames_q_insert_video_packet",
     {"[%s][%s] malloc pkts failed, seq %u pkts_count %u\n", "[%s][%s] malloc pkts_status failed\n"},
     loss::one},
    {"video_frame_parse_payload", {}, loss::one},
    {"video_frame_regroup_pkts", {}, loss::one},
    {"parameter_sets_prepend", {}, loss::one},
    {"payload_copy", {}, loss::one},
    {"packet_hold_add", {}, loss::one},
    {"user_create", {}, loss::one},
    {"KelvraBcmStat_Create", {}, loss::one},
    {"estimator_create", {}, loss::one}, // the statistics' estimator
    {"receive_rtx", {}, loss::one},
    {"stream_state_attach", {}, loss::none},   // is tried twice
    {"net_rcv_analyzer_new", {}, loss::maybe}, // a stream does without its own, and not without its estimator's
    {"deliver_native", {}, loss::none},        // the scene's own
};

class Run
{
  public:
    Run(const scene_row &row, size_t nth, failing how) : row_(row), how_(how), scene_(row.estimates_downlink)
    {
        rtc_log_set_sink(&Run::on_log, this);
        failing_memory::fail(nth, how);
        row.play(scene_);
        has_failed_ = failing_memory::asked() >= nth;
        failed_tag_ = failing_memory::failed_tag() != nullptr ? failing_memory::failed_tag() : "";
        failing_memory::fail(0, failing::once);
    }
    ~Run()
    {
        rtc_log_set_sink(nullptr, nullptr);
    }
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;

    bool has_failed() const
    {
        return has_failed_;
    }

    void expect_everything()
    {
        expect_sound(scene_.look());
        expect_invariants();
        if (has_failed_ && how_ == failing::once) {
            expect_told();
        }
        EXPECT_TRUE(has_failed_ || !scene_.client.frames.empty()) << "a scene in which nothing comes out";
        expect_healing();
    }

  private:
    static void on_log(void *context, int level, const char *format, va_list)
    {
        if (level <= RTC_LOG_WARNING) {
            static_cast<Run *>(context)->lines_.emplace_back(format);
        }
    }

    bool has_said(const char *line) const
    {
        return std::find(lines_.begin(), lines_.end(), line) != lines_.end();
    }

    void expect_sound(const outcome &seen) const
    {
        if (!row_.is_damaged) {
            EXPECT_EQ(seen.n_wrong, 0u);
            EXPECT_EQ(seen.n_broken, 0u);
        }
    }

    template <typename Visit> void for_each_stream(Visit visit) const
    {
        list_head *head = &scene_.client.channel->state->users.head;
        for (list_head *node = head->next; node != head; node = node->next) {
            for (const stream_state *state : reinterpret_cast<user_state *>(node)->streams) {
                if (state != nullptr) {
                    visit(*state);
                }
            }
        }
    }

    void expect_invariants() const
    {
        for_each_stream(
            [](const stream_state &state) { EXPECT_EQ(test_support::broken_invariants(*state.stream), ""); });
    }

    // Packets and frames that there was no memory for.
    uint64_t n_lost() const
    {
        uint64_t n = scene_.client.refused(PACKET_DROP_NO_MEMORY);
        for_each_stream([&n](const stream_state &state) {
            n += state.report.packets_dropped[PACKET_DROP_NO_MEMORY] +
                 state.report.frames_dropped[FRAME_DROP_NOT_ASSEMBLED];
        });
        return n;
    }

    void expect_told() const
    {
        const asker *found = std::find_if(std::begin(kAskers), std::end(kAskers),
                                          [this](const asker &one) { return failed_tag_ == one.tag; });
        ASSERT_NE(found, std::end(kAskers)) << "asked for by " << failed_tag_;
        for (const asker &one : kAskers) {
            const bool is_said =
                std::any_of(one.lines.begin(), one.lines.end(), [this](const char *line) { return has_said(line); });
            EXPECT_EQ(is_said, &one == found && !one.lines.empty()) << one.tag;
        }
        if (!row_.forgets) {
            EXPECT_GE(n_lost(), found->what == loss::one ? 1u : 0u) << failed_tag_;
            EXPECT_LE(n_lost(), found->what == loss::none ? 0u : 1u) << failed_tag_;
        }
    }

    // With nothing in its way the sender goes on until two pictures came out at once.
    void expect_healing()
    {
        scene_.loses = nullptr;
        scene_.answers_nack = scene_.answers_key_requests = true;
        scene_.client.pass((kFrameInterval - scene_.client.now % kFrameInterval) % kFrameInterval);
        const zeb_ts_t began = scene_.client.now;
        for (int n_in_time = 0; n_in_time < 2 && scene_.client.now - began < kHealed;) {
            scene_.play(kFrameInterval);
            expect_sound(scene_.look());
            n_in_time = scene_.is_up_to_date() ? n_in_time + 1 : 0;
        }
        EXPECT_LT(scene_.client.now - began, kHealed);
        scene_.wants_key_frame = true;
        scene_.play(kFrameInterval);
        scene_.look();
        EXPECT_TRUE(scene_.is_up_to_date() && !scene_.client.frames.empty() && scene_.client.frames.back().is_key);
    }

    const scene_row &row_;
    failing how_;
    std::vector<std::string> lines_;
    Scene scene_;
    bool has_failed_ = false;
    std::string failed_tag_;
};

// True when the allocation was asked for.
bool play_once(const scene_row &row, size_t nth, failing how)
{
    SCOPED_TRACE("without allocation " + std::to_string(nth));
    const long before = failing_memory::in_use();
    bool has_failed = false;
    {
        Run run(row, nth, how);
        has_failed = run.has_failed();
        run.expect_everything();
    }
    EXPECT_EQ(failing_memory::in_use(), before) << "leaked";
    return has_failed;
}

} // namespace

size_t sweep(const scene_row &row, failing how)
{
    size_t n_runs = 1;
    for (size_t nth = 1; play_once(row, nth, how) && !testing::Test::HasFailure(); n_runs++) {
        nth += nth < kEach ? 1 : kStride;
    }
    return n_runs;
}

} // namespace allocation_sweep
