// What the process gives up once its ports and files are open, so that whoever takes it over through a packet gains little.
#pragma once

#include <string>

namespace vrc
{

struct sandbox_state {
    bool has_file_rules = false;  // Landlock: no file can be opened, none created outside of the directory
    bool has_call_filter = false; // seccomp: only the system calls of a receiver at work
};

// From now on, for this process and for good: no new privileges, no programs, no new sockets, no memory that can be executed,
// and no files but those that are open. In `directory` (empty: none) files can be created and written still. What the
// kernel does not offer is left out, which the result tells. Throws failure (no_access) when the directory cannot be opened.
sandbox_state sandbox_enter(const std::string &directory);

// One line of what is given up and what is not, for people.
std::string sandbox_text(const sandbox_state &state);

} // namespace vrc
