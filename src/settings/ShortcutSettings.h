#pragma once

#include "hotkey/Shortcut.h"

#include <QString>

namespace vantalo {

class UserDefaults;

// What a shortcut does. Start or stop is the one every desktop offers; the others are registered
// where the platform allows more than one global shortcut.
enum class ShortcutAction
{
    toggleRecording,  // G with the command flag (Ctrl+G, ⌘G)
    pauseRecording,   // with Shift too
    recordLastRegion, // with the option flag too (Ctrl+Alt+G, ⌘⌥G)
};
inline constexpr ShortcutAction allShortcutActions[] = {
    ShortcutAction::toggleRecording, ShortcutAction::pauseRecording, ShortcutAction::recordLastRegion};
Shortcut defaultShortcut(ShortcutAction action);
// "Start Recording", "Pause / Resume", "Record Last Region".
QString shortcutActionName(ShortcutAction action);

// Registers the shortcut defaults; done at every launch before anything reads them.
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
StoredShortcut readStoredShortcut(const UserDefaults& defaults,
                                  ShortcutAction action = ShortcutAction::toggleRecording);
inline Shortcut readShortcut(const UserDefaults& defaults,
                             ShortcutAction action = ShortcutAction::toggleRecording)
{
    return readStoredShortcut(defaults, action).shortcut;
}

// What the menu shows: what is registered.
inline Shortcut menuShortcut(const UserDefaults& defaults)
{
    return readShortcut(defaults);
}

// Stores a newly recorded shortcut in both of its keys.
void storeShortcut(UserDefaults& defaults, const Shortcut& shortcut,
                   ShortcutAction action = ShortcutAction::toggleRecording);

} // namespace vantalo
