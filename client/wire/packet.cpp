#include "wire/packet.h"

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

void video_data4_release(PVideoData4 *video)
{
    zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &video->extension.contents);
    zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &video->payload);
}
