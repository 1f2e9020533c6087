#include "commands/stream_options.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <functional>
#include <string>
#include <string_view>

#include "output/output_file.h"
#include "srtp/srtp_key.h"

namespace vrc
{
namespace
{

using text_taker = std::function<void(const std::string &text)>;

// An option that may be given more than once, each time with one value.
CLI::Option *repeated_option_add(CLI::App *command, const char *name, const char *description, const char *type,
                                 const text_taker &take)
{
    const auto take_all = [take](const std::vector<std::string> &texts) {
        for (const std::string &text : texts) {
            take(text);
        }
    };
    return command->add_option_function<std::vector<std::string>>(name, take_all, description)
        ->type_name(type)
        ->allow_extra_args(false);
}

void append(std::vector<sdp_crypto> *keys, const std::vector<sdp_crypto> &more)
{
    keys->insert(keys->end(), more.begin(), more.end());
}

bool payload_type_read(std::string_view text, uint8_t *payload_type)
{
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, *payload_type);
    return error == std::errc() && stop == end && *payload_type <= 127;
}

rtx_mapping rtx_parse(const std::string &text)
{
    const size_t colon = std::min(text.find(':'), text.size());
    rtx_mapping mapping{};
    if (colon == text.size() ||
        !payload_type_read(std::string_view(text).substr(0, colon), &mapping.rtx_payload_type) ||
        !payload_type_read(std::string_view(text).substr(colon + 1), &mapping.payload_type)) {
        throw CLI::ValidationError("--rtx", fmt::format("'{}' is not two payload types from 0 to 127 with a colon "
                                                        "between them",
                                                        text));
    }
    return mapping;
}

} // namespace

std::vector<sdp_crypto> key_file_take(const std::string &path)
{
    std::vector<sdp_crypto> keys = srtp_keys_read(path);
    const std::string warning = srtp_key_file_warning(path);
    if (!warning.empty()) {
        text_write(stderr, fmt::format("vrc: {}\n", warning));
    }
    return keys;
}

void srtp_options_add(CLI::App *command, std::vector<sdp_crypto> *keys, std::vector<file_use> *files)
{
    repeated_option_add(
        command, "--srtp",
        "Decrypt SRTP: suite, and key and salt in base64. Whoever lists processes sees it: --srtp-file and "
        "the environment do not show it",
        "SUITE:KEY", [keys](const std::string &text) { append(keys, srtp_keys_parse(text)); })
        ->envname("VRC_SRTP");
    repeated_option_add(command, "--srtp-hex", "The same with key and salt in hexadecimal", "SUITE:HEX",
                        [keys](const std::string &text) { keys->push_back(srtp_key_parse_hex(text)); });
    repeated_option_add(command, "--srtp-file", "Decrypt SRTP with the keys in a file: SUITE:KEY, one a line", "FILE",
                        [keys, files](const std::string &path) {
                            append(keys, key_file_take(path));
                            files->push_back({"--srtp-file", path, false});
                        });
}

void rtx_option_add(CLI::App *command, std::vector<rtx_mapping> *rtx)
{
    repeated_option_add(command, "--rtx", "Packets of type PT retransmit those of type APT", "PT:APT",
                        [rtx](const std::string &text) { rtx->push_back(rtx_parse(text)); });
}

} // namespace vrc
