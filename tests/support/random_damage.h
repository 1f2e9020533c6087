// What a bad network or a bad sender makes of good bytes.
#pragma once

#include <cstddef>
#include <random>

// One to three bytes changed; of every fourth copy the end is missing. `Bytes` is a container of single bytes, not
// empty.
template <typename Bytes> Bytes random_damage(const Bytes &good, std::mt19937 *random)
{
    const auto below = [random](size_t bound) { return static_cast<size_t>((*random)()) % bound; };
    Bytes bad = good;
    for (size_t n = 1 + below(3); n > 0; n--) {
        bad[below(bad.size())] = static_cast<typename Bytes::value_type>(below(256));
    }
    if (below(4) == 0) {
        bad.resize(below(bad.size() + 1));
    }
    return bad;
}
