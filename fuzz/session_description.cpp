// Session descriptions: whatever the text, the records stay within their limits, and all that was read can be read again.

#include <cstring>
#include <memory>

#include "check.h"
#include "fuzz_input.h"
#include "sdp.h"

namespace
{

void check_address(const sdp_address &address)
{
    fuzz::check(memchr(address.text, 0, sizeof(address.text)) != nullptr, "an address ends");
}

void check_format(const sdp_session &session, const sdp_video &video, const sdp_format &format)
{
    fuzz::check(format.payload_type <= 127, "a payload type has seven bits");
    fuzz::check(format.apt <= 127 || format.apt == kSdpPayloadTypeNone, "so has what is retransmitted");
    fuzz::check(sdp_format_find(&video, format.payload_type) != nullptr, "a format is found by its payload type");
    const sdp_format *rtx = sdp_rtx_format_find(&video, format.payload_type);
    fuzz::check(rtx == nullptr || rtx->apt == format.payload_type, "retransmissions are of the payload type asked for");
    fuzz::check(format.n_parameter_sets <= kSdpParameterSetsMax, "parameter sets have their limit");
    for (size_t i = 0; i < format.n_parameter_sets; i++) {
        const sdp_span &span = format.parameter_sets[i];
        fuzz::check(span.size > 0 && size_t{span.offset} + span.size <= session.n_parameter_bytes,
                    "a parameter set lies among the bytes");
    }
}

void check_video(const sdp_session &session, const sdp_video &video)
{
    fuzz::check(video.n_formats <= kSdpFormatsMax && video.n_sources <= kSdpSourcesMax, "lists have their limits");
    fuzz::check(video.n_source_pairs <= kSdpSourcePairsMax && video.n_cryptos <= kSdpCryptosMax,
                "lists have their limits");
    check_address(video.address);
    check_address(video.rtcp_address);
    for (size_t i = 0; i < video.n_formats; i++) {
        check_format(session, video, video.formats[i]);
    }
    for (size_t i = 0; i < video.n_cryptos; i++) {
        const sdp_crypto &crypto = video.cryptos[i];
        fuzz::check(size_t{crypto.key_size} + crypto.salt_size <= kSdpKeySizeMax, "a key fits");
        fuzz::check(crypto.mki_size <= 128, "a key's identifier has its limit");
    }
    (void)sdp_rtcp_port(&video);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    const std::vector<uint8_t> text = input.rest(); // without a zero behind it
    const auto session = std::make_unique<sdp_session>();
    memset(session.get(), 0xA5, sizeof(*session));
    sdp_error error = {};
    const bool is_read = sdp_parse(reinterpret_cast<const char *>(text.data()), text.size(), session.get(), &error);
    fuzz::check(is_read || (error.line > 0 && error.what != nullptr && session->n_videos == 0),
                "a refusal has a reason");
    fuzz::check(session->n_videos <= kSdpVideosMax && session->n_parameter_bytes <= kSdpParameterBytesMax,
                "a session has its limits");
    for (size_t i = 0; i < session->n_videos; i++) {
        check_video(*session, session->videos[i]);
    }
    return 0;
}
