// The depacketizer of H.264.

#include "depacketize.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::depacketize_input({VIDEO_TYPE_H264, depacketizer_h264_packet}, data, size);
    return 0;
}
