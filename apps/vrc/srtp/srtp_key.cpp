#include "srtp/srtp_key.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <string_view>
#include <vector>

#include "commands/text_file.h"
#include "failure.h"

namespace vrc
{
namespace
{

[[noreturn]] void refuse(const std::string &why)
{
    throw failure(exit_code::wrong_usage, fmt::format("SRTP key: {}", why));
}

struct named_key {
    std::string suite;
    std::string key;
};

named_key split(const std::string &text)
{
    const size_t colon = text.find(':');
    if (colon == std::string::npos) {
        refuse("write the suite, a colon and the key");
    }
    return {text.substr(0, colon), text.substr(colon + 1)};
}

int hex_digit(char letter)
{
    constexpr std::string_view digits = "0123456789abcdef";
    const size_t value = digits.find(static_cast<char>(letter >= 'A' && letter <= 'F' ? letter - 'A' + 'a' : letter));
    return value == std::string_view::npos ? -1 : static_cast<int>(value);
}

std::vector<uint8_t> hex_decode(const std::string &text)
{
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 2) {
        const int high = hex_digit(text[i]);
        const int low = hex_digit(text[i + 1]);
        if (high < 0 || low < 0) {
            refuse("the key is not hexadecimal");
        }
        bytes.push_back(static_cast<uint8_t>(high << 4 | low));
    }
    if (text.size() % 2 != 0) {
        refuse("the key has half a byte at its end");
    }
    return bytes;
}

std::string base64_encode(const std::vector<uint8_t> &bytes)
{
    constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t count = std::min<size_t>(3, bytes.size() - i);
        uint32_t group = 0;
        for (size_t j = 0; j < 3; ++j) {
            group = group << 8 | (j < count ? bytes[i + j] : 0u);
        }
        for (size_t j = 0; j < 4; ++j) {
            text += j <= count ? letters[group >> (18 - 6 * j) & 0x3F] : '=';
        }
    }
    return text;
}

bool prefix_take(std::string_view prefix, std::string *text)
{
    const bool has_prefix = text->compare(0, prefix.size(), prefix) == 0;
    text->erase(0, has_prefix ? prefix.size() : 0);
    return has_prefix;
}

std::string trimmed(const std::string &line)
{
    constexpr const char *white = " \t\r";
    const size_t begin = line.find_first_not_of(white);
    return begin == std::string::npos ? "" : line.substr(begin, line.find_last_not_of(white) - begin + 1);
}

// The reader of session descriptions knows suites and keys, so it is given one.
sdp_crypto crypto_read(const std::string &suite, const std::string &key)
{
    const auto is_plain = [](char letter) { return letter > ' ' && letter <= '~'; };
    if (!std::all_of(suite.begin(), suite.end(), is_plain) || !std::all_of(key.begin(), key.end(), is_plain)) {
        refuse("there is a space or an unprintable character in it");
    }
    const std::string text = fmt::format("v=0\no=- 1 1 IN IP4 0.0.0.0\ns=-\nc=IN IP4 0.0.0.0\nt=0 0\n"
                                         "m=video 9 RTP/SAVP 96\na=crypto:1 {} inline:{}\n",
                                         suite, key);
    const auto session = std::make_unique<sdp_session>();
    sdp_error error{};
    if (!sdp_parse(text.data(), text.size(), session.get(), &error)) {
        refuse(error.what);
    }
    if (session->n_videos != 1 || session->videos[0].n_cryptos != 1) {
        refuse(fmt::format("unknown suite '{}'; known are AES_CM_128_HMAC_SHA1_80, AES_CM_128_HMAC_SHA1_32, "
                           "AEAD_AES_128_GCM and AEAD_AES_256_GCM",
                           suite));
    }
    return session->videos[0].cryptos[0];
}

} // namespace

sdp_crypto srtp_key_parse(const std::string &text)
{
    named_key named = split(text);
    if (prefix_take("hex:", &named.key)) {
        return crypto_read(named.suite, base64_encode(hex_decode(named.key)));
    }
    prefix_take("inline:", &named.key);
    return crypto_read(named.suite, named.key);
}

sdp_crypto srtp_key_parse_hex(const std::string &text)
{
    const named_key named = split(text);
    return crypto_read(named.suite, base64_encode(hex_decode(named.key)));
}

std::vector<sdp_crypto> srtp_keys_parse(const std::string &text)
{
    std::vector<sdp_crypto> keys;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        keys.push_back(srtp_key_parse(word));
    }
    if (keys.empty()) {
        refuse("there is none");
    }
    return keys;
}

std::vector<sdp_crypto> srtp_keys_read(const std::string &path)
{
    std::vector<sdp_crypto> keys;
    std::istringstream lines(text_file_read(path, "a file of keys"));
    size_t number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        line = trimmed(line);
        if (line.empty() || line[0] == '#') {
            continue;
        }
        try {
            keys.push_back(srtp_key_parse(line));
        } catch (const failure &error) {
            throw failure(error.code(), fmt::format("'{}', line {}: {}", path, number, error.what()));
        }
    }
    if (keys.empty()) {
        throw failure(exit_code::wrong_usage, fmt::format("'{}': there is no key in it", path));
    }
    return keys;
}

std::string srtp_key_file_warning(const std::string &path)
{
    struct stat status {
    };
    const bool is_open =
        stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && (status.st_mode & (S_IRGRP | S_IROTH)) != 0;
    return is_open ? fmt::format("'{}' has keys in it and can be read by others: chmod 600 '{}'", path, path) : "";
}

} // namespace vrc
