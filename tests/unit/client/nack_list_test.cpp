#include "repair/nack_list.h"

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace
{

constexpr zeb_ts_t kStart = 5000;

// A list, the virtual time, and what was asked for at each call.
class NackList : public testing::Test
{
  protected:
    std::vector<uint32_t> due(zeb_ts_t at, size_t capacity = kNackListMax)
    {
        std::vector<uint32_t> numbers(kNackListMax);
        numbers.resize(nack_list_take_due(&list, kStart + at, numbers.data(), capacity));
        return numbers;
    }

    void lose(uint32_t first, uint32_t last, zeb_ts_t at)
    {
        nack_list_add(&list, first, last, kStart + at);
    }

    bool arrive(uint32_t number, zeb_ts_t at)
    {
        return nack_list_remove(&list, number, kStart + at);
    }

    nack_list list = {};
};

using Numbers = std::vector<uint32_t>;

TEST_F(NackList, AsksForNothingWhenNothingIsMissing)
{
    EXPECT_EQ(due(0), Numbers());
    EXPECT_EQ(nack_list_next_at(&list), kNackNever);
    EXPECT_EQ(nack_list_oldest(&list), nullptr);
}

TEST_F(NackList, HoldsTheFirstRequestForPacketsThatAreOnlyLate)
{
    lose(70, 72, 0);
    EXPECT_EQ(nack_list_next_at(&list), kStart + kNackHoldMin);
    EXPECT_EQ(due(kNackHoldMin - 1), Numbers());
    EXPECT_TRUE(arrive(71, kNackHoldMin - 1));
    EXPECT_EQ(due(kNackHoldMin), (Numbers{70, 72}));
}

TEST_F(NackList, NeverAsksForWhatHasArrived)
{
    lose(70, 70, 0);
    EXPECT_TRUE(arrive(70, 5));
    EXPECT_FALSE(arrive(70, 6));
    EXPECT_FALSE(arrive(71, 6));
    EXPECT_EQ(due(1000), Numbers());
}

TEST_F(NackList, AsksAgainAfterTheAssumedRoundTripWhileNoneIsMeasured)
{
    lose(70, 70, 0);
    const zeb_ts_t repeat = kNackRttUnknown + 1;
    EXPECT_EQ(due(10), Numbers{70});
    EXPECT_EQ(due(10 + repeat - 1), Numbers());
    EXPECT_EQ(due(10 + repeat), Numbers{70});
}

TEST_F(NackList, AsksAgainNoSoonerThanTheMeasuredRoundTrip)
{
    lose(70, 70, 0);
    due(10);
    arrive(70, 70);
    EXPECT_EQ(nack_list_rtt(&list), 60u);
    lose(80, 80, 100);
    EXPECT_EQ(due(110), Numbers{80});
    EXPECT_EQ(nack_list_next_at(&list), kStart + 110 + 65); // one is no measure of the play
    EXPECT_EQ(due(110 + 64), Numbers());
    EXPECT_EQ(due(110 + 65), Numbers{80});
}

TEST_F(NackList, AsksAgainSoonerTheMoreTheRoundTripsAreAlike)
{
    struct {
        zeb_ts_t play; // round trips are longer and shorter by so much, ms
        zeb_ts_t repeat;
    } const rows[] = {{0, 60 + 1}, {1, 60 + 1 + 2}, {4, 60 + 1 + 8}, {16, 60 + 1 + 32}};
    for (const auto &row : rows) {
        list = {};
        for (uint32_t i = 0; i < 40; i++) {
            const zeb_ts_t begin = i * 1000;
            lose(i, i, begin);
            due(begin + 10);
            arrive(i, begin + 10 + (i % 2 == 0 ? 60 + row.play : 60 - row.play));
        }
        lose(100, 100, 50000);
        due(50010);
        const zeb_ts_t repeat = nack_list_next_at(&list) - kStart - 50010;
        EXPECT_NEAR(static_cast<double>(repeat), static_cast<double>(row.repeat), 3) << row.play;
    }
}

TEST_F(NackList, DoesNotMeasureWhatMayAnswerEitherOfTwoRequests)
{
    lose(70, 70, 0);
    due(10);
    due(200);
    arrive(70, 210);
    EXPECT_EQ(nack_list_rtt(&list), kNackRttUnknown);
}

TEST_F(NackList, DoesNotTakeAPacketThatWasOnlyLateForARoundTrip)
{
    lose(70, 70, 0);
    due(10);
    arrive(70, 10 + kNackRttUnknown / 2 - 1);
    EXPECT_EQ(nack_list_rtt(&list), kNackRttUnknown);
}

TEST_F(NackList, TakesAnAnswerRightBehindARepeatForNoLatePacket)
{
    lose(70, 70, 0);
    due(5);
    due(5 + kNackRttUnknown + 1);
    arrive(70, 5 + kNackRttUnknown + 1 + 2);
    EXPECT_EQ(nack_list_hold(&list), kNackHoldMin);
    EXPECT_EQ(nack_list_rtt(&list), kNackRttUnknown);
}

TEST_F(NackList, HoldsLongerOnAPathThatReorders)
{
    lose(70, 70, 0);
    due(5);
    arrive(70, 25); // asked for, but this was no answer yet
    EXPECT_EQ(nack_list_hold(&list), 25u);
    lose(80, 80, 100);
    EXPECT_EQ(due(124), Numbers());
    EXPECT_EQ(due(125), Numbers{80});
    for (uint32_t number = 100; number < 200; number++) {
        lose(number, number, 1000);
        arrive(number, 1001);
    }
    EXPECT_EQ(nack_list_hold(&list), kNackHoldMin);
    lose(300, 300, 2000);
    arrive(300, 2900);
    EXPECT_EQ(nack_list_hold(&list), kNackHoldMax);
}

TEST_F(NackList, SmoothsTheRoundTrip)
{
    lose(70, 71, 0);
    due(10);
    arrive(70, 90);
    arrive(71, 170);
    EXPECT_EQ(nack_list_rtt(&list), 90u); // 80 + (160 - 80) / 8
}

TEST_F(NackList, StopsAfterTenRequestsAndSaysWhenTheyAreUsedUp)
{
    lose(70, 70, 0);
    due(10);
    arrive(70, 74); // 64 ms there and back: asked again every 69 ms
    lose(80, 80, 100);
    size_t requests = 0;
    zeb_ts_t last = 0;
    for (zeb_ts_t at = 100; at < 1500; at++) {
        if (!due(at).empty()) {
            requests++;
            last = at;
        }
    }
    EXPECT_EQ(requests, kNackTriesMax);
    EXPECT_FALSE(nack_list_is_used_up(&list, nack_list_oldest(&list), kStart + last + 68));
    EXPECT_TRUE(nack_list_is_used_up(&list, nack_list_oldest(&list), kStart + last + 69));
    EXPECT_EQ(nack_list_next_at(&list), kNackNever);
}

TEST_F(NackList, ForgetsWhatIsOlderThanThePatience)
{
    lose(70, 70, 0);
    lose(80, 80, 1);
    EXPECT_EQ(due(kNackPatience), Numbers{80});
    EXPECT_EQ(nack_list_oldest(&list)->number, 80u);
}

TEST_F(NackList, ForgetsWhatNothingWaitsForAnyMore)
{
    lose(70, 79, 0);
    nack_list_forget_below(&list, 75);
    EXPECT_EQ(due(10), (Numbers{75, 76, 77, 78, 79}));
    nack_list_forget_below(&list, 1000);
    EXPECT_EQ(list.count, 0u);
}

TEST_F(NackList, KeepsTheNewestOfABurstThatDoesNotFit)
{
    lose(1, 100, 0);
    lose(1000, 1000 + 10 * kNackListMax, 5);
    EXPECT_EQ(list.count, kNackListMax);
    EXPECT_EQ(list.missing[0].number, 1000 + 9 * kNackListMax + 1);
    EXPECT_EQ(list.missing[kNackListMax - 1].number, 1000 + 10 * kNackListMax);
}

TEST_F(NackList, MakesRoomByForgettingTheOldest)
{
    lose(1, kNackListMax, 0);
    lose(2000, 2001, 5);
    EXPECT_EQ(list.count, kNackListMax);
    EXPECT_EQ(list.missing[0].number, 3u);
}

TEST_F(NackList, AsksForNoMoreAtATimeThanThereIsRoomFor)
{
    lose(70, 79, 0);
    EXPECT_EQ(due(10, 4), (Numbers{70, 71, 72, 73}));
    EXPECT_EQ(due(10, 40), (Numbers{74, 75, 76, 77, 78, 79}));
}

TEST_F(NackList, KeepsTheOrderAcrossTheEndOfTheNumbers)
{
    lose(0xFFFFFFFE, 1, 0);
    EXPECT_TRUE(arrive(0, 2));
    EXPECT_TRUE(arrive(0xFFFFFFFF, 2));
    EXPECT_EQ(due(10), (Numbers{0xFFFFFFFE, 1}));
}

TEST_F(NackList, TakesInOneNumberAmongTheOthers)
{
    lose(70, 72, 0);
    nack_list_insert(&list, 69, kStart);
    nack_list_insert(&list, 71, kStart);
    nack_list_insert(&list, 80, kStart);
    EXPECT_EQ(due(10), (Numbers{69, 70, 71, 72, 80}));
    for (uint32_t number = 100; number < 100 + kNackListMax; number++) {
        nack_list_insert(&list, number, kStart);
    }
    EXPECT_EQ(list.count, kNackListMax);
    EXPECT_EQ(list.missing[0].number, 100u);
}

TEST_F(NackList, KeepsTheRoundTripWhenItIsCleared)
{
    lose(70, 71, 0);
    due(10);
    arrive(70, 60);
    nack_list_clear(&list);
    EXPECT_EQ(due(500), Numbers());
    EXPECT_EQ(nack_list_rtt(&list), 50u);
}

// ---- The packet behind the newest one ----

TEST_F(NackList, AsksForASuspectOnceItsHoldIsOver)
{
    nack_list_suspect(&list, 70, kStart + 5);
    EXPECT_EQ(nack_list_next_at(&list), kStart + 5 + kNackHoldMin);
    EXPECT_EQ(due(5 + kNackHoldMin - 1), Numbers());
    EXPECT_EQ(due(5 + kNackHoldMin), Numbers{70});
    EXPECT_EQ(nack_list_oldest(&list), nullptr); // nothing is known to be missing
    ASSERT_NE(nack_list_find(&list, 70), nullptr);
    EXPECT_EQ(nack_list_find(&list, 70)->tries, 1);
}

TEST_F(NackList, AsksForASuspectBehindWhatIsMissing)
{
    lose(70, 71, 0);
    nack_list_suspect(&list, 73, kStart);
    EXPECT_EQ(due(10, 2), (Numbers{70, 71}));
    EXPECT_EQ(due(10), Numbers{73});
}

TEST_F(NackList, AsksForASuspectThreeTimesAtMost)
{
    nack_list_suspect(&list, 70, kStart);
    size_t requests = 0;
    for (zeb_ts_t at = 0; at < 1500; at++) {
        requests += due(at).size();
    }
    EXPECT_EQ(requests, kNackSuspectTriesMax);
    EXPECT_EQ(nack_list_next_at(&list), kNackNever);
}

TEST_F(NackList, AsksForNoSuspectThatHasComeOrGivenWay)
{
    nack_list_suspect(&list, 70, kStart);
    EXPECT_FALSE(nack_list_settle_suspect(&list, 70, true, kStart + 1));
    EXPECT_EQ(due(100), Numbers());
    nack_list_suspect(&list, 71, kStart + 100);
    nack_list_suspect(&list, 72, kStart + 100);
    EXPECT_EQ(due(200), Numbers{72});
    nack_list_clear(&list);
    EXPECT_EQ(due(1000), Numbers());
}

TEST_F(NackList, MeasuresTheRoundTripByASuspectThatWasLost)
{
    nack_list_suspect(&list, 70, kStart);
    due(10);
    EXPECT_TRUE(nack_list_settle_suspect(&list, 70, true, kStart + 70));
    EXPECT_EQ(nack_list_rtt(&list), 60u);
}

TEST_F(NackList, DoesNotTakeASuspectThatWasOnlyLateForAnAnswer)
{
    nack_list_suspect(&list, 70, kStart);
    due(10);
    EXPECT_FALSE(nack_list_settle_suspect(&list, 70, true, kStart + 15));
    EXPECT_EQ(nack_list_rtt(&list), kNackRttUnknown);
    EXPECT_EQ(nack_list_hold(&list), kNackHoldMin);
}

TEST_F(NackList, DoesNotTakeWhatTheSenderSendsNextForAnAnswer)
{
    nack_list_suspect(&list, 70, kStart);
    due(10);
    EXPECT_FALSE(nack_list_settle_suspect(&list, 70, false, kStart + 70));
    EXPECT_EQ(nack_list_rtt(&list), kNackRttUnknown);
}

TEST_F(NackList, CountsTheRequestForASuspectThatTurnsOutToBeMissing)
{
    nack_list_suspect(&list, 70, kStart);
    EXPECT_EQ(due(10), Numbers{70});
    lose(70, 71, 33);
    EXPECT_EQ(due(33 + kNackHoldMin), Numbers{71});
    EXPECT_EQ(due(10 + kNackRttUnknown), Numbers());
    EXPECT_EQ(due(10 + kNackRttUnknown + 1), Numbers{70});
}

} // namespace
