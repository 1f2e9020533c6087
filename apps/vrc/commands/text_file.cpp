#include "commands/text_file.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "failure.h"

namespace vrc
{

std::string text_file_read(const std::string &path, const char *purpose)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen(path.c_str(), "rb"), std::fclose);
    std::string text;
    size_t size = 0;
    if (file) {
        text.resize(kTextFileMax + 1);
        size = std::fread(text.data(), 1, text.size(), file.get());
    }
    if (!file || std::ferror(file.get()) != 0) {
        throw failure(exit_code::no_access, fmt::format("cannot read '{}': {}", path, std::strerror(errno)));
    }
    if (size > kTextFileMax) {
        throw failure(exit_code::wrong_usage, fmt::format("'{}' is too large for {}", path, purpose));
    }
    text.resize(size);
    return text;
}

} // namespace vrc
