// The initialisers of the loss and jitter calculators that every stream embeds.
#include "net_rcv_analyzer.h"

#include <gtest/gtest.h>

TEST(LossCalculator, InitClearsThePacketsReceivedAndNothingElse)
{
    seq_lost_calculator_t calculator = {1, 2, 3, 4};

    seq_lost_calculator_init(&calculator);
    EXPECT_EQ(calculator.n_received, 0);
    EXPECT_EQ(calculator.n_expected, 2);
    EXPECT_EQ(calculator.seq_max, 3);
    EXPECT_EQ(calculator.seq_min, 4);
}

TEST(JitterCalculator, InitClearsTheSampleCountAndNothingElse)
{
    jitter_calculator_t calculator = {1, 2, 3, 4};

    jitter_calculator_init(&calculator);
    EXPECT_EQ(calculator.last_got_at, 1u);
    EXPECT_EQ(calculator.n, 0u);
    EXPECT_EQ(calculator.j, 3);
    EXPECT_EQ(calculator.last_frame_ts, 4);
}
