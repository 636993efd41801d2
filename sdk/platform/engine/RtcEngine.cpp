#include "vrq/platform/engine/RtcEngine_p.h"

#include "vrq/platform/engine/RtcPeerConnection.h"
#include "vrq/platform/services/LogBackend.h"

#include <gst/gst.h>

#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <sstream>

namespace vrq::rtc {
namespace {

bool elementExists(const char* factoryName)
{
    GstElementFactory* factory = gst_element_factory_find(factoryName);
    if (!factory)
        return false;
    gst_object_unref(factory);
    return true;
}

// A missing plugin stops media altogether, so it is reported whatever the engine's level.
bool checkPlugins()
{
    struct Requirement {
        const char* factory;
        const char* package;
        bool answerOnly;
    };
    static const Requirement kRequired[] = {
        {"webrtcbin", "gstreamer1.0-plugins-bad", false},
        {"nicesrc", "gstreamer1.0-nice", false},
        {"nicesink", "gstreamer1.0-nice", false},
        {"dtlssrtpenc", "gstreamer1.0-plugins-bad", false},
        {"sctpenc", "gstreamer1.0-plugins-bad", false},
        {"rtpbin", "gstreamer1.0-plugins-good", false},
        {"rtph264depay", "gstreamer1.0-plugins-good", false},
        {"h264parse", "gstreamer1.0-plugins-bad", false},
        {"videoconvert", "gstreamer1.0-plugins-base", false},
        {"appsink", "gstreamer1.0-plugins-base", false},
        {"rtpopusdepay", "gstreamer1.0-plugins-good", false},
        {"opusdec", "gstreamer1.0-plugins-base", false},
        {"audioconvert", "gstreamer1.0-plugins-base", false},
        {"audioresample", "gstreamer1.0-plugins-base", false},
        {"volume", "gstreamer1.0-plugins-base", false},
        {"fakesink", "gstreamer1.0 (core)", false},
        {"rtph264pay", "gstreamer1.0-plugins-good", true},
        {"rtpopuspay", "gstreamer1.0-plugins-good", true},
        {"x264enc", "gstreamer1.0-plugins-ugly", true},
        {"opusenc", "gstreamer1.0-plugins-base", true},
    };
    bool complete = true;
    for (const Requirement& requirement : kRequired) {
        if (elementExists(requirement.factory))
            continue;
        const std::string line = std::string("(RtcEngine.cpp) GStreamer element \"") + requirement.factory + "\" is missing (package "
                                 + requirement.package + ")" + (requirement.answerOnly ? "; only a sending peer needs it" : "");
        logging::logEx(requirement.answerOnly ? logging::kWarning : logging::kError, line);
        complete = complete && requirement.answerOnly;
    }
    if (engine::videoDecoderFactory().empty()) {
        logging::logEx(logging::kError, "(RtcEngine.cpp) no H.264 decoder: install gstreamer1.0-libav (avdec_h264) or openh264dec");
        complete = false;
    }
    return complete;
}

} // namespace

bool initializeEngine()
{
    static std::once_flag once;
    static bool complete = false;
    std::call_once(once, [] {
        gst_init(nullptr, nullptr);
        complete = checkPlugins();
    });
    return complete;
}

namespace engine {

// The engine's level is GStreamer's default debug threshold, which
// setEngineDebugLevel sets: a line goes out when GStreamer would print its
// own messages of the same severity.
void log(int severity, const char* file, int line, const char* function, const char* format, ...)
{
    static constexpr GstDebugLevel kThresholds[] = {GST_LEVEL_LOG, GST_LEVEL_INFO, GST_LEVEL_WARNING, GST_LEVEL_ERROR};
    if (severity < logging::kVerbose || severity > logging::kError || gst_debug_get_default_threshold() < kThresholds[severity])
        return;
    va_list arguments;
    va_start(arguments, format);
    const std::string text = logging::formatLine(file, line, function, format, arguments);
    va_end(arguments);
    logging::logEx(severity, text);
}

std::string videoDecoderFactory()
{
    for (const char* name : {"avdec_h264", "openh264dec"}) {
        if (elementExists(name))
            return name;
    }
    return {};
}

bool hasAudioOutput()
{
    namespace fs = std::filesystem;
    std::error_code error;
    if (std::getenv("PULSE_SERVER"))
        return true;
    if (const char* runtime = std::getenv("XDG_RUNTIME_DIR")) {
        if (fs::exists(fs::path(runtime) / "pulse" / "native", error) || fs::exists(fs::path(runtime) / "pipewire-0", error))
            return true;
    }
    // ALSA playback devices are named pcmC<card>D<device>p.
    for (const auto& entry : fs::directory_iterator("/dev/snd", error)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind("pcmC", 0) == 0 && !name.empty() && name.back() == 'p')
            return true;
    }
    return false;
}

std::vector<std::string> iceAddressesFromEnvironment()
{
    std::vector<std::string> addresses;
    const char* value = std::getenv("VRQ_ICE_ADDRESSES");
    if (!value)
        return addresses;
    std::istringstream list(value);
    std::string address;
    while (std::getline(list, address, ',')) {
        const auto first = address.find_first_not_of(" \t");
        const auto last = address.find_last_not_of(" \t");
        if (first != std::string::npos)
            addresses.push_back(address.substr(first, last - first + 1));
    }
    return addresses;
}

} // namespace engine
} // namespace vrq::rtc
