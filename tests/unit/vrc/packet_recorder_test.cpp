#include "output/packet_recorder.h"

#include <gtest/gtest.h>

#include "capture/capture_reader.h"
#include "capture_builder.h"

using namespace vrc;
using namespace vrc_test;

namespace
{

endpoint v4(uint8_t last, uint16_t port)
{
    endpoint made;
    made.address.bytes = {192, 0, 2, last};
    made.port = port;
    return made;
}

endpoint v6(uint8_t last, uint16_t port)
{
    endpoint made;
    made.address.is_v6 = true;
    made.address.bytes = {0x20, 0x01, 0x0D, 0xB8};
    made.address.bytes[15] = last;
    made.port = port;
    return made;
}

// Sum of a header's words with its checksum among them; 0xFFFF when that is right (RFC 1071).
uint32_t folded_sum(const bytes &data)
{
    uint32_t sum = 0;
    for (size_t i = 0; i < data.size(); ++i) {
        sum += i % 2 == 0 ? static_cast<uint32_t>(data[i]) << 8 : data[i];
    }
    while (sum > 0xFFFF) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return sum;
}

bytes slice(const bytes &data, size_t begin, size_t end)
{
    return {data.begin() + static_cast<std::ptrdiff_t>(begin), data.begin() + static_cast<std::ptrdiff_t>(end)};
}

} // namespace

TEST(PacketRecorder, WritesWhatCaptureReaderReads)
{
    const bytes short_payload = {1, 2, 3};
    const bytes long_payload(9000, 0xA5);
    struct {
        flow path;
        const bytes *payload;
        uint64_t stamp_us;
    } const rows[] = {
        {{v4(1, 4000), v4(2, 5004)}, &short_payload, 1'700'000'000'999'999},
        {{v6(1, 4000), v6(2, 5005)}, &long_payload, 1'700'000'001'000'001},
        {{v4(1, 4000), v4(2, 5004)}, &long_payload, 1'700'000'002'000'000},
    };
    const temporary_file target;
    packet_recorder recorder(target.path());
    for (const auto &row : rows) {
        EXPECT_TRUE(recorder.write(row.stamp_us, {row.path, {row.payload->data(), row.payload->size()}}));
    }
    recorder.close();

    const capture_file file(target.path());
    capture_reader reader(file);
    captured_datagram datagram;
    for (const auto &row : rows) {
        ASSERT_TRUE(reader.next(&datagram));
        EXPECT_EQ(datagram.elapsed_us, row.stamp_us - rows[0].stamp_us);
        EXPECT_EQ(flow_key(datagram.udp.path), flow_key(row.path));
        const byte_view payload = datagram.udp.payload;
        EXPECT_EQ(bytes(payload.data(), payload.data() + payload.size()), *row.payload);
    }
    EXPECT_FALSE(reader.next(&datagram));
    EXPECT_EQ(reader.counts().damage, "");
    EXPECT_EQ(reader.counts().udp, 3u);
}

TEST(IpPacketMake, GivesRightChecksums)
{
    for (const size_t size : {size_t{0}, size_t{1}, size_t{2}, size_t{1471}}) {
        const bytes payload(size, 0xC3);
        const bytes packet = ip_packet_make({{v4(1, 4000), v4(2, 5004)}, {payload.data(), payload.size()}});
        EXPECT_EQ(folded_sum(slice(packet, 0, 20)), 0xFFFFu);
        const bytes pseudo = slice(packet, 12, 20) + be16(17) + be16(static_cast<unsigned>(size + 8));
        EXPECT_EQ(folded_sum(pseudo + slice(packet, 20, packet.size())), 0xFFFFu) << size;
        const bytes packet6 = ip_packet_make({{v6(1, 4000), v6(2, 5004)}, {payload.data(), payload.size()}});
        const bytes pseudo6 = slice(packet6, 8, 40) + be16(17) + be16(static_cast<unsigned>(size + 8));
        EXPECT_EQ(folded_sum(pseudo6 + slice(packet6, 40, packet6.size())), 0xFFFFu) << size;
    }
}

TEST(IpPacketMake, CutsPayloadToWhatFits)
{
    const bytes payload(65536, 1);
    EXPECT_EQ(ip_packet_make({{v4(1, 1), v4(2, 2)}, {payload.data(), payload.size()}}).size(), 65535u);
    EXPECT_EQ(ip_packet_make({{v6(1, 1), v6(2, 2)}, {payload.data(), payload.size()}}).size(), 65575u);
}
