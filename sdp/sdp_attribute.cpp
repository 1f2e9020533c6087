// Session descriptions: attributes of a section, and addresses.
#include "sdp_attribute.h"

#include <cstring>

#include "base64.h"

namespace
{

// The format of a payload type, to be changed; null when the section does not list it.
sdp_format *format_of(sdp_video *video, uint8_t payload_type)
{
    const sdp_format *format = sdp_format_find(video, payload_type);
    return format != nullptr ? &video->formats[format - video->formats] : nullptr;
}

// ---- Formats -----------------------------------------------------------------------------------------------------

sdp_codec codec_of(sdp_text encoding)
{
    static const struct {
        const char *name;
        sdp_codec codec;
    } codecs[] = {{"H264", SDP_CODEC_H264}, {"H265", SDP_CODEC_H265}, {"VP8", SDP_CODEC_VP8}, {"rtx", SDP_CODEC_RTX}};
    for (const auto &each : codecs) {
        if (sdp_text_is(encoding, each.name)) {
            return each.codec;
        }
    }
    return SDP_CODEC_OTHER;
}

// "96 H264/90000". A payload type that the m= line does not list says nothing, here and below.
const char *rtpmap_read(sdp_session *, sdp_video *video, sdp_text value)
{
    uint8_t payload_type = 0;
    if (!sdp_text_payload_type(sdp_text_word(&value), &payload_type)) {
        return "a=rtpmap does not begin with a payload type";
    }
    sdp_text description = sdp_text_word(&value);
    const sdp_text encoding = sdp_text_cut(&description, '/');
    uint32_t clock_rate = 0;
    if (encoding.size == 0 || !sdp_text_number32(sdp_text_cut(&description, '/'), &clock_rate) || clock_rate == 0) {
        return "a=rtpmap has no encoding name and clock rate";
    }
    sdp_format *format = format_of(video, payload_type);
    if (format == nullptr) {
        return nullptr;
    }
    if (format->clock_rate != 0) {
        return "a second a=rtpmap for this payload type";
    }
    format->codec = codec_of(encoding);
    format->clock_rate = clock_rate;
    return nullptr;
}

const char *parameter_set_add(sdp_session *session, sdp_format *format, sdp_text base64)
{
    if (format->n_parameter_sets == kSdpParameterSetsMax) {
        return "more parameter sets than a payload type may have here";
    }
    const size_t offset = session->n_parameter_bytes;
    size_t size = 0;
    switch (base64_decode(base64.data, base64.size, session->parameter_bytes + offset, kSdpParameterBytesMax - offset,
                          &size)) {
    case BASE64_BAD:
        return "a parameter set is not base64";
    case BASE64_NO_ROOM:
        return "parameter sets that are longer than all may be here";
    case BASE64_DECODED:
        break;
    }
    static_assert(kSdpParameterBytesMax <= UINT16_MAX, "a span has 16 bits");
    format->parameter_sets[format->n_parameter_sets++] = {static_cast<uint16_t>(offset), static_cast<uint16_t>(size)};
    session->n_parameter_bytes += size;
    return nullptr;
}

// Sets separated by commas. Cameras are known to leave one empty.
const char *parameter_sets_read(sdp_session *session, sdp_format *format, sdp_text value)
{
    while (value.size > 0) {
        const sdp_text base64 = sdp_text_trim(sdp_text_cut(&value, ','));
        const char *wrong = base64.size > 0 ? parameter_set_add(session, format, base64) : nullptr;
        if (wrong != nullptr) {
            return wrong;
        }
    }
    return nullptr;
}

const char *packetization_mode_read(sdp_session *, sdp_format *format, sdp_text value)
{
    uint64_t mode = 0;
    if (!sdp_text_number(value, 2, &mode)) {
        return "packetization-mode is not 0, 1 or 2";
    }
    format->packetization_mode = static_cast<uint8_t>(mode);
    return nullptr;
}

const char *apt_read(sdp_session *, sdp_format *format, sdp_text value)
{
    return sdp_text_payload_type(value, &format->apt) ? nullptr : "apt is not a payload type";
}

const char *rtx_time_read(sdp_session *, sdp_format *format, sdp_text value)
{
    return sdp_text_number32(value, &format->rtx_time) ? nullptr : "rtx-time is not a number of milliseconds";
}

// Finds "NAME=VALUE" among the parameters between semicolons.
bool parameter_find(sdp_text parameters, const char *name, sdp_text *value)
{
    while (parameters.size > 0) {
        sdp_text parameter = sdp_text_cut(&parameters, ';');
        if (sdp_text_is(sdp_text_trim(sdp_text_cut(&parameter, '=')), name)) {
            *value = sdp_text_trim(parameter);
            return true;
        }
    }
    return false;
}

// "96 NAME=VALUE;NAME=VALUE".
const char *fmtp_read(sdp_session *session, sdp_video *video, sdp_text value)
{
    // A decoder wants VPS, SPS and PPS in this order, whatever the writer's is.
    static const struct {
        const char *name;
        const char *(*read)(sdp_session *session, sdp_format *format, sdp_text value);
    } parameters[] = {
        {"packetization-mode", packetization_mode_read},
        {"sprop-parameter-sets", parameter_sets_read},
        {"sprop-vps", parameter_sets_read},
        {"sprop-sps", parameter_sets_read},
        {"sprop-pps", parameter_sets_read},
        {"apt", apt_read},
        {"rtx-time", rtx_time_read},
    };
    uint8_t payload_type = 0;
    if (!sdp_text_payload_type(sdp_text_word(&value), &payload_type)) {
        return "a=fmtp does not begin with a payload type";
    }
    sdp_format *format = format_of(video, payload_type);
    if (format == nullptr) {
        return nullptr;
    }
    for (const auto &each : parameters) {
        sdp_text text = {};
        const char *wrong = parameter_find(value, each.name, &text) ? each.read(session, format, text) : nullptr;
        if (wrong != nullptr) {
            return wrong;
        }
    }
    return nullptr;
}

// ---- Feedback ----------------------------------------------------------------------------------------------------

uint8_t feedback_of(sdp_text value)
{
    static const struct {
        const char *type;
        const char *parameter;
        sdp_feedback bit;
    } kinds[] = {{"nack", "", SDP_FEEDBACK_NACK},
                 {"nack", "pli", SDP_FEEDBACK_NACK_PLI},
                 {"ccm", "fir", SDP_FEEDBACK_CCM_FIR},
                 {"goog-remb", "", SDP_FEEDBACK_GOOG_REMB},
                 {"transport-cc", "", SDP_FEEDBACK_TRANSPORT_CC}};
    const sdp_text type = sdp_text_word(&value);
    const sdp_text parameter = sdp_text_word(&value);
    for (const auto &each : kinds) {
        if (sdp_text_is(type, each.type) && sdp_text_is(parameter, each.parameter)) {
            return each.bit;
        }
    }
    return 0;
}

// "96 nack pli" or "* nack pli".
const char *rtcp_fb_read(sdp_session *, sdp_video *video, sdp_text value)
{
    const sdp_text whom = sdp_text_word(&value);
    const bool is_for_all = sdp_text_is(whom, "*");
    uint8_t payload_type = 0;
    if (!is_for_all && !sdp_text_payload_type(whom, &payload_type)) {
        return "a=rtcp-fb begins neither with a payload type nor with *";
    }
    for (size_t i = 0; i < video->n_formats; i++) {
        sdp_format *format = &video->formats[i];
        if (is_for_all || format->payload_type == payload_type) {
            format->feedback = static_cast<uint8_t>(format->feedback | feedback_of(value));
        }
    }
    return nullptr;
}

// ---- RTCP transport ----------------------------------------------------------------------------------------------

// "5005" or "5005 IN IP4 ADDRESS".
const char *rtcp_read(sdp_session *, sdp_video *video, sdp_text value)
{
    if (!sdp_text_number16(sdp_text_word(&value), &video->rtcp_port)) {
        return "a=rtcp does not begin with a port";
    }
    video->has_rtcp = true;
    if (sdp_text_trim(value).size > 0 && !sdp_address_read(value, &video->rtcp_address)) {
        return "a=rtcp has something behind its port that is not IN, IP4 or IP6, and an address";
    }
    return nullptr;
}

const char *rtcp_mux_read(sdp_session *, sdp_video *video, sdp_text)
{
    video->rtcp_mux = true;
    return nullptr;
}

const char *rtcp_rsize_read(sdp_session *, sdp_video *video, sdp_text)
{
    video->rtcp_rsize = true;
    return nullptr;
}

// ---- Sources -----------------------------------------------------------------------------------------------------

bool has_source(const sdp_video *video, uint32_t ssrc)
{
    for (size_t i = 0; i < video->n_sources; i++) {
        if (video->sources[i] == ssrc) {
            return true;
        }
    }
    return false;
}

// "1234 cname:someone": a line for each thing that is said about a source.
const char *ssrc_read(sdp_session *, sdp_video *video, sdp_text value)
{
    uint32_t ssrc = 0;
    if (!sdp_text_number32(sdp_text_word(&value), &ssrc)) {
        return "a=ssrc does not begin with a number of 32 bits";
    }
    if (has_source(video, ssrc)) {
        return nullptr;
    }
    if (video->n_sources == kSdpSourcesMax) {
        return "more sources than a section may have here";
    }
    video->sources[video->n_sources++] = ssrc;
    return nullptr;
}

// "FID 1234 5678". Other groups are passed over.
const char *ssrc_group_read(sdp_session *, sdp_video *video, sdp_text value)
{
    if (!sdp_text_is(sdp_text_word(&value), "FID")) {
        return nullptr;
    }
    sdp_source_pair pair = {};
    const bool is_pair = sdp_text_number32(sdp_text_word(&value), &pair.ssrc) &&
                         sdp_text_number32(sdp_text_word(&value), &pair.rtx_ssrc) && sdp_text_trim(value).size == 0;
    if (!is_pair) {
        return "a=ssrc-group:FID does not name two sources";
    }
    if (video->n_source_pairs == kSdpSourcePairsMax) {
        return "more a=ssrc-group:FID lines than a section may have here";
    }
    video->source_pairs[video->n_source_pairs++] = pair;
    return nullptr;
}

// ---- All of them -------------------------------------------------------------------------------------------------

const char *crypto_read(sdp_session *, sdp_video *video, sdp_text value)
{
    return sdp_crypto_read(video, value);
}

} // namespace

bool sdp_direction_read(sdp_text attribute, sdp_direction *direction)
{
    static const struct {
        const char *name;
        sdp_direction direction;
    } directions[] = {
        {"sendrecv", SDP_SENDRECV}, {"sendonly", SDP_SENDONLY}, {"recvonly", SDP_RECVONLY}, {"inactive", SDP_INACTIVE}};
    for (const auto &each : directions) {
        if (sdp_text_is(attribute, each.name)) {
            *direction = each.direction;
            return true;
        }
    }
    return false;
}

bool sdp_address_read(sdp_text value, sdp_address *address)
{
    if (!sdp_text_is(sdp_text_word(&value), "IN")) {
        return false;
    }
    const sdp_text type = sdp_text_word(&value);
    const bool is_ip6 = sdp_text_is(type, "IP6");
    if (!is_ip6 && !sdp_text_is(type, "IP4")) {
        return false;
    }
    sdp_text numbers = sdp_text_word(&value);
    const sdp_text text = sdp_text_cut(&numbers, '/');
    if (text.size == 0 || text.size > kSdpAddressSizeMax || sdp_text_trim(value).size > 0) {
        return false;
    }
    while (numbers.size > 0) {
        uint32_t number = 0;
        if (!sdp_text_number32(sdp_text_cut(&numbers, '/'), &number)) {
            return false;
        }
    }
    *address = {};
    address->is_ip6 = is_ip6;
    memcpy(address->text, text.data, text.size);
    return true;
}

const char *sdp_attribute_read(sdp_session *session, sdp_video *video, sdp_text attribute)
{
    static const struct {
        const char *name;
        const char *(*read)(sdp_session *session, sdp_video *video, sdp_text value);
    } attributes[] = {
        {"rtpmap", rtpmap_read},     {"fmtp", fmtp_read},
        {"rtcp-fb", rtcp_fb_read},   {"rtcp", rtcp_read},
        {"rtcp-mux", rtcp_mux_read}, {"rtcp-rsize", rtcp_rsize_read},
        {"ssrc", ssrc_read},         {"ssrc-group", ssrc_group_read},
        {"crypto", crypto_read},
    };
    if (sdp_direction_read(attribute, &video->direction)) {
        return nullptr;
    }
    const sdp_text name = sdp_text_cut(&attribute, ':');
    for (const auto &each : attributes) {
        if (sdp_text_is(name, each.name)) {
            return each.read(session, video, attribute);
        }
    }
    return nullptr;
}
