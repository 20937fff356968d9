#pragma once

#include "hotkey/Shortcut.h"

namespace vantalo {

class UserDefaults;

// Registers the two shortcut defaults (G with the command flag); done at every launch before
// anything reads them.
void registerShortcutDefaults(UserDefaults& defaults);

struct StoredShortcut
{
    Shortcut shortcut;
    // The stored pair could never be registered, so the default stands in for it.
    bool fellBack = false;
};

// The shortcut the capture flow registers and the labels show. A key that was never stored reads
// as the default. A stored pair is used only when it can be registered: both whole decimal
// integers, a key of the key table, and modifiers made of the four shortcut bits, at least one;
// anything else (a word, "5.0", a huge number, stray bits) gives the default shortcut instead of
// a different key grabbed system-wide.
StoredShortcut readStoredShortcut(const UserDefaults& defaults);
inline Shortcut readShortcut(const UserDefaults& defaults)
{
    return readStoredShortcut(defaults).shortcut;
}

// What the menu shows: what is registered.
inline Shortcut menuShortcut(const UserDefaults& defaults)
{
    return readShortcut(defaults);
}

// Stores a newly recorded shortcut in both keys.
void storeShortcut(UserDefaults& defaults, const Shortcut& shortcut);

} // namespace vantalo
