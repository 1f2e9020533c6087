// The files of a command: what is written must not land in what is read, nor two things in one file.
#pragma once

#include <string>
#include <vector>

namespace vrc
{

struct file_use {
    std::string what; // for messages: the option, or "the capture"
    std::string path; // "-" is standard input or, if written, standard output; empty for none
    bool is_written;
};

// Throws failure (wrong_usage) when a file that is written has another use, by whatever name: another path, a symbolic or
// hard link, a standard stream, or other letters where the file system does not tell case. Devices may have several.
// Opens and changes none of the files.
void file_uses_check(const std::vector<file_use> &uses);

} // namespace vrc
