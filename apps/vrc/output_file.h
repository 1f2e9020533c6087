// What the tool writes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace vrc
{

// A file that is written from front to back; "-" is standard output. An error is kept until close, so that
// writing is safe where nothing may be thrown.
class output_file
{
  public:
    // Creates the file, or empties it. Throws failure (no_access) when that cannot be done.
    explicit output_file(const std::string &path);
    ~output_file();
    output_file(const output_file &) = delete;
    output_file &operator=(const output_file &) = delete;

    // Returns false when this or an earlier write failed.
    bool write(const void *bytes, size_t size) noexcept;

    // Hands what was written so far to the system, for a reader who waits. Returns as write does.
    bool flush() noexcept;

    // Hands everything to the system. Throws failure (no_access) when something could not be written.
    void close();

    uint64_t size() const
    {
        return size_;
    }

    const std::string &name() const
    {
        return name_;
    }

  private:
    std::string name_;
    std::FILE *stream_ = nullptr;
    uint64_t size_ = 0;
    int error_ = 0;
};

// Writes to standard output or standard error. Throws failure (no_access) when that cannot be done.
void text_write(std::FILE *stream, std::string_view text);

} // namespace vrc
