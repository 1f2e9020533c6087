"""Films as encoders make them: access units with their times, from FFmpeg with x264 and x265 in all their ways."""
import base64
import dataclasses
import re

import bitstream
from ffmpeg_call import ffmpeg

PICTURES = 40
UUID = "086f3693-b7b3-4f2c-9653-21492feee5b8"  # of the message that bitstream filters put in
X264, X265 = "-c:v libx264 -preset veryfast", "-c:v libx265 -preset ultrafast"
X265_QUIET = "log-level=none:info=0:pools=1:frame-threads=1"


@dataclasses.dataclass
class Film:
    """Access units in decoding order."""

    codec: str
    units: list  # lists of NAL units
    times: list  # of presentation, seconds


@dataclasses.dataclass
class Settings:
    """How a film is encoded. `params` are the encoder's own."""

    codec: str
    params: str = ""
    profile: str = ""
    pixels: str = "yuv420p"
    size: str = "320x240"
    rate: str = "30"
    pictures: int = PICTURES
    more: str = ""  # options of FFmpeg
    filters: str = ""  # bitstream filters, behind the encoder
    is_described: bool = False  # parameter sets stand in the description alone
    source: str = "testsrc2"
    least: int = 1  # units of each access unit: an encoder that gives fewer does not do what it was told
    types: tuple = ()  # of units that have to be there

    def encoder(self):
        params = self.params if self.codec == "h264" else ":".join(filter(None, (X265_QUIET, self.params)))
        words = (X264 if self.codec == "h264" else X265).split() + self.more.split()
        words += ["-profile:v", self.profile] if self.profile else []
        words += [f"-x{self.codec[1:]}-params", params] if params else []
        words += ["-bsf:v", self.filters] if self.filters else []
        return words

    def make(self, directory, *outputs):
        """Encodes the film once, for the list of its packets, for their bytes, and for more outputs of FFmpeg's tee."""
        listing, raw = directory / "film.list", directory / "film.raw"
        outputs = "|".join((f"[f=framehash:hash=CRC32]{listing}", f"[f=data]{raw}", *outputs))
        ffmpeg("-f", "lavfi", "-i", f"{self.source}=size={self.size}:rate={self.rate}", "-frames:v", str(self.pictures),
               "-pix_fmt", self.pixels, *self.encoder(), "-flags:v", f"{'+' if self.is_described else '-'}global_header",
               "-map", "0:v", "-f", "tee", outputs)
        film = film_of(self.codec, listing.read_text(), raw.read_bytes())
        self.check(film)
        return film

    def check(self, film):
        types = {bitstream.nal_type(self.codec, nal) for unit in film.units for nal in unit}
        if len(film.units) != self.pictures or min(map(len, film.units)) < self.least or not types.issuperset(self.types):
            raise SystemExit(f"the film has {len(film.units)} access units, of at least {min(map(len, film.units))} units,"
                             f" of the types {sorted(types)}")


def film_of(codec, listing, data):
    """FFmpeg's own list of its packets tells where access units end."""
    base = re.search(r"^#tb 0: (\d+)/(\d+)", listing, re.MULTILINE)
    film = Film(codec, [], [])
    for row in (line.split(",") for line in listing.splitlines() if not line.startswith("#")):
        presentation, size = int(row[2]), int(row[4])
        film.units.append(bitstream.nal_units(data[:size]))
        film.times.append(presentation * int(base[1]) / int(base[2]))
        data = data[size:]
    if data:
        raise SystemExit(f"{len(data)} bytes of the film are in none of its packets")
    return film


def described_by(sdp):
    """The parameter sets of a session description."""
    texts = re.findall(r"sprop-(?:parameter-sets|vps|sps|pps)=([^;\s]+)", sdp)
    return [base64.b64decode(part) for text in texts for part in text.split(",")]


def h264(**settings):
    return Settings("h264", **settings)


def h265(**settings):
    return Settings("h265", **settings)
