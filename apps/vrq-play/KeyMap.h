#pragma once

#include <SDL_scancode.h>

#include <cstdint>
#include <optional>

// The Windows virtual-key code the remote game expects for a key of a
// 104-key US keyboard, or for the extra key of a 105-key ISO one; nothing for
// any other key.
std::optional<std::int32_t> windowsVirtualKey(SDL_Scancode scancode);
