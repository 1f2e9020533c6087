// The blocks of memory that a service holds, by walking its records.
#pragma once

#include "api/channel.h"

namespace simulation
{

// Blocks that hang from the service and its channel, both included. The channel may be null.
long count_blocks(const rtc_service &service, const rtc_channel *channel);

} // namespace simulation
