#include "KeyMap.h"

#include <array>
#include <utility>

namespace {

// Runs of keys that SDL numbers in the same order as Windows does.
struct KeyRun {
    SDL_Scancode first;
    SDL_Scancode last;
    std::int32_t firstCode;
};

constexpr std::array<KeyRun, 4> kRuns{{
    {SDL_SCANCODE_A, SDL_SCANCODE_Z, 65},
    {SDL_SCANCODE_1, SDL_SCANCODE_9, 49},
    {SDL_SCANCODE_F1, SDL_SCANCODE_F12, 112},
    {SDL_SCANCODE_KP_1, SDL_SCANCODE_KP_9, 97},
}};

// Shift, Ctrl and Alt send their generic codes from either side: the remote
// side tells left from right itself. (The on-screen gamepad's own table sends
// 93 for its "Alt" button; a physical Alt key sends 18.)
constexpr std::array<std::pair<SDL_Scancode, std::int32_t>, 49> kSingles{{
    {SDL_SCANCODE_0, 48},
    {SDL_SCANCODE_ESCAPE, 27},
    {SDL_SCANCODE_BACKSPACE, 8},
    {SDL_SCANCODE_TAB, 9},
    {SDL_SCANCODE_RETURN, 13},
    {SDL_SCANCODE_SPACE, 32},
    {SDL_SCANCODE_CAPSLOCK, 20},
    {SDL_SCANCODE_LSHIFT, 16},
    {SDL_SCANCODE_RSHIFT, 16},
    {SDL_SCANCODE_LCTRL, 17},
    {SDL_SCANCODE_RCTRL, 17},
    {SDL_SCANCODE_LALT, 18},
    {SDL_SCANCODE_RALT, 18},
    {SDL_SCANCODE_LGUI, 91},
    {SDL_SCANCODE_RGUI, 92},
    {SDL_SCANCODE_APPLICATION, 93},
    {SDL_SCANCODE_PRINTSCREEN, 44},
    {SDL_SCANCODE_SCROLLLOCK, 145},
    {SDL_SCANCODE_PAUSE, 19},
    {SDL_SCANCODE_INSERT, 45},
    {SDL_SCANCODE_DELETE, 46},
    {SDL_SCANCODE_HOME, 36},
    {SDL_SCANCODE_END, 35},
    {SDL_SCANCODE_PAGEUP, 33},
    {SDL_SCANCODE_PAGEDOWN, 34},
    {SDL_SCANCODE_LEFT, 37},
    {SDL_SCANCODE_UP, 38},
    {SDL_SCANCODE_RIGHT, 39},
    {SDL_SCANCODE_DOWN, 40},
    {SDL_SCANCODE_NUMLOCKCLEAR, 144},
    {SDL_SCANCODE_KP_0, 96},
    {SDL_SCANCODE_KP_MULTIPLY, 106},
    {SDL_SCANCODE_KP_PLUS, 107},
    {SDL_SCANCODE_KP_MINUS, 109},
    {SDL_SCANCODE_KP_PERIOD, 110},
    {SDL_SCANCODE_KP_DIVIDE, 111},
    {SDL_SCANCODE_KP_ENTER, 13},
    {SDL_SCANCODE_SEMICOLON, 186},
    {SDL_SCANCODE_EQUALS, 187},
    {SDL_SCANCODE_COMMA, 188},
    {SDL_SCANCODE_MINUS, 189},
    {SDL_SCANCODE_PERIOD, 190},
    {SDL_SCANCODE_SLASH, 191},
    {SDL_SCANCODE_GRAVE, 192},
    {SDL_SCANCODE_LEFTBRACKET, 219},
    {SDL_SCANCODE_BACKSLASH, 220},
    {SDL_SCANCODE_RIGHTBRACKET, 221},
    {SDL_SCANCODE_APOSTROPHE, 222},
    {SDL_SCANCODE_NONUSBACKSLASH, 226}, // the ISO key between left Shift and Z
}};

} // namespace

std::optional<std::int32_t> windowsVirtualKey(SDL_Scancode scancode)
{
    for (const KeyRun& run : kRuns) {
        if (scancode >= run.first && scancode <= run.last)
            return run.firstCode + (scancode - run.first);
    }
    for (const auto& [key, code] : kSingles) {
        if (key == scancode)
            return code;
    }
    return std::nullopt;
}
