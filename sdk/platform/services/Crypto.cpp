#include "vrq/platform/services/Crypto.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <cstdio>
#include <stdexcept>

namespace vrq {

void initCrypto()
{
    OPENSSL_init_crypto(0, nullptr);
}

std::string randomUuid()
{
    std::array<std::uint8_t, 16> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1)
        throw std::runtime_error("no random bytes for a UUID");
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40); // version 4
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80); // RFC 4122 variant
    char text[37];
    std::snprintf(text, sizeof text, "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", bytes[0],
                  bytes[1], bytes[2], bytes[3], bytes[4], bytes[5], bytes[6], bytes[7], bytes[8], bytes[9], bytes[10],
                  bytes[11], bytes[12], bytes[13], bytes[14], bytes[15]);
    return text;
}

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int base64Value(char c)
{
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 26;
    if (c >= '0' && c <= '9')
        return c - '0' + 52;
    if (c == '+')
        return 62;
    if (c == '/')
        return 63;
    return -1;
}

} // namespace

std::array<std::uint8_t, 16> md5(std::string_view data)
{
    std::array<std::uint8_t, 16> digest{};
    unsigned int size = 0;
    EVP_Digest(data.data(), data.size(), digest.data(), &size, EVP_md5(), nullptr);
    return digest;
}

std::array<std::uint8_t, 32> hmacSha256(std::string_view key, std::string_view data)
{
    std::array<std::uint8_t, 32> mac{};
    unsigned int size = 0;
    HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
         reinterpret_cast<const unsigned char*>(data.data()), data.size(), mac.data(), &size);
    return mac;
}

std::string toHex(const std::uint8_t* bytes, std::size_t size)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(size * 2);
    for (std::size_t i = 0; i < size; ++i) {
        hex.push_back(kDigits[bytes[i] >> 4]);
        hex.push_back(kDigits[bytes[i] & 0x0f]);
    }
    return hex;
}

std::string base64Encode(std::string_view data)
{
    std::string out;
    out.reserve((data.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 2 < data.size(); i += 3) {
        const unsigned v = static_cast<unsigned char>(data[i]) << 16 | static_cast<unsigned char>(data[i + 1]) << 8
                           | static_cast<unsigned char>(data[i + 2]);
        out += {kAlphabet[v >> 18], kAlphabet[(v >> 12) & 63], kAlphabet[(v >> 6) & 63], kAlphabet[v & 63]};
    }
    const std::size_t rest = data.size() - i;
    if (rest == 1) {
        const unsigned v = static_cast<unsigned char>(data[i]) << 16;
        out += {kAlphabet[v >> 18], kAlphabet[(v >> 12) & 63], '=', '='};
    } else if (rest == 2) {
        const unsigned v = static_cast<unsigned char>(data[i]) << 16 | static_cast<unsigned char>(data[i + 1]) << 8;
        out += {kAlphabet[v >> 18], kAlphabet[(v >> 12) & 63], kAlphabet[(v >> 6) & 63], '='};
    }
    return out;
}

std::optional<std::string> base64Decode(std::string_view text)
{
    std::string sextets;
    std::size_t padding = 0;
    for (char c : text) {
        if (c == '=') {
            ++padding;
            continue;
        }
        const int v = base64Value(c);
        if (v < 0)
            continue;
        if (padding > 0)
            return std::nullopt; // data after padding
        sextets.push_back(static_cast<char>(v));
    }
    const std::size_t groupRest = sextets.size() % 4;
    if (groupRest == 1 || padding > 2 || (padding > 0 && (sextets.size() + padding) % 4 != 0))
        return std::nullopt;
    std::string out;
    out.reserve(sextets.size() * 3 / 4);
    unsigned buffer = 0;
    int bits = 0;
    for (char s : sextets) {
        buffer = (buffer << 6) | static_cast<unsigned>(s);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<char>((buffer >> bits) & 0xff));
        }
    }
    return out;
}

} // namespace vrq
