#include "capture/rtpdump_source.h"

#include <gtest/gtest.h>

#include "capture/capture_reader.h"
#include "capture_builder.h"
#include "failure.h"

using namespace vrc;
using namespace vrc_test;

namespace
{

bytes text(const char *letters)
{
    const std::string string(letters);
    return {string.begin(), string.end()};
}

// From 192.0.2.1:4000, at 1000.5 s.
bytes header(const char *destination = "192.0.2.2/5004")
{
    return text("#!rtpplay1.0 ") + text(destination) + text("\n") + be32(1000) + be32(500'000) + bytes{192, 0, 2, 1} +
           be16(4000) + be16(0);
}

bytes record(uint32_t offset_ms, const bytes &packet, size_t wire_size)
{
    return be16(static_cast<unsigned>(packet.size() + 8)) + be16(static_cast<unsigned>(wire_size)) + be32(offset_ms) +
           packet;
}

const bytes kPacket = rtp({1, 3000, true}, {'a', 'b', 'c'});
const bytes kReport = bytes{0x80, 200, 0, 1} + be32(0x11223344);

struct reading {
    std::vector<uint64_t> times;
    std::vector<bytes> packets;
    std::vector<std::string> paths;
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
        const byte_view packet = datagram.udp.payload;
        result.times.push_back(datagram.elapsed_us);
        result.packets.emplace_back(packet.data(), packet.data() + packet.size());
        result.paths.push_back(endpoint_name(datagram.udp.path.source) + " > " +
                               endpoint_name(datagram.udp.path.destination));
    }
    EXPECT_LE(reader.position(), content.size());
    result.counts = reader.counts();
    return result;
}

} // namespace

TEST(RtpDump, GivesPacketsWithTheirTimesAndAddresses)
{
    const reading seen =
        read_all(header() + record(10, kPacket, kPacket.size()) + record(30, kReport, 0) + record(30, {}, 0));
    EXPECT_EQ(seen.times, (std::vector<uint64_t>{0, 20'000, 20'000}));
    EXPECT_EQ(seen.packets, (std::vector<bytes>{kPacket, kReport, {}}));
    EXPECT_EQ(seen.paths, std::vector<std::string>(3, "192.0.2.1:4000 > 192.0.2.2:5004"));
    EXPECT_EQ(seen.counts.frames, 3u);
    EXPECT_EQ(seen.counts.duration_us, 20'000u);
    EXPECT_EQ(seen.counts.damage, "");
}

TEST(RtpDump, ReadsAddressesOfAnyKind)
{
    struct {
        const char *written;
        const char *meant;
    } const rows[] = {
        {"2001:db8::1/5004", "[2001:db8::1]:5004"},
        {"receiver.example/5004", "0.0.0.0:5004"},
        {"192.0.2.2", "192.0.2.2:0"},
        {"192.0.2.2/99999", "192.0.2.2:0"},
        {"", "0.0.0.0:0"},
    };
    for (const auto &row : rows) {
        const reading seen = read_all(header(row.written) + record(0, kPacket, kPacket.size()));
        ASSERT_EQ(seen.paths.size(), 1u) << row.written;
        EXPECT_EQ(seen.paths[0], std::string("192.0.2.1:4000 > ") + row.meant);
    }
}

TEST(RtpDump, SkipsPacketsThatAreNotWhole)
{
    const reading seen = read_all(header() + record(0, kPacket, kPacket.size() + 1) +
                                  record(1, kPacket, kPacket.size() - 1) + record(2, kPacket, kPacket.size()));
    EXPECT_EQ(seen.packets, std::vector<bytes>{kPacket});
    EXPECT_EQ(seen.counts.truncated, 1u);
    EXPECT_EQ(seen.counts.damaged, 1u);
}

TEST(RtpDump, EndsWherePacketIsShorterThanItsHeader)
{
    for (unsigned size = 0; size < 8; ++size) {
        const reading seen =
            read_all(header() + record(0, kPacket, kPacket.size()) + be16(size) + be16(0) + be32(0) + kPacket);
        EXPECT_EQ(seen.packets, std::vector<bytes>{kPacket}) << size;
        EXPECT_EQ(seen.counts.damage, "a packet is shorter than its header") << size;
    }
}

TEST(RtpDump, GivesWhatCameBeforeTheEndWhereverItIs)
{
    const bytes first = header() + record(0, kPacket, kPacket.size());
    const bytes whole = first + record(20, kReport, 0);
    for (size_t size = 0; size <= whole.size(); ++size) {
        const bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        if (size < header().size()) {
            EXPECT_THROW(read_all(cut), failure) << size;
            continue;
        }
        const reading seen = read_all(cut);
        const size_t packets = size < first.size() ? 0 : size < whole.size() ? 1 : 2;
        EXPECT_EQ(seen.packets.size(), packets) << size;
        const bool is_between = size == header().size() || size == first.size() || size == whole.size();
        EXPECT_EQ(seen.counts.damage.empty(), is_between) << size;
    }
}

TEST(RtpDump, IsRefusedWithFirstLineThatDoesNotEnd)
{
    const temporary_file stored(text("#!rtpplay1.0 ") + bytes(100'000, 'a'));
    const capture_file file(stored.path());
    EXPECT_TRUE(rtpdump_is_dump(file));
    EXPECT_THROW(rtpdump_source source(file), failure);
}
