#include "base64.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "exact_copy.h"
#include "hex_bytes.h"

namespace
{

struct decoding {
    base64_result result;
    bytes decoded;
};

decoding decode(const std::string &text, size_t capacity)
{
    const exact_copy copy(text);
    const std::unique_ptr<uint8_t[]> buffer(new uint8_t[capacity]);
    size_t size = 99;
    const base64_result result = base64_decode(copy.text(), copy.size(), buffer.get(), capacity, &size);
    return {result, bytes(buffer.get(), buffer.get() + size)};
}

// RFC 4648, 10, and the characters that are not letters.
const struct {
    const char *text;
    const char *decoded;
} kRows[] = {{"", ""},
             {"Zg==", "66"},
             {"Zm8=", "666F"},
             {"Zm9v", "666F6F"},
             {"Zm9vYg==", "666F6F62"},
             {"Zm9vYmE=", "666F6F6261"},
             {"Zm9vYmFy", "666F6F626172"},
             {"AAAA", "000000"},
             {"////", "FFFFFF"},
             {"+/+/", "FBFFBF"},
             {"azAZ", "6B3019"},
             {"09w=", "D3DC"}};

TEST(Base64Decode, ReadsWhatTheRfcWrites)
{
    for (const auto &row : kRows) {
        const bytes expected = hex(row.decoded);
        const decoding read = decode(row.text, expected.size());
        EXPECT_EQ(BASE64_DECODED, read.result) << row.text;
        EXPECT_EQ(expected, read.decoded) << row.text;
    }
}

TEST(Base64Decode, DoesWithoutPadding)
{
    for (const auto &row : kRows) {
        const std::string text(row.text);
        const decoding read = decode(text.substr(0, text.find('=')), 100);
        EXPECT_EQ(BASE64_DECODED, read.result) << row.text;
        EXPECT_EQ(hex(row.decoded), read.decoded) << row.text;
    }
}

TEST(Base64Decode, SaysWhenThereIsNoRoom)
{
    for (const auto &row : kRows) {
        for (size_t capacity = 0; capacity < hex(row.decoded).size(); capacity++) {
            const decoding read = decode(row.text, capacity);
            EXPECT_EQ(BASE64_NO_ROOM, read.result) << row.text << " into " << capacity;
            EXPECT_TRUE(read.decoded.empty());
        }
    }
}

TEST(Base64Decode, RefusesWhatIsNotBase64)
{
    const char *const rows[] = {"Z",    "Zm9vY", "Z===",     "====", "=",    "==",   "Zg=",  "Zm8==", "Zm9v=",
                                "Zm=v", "=m9v",  "Zg==Zg==", "Zm 8", "Zm8 ", "Zm-_", "Zm\n", "Zh==",  "Zm9="};
    for (const char *text : rows) {
        const decoding read = decode(text, 100);
        EXPECT_EQ(BASE64_BAD, read.result) << text;
        EXPECT_TRUE(read.decoded.empty());
    }
    for (int c = 0; c < 256; c++) {
        const bool is_digit = (c < 128 && isalnum(c) != 0) || c == '+' || c == '/';
        EXPECT_EQ(is_digit, decode(std::string("AA") + static_cast<char>(c) + "A", 100).result == BASE64_DECODED) << c;
    }
}

// Six bits after six bits, as one long row of them: another way than the one under test.
std::string encode(const bytes &raw)
{
    const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string row;
    for (const uint8_t byte : raw) {
        for (int bit = 7; bit >= 0; bit--) {
            row += (byte >> bit & 1) != 0 ? '1' : '0';
        }
    }
    row.resize((row.size() + 5) / 6 * 6, '0');
    std::string text;
    for (size_t at = 0; at < row.size(); at += 6) {
        text += digits[std::stoul(row.substr(at, 6), nullptr, 2)];
    }
    text.resize((text.size() + 3) / 4 * 4, '=');
    return text;
}

TEST(Base64Decode, GivesBackRandomBytes)
{
    std::mt19937 random(4648);
    for (int round = 0; round < 5000; round++) {
        bytes raw(random() % 50);
        for (uint8_t &byte : raw) {
            byte = static_cast<uint8_t>(random());
        }
        const decoding read = decode(encode(raw), raw.size());
        ASSERT_EQ(BASE64_DECODED, read.result);
        ASSERT_EQ(raw, read.decoded);
    }
}

} // namespace
