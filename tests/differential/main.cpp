// The same cases in every run, unless RC_PARAMS asks for others.
#include <cstdlib>

#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    setenv("RC_PARAMS", "seed=1 max_success=100", 0);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
