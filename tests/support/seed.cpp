#include "seed.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace test_support
{

namespace
{

uint32_t choose_seed()
{
    const char *given = std::getenv("VIDEO_STREAM_TEST_SEED");
    const uint32_t seed = given != nullptr ? static_cast<uint32_t>(std::strtoul(given, nullptr, 0))
                                           : static_cast<uint32_t>(std::random_device{}());

    std::printf("[   seed   ] VIDEO_STREAM_TEST_SEED=%" PRIu32 "\n", seed);
    return seed;
}

} // namespace

uint32_t test_seed()
{
    static const uint32_t seed = choose_seed();

    return seed;
}

} // namespace test_support
