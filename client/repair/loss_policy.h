// What to do about a loss that holds up delivery. The reorder cache would wait 2000 ms for it whatever is known; the
// client may know that nothing will come.
#pragma once

#include "zeb_platform.h"

// Late packets are waited for even where nobody retransmits: for twice as long as they were seen to take, or this.
constexpr zeb_ts_t kLossPatienceMin = 5; // ms

enum loss_verdict : uint8_t {
    LOSS_WAIT,             // it may still come, or nothing is held up
    LOSS_DROP_TO_HELD_KEY, // it will not, but a key frame behind it is held: go on with that one
    LOSS_CLEAR_AND_ASK     // it will not: clear the cache and ask for a key frame
};

struct loss_situation {
    bool gives_up_early;        // the policy is switched on
    bool offers_retransmission; // the sender answers requests
    bool is_held_up;            // packets are held that delivery waits to get to
    bool is_used_up;            // all requests for the oldest missing packet were made, in vain
    bool will_never_complete;   // nothing is missing, but the frame at the head has no end
    bool holds_key_frame;       // behind the loss
    zeb_ts_t missing_for;       // ms since the oldest loss was noticed
    zeb_ts_t lateness;          // ms that packets come late on their own
};

// How long a missing packet is waited for where nobody retransmits, ms. `lateness` as above.
zeb_ts_t loss_policy_patience(zeb_ts_t lateness);

loss_verdict loss_policy_decide(const loss_situation *situation);
