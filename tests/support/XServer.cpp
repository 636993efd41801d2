#include "support/XServer.h"

#include "support/ChildProcess.h"

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>

#include <filesystem>
#include <thread>

namespace vrqtest {

namespace {

constexpr const char* kXvfb = "/usr/bin/Xvfb";

Display* asDisplay(void* display)
{
    return static_cast<Display*>(display);
}

} // namespace

struct XServer::Process {
    explicit Process(std::vector<std::string> argv) : child(std::move(argv)) {}
    ChildProcess child;
};

XServer::XServer(int width, int height)
{
    if (!std::filesystem::exists(kXvfb)) {
        m_whyNot = std::string(kXvfb) + " is missing (Debian's xvfb package; ./vrq setup installs it)";
        return;
    }
    // -displayfd 1: the server picks a free display and prints its number.
    m_process = std::make_unique<Process>(std::vector<std::string>{
        kXvfb, "-displayfd", "1", "-screen", "0", std::to_string(width) + "x" + std::to_string(height) + "x24",
        "-nolisten", "tcp", "-noreset"});
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    // The server closes its output once it printed the number.
    while (m_name.empty() && std::chrono::steady_clock::now() < deadline) {
        const bool ended = m_process->child.outputEnded();
        if (const auto lines = m_process->child.lines(); !lines.empty())
            m_name = ":" + lines.front();
        else if (ended)
            break;
        else
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (m_name.empty()) {
        m_whyNot = "Xvfb did not start";
        return;
    }
    m_display = XOpenDisplay(m_name.c_str());
    int event = 0, error = 0, major = 0, minor = 0;
    if (!m_display || !XTestQueryExtension(asDisplay(m_display), &event, &error, &major, &minor)) {
        m_whyNot = "cannot use the X server on " + m_name;
        if (m_display)
            XCloseDisplay(asDisplay(m_display));
        m_display = nullptr;
    }
}

XServer::~XServer()
{
    if (m_display)
        XCloseDisplay(asDisplay(m_display));
    if (m_process)
        m_process->child.kill(SIGTERM);
}

void XServer::movePointer(int x, int y)
{
    XTestFakeMotionEvent(asDisplay(m_display), 0, x, y, CurrentTime);
    XSync(asDisplay(m_display), False);
}

void XServer::button(int button, bool down)
{
    XTestFakeButtonEvent(asDisplay(m_display), static_cast<unsigned>(button), down ? True : False, CurrentTime);
    XSync(asDisplay(m_display), False);
}

void XServer::key(const std::string& keysym, bool down)
{
    const KeyCode code = XKeysymToKeycode(asDisplay(m_display), XStringToKeysym(keysym.c_str()));
    XTestFakeKeyEvent(asDisplay(m_display), code, down ? True : False, CurrentTime);
    XSync(asDisplay(m_display), False);
}

void XServer::click(int number)
{
    button(number, true);
    button(number, false);
}

void XServer::tap(const std::string& keysym)
{
    key(keysym, true);
    key(keysym, false);
}

} // namespace vrqtest
