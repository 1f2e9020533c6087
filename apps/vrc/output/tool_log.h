// The receiver's messages on standard error.
#pragma once

namespace vrc
{

// Prints what is said from now on, one line each. `verbosity` 0: what is always said, 1: what the receiver does,
// 2: everything.
void log_prepare(int verbosity);

} // namespace vrc
