// The tool's commands. Each throws failure when it cannot do what it is for.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "capture/capture_file.h"
#include "capture/stream_choice.h"
#include "commands/replay.h"
#include "failure.h"
#include "output/file_use.h"

namespace vrc
{

struct info_options {
    std::string capture;
    uint64_t copy_max = kCaptureCopyMax; // bytes of a capture that is no file
    bool is_json = false;
};

// Lists a capture's streams. Returns nothing_usable when there is no video among them.
exit_code info_run(const info_options &options);

struct replay_options {
    std::string capture;
    std::string output; // Annex B; "-" is standard output, empty for none
    std::string frames; // the list of frames; the same
    uint64_t copy_max = kCaptureCopyMax;
    std::vector<file_use> inputs; // that have been read, beside the capture
    stream_choice choice;
    replay_setup setup;
    bool is_json = false;
    bool is_counts = false; // the summary is every count, a line each; not with is_json
    int verbosity = 0;      // 1: what the receiver does, 2: everything it says
};

// Replays one stream of a capture. Returns nothing_usable when no frame came out.
exit_code replay_run(const replay_options &options);

} // namespace vrc
