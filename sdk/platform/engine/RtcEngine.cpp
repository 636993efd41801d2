#include "vrq/platform/engine/RtcEngine_p.h"

#include "vrq/platform/engine/RtcGst_p.h"
#include "vrq/platform/engine/RtcPeerConnection.h"
#include "vrq/platform/services/LogBackend.h"
#include "vrq/platform/services/SelfSignedCertificate.h"

#include <gst/gst.h>

#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <mutex>
#include <sstream>
#include <thread>

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

struct Requirement {
    const char* factory;
    const char* package;
    bool answerOnly;
};

// The elements a connection is made of.
constexpr Requirement kRequired[] = {
    {"webrtcbin", "gstreamer1.0-plugins-bad", false},
    {"nicesrc", "gstreamer1.0-nice", false},
    {"nicesink", "gstreamer1.0-nice", false},
    {"dtlssrtpenc", "gstreamer1.0-plugins-bad", false},
    {"dtlssrtpdec", "gstreamer1.0-plugins-bad", false},
    {"srtpenc", "gstreamer1.0-plugins-bad", false},
    {"srtpdec", "gstreamer1.0-plugins-bad", false},
    {"sctpenc", "gstreamer1.0-plugins-bad", false},
    {"sctpdec", "gstreamer1.0-plugins-bad", false},
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

// Makes and drops one of each receiving element, so that their plugins are
// loaded and their classes set up before a connection makes them.
void preloadElements()
{
    for (const Requirement& requirement : kRequired) {
        if (requirement.answerOnly)
            continue;
        if (GstElement* element = gst_element_factory_make(requirement.factory, nullptr)) {
            gst_object_ref_sink(element);
            gst_object_unref(element);
        }
    }
}

// A missing plugin stops media altogether, so it is reported whatever the
// engine's level. Returns what a receiving connection lacks, naming the
// package that brings it; empty when nothing is missing.
std::string checkPlugins(const std::string& videoDecoder)
{
    std::string missing;
    for (const Requirement& requirement : kRequired) {
        if (elementExists(requirement.factory))
            continue;
        const std::string problem = std::string("GStreamer element \"") + requirement.factory + "\" is missing (package "
                                    + requirement.package + ")";
        logging::logEx(requirement.answerOnly ? logging::kWarning : logging::kError,
                       "(RtcEngine.cpp) " + problem + (requirement.answerOnly ? "; only a sending peer needs it" : ""));
        if (!requirement.answerOnly)
            missing += (missing.empty() ? "" : "; ") + problem;
    }
    if (videoDecoder.empty()) {
        const std::string problem = "no H.264 decoder: install gstreamer1.0-libav (avdec_h264) or gstreamer1.0-plugins-bad (openh264dec)";
        logging::logEx(logging::kError, "(RtcEngine.cpp) " + problem);
        missing += (missing.empty() ? "" : "; ") + problem;
    }
    return missing;
}

// The H.264 decoders GStreamer offers, highest rank first.
std::vector<std::string> rankedH264Decoders()
{
    GList* decoders = gst_element_factory_list_get_elements(GST_ELEMENT_FACTORY_TYPE_DECODER | GST_ELEMENT_FACTORY_TYPE_MEDIA_VIDEO,
                                                            GST_RANK_MARGINAL);
    gst::CapsPtr h264{gst_caps_from_string("video/x-h264")};
    GList* usable = gst_element_factory_list_filter(decoders, h264.get(), GST_PAD_SINK, FALSE);
    usable = g_list_sort(usable, gst_plugin_feature_rank_compare_func);
    std::vector<std::string> names;
    for (GList* item = usable; item; item = item->next)
        names.emplace_back(gst_plugin_feature_get_name(static_cast<GstPluginFeature*>(item->data)));
    gst_plugin_feature_list_free(usable);
    gst_plugin_feature_list_free(decoders);
    return names;
}

// A decoder is usable when it starts: a hardware one without its device does not.
bool decoderStarts(const std::string& name)
{
    GstElement* decoder = gst_element_factory_make(name.c_str(), nullptr);
    if (!decoder)
        return false;
    gst_object_ref_sink(decoder);
    const bool started = gst_element_set_state(decoder, GST_STATE_READY) != GST_STATE_CHANGE_FAILURE;
    gst_element_set_state(decoder, GST_STATE_NULL);
    gst_object_unref(decoder);
    return started;
}

std::string chooseVideoDecoder()
{
    for (const std::string& name : rankedH264Decoders()) {
        if (decoderStarts(name))
            return name;
        logging::logEx(logging::kWarning, "(RtcEngine.cpp) the H.264 decoder \"" + name + "\" does not start here; trying the next");
    }
    return {};
}

// Start-up work on threads of its own. They are joined when the process
// exits, before OpenSSL's exit-time cleanup, which would otherwise run under
// a key being made.
class BackgroundWork {
public:
    static void run(std::function<void()> work)
    {
        static std::once_flag registered;
        std::call_once(registered, [] { std::atexit(&BackgroundWork::joinAll); });
        std::lock_guard lock(mutex());
        threads().emplace_back(std::move(work));
    }

private:
    // Work may start more work: joins until none is left.
    static void joinAll()
    {
        for (;;) {
            std::vector<std::thread> running;
            {
                std::lock_guard lock(mutex());
                running.swap(threads());
            }
            if (running.empty())
                return;
            for (std::thread& thread : running)
                thread.join();
        }
    }
    // Never destroyed: the exit handler may run after static destructors.
    static std::mutex& mutex()
    {
        static auto* instance = new std::mutex;
        return *instance;
    }
    static std::vector<std::thread>& threads()
    {
        static auto* instance = new std::vector<std::thread>;
        return *instance;
    }
};

// webrtcbin's DTLS decoder makes an RSA key of its own the first time one is
// made in a process (100 to 300 ms here), whatever certificate it is given
// afterwards. Making one off the caller's thread at engine start has that
// done before a connection needs it.
void prepareDtlsInBackground()
{
    BackgroundWork::run([] {
        if (GstElement* decoder = gst_element_factory_make("dtlsdec", nullptr)) {
            gst_object_ref_sink(decoder);
            gst_object_unref(decoder);
        }
    });
}

struct EngineState {
    std::string missing; // what receiving lacks; empty when complete
    std::string videoDecoder;
    std::optional<SelfSignedCertificate> certificate;
};

const EngineState& engineState()
{
    static const EngineState state = [] {
        gst_init(nullptr, nullptr);
        prepareDtlsInBackground();
        EngineState made;
        made.certificate = SelfSignedCertificate::make();
        if (!made.certificate)
            logging::logEx(logging::kWarning, "(RtcEngine.cpp) no DTLS certificate could be made; webrtcbin makes its own");
        made.videoDecoder = chooseVideoDecoder();
        made.missing = checkPlugins(made.videoDecoder);
        return made;
    }();
    return state;
}

} // namespace

bool initializeEngine()
{
    return engineState().missing.empty();
}

std::string missingEngineParts()
{
    return engineState().missing;
}

std::string videoDecoderName()
{
    return engineState().videoDecoder;
}

void prepareEngine()
{
    static std::once_flag once;
    std::call_once(once, [] {
        BackgroundWork::run([] {
            engineState();
            preloadElements();
        });
    });
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

const std::string& videoDecoderFactory()
{
    return engineState().videoDecoder;
}

GstElement* makeVideoDecoder()
{
    const std::string& name = videoDecoderFactory();
    if (name.empty())
        return nullptr;
    GstElement* decoder = gst_element_factory_make(name.c_str(), nullptr);
    if (!decoder) {
        RTC_LOG(logging::kError, "cannot create the H.264 decoder \"%s\"", name.c_str());
        return nullptr;
    }
    if (g_object_class_find_property(G_OBJECT_GET_CLASS(decoder), "thread-type"))
        gst_util_set_object_arg(G_OBJECT(decoder), "thread-type", "slice");
    return decoder;
}

const std::optional<SelfSignedCertificate>& certificate()
{
    return engineState().certificate;
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
