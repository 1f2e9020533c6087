// A frame whose payloads do not hold whole NAL units is lost: it does not come out, is counted by what is wrong with it, and
// a key frame is asked for.
#include <string>

#include "hex_bytes.h"
#include "payload_sender.h"

using namespace payload_sender;

namespace
{

struct row {
    const char *name;
    std::vector<std::vector<const char *>> payloads; // H.264 and H.265; what one of them does not have is empty
    const char *fault;
};

const row kRows[] = {
    {"type 0", {{"61 9A 01", "60 01"}, {}}, "reserved_type=1"},
    {"type 30", {{"61 9A 01", "7E 01"}, {}}, "reserved_type=1"},
    {"type 31", {{"61 9A 01", "7F 01"}, {}}, "reserved_type=1"},
    {"type 51", {{}, {"02 01 D0", "66 01 00"}}, "reserved_type=1"},
    {"type 63", {{}, {"02 01 D0", "7E 01 00"}}, "reserved_type=1"},
    {"STAP-B", {{"61 9A 01", "79 00 00 00 02 61 01"}, {}}, "interleaved=1"},
    {"MTAP16", {{"61 9A 01", "7A 00 00 00 05 00 00 00 61 01"}, {}}, "interleaved=1"},
    {"MTAP24", {{"61 9A 01", "7B 00 00 00 06 00 00 00 00 61 01"}, {}}, "interleaved=1"},
    {"FU-B", {{"61 9A 01", "7D 81 00 00 01", "7C 41 02"}, {}}, "interleaved=1"},
    {"PACI", {{}, {"02 01 D0", "64 01 00 00 02 01"}}, "paci=1"},
    {"an aggregate in an aggregate",
     {{"78 00 03 61 9A 01 00 05 78 00 02 61 01"}, {"60 01 00 03 02 01 D0 00 06 60 01 00 02 02 01"}},
     "nested=1"},
    {"a fragment in an aggregate",
     {{"78 00 03 61 9A 01 00 03 7C 81 01"}, {"60 01 00 03 02 01 D0 00 04 62 01 81 01"}},
     "nested=1"},
    {"a fragment of an aggregate", {{"61 9A 01", "7C D8 01"}, {"02 01 D0", "62 01 F0 01"}}, "nested=1"},
    {"an aggregate's unit beyond its end",
     {{"78 00 03 61 9A 01 00 03 61 01"}, {"60 01 00 03 02 01 D0 00 03 02 01"}},
     "truncated=1"},
    {"a byte left in an aggregate", {{"78 00 03 61 9A 01 00"}, {"60 01 00 03 02 01 D0 00"}}, "truncated=1"},
    {"an aggregate without units", {{"61 9A 01", "78"}, {"02 01 D0", "60 01"}}, "truncated=1"},
    {"a fragment without its headers", {{"61 9A 01", "7C"}, {"02 01 D0", "62 01"}}, "truncated=1"},
    {"half a NAL unit header", {{}, {"02 01 D0", "02"}}, "truncated=1"},
    {"a start without its end, before a unit",
     {{"7C 81 9A", "61 01"}, {"62 01 81 D0", "02 01 01"}},
     "broken_fragment=1"},
    {"a start without its end, before an aggregate",
     {{"7C 81 9A", "78 00 02 61 01"}, {"62 01 81 D0", "60 01 00 03 02 01 01"}},
     "broken_fragment=1"},
    {"a start behind a start",
     {{"7C 81 9A", "7C 81 01", "7C 41 02"}, {"62 01 81 D0", "62 01 81 01", "62 01 41 02"}},
     "broken_fragment=1"},
    {"a whole unit in a fragment behind a start",
     {{"7C 81 9A", "7C C1 01", "7C 41 02"}, {"62 01 81 D0", "62 01 C1 01", "62 01 41 02"}},
     "broken_fragment=1"},
    {"a middle behind a unit",
     {{"61 9A 01", "7C 01 01", "7C 41 02"}, {"02 01 D0", "62 01 01 01", "62 01 41 02"}},
     "broken_fragment=1"},
    {"an end behind a unit", {{"61 9A 01", "7C 41 02"}, {"02 01 D0", "62 01 41 02"}}, "broken_fragment=1"},
    {"an end behind an end",
     {{"7C 81 9A", "7C 41 01", "7C 41 02"}, {"62 01 81 D0", "62 01 41 01", "62 01 41 02"}},
     "broken_fragment=1"},
    {"an end of another type", {{"7C 81 9A", "7C 45 01"}, {"62 01 81 D0", "62 01 53 01"}}, "broken_fragment=1"},
    {"a middle of another type",
     {{"7C 81 9A", "7C 05 01", "7C 41 02"}, {"62 01 81 D0", "62 01 13 01", "62 01 41 02"}},
     "broken_fragment=1"},
};

class MalformedPayload : public testing::TestWithParam<way>
{
  protected:
    Client client;
    Sender sender = {&client, *GetParam().format, GetParam().path};

    std::vector<bytes> payloads_of(const row &row) const
    {
        std::vector<bytes> payloads;
        for (const char *text : row.payloads[GetParam().format == &h264() ? 0 : 1]) {
            payloads.push_back(hex(text));
        }
        return payloads;
    }
};

INSTANTIATE_TEST_SUITE_P(BothPaths, MalformedPayload, all_ways(), way_name);

TEST_P(MalformedPayload, LosesItsFrameAndAsksForAKeyFrame)
{
    for (const row &row : kRows) {
        const std::vector<bytes> payloads = payloads_of(row);
        if (payloads.empty()) {
            continue;
        }
        SCOPED_TRACE(row.name);
        Client fresh;
        Sender from(&fresh, *GetParam().format, GetParam().path);
        const std::vector<bytes> key = from.key_frame();
        const uint64_t asked = fresh.report().key_frame_requests;
        from.frame(payloads);
        EXPECT_EQ(fresh.frame_drops(), "malformed=1");
        EXPECT_EQ(fresh.payload_faults(), row.fault);
        EXPECT_EQ(fresh.report().key_frame_requests, asked + 1);
        from.frame({slice(GetParam().format->delta_slice_header, 30, true)});
        const std::vector<bytes> next_key = from.key_frame();
        ASSERT_EQ(fresh.frames.size(), 2u);
        EXPECT_EQ(fresh.frames[0].data, annexb_of(key));
        EXPECT_EQ(fresh.frames[1].data, annexb_of(next_key));
        EXPECT_EQ(fresh.frame_drops(), "after_gap=1 malformed=1");
    }
}

TEST_P(MalformedPayload, IsNoUnitInOneFragment)
{
    const std::vector<bytes> key = sender.key_frame();
    const bytes header = GetParam().format->delta_slice_header;
    const bytes first = slice(header, 30, true);
    const bytes second = slice(header, 40, false);
    const bytes content(first.begin() + static_cast<ptrdiff_t>(header.size()), first.end());
    sender.frame({joined({GetParam().format->delta_fragment_whole, content}), second});
    ASSERT_EQ(client.frames.size(), 2u) << client.frame_drops();
    EXPECT_EQ(client.frames[1].data, annexb_of({first, second}));
}

TEST_P(MalformedPayload, IsNoFragmentWithoutBytesNorAnEmptyUnit)
{
    const payload_format &format = *GetParam().format;
    const std::vector<bytes> key = sender.key_frame();
    const bytes unit = slice(format.delta_slice_header, 30, true);
    const bytes content(unit.begin() + static_cast<ptrdiff_t>(format.header_size), unit.end());
    sender.frame({format.delta_fragment_start, joined({format.delta_fragment_middle, content}),
                  format.delta_fragment_end, joined({format.aggregate_header, {0, 0}, sized(unit), {0, 0}})});
    ASSERT_EQ(client.frames.size(), 2u) << client.frame_drops();
    EXPECT_EQ(client.frames[1].data, annexb_of({unit, unit}));
}

// Every order of the fragments of a unit that comes under whole numbers.
TEST_P(MalformedPayload, IsAFrameOfFragmentsInAnyButTheirOrder)
{
    const payload_format &format = *GetParam().format;
    const bytes unit = slice(format.delta_slice_header, 30, true);
    const std::vector<bytes> fragments = {joined({format.delta_fragment_start, {0x9A}}),
                                          joined({format.delta_fragment_middle, {0x9B}}),
                                          joined({format.delta_fragment_end, {0x9C}})};
    std::vector<size_t> order = {0, 1, 2};
    do {
        Client fresh;
        Sender from(&fresh, format, GetParam().path);
        from.key_frame();
        from.frame({unit, fragments[order[0]], fragments[order[1]], fragments[order[2]]});
        const bool is_whole = order == std::vector<size_t>{0, 1, 2};
        EXPECT_EQ(fresh.frames.size(), is_whole ? 2u : 1u);
        EXPECT_EQ(fresh.frame_drops(), is_whole ? "" : "malformed=1");
        EXPECT_EQ(fresh.payload_faults(), is_whole ? "" : "broken_fragment=1");
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST_P(MalformedPayload, IsAFramesLastFragmentThatIsNoEnd)
{
    const payload_format &format = *GetParam().format;
    const std::vector<bytes> key = sender.key_frame();
    sender.frame({slice(format.delta_slice_header, 30, true), joined({format.delta_fragment_start, {0x9A}})});
    EXPECT_EQ(client.frames.size(), 1u);
    EXPECT_EQ(client.frame_drops(), GetParam().path == transport::RTP ? "torn=1" : "malformed=1");
    EXPECT_EQ(client.report().key_frame_requests, 1u);
}

TEST_P(MalformedPayload, IsLostAgainAndAgain)
{
    for (uint32_t i = 1; i <= 5; i++) {
        sender.key_frame();
        sender.frame({GetParam().format->aggregate_header});
        EXPECT_EQ(client.frames.size(), i);
        EXPECT_EQ(client.frame_drops(), "malformed=" + std::to_string(i));
        EXPECT_EQ(client.payload_faults(), "truncated=" + std::to_string(i));
    }
}

} // namespace
