"""FFmpeg as sender: it sends a file whose access units are known, as fast as they were filmed."""
import base64
import hashlib
import os
import subprocess

import bitstream
import comparison
from lossy_path import LOOPBACK, free_port_pair
from receiver import Receiver

LIMIT_S = 60
SLICE_HEIGHT = 16  # a row of macroblocks, the least that a slice has
# Parameter sets stand in the file's header alone, and so in the session description alone.
ENCODERS = {
    "h264": "-c:v libx264 -tune zerolatency -x264-params scenecut=0:sliced-threads=0:slices={slices}",
    "h265": "-c:v libx265 -preset ultrafast -tune zerolatency -tag:v hvc1"
            " -x265-params log-level=error:info=0:pools=1:ctu=16:slices={slices}",
}
RAW_FORMATS = {"h264": "h264", "h265": "hevc"}


def ffmpeg(*arguments):
    command = ["ffmpeg", "-nostdin", "-v", "error", "-y", *arguments]
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=LIMIT_S, check=False)
    if result.returncode != 0:
        raise SystemExit(f"FFmpeg fails: {result.stderr.decode()}")
    return result


class FfmpegCall:
    def __init__(self, vrc, codec, directory, pictures, bitrate, slices=1, suite=None,
                 has_described_key=True):
        self.codec, self.directory, self.film = codec, directory, directory / "film.mp4"
        height = max(240, slices * SLICE_HEIGHT)
        ffmpeg("-f", "lavfi", "-i", f"testsrc2=size=320x{height}:rate=30", "-frames:v", str(pictures),
               *ENCODERS[codec].format(slices=slices).split(), "-g", "30", "-bf", "0", "-b:v", f"{bitrate}k",
               "-pix_fmt", "yuv420p", self.film)
        port, sdp, key = free_port_pair(), directory / "call.sdp", base64.b64encode(os.urandom(30)).decode()
        secret = ["-srtp_out_suite", suite, "-srtp_out_params", key] if suite else []
        self.output = [*secret, "-f", "rtp", f"{'srtp' if suite else 'rtp'}://{LOOPBACK}:{port}"]
        # The first frame alone, to nobody: FFmpeg writes the description when it begins to send.
        ffmpeg("-i", self.film, "-c", "copy", "-frames:v", "1", "-sdp_file", sdp, *self.output)
        arguments = ["--sdp", sdp]
        if suite and not has_described_key:
            sdp.write_text("".join(line for line in sdp.open() if not line.startswith("a=crypto")))
            arguments += ["--srtp", f"{suite}:{key}"]
        self.receiver = Receiver(vrc, port, arguments, directory)

    def send(self):
        ffmpeg("-re", "-i", self.film, "-c", "copy", *self.output)

    def sent_frames(self):
        """The film's access units, without the parameter sets that FFmpeg puts there where it copies them."""
        raw = self.directory / "film.raw"
        ffmpeg("-i", self.film, "-c", "copy", "-f", RAW_FORMATS[self.codec], raw)
        for nals in bitstream.access_units(self.codec, raw.read_bytes()):
            bare = [nal for nal in nals if bitstream.nal_type(self.codec, nal)
                    not in bitstream.PARAMETER_SETS[self.codec]]
            digest = hashlib.sha256(bitstream.joined(bare)).hexdigest()
            yield comparison.Sent(0, bitstream.is_key(self.codec, nals), digest)

    def outcome(self):
        return comparison.compare(list(self.sent_frames()), self.receiver, self.codec)

    def complaints(self):
        """What FFmpeg says when it decodes what came out."""
        output = self.directory / "out.raw"
        output.write_bytes(self.receiver.data)
        return ffmpeg("-i", output, "-f", "null", "-").stderr.decode()
