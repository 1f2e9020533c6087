// Session descriptions: keys.
#include "base64.h"
#include "sdp_attribute.h"

namespace
{

struct suite_description {
    const char *name;
    sdp_crypto_suite suite;
    uint8_t key_size;
    uint8_t salt_size;
};

const suite_description g_suites[] = {
    {"AES_CM_128_HMAC_SHA1_80", SDP_AES_CM_128_HMAC_SHA1_80, 16, 14},
    {"AES_CM_128_HMAC_SHA1_32", SDP_AES_CM_128_HMAC_SHA1_32, 16, 14},
    {"AEAD_AES_128_GCM", SDP_AEAD_AES_128_GCM, 16, 12},
    {"AEAD_AES_256_GCM", SDP_AEAD_AES_256_GCM, 32, 12},
};

constexpr uint64_t kLifetimeExponentMax = 48; // packets of an SRTP stream under one key (RFC 3711, 9.2)
constexpr uint64_t kMkiSizeMax = 128;         // bytes (RFC 4568, 6.1)
constexpr uint64_t kTagMax = 999999999;       // nine digits (RFC 4568, 9.1)

const suite_description *suite_find(sdp_text name)
{
    for (const suite_description &suite : g_suites) {
        if (sdp_text_is(name, suite.name)) {
            return &suite;
        }
    }
    return nullptr;
}

// "NUMBER" or "2^NUMBER".
bool lifetime_read(sdp_text text, uint64_t *lifetime)
{
    if (!sdp_text_has(text, '^')) {
        return sdp_text_number(text, uint64_t{1} << kLifetimeExponentMax, lifetime) && *lifetime > 0;
    }
    uint64_t exponent = 0;
    if (!sdp_text_is(sdp_text_cut(&text, '^'), "2") || !sdp_text_number(text, kLifetimeExponentMax, &exponent)) {
        return false;
    }
    *lifetime = uint64_t{1} << exponent;
    return true;
}

// "VALUE:SIZE".
bool mki_read(sdp_text text, sdp_crypto *crypto)
{
    const sdp_text value = sdp_text_cut(&text, ':');
    uint64_t size = 0;
    if (!sdp_text_number32(value, &crypto->mki) || !sdp_text_number(text, kMkiSizeMax, &size) || size == 0) {
        return false;
    }
    crypto->mki_size = static_cast<uint8_t>(size);
    return size >= sizeof(crypto->mki) || crypto->mki >> (8 * size) == 0;
}

// "KEY", "KEY|LIFETIME", "KEY|MKI" or "KEY|LIFETIME|MKI".
const char *key_read(sdp_text text, sdp_crypto *crypto)
{
    const sdp_text key = sdp_text_cut(&text, '|');
    size_t size = 0;
    const base64_result result = base64_decode(key.data, key.size, crypto->key, sizeof(crypto->key), &size);
    if (result == BASE64_BAD) {
        return "the key of a=crypto is not base64";
    }
    if (result == BASE64_NO_ROOM || size != size_t{crypto->key_size} + crypto->salt_size) {
        return "the key of a=crypto has not the length that its suite wants";
    }
    sdp_text next = sdp_text_cut(&text, '|');
    if (next.size > 0 && !sdp_text_has(next, ':')) {
        if (!lifetime_read(next, &crypto->lifetime)) {
            return "the lifetime in a=crypto is not a number of packets up to 2^48";
        }
        next = sdp_text_cut(&text, '|');
    }
    if (next.size > 0 && !mki_read(next, crypto)) {
        return "the master key identifier in a=crypto is not a number and its size in bytes";
    }
    return text.size == 0 ? nullptr : "a=crypto has more behind its key than lifetime and identifier";
}

// A hint or one that is marked as not to be minded may be passed over; any other changes what is on the wire.
bool session_parameters_can_be_ignored(sdp_text rest)
{
    for (sdp_text word = sdp_text_word(&rest); word.size > 0; word = sdp_text_word(&rest)) {
        if (word.data[0] != '-' && !sdp_text_is(sdp_text_cut(&word, '='), "WSH")) {
            return false;
        }
    }
    return true;
}

bool has_tag(const sdp_video *video, uint32_t tag)
{
    for (size_t i = 0; i < video->n_cryptos; i++) {
        if (video->cryptos[i].tag == tag) {
            return true;
        }
    }
    return false;
}

} // namespace

const char *sdp_crypto_read(sdp_video *video, sdp_text value)
{
    uint64_t tag = 0;
    if (!sdp_text_number(sdp_text_word(&value), kTagMax, &tag)) {
        return "a=crypto does not begin with a tag";
    }
    const suite_description *suite = suite_find(sdp_text_word(&value));
    if (suite == nullptr) {
        return nullptr;
    }
    sdp_text keys = sdp_text_word(&value);
    if (!sdp_text_is(sdp_text_cut(&keys, ':'), "inline")) {
        return "a=crypto has no inline key";
    }
    if (sdp_text_has(keys, ';')) {
        return "a=crypto has more than one key";
    }
    sdp_crypto crypto = {};
    crypto.tag = static_cast<uint32_t>(tag);
    crypto.suite = suite->suite;
    crypto.key_size = suite->key_size;
    crypto.salt_size = suite->salt_size;
    const char *wrong = key_read(keys, &crypto);
    if (wrong != nullptr) {
        return wrong;
    }
    if (!session_parameters_can_be_ignored(value)) {
        return "a=crypto has a session parameter that is not supported";
    }
    if (has_tag(video, crypto.tag)) {
        return "a second a=crypto with this tag";
    }
    if (video->n_cryptos == kSdpCryptosMax) {
        return "more a=crypto lines than a section may have here";
    }
    video->cryptos[video->n_cryptos++] = crypto;
    return nullptr;
}
