// A world in virtual time: senders, the paths to a client and back, the client, and an application that takes frames and
// looks after everything that must hold. The same seed makes the same run.
#pragma once

#include <functional>
#include <map>
#include <queue>
#include <set>
#include <utility>

#include "api/service.h"
#include "cast.h"
#include "samples.h"
#include "wire/rtcp.h"

namespace simulation
{

struct world_settings {
    uint64_t seed = 1;
    const preset *kind = nullptr;
    zeb_ts_t length = 60000;    // ms
    zeb_ts_t call_max = 900000; // ms; calls follow one another
    zeb_ts_t bad_min = 8000;    // ms that the path is as the preset has it, until it heals for a while
    zeb_ts_t bad_max = 50000;
    uint32_t traced = 0;      // SSRC of a sender whose packets and frames are printed; 0: none
    uint32_t check_every = 1; // calls of the client from one full look at the stream records to the next
};

struct world_result {
    uint64_t calls = 0; // channels
    uint64_t senders = 0;
    uint64_t packets = 0; // that arrived
    uint64_t frames_sent = 0;
    uint64_t frames = 0;    // that came out
    uint64_t shortened = 0; // of those, without some of what leads a picture
    uint64_t heals = 0;     // times a sender's frames had to flow again
    uint64_t spoiled = 0;   // frames sent that a receiver must not take
    uint64_t forged = 0;    // packets with other parameter sets than the sender's
    uint64_t samples = 0;   // of received packets, compared with those
    uint64_t suspends = 0;  // times the clock was set ahead
    uint64_t checks = 0;    // full looks at a stream record
    uint64_t digest = 0;    // of every frame that came out and when
    std::vector<std::string> findings;
};

class World
{
  public:
    explicit World(const world_settings &settings);

    world_result run();

  private:
    struct member {
        std::unique_ptr<Sender> sender;
        std::unique_ptr<Link> link;
        zeb_ts_t healed_at = 0;
        zeb_ts_t out_at = 0;           // the latest frame
        zeb_ts_t reported_since = 0;   // the stream's record counts from then on
        uint64_t n_out_unreported = 0; // frames that came out before
    };
    struct event {
        zeb_ts_t at;
        uint64_t order;
        std::function<void()> what;
        bool operator<(const event &other) const
        {
            return at != other.at ? at > other.at : order > other.order; // the earliest on top
        }
    };

    // A call: one channel, from its creation to its end.
    void run_call(zeb_ts_t length);
    void open_channel();
    void describe_sets();
    void close_channel();
    void run_events();
    void tick();
    void at(zeb_ts_t when, std::function<void()> what);

    // Senders.
    void join();
    uint32_t draw_uid();
    void announce(const Sender &sender);
    void schedule_frame(member *of);
    void schedule_fate(member *of);
    void schedule_again(member *of, zeb_ts_t every, const std::function<void()> &what);
    void say_bye(member *of);
    size_t count_present() const;

    // The paths.
    void transmit(member *of, const wire_packet &packet, int tries);
    void corrupt(wire_packet *packet);
    void arrive(const wire_packet &packet);
    int give(const wire_packet &packet);
    void forge(const wire_packet &packet);
    wire_packet forged_of(const wire_packet &packet);
    PVideoData4 native_record(const wire_packet &packet) const;
    void answer(const bytes &datagram);
    void answer_nack(member *of, const rtcp_nack &nack);
    void ask_for_native(member *of);

    // Phases: the path as the preset has it, then a clean one on which frames must flow again.
    void schedule_phases(zeb_ts_t end);
    void set_clean(bool is_clean);
    zeb_ts_t patience_of(const member &of) const;
    void check_flow();
    void check_flow_of(const member &of, zeb_ts_t end);
    void schedule_suspends();
    void suspend();

    // The application.
    void take_frame(const channel_frame &frame);
    void trace(const wire_packet &packet) const;
    void trace(const channel_frame &frame) const;
    void look_at(const Sender &sender);
    void check_floor();
    void check_blocks();
    void check_samples(const wire_packet &packet);
    void check_delivery_time(const member &of);
    void check_report(member *of);
    void check_all_came_out(const member &of);
    void check_call();
    const stream_report *report_of(const member &of) const;
    void find(const std::string &what);
    member *member_of(uint32_t uid);
    static void on_frame(void *context, const channel_frame *frame);
    static void on_rtcp(void *context, const uint8_t *datagram, size_t size);

    world_settings settings_;
    Random random_;
    world_result result_;
    std::map<std::string, size_t> found_; // findings of a kind
    zeb_ts_t now_;
    zeb_ts_t world_end_ = 0;
    rtc_service *service_ = nullptr;
    rtc_channel *channel_ = nullptr;
    call_terms terms_ = {};
    bool is_clean_ = false;
    zeb_ts_t tick_at_ = 0;
    zeb_ts_t end_ = 0; // of the call
    long before_ = 0;  // blocks in use without the service
    uint32_t n_calls_of_client_ = 0;
    uint64_t order_ = 0;
    std::priority_queue<event> events_;
    std::map<uint32_t, member> members_;                                // by SSRC
    std::map<uint32_t, std::pair<uint64_t, zeb_ts_t>> native_requests_; // seen so far, and when the next may go out
    std::unique_ptr<Link> way_back_;
    std::set<std::pair<uint32_t, uint32_t>> strangers_; // SSRC and name that corruption made up
};

} // namespace simulation
