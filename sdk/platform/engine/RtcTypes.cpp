#include "vrq/platform/engine/RtcTypes.h"

#include <array>
#include <cctype>

namespace vrq::rtc {

std::string stringForType(SdpType type)
{
    switch (type) {
    case SdpType::Offer:
        return "offer";
    case SdpType::PrAnswer:
        return "pranswer";
    case SdpType::Answer:
        return "answer";
    }
    return "offer";
}

const char* stringForState(PeerConnectionState state)
{
    switch (state) {
    case PeerConnectionState::New:
        return "new";
    case PeerConnectionState::Connecting:
        return "connecting";
    case PeerConnectionState::Connected:
        return "connected";
    case PeerConnectionState::Disconnected:
        return "disconnected";
    case PeerConnectionState::Failed:
        return "failed";
    case PeerConnectionState::Closed:
        return "closed";
    }
    return "unknown";
}

const char* stringForState(IceConnectionState state)
{
    switch (state) {
    case IceConnectionState::New:
        return "new";
    case IceConnectionState::Checking:
        return "checking";
    case IceConnectionState::Connected:
        return "connected";
    case IceConnectionState::Completed:
        return "completed";
    case IceConnectionState::Failed:
        return "failed";
    case IceConnectionState::Disconnected:
        return "disconnected";
    case IceConnectionState::Closed:
        return "closed";
    }
    return "unknown";
}

const char* stringForState(DataChannelState state)
{
    switch (state) {
    case DataChannelState::Connecting:
        return "connecting";
    case DataChannelState::Open:
        return "open";
    case DataChannelState::Closing:
        return "closing";
    case DataChannelState::Closed:
        return "closed";
    }
    return "unknown";
}

namespace {

// One row of the profile table of RFC 6184 (section 8.1): a profile_idc and
// the pattern its profile-iop byte must match, most significant bit first
// ('1' set, '0' clear, 'x' either).
struct ProfilePattern {
    std::uint8_t profileIdc;
    const char* iopPattern;
    H264ProfileLevelId::Profile profile;
};

constexpr std::array<ProfilePattern, 9> kProfilePatterns{{
    {0x42, "x1xx0000", H264ProfileLevelId::ConstrainedBaseline},
    {0x4D, "1xxx0000", H264ProfileLevelId::ConstrainedBaseline},
    {0x58, "11xx0000", H264ProfileLevelId::ConstrainedBaseline},
    {0x42, "x0xx0000", H264ProfileLevelId::Baseline},
    {0x58, "10xx0000", H264ProfileLevelId::Baseline},
    {0x4D, "0x0x0000", H264ProfileLevelId::Main},
    {0x64, "00000000", H264ProfileLevelId::High},
    {0x64, "00001100", H264ProfileLevelId::ConstrainedHigh},
    {0xF4, "00000000", H264ProfileLevelId::PredictiveHigh444},
}};

bool matchesPattern(std::uint8_t value, const char* pattern)
{
    for (int bit = 0; bit < 8; ++bit) {
        const bool set = (value & (0x80 >> bit)) != 0;
        const char want = pattern[bit];
        if ((want == '1' && !set) || (want == '0' && set))
            return false;
    }
    return true;
}

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    const int lower = std::tolower(static_cast<unsigned char>(c));
    if (lower >= 'a' && lower <= 'f')
        return lower - 'a' + 10;
    return -1;
}

bool isKnownLevel(int levelIdc)
{
    constexpr std::array<int, 16> kLevels{10, 11, 12, 13, 20, 21, 22, 30, 31, 32, 40, 41, 42, 50, 51, 52};
    for (int level : kLevels) {
        if (level == levelIdc)
            return true;
    }
    return false;
}

constexpr std::uint8_t kConstraintSet3Flag = 0x10;
constexpr int kLevel1b = 0;

} // namespace

std::optional<H264ProfileLevelId> H264ProfileLevelId::fromHexString(const std::string& hex)
{
    if (hex.size() != 6)
        return std::nullopt;
    std::array<std::uint8_t, 3> bytes{};
    for (std::size_t i = 0; i < 3; ++i) {
        const int high = hexDigit(hex[2 * i]);
        const int low = hexDigit(hex[2 * i + 1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        bytes[i] = static_cast<std::uint8_t>(high * 16 + low);
    }
    const std::uint8_t profileIdc = bytes[0];
    const std::uint8_t profileIop = bytes[1];
    const int levelIdc = bytes[2];

    int level = levelIdc;
    if (levelIdc == 11 && (profileIop & kConstraintSet3Flag) != 0 && (profileIdc == 0x42 || profileIdc == 0x4D || profileIdc == 0x58))
        level = kLevel1b; // level 1b of the baseline family
    else if (levelIdc == 9 && (profileIdc == 0x64 || profileIdc == 0xF4))
        level = kLevel1b; // level 1b of the high family
    else if (!isKnownLevel(levelIdc))
        return std::nullopt;

    for (const ProfilePattern& pattern : kProfilePatterns) {
        if (pattern.profileIdc == profileIdc && matchesPattern(profileIop, pattern.iopPattern))
            return H264ProfileLevelId{pattern.profile, level};
    }
    return std::nullopt;
}

} // namespace vrq::rtc
