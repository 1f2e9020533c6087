"""What a receiver gave out, held against what the sender says that it sent."""
import bisect
import dataclasses
import hashlib
import json

import bitstream


@dataclasses.dataclass
class Sent:
    """A frame as it entered the payloader."""

    time: float
    is_key: bool
    sha256: str


@dataclasses.dataclass
class Outcome:
    sent: int = 0
    whole: int = 0           # came out as they were sent
    faults: list = dataclasses.field(default_factory=list)  # in words
    longest_gap: float = 0   # seconds between two frames that came out
    delays: list = dataclasses.field(default_factory=list)  # seconds, ascending
    missing: list = dataclasses.field(default_factory=list)  # numbers of the frames that did not come out

    def delay(self, share):
        return self.delays[int(share * (len(self.delays) - 1))] if self.delays else 0

    def text(self):
        return (f"{self.whole} of {self.sent} frames, longest gap {self.longest_gap * 1000:.0f} ms, "
                f"delay {self.delay(0.5) * 1000:.0f} and {self.delay(0.95) * 1000:.0f} ms")


def sent_frames(path):
    """The list that gst_sender wrote. It may have been stopped within a line."""
    lines = path.read_text().split("\n")[:-1]
    return [Sent(line["time"], line["key"], line["sha256"]) for line in map(json.loads, lines)]


def sha256(data):
    return hashlib.sha256(data).hexdigest()


def find(sent, codec, nals, start):
    """The number of the frame, from `start` on. A key frame may have got parameter sets that it was sent without."""
    names = {sha256(bitstream.joined(nals))}
    if bitstream.is_key(codec, nals):
        names.add(sha256(bitstream.joined(bitstream.without_parameter_sets(codec, nals))))
    return next((i for i in range(start, len(sent)) if sent[i].sha256 in names), None)


def compare(sent, receiver, codec):
    """Every frame that came out has to be one that was sent, in its order, and to follow the one it builds on."""
    outcome, place, offset, last_time = Outcome(sent=len(sent)), -1, 0, None
    sizes = [size for size, _ in receiver.arrivals]
    for number, nals in enumerate(bitstream.access_units(codec, receiver.data)):
        data = bitstream.joined(nals)
        if receiver.data[offset:offset + len(data)] != data:
            outcome.faults.append(f"frame {number} that came out is not written with start codes of four bytes")
            break
        offset += len(data)
        found = find(sent, codec, nals, place + 1)
        if found is None:
            outcome.faults.append(f"frame {number} that came out was not sent so, or came out of order")
            continue
        if found != place + 1 and not sent[found].is_key:
            outcome.faults.append(f"frame {found} came out, and frame {found - 1}, which it builds on, did not")
        outcome.missing += range(place + 1, found)
        now = receiver.arrivals[bisect.bisect_left(sizes, offset)][1]
        outcome.longest_gap = max(outcome.longest_gap, now - (last_time or now))
        outcome.delays.append(now - sent[found].time)
        outcome.whole, place, last_time = outcome.whole + 1, found, now
    outcome.missing += range(place + 1, len(sent))
    outcome.delays.sort()
    return outcome
