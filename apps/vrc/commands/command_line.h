// The tool from its command line on.
#pragma once

namespace vrc
{

// Runs what the command line asks for. Errors go to standard error. Returns the exit status of the process.
int command_line_run(int argc, const char *const *argv);

} // namespace vrc
