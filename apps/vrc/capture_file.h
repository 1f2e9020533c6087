// A file that holds a capture and is read more than once.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace vrc
{

// Opens a capture; "-" is standard input. What cannot be read twice (a pipe) is copied to a temporary file.
// Throws failure (no_access) with the reason when it cannot be opened or copied.
class capture_file
{
  public:
    explicit capture_file(const std::string &path);
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

    // True when `path` leads to this very file, by whatever name.
    bool is_same_file(const std::string &path) const;

    // The file from its beginning; the caller closes it. Two of them share one position, so one at a time.
    std::FILE *open_stream() const;

  private:
    void keep_copy();

    std::string name_;
    int descriptor_ = -1;
    uint64_t size_ = 0;
};

} // namespace vrc
