// Pieces of a session description's text.
#pragma once

#include <cstddef>
#include <cstdint>

// Characters that someone else owns.
struct sdp_text {
    const char *data;
    size_t size;
};

inline char sdp_char_lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Upper and lower case of ASCII letters are the same.
inline bool sdp_text_is(sdp_text text, const char *word)
{
    size_t at = 0;
    while (at < text.size && word[at] != '\0' && sdp_char_lower(text.data[at]) == sdp_char_lower(word[at])) {
        at++;
    }
    return at == text.size && word[at] == '\0';
}

inline bool sdp_text_has(sdp_text text, char c)
{
    for (size_t i = 0; i < text.size; i++) {
        if (text.data[i] == c) {
            return true;
        }
    }
    return false;
}

// Takes what stands in front of the first `separator` off `rest`, and the separator with it; all when there is none.
inline sdp_text sdp_text_cut(sdp_text *rest, char separator)
{
    size_t at = 0;
    while (at < rest->size && rest->data[at] != separator) {
        at++;
    }
    const sdp_text piece = {rest->data, at};
    const size_t taken = at < rest->size ? at + 1 : at;
    *rest = {rest->data + taken, rest->size - taken};
    return piece;
}

// Without blanks at both ends.
inline sdp_text sdp_text_trim(sdp_text text)
{
    while (text.size > 0 && text.data[0] == ' ') {
        text = {text.data + 1, text.size - 1};
    }
    while (text.size > 0 && text.data[text.size - 1] == ' ') {
        text.size--;
    }
    return text;
}

// Takes the next word off `rest`; empty when there is none.
inline sdp_text sdp_text_word(sdp_text *rest)
{
    *rest = sdp_text_trim(*rest);
    return sdp_text_cut(rest, ' ');
}

// A decimal number without a sign, at most `max`. False when it is none.
inline bool sdp_text_number(sdp_text text, uint64_t max, uint64_t *value)
{
    uint64_t number = 0;
    for (size_t i = 0; i < text.size; i++) {
        const char c = text.data[i];
        if (c < '0' || c > '9') {
            return false;
        }
        const auto digit = static_cast<uint64_t>(c - '0');
        if (number > (max - digit) / 10 || digit > max) {
            return false;
        }
        number = number * 10 + digit;
    }
    *value = number;
    return text.size > 0;
}

inline bool sdp_text_number32(sdp_text text, uint32_t *value)
{
    uint64_t number = 0;
    if (!sdp_text_number(text, UINT32_MAX, &number)) {
        return false;
    }
    *value = static_cast<uint32_t>(number);
    return true;
}

inline bool sdp_text_number16(sdp_text text, uint16_t *value)
{
    uint64_t number = 0;
    if (!sdp_text_number(text, UINT16_MAX, &number)) {
        return false;
    }
    *value = static_cast<uint16_t>(number);
    return true;
}

inline bool sdp_text_payload_type(sdp_text text, uint8_t *value)
{
    uint64_t number = 0;
    if (!sdp_text_number(text, 127, &number)) {
        return false;
    }
    *value = static_cast<uint8_t>(number);
    return true;
}
