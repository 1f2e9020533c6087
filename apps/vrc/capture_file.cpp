#include "capture_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

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

// Returns 0 or the error.
int copy_all(int from, int to)
{
    std::array<char, 65536> buffer{};
    for (;;) {
        const ssize_t count = read(from, buffer.data(), buffer.size());
        if (count == 0) {
            return 0;
        }
        if (count < 0 || !write_all(to, buffer.data(), static_cast<size_t>(count))) {
            return errno;
        }
    }
}

} // namespace

capture_file::capture_file(const std::string &path) : name_(path == "-" ? "standard input" : path)
{
    descriptor_ = path == "-" ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor_ < 0) {
        fail(name_, errno);
    }
    struct stat status {
    };
    if (fstat(descriptor_, &status) != 0) {
        fail(name_, errno);
    }
    if (S_ISDIR(status.st_mode)) {
        fail(name_, EISDIR);
    }
    if (!S_ISREG(status.st_mode)) {
        keep_copy();
        fstat(descriptor_, &status);
    }
    size_ = static_cast<uint64_t>(status.st_size);
}

capture_file::~capture_file()
{
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
}

void capture_file::keep_copy()
{
    std::FILE *temporary = std::tmpfile();
    if (temporary == nullptr) {
        fail(name_, errno);
    }
    const int copy = dup(fileno(temporary));
    std::fclose(temporary);
    const int error = copy < 0 ? errno : copy_all(descriptor_, copy);
    close(descriptor_);
    descriptor_ = copy;
    if (error != 0) {
        fail(name_, error);
    }
}

bool capture_file::is_same_file(const std::string &path) const
{
    struct stat own {
    };
    struct stat other {
    };
    return fstat(descriptor_, &own) == 0 && stat(path.c_str(), &other) == 0 && own.st_dev == other.st_dev &&
           own.st_ino == other.st_ino;
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
