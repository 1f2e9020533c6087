// How a run of the tool ends.
#pragma once

#include <stdexcept>
#include <string>

namespace vrc
{

enum class exit_code : int {
    success = 0,
    nothing_usable = 1, // the input holds no RTP video, or no frame came out of it
    wrong_usage = 2,
    no_access = 3, // a file cannot be read or written
};

// Ends the command. `what()` says what was wrong, where, and what to do about it.
class failure : public std::runtime_error
{
  public:
    failure(exit_code code, const std::string &message) : std::runtime_error(message), code_(code)
    {
    }

    exit_code code() const
    {
        return code_;
    }

  private:
    exit_code code_;
};

} // namespace vrc
