// A run of bytes that belongs to somebody else.
#pragma once

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>

namespace vrc
{

class byte_view
{
  public:
    byte_view() = default;
    byte_view(const uint8_t *data, size_t size) : data_(data), size_(size)
    {
    }

    const uint8_t *data() const
    {
        return data_;
    }

    size_t size() const
    {
        return size_;
    }

    bool empty() const
    {
        return size_ == 0;
    }

    uint8_t operator[](size_t index) const
    {
        assert(index < size_);
        return data_[index];
    }

    // Without the first `count` bytes; empty when there are no more than that.
    byte_view skip(size_t count) const
    {
        return count < size_ ? byte_view(data_ + count, size_ - count) : byte_view();
    }

    // The first `count` bytes, or all when there are fewer.
    byte_view first(size_t count) const
    {
        return {data_, std::min(count, size_)};
    }

    // Numbers in network order; the bytes must be there.
    uint16_t be16(size_t offset) const
    {
        return static_cast<uint16_t>((*this)[offset] << 8 | (*this)[offset + 1]);
    }

    uint32_t be32(size_t offset) const
    {
        return static_cast<uint32_t>(be16(offset)) << 16 | be16(offset + 2);
    }

  private:
    const uint8_t *data_ = nullptr;
    size_t size_ = 0;
};

} // namespace vrc
