// A file that holds a capture and is read more than once.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace vrc
{

constexpr uint64_t kCaptureCopyMax = UINT64_C(1) << 30; // bytes: an hour at 2 Mbit/s

// Opens a capture; "-" is standard input. What cannot be read twice (a pipe, a device) is copied to a temporary file, which
// has no name and is the owner's alone. Throws failure (no_access) with the reason when it cannot be opened, or not be
// copied, as when there are more than `copy_max` bytes.
class capture_file
{
  public:
    explicit capture_file(const std::string &path, uint64_t copy_max = kCaptureCopyMax);
    ~capture_file();
    capture_file(const capture_file &) = delete;
    capture_file &operator=(const capture_file &) = delete;

    // For messages.
    const std::string &name() const
    {
        return name_;
    }

    uint64_t size() const
    {
        return size_;
    }

    // The file from its beginning; the caller closes it. Two of them share one position, so one at a time.
    std::FILE *open_stream() const;

  private:
    std::string name_;
    int descriptor_ = -1;
    uint64_t size_ = 0;
};

} // namespace vrc
