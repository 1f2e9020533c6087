// Builds what the tool reads, byte by byte: packets of each layer and capture files.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace vrc_test
{

using bytes = std::vector<uint8_t>;

inline bytes operator+(bytes left, const bytes &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline bytes be16(unsigned value)
{
    return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
}

inline bytes be32(uint32_t value)
{
    return be16(value >> 16) + be16(value & 0xFFFF);
}

inline bytes le32(uint32_t value)
{
    const bytes big = be32(value);
    return {big.rbegin(), big.rend()};
}

// Network layers.

constexpr uint16_t kSourcePort = 4000;
constexpr uint16_t kDestinationPort = 5004;
constexpr uint8_t kUdp = 17;

// `length` replaces the true length where it is not 0.
inline bytes udp(const bytes &payload, unsigned length = 0)
{
    const size_t size = length != 0 ? length : payload.size() + 8;
    return be16(kSourcePort) + be16(kDestinationPort) + be16(static_cast<unsigned>(size)) + be16(0) + payload;
}

struct ipv4_fields {
    bytes options = {};          // a multiple of four bytes
    uint16_t fragment_field = 0; // flags and offset
    uint8_t protocol = kUdp;
    size_t extra_length = 0; // claimed and not there
};

// From 192.0.2.1 to 192.0.2.2.
inline bytes ipv4(const bytes &payload, const ipv4_fields &fields = {})
{
    const size_t header_size = 20 + fields.options.size();
    const bytes start = {static_cast<uint8_t>(0x40 | header_size / 4), 0};
    return start + be16(static_cast<unsigned>(header_size + payload.size() + fields.extra_length)) + be16(1) +
           be16(fields.fragment_field) + bytes{64, fields.protocol} + be16(0) + bytes{192, 0, 2, 1, 192, 0, 2, 2} +
           fields.options + payload;
}

// From 2001:db8::1 to 2001:db8::2.
inline bytes ipv6(uint8_t next_header, const bytes &payload)
{
    const bytes network = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    return be32(0x60000000) + be16(static_cast<unsigned>(payload.size())) + bytes{next_header, 64} + network +
           bytes{1} + network + bytes{2} + payload;
}

// Link layers.

constexpr unsigned kTypeIpv4 = 0x0800;
constexpr unsigned kTypeIpv6 = 0x86DD;

inline bytes ethernet(unsigned ether_type, const bytes &payload)
{
    return bytes(12, 0x02) + be16(ether_type) + payload;
}

// What follows an EtherType of VLAN tags: the tag and the type behind it.
inline bytes vlan_tag(unsigned inner_type, const bytes &payload)
{
    return be16(0x2005) + be16(inner_type) + payload;
}

inline bytes linux_cooked_v1(unsigned ether_type, const bytes &payload)
{
    return be16(4) + be16(1) + be16(6) + bytes(8, 0x02) + be16(ether_type) + payload;
}

inline bytes linux_cooked_v2(unsigned ether_type, const bytes &payload)
{
    return be16(ether_type) + be16(0) + be32(2) + be16(1) + bytes{4, 6} + bytes(8, 0x02) + payload;
}

// RTP.

struct rtp_fields {
    uint16_t seq = 0;
    uint32_t timestamp = 0;
    bool marker = false;
    uint32_t ssrc = 0x11223344;
    uint8_t payload_type = 96;
};

inline bytes rtp(const rtp_fields &fields, const bytes &payload)
{
    return bytes{0x80, static_cast<uint8_t>((fields.marker ? 0x80 : 0) | fields.payload_type)} + be16(fields.seq) +
           be32(fields.timestamp) + be32(fields.ssrc) + payload;
}

// Capture files.

constexpr uint32_t kLinkEthernet = 1;

// A file in the classic format, little-endian, with stamps in microseconds.
class pcap_builder
{
  public:
    explicit pcap_builder(uint32_t link_type = kLinkEthernet)
        : file_(le32(0xA1B2C3D4) + le32(0x00040002) + le32(0) + le32(0) + le32(262144) + le32(link_type))
    {
    }

    // `cut` bytes of the frame are not kept, as a small snap length does.
    pcap_builder &add(uint64_t stamp_us, const bytes &frame, size_t cut = 0)
    {
        const bytes kept(frame.begin(), frame.end() - static_cast<std::ptrdiff_t>(cut));
        file_ = std::move(file_) + le32(static_cast<uint32_t>(stamp_us / 1'000'000)) +
                le32(static_cast<uint32_t>(stamp_us % 1'000'000)) + le32(static_cast<uint32_t>(kept.size())) +
                le32(static_cast<uint32_t>(frame.size())) + kept;
        return *this;
    }

    // One RTP packet over Ethernet, IPv4 and UDP.
    pcap_builder &add_rtp(uint64_t stamp_us, const rtp_fields &fields, const bytes &payload)
    {
        return add(stamp_us, ethernet(kTypeIpv4, ipv4(udp(rtp(fields, payload)))));
    }

    const bytes &file() const
    {
        return file_;
    }

  private:
    bytes file_;
};

// A file with the given content, removed at the end of its life.
class temporary_file
{
  public:
    explicit temporary_file(const bytes &content = {})
    {
        static int count = 0;
        path_ = testing::TempDir() + "vrc_" + std::to_string(getpid()) + "_" + std::to_string(count++);
        std::FILE *file = std::fopen(path_.c_str(), "wb");
        EXPECT_NE(file, nullptr) << path_;
        if (!content.empty()) {
            EXPECT_EQ(std::fwrite(content.data(), 1, content.size(), file), content.size());
        }
        std::fclose(file);
    }

    ~temporary_file()
    {
        std::remove(path_.c_str());
    }

    temporary_file(const temporary_file &) = delete;
    temporary_file &operator=(const temporary_file &) = delete;

    const std::string &path() const
    {
        return path_;
    }

  private:
    std::string path_;
};

// H.264 in RTP: a small stream whose pictures nobody could decode but whose headers are right.

// STAP-A with a baseline SPS and a PPS.
inline bytes h264_parameter_sets()
{
    const bytes sps = {0x67, 0x42, 0xC0, 0x1E, 0xD9, 0x00, 0xA0, 0x47, 0xFE, 0xC8};
    const bytes pps = {0x68, 0xCE, 0x3C, 0x80};
    return bytes{0x78} + be16(static_cast<unsigned>(sps.size())) + sps + be16(static_cast<unsigned>(pps.size())) + pps;
}

// first_mb_in_slice 0, slice_type 7 (I), pic_parameter_set_id 0: 1 0001000 1...
inline bytes h264_idr_slice(size_t size)
{
    return bytes{0x65, 0x88, 0x84} + bytes(size - 3, 0x21);
}

// first_mb_in_slice 0, slice_type 5 (P), pic_parameter_set_id 0: 1 00110 1...
inline bytes h264_inter_slice(size_t size)
{
    return bytes{0x41, 0x9A, 0x24} + bytes(size - 3, 0x6C);
}

// FU-A: the NAL unit in `count` fragments.
inline std::vector<bytes> h264_fragments(const bytes &unit, size_t count)
{
    std::vector<bytes> fragments;
    const size_t body = unit.size() - 1;
    for (size_t i = 0; i < count; ++i) {
        const size_t begin = 1 + body * i / count;
        const size_t end = 1 + body * (i + 1) / count;
        const unsigned place = (i == 0 ? 0x80u : 0u) | (i + 1 == count ? 0x40u : 0u);
        bytes fragment = {static_cast<uint8_t>((unit[0] & 0x60) | 28), static_cast<uint8_t>(place | (unit[0] & 0x1F))};
        fragment.insert(fragment.end(), unit.begin() + static_cast<std::ptrdiff_t>(begin),
                        unit.begin() + static_cast<std::ptrdiff_t>(end));
        fragments.push_back(std::move(fragment));
    }
    return fragments;
}

} // namespace vrc_test
