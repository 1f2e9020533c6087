#include "output/output_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "failure.h"

namespace vrc
{
namespace
{

[[noreturn]] void fail(std::string_view name, int error)
{
    throw failure(exit_code::no_access, fmt::format("cannot write {}: {}", name, std::strerror(error)));
}

// Null with errno.
std::FILE *file_open(const std::string &path, file_privacy privacy, file_start start)
{
    constexpr mode_t owner = S_IRUSR | S_IWUSR;
    constexpr mode_t everybody = owner | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH; // less the umask
    const mode_t mode = privacy == file_privacy::owner_only ? owner : everybody;
    const int flags = start == file_start::at_end ? O_WRONLY | O_APPEND | O_CLOEXEC : O_WRONLY | O_CREAT | O_CLOEXEC;
    const int descriptor = open(path.c_str(), flags, mode);
    std::FILE *stream = descriptor < 0 ? nullptr : fdopen(descriptor, "wb");
    if (descriptor >= 0 && stream == nullptr) {
        close(descriptor);
    }
    return stream;
}

} // namespace

output_file::output_file(const std::string &path, file_privacy privacy, file_start start)
    : name_(path == "-" ? "standard output" : fmt::format("'{}'", path)),
      stream_(path == "-" ? stdout : file_open(path, privacy, start)),
      is_started_(path == "-" || start == file_start::at_end)
{
    if (stream_ == nullptr) {
        fail(name_, errno);
    }
}

output_file::~output_file()
{
    if (stream_ != nullptr && stream_ != stdout) {
        std::fclose(stream_);
    }
}

bool output_file::start() noexcept
{
    if (!is_started_) {
        is_started_ = true;
        struct stat status {
        };
        const int descriptor = fileno(stream_);
        const bool is_done =
            fstat(descriptor, &status) == 0 && (!S_ISREG(status.st_mode) || ftruncate(descriptor, 0) == 0);
        error_ = is_done ? 0 : errno;
    }
    return error_ == 0;
}

bool output_file::write(const void *bytes, size_t size) noexcept
{
    if (start() && std::fwrite(bytes, 1, size, stream_) != size) {
        error_ = errno;
    }
    if (error_ == 0) {
        size_ += size;
    }
    return error_ == 0;
}

bool output_file::flush() noexcept
{
    if (start() && std::fflush(stream_) != 0) {
        error_ = errno;
    }
    return error_ == 0;
}

void output_file::close()
{
    start();
    std::FILE *stream = stream_;
    stream_ = nullptr;
    const int result = stream == stdout ? std::fflush(stream) : std::fclose(stream);
    if (error_ == 0 && result != 0) {
        error_ = errno;
    }
    if (error_ != 0) {
        fail(name_, error_);
    }
}

void text_write(std::FILE *stream, std::string_view text)
{
    if (std::fwrite(text.data(), 1, text.size(), stream) != text.size() || std::fflush(stream) != 0) {
        fail(stream == stdout ? "standard output" : "standard error", errno);
    }
}

} // namespace vrc
