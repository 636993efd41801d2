#pragma once

#include <SDL_keyboard.h>

#include <optional>
#include <string>

// What the window's own keys do. These keys stay in the window: the game
// never sees them (the modifiers held for them have reached it already).
enum class WindowAction { ToggleStatistics, ToggleMouseCapture, ToggleFullscreen, Paste, Quit };

// The action of a key pressed with the given modifiers (SDL_Keymod), if it is one.
std::optional<WindowAction> windowActionFor(SDL_Scancode key, Uint16 modifiers);

// The bindings as lines for --help and the README.
std::string keyBindingsHelp();
