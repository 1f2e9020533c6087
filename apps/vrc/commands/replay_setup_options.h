// The options that say what is known about a captured stream beside its packets.
#pragma once

#include <CLI/CLI.hpp>

#include <vector>

#include "commands/replay.h"
#include "output/file_use.h"

namespace vrc
{

// Adds them to a command; `setup` and `files`, the ones that are read, must outlive the parser and are filled when the
// command line is parsed. Then failure (wrong_usage, no_access) is thrown for keys and descriptions that cannot be read.
void replay_setup_options_add(CLI::App *command, replay_setup *setup, std::vector<file_use> *files);

} // namespace vrc
