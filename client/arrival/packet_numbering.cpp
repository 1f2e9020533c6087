#include "arrival/packet_numbering.h"

#include <cstring>

#include "rtc_seq.h"

namespace
{

uint32_t first_inner(const numbering_run *run)
{
    return run->outer - run->left_out;
}

// How many numbers are left out before `outer`. The newest runs are asked for most.
uint32_t left_out_before(const packet_numbering *self, uint32_t outer)
{
    for (size_t i = self->count; i > 0; i--) {
        if (zeb_uint32_after_eq(outer, self->runs[i - 1].outer) != 0) {
            return self->runs[i - 1].left_out;
        }
    }
    return 0;
}

void forget_first_run(packet_numbering *self)
{
    self->has_forgotten = true;
    self->count -= 1;
    memmove(self->runs, self->runs + 1, self->count * sizeof self->runs[0]);
}

} // namespace

bool packet_numbering_leave_out(packet_numbering *self, uint32_t outer)
{
    numbering_run *last = self->count == 0 ? nullptr : &self->runs[self->count - 1];
    const bool is_assigned = self->has_assigned && zeb_uint32_after_eq(self->assigned, outer) != 0;
    if (is_assigned || (last != nullptr && zeb_uint32_after(last->outer, outer) != 0)) {
        return false;
    }
    const uint32_t left_out = last == nullptr ? 1 : last->left_out + 1;
    if (last != nullptr && last->outer == outer) {
        *last = {outer + 1, left_out};
        return true;
    }
    if (self->count == kNumberingRunsMax) {
        forget_first_run(self);
    }
    self->runs[self->count] = {outer + 1, left_out};
    self->count += 1;
    return true;
}

uint32_t packet_numbering_assign(packet_numbering *self, uint32_t outer)
{
    if (!self->has_assigned || zeb_uint32_after(outer, self->assigned) != 0) {
        self->has_assigned = true;
        self->assigned = outer;
    }
    return packet_numbering_inner(self, outer);
}

uint32_t packet_numbering_inner(const packet_numbering *self, uint32_t outer)
{
    return outer - left_out_before(self, outer);
}

uint32_t packet_numbering_outer(const packet_numbering *self, uint32_t inner)
{
    for (size_t i = self->count; i > 0; i--) {
        const numbering_run *run = &self->runs[i - 1];
        if (zeb_uint32_after_eq(inner, first_inner(run)) != 0) {
            return inner + run->left_out;
        }
    }
    return inner;
}

bool packet_numbering_reaches(const packet_numbering *self, uint32_t outer)
{
    return !self->has_forgotten || zeb_uint32_after_eq(outer, self->runs[0].outer) != 0;
}
