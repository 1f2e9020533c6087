// What is measured: a scene prepares a stream, counts the calls in question, and says how many packets or calls it
// counted over.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench_stream.h"
#include "meter.h"

struct scene {
    const char *name;
    unsigned (*run)();
};

std::vector<scene> typical_calls(); // of the module, a packet or a call
std::vector<scene> client_calls();  // from the network to the application
std::vector<scene> worst_calls();   // of the module, the most that a call can be made to do

// A scene that is not what its name says measures nothing.
inline void require(bool holds, const char *what)
{
    if (!holds) {
        (void)std::printf("not so: %s\n", what);
        std::exit(1);
    }
}
