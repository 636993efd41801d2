#include "PlayOptions.h"

#include "KeyBindings.h"

#include "vrq/VRQVKey/button/VRQVGamepadUtil.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <sstream>
#include <string_view>

namespace {

bool parseSeconds(std::string_view text, int& seconds)
{
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 1 || value > 24 * 3600)
        return false;
    seconds = value;
    return true;
}

constexpr std::string_view kValueOptions[] = {"--server", "--metrics", "--host", "--experience-code",
                                              "--duration", "--events", "--snapshot", "--layout", "--replay"};

// The text of a shipped layout ("pad", "kbm") or of a layout file; false when it cannot be read.
bool readLayout(const std::string& nameOrFile, std::string& text)
{
    const bool shipped = nameOrFile == "pad" || nameOrFile == "kbm";
    const std::string path =
        shipped ? VRQVGamepadUtil::resourceFolder() + "/layouts/" + nameOrFile + ".json" : nameOrFile;
    std::ifstream file(path);
    std::stringstream content;
    if (!file || !(content << file.rdbuf()))
        return false;
    text = content.str();
    return true;
}

bool isOrigin(std::string_view text)
{
    return (text.starts_with("http://") || text.starts_with("https://")) && !text.ends_with("/");
}

// Applies one "--name value" pair; false when the name is unknown or the value unusable.
bool applyValue(PlayOptions& options, std::string_view name, const std::string& value)
{
    if (name == "--server")
        return isOrigin(options.serverOrigin = value);
    if (name == "--metrics")
        return isOrigin(options.metricsOrigin = value);
    if (name == "--host")
        return (options.bundledHost = value).starts_with("127.");
    if (name == "--experience-code")
        return !(options.experienceCode = value).empty();
    if (name == "--duration")
        return parseSeconds(value, options.durationSeconds);
    if (name == "--events")
        return (options.jsonEvents = value == "json") || value == "text";
    if (name == "--snapshot")
        return !(options.snapshotPath = value).empty();
    if (name == "--layout")
        return readLayout(value, options.layoutText);
    if (name == "--replay") {
        std::string error;
        options.replay = FingerReplay::read(value, &error);
        return options.replay.has_value();
    }
    return false;
}

bool* flagNamed(PlayOptions& options, std::string_view name)
{
    if (name == "--headless")
        return &options.headless;
    if (name == "--autoplay")
        return &options.autoplay;
    if (name == "--mouse-as-touch")
        return &options.mouseAsTouch;
    if (name == "--help" || name == "-h")
        return &options.help;
    return nullptr;
}

} // namespace

std::optional<PlayOptions> PlayOptions::parse(int argc, char** argv, std::string* error)
{
    PlayOptions options;
    for (int i = 1; i < argc; ++i) {
        const std::string_view name = argv[i];
        if (bool* flag = flagNamed(options, name)) {
            *flag = true;
            continue;
        }
        if (std::find(std::begin(kValueOptions), std::end(kValueOptions), name) == std::end(kValueOptions)) {
            *error = "unknown option " + std::string(name);
            return std::nullopt;
        }
        if (i + 1 >= argc) {
            *error = "missing value after " + std::string(name);
            return std::nullopt;
        }
        const std::string value = argv[++i];
        if (!applyValue(options, name, value)) {
            *error = "bad argument: " + std::string(name) + " " + value;
            return std::nullopt;
        }
    }
    if (!options.serverOrigin.empty() && options.metricsOrigin.empty())
        options.metricsOrigin = options.serverOrigin;
    if (options.autoplay && options.layoutText.empty() && !readLayout("pad", options.layoutText)) {
        *error = "the shipped gamepad layout is missing";
        return std::nullopt;
    }
    return options;
}

std::string PlayOptions::usage()
{
    return "usage: vrq-play [--headless] [--duration SECONDS] [--autoplay] [--events json|text]\n"
           "                [--server ORIGIN] [--metrics ORIGIN] [--host 127.0.0.N]\n"
           "                [--experience-code CODE] [--snapshot FILE.png] [--layout pad|kbm|FILE]\n"
           "                [--mouse-as-touch] [--replay FILE]\n"
           "  --server ORIGIN         the back end (POST /session, /ExperienceOffer); default: the bundled\n"
           "                          reference server, started in-process on --host (127.0.0.1)\n"
           "  --metrics ORIGIN        where metric and log bulks go (default: the back end)\n"
           "  --experience-code CODE  start through an experience code instead of a remote session\n"
           "  --duration SECONDS      play this long, then stop (default 10)\n"
           "  --headless              no window, even where there is a display (without one, the default)\n"
           "  --autoplay              send every kind of input, one step about every 200 ms (the on-screen\n"
           "                          gamepad's too: it shows the pad layout unless --layout names another)\n"
           "  --events json           one JSON object per line instead of readable text\n"
           "  --snapshot FILE.png     at exit, write the window as it shows (video and overlays), or,\n"
           "                          headless, the last decoded video frame\n"
           "  --layout pad|kbm|FILE   lay an on-screen gamepad over the video: the shipped game-controller or\n"
           "                          keyboard-and-mouse layout, or a layout file of the host's own\n"
           "  --mouse-as-touch        the mouse's left button is a finger on the touch views and the gamepad\n"
           "  --replay FILE           play recorded finger gestures into the window once the video shows\n"
           "                          (JSON lines: {\"ms\": 0, \"finger\": \"down\", \"id\": 1, \"x\": 0.5, \"y\": 0.5},\n"
           "                          finger down, move or up, x and y as fractions of the window)\n"
           "keys in the window (all other keys, the mouse, fingers and game controllers go to the game):\n" +
           keyBindingsHelp();
}
