#include "ShortcutSettings.h"

#include "SettingsKeys.h"
#include "UserDefaults.h"

#include <limits>

namespace vantalo {

void registerShortcutDefaults(UserDefaults& defaults)
{
    defaults.registerDefaults({
        {SettingsKey::hotkeyKeyCode, qint64(KeyCode::g)},
        {SettingsKey::hotkeyModifiers, qint64(ModifierFlag::command)},
    });
}

namespace {
std::optional<quint16> keyCodeIfInRange(qint64 value)
{
    if (value < 0 || value > std::numeric_limits<quint16>::max()) {
        return std::nullopt;
    }
    return static_cast<quint16>(value);
}
} // namespace

Shortcut readShortcut(const UserDefaults& defaults)
{
    Shortcut shortcut;
    if (defaults.objectForKey(SettingsKey::hotkeyKeyCode)) {
        shortcut.keyCode =
            keyCodeIfInRange(defaults.integerForKey(SettingsKey::hotkeyKeyCode)).value_or(KeyCode::g);
    }
    if (const auto object = defaults.objectForKey(SettingsKey::hotkeyModifiers)) {
        if (const auto bits = UserDefaults::integerValue(*object)) {
            shortcut.modifiers = static_cast<quint64>(*bits);
        }
    }
    return shortcut;
}

Shortcut menuShortcut(const UserDefaults& defaults)
{
    return Shortcut{
        keyCodeIfInRange(defaults.integerForKey(SettingsKey::hotkeyKeyCode)).value_or(KeyCode::g),
        static_cast<quint64>(defaults.integerForKey(SettingsKey::hotkeyModifiers)),
    };
}

void storeShortcut(UserDefaults& defaults, const Shortcut& shortcut)
{
    defaults.setInteger(SettingsKey::hotkeyKeyCode, shortcut.keyCode);
    defaults.setInteger(SettingsKey::hotkeyModifiers, static_cast<qint64>(shortcut.modifiers));
}

} // namespace vantalo
