// Runs the command-line tool as a user does, and makes captures for it.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "capture_builder.h"

namespace vrc_test
{

struct outcome {
    int status = -1;
    std::string out;
    std::string err;
};

inline std::string content(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Runs the tool through the shell, so `arguments` are shell words and may redirect.
inline outcome vrc(const std::string &arguments)
{
    const temporary_file out;
    const temporary_file err;
    const std::string command =
        std::string("{ \"") + VRC_PROGRAM + "\" " + arguments + " ; } >'" + out.path() + "' 2>'" + err.path() + "'";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, content(out.path()), content(err.path())};
}

inline bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

constexpr uint64_t kStart = 1'700'000'000'000'000;
constexpr uint64_t kFrameTime = 33'333;

// One second of video, a picture a packet but for the key frame at its start: parameter sets, then an IDR slice
// in three fragments.
inline pcap_builder video(const rtp_fields &first = {})
{
    pcap_builder capture;
    rtp_fields fields = first;
    const auto add = [&](unsigned picture, const bytes &payload, bool is_last) {
        fields.marker = is_last;
        fields.timestamp = first.timestamp + picture * 3000;
        capture.add_rtp(kStart + picture * kFrameTime, fields, payload);
        ++fields.seq;
    };
    add(0, h264_parameter_sets(), false);
    const std::vector<bytes> fragments = h264_fragments(h264_idr_slice(3000), 3);
    for (size_t i = 0; i < fragments.size(); ++i) {
        add(0, fragments[i], i + 1 == fragments.size());
    }
    for (unsigned picture = 1; picture < 30; ++picture) {
        add(picture, h264_inter_slice(200 + picture), true);
    }
    return capture;
}

inline std::string text_of(const bytes &data)
{
    return {data.begin(), data.end()};
}

} // namespace vrc_test
