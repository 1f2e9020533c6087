// The host's counter: callgrind, told from inside when to count. Its dumps are read by script/instructions.
#include <cstdio>

#include <valgrind/callgrind.h>

#include "meter.h"

namespace
{

unsigned n_starts = 0;

} // namespace

void meter::start()
{
    n_starts++;
    CALLGRIND_TOGGLE_COLLECT;
}

void meter::stop()
{
    CALLGRIND_TOGGLE_COLLECT;
}

void meter::forget()
{
    CALLGRIND_ZERO_STATS;
    n_starts = 0;
}

void meter::report(const char *row, const char *log, unsigned n)
{
    char line[256];

    (void)snprintf(line, sizeof line, "%s|%s|%u|%u", row, log, n, n_starts);
    CALLGRIND_DUMP_STATS_AT(line);
    n_starts = 0;
}
