// Senders of video: RTP (RFC 3550) with retransmissions, and native packets that carry their frame's number.
#pragma once

#include <memory>
#include <vector>

#include "encoder.h"
#include "ledger.h"

namespace simulation
{

// What a sender does with a request for packets.
enum class repair {
    none,
    plain,   // sends them again as they were
    flagged, // the same, and the receiver's application knows which they are
    rtx      // RFC 4588
};

struct sender_settings {
    uint32_t uid = 1; // SSRC of an RTP sender
    uint8_t stream_id = 0;
    bool is_native = false;
    uint8_t protocol_version = 10; // native path
    uint8_t csrcs = 0;
    encoder_settings encoder;
    double fec = 0; // native path: FEC packets, as a share of the media packets
    double fps = 15;
    zeb_ts_t key_every = 0;       // ms; 0: on request alone
    zeb_ts_t key_pause = 0;       // ms from one key frame to the next at least
    size_t keeps = 512;           // packets, to send them again: a power of two
    double probes = 0;            // share of frames that padding follows
    double padded = 0;            // share of media packets with padding (RFC 3550, 5.1)
    double extension_records = 0; // native path: share of packets with words beside them
    zeb_ts_t spoils_every = 0;    // ms, mean: sends a frame that a receiver must not take; 0: never
    repair repairs = repair::plain;
    int extension_words = -1;
    bool is_rtx_paired = true; // the receiver was told which SSRC the retransmissions have
    bool keeps_probes = false; // padding is sent again like anything else
    bool omits_sets = false;   // from key frames that nobody asked for, when the receiver has them
};

constexpr uint8_t kPayloadTypeH264 = 96; // retransmissions have the next one
constexpr uint8_t kPayloadTypeH265 = 98;

// One packet on the wire.
struct wire_packet {
    uint32_t uid = 0;
    uint32_t name = 0; // of its frame, as in the ledger
    seq_t seq = 0;
    bool is_retrans = false;
    bool is_rtx = false;
    bool is_changed = false; // under way
    bool is_native = false;
    uint8_t stream_id = 0;
    PVideoData4Common common = {}; // native path, as the next
    Video4Header header = {};
    std::vector<uint32_t> extension; // native path: what the record holds beside the packet
    bytes data;
};

class Sender
{
  public:
    Sender(const sender_settings &settings, uint64_t seed, zeb_ts_t now);
    virtual ~Sender() = default;
    Sender(const Sender &) = delete;
    Sender &operator=(const Sender &) = delete;

    // When the next frame is due.
    zeb_ts_t next_at() const;

    // The packets of the next frame, which is sent now; none while the sender is silent.
    std::vector<wire_packet> send(zeb_ts_t now);

    // The packet that was asked for, or none.
    virtual std::vector<wire_packet> send_again(seq_t seq) = 0;

    void ask_key_frame()
    {
        wants_key_frame_ = true;
    }

    // Sends nothing up to `until`.
    void pause(zeb_ts_t until)
    {
        silent_until_ = until;
    }

    void leave()
    {
        has_left_ = true;
    }

    bool has_left() const
    {
        return has_left_;
    }

    // Numbers anew: packets and frames, or the frames alone.
    void restart(bool packets_too);

    // The next frame is one that a receiver must not take.
    void spoil_next()
    {
        spoils_next_ = true;
    }

    // The receiver's clock was set ahead, and the sender's with it or not.
    void shift(zeb_ts_t span, bool with_sender);

    // Numberings so far.
    uint32_t n_restarts() const
    {
        return n_restarts_;
    }

    const sender_settings settings; // as given
    Ledger ledger;
    zeb_ts_t disturbed_at; // began, came back or numbered anew last

  protected:
    virtual std::vector<wire_packet> wrap(const picture &made, zeb_ts_t now) = 0;
    virtual void renumber(bool packets_too) = 0;
    virtual uint32_t name_next(zeb_ts_t now) = 0;

    // Bytes of padding of the next media packet; 0: none.
    uint8_t draw_padding();

    // The sender's clock at the receiver's time `now`, in RTP timestamp units.
    uint32_t ticks_at(zeb_ts_t now) const
    {
        return static_cast<uint32_t>((now - behind_) * 90);
    }

    Random random_;

  private:
    bool is_key_due(zeb_ts_t now) const;
    picture_wish draw_wish(zeb_ts_t now);

    Encoder encoder_;
    zeb_ts_t began_at_;
    uint64_t n_frames_ = 0;
    zeb_ts_t key_at_ = 0;
    bool has_key_ = false;
    bool wants_key_frame_ = false;
    bool has_left_ = false;
    bool spoils_next_ = false;
    uint32_t n_restarts_ = 0;
    zeb_ts_t behind_ = 0; // the receiver's clock
    zeb_ts_t silent_until_ = 0;
};

std::unique_ptr<Sender> make_sender(const sender_settings &settings, uint64_t seed, zeb_ts_t now);

uint32_t rtx_ssrc_of(uint32_t ssrc);

} // namespace simulation
