"""Calls from gst_sender to `vrc listen` over a lossy path."""
import contextlib
import json
import pathlib
import subprocess
import time

import comparison
from lossy_path import LOOPBACK, LossyPath, free_port_pair
from receiver import Receiver

SENDER = pathlib.Path(__file__).resolve().parent / "gst_sender"
SENDER_LIMIT_S = 60
SSRC, RTX_SSRC = 0x11223344, 0x55667788
TYPE, RTX_TYPE = 96, 97


def description(codec, port, retransmits):
    """What such a sender offers, and the feedback that it understands."""
    lines = ["v=0", f"o=- 1 1 IN IP4 {LOOPBACK}", "s=call", f"c=IN IP4 {LOOPBACK}", "t=0 0"]
    lines.append(f"m=video {port} RTP/AVPF {TYPE}" + (f" {RTX_TYPE}" if retransmits else ""))
    lines += [f"a=rtpmap:{TYPE} {codec.upper()}/90000", f"a=rtcp-fb:{TYPE} nack pli"]
    if codec == "h264":
        lines.append(f"a=fmtp:{TYPE} packetization-mode=1")
    if retransmits:
        lines += [f"a=rtcp-fb:{TYPE} nack", "a=rtcp-rsize", f"a=rtpmap:{RTX_TYPE} rtx/90000",
                  f"a=fmtp:{RTX_TYPE} apt={TYPE}"]
    return "\r\n".join(lines) + "\r\n"


class GstCall:
    """A path with a receiver behind it, and the senders that send there one after the other."""

    def __init__(self, vrc, codec, damage, directory, retransmits=True, vrc_arguments=()):
        self.codec, self.directory, self.retransmits = codec, directory, retransmits
        self.feedback_port, self.logs = free_port_pair(), []
        port = free_port_pair()
        self.path = LossyPath(damage, port, self.feedback_port)
        (directory / "call.sdp").write_text(description(codec, port, retransmits))
        reports_to = f"{LOOPBACK}:{self.path.port('rtcp_out')}"
        self.receiver = Receiver(vrc, port, ["--sdp", directory / "call.sdp", "--rtcp", reports_to, *vrc_arguments],
                                 directory)

    def start_sender(self, **options):
        """Starts a sender; `options` are those of gst_sender."""
        log = self.directory / f"sent-{len(self.logs)}.jsonl"
        self.logs.append(log)
        given = {"codec": self.codec, "rtp-port": self.path.port("rtp_in"), "rtcp-port": self.path.port("rtcp_in"),
                 "feedback-port": self.feedback_port, "log": log, "ssrc": SSRC,
                 "rtx-ssrc": RTX_SSRC if self.retransmits else 0}
        given.update({name.replace("_", "-"): value for name, value in options.items()})
        command = [SENDER] + [str(part) for name, value in given.items() for part in (f"--{name}", value)]
        return subprocess.Popen(command, stdout=subprocess.PIPE)

    @contextlib.contextmanager
    def sender(self, **options):
        """A sender that is gone behind the `with` block, whatever happens in it."""
        process = self.start_sender(**options)
        try:
            yield process
        finally:
            process.kill()
            process.communicate()

    def run(self, **options):
        """A call with one sender from beginning to end: its outcome, and what the sender counted."""
        with self.path, self.receiver:
            counts = self.send(**options)
        return self.outcome(), counts

    def send(self, **options):
        """Lets a sender send all its pictures. Returns what it counted."""
        with self.sender(**options) as process:
            return finish(process)

    def wait_for_frames(self, count):
        """Until the latest sender has sent so many."""
        end = time.monotonic() + SENDER_LIMIT_S
        while not self.logs[-1].exists() or len(comparison.sent_frames(self.logs[-1])) < count:
            if time.monotonic() > end:
                raise SystemExit(f"the sender sends no {count} frames")
            time.sleep(0.05)

    def outcome(self):
        sent = [frame for log in self.logs for frame in comparison.sent_frames(log)]
        return comparison.compare(sent, self.receiver, self.codec)


def finish(process):
    """What a sender counted, once it is through."""
    output, _ = process.communicate(timeout=SENDER_LIMIT_S)
    if process.returncode != 0:
        raise SystemExit(f"the sender exits with {process.returncode}")
    return json.loads(output)
