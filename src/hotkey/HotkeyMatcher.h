#pragma once

#include "Shortcut.h"

namespace vantalo {

enum class KeyEventType
{
    keyDown,
    keyUp,
    other,
};

// Whether a key event is a press of the registered shortcut: the same key with exactly the same
// set of shift, control, option and command. Caps Lock, Num Lock and every other bit are ignored;
// an auto-repeated press matches again.
constexpr bool matchesHotkey(KeyEventType type, quint16 keyCode, quint64 flags, const Shortcut& registered)
{
    return type == KeyEventType::keyDown && keyCode == registered.keyCode &&
           (flags & ModifierFlag::shortcutMask) == registered.modifiers;
}

} // namespace vantalo
