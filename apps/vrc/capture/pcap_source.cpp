#include "capture/pcap_source.h"

#include <fmt/format.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "failure.h"

namespace vrc
{
namespace
{

struct known_format {
    std::string_view magic;
    const char *advice;
};

// Files that people take for captures.
constexpr std::array<known_format, 5> kKnownFormats{{
    {"\x1F\x8B", "it is compressed with gzip: decompress it first"},
    {"\x28\xB5\x2F\xFD", "it is compressed with zstd: decompress it first"},
    {"\xFD\x37\x7A\x58\x5A", "it is compressed with xz: decompress it first"},
    {"PK\x03\x04", "it is a zip archive: unpack it first"},
    {"v=0", "it is a session description: name the capture itself"},
}};

std::string format_advice(const capture_file &file)
{
    std::array<char, 16> start{};
    std::FILE *stream = file.open_stream();
    const size_t size = std::fread(start.data(), 1, start.size(), stream);
    std::fclose(stream);
    const std::string_view text(start.data(), size);
    for (const known_format &format : kKnownFormats) {
        if (text.substr(0, format.magic.size()) == format.magic) {
            return format.advice;
        }
    }
    return "captures are written by tcpdump and the like, in pcap or pcapng format, or by rtpdump";
}

pcap *pcap_open(const capture_file &file)
{
    std::array<char, PCAP_ERRBUF_SIZE> error{};
    std::FILE *stream = file.open_stream();
    pcap *opened = pcap_fopen_offline(stream, error.data());
    if (opened != nullptr) {
        return opened;
    }
    const int read_error = std::ferror(stream) != 0 ? errno : 0;
    std::fclose(stream);
    if (read_error != 0) {
        throw failure(exit_code::no_access,
                      fmt::format("cannot read '{}': {}", file.name(), std::strerror(read_error)));
    }
    throw failure(exit_code::no_access,
                  fmt::format("'{}' is not a capture: {} ({})", file.name(), format_advice(file), error.data()));
}

// In a hostile file seconds may be any number; beyond this, stamps would not fit into 64 bits of microseconds.
constexpr int64_t kMaxSeconds = INT64_C(1) << 42;

int64_t stamp_us(const timeval &stamp)
{
    const int64_t seconds = std::clamp<int64_t>(stamp.tv_sec, -kMaxSeconds, kMaxSeconds);
    const int64_t fraction = std::clamp<int64_t>(stamp.tv_usec, -kMaxSeconds, kMaxSeconds);
    return seconds * 1'000'000 + fraction;
}

} // namespace

pcap_source::pcap_source(const capture_file &file)
    : file_(file), pcap_(pcap_open(file), pcap_close), link_type_(pcap_datalink(pcap_.get()))
{
    if (!link_type_is_known(link_type_)) {
        const char *name = pcap_datalink_val_to_name(link_type_);
        throw failure(exit_code::no_access,
                      fmt::format("cannot read '{}': link type {} ({}) is not supported; Ethernet, Linux cooked, raw "
                                  "IP and BSD loopback are",
                                  file.name(), name != nullptr ? name : "unknown", link_type_));
    }
}

bool pcap_source::next(captured_frame *frame, std::string *damage)
{
    pcap_pkthdr *header = nullptr;
    const u_char *bytes = nullptr;
    const int result = pcap_next_ex(pcap_.get(), &header, &bytes);
    if (result == 1) {
        frame->stamp_us = stamp_us(header->ts);
        frame->kind = datagram_parse(link_type_, byte_view(bytes, header->caplen), &frame->udp);
        return true;
    }
    if (result == PCAP_ERROR_BREAK) { // the end of a file
        return false;
    }
    if (std::ferror(pcap_file(pcap_.get())) != 0) {
        throw failure(exit_code::no_access,
                      fmt::format("cannot read '{}': {}", file_.name(), pcap_geterr(pcap_.get())));
    }
    *damage = pcap_geterr(pcap_.get());
    return false;
}

uint64_t pcap_source::position() const
{
    const long position = std::ftell(pcap_file(pcap_.get()));
    return position < 0 ? 0 : static_cast<uint64_t>(position);
}

} // namespace vrc
