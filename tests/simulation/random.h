// Chance that is the same everywhere: the standard's distributions may differ from library to library.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace simulation
{

// SplitMix64.
class Random
{
  public:
    explicit Random(uint64_t seed) : state_(seed)
    {
    }

    uint64_t next()
    {
        state_ += 0x9E3779B97F4A7C15u;
        uint64_t z = state_;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
        return z ^ (z >> 31);
    }

    // 0 to below 1.
    double real()
    {
        return static_cast<double>(next() >> 11) * 0x1p-53;
    }

    double real(double from, double to)
    {
        return from + (to - from) * real();
    }

    // 0 to n - 1.
    uint64_t below(uint64_t n)
    {
        return next() % n;
    }

    // Both ends included.
    uint64_t between(uint64_t from, uint64_t to)
    {
        return from + below(to - from + 1);
    }

    // Draws nothing for what never happens: a preset without it leaves the other draws alone.
    bool happens(double share)
    {
        return share > 0 && real() < share;
    }

    double normal()
    {
        const double radius = std::sqrt(-2 * std::log(1 - real()));
        return radius * std::cos(2 * 3.14159265358979323846 * real());
    }

    template <typename T, size_t n> const T &one_of(const T (&choices)[n])
    {
        return choices[below(n)];
    }

  private:
    uint64_t state_;
};

} // namespace simulation
