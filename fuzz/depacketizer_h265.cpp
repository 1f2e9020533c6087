// The depacketizer of H.265.

#include "depacketize.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::depacketize_input({VIDEO_TYPE_H265, depacketizer_h265_packet}, data, size);
    return 0;
}
