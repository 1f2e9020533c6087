// Plays a scene again and again with the 1st, 2nd, 3rd ... allocation failing, until a run asks for fewer than that.
#pragma once

#include <functional>
#include <ostream>
#include <string>

#include "failing_memory.h"
#include "live_scene.h"

namespace allocation_sweep
{

struct scene_row {
    std::string what;
    std::function<void(live_scene::Scene &)> play;
    bool estimates_downlink = false;
    bool is_damaged = false; // headers are: frames may come out that nobody sent so
    bool forgets = false;    // senders are put out, and what was counted for them with them
};

inline std::ostream &operator<<(std::ostream &out, const scene_row &row)
{
    return out << row.what;
}

// A scene asks for 50 to 250 allocations; of those behind this many each `kStride`th fails, which keeps it short.
constexpr size_t kEach = 60;
constexpr size_t kStride = 3;

// Runs the scene once for every allocation and expects of each run: what comes out was sent so, in order, with all that
// it refers to; the streams' records hold together; the log says what failed, and the one failure is counted where it
// hurts; with memory again pictures flow within `kHealed`, and a key frame comes out at once; all memory is given back.
// Returns the number of runs.
size_t sweep(const scene_row &row, failing_memory::failing how);

} // namespace allocation_sweep
