"""Reading and writing of classic capture files (not pcapng), and the way to the UDP payload of a record."""

import struct
import sys
from typing import Iterator, NamedTuple, Optional

MAGICS = {  # the first four bytes: byte order and fractions of a second
    b"\xd4\xc3\xb2\xa1": ("<", 10**6),
    b"\xa1\xb2\xc3\xd4": (">", 10**6),
    b"\x4d\x3c\xb2\xa1": ("<", 10**9),
    b"\xa1\xb2\x3c\x4d": (">", 10**9),
}
FILE_HEADER_SIZE = 24
RECORD_HEADER_SIZE = 16
ETHERTYPE_IPV4, ETHERTYPE_IPV6, ETHERTYPES_VLAN = 0x0800, 0x86DD, (0x8100, 0x88A8)
PROTOCOL_UDP = 17
UDP_HEADER_SIZE = 8


class Record(NamedTuple):
    time: int  # in units of 1 / Capture.fractions seconds
    data: bytes
    original_size: int


class Capture(NamedTuple):
    header: bytes
    order: str
    fractions: int
    link_type: int
    records: list
    whole: bool  # the file ended with a record's end


def capture_parse(content: bytes, name: str) -> Capture:
    if len(content) < FILE_HEADER_SIZE or content[:4] not in MAGICS:
        sys.exit(f"{name}: not a classic pcap file")
    order, fractions = MAGICS[content[:4]]
    link_type = struct.unpack_from(order + "I", content, 20)[0] & 0x0FFFFFFF
    records, at = [], FILE_HEADER_SIZE
    while at + RECORD_HEADER_SIZE <= len(content):
        seconds, fraction, size, original_size = struct.unpack_from(order + "4I", content, at)
        start = at + RECORD_HEADER_SIZE
        if start + size > len(content):
            break
        records.append(Record(seconds * fractions + fraction, content[start : start + size], original_size))
        at = start + size
    return Capture(content[:FILE_HEADER_SIZE], order, fractions, link_type, records, at == len(content))


def capture_read(path: str) -> Capture:
    try:
        with open(path, "rb") as file:
            return capture_parse(file.read(), path)
    except OSError as error:
        sys.exit(str(error))


def capture_format(capture: Capture, records: list) -> bytes:
    parts = [capture.header]
    for record in records:
        seconds, fraction = divmod(record.time, capture.fractions)
        parts.append(struct.pack(capture.order + "4I", seconds, fraction, len(record.data), record.original_size))
        parts.append(record.data)
    return b"".join(parts)


def network_offset(link_type: int, data: bytes) -> Optional[int]:
    """Where the IP header begins, or None when the record does not carry IP."""
    if link_type == 1:  # Ethernet
        at = 12
        while len(data) >= at + 2 and struct.unpack_from(">H", data, at)[0] in ETHERTYPES_VLAN:
            at += 4
        ethertype = struct.unpack_from(">H", data, at)[0] if len(data) >= at + 2 else 0
        return at + 2 if ethertype in (ETHERTYPE_IPV4, ETHERTYPE_IPV6) else None
    fixed = {0: 4, 108: 4, 101: 0, 12: 0, 228: 0, 229: 0, 113: 16, 276: 20}  # loopback, raw IP, Linux cooked
    return fixed.get(link_type)


def udp_payload_offset(link_type: int, data: bytes) -> Optional[int]:
    """Where the UDP payload begins, or None when there is none (other protocols, later fragments)."""
    at = network_offset(link_type, data)
    if at is None or at >= len(data):
        return None
    version = data[at] >> 4
    if version == 4 and len(data) >= at + 20:
        if data[at + 9] != PROTOCOL_UDP or struct.unpack_from(">H", data, at + 6)[0] & 0x3FFF:
            return None
        at += 4 * (data[at] & 15)
    elif version == 6 and len(data) >= at + 40:
        if data[at + 6] != PROTOCOL_UDP:
            return None
        at += 40
    else:
        return None
    return at + UDP_HEADER_SIZE if len(data) >= at + UDP_HEADER_SIZE else None


def udp_payloads(capture: Capture) -> Iterator[bytes]:
    """The UDP payloads in order of arrival, cut to the length that the UDP header states."""
    for record in capture.records:
        start = udp_payload_offset(capture.link_type, record.data)
        if start is None:
            continue
        length = struct.unpack_from(">H", record.data, start - 4)[0] - UDP_HEADER_SIZE
        if 0 <= length <= len(record.data) - start:
            yield record.data[start : start + length]
