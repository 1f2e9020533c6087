// Options about streams that more than one command has. What they fill must outlive the parser. They may be repeated.
#pragma once

#include <vector>

#include "replay.h"

namespace CLI
{
class App;
}

namespace vrc
{

// --srtp and --srtp-hex. For a key that cannot be read failure (wrong_usage) is thrown when the command line is parsed.
void srtp_options_add(CLI::App *command, std::vector<sdp_crypto> *keys);

// --rtx.
void rtx_option_add(CLI::App *command, std::vector<rtx_mapping> *rtx);

} // namespace vrc
