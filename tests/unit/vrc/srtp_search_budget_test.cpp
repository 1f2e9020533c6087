#include "srtp/srtp_search_budget.h"

#include <gtest/gtest.h>

#include <ostream>

using namespace vrc;

namespace
{

constexpr uint32_t kCost = 1024;       // trials
constexpr uint32_t kSender = 7;        // SSRC
constexpr uint8_t kSenderHost = 1;     // last number of its address
constexpr zeb_ts_t kSenderStep = 10;   // milliseconds between its packets
constexpr zeb_ts_t kPatience = 20'000; // milliseconds

endpoint host_at(uint8_t host)
{
    endpoint made;
    made.address.bytes = {192, 0, 2, host};
    made.port = 4000;
    return made;
}

constexpr uint8_t kEveryHost = 0;

struct flood {
    unsigned a_second; // packets that are not authentic
    uint32_t ssrcs;
    uint8_t host;   // last number of its address; kEveryHost: another one for each packet
    zeb_ts_t ahead; // how long it has been going on when the sender joins, milliseconds
};

std::ostream &operator<<(std::ostream &out, const flood &one)
{
    return out << one.a_second << " a second of " << one.ssrcs << " SSRCs, host " << int{one.host} << ", " << one.ahead
               << " ms ahead";
}

std::vector<flood> floods(uint8_t host)
{
    std::vector<flood> rows;
    for (const unsigned a_second : {10u, 100u, 1000u, 10'000u}) {
        for (const uint32_t ssrcs : {1u, 10u, 100u, 1000u}) {
            for (const zeb_ts_t ahead : {zeb_ts_t{0}, zeb_ts_t{20'000}}) {
                rows.push_back({a_second, ssrcs, host, ahead});
            }
        }
    }
    return rows;
}

// A sender that any search with one of its packets finds, and a flood that no search finds anything in.
class scene
{
  public:
    scene(const flood &junk, uint32_t seed) : junk_(junk), budget_(kCost, seed)
    {
    }

    // Milliseconds until the sender is found; kPatience when it is not.
    zeb_ts_t time_to_find()
    {
        const zeb_ts_t joins_at = kBegin + junk_.ahead;
        for (zeb_ts_t now = kBegin; now < joins_at + kPatience; ++now) {
            send_junk(now);
            const bool is_sending = now >= joins_at && now % kSenderStep == 0;
            if (is_sending && take(host_at(kSenderHost), kSender, now)) {
                return now - joins_at;
            }
            const uint64_t may_have = 2 * kSearchesSaved * kCost + kSearchTrialsPerSecond * (now - kBegin) / 1000;
            if (trials_ > may_have) {
                ADD_FAILURE() << trials_ << " trials in " << now - kBegin << " ms";
                break;
            }
        }
        return kPatience;
    }

  private:
    static constexpr zeb_ts_t kBegin = 10'000;

    bool take(const endpoint &from, uint32_t ssrc, zeb_ts_t now)
    {
        const bool is_taken = budget_.take(from, ssrc, now);
        trials_ += is_taken ? kCost : 0;
        return is_taken;
    }

    void send_junk(zeb_ts_t now)
    {
        for (due_ += junk_.a_second; due_ >= 1000; due_ -= 1000) {
            const uint32_t ssrc = 1000 + n_junk_++ % junk_.ssrcs;
            const endpoint from = host_at(junk_.host != kEveryHost ? junk_.host : static_cast<uint8_t>(n_junk_));
            if (take(from, ssrc, now)) {
                budget_.note_vain(from, ssrc, now);
            }
        }
    }

    flood junk_;
    srtp_search_budget budget_;
    uint64_t trials_ = 0;
    unsigned due_ = 0; // thousandths of a packet
    uint32_t n_junk_ = 0;
};

} // namespace

TEST(SrtpSearchBudget, SearchesWithTheFirstPacketOfASenderOnAnotherHost)
{
    for (const flood &row : floods(66)) {
        for (uint32_t seed = 1; seed <= 2; ++seed) {
            EXPECT_LE(scene(row, seed).time_to_find(), 2 * kSenderStep) << row;
        }
    }
}

TEST(SrtpSearchBudget, FindsASenderOnTheHostOfTheFlood)
{
    for (const uint8_t host : {kSenderHost, kEveryHost}) {
        for (const flood &row : floods(host)) {
            for (uint32_t seed = 1; seed <= 2; ++seed) {
                EXPECT_LT(scene(row, seed).time_to_find(), kPatience) << row;
            }
        }
    }
}

TEST(SrtpSearchBudget, PausesLongerAfterEachSearchInVain)
{
    srtp_search_budget budget(kCost, 1);
    zeb_ts_t now = 1000;
    for (zeb_ts_t pause = kSearchPauseMin; pause <= 2 * kSearchPauseMax; pause *= 2) {
        ASSERT_TRUE(budget.take(host_at(1), kSender, now));
        budget.note_vain(host_at(1), kSender, now);
        now += std::min(pause, kSearchPauseMax);
        EXPECT_FALSE(budget.take(host_at(1), kSender, now - 1));
    }
    EXPECT_TRUE(budget.take(host_at(1), kSender, now + kSearchPauseMax)) << "which is long ago";
    budget.note_vain(host_at(1), kSender, now + kSearchPauseMax);
    EXPECT_TRUE(budget.take(host_at(1), kSender, now + kSearchPauseMax + kSearchPauseMin)) << "and forgotten";
}

TEST(SrtpSearchBudget, DoesNotPauseForASenderThatIsAuthentic)
{
    srtp_search_budget budget(kCost, 1);
    ASSERT_TRUE(budget.take(host_at(1), kSender, 1000));
    budget.note_vain(host_at(1), kSender, 1000);
    budget.note_authentic(host_at(1), kSender);
    EXPECT_TRUE(budget.take(host_at(1), kSender, 1001));
}
