#include "KeyMap.h"

#include <SDL_keyboard.h>

#include <gtest/gtest.h>

#include <set>
#include <utility>
#include <vector>

namespace {

TEST(KeyMapTest, KeysOfEveryGroupGiveTheirWindowsCodes)
{
    const std::vector<std::pair<SDL_Scancode, std::int32_t>> expected = {
        // letters, digits and function keys, at both ends of each run
        {SDL_SCANCODE_A, 65}, {SDL_SCANCODE_M, 77}, {SDL_SCANCODE_Z, 90},
        {SDL_SCANCODE_0, 48}, {SDL_SCANCODE_1, 49}, {SDL_SCANCODE_9, 57},
        {SDL_SCANCODE_F1, 112}, {SDL_SCANCODE_F10, 121}, {SDL_SCANCODE_F12, 123},
        // editing and modifiers; each pair of sides shares one code
        {SDL_SCANCODE_ESCAPE, 27}, {SDL_SCANCODE_BACKSPACE, 8}, {SDL_SCANCODE_TAB, 9},
        {SDL_SCANCODE_RETURN, 13}, {SDL_SCANCODE_SPACE, 32}, {SDL_SCANCODE_CAPSLOCK, 20},
        {SDL_SCANCODE_LSHIFT, 16}, {SDL_SCANCODE_RSHIFT, 16}, {SDL_SCANCODE_LCTRL, 17},
        {SDL_SCANCODE_RCTRL, 17}, {SDL_SCANCODE_LALT, 18}, {SDL_SCANCODE_RALT, 18},
        {SDL_SCANCODE_LGUI, 91}, {SDL_SCANCODE_RGUI, 92}, {SDL_SCANCODE_APPLICATION, 93},
        // the block above the arrows, and the arrows
        {SDL_SCANCODE_PRINTSCREEN, 44}, {SDL_SCANCODE_SCROLLLOCK, 145}, {SDL_SCANCODE_PAUSE, 19},
        {SDL_SCANCODE_INSERT, 45}, {SDL_SCANCODE_DELETE, 46}, {SDL_SCANCODE_HOME, 36},
        {SDL_SCANCODE_END, 35}, {SDL_SCANCODE_PAGEUP, 33}, {SDL_SCANCODE_PAGEDOWN, 34},
        {SDL_SCANCODE_LEFT, 37}, {SDL_SCANCODE_UP, 38}, {SDL_SCANCODE_RIGHT, 39}, {SDL_SCANCODE_DOWN, 40},
        // keypad
        {SDL_SCANCODE_NUMLOCKCLEAR, 144}, {SDL_SCANCODE_KP_0, 96}, {SDL_SCANCODE_KP_1, 97},
        {SDL_SCANCODE_KP_9, 105}, {SDL_SCANCODE_KP_MULTIPLY, 106}, {SDL_SCANCODE_KP_PLUS, 107},
        {SDL_SCANCODE_KP_MINUS, 109}, {SDL_SCANCODE_KP_PERIOD, 110}, {SDL_SCANCODE_KP_DIVIDE, 111},
        {SDL_SCANCODE_KP_ENTER, 13},
        // punctuation, and the ISO key
        {SDL_SCANCODE_SEMICOLON, 186}, {SDL_SCANCODE_EQUALS, 187}, {SDL_SCANCODE_COMMA, 188},
        {SDL_SCANCODE_MINUS, 189}, {SDL_SCANCODE_PERIOD, 190}, {SDL_SCANCODE_SLASH, 191},
        {SDL_SCANCODE_GRAVE, 192}, {SDL_SCANCODE_LEFTBRACKET, 219}, {SDL_SCANCODE_BACKSLASH, 220},
        {SDL_SCANCODE_RIGHTBRACKET, 221}, {SDL_SCANCODE_APOSTROPHE, 222}, {SDL_SCANCODE_NONUSBACKSLASH, 226},
    };
    for (const auto& [scancode, code] : expected)
        EXPECT_EQ(windowsVirtualKey(scancode), code) << SDL_GetScancodeName(scancode);

    for (SDL_Scancode unmapped : {SDL_SCANCODE_UNKNOWN, SDL_SCANCODE_F13, SDL_SCANCODE_AUDIOPLAY,
                                  SDL_SCANCODE_NONUSHASH, SDL_SCANCODE_KP_EQUALS, SDL_SCANCODE_MUTE})
        EXPECT_EQ(windowsVirtualKey(unmapped), std::nullopt) << SDL_GetScancodeName(unmapped);
}

// 104 keys and the ISO one; only the two sides of Shift, Ctrl and Alt and the
// two Enter keys share a code.
TEST(KeyMapTest, MapsOneHundredAndFiveKeysToOneHundredAndOneCodes)
{
    std::size_t mapped = 0;
    std::set<std::int32_t> codes;
    for (int scancode = 0; scancode < SDL_NUM_SCANCODES; ++scancode) {
        if (const auto code = windowsVirtualKey(static_cast<SDL_Scancode>(scancode))) {
            ++mapped;
            codes.insert(*code);
        }
    }
    EXPECT_EQ(mapped, 105u);
    EXPECT_EQ(codes.size(), 101u);
}

} // namespace
