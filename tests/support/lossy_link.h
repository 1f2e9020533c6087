// A sender of video behind a link that loses packets both ways, in virtual time.
#pragma once

#include <algorithm>
#include <deque>
#include <functional>
#include <map>
#include <random>
#include <vector>

#include "client_bench.h"
#include "wire/rtcp.h"

namespace lossy_link
{

using client_bench::bytes;
using client_bench::Client;

struct settings {
    double loss = 0;          // of every packet, either way
    double burst = 1;         // mean packets lost at a time
    zeb_ts_t one_way = 30;    // ms
    zeb_ts_t reorder_by = 0;  // ms that one packet in twenty comes later
    bool answers_nack = true; // resends what is asked for
    size_t key_packets = 24;  // of a key frame
    zeb_ts_t deaf_for = 0;    // ms behind a request for a key frame in which it hears no other
    int probe_every = 0;      // frames; three packets without payload stand behind one of so many
    int n_frames = 600;       // at 30 a second
    unsigned seed = 1;
};

// What came of it.
struct outcome {
    size_t n_whole = 0;            // frames that came out, each equal to the one sent
    size_t n_wrong = 0;            // frames that came out and were not sent so, or out of order
    size_t n_broken_reference = 0; // delta frames that came out behind a frame that did not
    zeb_ts_t longest_gap = 0;      // ms between two frames that came out
    std::vector<zeb_ts_t> delays;  // ms from sending to coming out, ascending

    zeb_ts_t delay(double share) const
    {
        return delays.empty() ? 0 : delays[static_cast<size_t>(share * static_cast<double>(delays.size() - 1))];
    }
};

constexpr size_t kBuffered = 1000; // packets that the sender can send again

class Link
{
  public:
    Link(Client &client, const settings &given) : client_(client), given_(given), random_(given.seed)
    {
    }

    outcome run()
    {
        const zeb_ts_t began = client_.now;
        for (int i = 0; i < given_.n_frames; i++) {
            at(began + static_cast<zeb_ts_t>(i) * 100 / 3, [this] { send_frame(); });
        }
        const zeb_ts_t end = began + static_cast<zeb_ts_t>(given_.n_frames) * 100 / 3 + 3000;
        zeb_ts_t tick_at = began;
        while (client_.now < end) {
            run_events();
            if (client_.now >= std::min(tick_at, rtc_service_next_at(client_.service))) {
                tick_at = rtc_service_tick(client_.service, &client_.now);
            }
            take_requests();
            take_frames();
            client_.now++;
        }
        std::sort(outcome_.delays.begin(), outcome_.delays.end());
        return outcome_;
    }

    struct sent_frame {
        rtp_builder::frame frame;
        zeb_ts_t at;
    };

    const std::deque<sent_frame> &sent() const
    {
        return sent_;
    }

    // Where its numbers are.
    const rtp_builder::Sender &sender() const
    {
        return sender_;
    }

  private:
    void at(zeb_ts_t when, std::function<void()> what)
    {
        events_.emplace(when, std::move(what));
    }

    void run_events()
    {
        while (!events_.empty() && events_.begin()->first <= client_.now) {
            const std::function<void()> what = std::move(events_.begin()->second);
            events_.erase(events_.begin());
            what();
        }
    }

    double chance()
    {
        return std::uniform_real_distribution<double>(0, 1)(random_);
    }

    // Two states: once a packet is lost, the next one is with a probability that makes bursts of the mean length.
    bool is_lost()
    {
        const double again = 1 - 1 / given_.burst;
        const double first = given_.loss / given_.burst / (1 - given_.loss);
        is_losing_ = chance() < (is_losing_ ? again : first);
        return is_losing_;
    }

    zeb_ts_t arrival()
    {
        return client_.now + given_.one_way + (given_.reorder_by != 0 && chance() < 0.05 ? given_.reorder_by : 0);
    }

    void send_packet(const bytes &packet, bool is_retrans)
    {
        if (!is_lost()) {
            at(arrival(), [this, packet, is_retrans] { client_.receive(packet, is_retrans); });
        }
    }

    void send_frame()
    {
        const bool is_key = sent_.empty() || wants_key_frame_;
        wants_key_frame_ = false;
        sender_.nal_size = 1000 * (is_key ? given_.key_packets : 6);
        sent_.push_back({is_key ? sender_.key_frame(given_.key_packets) : sender_.delta_frame(6), client_.now});
        const rtp_builder::frame &frame = sent_.back().frame;
        for (size_t i = 0; i < frame.packets.size(); i++) {
            buffer_[static_cast<uint16_t>(frame.first_seq + i)] = frame.packets[i];
            buffer_.erase(static_cast<uint16_t>(frame.first_seq + i - kBuffered));
            send_packet(frame.packets[i], false);
        }
        if (given_.probe_every != 0 && sent_.size() % static_cast<size_t>(given_.probe_every) == 0) {
            probe();
        }
    }

    // Nobody keeps what a probe consists of, so it is not sent again either.
    void probe()
    {
        for (int i = 0; i < 3; i++) {
            send_packet(sender_.filler(), false);
        }
    }

    void take_requests()
    {
        for (; n_requests_ < client_.sent.size(); n_requests_++) {
            if (chance() >= given_.loss) {
                const bytes datagram = client_.sent[n_requests_].data;
                at(client_.now + given_.one_way, [this, datagram] { answer(datagram); });
            }
        }
    }

    void answer(const bytes &datagram)
    {
        rtcp_cursor cursor = rtcp_cursor_begin(datagram.data(), datagram.size());
        rtcp_item item;
        while (rtcp_next(&cursor, &item)) {
            if (item.kind == RTCP_ITEM_PLI) {
                take_key_frame_request();
            } else if (item.kind == RTCP_ITEM_NACK && given_.answers_nack) {
                resend(item.nack);
            }
        }
    }

    void take_key_frame_request()
    {
        if (client_.now >= hears_from_) {
            wants_key_frame_ = true;
            hears_from_ = client_.now + given_.deaf_for;
        }
    }

    void resend(const rtcp_nack &nack)
    {
        rtcp_nack_cursor cursor = rtcp_nack_begin(&nack);
        seq_t seq = 0;
        while (rtcp_nack_next(&cursor, &seq)) {
            const auto found = buffer_.find(seq);
            if (found != buffer_.end()) {
                send_packet(found->second, true);
            }
        }
    }

    void take_frames()
    {
        for (; n_frames_ < client_.frames.size(); n_frames_++) {
            take_frame(client_.frames[n_frames_]);
        }
    }

    void take_frame(const client_bench::taken_frame &taken)
    {
        size_t place = next_;
        while (place < sent_.size() && sent_[place].frame.timestamp != taken.rtp_timestamp) {
            place++;
        }
        if (place == sent_.size() || sent_[place].frame.annexb != taken.data) {
            outcome_.n_wrong++;
            return;
        }
        outcome_.n_broken_reference += !sent_[place].frame.is_key && place != next_ ? 1 : 0;
        next_ = place + 1;
        outcome_.n_whole++;
        outcome_.delays.push_back(client_.now - sent_[place].at);
        if (last_frame_at_ != 0) {
            outcome_.longest_gap = std::max(outcome_.longest_gap, client_.now - last_frame_at_);
        }
        last_frame_at_ = client_.now;
    }

    Client &client_;
    settings given_;
    std::mt19937 random_;
    rtp_builder::Sender sender_;
    std::multimap<zeb_ts_t, std::function<void()>> events_;
    std::deque<sent_frame> sent_;
    std::map<uint16_t, bytes> buffer_;
    bool is_losing_ = false;
    bool wants_key_frame_ = false;
    zeb_ts_t hears_from_ = 0; // a request for a key frame
    size_t n_requests_ = 0;
    size_t n_frames_ = 0;
    size_t next_ = 0; // frame that is to come out next
    zeb_ts_t last_frame_at_ = 0;
    outcome outcome_;
};

} // namespace lossy_link
