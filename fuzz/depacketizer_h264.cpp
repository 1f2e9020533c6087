// The depacketizer of H.264.

#include "depacketize.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::depacketize_input(depacketizer_h264_packet, data, size);
    return 0;
}
