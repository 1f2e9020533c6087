// Ends the process, and so the fuzzer's run, when something does not hold.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace fuzz
{

inline void check(bool holds, const char *what)
{
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}

inline void check_none(const std::string &findings)
{
    if (!findings.empty()) {
        std::fprintf(stderr, "does not hold:\n%s", findings.c_str());
        std::abort();
    }
}

} // namespace fuzz
