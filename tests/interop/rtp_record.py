"""RTP packets of one stream: as records in a file, and as FFmpeg pushes them over a connection that loses nothing."""
import socket
import struct
import threading

ACCEPT_LIMIT_S = 20
RTP_HEADER_MIN, MARKER = 12, 0x80
FRAME_MS = 33  # between two access units in a recording, whatever their timestamps say
RTPDUMP_HEADER = b"#!rtpplay1.0 127.0.0.1/5004\n" + bytes(16)
RTPDUMP_RECORD = struct.Struct(">HHI")  # length with this header, length of the packet, milliseconds
CHANNEL_RTP, INTERLEAVED = 0, b"$"


def has_marker(packet):
    return packet[1] & MARKER != 0


def timestamp(packet):
    return int.from_bytes(packet[4:8], "big")


def write_rtpdump(path, packets):
    """Packets of an access unit come at the same time; the marker tells where it ends."""
    time_ms = 0
    with path.open("wb") as file:
        file.write(RTPDUMP_HEADER)
        for packet in packets:
            file.write(RTPDUMP_RECORD.pack(RTPDUMP_RECORD.size + len(packet), len(packet), time_ms) + packet)
            time_ms += FRAME_MS if has_marker(packet) else 0


def length_prefixed(data):
    """The parts of a file, each behind its length in four bytes."""
    offset = 0
    while offset < len(data):
        begin = offset + 4
        offset = begin + int.from_bytes(data[offset:begin], "big")
        yield data[begin:offset]


class RtspRecorder:
    """Takes one stream that a client records to it, RTP interleaved with RTSP (RFC 2326, 10.12), on a thread of its own.
    Behind the `with` block `packets` and `description` are there."""

    def __init__(self):
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.listener.settimeout(ACCEPT_LIMIT_S)
        self.url = f"rtsp://127.0.0.1:{self.listener.getsockname()[1]}/film"
        self.packets, self.description = [], ""
        self.thread = threading.Thread(target=self.serve, daemon=True)

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.listener.close()
        self.thread.join()

    def serve(self):
        try:
            connection, _ = self.listener.accept()
        except OSError:  # nobody came
            return
        with connection, connection.makefile("rb") as stream:
            while first := stream.read(1):
                if first == INTERLEAVED:
                    self.take_packet(stream)
                elif answer := self.answer(stream):
                    connection.sendall(answer)

    def take_packet(self, stream):
        channel, size = struct.unpack(">BH", stream.read(3))
        packet = stream.read(size)
        if channel == CHANNEL_RTP and len(packet) >= RTP_HEADER_MIN:
            self.packets.append(packet)

    def answer(self, stream):
        """Reads a request behind its first byte. Everything that is asked for is granted; the last one, TEARDOWN, wants no
        answer, as the client is gone."""
        method = stream.readline().split()[0]
        lines = iter(lambda: stream.readline().decode().strip(), "")
        fields = {name.lower(): value.strip() for name, value in (line.split(":", 1) for line in lines)}
        body = stream.read(int(fields.get("content-length", 0))).decode()
        self.description = body or self.description
        if method == b"EARDOWN":
            return b""
        answer = ["RTSP/1.0 200 OK", f"CSeq: {fields['cseq']}", "Session: 1"]
        answer += [f"Transport: {fields['transport']}"] if "transport" in fields else []
        return ("\r\n".join(answer) + "\r\n\r\n").encode()
