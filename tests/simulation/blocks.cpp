#include "blocks.h"

#include <algorithm>
#include <vector>

#include "service_memory.h"

namespace simulation
{

namespace
{

// An estimator of the rate has an analyser of its own.
long count_analysers(const user_state *user)
{
    return std::count_if(std::begin(user->streams), std::end(user->streams), [](const stream_state *state) {
        return state != nullptr && state->stream->bcm_stat != nullptr;
    });
}

} // namespace

long count_blocks(const rtc_service &service, const rtc_channel *channel)
{
    std::vector<const void *> owned = {&service};
    long n_analysers = 0;
    if (channel != nullptr) {
        owned.push_back(channel);
        const list_head *head = &channel->state->users.head;
        for (const list_head *node = head->next; node != head; node = node->next) {
            const auto *user = reinterpret_cast<const user_state *>(node);
            fuzz::collect_user(*user, &owned);
            n_analysers += count_analysers(user);
        }
    }
    fuzz::collect_pool(service, &owned);
    const auto n = std::count_if(owned.begin(), owned.end(), [](const void *block) { return block != nullptr; });
    return n + n_analysers;
}

} // namespace simulation
