"""Programs for client_packets.cpp."""

import pathlib

from seeds_captures import datagrams
from seeds_text import DESCRIPTIONS

(RTP, RAW_RTP, RETRANSMISSION, RAW_RTCP, RTCP, PASS, WAIT, NATIVE, DESCRIBE, SET_UP, REFUSE_MEMORY, RENEW_CHANNEL,
 CHANGE_CALLBACK, BURST, JUMP) = range(15)

# Places in the table of payloads.
(DELTA, IDR, SPS, PPS, STAP, FU_IDR, FU_IDR_MID, FU_IDR_END, FU_DELTA, FU_DELTA_MID, FU_DELTA_END, DELIMITER, FILLER,
 H265_DELTA, H265_IDR, VPS, H265_SPS, H265_PPS, AP, H265_FU_IDR, H265_FU_IDR_MID, H265_FU_IDR_END, H265_FU_DELTA,
 H265_FU_DELTA_MID) = range(24)

ESTIMATES, REPORTS, NACK, PLI, FIR, REMB, REDUCED, GIVES_UP = (1 << bit for bit in range(8))
ALL_FEEDBACK = 0xFF & ~ESTIMATES


def be(value, size):
    return (value & (1 << 8 * size) - 1).to_bytes(size, "big")


def program(*operations, options=0, origins=0):
    return bytes([options, origins]) + b"".join(operations)


def rtp(kind, *, step=0, marker=False, new=False, who=0, retrans=False, size=20, stays=False, first_byte=None,
        padding=None):
    """The sender's next packet, or one `step` away; `new` begins a new timestamp."""
    flags = who | marker << 4 | new << 5 | retrans << 6 | (first_byte is not None) << 7
    out = bytes([RTP, flags, step & 0xFF, kind | stays << 5 | (padding is not None) << 6, size])
    out += bytes([first_byte]) if first_byte is not None else b""
    return out + (bytes([padding - 1]) if padding is not None else b"")


def raw_rtp(data):
    return bytes([RAW_RTP, min(len(data), 255)]) + data[:255]


def retransmission(back, kind, *, who=0, marker=False, size=20, cut=False, padding=None):
    out = bytes([RETRANSMISSION, who | marker << 4, back, kind | cut << 6 | (padding is not None) << 7, size])
    return out + (bytes([padding - 1]) if padding is not None else b"")


def raw_rtcp(data):
    return bytes([RAW_RTCP, len(data)]) + data


def sender_report(time, who=0):
    return bytes([RTCP, who | 0x10]) + be(time, 4)


def good_bye(who=0):
    return bytes([RTCP, who])


def passes(ms):
    return bytes([PASS, ms if ms < 128 else 0x80 | ms // 50])


def native(frame, n, index, *, new=False, key=False, codec=0, who=0, stream=0, seq=None, frame_seq=None, fec=None,
           method=0, size=20, raw=None, retrans=False, words=0, padding=0, zeros=False, has_bit=True):
    """`words` stand in the extension; `padding` stands behind the payload, with the header's bit or without."""
    has_shape = words != 0 or padding != 0
    shape = padding - 1 | zeros << 5 | has_bit << 6 | 0x80 if padding else words
    flags = ((frame_seq is not None) | (index > 255) << 1 | (seq is not None) << 2 | key << 3 | (fec is not None) << 4
             | (raw is not None) << 5 | retrans << 6 | has_shape << 7)
    out = bytes([NATIVE, who | new << 4 | stream << 5, flags, codec | method << 3])
    out += be(frame_seq, 4) if frame_seq is not None else bytes([frame & 0xFF])
    out += bytes([n]) + (be(index, 2) if index > 255 else bytes([index]))
    out += be(seq, 2) if seq is not None else b""
    out += bytes([fec]) if fec is not None else b""
    out += bytes([len(raw)]) + raw if raw is not None else bytes([size])
    return out + (bytes([shape]) if has_shape else b"")


def describe(text):
    return bytes([DESCRIBE]) + be(len(text), 2) + text


def set_up(what, first, second, data=b""):
    return bytes([SET_UP, what, first, second]) + data


def burst(kind, count, *, who=0, marker=True, new=True, takes_time=True, with_gaps=False):
    return bytes([BURST, who | marker << 4 | new << 5 | takes_time << 6, kind | with_gaps << 5, count])


def jump(seq, timestamp=None, who=0):
    return bytes([JUMP, who | (timestamp is not None) << 4]) + be(seq, 2) + (
        be(timestamp, 4) if timestamp is not None else b"")


def clock(ahead=None, reset=None):
    """Our own clock jumps ahead, or begins again."""
    out = bytes([JUMP, (ahead is not None) << 6 | (reset is not None) << 7, 0, 0])
    return out + (be(ahead, 4) if ahead is not None else b"") + (be(reset, 2) if reset is not None else b"")


def key_frame(who=0):
    return rtp(SPS, new=True, who=who) + rtp(PPS, who=who) + rtp(FU_IDR, who=who) + rtp(FU_IDR_MID, who=who) + rtp(
        FU_IDR_END, marker=True, who=who)


def delta_frame(who=0):
    return rtp(DELTA, new=True, marker=True, who=who)


def lose(kind, who=0, new=True, marker=True):
    """A packet after one that is missing."""
    return rtp(kind, step=1, new=new, marker=marker, who=who)


REFUSE_NTH = lambda nth: bytes([REFUSE_MEMORY, nth])
REFUSE_ALL = bytes([REFUSE_MEMORY, 0x81])
MEMORY_IS_BACK = bytes([REFUSE_MEMORY, 0])

SYNTHETIC = {
    "h264_frames": program(key_frame(), delta_frame(), delta_frame(), rtp(FU_DELTA, new=True), rtp(FU_DELTA_MID),
                           rtp(FU_DELTA_END, marker=True), passes(100)),
    "h264_key_frame_in_one_aggregate": program(rtp(STAP, new=True, marker=True), delta_frame(), rtp(DELIMITER, new=True),
                                               rtp(STAP, marker=True), passes(300)),
    "h265_frames": program(rtp(AP, new=True, marker=True), rtp(H265_DELTA, new=True, marker=True), rtp(VPS, new=True),
                           rtp(H265_SPS), rtp(H265_PPS), rtp(H265_FU_IDR), rtp(H265_FU_IDR_MID),
                           rtp(H265_FU_IDR_END, marker=True), rtp(H265_FU_DELTA, new=True),
                           rtp(H265_FU_DELTA_MID, marker=True), passes(300)),
    "key_frame_without_parameter_sets": program(key_frame(), rtp(IDR, new=True, marker=True), delta_frame(), passes(50),
                                                set_up(3, 2, 5, b"\x67\x42\xc0\x1e\xd9")),
    "delta_frames_before_the_key_frame": program(delta_frame(), delta_frame(), passes(300), key_frame(), delta_frame(),
                                                 passes(300), options=ALL_FEEDBACK),
    "key_frame_reordered_at_the_start": program(rtp(FU_IDR, step=2, new=True, stays=True), rtp(SPS, stays=True),
                                                rtp(PPS, step=1, stays=True), rtp(FU_IDR_END, step=3, marker=True),
                                                delta_frame(), passes(300)),
    "loss_repaired_in_the_stream": program(key_frame(), lose(DELTA), passes(50), rtp(DELTA, step=-2, retrans=True, stays=True),
                                           delta_frame(), passes(100), options=ALL_FEEDBACK),
    "loss_repaired_by_retransmission": program(
        key_frame(), set_up(2, 0, 0), lose(DELTA), passes(50), retransmission(2, DELTA, marker=True), delta_frame(),
        passes(100), options=ALL_FEEDBACK),
    "retransmission_paired_by_what_was_asked_for": program(
        key_frame(), lose(DELTA), passes(50), retransmission(2, DELTA, marker=True), retransmission(2, DELTA),
        retransmission(9, DELTA, cut=True, size=0), retransmission(1, FILLER, size=4), passes(100), options=ALL_FEEDBACK),
    "loss_given_up_after_patience": program(key_frame(), lose(DELTA), delta_frame(), passes(2100), key_frame(),
                                            delta_frame(), passes(100), options=ALL_FEEDBACK & ~GIVES_UP),
    "loss_given_up_early": program(key_frame(), lose(DELTA), delta_frame(), passes(300), key_frame(), delta_frame(),
                                   passes(100), options=PLI | GIVES_UP),
    "loss_dropped_to_a_held_key_frame": program(key_frame(), lose(DELTA), key_frame(), delta_frame(), passes(2500),
                                                options=NACK | PLI | GIVES_UP),
    "long_loss": program(key_frame(), jump(800), delta_frame(), delta_frame(), passes(500), key_frame(), passes(500),
                         options=ALL_FEEDBACK),
    "sender_numbers_anew": program(key_frame(), delta_frame(), jump(20000, 5000000), key_frame(), delta_frame(),
                                   passes(500), options=ALL_FEEDBACK),
    "one_damaged_number": program(key_frame(), rtp(DELTA, step=120, marker=True, stays=True), delta_frame(), passes(100)),
    "numbers_wrap": program(key_frame(), *[delta_frame() for _ in range(12)], passes(50), origins=0b000101),
    "fillers_between_frames": program(key_frame(), rtp(FILLER, size=4), rtp(FILLER, size=4), delta_frame(),
                                      rtp(FILLER, marker=True, size=1), rtp(FILLER, size=0), passes(100)),
    "duplicates_and_latecomers": program(key_frame(), rtp(DELTA, step=-1, stays=True), rtp(DELTA, step=-120, stays=True),
                                         delta_frame(), rtp(DELTA, step=-1, stays=True)),
    "headers_longer_than_the_packet": program(
        rtp(IDR, first_byte=0x8F, size=3), rtp(IDR, first_byte=0x90, size=2), rtp(IDR, first_byte=0xA0),
        rtp(IDR, first_byte=0x40), raw_rtp(b"\x80\x60"), raw_rtp(b""), raw_rtp(b"\x90\x60" + bytes(10) + b"\xbe\xde\0\x01")),
    "extension_of_256_words": program(raw_rtp(b"\x90\xe0\0\x01\0\0\0\x01\x11\x22\x33\0\xbe\xde\x01\x00" + bytes(230))),
    "more_senders_than_a_channel_takes": program(*[key_frame(who) for who in range(10)], passes(6000), key_frame(9),
                                                 passes(100), options=REPORTS),
    "hold_runs_full": program(burst(IDR, 140, marker=False, new=False), passes(300), key_frame(), passes(300)),
    "burst_with_gaps": program(key_frame(), burst(DELTA, 255, with_gaps=True), burst(DELTA, 255, with_gaps=True),
                               burst(DELTA, 100, with_gaps=True), passes(1000), options=ALL_FEEDBACK),
    "burst_around_the_ring": program(key_frame(), lose(DELTA), *[burst(DELTA, 255, takes_time=False) for _ in range(34)],
                                     passes(2500), options=NACK),
    "one_endless_frame": program(key_frame(), rtp(FU_DELTA, new=True),
                                 *[burst(FU_DELTA_MID, 255, marker=False, new=False) for _ in range(6)],
                                 rtp(FU_DELTA_END, marker=True), passes(2500), options=PLI | GIVES_UP),
    "frames_that_empty_each_other": program(
        key_frame(), *[rtp(FU_DELTA, new=True) + rtp(DELTA, step=0) + rtp(FU_DELTA_END, marker=True) for _ in range(8)],
        passes(2500), options=PLI),
    "rate_estimated": program(*[delta_frame() + passes(20) for _ in range(20)], key_frame(), passes(1200),
                              options=ESTIMATES | REPORTS | REMB | NACK),
    "sender_report_and_good_bye": program(key_frame(), sender_report(0x12345678), passes(1100), good_bye(), passes(1100),
                                          delta_frame(), sender_report(1, who=5), options=ALL_FEEDBACK),
    "native_frames": program(*[native(0, 3, i, new=i == 0, key=f == 0) for f in range(3) for i in range(3)], passes(100)),
    "native_h264_frames": program(*[native(0, 2, i, new=i == 0, key=f == 0, codec=1, size=1 + i) for f in range(3)
                                    for i in range(2)], passes(100)),
    "native_loss_given_up": program(native(0, 1, 0, new=True, key=True), native(0, 2, 0, new=True), native(1, 1, 0),
                                    passes(2100), native(2, 2, 0, key=True), native(2, 2, 1, key=True), passes(100)),
    "native_refused_at_the_door": program(
        native(0, 0, 0), native(0, 2, 2), native(0, 2, 0, fec=3), native(0, 255, 1279), native(0, 1, 0, raw=b""),
        native(0, 1, 0, raw=b"\x80\x60" + bytes(10)), native(0, 1, 0, raw=b"\xa0\x60" + bytes(10) + b"\x09")),
    "native_fec_behind_the_media": program(
        *[native(0, 4, i, new=i == 0, key=True, fec=2, method=2) for i in range(4)], native(1, 2, 1, method=1),
        native(1, 2, 0, method=3), passes(50)),
    "native_numbers_anew": program(native(0, 1, 0, frame_seq=50000, seq=9000, key=True), native(0, 1, 0, frame_seq=50001,
                                   seq=9001), native(0, 1, 0, frame_seq=7, seq=9002, key=True),
                                   native(0, 1, 0, frame_seq=8, seq=30000), native(0, 1, 0, frame_seq=9, seq=30001)),
    "native_streams_of_a_user": program(*[native(0, 1, 0, key=True, stream=s) for s in range(6)], passes(100)),
    "native_stray_packets_with_extensions": program(
        native(0, 1, 0, key=True, words=3), native(1, 1, 0, key=True, seq=20000, words=5),
        native(1, 1, 0, key=True, seq=40000, words=1), native(1, 1, 0, words=15), native(2, 1, 0, seq=20000, words=5),
        native(3, 1, 0, key=True, seq=20001, words=2), native(4, 1, 0, seq=50000, words=2, retrans=True), options=ESTIMATES),
    "native_extension_and_no_memory": program(
        native(0, 1, 0, key=True), REFUSE_ALL, native(1, 1, 0, seq=20000, words=5), MEMORY_IS_BACK, REFUSE_NTH(3),
        native(1, 1, 0, seq=20000, words=5), native(1, 1, 0, words=5), MEMORY_IS_BACK, native(1, 1, 0, words=5)),
    "native_padding_with_and_without_the_bit": program(
        *[native(f, 2, i, key=True, codec=codec, padding=i * 4, zeros=zeros, has_bit=has_bit)
          for f, (codec, zeros, has_bit) in enumerate((c, z, b) for c in (0, 1) for z in (False, True) for b in (False, True))
          for i in range(2)], passes(50), options=ESTIMATES),
    "padding_behind_payloads": program(
        key_frame(), rtp(DELTA, new=True, marker=True, padding=20), rtp(FU_DELTA, new=True, padding=1),
        rtp(FU_DELTA_END, marker=True, padding=64), rtp(FILLER, size=60), lose(DELTA), passes(50),
        retransmission(2, DELTA, marker=True, padding=30), delta_frame(), passes(100), options=0xFF),
    "clock_jumps": program(key_frame(), delta_frame(), clock(ahead=100000), delta_frame(), passes(100), lose(DELTA),
                           clock(reset=7), delta_frame(), passes(3000), key_frame(), clock(ahead=0xFFFFFFFF), delta_frame(),
                           passes(300), clock(reset=0), key_frame(), delta_frame(), passes(100), options=0xFF),
    "held_since_the_delivery_before": program(
        key_frame(), rtp(SPS, step=1, new=True), rtp(PPS), rtp(IDR, marker=True), passes(300), delta_frame(), passes(100)),
    "both_paths_in_one_stream": program(key_frame(), native(0, 1, 0, key=True), native(0, 1, 0, who=1, key=True),
                                        key_frame(1), passes(100)),
    "memory_runs_out": program(*[REFUSE_NTH(nth) + key_frame() + delta_frame() for nth in range(1, 9)], REFUSE_ALL,
                               key_frame(), lose(DELTA), passes(2100), native(0, 1, 0, who=1, key=True), MEMORY_IS_BACK,
                               key_frame(), delta_frame(), passes(200), options=ALL_FEEDBACK),
    "no_memory_for_a_channel": program(key_frame(), REFUSE_ALL, bytes([RENEW_CHANNEL]), key_frame(), key_frame()),
    "channel_renewed": program(key_frame(), native(0, 1, 0, who=1, key=True), bytes([RENEW_CHANNEL]), key_frame(),
                               passes(50), bytes([RENEW_CHANNEL])),
    "application_calls_back_in": program(bytes([CHANGE_CALLBACK]), key_frame(), delta_frame(), lose(DELTA), passes(100),
                                         native(0, 1, 0, who=1, key=True), options=ALL_FEEDBACK),
    "rtcp_malformed": program(key_frame(), raw_rtcp(b""), raw_rtcp(b"\x80\xc8\0\x06"), raw_rtcp(b"\x81\xcb\0\x01" + bytes(4)),
                              raw_rtcp(b"\x80\xc9\0\x01" + bytes(4) + b"\x8f\xce\0\x04" + bytes(8) + b"REMB" + b"\x01\0\0\x01"
                                       + bytes(4))),
}


def seeds(data: pathlib.Path):
    found = dict(SYNTHETIC)
    for name, text in DESCRIPTIONS.items():
        found["described_" + name] = program(describe(text), key_frame(), rtp(AP, new=True, marker=True), lose(DELTA),
                                             passes(50), retransmission(1, DELTA), passes(100), options=ALL_FEEDBACK)
    for capture in sorted(data.glob("*.pcap")):
        packets = [raw_rtp(packet) for packet in datagrams(capture, 12)]
        is_h265 = capture.stem.startswith("h265")
        found["capture_" + capture.stem] = program(set_up(0, 96, 3 if is_h265 else 2), *packets, passes(300))
    return found
