#pragma once

// An X server of the test's own (Xvfb) on a display number it picks itself,
// and input injected into it as a person's (through the XTEST extension).
// Destroying it ends the server.

#include <memory>
#include <string>

namespace vrqtest {

class ChildProcessHandle;

class XServer {
public:
    // Starts Xvfb with one screen of that size; see ok() and whyNot().
    XServer(int width, int height);
    ~XServer();
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;

    bool ok() const { return m_display != nullptr; }
    const std::string& whyNot() const { return m_whyNot; }
    // ":N", for DISPLAY.
    const std::string& name() const { return m_name; }

    // The pointer to a screen position, a button (1 left, 2 middle, 3 right,
    // 4 and 5 the wheel) pressed or released, a key (an X keysym name such as
    // "a" or "Control_L") pressed or released. Each is sent at once.
    void movePointer(int x, int y);
    void button(int button, bool down);
    void key(const std::string& keysym, bool down);
    void click(int button);
    void tap(const std::string& keysym);

private:
    struct Process;
    std::unique_ptr<Process> m_process;
    void* m_display = nullptr; // Display*
    std::string m_name;
    std::string m_whyNot;
};

} // namespace vrqtest
