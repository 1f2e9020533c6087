"""The grid: films as encoders make them in all their ways, and who sends them over which MTU."""
import dataclasses

import made_up
from films import UUID, h264, h265
from senders import Ffmpeg, Gstreamer

MTUS = (200, 300, 576, 1000, 1400, 1500, 4000, 8900)
AGGREGATES = ("none", "zero-latency", "max-stap")
SMALL = "crf=45"  # slices of a few bytes, many of which fit into an aggregate
LONG_MESSAGE = UUID + "+" + "message" * 700  # more than a packet of most MTUs
TALL = "320x960"  # 60 rows of macroblocks
LOW = "-tune zerolatency"

FILMS = {
    # H.264: how many slices. A picture cannot have more of them than rows, but where they are counted in macroblocks.
    **{f"x264, {n} slices": h264(params=f"slices={n}:{SMALL}", size=TALL, pictures=60, least=n)
       for n in (1, 2, 3, 5, 8, 13, 17, 24, 30, 45, 60)},
    "x264, slices in threads": h264(params="sliced-threads=1:threads=15", size=TALL, more=LOW, least=15),
    "x264, 100 slices": h264(params=f"slice-max-mbs=3:{SMALL}", least=100),
    **{f"x264, slices of {n} bytes": h264(params=f"slice-max-size={n}", more=LOW) for n in (150, 500, 1100, 8000)},
    # Profiles.
    "x264, baseline": h264(profile="baseline"),
    "x264, main": h264(profile="main"),
    "x264, high": h264(profile="high"),
    "x264, high 10": h264(profile="high10", pixels="yuv420p10le"),
    "x264, high 4:2:2": h264(profile="high422", pixels="yuv422p"),
    "x264, high 4:2:2 10": h264(profile="high422", pixels="yuv422p10le", params="slices=4"),
    "x264, high 4:4:4": h264(profile="high444", pixels="yuv444p"),
    "x264, high 4:4:4 10": h264(profile="high444", pixels="yuv444p10le"),
    "x264, monochrome": h264(profile="high", pixels="gray"),
    "x264, lossless": h264(profile="high444", params="qp=0", pictures=20),
    "x264, lossless 4:4:4": h264(profile="high444", pixels="yuv444p", params="qp=0", pictures=12),
    "x264, AVC-Intra": h264(params="avcintra-class=50:interlaced=1:tff=1", pixels="yuv420p10le", size="1440x1080",
                            rate="25", pictures=5),
    # What pictures refer to, and in which order they come.
    "x264, B pictures": h264(params="bframes=3:b-adapt=0"),
    "x264, B pyramid": h264(params="bframes=7:b-adapt=0:b-pyramid=normal:ref=4"),
    "x264, strict B pyramid": h264(params="bframes=5:b-adapt=0:b-pyramid=strict"),
    "x264, 16 B pictures": h264(params="bframes=16:b-adapt=0:keyint=20:slices=3"),
    "x264, open GOP": h264(params="open-gop=1:bframes=3:keyint=12:min-keyint=6"),
    "x264, open GOP of Blu-ray": h264(params="open-gop=1:bluray-compat=1:slices=4:keyint=15:nal-hrd=vbr"
                                             ":vbv-maxrate=2000:vbv-bufsize=2000:level=41:aud=1"),
    "x264, intra refresh": h264(params="intra-refresh=1:keyint=20", more=LOW),
    "x264, intra refresh with slices": h264(params="intra-refresh=1:keyint=20:slices=15:sliced-threads=0", more=LOW,
                                            least=15),
    "x264, key frames alone": h264(params="keyint=1"),
    "x264, one key frame": h264(params="keyint=infinite:scenecut=0"),
    "x264, weighted prediction": h264(params="weightp=2:weightb=1:bframes=3", more="-vf fade=in:0:30"),
    "x264, 16 references": h264(params="ref=16:bframes=2"),
    # Fields.
    "x264, top field first": h264(params="tff=1"),
    "x264, bottom field first": h264(params="bff=1:bframes=3:b-adapt=0"),
    "x264, fields and slices": h264(params=f"tff=1:slices=15:{SMALL}", size="320x480", least=16),
    "x264, fake interlaced": h264(params="fake-interlaced=1"),
    "x264, pulldown": h264(params="pic-struct=1", more="-flags +ildct"),
    # Entropy coding, filters, and units other than slices.
    "x264, CAVLC": h264(params="cabac=0:8x8dct=1"),
    "x264, no deblocking": h264(params="no-deblock=1:aq-mode=0"),
    "x264, delimiters": h264(params="aud=1", types=(9,)),
    "x264, delimiters and slices": h264(params=f"aud=1:slices=24:{SMALL}", size=TALL, least=25),
    "x264, filler": h264(params="nal-hrd=cbr:bitrate=2000:vbv-maxrate=2000:vbv-bufsize=200", types=(12,)),
    "x264, frame packing": h264(params="frame-packing=3:slices=6:aud=1"),
    "x264, sets in the description": h264(is_described=True, params="keyint=10"),
    "x264, sets in the description and slices": h264(is_described=True, params=f"keyint=10:slices=20:{SMALL}",
                                                     size=TALL, least=20),
    "x264, sets with each picture": h264(params=f"keyint=10:slices=20:{SMALL}", size=TALL, is_described=True,
                                         filters="dump_extra=freq=all", least=22),
    "x264, messages": h264(params="keyint=10", filters=f"h264_metadata=aud=insert:sei_user_data={UUID}+short"),
    "x264, long messages": h264(params="keyint=10:slices=3", filters=f"h264_metadata=sei_user_data={LONG_MESSAGE}"),
    "x264, no messages": h264(params="slices=2", filters="filter_units=remove_types=6"),
    "x264, large": h264(params="slices=8:qp=8", size="1920x1080", pictures=8),
    "x264, tiny": h264(size="32x32", source="color"),
    "x264, RGB": h264(pixels="rgb24", more="-c:v libx264rgb"),
    # H.265. x265 has room for 16 units in a picture, and breaks down beyond: 13 slices behind the three parameter sets.
    # Bitstream filters add to them.
    **{f"x265, {n} slices": h265(params=f"slices={n}:crf=45:ctu=16", size=TALL, least=n)
       for n in (1, 2, 3, 5, 8, 13)},
    "x265, 18 units": h265(params="slices=13:hash=3:crf=51:ctu=16:keyint=20", size="128x960", source="smptebars",
                                       is_described=True,
                                       filters="dump_extra=freq=all,hevc_metadata=aud=insert", least=18),
    "x265, main": h265(profile="main"),
    "x265, main 10": h265(profile="main10", pixels="yuv420p10le"),
    "x265, main 12": h265(profile="main12", pixels="yuv420p12le"),
    "x265, main 4:2:2 10": h265(profile="main422-10", pixels="yuv422p10le"),
    "x265, main 4:2:2 12": h265(profile="main422-12", pixels="yuv422p12le"),
    "x265, main 4:4:4": h265(profile="main444-8", pixels="yuv444p"),
    "x265, main 4:4:4 10": h265(profile="main444-10", pixels="yuv444p10le"),
    "x265, main 4:4:4 12": h265(profile="main444-12", pixels="yuv444p12le"),
    "x265, main intra": h265(profile="main-intra", params="keyint=1"),
    "x265, still picture": h265(profile="mainstillpicture", pictures=1),
    "x265, monochrome": h265(pixels="gray"),
    "x265, lossless": h265(params="lossless=1", pictures=20),
    "x265, B pictures": h265(params="bframes=4:b-adapt=0"),
    "x265, B pyramid": h265(params="bframes=8:b-adapt=0:b-pyramid=1:ref=4:rc-lookahead=20"),
    "x265, closed GOP": h265(params="open-gop=0:keyint=12:bframes=3"),
    "x265, open GOP": h265(params="open-gop=1:keyint=12:min-keyint=6:bframes=4:b-adapt=0", types=(8, 21)),
    "x265, IDR_W_RADL": h265(params="open-gop=0:radl=2:keyint=12:bframes=4:b-adapt=0", types=(19,)),
    "x265, intra refresh": h265(params="intra-refresh=1:keyint=20", more=LOW),
    "x265, one key frame": h265(params="keyint=-1:scenecut=0"),
    "x265, temporal layers": h265(params="temporal-layers=1:bframes=3:b-adapt=0:b-pyramid=1", types=(2,)),
    "x265, weighted prediction": h265(params="weightp=1:weightb=1:bframes=3", more="-vf fade=in:0:30"),
    "x265, fields": h265(params="interlace=tff"),
    "x265, fields, bottom first": h265(params="interlace=bff:bframes=3:b-adapt=0"),
    "x265, field coding": h265(params="interlace=tff:field=1:b-adapt=2"),
    "x265, delimiters": h265(params="aud=1:slices=4"),
    "x265, hashes behind slices": h265(params="hash=1:slices=3", types=(40,)),
    "x265, checksums behind slices": h265(params="hash=3:aud=1:bframes=3"),
    "x265, filler": h265(params="bitrate=2000:vbv-maxrate=2000:vbv-bufsize=200:strict-cbr=1:hrd=1", types=(38,)),
    "x265, buffering periods": h265(params="keyint=10:repeat-headers=1:idr-recovery-sei=1:hrd=1:vbv-bufsize=1000"
                                           ":vbv-maxrate=1000", types=(39,)),
    "x265, wavefronts": h265(params="wpp=1:pmode=0:ctu=16", size="640x480"),
    "x265, HDR": h265(pixels="yuv420p10le", profile="main10",
                      params="hdr10=1:repeat-headers=1:max-cll=1000,400:aud=1:keyint=10"
                             ":master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)"),
    "x265, sets in the description": h265(is_described=True, params="keyint=10"),
    "x265, sets in the description and slices": h265(is_described=True, params="keyint=10:slices=12:crf=45:ctu=16",
                                                     size=TALL, least=12),
    "x265, sets with each key frame": h265(params="repeat-headers=1:keyint=10"),
    "x265, sets with each picture": h265(is_described=True, params="keyint=10:slices=8:crf=45:ctu=16", size=TALL,
                                         filters="dump_extra=freq=all", least=11),
    "x265, delimiters put in": h265(params="keyint=10", filters="hevc_metadata=aud=insert"),
    "x265, large": h265(params="qp=8:slices=4", size="1920x1080", pictures=6),
    "x265, tiny": h265(size="64x64", source="color", params="ctu=16"),
}

RAW = ("videotestsrc num-buffers={pictures} horizontal-speed=3"
       " ! video/x-raw,format={format},width=320,height=240,framerate=30/1")


@dataclasses.dataclass(frozen=True)
class Element:
    """An encoder of GStreamer's."""

    codec: str
    encoder: str
    format: str = "I420"
    pictures: int = 40

    def source(self):
        return f"{RAW.format(pictures=self.pictures, format=self.format)} ! {self.encoder}"


ELEMENTS = {
    "x264enc": Element("h264", "x264enc tune=zerolatency key-int-max=10"),
    "x264enc, B pictures": Element("h264", "x264enc bframes=3 b-pyramid=true key-int-max=15 aud=true"),
    "x264enc, 15 slices": Element("h264", "x264enc tune=zerolatency quantizer=45 pass=quant option-string=slices=15"),
    "x264enc, intra refresh": Element("h264", "x264enc tune=zerolatency intra-refresh=true key-int-max=15"),
    "x264enc, fields": Element("h264", "x264enc interlaced=true"),
    "x264enc, 4:4:4": Element("h264", "x264enc", "Y444"),
    "x264enc, filler": Element("h264", "x264enc pass=cbr bitrate=2000 option-string=nal-hrd=cbr"),
    "openh264enc": Element("h264", "openh264enc gop-size=10"),
    "openh264enc, slices": Element("h264", "openh264enc slice-mode=n-slices num-slices=8 multi-thread=1"),
    "openh264enc, slices of 200 bytes": Element("h264", "openh264enc slice-mode=auto max-slice-size=200"),
    "openh264enc, screen": Element("h264", "openh264enc usage-type=screen gop-size=20"),
    "x265enc": Element("h265", "x265enc tune=zerolatency speed-preset=ultrafast key-int-max=10"),
    "x265enc, slices": Element("h265", "x265enc tune=zerolatency speed-preset=ultrafast"
                                       " option-string=slices=5:ctu=16:repeat-headers=1:crf=45"),
}

# Made for the payloader's MTU.
MADE_UP = {f"made up, {codec}, {kind}": (codec, kind) for codec in ("h264", "h265") for kind in made_up.KINDS}

# Those that go through every payloader at every MTU: slices, few and many, with what stands between them.
SPREAD = ("x264, 1 slices", "x264, 8 slices", "x264, 30 slices", "x264, 60 slices", "x264, delimiters and slices",
          "x264, sets with each picture", "x264, long messages", "x264, filler", "x264, B pyramid",
          "x264, fields and slices", "x265, 1 slices", "x265, 8 slices", "x265, 13 slices", "x265, 18 units",
          "x265, hashes behind slices", "x265, sets with each picture", "x265, open GOP", "x265, temporal layers",
          "x265, buffering periods")
# MTUs at which GStreamer's aggregation of H.265 ends with errors of its own reference counts.
BREAKS_AT = {"x265, 18 units": (1000,), "made up, h265, tiny units": (200, 300, 576, 1000)}
UNFRAGMENTED = ("x264, slices of 150 bytes", "x264, slices of 500 bytes", "x264, 60 slices", "x264, 100 slices")

# Rows for every landing: all kinds of units, both programs, all modes, small and large MTUs.
GATE = {
    "h264.ThirtySlices": ("x264, 30 slices", Ffmpeg(1400)),
    "h264.SixtySlices": ("x264, 60 slices", Gstreamer(8900, "max-stap")),
    "h264.HundredSlicesUnfragmented": ("x264, 100 slices", Ffmpeg(8900, mode=0)),
    "h264.SlicesOfFields": ("x264, fields and slices", Gstreamer(4000)),
    "h264.SetsWithEachPicture": ("x264, sets with each picture", Ffmpeg(576)),
    "h264.SetsInTheDescription": ("x264, sets in the description and slices", Ffmpeg(1500)),
    "h264.DelimitersAndSlices": ("x264, delimiters and slices", Gstreamer(300, "zero-latency", -1)),
    "h264.LongMessages": ("x264, long messages", Ffmpeg(300)),
    "h264.Filler": ("x264, filler", Gstreamer(1000, "max-stap")),
    "h264.PyramidOfBPictures": ("x264, B pyramid", Ffmpeg(200)),
    "h264.IntraRefresh": ("x264, intra refresh with slices", Gstreamer(200, "none")),
    "h264.Lossless": ("x264, lossless 4:4:4", Gstreamer(1400, "none", -1)),
    "h264.AnotherEncoder": ("openh264enc, slices of 200 bytes", Gstreamer(1400, "max-stap")),
    "h265.EighteenUnits": ("x265, 18 units", Ffmpeg(1400)),
    "h265.ThirteenSlices": ("x265, 13 slices", Gstreamer(8900, "max-stap", -1)),
    "h265.TwelveBits": ("x265, main 4:4:4 12", Ffmpeg(300)),
    "h265.HashesBehindSlices": ("x265, hashes behind slices", Gstreamer(1000, "max-stap")),
    "h265.OpenGop": ("x265, open GOP", Ffmpeg(1400)),
    "h265.TemporalLayers": ("x265, temporal layers", Gstreamer(200)),
    "h265.FieldCoding": ("x265, field coding", Gstreamer(576, "none")),
}


def senders_of(name, number):
    """Each film goes through both programs, at MTUs and in modes that take turns."""
    if name == "x265, temporal layers":  # FFmpeg puts the lowest layer into the headers of all fragments
        return [Ffmpeg(8900), *(Gstreamer(mtu, aggregate) for mtu in MTUS for aggregate in AGGREGATES)]
    if FILMS[name].is_described and not FILMS[name].filters:
        return [Ffmpeg(MTUS[number % len(MTUS)]), Ffmpeg(1400)]
    if name not in SPREAD:
        return [Ffmpeg(1400), Ffmpeg(MTUS[number % len(MTUS)]),
                Gstreamer(MTUS[(number + 3) % len(MTUS)], AGGREGATES[number % 3], -(number % 2)),
                Gstreamer(1400, AGGREGATES[(number + 1) % 3], -((number + 1) % 2))]
    return [*map(Ffmpeg, MTUS), *(Gstreamer(mtu, aggregate, -(number % 2)) for mtu in MTUS for aggregate in AGGREGATES)]


def is_sendable(name, sender):
    return isinstance(sender, Ffmpeg) or sender.aggregate == "none" or sender.mtu not in BREAKS_AT.get(name, ())


def grid():
    """All rows: the film's name, and the sender."""
    for number, name in enumerate(FILMS):
        yield from ((name, sender) for sender in dict.fromkeys(senders_of(name, number)) if is_sendable(name, sender))
    for name in UNFRAGMENTED:
        yield name, Ffmpeg(mtu=8900, mode=0)
    for name in MADE_UP:
        senders = (Gstreamer(mtu, aggregate) for mtu in MTUS for aggregate in AGGREGATES)
        yield from ((name, sender) for sender in senders if is_sendable(name, sender))
    for number, name in enumerate(ELEMENTS):
        for aggregate in AGGREGATES:
            yield name, Gstreamer(MTUS[number % len(MTUS)], aggregate)
            yield name, Gstreamer(1400, aggregate, -1)
