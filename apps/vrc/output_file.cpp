#include "output_file.h"

#include <fmt/format.h>

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

} // namespace

output_file::output_file(const std::string &path)
    : name_(path == "-" ? "standard output" : fmt::format("'{}'", path)),
      stream_(path == "-" ? stdout : std::fopen(path.c_str(), "wb"))
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

bool output_file::write(const void *bytes, size_t size) noexcept
{
    if (error_ == 0 && std::fwrite(bytes, 1, size, stream_) != size) {
        error_ = errno;
    }
    if (error_ == 0) {
        size_ += size;
    }
    return error_ == 0;
}

bool output_file::flush() noexcept
{
    if (error_ == 0 && std::fflush(stream_) != 0) {
        error_ = errno;
    }
    return error_ == 0;
}

void output_file::close()
{
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
