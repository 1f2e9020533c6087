// The numbers that the module goes by. Senders probe a path with packets that hold nothing but padding, and the module
// knows no such packet: it would wait for one that is lost and take one that comes for a frame. So they are left out, and
// the numbers behind them move up. Outer numbers are the sender's, inner ones the module's; both are extended
// sequence numbers.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr size_t kNumberingRunsMax = 128; // places where numbers were left out, a probe each: more than 2000 ms of them

struct numbering_run {
    uint32_t outer;    // from this one on
    uint32_t left_out; // so many are left out before
};

// All zero: nothing is left out, inner and outer numbers are the same.
struct packet_numbering {
    numbering_run runs[kNumberingRunsMax]; // ascending
    size_t count;
    bool has_assigned;
    bool has_forgotten; // what is below the first run is not known any more
    uint32_t assigned;  // highest outer number that got an inner one
};

// Leaves `outer` out. False, and nothing happens, when it has its place in the inner numbers already, because a later
// one has.
bool packet_numbering_leave_out(packet_numbering *self, uint32_t outer);

// Gives `outer` its inner number for good.
uint32_t packet_numbering_assign(packet_numbering *self, uint32_t outer);

// The inner number of `outer`, which is not left out.
uint32_t packet_numbering_inner(const packet_numbering *self, uint32_t outer);

// The outer number of `inner`.
uint32_t packet_numbering_outer(const packet_numbering *self, uint32_t inner);

// False for a number from so long ago that nobody knows any more how many were left out before it.
bool packet_numbering_reaches(const packet_numbering *self, uint32_t outer);
