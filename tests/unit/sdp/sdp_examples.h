// Session descriptions as programs write them.
#pragma once

#include <string>

// FFmpeg 5.1, H.264 with its parameter sets, SRTP, printed to standard output.
inline const char kSdpFfmpegSrtp[] =
    "SDP:\n"
    "v=0\r\n"
    "o=- 0 0 IN IP4 127.0.0.1\r\n"
    "s=No Name\r\n"
    "c=IN IP4 127.0.0.1\r\n"
    "t=0 0\r\n"
    "a=tool:libavformat LIBAVFORMAT_VERSION\r\n"
    "m=video 15004 RTP/AVP 96\r\n"
    "a=rtpmap:96 H264/90000\r\n"
    "a=fmtp:96 packetization-mode=1; sprop-parameter-sets=Z/QACpGbKITYCIAAAAMAgAAABQeJEss=,aOvjxEhE; "
    "profile-level-id=F4000A\r\n"
    "a=crypto:1 AES_CM_128_HMAC_SHA1_80 inline:MTIzNDU2Nzg5MGFiY2RlZjEyMzQ1Njc4OTBhYmNk\r\n"
    "\n";

// FFmpeg 5.1, H.265, into a file.
inline const char kSdpFfmpegH265[] =
    "v=0\r\n"
    "o=- 0 0 IN IP4 127.0.0.1\r\n"
    "s=No Name\r\n"
    "c=IN IP4 127.0.0.1\r\n"
    "t=0 0\r\n"
    "a=tool:libavformat LIBAVFORMAT_VERSION\r\n"
    "m=video 15004 RTP/AVP 96\r\n"
    "a=rtpmap:96 H265/90000\r\n"
    "a=fmtp:96 sprop-vps=QAEMAf//BAgAAAMAnggAAAMAAB6VmAk=; "
    "sprop-sps=QgEBBAgAAAMAnggAAAMAAB6QBBAgssrNJJleAtwICAAQAAADABAAAAMAUIA=; sprop-pps=RAHBcoYMQiQ=\r\n";

// FFmpeg 5.1, VP8.
inline const char kSdpFfmpegVp8[] = "v=0\r\n"
                                    "o=- 0 0 IN IP4 127.0.0.1\r\n"
                                    "s=No Name\r\n"
                                    "c=IN IP4 127.0.0.1\r\n"
                                    "t=0 0\r\n"
                                    "a=tool:libavformat LIBAVFORMAT_VERSION\r\n"
                                    "m=video 15004 RTP/AVP 96\r\n"
                                    "b=AS:256\r\n"
                                    "a=rtpmap:96 VP8/90000\r\n";

// GStreamer 1.22 from the caps of rtph264pay.
inline const char kSdpGstreamerH264[] = "v=0\r\n"
                                        "o=- 1234567890 1 IN IP4 127.0.0.1\r\n"
                                        "s=Session streamed with GStreamer\r\n"
                                        "i=rtsp-server\r\n"
                                        "c=IN IP4 127.0.0.1\r\n"
                                        "t=0 0\r\n"
                                        "a=tool:GStreamer\r\n"
                                        "a=type:broadcast\r\n"
                                        "m=video 5004 RTP/AVP 96\r\n"
                                        "a=rtpmap:96 H264/90000\r\n"
                                        "a=framerate:30\r\n"
                                        "a=fmtp:96 packetization-mode=1;profile-level-id=42c015;"
                                        "sprop-parameter-sets=Z0LAFdoHgUahAAADAAEAAAMAPI8WLqA=,aM4PyA==\r\n";

// GStreamer 1.22 from the caps of rtph265pay with feedback.
inline const char kSdpGstreamerH265[] =
    "v=0\r\n"
    "o=- 1234567890 1 IN IP4 127.0.0.1\r\n"
    "s=Session streamed with GStreamer\r\n"
    "i=rtsp-server\r\n"
    "c=IN IP4 127.0.0.1\r\n"
    "t=0 0\r\n"
    "a=tool:GStreamer\r\n"
    "a=type:broadcast\r\n"
    "m=video 5004 RTP/AVPF 97\r\n"
    "a=rtpmap:97 H265/90000\r\n"
    "a=rtcp-fb:97 nack\r\n"
    "a=rtcp-fb:97 nack pli\r\n"
    "a=rtcp-fb:97 ccm fir\r\n"
    "a=rtcp-fb:97 transport-cc\r\n"
    "a=fmtp:97 sprop-vps=QAEMAf//AWAAAAMAkAAAAwAAAwAelZgJ;sprop-sps=QgEBAWAAAAMAkAAAAwAAAwAeoBQgQf8=;"
    "sprop-pps=RAHBcrRiQA==;ssrc-3725323243-cname=user1234\r\n";

// The form of an offer of Janus' streaming plugin: audio and video with retransmission, everything on one port.
inline const char kSdpJanusOffer[] =
    "v=0\r\n"
    "o=- 1700000000000000 1 IN IP4 192.168.1.10\r\n"
    "s=Mountpoint 1\r\n"
    "t=0 0\r\n"
    "a=group:BUNDLE a v\r\n"
    "a=ice-options:trickle\r\n"
    "a=fingerprint:sha-256 "
    "D2:B9:31:8F:DF:24:D8:0E:ED:D2:EF:25:9E:AF:6F:B8:34:AE:53:9C:E6:F3:8F:F2:64:15:FA:E8:7F:53:2D:38\r\n"
    "a=extmap-allow-mixed\r\n"
    "a=msid-semantic: WMS *\r\n"
    "m=audio 9 UDP/TLS/RTP/SAVPF 111\r\n"
    "c=IN IP4 192.168.1.10\r\n"
    "a=sendonly\r\n"
    "a=mid:a\r\n"
    "a=rtcp-mux\r\n"
    "a=rtpmap:111 opus/48000/2\r\n"
    "a=ssrc:1111 cname:janus\r\n"
    "m=video 9 UDP/TLS/RTP/SAVPF 96 97\r\n"
    "c=IN IP4 192.168.1.10\r\n"
    "a=sendonly\r\n"
    "a=mid:v\r\n"
    "a=rtcp-mux\r\n"
    "a=ice-ufrag:ez5G\r\n"
    "a=ice-pwd:1F1qS++jzWLSQi0qQDZkX/\r\n"
    "a=setup:actpass\r\n"
    "a=rtpmap:96 H264/90000\r\n"
    "a=fmtp:96 profile-level-id=42e01f;packetization-mode=1\r\n"
    "a=rtcp-fb:96 nack\r\n"
    "a=rtcp-fb:96 nack pli\r\n"
    "a=rtcp-fb:96 ccm fir\r\n"
    "a=rtcp-fb:96 goog-remb\r\n"
    "a=extmap:4 urn:ietf:params:rtp-hdrext:sdes:mid\r\n"
    "a=rtpmap:97 rtx/90000\r\n"
    "a=fmtp:97 apt=96\r\n"
    "a=ssrc-group:FID 3726484021 1047203345\r\n"
    "a=msid:janus janusv\r\n"
    "a=ssrc:3726484021 cname:janus\r\n"
    "a=ssrc:1047203345 cname:janus\r\n"
    "a=candidate:1 1 udp 2015363327 192.168.1.10 37241 typ host\r\n"
    "a=end-of-candidates\r\n";

// A gateway's description of the plain RTP that it forwards from a browser.
inline const char kSdpBrowserForwarded[] =
    "v=0\r\n"
    "o=- 1 1 IN IP4 127.0.0.1\r\n"
    "s=browser\r\n"
    "c=IN IP4 127.0.0.1\r\n"
    "t=0 0\r\n"
    "m=video 5004 RTP/AVPF 96\r\n"
    "a=recvonly\r\n"
    "a=rtpmap:96 H264/90000\r\n"
    "a=fmtp:96 level-asymmetry-allowed=1;packetization-mode=1;profile-level-id=42e01f\r\n"
    "a=rtcp:5005 IN IP4 127.0.0.1\r\n"
    "a=rtcp-fb:96 ccm fir\r\n"
    "a=rtcp-fb:96 nack\r\n"
    "a=rtcp-fb:96 nack pli\r\n";

inline const char *const kSdpExamples[] = {kSdpFfmpegSrtp,    kSdpFfmpegH265, kSdpFfmpegVp8,       kSdpGstreamerH264,
                                           kSdpGstreamerH265, kSdpJanusOffer, kSdpBrowserForwarded};
