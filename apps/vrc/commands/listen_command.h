// The command line of `vrc listen`.
#pragma once

#include <string>

#include "live/listen.h"

namespace CLI
{
class App;
}

namespace vrc
{

// Adds the command. `options`, which must outlive `app`, is filled when the command line is parsed.
CLI::App *listen_command_add(CLI::App *app, listen_options *options);

// Reads "nack,pli,fir,remb,rsize,reports", some of them, or "none". Throws what the command line's parser reports.
channel_feedback feedback_parse(const std::string &text);

} // namespace vrc
