#include "KeyBindings.h"

namespace {

struct KeyBinding {
    WindowAction action;
    SDL_Scancode key;
    bool ctrlAlt; // held with Ctrl and Alt; otherwise with no modifier but the one named below
    Uint16 modifier;
    const char* keys;
    const char* what;
};

// Ctrl+Alt keeps the window's letters clear of the game's own shortcuts.
constexpr KeyBinding kBindings[] = {
    {WindowAction::ToggleStatistics, SDL_SCANCODE_S, true, 0, "Ctrl+Alt+S", "show or hide the statistics"},
    {WindowAction::ToggleMouseCapture, SDL_SCANCODE_M, true, 0, "Ctrl+Alt+M",
     "capture the mouse for relative moves (first-person games), or release it"},
    {WindowAction::ToggleFullscreen, SDL_SCANCODE_F11, false, 0, "F11", "fullscreen on or off"},
    {WindowAction::Paste, SDL_SCANCODE_V, false, KMOD_CTRL, "Ctrl+V", "paste the clipboard's text into the game"},
    {WindowAction::Paste, SDL_SCANCODE_INSERT, false, KMOD_SHIFT, "Shift+Insert", "paste, too"},
    {WindowAction::Quit, SDL_SCANCODE_Q, true, 0, "Ctrl+Alt+Q", "quit (as closing the window)"},
};

bool holds(Uint16 modifiers, Uint16 wanted)
{
    return wanted == 0 || (modifiers & wanted) != 0;
}

} // namespace

std::optional<WindowAction> windowActionFor(SDL_Scancode key, Uint16 modifiers)
{
    const bool ctrlAlt = holds(modifiers, KMOD_CTRL) && (modifiers & KMOD_ALT) != 0;
    for (const auto& binding : kBindings) {
        if (binding.key != key)
            continue;
        if (binding.ctrlAlt ? ctrlAlt : !ctrlAlt && holds(modifiers, binding.modifier))
            return binding.action;
    }
    return std::nullopt;
}

std::string keyBindingsHelp()
{
    std::string text;
    for (const auto& binding : kBindings) {
        text += "  ";
        text += binding.keys;
        text.append(16 - std::string(binding.keys).size(), ' ');
        text += binding.what;
        text += '\n';
    }
    return text;
}
