// Base64 (RFC 4648, 4).
#pragma once

#include <cstddef>
#include <cstdint>

enum base64_result : uint8_t {
    BASE64_DECODED,
    BASE64_BAD,    // another character, an impossible length, or bits left over that are not 0
    BASE64_NO_ROOM // more bytes than `capacity`
};

// Decodes `size` characters into `bytes`, and their number into `*n_bytes` (0 unless the result is BASE64_DECODED).
// The "=" at the end may be there or, as some senders write it, all missing. No characters are no bytes.
base64_result base64_decode(const char *text, size_t size, uint8_t *bytes, size_t capacity, size_t *n_bytes);
