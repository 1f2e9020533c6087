"""Programs that make RTP packets of films, and what they sent."""
import dataclasses
import json
import pathlib
import subprocess

import bitstream
import films
from gst_call import description
from rtp_record import RtspRecorder, length_prefixed

GST_PACKETS = pathlib.Path(__file__).resolve().parent / "gst_packets"
GST_LIMIT_S = 90
PORT = 5004  # as descriptions have it; nothing is sent there


@dataclasses.dataclass
class Transmission:
    """What was sent: packets, the access units in them as lists of NAL units, and their session description."""

    codec: str
    packets: list
    units: list
    sdp: str
    described: list = dataclasses.field(default_factory=list)  # parameter sets that the description has

    def unit_count(self):
        return sum(map(len, self.units))


@dataclasses.dataclass(frozen=True)
class Ffmpeg:
    """`mode` is the packetization mode of H.264."""

    mtu: int = 1400
    mode: int = 1

    def name(self):
        return "FFmpeg" if self.mode else "FFmpeg, mode 0"

    def send(self, settings, directory):
        """Lets FFmpeg encode as well."""
        with RtspRecorder() as recorder:
            url = recorder.url.replace(":", "\\:")
            flags = "" if self.mode else ":rtpflags=h264_mode0"
            film = settings.make(directory, f"[f=rtsp:rtsp_transport=tcp:pkt_size={self.mtu}{flags}]{url}")
        sdp = recorder.description.replace("m=video 0 ", f"m=video {PORT} ")
        return Transmission(settings.codec, recorder.packets, film.units, sdp, films.described_by(sdp))


@dataclasses.dataclass(frozen=True)
class Gstreamer:
    """`interval` is that of parameter sets: 0 leaves them as they are, -1 sends them with each key frame."""

    mtu: int = 1400
    aggregate: str = "zero-latency"
    interval: int = 0

    def name(self):
        return f"GStreamer, {self.aggregate}{', sets with key frames' if self.interval else ''}"

    def send(self, film, directory):
        listing, raw = directory / "film.jsonl", directory / "film.bytes"
        data = [bitstream.joined(nals) for nals in film.units]
        raw.write_bytes(b"".join(data))
        listing.write_text("".join(json.dumps({"size": len(unit), "time": time}) + "\n"
                                   for unit, time in zip(data, film.times)))
        return self.run(film.codec, directory, "--film", listing, "--raw", raw)

    def encode(self, codec, source, pictures, directory):
        """Lets GStreamer encode as well; `source` are the elements up to the encoder."""
        return self.run(codec, directory, "--source", source, "--pictures", str(pictures))

    def run(self, codec, directory, *source):
        packets, sent = directory / "packets", directory / "sent"
        aggregate = "max" if (codec, self.aggregate) == ("h265", "max-stap") else self.aggregate
        command = [GST_PACKETS, "--codec", codec, "--mtu", str(self.mtu), "--aggregate-mode", aggregate,
                   "--config-interval", str(self.interval), "--packets", packets, "--sent", sent, *source]
        result = subprocess.run(command, stderr=subprocess.PIPE, timeout=GST_LIMIT_S, check=False)
        if result.returncode != 0:
            raise SystemExit(f"GStreamer fails: {result.stderr.decode()}")
        units = [bitstream.nal_units(unit) for unit in length_prefixed(sent.read_bytes())]
        return Transmission(codec, list(length_prefixed(packets.read_bytes())), units,
                            description(codec, PORT, False))
