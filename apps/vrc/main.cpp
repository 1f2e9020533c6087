#include <csignal>

#include "commands/command_line.h"

int main(int argc, char **argv)
{
    // A reader that goes away is an error of writing, which is reported like any other.
    std::signal(SIGPIPE, SIG_IGN);
    return vrc::command_line_run(argc, argv);
}
