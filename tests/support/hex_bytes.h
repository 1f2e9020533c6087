// Packets and NAL units written as hexadecimal text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

using bytes = std::vector<uint8_t>;

// "67 42 00": two digits a byte, blanks between them.
inline bytes hex(std::string_view text)
{
    bytes result;
    size_t at = 0;
    while (at < text.size()) {
        if (text[at] == ' ') {
            at++;
            continue;
        }
        result.push_back(static_cast<uint8_t>(std::stoul(std::string(text.substr(at, 2)), nullptr, 16)));
        at += 2;
    }
    return result;
}
