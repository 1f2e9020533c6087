// Listens with each of the tool's own allocations failing in turn: a packet or a frame may be lost, and nothing else. An
// exception that reaches a callback of the receiver would end the process.
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "capture_builder.h"
#include "live/listen_media.h"
#include "live/sender_succession.h"
#include "output/frame_files.h"
#include "srtp/srtp_key.h"
#include "srtp/srtp_protector.h"
#include "video_stream.h"

namespace
{

// Allocations of C++ since they are counted, and the one that fails; 0: none does. Not those of the receiver, which has a
// sweep of its own (allocation_sweep).
size_t n_asked = 0;
size_t failing_nth = 0;
bool fails_for_good = false;

bool is_to_fail()
{
    ++n_asked;
    return failing_nth != 0 && (n_asked == failing_nth || (fails_for_good && n_asked > failing_nth));
}

} // namespace

void *operator new(size_t size)
{
    void *block = is_to_fail() ? nullptr : std::malloc(size != 0 ? size : 1);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void operator delete(void *block) noexcept
{
    std::free(block);
}

void operator delete(void *block, size_t /*size*/) noexcept
{
    std::free(block);
}

using namespace vrc;
using namespace vrc_test;

namespace
{

constexpr const char *kKey = "AES_CM_128_HMAC_SHA1_80:YWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFh";
constexpr uint16_t kRtpPort = 4000; // of the sender

struct stream_kind {
    bool is_all;
    bool is_encrypted; // what is sent; what comes is not
    bool is_type_searched;
};

listen_section section_of(const stream_kind &kind)
{
    listen_section section;
    section.config.codec = VIDEO_TYPE_H264;
    if (!kind.is_type_searched) {
        section.config.payload_type = 96;
    }
    section.config.feedback.nack = true;
    section.config.feedback.pli = true;
    section.config.feedback.reports = true;
    section.rtp_port = 5004;
    section.rtcp_port = 5005;
    return section;
}

std::optional<sdp_crypto> sending_key_of(const stream_kind &kind)
{
    return kind.is_encrypted ? std::optional<sdp_crypto>(srtp_key_parse(kKey)) : std::nullopt;
}

struct arrival {
    udp_role role;
    bytes datagram;
};

// Pictures of two senders, of which one says BYE; lost packets, reports, and packets of another type.
std::vector<arrival> traffic(uint16_t first)
{
    std::vector<arrival> made;
    for (uint16_t picture = first; picture < first + 30; ++picture) {
        for (const uint32_t ssrc : {7U, 8U}) {
            const bool is_key = picture % 10 == 0;
            std::vector<bytes> payloads =
                h264_fragments(is_key ? h264_idr_slice(900) : h264_inter_slice(600), is_key ? 3 : 4);
            if (is_key) {
                payloads.insert(payloads.begin(), h264_parameter_sets());
            }
            for (size_t i = 0; i < payloads.size(); ++i) {
                const auto seq = static_cast<uint16_t>(picture * payloads.size() + i);
                const bool is_lost = picture % 7 == 3 && i == 1;
                if (!is_lost) {
                    made.push_back(
                        {udp_role::rtp, rtp({seq, picture * 3000u, i + 1 == payloads.size(), ssrc, 96}, payloads[i])});
                }
            }
        }
        made.push_back({udp_role::rtp, rtp({picture, 0, false, 1000u + picture, 98}, {0x41, 0x9A})});
        made.push_back({udp_role::rtcp, bytes{0x80, 200} + be16(6) + be32(7) + bytes(20)});
    }
    made.push_back({udp_role::rtcp, bytes{0x81, 203} + be16(1) + be32(7)});
    return made;
}

class scene
{
  public:
    scene(const stream_kind &kind, const std::string &path)
        : is_all_(kind.is_all), files_(path, kind.is_all, {4, 1}),
          succession_([this](uint32_t ssrc) { return media_.receiver().report(ssrc); },
                      [this](const channel_frame &frame) { write(frame); }, {1'000'000, true}),
          media_(section_of(kind), sending_key_of(kind), std::nullopt,
                 {[this](const channel_frame &frame) { take_frame(frame); }, [](const udp_datagram &) {},
                  [](const feedback_peer &, byte_view) { return true; }})
    {
    }

    // Like the event loop: what comes out of a call is caught around it.
    template <typename Action> void guard(Action action) noexcept
    {
        try {
            action();
        } catch (const std::bad_alloc &) {
            ++caught_;
        }
    }

    void play(const std::vector<arrival> &arrivals)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(kRtpPort);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        for (const arrival &one : arrivals) {
            now_ += 5;
            udp_arrival came{one.role, {{}, {one.datagram.data(), one.datagram.size()}}, {}};
            std::memcpy(&came.from.address, &address, sizeof address);
            guard([&] { media_.take(came, now_); });
            guard([&] { media_.tick(now_); });
            guard([&] { succession_.tick(now_); });
        }
    }

    void close()
    {
        files_.close();
        for (const uint32_t ssrc : {7U, 8U}) {
            std::remove(files_.name_of({0, ssrc}).c_str());
        }
    }

    uint64_t frames() const
    {
        return frames_;
    }

  private:
    void take_frame(const channel_frame &frame) noexcept
    {
        if (is_all_) {
            write(frame);
        } else {
            guard([&] { succession_.take(frame, now_); });
        }
    }

    void write(const channel_frame &frame) noexcept
    {
        ++frames_;
        is_written_ = files_.write(0, frame) && is_written_;
    }

    bool is_all_;
    frame_files files_;
    sender_succession succession_;
    listen_media media_;
    zeb_ts_t now_ = 10'000;
    uint64_t frames_ = 0;
    uint64_t caught_ = 0;
    bool is_written_ = true;
};

} // namespace

TEST(ListenWithoutMemory, LosesWhatIsAtHandAndGoesOn)
{
    const std::vector<arrival> arrivals = traffic(0);
    const std::vector<arrival> later = traffic(30);
    const stream_kind kinds[] = {{false, false, false}, {false, true, true}, {true, false, true}};
    for (const stream_kind &kind : kinds) {
        for (const bool for_good : {false, true}) {
            size_t runs = 0;
            for (size_t nth = 1; nth == 1 || n_asked >= nth; nth += 1 + nth / 8) {
                const temporary_file out;
                scene played(kind, out.path());
                fails_for_good = for_good;
                n_asked = 0;
                failing_nth = nth;
                played.play(arrivals);
                const size_t asked = n_asked;
                failing_nth = 0;
                const uint64_t before = played.frames();
                played.play(later); // the senders go on
                EXPECT_GT(played.frames(), before) << "allocation " << nth;
                played.close();
                n_asked = asked;
                ++runs;
            }
            EXPECT_GT(runs, 20u);
        }
    }
}
