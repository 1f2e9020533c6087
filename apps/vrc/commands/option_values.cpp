#include "commands/option_values.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include <cctype>

#include "video_stream.h"

namespace vrc
{

uint8_t codec_parse(const std::string &option, const std::string &text)
{
    std::string name;
    for (const char letter : text) {
        if (letter != '.') {
            name += static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
        }
    }
    if (name == "h264" || name == "avc") {
        return VIDEO_TYPE_H264;
    }
    if (name == "h265" || name == "hevc") {
        return VIDEO_TYPE_H265;
    }
    throw CLI::ValidationError(option, fmt::format("unknown codec '{}'; known are h264 and h265", text));
}

} // namespace vrc
