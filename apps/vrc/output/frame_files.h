// The bitstreams that are written: one, or one for each sender.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "api/channel.h"
#include "output/output_file.h"

namespace vrc
{

// Whose frames they are: the section of the description that they came in, and the SSRC.
using frame_owner = std::pair<size_t, uint32_t>;

// The file of one sender: "call.h264" becomes "call-1122aabb.h264", and "call", which says no codec,
// "call-1122aabb.h265". With `copy` above 1 that number goes behind the SSRC.
std::string sender_file_name(const std::string &path, uint32_t ssrc, uint8_t codec, unsigned copy);

// Whether `name` leads to where sender_file_name may lead for `path`: a sender chooses its SSRC, and shall not choose what
// is overwritten.
bool sender_file_is_possible(const std::string &path, const std::string &name);

// What senders that nobody knows may cost.
struct frame_file_limits {
    size_t files = 1000;    // that are created for senders; frames of more senders are counted and not written
    size_t open_files = 32; // at a time; the one that was written least recently is closed for another one
};

class frame_files
{
  public:
    // An empty path: nothing is written. With `is_split` each sender's frames go to a file of their own, which is
    // created with the first one; else all go to `path`, which is created now. Throws failure (no_access).
    frame_files(const std::string &path, bool is_split, const frame_file_limits &limits = {});

    // Writes a frame and hands it to the system. Returns false when this or an earlier write failed. A frame that no file
    // may be created for, or that there is no memory for, is counted and not written, which is no failure.
    bool write(size_t section, const channel_frame &frame) noexcept;

    // Throws failure (no_access) when something could not be written.
    void close();

    // The name of the sender's own file; empty when there is none.
    std::string name_of(const frame_owner &owner) const;

    // Frames that were not written because of a limit.
    uint64_t unwritten() const
    {
        return unwritten_;
    }

  private:
    struct named_file {
        std::string path;
        std::unique_ptr<output_file> file; // null while it is closed
        uint64_t used_at = 0;              // the latest `uses_` that was this file's
    };

    named_file *find_or_add(size_t section, const channel_frame &frame);
    std::string free_name(const channel_frame &frame) const;
    std::unique_ptr<output_file> open(const std::string &path, file_start start);
    void close_least_used();

    std::string path_;
    bool is_split_;
    frame_file_limits limits_;
    std::map<frame_owner, named_file> files_;
    std::set<std::string> paths_; // in use
    size_t open_files_ = 0;
    uint64_t uses_ = 0;
    uint64_t unwritten_ = 0;
    std::exception_ptr error_; // that a file could not be created or closed with
};

} // namespace vrc
