#include "nal_units.h"

#include <algorithm>
#include <cstring>

#include "video_stream.h"

namespace simulation
{

const unit_types &types_of(uint8_t codec)
{
    static const unit_types h264 = {1, {7, 8}, {4, 1}, {5}, {1}, {12, 19, 22}, 9, 6, 24, 28};
    static const unit_types h265 = {2,  {32, 33, 34}, {0, 0, 2}, {19, 20, 21}, {0, 1, 8, 9}, {38, 40, 45}, 35,
                                    39, 48,           49};
    return codec == VIDEO_TYPE_H265 ? h265 : h264;
}

bytes header_of(uint8_t codec, uint8_t type)
{
    if (codec == VIDEO_TYPE_H265) {
        return {static_cast<uint8_t>(type << 1), 1};
    }
    const bool is_disposable = type == 6 || type == 9 || type == 12;
    return {static_cast<uint8_t>((is_disposable ? 0 : 0x60) | type)};
}

uint8_t type_of(uint8_t codec, const bytes &unit)
{
    return codec == VIDEO_TYPE_H265 ? unit[0] >> 1 & 0x3F : unit[0] & 0x1F;
}

void append_noise(bytes *to, size_t size, Random *random)
{
    const size_t begin = to->size();
    to->resize(begin + size);
    for (size_t i = 0; i < size; i += 8) {
        const uint64_t word = random->next() | 0x0101010101010101u;
        std::memcpy(to->data() + begin + i, &word, std::min<size_t>(8, size - i));
    }
}

} // namespace simulation
