#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

namespace vrq::rtc {

// H.264 SEI network-abstraction units of the user-data-unregistered kind
// (payload type 5): a 16-byte UUID followed by free bytes.
class SeiMessage {
public:
    using Uuid = std::array<std::uint8_t, 16>;

    // The UUID this engine writes.
    static const Uuid& engineUuid();

    // A complete Annex B unit: a four-byte start code, the NAL header, the SEI
    // message (payload type and size coded with 0xFF bytes) and the trailing
    // bits, with emulation-prevention bytes inserted.
    static std::vector<std::uint8_t> userDataUnregistered(const Uuid& uuid, std::string_view payload);

    // Inserts an emulation-prevention byte (0x03) after every two zero bytes
    // that are followed by a byte of 0x03 or less.
    static std::vector<std::uint8_t> withEmulationPrevention(const std::vector<std::uint8_t>& rbsp);
};

} // namespace vrq::rtc
