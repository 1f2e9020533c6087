// Memory for measurements: a request costs a fixed, small number of instructions, whatever was asked for before, and
// the bytes in use are counted.
#pragma once

#include <cstddef>

namespace measured_memory
{

struct usage {
    size_t bytes;  // as asked for
    size_t blocks; // what the heap itself takes for each comes on top
};

usage in_use();

// The most bytes that were in use at once since this was called last.
size_t peak();

} // namespace measured_memory
