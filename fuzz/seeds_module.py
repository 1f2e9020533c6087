"""Programs for module_operations.cpp."""

(NATIVE, RTP, TIME, REMOVE, ASSEMBLE, LOOK_UP, MOVE_EXPECTED, REPORT, RESET, RENEW_CACHE, CLEAN_UP, REFUSE_MEMORY,
 MOVE_ORIGINS) = range(13)

H264, H265, GENERIC = 0, 1, 2  # places in the table of codecs
PASSES_ON, TAKES_PAYLOAD, NO_ANALYZER, ESTIMATES = 1, 2, 4, 8


def i8(value):
    return value & 0xFF


def be(value, size):
    return (value & (1 << 8 * size) - 1).to_bytes(size, "big")


def program(*operations, origins=0, options=0):
    return bytes([origins, options]) + b"".join(operations)


def count_code(n):
    """Codes of packet counts: small ones are themselves."""
    if n < 200:
        return n
    extremes = [0, 1279, 1280, 1281, 4096, 32768, 65535]
    return 249 + extremes.index(n) if n in extremes else 199 + n // 32


def native(frame, n, index, *, frame_seq=None, seq=None, key=False, codec=H264, method=0, fec=None, size=20, raw=None,
           copy=False, version9=False, wrapped=False):
    """A packet of the frame `frame` above the origin; `frame_seq` and `seq` replace what follows from that."""
    flags = ((frame_seq is not None) | (index > 255) << 1 | (seq is not None) << 2 | key << 3 | (fec is not None) << 4
             | (raw is not None) << 5 | copy << 6)
    kind = codec | version9 << 3 | method << 4 | wrapped << 7
    out = bytes([NATIVE, flags, kind])
    out += be(frame_seq, 4) if frame_seq is not None else bytes([i8(frame)])
    out += bytes([count_code(n)])
    out += be(index, 2) if index > 255 else bytes([index])
    out += be(seq, 2) if seq is not None else b""
    out += bytes([fec]) if fec is not None else b""
    return out + (bytes([len(raw)]) + raw if raw is not None else bytes([size]))


def rtp(number, frame, marker=False, key=False, *, seq=None, timestamp=None, retrans=False, raw=None, moves=False,
        size=20):
    """A packet `number` above the origin of sequence numbers, with the timestamp of frame `frame`."""
    flags = ((seq is not None) | (timestamp is not None) << 1 | marker << 2 | key << 3 | retrans << 4
             | (raw is not None) << 5 | moves << 6)
    out = bytes([RTP, flags, i8(number)])
    out += be(seq, 2) if seq is not None else b""
    out += bytes([i8(frame)])
    out += be(timestamp, 4) if timestamp is not None else b""
    return out + (bytes([len(raw)]) + raw if raw is not None else bytes([size]))


def passes(ms):
    return bytes([TIME, ms if ms < 128 else 0x80 | ms // 100])


def remove(slot):
    return bytes([REMOVE, slot % 40, 0])


REMOVE_OLDEST = bytes([REMOVE, 0, 1])
REMOVE_NEWEST = bytes([REMOVE, 0, 2])


def delete(slot):
    return bytes([REMOVE, slot % 40, 3])


def assemble(slot, packetizer=0):
    return bytes([ASSEMBLE, slot % 40, packetizer])


def look_up(slot, seq=0):
    return bytes([LOOK_UP, slot % 40]) + be(seq, 2)


def refuse(nth, for_good=False):
    return bytes([REFUSE_MEMORY, 0xFF if for_good else nth])


MEMORY_IS_BACK = refuse(0)
RESET_ALL, RESET_KEEPING_SEQ, RESET_CACHE = (bytes([RESET, way]) for way in (1, 0, 2))
CACHE_GONE, CACHE_ANEW, CACHE_WITH_RING = (bytes([RENEW_CACHE, way]) for way in (0, 1, 3))


def clean_up(local=False, frees=True, choose=0):
    return bytes([CLEAN_UP, local | frees << 1 | choose << 2])


def whole_frame(frame, n, **fields):
    return b"".join(native(frame, n, index, **fields) for index in range(n))


def slot(frame, origin=1000):
    return (origin + frame) % 40


KEY = dict(key=True)
TORN_RANGE = b"".join(rtp(i, 0, key=True, seq=i, timestamp=1) for i in range(6)) + rtp(
    0, 0, key=True, seq=0x8003, timestamp=1)

# Three frames whose ranges collapse, and which a call gives up together.
TORN_RANGES = b"".join(rtp(0, 0, key=True, seq=i, timestamp=1 + i // 2) for i in range(6)) + b"".join(
    rtp(0, 0, key=True, seq=0x8003 + i, timestamp=1 + i) for i in range(3))

SEEDS = {
    # The native path.
    "native_frames_assembled_and_removed": program(*[
        whole_frame(f, 3, key=f == 0) + assemble(slot(f), 1) + remove(slot(f)) for f in range(4)]),
    "native_frames_reordered": program(
        native(0, 2, 1, **KEY), native(1, 2, 0), native(0, 2, 0, **KEY), native(1, 2, 1), native(1, 2, 1),
        look_up(slot(0), 4001), REMOVE_OLDEST, REMOVE_NEWEST),
    "native_frames_across_the_wrap": program(*[whole_frame(f, 4) + look_up(slot(f, 0xFFFFFFF8)) for f in range(12)],
                                             *[REMOVE_OLDEST] * 12, origins=1),
    "native_slot_shared_40_apart": program(whole_frame(0, 2), whole_frame(40, 2), native(0, 2, 0), whole_frame(80, 1),
                                           REMOVE_OLDEST),
    "native_index_entry_shared_1280_apart": program(native(0, 1, 0, seq=10), native(1, 1, 0, seq=1290),
                                                    native(0, 1, 0, seq=2570), REMOVE_OLDEST, REMOVE_OLDEST),
    "native_packet_count_changes": program(native(0, 2, 0), native(0, 3, 1), native(0, 2, 1), remove(slot(0))),
    "native_frame_of_no_packets": program(native(0, 0, 0), native(0, 0, 0), native(1, 1, 0), REMOVE_OLDEST),
    "native_index_beyond_the_frame": program(native(0, 2, 5), native(0, 2, 0), native(0, 2, 300), remove(slot(0))),
    "native_payload_empty_or_short": program(native(0, 2, 0, raw=b""), native(0, 2, 0, raw=b"\x80"),
                                             native(0, 2, 1, raw=b"\x80\x60\x00"), assemble(slot(0)), remove(slot(0))),
    "native_occupied_slot_filled_anew": program(
        native(0, 1, 0, frame_seq=10, seq=500, raw=b""), remove(10), native(0, 1, 0, frame_seq=9, seq=600),
        native(0, 1, 0, frame_seq=12, seq=700), native(0, 1, 0, frame_seq=11, seq=500), remove(9), remove(11),
        native(0, 1, 0, frame_seq=12, seq=701)),
    "native_frames_billions_apart": program(
        native(0, 1, 0, frame_seq=0), native(0, 1, 0, frame_seq=0x7FFFFFFE), native(0, 1, 0, frame_seq=40),
        look_up(0), look_up(38), REMOVE_OLDEST, REMOVE_NEWEST, REMOVE_OLDEST),
    "native_largest_frames": program(native(0, 1280, 1279), native(1, 1280, 0), native(2, 65535, 65534),
                                     native(3, 1281, 1280), assemble(slot(0)), REMOVE_OLDEST),
    "native_no_memory_for_the_packets": program(refuse(1), native(0, 2, 0), native(0, 2, 0), refuse(2), native(1, 2, 0),
                                                native(1, 2, 1), remove(slot(1))),
    "native_no_memory_for_a_copy": program(native(0, 2, 0), refuse(1), native(0, 2, 1, copy=True),
                                           native(0, 2, 1, copy=True), remove(slot(0))),
    "native_no_memory_to_assemble": program(whole_frame(0, 2, codec=GENERIC), refuse(1), assemble(slot(0)), refuse(2),
                                            assemble(slot(0)), assemble(slot(0))),
    "native_generic_padding": program(
        native(0, 2, 0, codec=GENERIC), native(0, 2, 1, codec=GENERIC, raw=b"\x80\x60" + bytes(10) + b"\x00ab\x02\x02"),
        assemble(slot(0)), native(1, 1, 0, codec=GENERIC, raw=b"\x80\x60" + bytes(10) + b"\x00\x01\x09"),
        assemble(slot(1)), native(2, 1, 0, codec=GENERIC, raw=b"\x80\x60" + bytes(10) + b"\x00"), assemble(slot(2))),
    "native_fec_packets": program(*[native(0, 4, i, fec=2, method=2, codec=GENERIC) for i in range(4)],
                                  assemble(slot(0)), native(1, 2, 0, fec=200), native(1, 2, 1, fec=200),
                                  assemble(slot(1), 1), native(2, 1, 0, method=5), assemble(slot(2), 3)),
    "native_wrapped_payload_type": program(
        native(0, 2, 0, method=1, raw=b"\x80\x74" + bytes(10) + b"\x7f\x01xyz"),
        native(0, 2, 1, method=1, raw=b"\x80\x74" + bytes(10) + b"\x6bxyz"), assemble(slot(0), 1)),
    "native_header_longer_than_the_packet": program(
        native(0, 1, 0, raw=b"\x9f\x60" + bytes(10)), assemble(slot(0), 1),
        native(1, 1, 0, raw=b"\x90\x60" + bytes(10) + b"\xbe\xde\xff\xff"), assemble(slot(1), 2)),
    "native_old_protocol_version": program(whole_frame(0, 2, version9=True), assemble(slot(0), 0)),
    "native_expected_packet_moves": program(
        whole_frame(0, 4), native(1, 4, 0), native(1, 4, 2), bytes([MOVE_EXPECTED, 0, slot(0)]),
        bytes([MOVE_EXPECTED, 2, slot(1)]), bytes([MOVE_EXPECTED, 1]) + be(4100, 2), remove(slot(0)), RESET_KEEPING_SEQ,
        whole_frame(2, 4)),
    "native_remove_what_is_not_there": program(remove(3), REMOVE_OLDEST, whole_frame(0, 2), remove(slot(5)),
                                               delete(slot(0)), REMOVE_OLDEST, native(0, 2, 1), REMOVE_NEWEST),
    # The RTP path.
    "rtp_frames_in_order": program(
        rtp(0, 0, key=True), rtp(1, 0, True, True), rtp(2, 1), rtp(3, 1, True), rtp(4, 2, True), passes(10),
        options=PASSES_ON),
    "rtp_frames_reordered": program(
        rtp(0, 0, True, True), rtp(3, 2, True), rtp(1, 1), rtp(4, 3), rtp(2, 1, True), rtp(5, 3, True),
        options=PASSES_ON | TAKES_PAYLOAD),
    "rtp_loss_given_up_to_a_key_frame": program(
        rtp(0, 0, True, True), rtp(2, 1, True), rtp(3, 2, True), rtp(5, 4, key=True), rtp(6, 4, True, True),
        passes(2000), passes(2000), passes(2000), options=PASSES_ON),
    "rtp_loss_repaired": program(rtp(0, 0, True, True), rtp(2, 1, True), rtp(1, 1, retrans=True), rtp(1, 1, retrans=True)),
    "rtp_delta_frames_before_the_key_frame": program(rtp(0, 0), rtp(1, 0, True), rtp(2, 1, True, True), rtp(0, 0)),
    "rtp_across_the_wraps": program(rtp(0, 0, True, True, moves=True), *[rtp(0, 1, True, moves=True) for _ in range(20)],
                                    origins=0b00010101, options=PASSES_ON),
    "rtp_ring_slot_evicted_8192_apart": program(
        rtp(0, 0, True, True, seq=100), rtp(0, 2, seq=102), rtp(0, 9, seq=102 + 8192), rtp(0, 9, True, seq=103 + 8192),
        passes(2000), passes(2000)),
    "rtp_frame_range_collapses": program(TORN_RANGE, passes(2000), rtp(0, 0, seq=0xA010, timestamp=2),
                                         rtp(0, 0, True, seq=0xA003, timestamp=3), passes(2000), origins=0b1000),
    "rtp_frame_range_collapses_then_reset": program(TORN_RANGE, RESET_ALL, TORN_RANGE, RESET_CACHE, TORN_RANGE),
    "rtp_frame_ranges_collapse_together": program(
        TORN_RANGES, passes(2000), rtp(0, 0, seq=0xA010, timestamp=2), rtp(0, 0, True, seq=0xA003, timestamp=9),
        passes(2000), TORN_RANGES, passes(2000), passes(2000)),
    "rtp_frame_range_collapses_then_gone": program(TORN_RANGE, CACHE_GONE, passes(10), TORN_RANGE, CACHE_ANEW,
                                                   CACHE_WITH_RING, TORN_RANGE, clean_up()),
    "rtp_index_beyond_a_frame_of_one": program(
        rtp(0, 0, True, True, seq=9), rtp(0, 1, seq=10), rtp(0, 2, True, True, seq=13), rtp(0, 2, key=True, seq=12),
        rtp(0, 1, True, seq=11), passes(2000), options=PASSES_ON),
    "rtp_frame_left_without_packets": program(rtp(0, 0, key=True), rtp(1, 1), rtp(2, 0, True), rtp(3, 0), rtp(4, 2, True),
                                              passes(2000), passes(2000)),
    "rtp_no_memory_for_a_frame": program(
        rtp(0, 0, True, True), refuse(1), rtp(1, 1, True), rtp(2, 2, True), passes(2000), passes(2000), RESET_CACHE,
        rtp(3, 3, True, True)),
    "rtp_no_memory_for_the_ring": program(refuse(1), rtp(0, 0, True, True), rtp(0, 0, True, True)),
    "rtp_packet_shorter_than_its_header": program(rtp(0, 0, key=True, raw=b""), rtp(1, 0, key=True, raw=b"\x80"),
                                                  rtp(2, 0, key=True, raw=b"\x80\xe0\0\0\0\0"), passes(2000)),
    "rtp_key_frames_stuck_at_the_head": program(rtp(1, 5, key=True), rtp(3, 2, key=True), passes(2000), passes(2000),
                                                passes(2000), rtp(9, 1, True, True)),
    # Both, and what is around them.
    "pictures_and_packets_reported": program(
        whole_frame(0, 2), bytes([REPORT, 4, slot(0)]), whole_frame(1, 1), passes(600), bytes([REPORT, 1]),
        bytes([REPORT, 2 | 12 << 2]) + b"\x80\x60\x00\x01\x00\x00\x00\x02\0\0\0\0", bytes([REPORT, 0x40 | 2 | 3 << 2])
        + b"\x80\x60\x00", options=ESTIMATES),
    "streams_reset": program(whole_frame(0, 2), rtp(0, 0, key=True), RESET_ALL, whole_frame(1, 2), rtp(1, 1, True, True),
                             RESET_KEEPING_SEQ, RESET_CACHE, options=ESTIMATES),
    "streams_cleaned_up_and_pooled": program(
        whole_frame(0, 2), rtp(0, 0, key=True), clean_up(), whole_frame(1, 2), clean_up(choose=1), rtp(0, 0, True, True),
        clean_up(local=True, choose=2), whole_frame(3, 3), clean_up(local=True, frees=False, choose=2), whole_frame(3, 3),
        clean_up(frees=False), options=ESTIMATES),
    "streams_without_memory": program(refuse(1, True), clean_up(), MEMORY_IS_BACK, clean_up(local=True), refuse(2),
                                      clean_up(), refuse(3), clean_up(), whole_frame(0, 1), options=ESTIMATES),
    "local_stream": program(clean_up(local=True, choose=2), whole_frame(-1000, 3), look_up(0, 1), REMOVE_OLDEST,
                            whole_frame(-999, 3), rtp(0, 0, True, True), options=NO_ANALYZER),
}
