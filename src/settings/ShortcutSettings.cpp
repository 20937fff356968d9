#include "ShortcutSettings.h"

#include "SettingsKeys.h"
#include "UserDefaults.h"
#include "hotkey/KeyCodes.h"

#include <limits>

namespace vantalo {

namespace {
std::pair<QString, QString> keysOf(ShortcutAction action)
{
    switch (action) {
    case ShortcutAction::pauseRecording:
        return {SettingsKey::pauseHotkeyKeyCode, SettingsKey::pauseHotkeyModifiers};
    case ShortcutAction::recordLastRegion:
        return {SettingsKey::lastRegionHotkeyKeyCode, SettingsKey::lastRegionHotkeyModifiers};
    case ShortcutAction::toggleRecording:
        break;
    }
    return {SettingsKey::hotkeyKeyCode, SettingsKey::hotkeyModifiers};
}
} // namespace

Shortcut defaultShortcut(ShortcutAction action)
{
    switch (action) {
    case ShortcutAction::pauseRecording:
        return {KeyCode::g, ModifierFlag::command | ModifierFlag::shift};
    case ShortcutAction::recordLastRegion:
        return {KeyCode::g, ModifierFlag::command | ModifierFlag::option};
    case ShortcutAction::toggleRecording:
        break;
    }
    return {KeyCode::g, ModifierFlag::command};
}

QString shortcutActionName(ShortcutAction action)
{
    switch (action) {
    case ShortcutAction::pauseRecording:
        return QStringLiteral("Pause / Resume");
    case ShortcutAction::recordLastRegion:
        return QStringLiteral("Record Last Region");
    case ShortcutAction::toggleRecording:
        break;
    }
    return QStringLiteral("Start Recording");
}

void registerShortcutDefaults(UserDefaults& defaults)
{
    for (const ShortcutAction action : allShortcutActions) {
        const auto [keyCode, modifiers] = keysOf(action);
        const Shortcut shortcut = defaultShortcut(action);
        defaults.registerDefaults({
            {keyCode, qint64(shortcut.keyCode)},
            {modifiers, qint64(shortcut.modifiers)},
        });
    }
}

StoredShortcut readStoredShortcut(const UserDefaults& defaults, ShortcutAction action)
{
    const Shortcut fallback = defaultShortcut(action);
    const auto read = [&defaults](const QString& key, qint64 fallback) -> std::optional<qint64> {
        const auto object = defaults.objectForKey(key);
        return object ? UserDefaults::integerValue(*object) : std::optional<qint64>(fallback);
    };
    const auto [keyCodeKey, modifiersKey] = keysOf(action);
    const auto keyCode = read(keyCodeKey, fallback.keyCode);
    const auto modifiers = read(modifiersKey, qint64(fallback.modifiers));
    const bool usable = keyCode && modifiers && *keyCode >= 0 &&
                        *keyCode <= std::numeric_limits<quint16>::max() &&
                        keyInfo(quint16(*keyCode)) != nullptr && *modifiers > 0 &&
                        (quint64(*modifiers) & ~ModifierFlag::shortcutMask) == 0;
    if (!usable) {
        return {fallback, true};
    }
    return {Shortcut{quint16(*keyCode), quint64(*modifiers)}, false};
}

void storeShortcut(UserDefaults& defaults, const Shortcut& shortcut, ShortcutAction action)
{
    const auto [keyCode, modifiers] = keysOf(action);
    defaults.setInteger(keyCode, shortcut.keyCode);
    defaults.setInteger(modifiers, static_cast<qint64>(shortcut.modifiers));
}

} // namespace vantalo
