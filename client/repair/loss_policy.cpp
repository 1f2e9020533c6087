#include "repair/loss_policy.h"

zeb_ts_t loss_policy_patience(zeb_ts_t lateness)
{
    const zeb_ts_t patience = 2 * lateness;
    return patience < kLossPatienceMin ? kLossPatienceMin : patience;
}

namespace
{

bool is_hopeless(const loss_situation *situation)
{
    if (situation->will_never_complete) {
        return true;
    }
    if (situation->offers_retransmission) {
        return situation->is_used_up;
    }
    return situation->missing_for >= loss_policy_patience(situation->lateness);
}

} // namespace

loss_verdict loss_policy_decide(const loss_situation *situation)
{
    if (!situation->gives_up_early || !situation->is_held_up || !is_hopeless(situation)) {
        return LOSS_WAIT;
    }
    return situation->holds_key_frame ? LOSS_DROP_TO_HELD_KEY : LOSS_CLEAR_AND_ASK;
}
