// The bytes of one fuzzer input, taken off the front. What is not there reads as 0, so that a cut input is a shorter one.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace fuzz
{

class Input
{
  public:
    Input(const uint8_t *data, size_t size) : at_(data), left_(size)
    {
    }

    bool is_empty() const
    {
        return left_ == 0;
    }

    uint8_t u8()
    {
        if (left_ == 0) {
            return 0;
        }
        left_--;
        return *at_++;
    }

    // A step from -128 to 127, modulo 2^32.
    uint32_t step()
    {
        const uint32_t value = u8();
        return value < 128 ? value : value - 256;
    }

    uint16_t u16()
    {
        const unsigned high = u8();
        return static_cast<uint16_t>(high << 8 | u8());
    }

    uint32_t u32()
    {
        const uint32_t high = u16();
        return high << 16 | u16();
    }

    // A copy of its own, so that a read beyond its end is found.
    std::vector<uint8_t> bytes(size_t count)
    {
        const size_t size = std::min(count, left_);
        std::vector<uint8_t> taken(at_, at_ + size);
        taken.shrink_to_fit();
        at_ += size;
        left_ -= size;
        return taken;
    }

    std::vector<uint8_t> rest()
    {
        return bytes(left_);
    }

  private:
    const uint8_t *at_;
    size_t left_;
};

} // namespace fuzz
