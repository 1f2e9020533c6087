// Memory that ends where its contents do, so that the address sanitizer sees the first byte read behind it.
#pragma once

#include <cstring>
#include <memory>

class exact_copy
{
  public:
    // `Bytes` is a container of single bytes.
    template <typename Bytes>
    explicit exact_copy(const Bytes &contents)
        : memory(std::make_unique<unsigned char[]>(contents.size())), count(contents.size())
    {
        if (count > 0) {
            memcpy(memory.get(), contents.data(), count);
        }
    }

    const unsigned char *data() const
    {
        return memory.get();
    }

    const char *text() const
    {
        return reinterpret_cast<const char *>(memory.get());
    }

    size_t size() const
    {
        return count;
    }

  private:
    std::unique_ptr<unsigned char[]> memory;
    size_t count;
};
