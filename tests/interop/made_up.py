"""Films that no encoder makes: units of all types, of all sizes around that of a packet, and hundreds of them in a picture.
Payloaders look at a unit's header alone, so the rest is noise in which no start code can be."""
import random

import bitstream
from films import Film

RTP_HEADER = 12
AROUND = range(-6, 7)  # bytes around a packet that is full
FIRST_SLICE, OTHER_SLICE = 0x80, 0x40  # begins with first_mb_in_slice, or first_slice_segment_in_pic_flag
KEY_SLICE, SLICE = {"h264": 5, "h265": 19}, {"h264": 1, "h265": 1}
# In their order. Of the higher ones RTP makes use itself.
BEFORE_SLICES = {"h264": (9, 7, 13, 15, 8, 6, 14, 16, 17, 18), "h265": (35, 32, 33, 34, 39, *range(41, 45))}
SLICES = {"h264": (1, 2, 3, 4), "h265": tuple(range(10))}
BEHIND_SLICES = {"h264": (19, 20, 21, 12, 22, 23), "h265": (38, 40, 45, 46, 47, 36, 37)}


class Maker:
    def __init__(self, codec, seed=1):
        self.codec, self.random = codec, random.Random(seed)

    def unit(self, kind, size, first=OTHER_SLICE):
        """A unit of `size` bytes, with its header."""
        header = bytes([0x60 | kind]) if self.codec == "h264" else bytes([kind << 1, 1])
        noise = bytes(self.random.randrange(1, 256) for _ in range(size - len(header) - 1))
        return header + bytes([first]) + noise

    def slices(self, *sizes, kind=None):
        kind = SLICE[self.codec] if kind is None else kind
        return [self.unit(kind, size, OTHER_SLICE if i else FIRST_SLICE) for i, size in enumerate(sizes)]

    def key(self):
        """A first access unit, as a receiver wants it."""
        sets = [self.unit(kind, 12) for kind in bitstream.PARAMETER_SETS[self.codec]]
        return sets + self.slices(300, kind=KEY_SLICE[self.codec])

    def film(self, units):
        units = [self.key(), *units]
        return Film(self.codec, units, [i / 30 for i in range(len(units))])


def all_sizes(maker, mtu):
    """One slice, then two that together have the size: packets, aggregates and last fragments that are full or just not."""
    room = mtu - RTP_HEADER
    for full in (room, 2 * room, 3 * room):
        for size in (full + more for more in AROUND):
            yield maker.slices(size)
            yield maker.slices(20, size - 20)
            yield maker.slices(size, 4, 4)


def tiny_units(maker, _mtu):
    """Ever more of them, of three to six bytes."""
    for count in range(1, 400, 9):
        yield maker.slices(*(3 + i % 4 for i in range(count)))


def all_types(maker, mtu):
    """Each of them small, and of more than a packet."""
    for slice_kind in SLICES[maker.codec]:
        for size in (12, mtu + 100):
            before = [maker.unit(kind, size) for kind in BEFORE_SLICES[maker.codec]]
            behind = [maker.unit(kind, size) for kind in BEHIND_SLICES[maker.codec]]
            yield before + maker.slices(size, 12, kind=slice_kind) + behind


KINDS = {"sizes around a packet's": all_sizes, "tiny units": tiny_units, "units of all types": all_types}


def film(codec, kind, mtu):
    maker = Maker(codec)
    return maker.film(KINDS[kind](maker, mtu))
