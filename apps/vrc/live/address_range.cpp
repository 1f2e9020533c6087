#include "live/address_range.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <optional>

#include "failure.h"

namespace vrc
{
namespace
{

std::optional<ip_address> address_parse(const std::string &text)
{
    ip_address address;
    address.is_v6 = text.find(':') != std::string::npos;
    const int family = address.is_v6 ? AF_INET6 : AF_INET;
    return inet_pton(family, text.c_str(), address.bytes.data()) == 1 ? std::optional<ip_address>(address)
                                                                      : std::nullopt;
}

// Bits; none when it is no number up to `most`.
std::optional<unsigned> prefix_parse(const std::string &text, unsigned most)
{
    unsigned prefix = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, prefix);
    return error == std::errc() && stop == end && prefix <= most ? std::optional<unsigned>(prefix) : std::nullopt;
}

// The bits of byte `index` that a prefix covers.
uint8_t prefix_mask(unsigned prefix, size_t index)
{
    const size_t before = index * 8;
    const size_t covered = prefix > before ? std::min<size_t>(prefix - before, 8) : 0;
    return static_cast<uint8_t>(0xFF00u >> covered);
}

bool is_in(const address_range &range, const ip_address &address)
{
    bool is_same = range.base.is_v6 == address.is_v6;
    for (size_t i = 0; i < address.bytes.size(); ++i) {
        is_same = is_same && ((range.base.bytes[i] ^ address.bytes[i]) & prefix_mask(range.prefix, i)) == 0;
    }
    return is_same;
}

bool has_bits_behind_prefix(const address_range &range)
{
    for (size_t i = 0; i < range.base.bytes.size(); ++i) {
        if ((range.base.bytes[i] & ~prefix_mask(range.prefix, i)) != 0) {
            return true;
        }
    }
    return false;
}

} // namespace

address_range address_range_parse(const std::string &text)
{
    const size_t slash = text.find('/');
    const std::optional<ip_address> base = address_parse(text.substr(0, slash));
    const unsigned most = base && base->is_v6 ? 128 : 32;
    const std::optional<unsigned> prefix =
        slash == std::string::npos ? std::optional<unsigned>(most) : prefix_parse(text.substr(slash + 1), most);
    if (!base || !prefix) {
        throw failure(exit_code::wrong_usage,
                      fmt::format("--from: '{}' is no ADDRESS/PREFIX, as 192.0.2.0/24 or 2001:db8::/32", text));
    }
    const address_range range{*base, *prefix};
    if (has_bits_behind_prefix(range)) {
        throw failure(exit_code::wrong_usage,
                      fmt::format("--from: '{}' has bits set behind its prefix of {} bits", text, range.prefix));
    }
    return range;
}

bool address_is_held(const std::vector<address_range> &ranges, const ip_address &address)
{
    return ranges.empty() || std::any_of(ranges.begin(), ranges.end(),
                                         [&address](const address_range &range) { return is_in(range, address); });
}

} // namespace vrc
