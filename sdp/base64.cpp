#include "base64.h"

#include <sodium.h>

#include <algorithm>
#include <vector>

namespace
{

// The library's comparisons go by signed characters and take those above ASCII for digits.
bool is_ascii(const char *text, size_t size)
{
    return std::all_of(text, text + size, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

} // namespace

base64_result base64_decode(const char *text, size_t size, uint8_t *bytes, size_t capacity, size_t *n_bytes)
{
    *n_bytes = 0;
    if (!is_ascii(text, size)) {
        return BASE64_BAD;
    }
    const bool is_padded = size > 0 && text[size - 1] == '=';
    const int variant = is_padded ? sodium_base64_VARIANT_ORIGINAL : sodium_base64_VARIANT_ORIGINAL_NO_PADDING;
    std::vector<uint8_t> decoded(size + 1); // the library wants an address for no bytes as well
    size_t n_decoded = 0;
    if (sodium_base642bin(decoded.data(), decoded.size(), text, size, nullptr, &n_decoded, nullptr, variant) != 0) {
        return BASE64_BAD;
    }
    if (n_decoded > capacity) {
        return BASE64_NO_ROOM;
    }
    std::copy_n(decoded.begin(), n_decoded, bytes);
    *n_bytes = n_decoded;
    return BASE64_DECODED;
}
