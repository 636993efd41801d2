#include "vrq/VRQVKey/button/VRQVGamepadUtil.h"

#include "vrq/log/VRQLog.h"
#include "vrq/platform/views/Image.h"
#include "vrq/utils/VRQColorHelpers.h"
#include "vrq/utils/VRQLayoutHelpers.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <map>
#include <optional>

namespace {

// Beyond this many reference pixels a length cannot be placed on any screen.
constexpr double kLargestLength = 1e7;
// Decoded images kept at once; a layout names a few dozen.
constexpr std::size_t kImageCacheLimit = 256;

struct Units {
    double width = 0;
    double height = 0;
    float scale = 0;
};

Units& units()
{
    static Units shared;
    return shared;
}

struct Images {
    std::string folder;       // the host's, or empty
    std::optional<std::string> found; // the folder in use, found at first use
    std::map<std::string, std::shared_ptr<const vrq::Image>, std::less<>> loaded; // null: missing (logged once)
};

Images& images()
{
    static Images shared;
    return shared;
}

bool startsWithNumber(std::string_view text)
{
    std::size_t at = 0;
    while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at])))
        ++at;
    if (at < text.size() && (text[at] == '-' || text[at] == '+'))
        ++at;
    if (at < text.size() && text[at] == '.')
        ++at;
    return at < text.size() && std::isdigit(static_cast<unsigned char>(text[at]));
}

// The number of a length, or nothing (logged) when it is none or too large.
std::optional<float> lengthNumber(std::string_view value, std::string_view number)
{
    const float parsed = vrq_floatValue(number);
    if (!startsWithNumber(number)) {
        VRQ_LOG(2, "layout length \"%.*s\" is not a number; taken as 0", static_cast<int>(value.size()), value.data());
        return std::nullopt;
    }
    if (!std::isfinite(parsed) || std::fabs(parsed) > kLargestLength) {
        VRQ_LOG(2, "layout length \"%.*s\" is out of range; taken as 0", static_cast<int>(value.size()), value.data());
        return std::nullopt;
    }
    return parsed;
}

std::optional<std::string> readFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    if (!file || !(bytes << file.rdbuf()))
        return std::nullopt;
    return std::move(bytes).str();
}

std::string findResourceFolder()
{
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    const fs::path candidates[] = {
        program.parent_path().parent_path() / "share/vrq",
        VRQ_INSTALLED_RESOURCES,
        VRQ_SOURCE_RESOURCES,
    };
    for (const auto& candidate : candidates) {
        if (fs::is_directory(candidate / "vrqvkey", error))
            return candidate.string();
    }
    VRQ_LOG(2, "no gamepad resources beside %s, in %s or in %s", candidates[0].c_str(), VRQ_INSTALLED_RESOURCES,
            VRQ_SOURCE_RESOURCES);
    return VRQ_INSTALLED_RESOURCES;
}

} // namespace

void VRQVGamepadUtil::setParentSize(double width, double height)
{
    units() = Units{width, height, static_cast<float>(width / kReferenceWidth)};
}

double VRQVGamepadUtil::pixelToPoint(std::int64_t pixels)
{
    return std::trunc(units().scale * static_cast<float>(pixels));
}

double VRQVGamepadUtil::stringToPointW(std::string_view value)
{
    return stringToPoint(value, units().width);
}

double VRQVGamepadUtil::stringToPointH(std::string_view value)
{
    return stringToPoint(value, units().height);
}

double VRQVGamepadUtil::stringToPoint(std::string_view value, double denominator)
{
    if (value.empty())
        return 0;
    double points = 0;
    if (value.back() == '%') {
        // The number is the fraction itself: "0.5%" is half, "50%" fifty times.
        const auto fraction = lengthNumber(value, value.substr(0, value.size() - 1));
        points = fraction ? *fraction * static_cast<float>(denominator) : 0;
    } else {
        const auto pixels = lengthNumber(value, value);
        points = pixels ? pixelToPoint(static_cast<std::int64_t>(std::trunc(*pixels))) : 0;
    }
    if (points < -0.00001)
        points += denominator;
    return points;
}

std::string VRQVGamepadUtil::percentToString(double fraction)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.4f%%", fraction);
    return text;
}

vrq::Color VRQVGamepadUtil::colorFromString(std::string_view text)
{
    if (text.size() != 7 && text.size() != 9) {
        VRQ_LOG(2, "layout colour \"%.*s\" is not #RRGGBB or #RRGGBBAA; transparent", static_cast<int>(text.size()),
                text.data());
    }
    return vrq_colorValue(text);
}

std::string VRQVGamepadUtil::resourceFolder()
{
    static const std::string folder = findResourceFolder();
    return folder;
}

void VRQVGamepadUtil::setImageFolder(std::string folder)
{
    images() = Images{std::move(folder), std::nullopt, {}};
}

std::string VRQVGamepadUtil::imageFolder()
{
    Images& state = images();
    if (!state.found)
        state.found = state.folder.empty() ? resourceFolder() + "/vrqvkey" : state.folder;
    return *state.found;
}

std::shared_ptr<const vrq::Image> VRQVGamepadUtil::loadImageFromFile(std::string_view name)
{
    if (name.empty())
        return nullptr;
    Images& state = images();
    if (const auto known = state.loaded.find(name); known != state.loaded.end())
        return known->second;
    // A name, not a path: a layout cannot reach files outside the folder.
    if (name.find('/') != std::string_view::npos) {
        VRQ_LOG(2, "gamepad image name \"%.*s\" holds a '/'; not loaded", static_cast<int>(name.size()), name.data());
        return nullptr;
    }
    const std::string path = imageFolder() + "/" + std::string(name) + ".png";
    std::shared_ptr<const vrq::Image> image;
    if (const auto bytes = readFile(path)) {
        if (auto decoded = vrq::Image::decode(*bytes))
            image = std::make_shared<const vrq::Image>(std::move(*decoded));
        else
            VRQ_LOG(2, "gamepad image %s is not a PNG this kit reads", path.c_str());
    } else {
        VRQ_LOG(2, "gamepad image %s is missing", path.c_str());
    }
    if (state.loaded.size() >= kImageCacheLimit)
        state.loaded.clear();
    state.loaded.emplace(std::string(name), image);
    return image;
}
