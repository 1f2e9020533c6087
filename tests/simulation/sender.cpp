#include "sender.h"

#include <cmath>

namespace simulation
{

namespace
{

class RtpSender : public Sender
{
  public:
    RtpSender(const sender_settings &given, uint64_t seed, zeb_ts_t now) : Sender(given, seed, now), kept_(given.keeps)
    {
        base_ = static_cast<uint32_t>(random_.next());
        seq_ = static_cast<seq_t>(random_.next());
        rtx_seq_ = static_cast<seq_t>(random_.next());
    }

    std::vector<wire_packet> send_again(seq_t seq) override
    {
        const kept_packet &kept = kept_[seq % settings.keeps];
        if (settings.repairs == repair::none || !kept.is_there || kept.fields.seq != seq) {
            return {};
        }
        wire_packet packet = on_the_wire(kept.fields);
        packet.is_retrans = settings.repairs == repair::flagged;
        if (settings.repairs == repair::rtx) {
            packet.is_rtx = true;
            packet.data = rtp_builder::rtp_packet(repeated(kept.fields));
        }
        return {packet};
    }

  protected:
    uint32_t name_next(zeb_ts_t now) override
    {
        timestamp_ = base_ + ticks_at(now);
        return timestamp_;
    }

    void renumber(bool packets_too) override
    {
        base_ = static_cast<uint32_t>(random_.next());
        kept_.assign(settings.keeps, {});
        if (packets_too) {
            seq_ = static_cast<seq_t>(random_.happens(0.2) ? seq_ - random_.below(4000) : random_.next());
        }
    }

    std::vector<wire_packet> wrap(const picture &made, zeb_ts_t now) override
    {
        (void)now;
        std::vector<wire_packet> packets;
        for (const bytes &payload : made.payloads) {
            rtp_builder::rtp_fields fields = next_fields();
            fields.payload = payload;
            fields.marker = packets.size() + 1 == made.payloads.size();
            fields.padding = draw_padding();
            packets.push_back(on_the_wire(fields));
            keep(std::move(fields));
        }
        if (random_.happens(settings.probes)) {
            add_probes(&packets);
        }
        return packets;
    }

  private:
    struct kept_packet {
        bool is_there = false;
        rtp_builder::rtp_fields fields;
    };

    rtp_builder::rtp_fields next_fields()
    {
        rtp_builder::rtp_fields fields;
        fields.seq = seq_++;
        fields.timestamp = timestamp_;
        fields.ssrc = settings.uid;
        fields.payload_type = settings.encoder.codec == VIDEO_TYPE_H265 ? kPayloadTypeH265 : kPayloadTypeH264;
        fields.extension_words = settings.extension_words;
        fields.csrcs = settings.csrcs;
        return fields;
    }

    wire_packet on_the_wire(const rtp_builder::rtp_fields &fields) const
    {
        wire_packet packet;
        packet.uid = settings.uid;
        packet.name = fields.timestamp;
        packet.seq = fields.seq;
        packet.data = rtp_builder::rtp_packet(fields);
        return packet;
    }

    void keep(rtp_builder::rtp_fields fields)
    {
        kept_packet &kept = kept_[fields.seq % settings.keeps];
        kept.is_there = true;
        kept.fields = std::move(fields);
    }

    // Padding behind the frame, with its timestamp, as senders probe the path with.
    void add_probes(std::vector<wire_packet> *packets)
    {
        for (uint64_t n = random_.between(1, 4); n > 0; n--) {
            rtp_builder::rtp_fields fields = next_fields();
            fields.payload.clear();
            fields.padding = static_cast<uint8_t>(random_.between(1, 255));
            packets->push_back(on_the_wire(fields));
            if (settings.keeps_probes) {
                keep(std::move(fields));
            } else {
                kept_[fields.seq % settings.keeps].is_there = false;
            }
        }
    }

    rtp_builder::rtp_fields repeated(const rtp_builder::rtp_fields &original)
    {
        rtp_builder::rtp_fields fields = original;
        fields.ssrc = rtx_ssrc_of(settings.uid);
        fields.seq = rtx_seq_++;
        fields.payload_type = static_cast<uint8_t>(original.payload_type + 1);
        fields.payload.clear();
        rtp_builder::append_number(fields.payload, original.seq, 2);
        fields.payload.insert(fields.payload.end(), original.payload.begin(), original.payload.end());
        return fields;
    }

    std::vector<kept_packet> kept_;
    seq_t seq_ = 0;
    seq_t rtx_seq_ = 0;
    uint32_t base_ = 0;
    uint32_t timestamp_ = 0;
};

class NativeSender : public Sender
{
  public:
    NativeSender(const sender_settings &given, uint64_t seed, zeb_ts_t now) : Sender(given, seed, now)
    {
        frame_seq_ = static_cast<uint32_t>(random_.next());
        seq_ = static_cast<seq_t>(random_.next());
    }

    // Nobody asks for native packets: what is lost below is repaired below.
    std::vector<wire_packet> send_again(seq_t seq) override
    {
        (void)seq;
        return {};
    }

  protected:
    uint32_t name_next(zeb_ts_t now) override
    {
        (void)now;
        return ++frame_seq_;
    }

    // An encoder that is made anew may begin at 1000 again, at any other number, or a little ahead.
    void renumber(bool packets_too) override
    {
        const uint32_t starts[] = {1000, static_cast<uint32_t>(random_.next()), frame_seq_ + 500};
        frame_seq_ = random_.one_of(starts);
        if (packets_too) {
            base_ = static_cast<uint32_t>(random_.next());
            seq_ = static_cast<seq_t>(random_.happens(0.2) ? seq_ - random_.below(4000) : random_.next());
        }
    }

    std::vector<wire_packet> wrap(const picture &made, zeb_ts_t now) override
    {
        const size_t n_media = made.payloads.size();
        const auto n_fec = static_cast<size_t>(std::lround(settings.fec * static_cast<double>(n_media)));
        std::vector<wire_packet> packets;
        for (size_t i = 0; i < n_media + n_fec; i++) {
            packets.push_back(packet_of(made, i, n_fec, now));
        }
        return packets;
    }

  private:
    wire_packet packet_of(const picture &made, size_t index, size_t n_fec, zeb_ts_t now)
    {
        constexpr uint32_t method = 2; // FEC packets have a byte more in front where payloads have one
        wire_packet packet;
        packet.uid = settings.uid;
        packet.name = frame_seq_;
        packet.is_native = true;
        packet.stream_id = settings.stream_id;
        packet.common.uid = settings.uid;
        packet.seq = packet.common.seq = seq_++;
        packet.common.sent_ts = static_cast<uint16_t>(now);
        packet.header.frame_seq = frame_seq_;
        packet.header.n_pkts = static_cast<uint16_t>(made.payloads.size() + n_fec);
        packet.header.subseq = static_cast<uint16_t>(index);
        packet.header.video_type = made.is_key ? 0x00 : 0x10;
        packet.header.codec = settings.encoder.codec;
        packet.header.protocol_version = settings.protocol_version;
        packet.header.reserved = n_fec == 0 ? 0 : static_cast<uint32_t>(n_fec) << 8 | method << 3;
        rtp_builder::rtp_fields fields;
        fields.seq = packet.common.seq;
        fields.timestamp = base_ + ticks_at(now);
        fields.ssrc = settings.uid;
        fields.marker = index + 1 == packet.header.n_pkts;
        fields.extension_words = settings.extension_words;
        fields.csrcs = settings.csrcs;
        const bool is_media = index < made.payloads.size();
        fields.payload = is_media ? made.payloads[index] : bytes(made.payloads[0].size(), 0xFE);
        const bool is_generic = settings.encoder.codec == VIDEO_TYPE_GENERIC;
        fields.padding = is_media && !is_generic ? draw_padding() : uint8_t{0};
        packet.data = rtp_builder::rtp_packet(fields);
        // A generic frame ends with padding that reads as RTP's too.
        if (is_generic && index + 1 == made.payloads.size() && made.fault.empty() && random_.happens(settings.padded)) {
            packet.data[0] |= 0x20;
        }
        if (random_.happens(settings.extension_records)) {
            packet.extension.assign(random_.between(1, 20), static_cast<uint32_t>(random_.next()));
        }
        return packet;
    }

    uint32_t frame_seq_ = 0;
    seq_t seq_ = 0;
    uint32_t base_ = 0; // of the RTP timestamps
};

} // namespace

Sender::Sender(const sender_settings &given, uint64_t seed, zeb_ts_t now)
    : settings(given), ledger(given.encoder.codec), disturbed_at(now), random_(seed), encoder_(given.encoder, seed + 1),
      began_at_(now)
{
}

zeb_ts_t Sender::next_at() const
{
    return began_at_ + static_cast<zeb_ts_t>(static_cast<double>(n_frames_) * 1000 / settings.fps);
}

uint8_t Sender::draw_padding()
{
    return random_.happens(settings.padded) ? static_cast<uint8_t>(random_.between(1, 255)) : uint8_t{0};
}

void Sender::shift(zeb_ts_t span, bool with_sender)
{
    began_at_ += span;
    key_at_ += span;
    silent_until_ += span;
    disturbed_at += span;
    behind_ += with_sender ? 0 : span;
    ledger.shift(span);
}

bool Sender::is_key_due(zeb_ts_t now) const
{
    if (!has_key_) {
        return true;
    }
    const bool is_asked = wants_key_frame_ && now - key_at_ >= settings.key_pause;
    return is_asked || (settings.key_every != 0 && now - key_at_ >= settings.key_every);
}

picture_wish Sender::draw_wish(zeb_ts_t now)
{
    picture_wish wish;
    wish.is_key = is_key_due(now);
    wish.omits_sets =
        wish.is_key && settings.omits_sets && !wants_key_frame_ && ledger.has_given_sets() && random_.happens(0.7);
    wish.is_spoiled = spoils_next_;
    return wish;
}

std::vector<wire_packet> Sender::send(zeb_ts_t now)
{
    n_frames_++;
    if (now < silent_until_) {
        disturbed_at = silent_until_;
        return {};
    }
    const picture_wish wish = draw_wish(now);
    if (wish.is_key) {
        has_key_ = true;
        key_at_ = now;
        wants_key_frame_ = false;
    }
    if (wish.is_spoiled) {
        spoils_next_ = false;
        disturbed_at = now;
    }
    picture made = encoder_.encode(wish);
    const uint32_t name = name_next(now);
    std::vector<wire_packet> packets = wrap(made, now);
    ledger.note(name, packets.front().seq, std::move(made), now);
    return packets;
}

void Sender::restart(bool packets_too)
{
    renumber(packets_too);
    encoder_.draw_parameter_sets();
    ledger.renumber();
    n_restarts_++;
    has_key_ = false; // begins with a key frame
}

std::unique_ptr<Sender> make_sender(const sender_settings &settings, uint64_t seed, zeb_ts_t now)
{
    if (settings.is_native) {
        return std::make_unique<NativeSender>(settings, seed, now);
    }
    return std::make_unique<RtpSender>(settings, seed, now);
}

uint32_t rtx_ssrc_of(uint32_t ssrc)
{
    return ssrc ^ 0x5A5A5A5A;
}

} // namespace simulation
