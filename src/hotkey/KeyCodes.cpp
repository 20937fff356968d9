#include "KeyCodes.h"

#include "Shortcut.h"

#include <Qt>

#include <algorithm>
#include <array>

namespace vantalo {

namespace {
using enum Qt::Key;

constexpr KeyInfo letter(quint16 code, char16_t const* text, Qt::Key key, char c)
{
    return {code, text, text, key, false, static_cast<quint32>(c)};
}

// clang-format off
constexpr std::array kKeys{
    // Letters
    letter(0, u"A", Key_A, 'a'),  letter(1, u"S", Key_S, 's'),  letter(2, u"D", Key_D, 'd'),
    letter(3, u"F", Key_F, 'f'),  letter(4, u"H", Key_H, 'h'),  letter(5, u"G", Key_G, 'g'),
    letter(6, u"Z", Key_Z, 'z'),  letter(7, u"X", Key_X, 'x'),  letter(8, u"C", Key_C, 'c'),
    letter(9, u"V", Key_V, 'v'),  letter(11, u"B", Key_B, 'b'), letter(12, u"Q", Key_Q, 'q'),
    letter(13, u"W", Key_W, 'w'), letter(14, u"E", Key_E, 'e'), letter(15, u"R", Key_R, 'r'),
    letter(16, u"Y", Key_Y, 'y'), letter(17, u"T", Key_T, 't'), letter(31, u"O", Key_O, 'o'),
    letter(32, u"U", Key_U, 'u'), letter(34, u"I", Key_I, 'i'), letter(35, u"P", Key_P, 'p'),
    letter(37, u"L", Key_L, 'l'), letter(38, u"J", Key_J, 'j'), letter(40, u"K", Key_K, 'k'),
    letter(45, u"N", Key_N, 'n'), letter(46, u"M", Key_M, 'm'),
    // Digits
    letter(18, u"1", Key_1, '1'), letter(19, u"2", Key_2, '2'), letter(20, u"3", Key_3, '3'),
    letter(21, u"4", Key_4, '4'), letter(22, u"6", Key_6, '6'), letter(23, u"5", Key_5, '5'),
    letter(25, u"9", Key_9, '9'), letter(26, u"7", Key_7, '7'), letter(28, u"8", Key_8, '8'),
    letter(29, u"0", Key_0, '0'),
    // Punctuation
    letter(24, u"=", Key_Equal, '='),        letter(27, u"-", Key_Minus, '-'),
    letter(30, u"]", Key_BracketRight, ']'), letter(33, u"[", Key_BracketLeft, '['),
    letter(39, u"'", Key_Apostrophe, '\''),  letter(41, u";", Key_Semicolon, ';'),
    letter(42, u"\\", Key_Backslash, '\\'),  letter(43, u",", Key_Comma, ','),
    letter(44, u"/", Key_Slash, '/'),        letter(47, u".", Key_Period, '.'),
    letter(50, u"`", Key_QuoteLeft, '`'),
    // Named keys
    KeyInfo{48, u"\u21E5", u"Tab", Key_Tab, false, 0xff09},
    KeyInfo{49, u"Space", u"Space", Key_Space, false, 0x20},
    KeyInfo{51, u"\u232B", u"Backspace", Key_Backspace, false, 0xff08},
    KeyInfo{53, u"\u238B", u"Esc", Key_Escape, false, 0xff1b},
    KeyInfo{76, u"\u21A9", u"Enter", Key_Enter, true, 0xff8d},
    // Function keys
    KeyInfo{122, u"F1", u"F1", Key_F1, false, 0xffbe},   KeyInfo{120, u"F2", u"F2", Key_F2, false, 0xffbf},
    KeyInfo{99, u"F3", u"F3", Key_F3, false, 0xffc0},    KeyInfo{118, u"F4", u"F4", Key_F4, false, 0xffc1},
    KeyInfo{96, u"F5", u"F5", Key_F5, false, 0xffc2},    KeyInfo{97, u"F6", u"F6", Key_F6, false, 0xffc3},
    KeyInfo{98, u"F7", u"F7", Key_F7, false, 0xffc4},    KeyInfo{100, u"F8", u"F8", Key_F8, false, 0xffc5},
    KeyInfo{101, u"F9", u"F9", Key_F9, false, 0xffc6},   KeyInfo{109, u"F10", u"F10", Key_F10, false, 0xffc7},
    KeyInfo{103, u"F11", u"F11", Key_F11, false, 0xffc8}, KeyInfo{111, u"F12", u"F12", Key_F12, false, 0xffc9},
    KeyInfo{105, u"F13", u"F13", Key_F13, false, 0xffca},
    // Arrows
    KeyInfo{123, u"\u2190", u"Left", Key_Left, false, 0xff51},
    KeyInfo{124, u"\u2192", u"Right", Key_Right, false, 0xff53},
    KeyInfo{125, u"\u2193", u"Down", Key_Down, false, 0xff54},
    KeyInfo{126, u"\u2191", u"Up", Key_Up, false, 0xff52},
    // Keys that have a place on Linux keyboards but no name in the compact labels.
    KeyInfo{36, nullptr, u"Return", Key_Return, false, 0xff0d},
    KeyInfo{117, nullptr, u"Del", Key_Delete, false, 0xffff},
    KeyInfo{115, nullptr, u"Home", Key_Home, false, 0xff50},
    KeyInfo{119, nullptr, u"End", Key_End, false, 0xff57},
    KeyInfo{116, nullptr, u"PgUp", Key_PageUp, false, 0xff55},
    KeyInfo{121, nullptr, u"PgDown", Key_PageDown, false, 0xff56},
    KeyInfo{114, nullptr, u"Ins", Key_Insert, false, 0xff63},
    KeyInfo{107, nullptr, u"F14", Key_F14, false, 0xffcb},
    KeyInfo{113, nullptr, u"F15", Key_F15, false, 0xffcc},
    // Keypad
    KeyInfo{82, nullptr, u"Num+0", Key_0, true, 0xffb0},   KeyInfo{83, nullptr, u"Num+1", Key_1, true, 0xffb1},
    KeyInfo{84, nullptr, u"Num+2", Key_2, true, 0xffb2},   KeyInfo{85, nullptr, u"Num+3", Key_3, true, 0xffb3},
    KeyInfo{86, nullptr, u"Num+4", Key_4, true, 0xffb4},   KeyInfo{87, nullptr, u"Num+5", Key_5, true, 0xffb5},
    KeyInfo{88, nullptr, u"Num+6", Key_6, true, 0xffb6},   KeyInfo{89, nullptr, u"Num+7", Key_7, true, 0xffb7},
    KeyInfo{91, nullptr, u"Num+8", Key_8, true, 0xffb8},   KeyInfo{92, nullptr, u"Num+9", Key_9, true, 0xffb9},
    KeyInfo{65, nullptr, u"Num+.", Key_Period, true, 0xffae},
    KeyInfo{67, nullptr, u"Num+*", Key_Asterisk, true, 0xffaa},
    KeyInfo{69, nullptr, u"Num++", Key_Plus, true, 0xffab},
    KeyInfo{75, nullptr, u"Num+/", Key_Slash, true, 0xffaf},
    KeyInfo{78, nullptr, u"Num+-", Key_Minus, true, 0xffad},
    KeyInfo{81, nullptr, u"Num+=", Key_Equal, true, 0xffbd},
};
// clang-format on
} // namespace

std::span<const KeyInfo> keyTable()
{
    return kKeys;
}

const KeyInfo* keyInfo(quint16 keyCode)
{
    const auto it = std::ranges::find(kKeys, keyCode, &KeyInfo::keyCode);
    return it == kKeys.end() ? nullptr : &*it;
}

const KeyInfo* keyInfoForKeysym(quint32 keysym)
{
    if (keysym >= 'A' && keysym <= 'Z') {
        keysym += 'a' - 'A';
    }
    const auto it = std::ranges::find(kKeys, keysym, &KeyInfo::keysym);
    return it == kKeys.end() ? nullptr : &*it;
}

const KeyInfo* keyInfoForQtKey(int qtKey, bool keypad)
{
    const auto it = std::ranges::find_if(
        kKeys, [&](const KeyInfo& info) { return info.qtKey == qtKey && info.keypad == keypad; });
    return it == kKeys.end() ? nullptr : &*it;
}

} // namespace vantalo

namespace vantalo {

std::optional<quint16> keyCodeForQtKey(int qtKey, bool keypad)
{
    if (const KeyInfo* info = keyInfoForQtKey(qtKey, keypad)) {
        return info->keyCode;
    }
    static constexpr std::pair<int, int> kShifted[]{
        {Qt::Key_Exclam, Qt::Key_1},
        {Qt::Key_At, Qt::Key_2},
        {Qt::Key_NumberSign, Qt::Key_3},
        {Qt::Key_Dollar, Qt::Key_4},
        {Qt::Key_Percent, Qt::Key_5},
        {Qt::Key_AsciiCircum, Qt::Key_6},
        {Qt::Key_Ampersand, Qt::Key_7},
        {Qt::Key_Asterisk, Qt::Key_8},
        {Qt::Key_ParenLeft, Qt::Key_9},
        {Qt::Key_ParenRight, Qt::Key_0},
        {Qt::Key_Underscore, Qt::Key_Minus},
        {Qt::Key_Plus, Qt::Key_Equal},
        {Qt::Key_BraceLeft, Qt::Key_BracketLeft},
        {Qt::Key_BraceRight, Qt::Key_BracketRight},
        {Qt::Key_Bar, Qt::Key_Backslash},
        {Qt::Key_Colon, Qt::Key_Semicolon},
        {Qt::Key_QuoteDbl, Qt::Key_Apostrophe},
        {Qt::Key_Less, Qt::Key_Comma},
        {Qt::Key_Greater, Qt::Key_Period},
        {Qt::Key_Question, Qt::Key_Slash},
        {Qt::Key_AsciiTilde, Qt::Key_QuoteLeft},
        {Qt::Key_Backtab, Qt::Key_Tab},
    };
    if (!keypad) {
        for (const auto& [shifted, base] : kShifted) {
            if (shifted == qtKey) {
                return keyCodeForQtKey(base, false);
            }
        }
    }
    return std::nullopt;
}

quint64 storedModifiers(Qt::KeyboardModifiers modifiers)
{
    quint64 flags = 0;
    if (modifiers & Qt::ControlModifier) {
        flags |= ModifierFlag::command;
    }
    if (modifiers & Qt::MetaModifier) {
        flags |= ModifierFlag::control;
    }
    if (modifiers & Qt::AltModifier) {
        flags |= ModifierFlag::option;
    }
    if (modifiers & Qt::ShiftModifier) {
        flags |= ModifierFlag::shift;
    }
    return flags;
}

} // namespace vantalo
