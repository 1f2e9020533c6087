// Session descriptions: lines and sections.
#include "sdp.h"

#include <cstring>

#include "sdp_attribute.h"
#include "sdp_text.h"

namespace
{

// What is known where the next line begins.
struct sdp_reader {
    sdp_session *session;
    uint32_t line;
    bool has_version;
    bool has_media;       // some section, of whatever media, has begun
    sdp_video *video;     // the section that the lines belong to; null for the session and for other media
    bool has_own_address; // this section's, or the session's before the first section
    sdp_address address;  // the session's; empty when it has none
    sdp_direction direction;
};

bool address_is_empty(const sdp_address *address)
{
    return address->text[0] == '\0';
}

// ---- m= ----------------------------------------------------------------------------------------------------------

bool profile_read(sdp_text text, sdp_profile *profile)
{
    static const struct {
        const char *name;
        sdp_profile profile;
    } profiles[] = {{"RTP/AVP", SDP_PROFILE_AVP},
                    {"RTP/AVPF", SDP_PROFILE_AVPF},
                    {"RTP/SAVP", SDP_PROFILE_SAVP},
                    {"RTP/SAVPF", SDP_PROFILE_SAVPF},
                    {"UDP/TLS/RTP/SAVP", SDP_PROFILE_DTLS_SAVP},
                    {"UDP/TLS/RTP/SAVPF", SDP_PROFILE_DTLS_SAVPF}};
    for (const auto &each : profiles) {
        if (sdp_text_is(text, each.name)) {
            *profile = each.profile;
            return true;
        }
    }
    return false;
}

// "5004" or "5004/2".
bool ports_read(sdp_text text, sdp_video *video)
{
    const sdp_text port = sdp_text_cut(&text, '/');
    video->n_ports = 1;
    return sdp_text_number16(port, &video->port) &&
           (text.size == 0 || (sdp_text_number16(text, &video->n_ports) && video->n_ports > 0));
}

const char *formats_read(sdp_text list, sdp_video *video)
{
    for (sdp_text word = sdp_text_word(&list); word.size > 0; word = sdp_text_word(&list)) {
        sdp_format format = {};
        format.apt = kSdpPayloadTypeNone;
        if (!sdp_text_payload_type(word, &format.payload_type)) {
            return "m= lists something that is not a payload type";
        }
        if (sdp_format_find(video, format.payload_type) != nullptr) {
            return "m= lists a payload type twice";
        }
        if (video->n_formats == kSdpFormatsMax) {
            return "m= lists more payload types than a section may have here";
        }
        video->formats[video->n_formats++] = format;
    }
    return video->n_formats > 0 ? nullptr : "m= lists no payload type";
}

// "5004 RTP/AVP 96 97", behind "video".
const char *video_begin(sdp_reader *reader, sdp_text value)
{
    sdp_session *session = reader->session;
    if (session->n_videos == kSdpVideosMax) {
        return "more m=video sections than a description may have here";
    }
    sdp_video *video = &session->videos[session->n_videos++];
    video->line = reader->line;
    video->direction = reader->direction;
    video->address = reader->address;
    reader->video = video;
    if (!ports_read(sdp_text_word(&value), video)) {
        return "m= has no port";
    }
    if (!profile_read(sdp_text_word(&value), &video->profile)) {
        return "m= has a transport that is not RTP over UDP";
    }
    return formats_read(value, video);
}

// The section whose lines are all read must have an address, its own or the session's.
const char *section_end(sdp_reader *reader)
{
    const sdp_video *video = reader->video;
    if (video != nullptr && address_is_empty(&video->address)) {
        reader->line = video->line;
        return "no c= line for this m=";
    }
    return nullptr;
}

const char *media_read(sdp_reader *reader, sdp_text value)
{
    const char *wrong = section_end(reader);
    if (wrong != nullptr) {
        return wrong;
    }
    reader->video = nullptr;
    reader->has_media = true;
    reader->has_own_address = false;
    return sdp_text_is(sdp_text_word(&value), "video") ? video_begin(reader, value) : nullptr;
}

// ---- Other lines -------------------------------------------------------------------------------------------------

bool is_in_other_media(const sdp_reader *reader)
{
    return reader->has_media && reader->video == nullptr;
}

const char *connection_read(sdp_reader *reader, sdp_text value)
{
    // Several of them would be the layers of one stream on addresses of their own.
    if (reader->has_own_address) {
        return "a second c= line";
    }
    reader->has_own_address = true;
    sdp_address *address = reader->video != nullptr ? &reader->video->address : &reader->address;
    return sdp_address_read(value, address) ? nullptr : "c= is not IN, IP4 or IP6, and an address";
}

const char *attribute_read(sdp_reader *reader, sdp_text value)
{
    if (reader->video != nullptr) {
        return sdp_attribute_read(reader->session, reader->video, value);
    }
    sdp_direction_read(value, &reader->direction);
    return nullptr;
}

const char *version_read(sdp_reader *reader, sdp_text value)
{
    if (reader->has_version) {
        return "a second v= line";
    }
    reader->has_version = true;
    return sdp_text_is(value, "0") ? nullptr : "v= is not 0";
}

// "x=..."; order and presence of the lines that say nothing to a receiver are not checked.
const char *line_read(sdp_reader *reader, sdp_text line)
{
    if (line.size < 2 || line.data[1] != '=' || line.data[0] < 'a' || line.data[0] > 'z') {
        return "not a line of the form x=...";
    }
    const char type = line.data[0];
    const sdp_text value = {line.data + 2, line.size - 2};
    if (!reader->has_version && type != 'v') {
        return "the description does not begin with v=0";
    }
    if (is_in_other_media(reader) && type != 'm' && type != 'v') {
        return nullptr;
    }
    switch (type) {
    case 'v':
        return version_read(reader, value);
    case 'm':
        return media_read(reader, value);
    case 'c':
        return connection_read(reader, value);
    case 'a':
        return attribute_read(reader, value);
    default:
        return nullptr;
    }
}

// A program that prints a description may announce it first.
bool is_announcement(const sdp_reader *reader, sdp_text line)
{
    return reader->line == 1 && sdp_text_is(line, "SDP:");
}

sdp_text line_cut(sdp_text *rest)
{
    sdp_text line = sdp_text_cut(rest, '\n');
    if (line.size > 0 && line.data[line.size - 1] == '\r') {
        line.size--;
    }
    return line;
}

const char *lines_read(sdp_reader *reader, sdp_text rest)
{
    while (rest.size > 0) {
        const sdp_text line = line_cut(&rest);
        reader->line++;
        if (sdp_text_has(line, '\0') || sdp_text_has(line, '\r')) {
            return "a zero or a carriage return within the line";
        }
        const sdp_text trimmed = sdp_text_trim(line);
        if (trimmed.size == 0 || is_announcement(reader, trimmed)) {
            continue;
        }
        const char *wrong = line_read(reader, trimmed);
        if (wrong != nullptr) {
            return wrong;
        }
    }
    return reader->has_version ? section_end(reader) : "the description does not begin with v=0";
}

} // namespace

bool sdp_parse(const char *text, size_t size, sdp_session *session, sdp_error *error)
{
    memset(session, 0, sizeof(*session));
    *error = {};
    sdp_reader reader = {};
    reader.session = session;
    const char *wrong = lines_read(&reader, {text, size});
    if (wrong == nullptr) {
        return true;
    }
    *error = {reader.line > 0 ? reader.line : 1, wrong};
    memset(session, 0, sizeof(*session));
    return false;
}

// ---- Lookups -----------------------------------------------------------------------------------------------------

const sdp_format *sdp_format_find(const sdp_video *video, uint8_t payload_type)
{
    for (size_t i = 0; i < video->n_formats; i++) {
        if (video->formats[i].payload_type == payload_type) {
            return &video->formats[i];
        }
    }
    return nullptr;
}

const sdp_format *sdp_rtx_format_find(const sdp_video *video, uint8_t payload_type)
{
    for (size_t i = 0; i < video->n_formats; i++) {
        const sdp_format *format = &video->formats[i];
        if (format->codec == SDP_CODEC_RTX && format->apt == payload_type) {
            return format;
        }
    }
    return nullptr;
}

uint16_t sdp_rtcp_port(const sdp_video *video)
{
    if (video->rtcp_mux) {
        return video->port;
    }
    if (video->has_rtcp) {
        return video->rtcp_port;
    }
    return video->port == 0 || video->port == UINT16_MAX ? uint16_t{0} : static_cast<uint16_t>(video->port + 1);
}
