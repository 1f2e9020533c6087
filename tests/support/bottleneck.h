// A path with one slow link, and a sender of video that keeps to the rate it is told: both in virtual time, so that a
// minute takes moments and each run of a seed is the same.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <random>
#include <vector>

namespace bottleneck
{

struct packet {
    uint16_t seq;
    uint32_t rtp_timestamp; // 90 kHz
    uint16_t sent_ts;       // ms
    uint16_t size;          // bytes
};

struct path_settings {
    double bps = 1e6;
    uint64_t propagation_ms = 25; // each way
    double queue_limit_ms = 1000; // of waiting at the link's rate; what comes on top is dropped
    double loss = 0;              // share of packets, lost behind the queue
    uint64_t jitter_ms = 0;       // each packet is delayed by 0 to this much more
    bool jitter_reorders = false; // else a packet waits for the ones in front
    uint32_t seed = 1;
};

// Packets go in at one end and come out at the other. Times are microseconds.
class path
{
  public:
    explicit path(const path_settings &settings) : settings_(settings), random_(settings.seed)
    {
    }

    // Holds from the next packet on that the link takes out of its queue.
    void set_bps(double bps)
    {
        settings_.bps = bps;
    }

    void send(const packet &sent, uint64_t now)
    {
        if (queue_.empty()) {
            idle_since_ = std::max(idle_since_, now);
        }
        if (queue_ms() <= settings_.queue_limit_ms) {
            queue_.push_back(sent);
            queued_bytes_ += sent.size;
        } else {
            dropped_++;
        }
    }

    // What has arrived by `now`, in order of arrival.
    std::vector<packet> take(uint64_t now)
    {
        serve(now);
        std::vector<packet> arrived;
        while (!in_flight_.empty() && in_flight_.begin()->first <= now) {
            arrived.push_back(in_flight_.begin()->second);
            in_flight_.erase(in_flight_.begin());
        }
        return arrived;
    }

    double queue_ms() const
    {
        return static_cast<double>(queued_bytes_) * 8e3 / settings_.bps;
    }

    size_t dropped() const
    {
        return dropped_;
    }

  private:
    void serve(uint64_t now)
    {
        while (!queue_.empty()) {
            const auto service = static_cast<uint64_t>(queue_.front().size * 8e6 / settings_.bps);
            if (idle_since_ + service > now) {
                return;
            }
            idle_since_ += service;
            fly(queue_.front(), idle_since_);
            queued_bytes_ -= queue_.front().size;
            queue_.pop_front();
        }
    }

    void fly(const packet &served, uint64_t now)
    {
        if (std::uniform_real_distribution<double>(0, 1)(random_) < settings_.loss) {
            return;
        }
        const uint64_t jitter = std::uniform_int_distribution<uint64_t>(0, settings_.jitter_ms * 1000)(random_);
        uint64_t arrival = now + settings_.propagation_ms * 1000 + jitter;
        if (!settings_.jitter_reorders) {
            arrival = std::max(arrival, latest_arrival_);
            latest_arrival_ = arrival;
        }
        in_flight_.emplace(arrival, served);
    }

    path_settings settings_;
    std::mt19937 random_;
    std::deque<packet> queue_; // its head is being sent since `idle_since_`
    uint64_t idle_since_ = 0;
    uint64_t latest_arrival_ = 0;
    size_t queued_bytes_ = 0;
    size_t dropped_ = 0;
    std::multimap<uint64_t, packet> in_flight_;
};

struct sender_settings {
    double start_bps = 300e3;
    double max_bps = 1e9;            // what the camera has to give
    double size_spread = 0.15;       // a frame's size differs by up to this share
    unsigned key_frame_interval = 0; // frames; 0: none but the first
    double key_frame_scale = 5;      // times the size of the others
    uint64_t pacing_ms = 0;          // a frame's packets are spread over this time; 0: all at once
    uint32_t seed = 1;
};

// Sends 30 frames a second in packets of up to 1200 bytes.
class video_sender
{
  public:
    explicit video_sender(const sender_settings &settings)
        : settings_(settings), random_(settings.seed), bps_(settings.start_bps), seq_(static_cast<uint16_t>(random_())),
          timestamp_(static_cast<uint32_t>(random_())), clock_offset_ms_(static_cast<uint16_t>(random_()))
    {
    }

    void set_bps(double bps)
    {
        bps_ = std::min(bps, settings_.max_bps);
    }

    double bps() const
    {
        return bps_;
    }

    // Puts what is to be sent by `now`, microseconds, into the path.
    void send(path &out, uint64_t now)
    {
        while (next_frame_at_ <= now) {
            packetize();
            n_frames_++;
            next_frame_at_ = n_frames_ * 1000000 / 30;
        }
        while (!waiting_.empty() && waiting_.begin()->first <= now) {
            packet &next = waiting_.begin()->second;
            next.seq = seq_++;
            next.sent_ts = static_cast<uint16_t>(now / 1000 + clock_offset_ms_);
            out.send(next, now);
            waiting_.erase(waiting_.begin());
        }
    }

  private:
    double frame_bytes()
    {
        const double mean = bps_ / 8 / 30;
        const double spread =
            std::uniform_real_distribution<double>(1 - settings_.size_spread, 1 + settings_.size_spread)(random_);
        if (settings_.key_frame_interval == 0) {
            return mean * spread;
        }
        // The others are smaller, so that the mean stays.
        const double interval = settings_.key_frame_interval;
        const double other = mean * interval / (interval - 1 + settings_.key_frame_scale);
        return (n_frames_ % settings_.key_frame_interval == 0 ? other * settings_.key_frame_scale : other) * spread;
    }

    void packetize()
    {
        const auto bytes = static_cast<size_t>(std::max(frame_bytes(), 50.0));
        const size_t n_packets = (bytes + 1199) / 1200;
        const auto timestamp = static_cast<uint32_t>(timestamp_ + n_frames_ * 3000);
        for (size_t i = 0; i < n_packets; i++) {
            const auto size = static_cast<uint16_t>(bytes * (i + 1) / n_packets - bytes * i / n_packets);
            const uint64_t at = next_frame_at_ + settings_.pacing_ms * 1000 * i / n_packets;
            waiting_.emplace(at, packet{0, timestamp, 0, size});
        }
    }

    sender_settings settings_;
    std::mt19937 random_;
    double bps_;
    uint16_t seq_;
    uint32_t timestamp_; // of the first frame
    uint16_t clock_offset_ms_;
    uint64_t n_frames_ = 0;
    uint64_t next_frame_at_ = 0;
    std::multimap<uint64_t, packet> waiting_;
};

} // namespace bottleneck
