// Session descriptions (RFC 8866): what a receiver of video has to know before the first packet comes.
//
// Sections of other media, and lines and attributes that say nothing about receiving video, are passed over. Text
// that is kept is copied, so a description may be dropped once it is read.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr size_t kSdpVideosMax = 4;            // m=video sections
constexpr size_t kSdpFormatsMax = 32;          // payload types of a section: browsers offer about 30
constexpr size_t kSdpParameterSetsMax = 8;     // of a payload type
constexpr size_t kSdpParameterBytesMax = 1024; // of all parameter sets together
constexpr size_t kSdpSourcesMax = 16;          // SSRCs of a section
constexpr size_t kSdpSourcePairsMax = 8;       // FID groups of a section
constexpr size_t kSdpCryptosMax = 4;           // a=crypto of a section in a suite that is known
constexpr size_t kSdpAddressSizeMax = 63;      // characters
constexpr size_t kSdpKeySizeMax = 44;          // master key and salt of the longest suite, bytes

constexpr uint8_t kSdpPayloadTypeNone = 0xFF;

enum sdp_codec : uint8_t {
    SDP_CODEC_OTHER, // not read here, or without an a=rtpmap
    SDP_CODEC_H264,
    SDP_CODEC_H265,
    SDP_CODEC_VP8,
    SDP_CODEC_RTX // retransmission (RFC 4588)
};

// What an m= line says about the transport (RFC 3551, 4585, 3711, 5124, 5764).
enum sdp_profile : uint8_t {
    SDP_PROFILE_AVP,
    SDP_PROFILE_AVPF,
    SDP_PROFILE_SAVP,
    SDP_PROFILE_SAVPF,
    SDP_PROFILE_DTLS_SAVP,
    SDP_PROFILE_DTLS_SAVPF
};

// As the writer of the description sees it.
enum sdp_direction : uint8_t {
    SDP_SENDRECV,
    SDP_SENDONLY,
    SDP_RECVONLY,
    SDP_INACTIVE
};

// Feedback that may be sent for a payload type (a=rtcp-fb; RFC 4585, 5104): bits.
enum sdp_feedback : uint8_t {
    SDP_FEEDBACK_NACK = 1,
    SDP_FEEDBACK_NACK_PLI = 2,
    SDP_FEEDBACK_CCM_FIR = 4,
    SDP_FEEDBACK_GOOG_REMB = 8,
    SDP_FEEDBACK_TRANSPORT_CC = 16
};

enum sdp_crypto_suite : uint8_t {
    SDP_AES_CM_128_HMAC_SHA1_80,
    SDP_AES_CM_128_HMAC_SHA1_32,
    SDP_AEAD_AES_128_GCM,
    SDP_AEAD_AES_256_GCM
};

// A key for SRTP (RFC 4568, 6; RFC 7714, 14).
struct sdp_crypto {
    uint32_t tag;
    sdp_crypto_suite suite;
    uint8_t key_size;            // master key, bytes: 16 or 32
    uint8_t salt_size;           // behind it: 14 or 12
    uint8_t key[kSdpKeySizeMax]; // master key, then salt
    uint64_t lifetime;           // packets that may be sent with it; 0: nothing is said
    uint32_t mki;                // master key identifier
    uint8_t mki_size;            // its bytes in each packet, 1 to 128; 0: there is none
};

// A NAL unit in the session's `parameter_bytes`.
struct sdp_span {
    uint16_t offset;
    uint16_t size;
};

// A payload type of an m= line.
struct sdp_format {
    uint8_t payload_type; // 0 to 127
    sdp_codec codec;
    uint8_t packetization_mode; // H.264 (RFC 6184, 8.1): 0 to 2; 0 when nothing is said
    uint8_t feedback;           // sdp_feedback bits
    uint8_t apt;                // RTX: payload type of what is retransmitted; kSdpPayloadTypeNone otherwise
    uint32_t clock_rate;        // Hz; 0 without an a=rtpmap
    uint32_t rtx_time;          // RTX: how long the sender keeps packets, ms; 0 when nothing is said
    // From sprop-parameter-sets (RFC 6184, 8.1) or sprop-vps, sprop-sps, sprop-pps (RFC 7798, 7.1), in this order.
    uint8_t n_parameter_sets;
    sdp_span parameter_sets[kSdpParameterSetsMax];
};

struct sdp_address {
    bool is_ip6;                       // as its type says
    char text[kSdpAddressSizeMax + 1]; // ends with a zero; an address or a host name, not looked into
};

// A stream and its retransmissions (a=ssrc-group:FID; RFC 5576).
struct sdp_source_pair {
    uint32_t ssrc;
    uint32_t rtx_ssrc;
};

// An m=video section.
struct sdp_video {
    uint32_t line; // of its m=
    uint16_t port; // where RTP goes; 0: the section is refused or switched off
    uint16_t n_ports;
    sdp_profile profile;
    sdp_direction direction; // the session's when the section has none
    sdp_address address;     // the session's when the section has none
    // Where RTCP goes when the description says it (RFC 3605); sdp_rtcp_port knows the rule for when it does not.
    bool has_rtcp;
    uint16_t rtcp_port;
    sdp_address rtcp_address; // empty when only the port is given
    bool rtcp_mux;            // RTCP comes to the port of RTP (RFC 5761)
    bool rtcp_rsize;          // reduced-size RTCP may be sent (RFC 5506)
    size_t n_formats;
    sdp_format formats[kSdpFormatsMax]; // in the order of the m= line, the preferred one first
    size_t n_sources;
    uint32_t sources[kSdpSourcesMax]; // from a=ssrc
    size_t n_source_pairs;
    sdp_source_pair source_pairs[kSdpSourcePairsMax];
    size_t n_cryptos;
    sdp_crypto cryptos[kSdpCryptosMax]; // in order of preference
};

// A whole description: about 10 KB, too much for a small task's stack.
struct sdp_session {
    size_t n_videos;
    sdp_video videos[kSdpVideosMax];
    size_t n_parameter_bytes;
    uint8_t parameter_bytes[kSdpParameterBytesMax];
};

struct sdp_error {
    uint32_t line;    // from 1
    const char *what; // in English, without a full stop; lives as long as the program
};

// Reads a description of `size` characters; no zero is needed behind it. Lines end with CR LF or LF; blank lines
// and a first line "SDP:" are passed over. Returns false, with the first fault in `error` and an empty session, when a line
// that matters cannot be understood or holds more than the records above. A description without video is fine.
bool sdp_parse(const char *text, size_t size, sdp_session *session, sdp_error *error);

// The format of a payload type; null when the section does not list it.
const sdp_format *sdp_format_find(const sdp_video *video, uint8_t payload_type);

// The format that retransmits a payload type; null when there is none.
const sdp_format *sdp_rtx_format_find(const sdp_video *video, uint8_t payload_type);

// Where RTCP goes: with RTP when they share a port, where a=rtcp says, or one above (RFC 3550, 11). 0: nowhere.
uint16_t sdp_rtcp_port(const sdp_video *video);
