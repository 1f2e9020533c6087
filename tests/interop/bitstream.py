"""Annex B byte streams of H.264 and H.265: NAL units, and the access units that they make up."""

START_CODE = b"\0\0\0\1"
PARAMETER_SETS = {"h264": (7, 8), "h265": (32, 33, 34)}


def nal_units(data):
    """The NAL units of a byte stream, without start codes and the zeros around them."""
    return [nal.rstrip(b"\0") for nal in data.split(START_CODE[1:]) if nal.strip(b"\0")]


def joined(nals):
    """NAL units, each behind a start code of four bytes."""
    return b"".join(START_CODE + nal for nal in nals)


def nal_type(codec, nal):
    return nal[0] & 0x1F if codec == "h264" else nal[0] >> 1 & 0x3F


def is_slice(codec, nal):
    return 1 <= nal_type(codec, nal) <= 5 if codec == "h264" else nal_type(codec, nal) < 32


def begins_picture(codec, nal):
    """Whether a slice is its picture's first: first_mb_in_slice is 0, first_slice_segment_in_pic_flag is set."""
    return nal[1 if codec == "h264" else 2] & 0x80 != 0


def is_key(codec, nals):
    """Whether an access unit can be decoded without what came before it."""
    types = [nal_type(codec, nal) for nal in nals]
    return 5 in types if codec == "h264" else any(16 <= kind <= 21 for kind in types)


def without_parameter_sets(codec, nals):
    """An access unit without the parameter sets that it begins with."""
    first = next((i for i, nal in enumerate(nals) if nal_type(codec, nal) not in PARAMETER_SETS[codec]), len(nals))
    return nals[first:]


def access_units(codec, data):
    """The access units of a byte stream, each a list of NAL units."""
    units, has_slice = [[]], False
    for nal in nal_units(data):
        if has_slice and (not is_slice(codec, nal) or begins_picture(codec, nal)):
            units.append([])
            has_slice = False
        units[-1].append(nal)
        has_slice = has_slice or is_slice(codec, nal)
    return units if units[0] else []
