// Every count of a replay as text, the same from vrc and from the device.
#pragma once

#include <cstdint>

#include "api/stream_report.h"

namespace vrc
{

struct replay_counts {
    const stream_report *report;
    const uint64_t *packets_refused; // PACKET_DROP_REASONS long
    uint64_t silence_skipped_ms;
};

// Takes one line, its newline included. Must not throw.
using line_taker = void (*)(void *context, const char *line);

// Gives `take` a line "name value" for each count, in a fixed order: those of stream_report by their names there, and
// "packets_refused.late" for a count by reason.
void replay_counts_write(const replay_counts &counts, line_taker take, void *context);

} // namespace vrc
