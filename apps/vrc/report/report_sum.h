// Counts of streams that make up one.
#pragma once

#include "api/stream_report.h"

namespace vrc
{

// Adds the counts of a stream that goes on where `*total` ends. The pause between the last frame and the first one is
// counted as the receiver counts pauses. Jitter and what was in the last second are those of `next`.
void report_add(stream_report *total, const stream_report &next);

} // namespace vrc
