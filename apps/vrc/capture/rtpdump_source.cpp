#include "capture/rtpdump_source.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>

#include "failure.h"

namespace vrc
{
namespace
{

constexpr std::string_view kMagic = "#!rtpplay1.0 ";
constexpr size_t kLineMax = 256; // characters
constexpr size_t kFileHeaderSize = 16;
constexpr size_t kPacketHeaderSize = 8;

// "192.0.2.1/5004", "2001:db8::1/5004". What is neither, a host name say, stays 0.
endpoint endpoint_parse(std::string_view text)
{
    endpoint where;
    const size_t slash = std::min(text.find('/'), text.size());
    const std::string address(text.substr(0, slash));
    if (inet_pton(AF_INET, address.c_str(), where.address.bytes.data()) != 1) {
        where.address.is_v6 = inet_pton(AF_INET6, address.c_str(), where.address.bytes.data()) == 1;
    }
    if (slash < text.size()) {
        std::from_chars(text.data() + slash + 1, text.data() + text.size(), where.port);
    }
    return where;
}

} // namespace

bool rtpdump_is_dump(const capture_file &file)
{
    std::array<char, kMagic.size()> start{};
    std::FILE *stream = file.open_stream();
    const size_t size = std::fread(start.data(), 1, start.size(), stream);
    std::fclose(stream);
    return std::string_view(start.data(), size) == kMagic;
}

rtpdump_source::rtpdump_source(const capture_file &file) : file_(file), stream_(file.open_stream(), std::fclose)
{
    header_read();
}

size_t rtpdump_source::read(uint8_t *bytes, size_t size)
{
    const size_t count = std::fread(bytes, 1, size, stream_.get());
    if (count < size && std::ferror(stream_.get()) != 0) {
        throw failure(exit_code::no_access, fmt::format("cannot read '{}': {}", file_.name(), std::strerror(errno)));
    }
    return count;
}

// Start of the dump: seconds and microseconds; source address and port; two bytes of padding.
void rtpdump_source::header_read()
{
    std::string line;
    uint8_t letter = 0;
    while (line.size() < kLineMax && read(&letter, 1) == 1 && letter != '\n') {
        line += static_cast<char>(letter);
    }
    std::array<uint8_t, kFileHeaderSize> bytes{};
    if (letter != '\n' || line.compare(0, kMagic.size(), kMagic) != 0 ||
        read(bytes.data(), bytes.size()) != bytes.size()) {
        throw failure(exit_code::no_access,
                      fmt::format("'{}' is not a capture: its rtpdump header is not whole", file_.name()));
    }
    const byte_view header(bytes.data(), bytes.size());
    start_us_ = int64_t{header.be32(0)} * 1'000'000 + header.be32(4);
    path_.destination = endpoint_parse(std::string_view(line).substr(kMagic.size()));
    std::copy_n(bytes.begin() + 8, 4, path_.source.address.bytes.begin());
    path_.source.port = header.be16(12);
}

// A packet's header: size with this header; size of the whole packet on the wire, or 0 for RTCP; milliseconds since the
// start of the dump.
bool rtpdump_source::next(captured_frame *frame, std::string *damage)
{
    std::array<uint8_t, kPacketHeaderSize> bytes{};
    const size_t count = read(bytes.data(), bytes.size());
    if (count < bytes.size()) {
        *damage = count > 0 ? "the file ends within a packet's header" : "";
        return false;
    }
    const byte_view header(bytes.data(), bytes.size());
    if (header.be16(0) < kPacketHeaderSize) {
        *damage = "a packet is shorter than its header";
        return false;
    }
    packet_.resize(header.be16(0) - kPacketHeaderSize);
    if (read(packet_.data(), packet_.size()) < packet_.size()) {
        *damage = "the file ends within a packet";
        return false;
    }
    const size_t wire_size = header.be16(2);
    const bool is_rtcp = wire_size == 0;
    frame->stamp_us = start_us_ + int64_t{header.be32(4)} * 1000;
    frame->kind = is_rtcp || packet_.size() == wire_size ? frame_kind::udp
                  : packet_.size() < wire_size           ? frame_kind::truncated
                                                         : frame_kind::damaged;
    frame->udp = {path_, byte_view(packet_.data(), packet_.size())};
    return true;
}

uint64_t rtpdump_source::position() const
{
    const long position = std::ftell(stream_.get());
    return position < 0 ? 0 : static_cast<uint64_t>(position);
}

} // namespace vrc
