// Small files of text that the tool reads at once.
#pragma once

#include <cstddef>
#include <string>

namespace vrc
{

// The whole content; "-" is no file here. Throws failure: no_access when the file cannot be read, wrong_usage when it has
// more than `kTextFileMax` bytes; it is `purpose` that it is too large for.
std::string text_file_read(const std::string &path, const char *purpose);

constexpr size_t kTextFileMax = 1 << 20; // a session description has a few thousand

} // namespace vrc
