// Values of options that are more than text.
#pragma once

#include <cstdint>
#include <string>

namespace vrc
{

// VIDEO_TYPE_H264 or VIDEO_TYPE_H265 by one of its names, in any case. Throws what the command line's parser reports;
// `option` is named there.
uint8_t codec_parse(const std::string &option, const std::string &text);

} // namespace vrc
