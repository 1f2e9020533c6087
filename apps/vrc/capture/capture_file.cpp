#include "capture/capture_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "failure.h"

namespace vrc
{
namespace
{

[[noreturn]] void fail(const std::string &name, int error)
{
    throw failure(exit_code::no_access, fmt::format("cannot read '{}': {}", name, std::strerror(error)));
}

bool write_all(int descriptor, const char *bytes, size_t size)
{
    while (size > 0) {
        const ssize_t written = write(descriptor, bytes, size);
        if (written < 0) {
            return false;
        }
        bytes += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

[[noreturn]] void fail_copy(const std::string &name, int error)
{
    throw failure(exit_code::no_access,
                  fmt::format("cannot copy '{}' to the temporary folder: {}", name, std::strerror(error)));
}

[[noreturn]] void fail_endless(const std::string &name, uint64_t copy_max)
{
    throw failure(exit_code::no_access,
                  fmt::format("'{}' goes on after {} MiB: what is no file is copied to the temporary folder, up to "
                              "--copy-limit; save it as a file, or raise the limit",
                              name, copy_max >> 20));
}

void copy_all(const std::string &name, int from, int to, uint64_t copy_max)
{
    std::array<char, 65536> buffer{};
    uint64_t copied = 0;
    for (;;) {
        const ssize_t count = read(from, buffer.data(), buffer.size());
        if (count < 0) {
            fail(name, errno);
        }
        if (count == 0) {
            return;
        }
        copied += static_cast<uint64_t>(count);
        if (copied > copy_max) {
            fail_endless(name, copy_max);
        }
        if (!write_all(to, buffer.data(), static_cast<size_t>(count))) {
            fail_copy(name, errno);
        }
    }
}

// Closed again unless it is released.
class open_file
{
  public:
    explicit open_file(int descriptor) : descriptor_(descriptor)
    {
    }

    ~open_file()
    {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
    }

    open_file(const open_file &) = delete;
    open_file &operator=(const open_file &) = delete;

    int get() const
    {
        return descriptor_;
    }

    int release()
    {
        return std::exchange(descriptor_, -1);
    }

  private:
    int descriptor_;
};

// Returns the descriptor of a file that is gone when it is closed.
int copy_keep(const std::string &name, int from, uint64_t copy_max)
{
    std::FILE *temporary = std::tmpfile();
    if (temporary == nullptr) {
        fail_copy(name, errno);
    }
    open_file copy(dup(fileno(temporary)));
    std::fclose(temporary);
    if (copy.get() < 0) {
        fail_copy(name, errno);
    }
    copy_all(name, from, copy.get(), copy_max);
    return copy.release();
}

} // namespace

capture_file::capture_file(const std::string &path, uint64_t copy_max) : name_(path == "-" ? "standard input" : path)
{
    open_file opened(path == "-" ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (opened.get() < 0) {
        fail(name_, errno);
    }
    struct stat status {
    };
    if (fstat(opened.get(), &status) != 0) {
        fail(name_, errno);
    }
    if (S_ISDIR(status.st_mode)) {
        fail(name_, EISDIR);
    }
    descriptor_ = S_ISREG(status.st_mode) ? opened.release() : copy_keep(name_, opened.get(), copy_max);
    fstat(descriptor_, &status);
    size_ = static_cast<uint64_t>(status.st_size);
}

capture_file::~capture_file()
{
    close(descriptor_);
}

std::FILE *capture_file::open_stream() const
{
    const int copy = dup(descriptor_);
    std::FILE *stream = copy < 0 ? nullptr : fdopen(copy, "rb");
    if (stream == nullptr || std::fseek(stream, 0, SEEK_SET) != 0) {
        fail(name_, errno);
    }
    return stream;
}

} // namespace vrc
