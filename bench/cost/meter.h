// Counts the instructions that calls execute. What is counted between start and stop adds up until it is reported.
#pragma once

namespace meter
{

void start();
void stop();

// Reports what was counted and forgets it. `row` names what was counted, `log` says whether messages were made, and
// `n` is the number of packets or calls that it was counted over.
void report(const char *row, const char *log, unsigned n);

// Forgets what was counted.
void forget();

// Counts one call.
template <typename Call> void metered(Call call)
{
    start();
    call();
    stop();
}

} // namespace meter
