#include "srtp/srtp_search_budget.h"

#include <algorithm>

namespace vrc
{
namespace
{

constexpr uint64_t kPerTrial = 1000;
constexpr uint64_t kHalfPerMs = kSearchTrialsPerSecond / 2; // thousandths of a trial in a millisecond
constexpr size_t kPausesMax = 4096;
constexpr zeb_ts_t kRefillMax = 100'000; // milliseconds; fills every budget

// FNV-1a.
uint64_t hash_more(uint64_t hash, uint8_t byte)
{
    constexpr uint64_t prime = 1099511628211u;
    return (hash ^ byte) * prime;
}

} // namespace

srtp_search_budget::srtp_search_budget(uint32_t cost, uint32_t seed)
    : cost_(cost * kPerTrial), saved_max_(kSearchesSaved * cost_), seed_(14695981039346656037u ^ seed), random_(seed),
      pauses_(kPausesMax)
{
    for_new_hosts_.saved = saved_max_;
    for_all_.saved = saved_max_;
}

// Of a sender, or of a host without an SSRC. The seed keeps others from choosing places.
uint64_t srtp_search_budget::key_of(const endpoint &from, const uint32_t *ssrc) const
{
    uint64_t key = hash_more(seed_, from.address.is_v6 ? 1 : 0);
    for (const uint8_t byte : from.address.bytes) {
        key = hash_more(key, byte);
    }
    for (unsigned shift = 0; ssrc != nullptr && shift < 32; shift += 8) {
        key = hash_more(key, static_cast<uint8_t>(*ssrc >> shift));
    }
    return key | 1;
}

srtp_search_budget::pause &srtp_search_budget::pause_of(uint64_t key)
{
    return pauses_[(key >> 32) % kPausesMax];
}

bool srtp_search_budget::is_pausing(uint64_t key, zeb_ts_t now)
{
    const pause &found = pause_of(key);
    return found.key == key && now < found.until;
}

void srtp_search_budget::prolong(uint64_t key, zeb_ts_t now)
{
    pause &found = pause_of(key);
    const bool is_recent = found.key == key && now - found.until < kSearchPauseMax;
    const unsigned n_before = is_recent ? found.n_vain : 0;
    constexpr unsigned doublings_max = 6;
    static_assert(kSearchPauseMin << doublings_max == kSearchPauseMax, "64 times as long at the most");
    found = {key, n_before + 1, now + (kSearchPauseMin << std::min(n_before, doublings_max))};
}

// What one half has no room for is the other's.
void srtp_search_budget::refill(zeb_ts_t now)
{
    const uint64_t share = std::min(now - refilled_at_, kRefillMax) * kHalfPerMs;
    refilled_at_ = now;
    const uint64_t left = for_new_hosts_.saved + share - std::min(for_new_hosts_.saved + share, saved_max_);
    for_new_hosts_.saved += share - left;
    for_all_.saved = std::min(for_all_.saved + share + left, saved_max_);
}

// Every packet has the same chance: about as many are passed over as came for the search before. Not once there is enough
// for two searches: then there are fewer packets than before.
bool srtp_search_budget::draw(lottery *from)
{
    ++from->n_waiting;
    if (from->saved < cost_) {
        return false;
    }
    if (from->saved < 2 * cost_ && from->n_passed > 0) {
        --from->n_passed;
        return false;
    }
    from->saved -= cost_;
    from->n_passed = std::uniform_int_distribution<uint64_t>(0, from->n_waiting - 1)(random_);
    from->n_waiting = 0;
    return true;
}

bool srtp_search_budget::take(const endpoint &from, uint32_t ssrc, zeb_ts_t now)
{
    refill(now);
    if (is_pausing(key_of(from, &ssrc), now)) {
        return false;
    }
    const bool is_new_host = !is_pausing(key_of(from, nullptr), now);
    return (is_new_host && draw(&for_new_hosts_)) || draw(&for_all_);
}

void srtp_search_budget::note_vain(const endpoint &from, uint32_t ssrc, zeb_ts_t now)
{
    prolong(key_of(from, &ssrc), now);
    prolong(key_of(from, nullptr), now);
}

void srtp_search_budget::note_authentic(const endpoint &from, uint32_t ssrc)
{
    for (const uint64_t key : {key_of(from, &ssrc), key_of(from, nullptr)}) {
        pause &found = pause_of(key);
        found = found.key == key ? pause() : found;
    }
}

} // namespace vrc
