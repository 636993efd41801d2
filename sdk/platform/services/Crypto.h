#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vrq {

// Sets the crypto library up now. Its clean-up at exit then runs after every
// exit handler registered later, which may still use it.
void initCrypto();

std::array<std::uint8_t, 16> md5(std::string_view data);
std::array<std::uint8_t, 32> hmacSha256(std::string_view key, std::string_view data);
// A random (version 4) UUID in upper case, e.g. "1B4E28BA-2FA1-41D2-883F-0016D3CCA427".
std::string randomUuid();
std::string toHex(const std::uint8_t* bytes, std::size_t size); // lower case, two digits a byte

// Standard alphabet with padding, no line breaks.
std::string base64Encode(std::string_view data);
// Characters outside the alphabet are skipped. Gives nothing when what is
// left is not a whole number of base64 groups.
std::optional<std::string> base64Decode(std::string_view text);

} // namespace vrq
