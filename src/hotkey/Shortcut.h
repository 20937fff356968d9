#pragma once

#include <QtGlobal>

#include <cstdint>

namespace vantalo {

// Modifier bits in the stored encoding. The values are those of the macOS event flags, so a
// settings file means the same shortcut on every platform; each platform translates at its edge.
namespace ModifierFlag {
inline constexpr quint64 shift = 0x20000;
inline constexpr quint64 control = 0x40000;
inline constexpr quint64 option = 0x80000;
inline constexpr quint64 command = 0x100000;
// The only bits a shortcut is made of; everything else (Caps Lock, keypad, ...) is ignored.
inline constexpr quint64 shortcutMask = shift | control | option | command;
} // namespace ModifierFlag

// Key codes in the stored encoding (US layout positions).
namespace KeyCode {
inline constexpr quint16 g = 5;
inline constexpr quint16 escape = 53;
} // namespace KeyCode

struct Shortcut
{
    quint16 keyCode = KeyCode::g;
    quint64 modifiers = ModifierFlag::command;

    friend bool operator==(const Shortcut&, const Shortcut&) = default;
};

} // namespace vantalo
