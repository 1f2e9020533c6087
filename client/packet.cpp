#include "rtc_packet.h"

#include <cstring>

void video_data4_take(PVideoData4 *dst, PVideoData4 *src)
{
    // Onto itself nothing moves: clearing the source would lose its buffers.
    if (dst == src) {
        return;
    }
    *dst = *src;
    memset(src, 0, sizeof(*src));
}
