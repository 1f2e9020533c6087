// Every NAL unit of an aggregate comes out, however many there are.
#include "payload_sender.h"

using namespace payload_sender;

namespace
{

class AggregateRoom : public testing::TestWithParam<way>
{
  protected:
    Client client;
    Sender sender = {&client, *GetParam().format, GetParam().path};
    const payload_format &format = *GetParam().format;

    // `n` slices of `size` bytes.
    std::vector<bytes> slices(size_t n, size_t size) const
    {
        std::vector<bytes> units;
        for (size_t i = 0; i < n; i++) {
            units.push_back(slice(format.delta_slice_header, size, i == 0, static_cast<uint32_t>(i)));
        }
        return units;
    }

    void expect_frames(const std::vector<std::vector<bytes>> &sent)
    {
        ASSERT_EQ(client.frames.size(), sent.size()) << client.frame_drops(sender.uid());
        for (size_t i = 0; i < sent.size(); i++) {
            EXPECT_EQ(client.frames[i].data, annexb_of(sent[i])) << "frame " << i;
        }
        EXPECT_EQ(client.frame_drops(sender.uid()), "");
    }
};

INSTANTIATE_TEST_SUITE_P(BothPaths, AggregateRoom, all_ways(), way_name);

TEST_P(AggregateRoom, HoldsOneToSixtySlicesOfAnyShortLength)
{
    for (size_t size = format.header_size; size < 24; size += 5) {
        std::vector<std::vector<bytes>> sent = {sender.key_frame()};
        for (size_t n = 1; n <= 60; n++) {
            sent.push_back(slices(n, size));
            sender.frame({aggregate(format, sent.back())});
        }
        expect_frames(sent);
        client.frames.clear();
    }
}

TEST_P(AggregateRoom, HoldsAsManySlicesAsAPathsLargestPacketTakes)
{
    for (const size_t mtu : {200u, 576u, 1200u, 1500u, 8900u}) {
        for (const size_t size : {format.header_size, size_t{20}, size_t{60}}) {
            const size_t n = (mtu - 40 - format.header_size) / (size + 2);
            const std::vector<bytes> key = sender.key_frame();
            const std::vector<bytes> units = slices(n, size);
            sender.frame({aggregate(format, units)});
            expect_frames({key, units});
            client.frames.clear();
        }
    }
}

TEST_P(AggregateRoom, IsEachAggregatesOwn)
{
    const std::vector<bytes> key = sender.key_frame();
    const std::vector<bytes> units = slices(120, 5);
    std::vector<bytes> payloads;
    for (size_t from = 0; from < units.size(); from += 40) {
        const auto begin = units.begin() + static_cast<ptrdiff_t>(from);
        payloads.push_back(aggregate(format, std::vector<bytes>(begin, begin + 40)));
    }
    sender.frame(payloads);
    expect_frames({key, units});
}

TEST_P(AggregateRoom, TakesEmptyUnitsIntoAccount)
{
    const std::vector<bytes> key = sender.key_frame();
    const std::vector<bytes> units = slices(30, 4);
    bytes payload = format.aggregate_header;
    for (const bytes &unit : units) {
        payload = joined({payload, {0, 0}, sized(unit)});
    }
    sender.frame({payload});
    expect_frames({key, units});
}

// A packet has at most 65,535 bytes, also with its room.
TEST_P(AggregateRoom, BeyondTheLargestPacketCostsTheFrame)
{
    const std::vector<bytes> key = sender.key_frame();
    const std::vector<bytes> fits = slices(10900, 2);
    sender.frame({aggregate(format, fits)});
    expect_frames({key, fits});

    sender.frame({aggregate(format, slices(11000, 2))});
    EXPECT_EQ(client.frames.size(), 2u);
    EXPECT_EQ(client.frame_drops(sender.uid()), "malformed=1");
    EXPECT_GT(client.report(sender.uid()).key_frame_requests, 0u);
}

TEST(AggregateRoomNative, StandsBehindAWrappedPayload)
{
    Client client;
    Sender sender(&client, h264(), transport::NATIVE);
    const std::vector<bytes> key = sender.key_frame();
    sender.encapsulation = 1 << 3;
    std::vector<std::vector<bytes>> sent = {key};
    for (const bytes &wrapper : std::vector<bytes>{{127, 0}, {107}}) {
        sent.emplace_back(40, bytes{0x61, 0x9A});
        sender.frame({joined({wrapper, aggregate(h264(), sent.back())})});
    }
    ASSERT_EQ(client.frames.size(), sent.size()) << client.frame_drops(sender.uid());
    for (size_t i = 0; i < sent.size(); i++) {
        EXPECT_EQ(client.frames[i].data, annexb_of(sent[i])) << i;
    }
}

} // namespace
