#pragma once

#include "Shortcut.h"

#include <QString>

namespace vantalo {

// The key's name in compact labels, "?" for keys without one.
QString keyName(quint16 keyCode);

// The compact label: ⌃ ⌥ ⇧ ⌘ in that fixed order, then the key's name (⌘G, ⇧⌘5, ⌃⌘Space).
QString shortcutLabel(quint16 keyCode, quint64 modifiers);

// The same shortcut spelled out as Linux desktops write it, in the same order with each flag's
// key on a PC keyboard: control → Meta, option → Alt, shift → Shift, command → Ctrl
// (Ctrl+G, Shift+Ctrl+5, Meta+Space).
QString nativeShortcutLabel(quint16 keyCode, quint64 modifiers);

inline QString shortcutLabel(const Shortcut& s)
{
    return shortcutLabel(s.keyCode, s.modifiers);
}
inline QString nativeShortcutLabel(const Shortcut& s)
{
    return nativeShortcutLabel(s.keyCode, s.modifiers);
}

} // namespace vantalo

namespace vantalo {
// The label this platform's users read: the compact form on macOS, the spelled-out one elsewhere.
QString displayShortcutLabel(const Shortcut& shortcut);
// The shortcut as a recording's key label shows it ("Ctrl + Shift + G"): Ctrl, Alt, Shift and
// Super, then the key.
QString inputKeyLabel(const Shortcut& shortcut);
} // namespace vantalo
