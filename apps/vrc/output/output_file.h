// What the tool writes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace vrc
{

// Who may read a file that is created; one that is there keeps its mode.
enum class file_privacy {
    owner_only, // what may be decrypted: pictures, packets
    shared,     // as the umask allows: counts
};

enum class file_start {
    anew,   // in place of what was there
    at_end, // behind it: the file was closed for a while
};

// A file that is written from front to back; "-" is standard output. An error is kept until close, so that
// writing is safe where nothing may be thrown.
class output_file
{
  public:
    // Creates the file. What is in it stays until something is written, or it is closed: a run that ends before because
    // another file cannot be opened loses nothing. Throws failure (no_access) when it cannot be opened for writing.
    output_file(const std::string &path, file_privacy privacy, file_start start = file_start::anew);
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
    bool start() noexcept;

    std::string name_;
    std::FILE *stream_ = nullptr;
    uint64_t size_ = 0;
    bool is_started_ = false; // what was in it before is gone
    int error_ = 0;
};

// Writes to standard output or standard error. Throws failure (no_access) when that cannot be done.
void text_write(std::FILE *stream, std::string_view text);

} // namespace vrc
