// Received packet records.
#pragma once

#include "rtc_packet.h"

// Releases the two buffers of the record, payload and extension contents. They are empty then; all else stays.
void video_data4_release(PVideoData4 *video);
