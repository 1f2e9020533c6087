// Options about streams that more than one command has. What they fill must outlive the parser. They may be repeated.
#pragma once

#include <string>
#include <vector>

#include "commands/replay.h"
#include "output/file_use.h"

namespace CLI
{
class App;
}

namespace vrc
{

// --srtp, which VRC_SRTP stands in for, --srtp-hex and --srtp-file, which is noted in `files`. For keys that cannot be read
// failure is thrown when the command line is parsed.
void srtp_options_add(CLI::App *command, std::vector<sdp_crypto> *keys, std::vector<file_use> *files);

// Reads a file of keys, and warns when others can. Throws failure.
std::vector<sdp_crypto> key_file_take(const std::string &path);

// --rtx.
void rtx_option_add(CLI::App *command, std::vector<rtx_mapping> *rtx);

} // namespace vrc
