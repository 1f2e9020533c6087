// Order on the circles of sequence numbers, by counting steps in wide integers.
#pragma once

#include <cstdint>

namespace differential
{

constexpr int64_t kCircle16 = int64_t{1} << 16;
constexpr int64_t kCircle32 = int64_t{1} << 32;

// Steps forward that lead from `from` to `to`.
constexpr int64_t steps(int64_t from, int64_t to, int64_t circle)
{
    return ((to - from) % circle + circle) % circle;
}

// Less than half a circle ahead; half a circle is neither ahead nor behind.
constexpr bool is_ahead(int64_t a, int64_t b, int64_t circle)
{
    return steps(b, a, circle) > 0 && steps(b, a, circle) < circle / 2;
}

constexpr bool after16(uint32_t a, uint32_t b)
{
    return is_ahead(a & 0xFFFF, b & 0xFFFF, kCircle16);
}

constexpr bool after_eq16(uint32_t a, uint32_t b)
{
    return (a & 0xFFFF) == (b & 0xFFFF) || after16(a, b);
}

constexpr bool after32(uint32_t a, uint32_t b)
{
    return is_ahead(a, b, kCircle32);
}

constexpr bool after_eq32(uint32_t a, uint32_t b)
{
    return a == b || after32(a, b);
}

constexpr uint16_t plus16(uint32_t value, int64_t n)
{
    return static_cast<uint16_t>(steps(0, int64_t{value} + n, kCircle16));
}

constexpr uint32_t plus32(uint32_t value, int64_t n)
{
    return static_cast<uint32_t>(steps(0, int64_t{value} + n, kCircle32));
}

} // namespace differential
