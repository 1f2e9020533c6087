#include "stream_options.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <functional>
#include <string>
#include <string_view>

#include "srtp_key.h"

namespace vrc
{
namespace
{

using text_taker = std::function<void(const std::string &text)>;

// An option that may be given more than once, each time with one value.
void repeated_option_add(CLI::App *command, const char *name, const char *description, const char *type,
                         const text_taker &take)
{
    const auto take_all = [take](const std::vector<std::string> &texts) {
        for (const std::string &text : texts) {
            take(text);
        }
    };
    command->add_option_function<std::vector<std::string>>(name, take_all, description)
        ->type_name(type)
        ->allow_extra_args(false);
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

void srtp_options_add(CLI::App *command, std::vector<sdp_crypto> *keys)
{
    repeated_option_add(command, "--srtp", "Decrypt SRTP: suite, and key and salt in base64", "SUITE:KEY",
                        [keys](const std::string &text) { keys->push_back(srtp_key_parse(text)); });
    repeated_option_add(command, "--srtp-hex", "The same with key and salt in hexadecimal", "SUITE:HEX",
                        [keys](const std::string &text) { keys->push_back(srtp_key_parse_hex(text)); });
}

void rtx_option_add(CLI::App *command, std::vector<rtx_mapping> *rtx)
{
    repeated_option_add(command, "--rtx", "Packets of type PT retransmit those of type APT", "PT:APT",
                        [rtx](const std::string &text) { rtx->push_back(rtx_parse(text)); });
}

} // namespace vrc
