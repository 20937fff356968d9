#include "ShortcutSettings.h"

#include "SettingsKeys.h"
#include "UserDefaults.h"
#include "hotkey/KeyCodes.h"

#include <limits>

namespace vantalo {

void registerShortcutDefaults(UserDefaults& defaults)
{
    defaults.registerDefaults({
        {SettingsKey::hotkeyKeyCode, qint64(KeyCode::g)},
        {SettingsKey::hotkeyModifiers, qint64(ModifierFlag::command)},
    });
}

StoredShortcut readStoredShortcut(const UserDefaults& defaults)
{
    const auto read = [&defaults](const QString& key, qint64 fallback) -> std::optional<qint64> {
        const auto object = defaults.objectForKey(key);
        return object ? UserDefaults::integerValue(*object) : std::optional<qint64>(fallback);
    };
    const auto keyCode = read(SettingsKey::hotkeyKeyCode, KeyCode::g);
    const auto modifiers = read(SettingsKey::hotkeyModifiers, qint64(ModifierFlag::command));
    const bool usable = keyCode && modifiers && *keyCode >= 0 &&
                        *keyCode <= std::numeric_limits<quint16>::max() &&
                        keyInfo(quint16(*keyCode)) != nullptr && *modifiers > 0 &&
                        (quint64(*modifiers) & ~ModifierFlag::shortcutMask) == 0;
    if (!usable) {
        return {Shortcut{}, true};
    }
    return {Shortcut{quint16(*keyCode), quint64(*modifiers)}, false};
}

void storeShortcut(UserDefaults& defaults, const Shortcut& shortcut)
{
    defaults.setInteger(SettingsKey::hotkeyKeyCode, shortcut.keyCode);
    defaults.setInteger(SettingsKey::hotkeyModifiers, static_cast<qint64>(shortcut.modifiers));
}

} // namespace vantalo
