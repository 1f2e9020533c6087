// Which packets are worth a search for their sender's roll-over count (RFC 3711, 3.3.1).
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "capture/datagram_parser.h"
#include "zeb_platform.h"

namespace vrc
{

// What is spent on searches, in trial decryptions; one of the largest packet takes about 4 us on a desktop core, so that
// this is a tenth of it. Each half of the budget may be saved up for kSearchesSaved searches.
constexpr uint32_t kSearchTrialsPerSecond = 25'600;
constexpr uint32_t kSearchesSaved = 2;

// How long somebody is not searched for again, milliseconds; doubles with each search in vain.
constexpr zeb_ts_t kSearchPauseMin = 1000;
constexpr zeb_ts_t kSearchPauseMax = 64'000;

// Packets that are not authentic cannot be told from those of a sender who has yet to be found, and who sends them can send
// many. So the budget is limited, and shared: after a search in vain its sender has to pause, and after it his host cannot
// draw on one half of the budget. When more packets want a search than there can be, chance decides, so that a flood cannot
// arrange to come first.
class srtp_search_budget
{
  public:
    // A search takes `cost` trials, more than 0.
    srtp_search_budget(uint32_t cost, uint32_t seed);

    // Whether to search with this packet; if so, the search counts as made. The time is in milliseconds and never
    // decreases, here and below.
    bool take(const endpoint &from, uint32_t ssrc, zeb_ts_t now);

    // The search found nothing.
    void note_vain(const endpoint &from, uint32_t ssrc, zeb_ts_t now);

    // The sender's packets are authentic.
    void note_authentic(const endpoint &from, uint32_t ssrc);

  private:
    // Draws among the packets that come while there is too little for all of them. In thousandths of a trial, so
    // that a millisecond brings whole ones.
    struct lottery {
        uint64_t saved = 0;
        uint64_t n_waiting = 0; // packets since the last search
        uint64_t n_passed = 0;  // packets that are passed over before the next one
    };

    struct pause {
        uint64_t key = 0; // 0: free
        unsigned n_vain = 0;
        zeb_ts_t until = 0;
    };

    uint64_t key_of(const endpoint &from, const uint32_t *ssrc) const;
    pause &pause_of(uint64_t key);
    bool is_pausing(uint64_t key, zeb_ts_t now);
    void prolong(uint64_t key, zeb_ts_t now);
    void refill(zeb_ts_t now);
    bool draw(lottery *from);

    uint64_t cost_;
    uint64_t saved_max_;
    uint64_t seed_;
    std::minstd_rand random_;
    lottery for_new_hosts_;
    lottery for_all_;
    zeb_ts_t refilled_at_ = 0;
    std::vector<pause> pauses_; // by key, in a place that it alone decides; another key's is taken over
};

} // namespace vrc
