// The bitstreams that are written: one, or one for each sender.
#pragma once

#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "channel.h"
#include "output_file.h"

namespace vrc
{

// Whose frames they are: the section of the description that they came in, and the SSRC.
using frame_owner = std::pair<size_t, uint32_t>;

// The file of one sender: "call.h264" becomes "call-1122aabb.h264", and "call", which says no codec,
// "call-1122aabb.h265". With `copy` above 1 that number goes behind the SSRC.
std::string sender_file_name(const std::string &path, uint32_t ssrc, uint8_t codec, unsigned copy);

class frame_files
{
  public:
    // An empty path: nothing is written. With `is_split` each sender's frames go to a file of their own, which is
    // created with the first one; else all go to `path`, which is created now. Throws failure (no_access).
    frame_files(const std::string &path, bool is_split);

    // Writes a frame and hands it to the system. Returns false when this or an earlier write failed.
    bool write(size_t section, const channel_frame &frame) noexcept;

    // Throws failure (no_access) when something could not be written.
    void close();

    // The name of the sender's own file; empty when there is none.
    std::string name_of(const frame_owner &owner) const;

  private:
    struct named_file {
        std::string path;
        std::unique_ptr<output_file> file;
    };

    output_file *find_or_open(size_t section, const channel_frame &frame);

    std::string path_;
    bool is_split_;
    std::map<frame_owner, named_file> files_;
    std::set<std::string> paths_; // in use
    std::exception_ptr error_;    // that a file could not be created with
};

} // namespace vrc
