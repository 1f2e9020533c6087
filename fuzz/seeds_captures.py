"""What the recorded captures of the tests begin with."""

import itertools
import pathlib
import sys

sys.path.append(str(pathlib.Path(__file__).resolve().parent.parent / "tests" / "data"))
import classic_pcap

FILE_HEADER = classic_pcap.FILE_HEADER_SIZE


def datagrams(path: pathlib.Path, count: int):
    """The payloads of the first UDP datagrams."""
    return list(itertools.islice(classic_pcap.udp_payloads(classic_pcap.capture_read(str(path))), count))


def file_start(path: pathlib.Path, count: int):
    """The file up to the first packets."""
    content = path.read_bytes()
    capture = classic_pcap.capture_parse(content, str(path))
    records = capture.records[:count]
    return content[:FILE_HEADER + sum(classic_pcap.RECORD_HEADER_SIZE + len(record.data) for record in records)]
