#pragma once

#include "hotkey/Shortcut.h"

namespace vantalo {

class UserDefaults;

// Registers the two shortcut defaults (G with the command flag); done at every launch before
// anything reads them.
void registerShortcutDefaults(UserDefaults& defaults);

// The shortcut the capture flow registers: a present key code is taken if it fits 16 bits (one
// that does not is ignored in favour of G, since Vantalo itself never writes one); modifiers are
// taken when present and an integer, else the command flag.
Shortcut readShortcut(const UserDefaults& defaults);

// What the menu shows: both keys read as plain integers, relying on the registered defaults.
Shortcut menuShortcut(const UserDefaults& defaults);

// Stores a newly recorded shortcut in both keys.
void storeShortcut(UserDefaults& defaults, const Shortcut& shortcut);

} // namespace vantalo
