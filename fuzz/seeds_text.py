"""Session descriptions: those of the unit tests, and some that stress one rule each."""

import ast
import pathlib
import re

EXAMPLES = pathlib.Path(__file__).resolve().parent.parent / "tests" / "unit" / "sdp" / "sdp_examples.h"


def examples():
    """The C strings of the header, by name."""
    pattern = re.compile(r"const char kSdp(\w+)\[\] =\s*((?:\"(?:[^\"\\]|\\.)*\"\s*)+);")
    found = {}
    for name, literals in pattern.findall(EXAMPLES.read_text()):
        parts = re.findall(r"\"(?:[^\"\\]|\\.)*\"", literals)
        found[re.sub(r"(?<!^)(?=[A-Z])", "_", name).lower()] = "".join(map(ast.literal_eval, parts)).encode()
    return found


def video(*lines, port="5004", profile="RTP/AVP", formats="96"):
    head = ["v=0", "o=- 1 1 IN IP4 192.0.2.1", "s=-", "c=IN IP4 192.0.2.1", "t=0 0", f"m=video {port} {profile} {formats}"]
    return "\r\n".join(head + list(lines) + [""]).encode()


H264 = "a=rtpmap:96 H264/90000"
KEY_30 = "MTIzNDU2Nzg5MGFiY2RlZjEyMzQ1Njc4OTBhYmNk"

DESCRIPTIONS = {
    **examples(),
    "retransmission": video(H264, "a=rtpmap:98 rtx/90000", "a=fmtp:98 apt=96;rtx-time=3000", formats="96 98"),
    "retransmission_of_itself": video("a=rtpmap:96 rtx/90000", "a=fmtp:96 apt=96"),
    "two_codecs": video(H264, "a=rtpmap:97 H265/90000", "a=fmtp:96 packetization-mode=2", formats="96 97"),
    "key_with_lifetime_and_mki": video(H264, f"a=crypto:1 AES_CM_128_HMAC_SHA1_32 inline:{KEY_30}|2^20|1:4",
                                       "a=crypto:2 AEAD_AES_256_GCM inline:" + "A" * 59 + "=", profile="RTP/SAVPF"),
    "key_of_the_wrong_length": video(H264, "a=crypto:1 AES_CM_128_HMAC_SHA1_80 inline:QUJD", profile="RTP/SAVP"),
    "parameter_sets_not_base64": video(H264, "a=fmtp:96 sprop-parameter-sets=Z0LA,,a,====,aM4PyA==,!"),
    "parameter_sets_beyond_the_room": video(H264, "a=fmtp:96 sprop-parameter-sets=" + ",".join(["Z" * 400] * 4)),
    "more_formats_than_places": video(formats=" ".join(str(n) for n in range(64, 127))),
    "more_sections_than_places": video(H264) + b"m=video 1 RTP/AVP 96\r\n" * 8,
    "addresses": video(H264, "c=IN IP6 FF15::101/3", "a=rtcp:5005 IN IP6 2001:db8::" + "1" * 70),
    "numbers_out_of_range": video(H264, "a=ssrc:99999999999 cname:x", "a=rtcp:70000", port="65536"),
    "lines_end_as_they_like": b"SDP:\n\nv=0\ns=-\r\n\n\rm=video 5004/2 RTP/AVPF 96\na=rtpmap:96 h264/90000\r\na=rtcp-rsize",
    "rtcp_in_one_port": video(H264, "a=rtcp-mux", "a=rtcp-rsize", "a=inactive", "a=rtcp-fb:* nack pli", port="0"),
}
