// The seed of everything random in a test program.
#pragma once

#include <cstdint>

namespace test_support
{

// The same for the whole run: VIDEO_STREAM_TEST_SEED when it is set, else drawn. Printed when it is first asked
// for, so that a failed run can be had again.
uint32_t test_seed();

} // namespace test_support
