// Runs the receive statistics behind a simulated bottleneck, in virtual time.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "bottleneck.h"
#include "rate/bcm_feedback.h"

struct rate_simulation_settings {
    bottleneck::path_settings path;
    bottleneck::sender_settings sender;
    bool use_sent_ts = false;
    unsigned loop_ms = 1;                // the receiver looks for packets this often
    zeb_ts_t starts_at = 1234567890123u; // milliseconds on the receiver's clock
};

// What was seen each 10 ms.
struct rate_moment {
    uint64_t ms; // since the start
    double estimate_bps;
    double queue_ms;
};

class rate_simulation
{
  public:
    explicit rate_simulation(const rate_simulation_settings &settings)
        : settings_(settings), path_(settings.path), sender_(settings.sender)
    {
        const KelvraBcmStatisticsConfig config = {this};
        stat_ = KelvraBcmStat_Create(&config);
        stat_->use_sent_ts_enable_ = settings.use_sent_ts;
    }

    ~rate_simulation()
    {
        KelvraBcmStat_Destroy(stat_);
    }

    rate_simulation(const rate_simulation &) = delete;
    rate_simulation &operator=(const rate_simulation &) = delete;

    void run_ms(uint64_t length)
    {
        for (const uint64_t end = ms_ + length; ms_ < end; ms_++) {
            sender_hears();
            sender_.send(path_, ms_ * 1000);
            if (ms_ % settings_.loop_ms == 0) {
                receiver_looks();
            }
            if (ms_ % 10 == 0) {
                moments_.push_back({ms_, static_cast<double>(bcm_stat_estimate_bps(stat_)), path_.queue_ms()});
            }
        }
    }

    void set_link_bps(double bps)
    {
        path_.set_bps(bps);
    }

    uint64_t ms() const
    {
        return ms_;
    }

    const bottleneck::path &path() const
    {
        return path_;
    }

    // Times at which a message was sent, and what it said.
    struct remb {
        uint64_t ms;
        uint64_t bps;
    };

    const std::vector<remb> &rembs() const
    {
        return rembs_;
    }

    // Mean estimate from `from` to `to`, ms.
    double mean_bps(uint64_t from, uint64_t to) const
    {
        double sum = 0;
        size_t n = 0;
        each(from, to, [&](const rate_moment &moment) {
            sum += moment.estimate_bps;
            n++;
        });
        return sum / static_cast<double>(n);
    }

    double least_bps(uint64_t from, uint64_t to) const
    {
        double least = 1e18;
        each(from, to, [&](const rate_moment &moment) { least = std::min(least, moment.estimate_bps); });
        return least;
    }

    double most_bps(uint64_t from, uint64_t to) const
    {
        double most = 0;
        each(from, to, [&](const rate_moment &moment) { most = std::max(most, moment.estimate_bps); });
        return most;
    }

    // The queueing delay that a share of the moments stays within.
    double queue_ms(uint64_t from, uint64_t to, double share) const
    {
        std::vector<double> queues;
        each(from, to, [&](const rate_moment &moment) { queues.push_back(moment.queue_ms); });
        std::sort(queues.begin(), queues.end());
        return queues[static_cast<size_t>(share * static_cast<double>(queues.size() - 1))];
    }

    // First time from `from` on at which the estimate is within `low` to `high`, ms; none if it never is.
    std::optional<uint64_t> reaches(uint64_t from, double low, double high) const
    {
        for (const rate_moment &moment : moments_) {
            if (moment.ms >= from && moment.estimate_bps >= low && moment.estimate_bps <= high) {
                return moment.ms;
            }
        }
        return std::nullopt;
    }

  private:
    void each(uint64_t from, uint64_t to, const std::function<void(const rate_moment &)> &visit) const
    {
        for (const rate_moment &moment : moments_) {
            if (moment.ms >= from && moment.ms < to) {
                visit(moment);
            }
        }
    }

    void receiver_looks()
    {
        const zeb_ts_t now = settings_.starts_at + ms_;
        for (const bottleneck::packet &packet : path_.take(ms_ * 1000)) {
            KelvraBcmStat_OnRecvPacket(stat_, packet.seq, settings_.use_sent_ts ? packet.sent_ts : packet.rtp_timestamp,
                                       packet.size, now, 0);
        }
        uint64_t bps = 0;
        if (bcm_stat_take_remb(stat_, now, &bps)) {
            rembs_.push_back({ms_, bps});
        }
    }

    void sender_hears()
    {
        while (n_heard_ < rembs_.size() && rembs_[n_heard_].ms + settings_.path.propagation_ms <= ms_) {
            sender_.set_bps(static_cast<double>(rembs_[n_heard_].bps));
            n_heard_++;
        }
    }

    rate_simulation_settings settings_;
    bottleneck::path path_;
    bottleneck::video_sender sender_;
    KelvraBcmStatistics *stat_;
    uint64_t ms_ = 0;
    std::vector<rate_moment> moments_;
    std::vector<remb> rembs_;
    size_t n_heard_ = 0;
};
