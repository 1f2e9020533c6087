#include "base64.h"

constexpr uint32_t kNoDigit = 64;
constexpr size_t kGroupDigits = 4; // stand for three bytes

static uint32_t __digit_value(char digit)
{
    if (digit >= 'A' && digit <= 'Z') {
        return static_cast<uint32_t>(digit - 'A');
    }
    if (digit >= 'a' && digit <= 'z') {
        return static_cast<uint32_t>(digit - 'a') + 26;
    }
    if (digit >= '0' && digit <= '9') {
        return static_cast<uint32_t>(digit - '0') + 52;
    }
    if (digit == '+') {
        return 62;
    }
    return digit == '/' ? 63 : kNoDigit;
}

// Characters in front of the padding. False when no number of bytes is written with so many.
static bool __digits_count(const char *text, size_t size, size_t *n_digits)
{
    size_t n = size;
    // Two "=" at most, and none unless the groups are whole with them.
    if (size % kGroupDigits == 0) {
        while (n > 0 && size - n < 2 && text[n - 1] == '=') {
            n--;
        }
    }
    *n_digits = n;
    return n % kGroupDigits != 1;
}

base64_result base64_decode(const char *text, size_t size, uint8_t *bytes, size_t capacity, size_t *n_bytes)
{
    *n_bytes = 0;
    size_t n_digits = 0;
    if (!__digits_count(text, size, &n_digits)) {
        return BASE64_BAD;
    }
    uint32_t bits = 0;
    unsigned n_bits = 0; // of `bits`, not written yet; below 8 between the digits
    size_t at = 0;
    for (size_t i = 0; i < n_digits; i++) {
        const uint32_t value = __digit_value(text[i]);
        if (value == kNoDigit) {
            return BASE64_BAD;
        }
        bits = (bits << 6 | value) & 0xFFFF;
        n_bits += 6;
        if (n_bits < 8) {
            continue;
        }
        if (at == capacity) {
            return BASE64_NO_ROOM;
        }
        n_bits -= 8;
        bytes[at++] = static_cast<uint8_t>(bits >> n_bits);
    }
    if ((bits & ((1U << n_bits) - 1)) != 0) {
        return BASE64_BAD;
    }
    *n_bytes = at;
    return BASE64_DECODED;
}
