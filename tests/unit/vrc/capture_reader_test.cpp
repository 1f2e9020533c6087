#include "capture/capture_reader.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "capture_builder.h"
#include "failure.h"

using namespace vrc;
using namespace vrc_test;

namespace
{

const bytes kFrame = ethernet(kTypeIpv4, ipv4(udp({'a', 'b', 'c'})));

struct reading {
    std::vector<uint64_t> times;
    std::vector<bytes> payloads;
    capture_counts counts;
};

reading read_all(const bytes &content)
{
    const temporary_file stored(content);
    const capture_file file(stored.path());
    capture_reader reader(file);
    reading result;
    captured_datagram datagram;
    while (reader.next(&datagram)) {
        const byte_view payload = datagram.udp.payload;
        result.times.push_back(datagram.elapsed_us);
        result.payloads.emplace_back(payload.data(), payload.data() + payload.size());
    }
    result.counts = reader.counts();
    return result;
}

// What opening or reading fails with; empty when it does not.
std::string error_of(const std::string &path)
{
    try {
        const capture_file file(path);
        capture_reader reader(file);
        captured_datagram datagram;
        while (reader.next(&datagram)) {
        }
    } catch (const failure &error) {
        EXPECT_EQ(error.code(), exit_code::no_access);
        return error.what();
    }
    return "";
}

bytes le16(unsigned value)
{
    return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8)};
}

// A pcapng block: type, length, body, length.
bytes block(uint32_t type, const bytes &body)
{
    const bytes padded = body + bytes((4 - body.size() % 4) % 4, 0);
    const bytes length = le32(static_cast<uint32_t>(padded.size() + 12));
    return le32(type) + length + padded + length;
}

bytes pcapng_start()
{
    const bytes section = le32(0x1A2B3C4D) + le16(1) + le16(0) + bytes(8, 0xFF);
    const bytes interface = le16(1) + le16(0) + le32(262144);
    return block(0x0A0D0D0A, section) + block(1, interface);
}

bytes pcapng_packet(uint32_t stamp_us, const bytes &frame)
{
    const auto size = static_cast<uint32_t>(frame.size());
    return block(6, le32(0) + le32(0) + le32(stamp_us) + le32(size) + le32(size) + frame);
}

} // namespace

TEST(CaptureReader, ReadsClassicCapture)
{
    const reading result = read_all(pcap_builder().add(5'000'000, kFrame).add(5'000'250, kFrame).file());
    EXPECT_EQ(result.times, (std::vector<uint64_t>{0, 250}));
    EXPECT_EQ(result.payloads, (std::vector<bytes>{{'a', 'b', 'c'}, {'a', 'b', 'c'}}));
    EXPECT_EQ(result.counts.duration_us, 250u);
    EXPECT_EQ(result.counts.damage, "");
}

TEST(CaptureReader, ReadsBigEndianCaptureWithNanoseconds)
{
    const bytes header = be32(0xA1B23C4D) + be16(2) + be16(4) + be32(0) + be32(0) + be32(65535) + be32(1);
    const bytes size = be32(static_cast<uint32_t>(kFrame.size()));
    const reading result =
        read_all(header + be32(7) + be32(1'000) + size + size + kFrame + be32(8) + be32(3'000) + size + size + kFrame);
    EXPECT_EQ(result.times, (std::vector<uint64_t>{0, 1'000'002}));
}

TEST(CaptureReader, ReadsPcapng)
{
    const reading result = read_all(pcapng_start() + pcapng_packet(100, kFrame) + pcapng_packet(400, kFrame));
    EXPECT_EQ(result.times, (std::vector<uint64_t>{0, 300}));
    EXPECT_EQ(result.counts.udp, 2u);
}

TEST(CaptureReader, CountsWhatItSkips)
{
    pcap_builder capture;
    capture.add(0, kFrame);
    capture.add(1, ethernet(0x0806, bytes(28, 0)));
    capture.add(2, ethernet(kTypeIpv4, ipv4(bytes(20, 0), {{}, 0, 6})));
    capture.add(3, ethernet(kTypeIpv4, ipv4(udp({'x'}), {{}, 0x2000})));
    capture.add(4, kFrame, 2);
    capture.add(5, ethernet(kTypeIpv4, ipv4(udp({'x'}, 7))));
    const capture_counts counts = read_all(capture.file()).counts;
    EXPECT_EQ(counts.frames, 6u);
    EXPECT_EQ(counts.udp, 1u);
    EXPECT_EQ(counts.not_udp, 2u);
    EXPECT_EQ(counts.fragments, 1u);
    EXPECT_EQ(counts.truncated, 1u);
    EXPECT_EQ(counts.damaged, 1u);
    EXPECT_EQ(counts.duration_us, 5u);
}

TEST(CaptureReader, ReadsCutCaptureUpToTheCut)
{
    constexpr size_t file_header = 24;
    constexpr size_t record_header = 16;
    const bytes whole = pcap_builder().add(0, kFrame).add(1, kFrame).file();
    const size_t record = record_header + kFrame.size();
    for (size_t size = file_header; size <= whole.size(); ++size) {
        const reading result = read_all(bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
        const size_t rest = (size - file_header) % record;
        EXPECT_EQ(result.payloads.size(), (size - file_header) / record) << size;
        EXPECT_EQ(result.counts.damage.empty(), rest == 0) << size << ": " << result.counts.damage;
    }
}

TEST(CaptureReader, ReadsPcapngCutAnywhereUpToTheCut)
{
    const bytes start = pcapng_start();
    const bytes whole = start + pcapng_packet(1, kFrame) + pcapng_packet(2, kFrame);
    const size_t packet = pcapng_packet(1, kFrame).size();
    for (size_t size = start.size(); size <= whole.size(); ++size) {
        const reading result = read_all(bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
        EXPECT_EQ(result.payloads.size(), (size - start.size()) / packet) << size;
        EXPECT_EQ(result.counts.damage.empty(), (size - start.size()) % packet == 0) << size;
    }
}

TEST(CaptureReader, StopsAtDamagedRecordAndSaysSo)
{
    bytes capture = pcap_builder().add(0, kFrame).add(1, kFrame).file();
    const size_t second_length = 24 + 16 + kFrame.size() + 8;
    std::fill_n(capture.begin() + static_cast<std::ptrdiff_t>(second_length), 4, uint8_t{0xFF});
    const reading result = read_all(capture);
    EXPECT_EQ(result.payloads.size(), 1u);
    EXPECT_NE(result.counts.damage, "");
}

TEST(CaptureReader, NotesClockThatGoesBack)
{
    const capture_counts counts =
        read_all(pcap_builder().add(1000, kFrame).add(400, kFrame).add(2000, kFrame).file()).counts;
    EXPECT_EQ(counts.clock_steps_back, 1u);
    EXPECT_EQ(counts.largest_clock_step_back_us, 600u);
    EXPECT_EQ(counts.duration_us, 1000u);
}

TEST(CaptureReader, ReadsFileAgainFromItsBeginning)
{
    const temporary_file stored(pcap_builder().add(0, kFrame).file());
    const capture_file file(stored.path());
    for (int round = 0; round < 2; ++round) {
        capture_reader reader(file);
        captured_datagram datagram;
        EXPECT_TRUE(reader.next(&datagram));
        EXPECT_FALSE(reader.next(&datagram));
    }
}

TEST(CaptureReader, SaysWhatIsWrongWithFilesThatAreNoCaptures)
{
    const std::string rtpdump = "#!rtpplay1.0 127.0.0.1/5004\n";
    struct {
        bytes content;
        const char *message;
    } const rows[] = {
        {{}, "is not a capture: captures are written by tcpdump"},
        {{0xD4}, "is not a capture"},
        {bytes(200, 0), "is not a capture"},
        {{0x1F, 0x8B, 8, 0, 1, 2, 3, 4}, "compressed with gzip"},
        {{0x28, 0xB5, 0x2F, 0xFD, 1, 2, 3, 4}, "compressed with zstd"},
        {{0xFD, 0x37, 0x7A, 0x58, 0x5A, 0, 0, 4}, "compressed with xz"},
        {{'P', 'K', 3, 4, 20, 0, 0, 0}, "zip archive"},
        {bytes(rtpdump.begin(), rtpdump.end()), "rtpdump header"},
        {{'v', '=', '0', '\r', '\n'}, "session description"},
        {pcap_builder(127).file(), "link type IEEE802_11_RADIO (127) is not supported"},
        {pcap_builder(147).file(), "link type unknown (147) is not supported"},
    };
    for (const auto &row : rows) {
        const temporary_file stored(row.content);
        const std::string error = error_of(stored.path());
        EXPECT_NE(error.find(row.message), std::string::npos) << error;
        EXPECT_NE(error.find(stored.path()), std::string::npos) << error;
    }
}

TEST(CaptureFile, SaysWhyItCannotBeOpened)
{
    EXPECT_EQ(error_of("/no/such/file"), "cannot read '/no/such/file': No such file or directory");
    EXPECT_EQ(error_of("/"), "cannot read '/': Is a directory");
}
