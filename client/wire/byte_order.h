// Numbers in network order. Packet bytes have no alignment, so they are read and written one by one.
#pragma once

#include <cstdint>

inline uint16_t be16_read(const uint8_t *bytes)
{
    return static_cast<uint16_t>((bytes[0] << 8) | bytes[1]);
}

inline uint32_t be32_read(const uint8_t *bytes)
{
    return (static_cast<uint32_t>(be16_read(bytes)) << 16) | be16_read(bytes + 2);
}

inline void be16_write(uint8_t *bytes, uint16_t value)
{
    bytes[0] = static_cast<uint8_t>(value >> 8);
    bytes[1] = static_cast<uint8_t>(value);
}

inline void be32_write(uint8_t *bytes, uint32_t value)
{
    be16_write(bytes, static_cast<uint16_t>(value >> 16));
    be16_write(bytes + 2, static_cast<uint16_t>(value));
}
