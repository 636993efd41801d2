#include "vrq/platform/engine/RtcSeiMessage_p.h"

namespace vrq::rtc {
namespace {

constexpr std::uint8_t kNalTypeSei = 6;
constexpr std::uint8_t kPayloadTypeUserDataUnregistered = 5;
constexpr std::uint8_t kRbspStopBit = 0x80;

// SEI payload types and sizes: as many 0xFF bytes as whole 255s, then the rest.
void appendSeiNumber(std::vector<std::uint8_t>& out, std::size_t value)
{
    while (value >= 255) {
        out.push_back(0xFF);
        value -= 255;
    }
    out.push_back(static_cast<std::uint8_t>(value));
}

} // namespace

const SeiMessage::Uuid& SeiMessage::engineUuid()
{
    // Chosen once for this engine; receivers pass every payload on whatever its UUID.
    static const Uuid uuid{0x56, 0x52, 0x51, 0x2d, 0x73, 0x65, 0x69, 0x2d,
                           0x9b, 0x1e, 0x4c, 0x27, 0xa0, 0x3d, 0x51, 0x6f};
    return uuid;
}

std::vector<std::uint8_t> SeiMessage::withEmulationPrevention(const std::vector<std::uint8_t>& rbsp)
{
    std::vector<std::uint8_t> out;
    out.reserve(rbsp.size() + rbsp.size() / 64 + 4);
    int zeros = 0;
    for (std::uint8_t byte : rbsp) {
        if (zeros >= 2 && byte <= 0x03) {
            out.push_back(0x03);
            zeros = 0;
        }
        out.push_back(byte);
        zeros = byte == 0 ? zeros + 1 : 0;
    }
    return out;
}

std::vector<std::uint8_t> SeiMessage::userDataUnregistered(const Uuid& uuid, std::string_view payload)
{
    std::vector<std::uint8_t> rbsp;
    rbsp.reserve(payload.size() + uuid.size() + 8);
    appendSeiNumber(rbsp, kPayloadTypeUserDataUnregistered);
    appendSeiNumber(rbsp, uuid.size() + payload.size());
    rbsp.insert(rbsp.end(), uuid.begin(), uuid.end());
    rbsp.insert(rbsp.end(), payload.begin(), payload.end());
    rbsp.push_back(kRbspStopBit);

    std::vector<std::uint8_t> nal{0x00, 0x00, 0x00, 0x01, kNalTypeSei};
    const std::vector<std::uint8_t> escaped = withEmulationPrevention(rbsp);
    nal.insert(nal.end(), escaped.begin(), escaped.end());
    return nal;
}

} // namespace vrq::rtc
