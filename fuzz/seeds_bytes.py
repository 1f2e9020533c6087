"""Seeds of the targets whose inputs are packets, text or files as they are."""

import pathlib
import struct

from seeds_captures import datagrams, file_start
from seeds_text import DESCRIPTIONS


def size_of(payload):
    return bytes([len(payload)]) if len(payload) < 254 else struct.pack(">BH", 254, len(payload))


def packets(*payloads, ends=False):
    """Sizes in front, from 254 on in two bytes behind that number; 255 ends a frame."""
    return b"".join(size_of(payload) + payload for payload in payloads) + (b"\xff" if ends else b"")


def aggregate(header, *units):
    return header + b"".join(struct.pack(">H", len(unit)) + unit for unit in units)


def slices(header, count, size):
    return [header + bytes(1 + (i + k) % 250 for k in range(size - len(header))) for i in range(count)]


H264_FRAGMENTS = [b"\x7c\x85" + b"a" * 9, b"\x7c\x05" + b"b" * 9, b"\x7c\x45" + b"c" * 3]
H265_FRAGMENTS = [b"\x62\x01\x93" + b"a" * 9, b"\x62\x01\x13" + b"b" * 9, b"\x62\x01\x53" + b"c" * 3]

DEPACKETIZER_H264 = {
    "single_units": packets(b"\x67\x42\xc0\x1e", b"\x68\xce\x3c\x80", b"\x65\x88\x84", ends=True),
    "aggregate": packets(b"\x78\0\x04\x67\x42\xc0\x1e\0\x02\x68\xce\0\x01\x65"),
    "aggregate_cut_short": packets(b"\x78\0\x02\x67\x42\0\x09\x68\xce"),
    "aggregate_of_many_tiny_units": packets(b"\x78" + b"\0\x01\x41" * 40),
    "fragments": packets(*H264_FRAGMENTS),
    "fragments_without_start": packets(*H264_FRAGMENTS[1:]),
    "fragments_interrupted": packets(H264_FRAGMENTS[0], b"\x41\x9a", *H264_FRAGMENTS[1:], b"\x41\x9b"),
    "fragments_go_on_in_the_next_frame": packets(*H264_FRAGMENTS[:2], ends=True) + packets(*H264_FRAGMENTS[1:]),
    "fragment_start_and_end_at_once": packets(b"\x7c\xc5" + b"a" * 4),
    "fragment_start_and_end_at_once_between_units": packets(b"\x41\x9a", b"\x7c\xc1" + b"a" * 4, b"\x41\x9b"),
    "aggregates_around_the_room_of_a_packet": b"".join(
        packets(aggregate(b"\x78", *slices(b"\x41", count, 2)), ends=True) for count in (15, 16, 17, 18, 60)),
    "aggregate_of_the_largest_packet": packets(aggregate(b"\x78", *slices(b"\x41", 480, 1)), b"\x41\x9a"),
    "aggregates_of_a_frame": packets(*(aggregate(b"\x78", *slices(b"\x41", 60, 5)) for _ in range(3))),
    "aggregate_with_a_byte_left": packets(b"\x78" + b"\0\x01\x41" * 20 + b"\0"),
    "aggregate_in_an_aggregate": packets(aggregate(b"\x78", b"\x41\x9a", aggregate(b"\x78", b"\x41\x9a"))),
    "fragment_in_an_aggregate": packets(aggregate(b"\x78", b"\x41\x9a", H264_FRAGMENTS[0])),
    "fragment_of_an_aggregate": packets(b"\x7c\x98\0\x01\x41", b"\x7c\x58\0\x01\x41"),
    "fragment_without_its_end": packets(*H264_FRAGMENTS[:2], b"\x41\x9a"),
    "fragments_of_two_types": packets(H264_FRAGMENTS[0], b"\x7c\x41" + b"c" * 3),
    "interleaved": packets(b"\x79\0\0\0\x02\x65\x88", b"\x7a\0\0\0\x04\0\0\0\x65", b"\x7b\0\0\0\x05\0\0\0\0\x65",
                           b"\x7d\x85\0\0a"),
    "empty_and_reserved": packets(b"", b"\x00", b"\x7e\x01", b"\x7c", b"\x78", b"\x1a\x00\x00"),
}
DEPACKETIZER_H265 = {
    "single_units": packets(b"\x40\x01\x0c", b"\x42\x01\x01", b"\x44\x01\xc0", b"\x26\x01\xaf", ends=True),
    "aggregate": packets(b"\x60\x01\0\x03\x42\x01\x01\0\x03\x26\x01\xaf"),
    "aggregate_cut_short": packets(b"\x60\x01\0\x03\x42\x01\x01\0\x09\x26\x01"),
    "aggregate_of_many_tiny_units": packets(b"\x60\x01" + b"\0\x02\x02\x01" * 40),
    "fragments": packets(*H265_FRAGMENTS),
    "fragments_without_start": packets(*H265_FRAGMENTS[1:]),
    "fragments_interrupted": packets(H265_FRAGMENTS[0], b"\x02\x01\xd0", *H265_FRAGMENTS[1:]),
    "fragments_go_on_in_the_next_frame": packets(*H265_FRAGMENTS[:2], ends=True) + packets(*H265_FRAGMENTS[1:]),
    "fragment_start_and_end_at_once": packets(b"\x02\x01\xd0", b"\x62\x01\xc1" + b"a" * 4, b"\x02\x01\x50"),
    "aggregates_around_the_room_of_a_packet": b"".join(
        packets(aggregate(b"\x60\x01", *slices(b"\x02\x01", count, 3)), ends=True) for count in (16, 17, 18, 19, 60)),
    "aggregate_of_the_largest_packet": packets(aggregate(b"\x60\x01", *slices(b"\x02\x01", 360, 2)), b"\x02\x01\xd0"),
    "aggregate_with_a_byte_left": packets(b"\x60\x01" + b"\0\x02\x02\x01" * 20 + b"\0"),
    "aggregate_with_half_a_header": packets(b"\x60\x01\0\x02\x02\x01\0\x01\x02"),
    "aggregate_in_an_aggregate": packets(aggregate(b"\x60\x01", aggregate(b"\x60\x01", b"\x02\x01\xd0"))),
    "fragment_in_an_aggregate": packets(aggregate(b"\x60\x01", b"\x02\x01\xd0", H265_FRAGMENTS[0])),
    "fragment_without_its_end": packets(*H265_FRAGMENTS[:2], b"\x02\x01\xd0"),
    "fragments_of_two_types": packets(H265_FRAGMENTS[0], b"\x62\x01\x41" + b"c" * 3),
    "content_information": packets(b"\x64\x01\x26\x10\xab\0\0\xaf"),
    "empty_and_reserved": packets(b"", b"\x62", b"\x62\x01", b"\x60", b"\x64\x01\x00", b"\x02"),
}


def frame(codec, version, reserved, *payloads):
    return bytes([codec, version]) + struct.pack(">H", reserved) + bytes([len(payloads) - 1]) + packets(*payloads)


RTP = b"\x80\x60\0\x01\0\0\0\x02\x11\x22\x33\x44"
WRAPPED = b"\x80\x74\0\x01\0\0\0\x02\x11\x22\x33\x44"
PAYLOAD_ASSEMBLY = {
    "h264": frame(2, 10, 0, RTP + b"\x67\x42", RTP + b"\x65\x88"),
    "h265": frame(3, 10, 0, RTP + b"\x26\x01\xaf"),
    "generic": frame(6, 10, 0, RTP + b"\0abc", RTP + b"\0def\x02\x02"),
    "generic_padding_longer_than_the_payload": frame(6, 10, 0, RTP + b"\0\x09"),
    "generic_padding_that_differs": frame(6, 10, 0, RTP + b"\0ab\x01\x02"),
    "generic_by_its_version": frame(2, 9, 0, RTP + b"\0abc"),
    "last_packet_empty": frame(6, 10, 0, RTP + b"\0abc", RTP + b"\0"),
    "encapsulation_by_its_first_byte": frame(2, 10, 1 << 3, WRAPPED + b"\x7f\x01ab", WRAPPED + b"\x6bab", WRAPPED + b"ab"),
    "fec_packets": frame(6, 10, 2 << 3 | 1 << 8, RTP + b"\0abc", RTP + b"\0\0fec"),
    "more_fec_than_packets": frame(6, 10, 2 << 3 | 200 << 8, RTP + b"\0abc", RTP + b"\0\0fec"),
    "unknown_method": frame(2, 10, 5 << 3, RTP + b"\x65"),
    "sources_and_extension": frame(2, 10, 0, b"\x92\x60" + RTP[2:] + b"ABCDEFGH" + b"\xbe\xde\0\x01abcd" + b"\x65\x88"),
    "header_beyond_the_packet": frame(2, 10, 0, b"\x9f\x60" + RTP[2:] + b"ABC"),
    "extension_of_256_words": frame(2, 10, 0, b"\x90\x60" + RTP[2:] + b"\xbe\xde\x01\x00" + b"x" * 200),
    "h264_aggregate_of_many_units": frame(2, 10, 0, RTP + aggregate(b"\x78", *slices(b"\x41", 200, 3)) + bytes(400)),
    "h264_aggregate_without_room": frame(2, 10, 0, RTP + aggregate(b"\x78", *slices(b"\x41", 40, 3))),
    "h264_fragments": frame(2, 10, 0, *(RTP + fragment for fragment in H264_FRAGMENTS), RTP + b"\x7c\xc1abc"),
    "h264_fragment_without_its_end": frame(2, 10, 0, RTP + H264_FRAGMENTS[0], RTP + b"\x41\x9a"),
    "h265_aggregate_of_many_units": frame(3, 10, 0, RTP + aggregate(b"\x60\x01", *slices(b"\x02\x01", 200, 3)) + bytes(400)),
    "h265_fragments": frame(3, 10, 0, *(RTP + fragment for fragment in H265_FRAGMENTS)),
    "packets_missing": frame(2, 10, 0, RTP + b"\x67\x42", b"", RTP + b"\x65\x88", b""),
}


def rtcp(kind, count, body, padding=False):
    return struct.pack(">BBH", 0x80 | padding << 5 | count, kind, len(body) // 4) + body


SSRC, MEDIA = b"\x11\x22\x33\x44", b"\x55\x66\x77\x88"
BLOCK = MEDIA + b"\x10\xff\xff\xfe\0\x01\x03\xe8\0\0\0\x2a\x12\x34\x56\x78\0\0\x10\0"
SENDER_REPORT = rtcp(200, 1, SSRC + bytes(20) + BLOCK)
RECEIVER_REPORT = rtcp(201, 2, SSRC + BLOCK * 2)
SDES = rtcp(202, 1, SSRC + b"\x01\x04name\0\0")
RTCP_DATAGRAMS = {
    "sender_report": SENDER_REPORT + SDES,
    "receiver_report": RECEIVER_REPORT + SDES,
    "good_bye_with_reason": rtcp(203, 2, SSRC + MEDIA + b"\x03bye"),
    "generic_nack": rtcp(205, 1, SSRC + MEDIA + b"\xff\xfe\xff\xff\0\x20\0\x01"),
    "picture_loss": rtcp(206, 1, SSRC + MEDIA),
    "full_intra_requests": rtcp(206, 4, SSRC + bytes(4) + (MEDIA + b"\x07\0\0\0") * 2),
    "estimated_bitrate": rtcp(206, 15, SSRC + bytes(4) + b"REMB\x02\x12\x34\x56" + SSRC + MEDIA),
    "estimated_bitrate_too_large": rtcp(206, 15, SSRC + bytes(4) + b"REMB\x01\xff\xff\xff" + SSRC),
    "padding_on_the_last": RECEIVER_REPORT + rtcp(203, 1, SSRC + b"\0\0\0\x04", padding=True),
    "padding_on_the_first": rtcp(201, 0, SSRC + b"\0\0\0\x04", padding=True) + SDES,
    "unknown_kind_between": RECEIVER_REPORT + rtcp(204, 0, SSRC + b"name") + rtcp(206, 1, SSRC + MEDIA),
    "more_blocks_than_there_are": rtcp(201, 31, SSRC + BLOCK),
    "text_longer_than_its_chunk": rtcp(202, 1, SSRC + b"\x01\xffname\0"),
    "length_beyond_the_datagram": b"\x80\xc9\0\x09" + SSRC,
    "no_multiple_of_four": RECEIVER_REPORT + b"\x80\xc9",
}


def pcapng(payload):
    def block(kind, body):
        body += bytes(-len(body) % 4)
        return struct.pack("<II", kind, len(body) + 12) + body + struct.pack("<I", len(body) + 12)

    packet = struct.pack("<IIIII", 0, 5, 1000, len(payload), len(payload)) + payload
    return (block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1)) + block(1, struct.pack("<HHI", 1, 0, 65535))
            + block(6, packet) + block(3, struct.pack("<I", len(payload)) + payload))


def rtpdump(*payloads):
    head = b"#!rtpplay1.0 192.0.2.1/5004\n" + struct.pack(">IIIHH", 1700000000, 0, 0xC0000202, 4000, 0)
    return head + b"".join(
        struct.pack(">HHI", len(payload) + 8, len(payload), 20 * i) + payload for i, payload in enumerate(payloads))


def ipv6(payload):
    length = len(payload) + 8
    return (bytes(12) + b"\x86\xdd\x60\0\0\0" + struct.pack(">HBB", length + 8, 0, 64) + bytes(15) + b"\x01" + bytes(15)
            + b"\x02" + b"\x11\0\x01\x04\0\0\0\0" + struct.pack(">HHHH", 4000, 5004, length, 0) + payload)


def vlan(packet):
    return packet[:12] + b"\x81\0\0\x05" + packet[12:]


def classic(link_type, *records, cut=0):
    out = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, link_type)
    for i, record in enumerate(records):
        out += struct.pack("<IIII", i, 0, len(record), len(record) + cut) + record
    return out


def capture_files(data):
    found = {"start_of_" + path.stem: file_start(path, 2) for path in sorted(data.glob("*.pcap"))}
    first = min(data.glob("h264_stap*.pcap"))
    ethernet = bytes(12) + b"\x08\0\x45\0" + struct.pack(">H", 28 + 14) + b"\0\0\0\0\x40\x11\0\0\xc0\0\x02\x01\xc0\0\x02\x02"
    ethernet += struct.pack(">HHHH", 4000, 5004, 22, 0) + RTP + b"\x65\x88"
    raw = datagrams(first, 4)
    found.update({
        "pcapng": pcapng(ethernet),
        "rtpdump": rtpdump(*(packet[:60] for packet in raw)),
        "rtpdump_cut_in_a_packet": rtpdump(raw[0][:60])[:-5],
        "rtpdump_of_ip6": rtpdump(raw[0][:60]).replace(b"192.0.2.1/", b"2001:db8::1/"),
        "ip6_with_options": classic(1, ipv6(RTP + b"\x65")),
        "vlan_tags": classic(1, vlan(vlan(ethernet))),
        "raw_ip": classic(101, ethernet[14:]),
        "linux_cooked": classic(113, bytes(14) + b"\x08\0" + ethernet[14:]),
        "linux_cooked_2": classic(276, b"\x08\0" + bytes(18) + ethernet[14:]),
        "bsd_loopback": classic(0, b"\x02\0\0\0" + ethernet[14:]),
        "cut_by_the_snap_length": classic(1, ethernet[:40], cut=20),
        "fragments": classic(1, ethernet[:20] + b"\x20\0" + ethernet[22:]),
        "link_type_unknown": classic(147, ethernet),
        "time_goes_back": classic(1, ethernet) + classic(1, ethernet, ethernet)[24:],
        "compressed": b"\x1f\x8b\x08\0",
        "empty": b"",
    })
    return found


def seeds(data: pathlib.Path):
    return {
        "depacketizer_h264": DEPACKETIZER_H264,
        "depacketizer_h265": DEPACKETIZER_H265,
        "payload_assembly": PAYLOAD_ASSEMBLY,
        "session_description": DESCRIPTIONS,
        "rtcp_datagrams": RTCP_DATAGRAMS,
        "capture_files": capture_files(data),
    }
