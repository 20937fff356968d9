#include "ShortcutLabel.h"

#include "KeyCodes.h"

#include <QStringList>
#include <QSysInfo>

#include <utility>

namespace vantalo {

QString keyName(quint16 keyCode)
{
    const KeyInfo* info = keyInfo(keyCode);
    return info && info->label ? QString::fromUtf16(info->label) : QStringLiteral("?");
}

QString shortcutLabel(quint16 keyCode, quint64 modifiers)
{
    QString label;
    if (modifiers & ModifierFlag::control) {
        label += QChar(0x2303);
    }
    if (modifiers & ModifierFlag::option) {
        label += QChar(0x2325);
    }
    if (modifiers & ModifierFlag::shift) {
        label += QChar(0x21E7);
    }
    if (modifiers & ModifierFlag::command) {
        label += QChar(0x2318);
    }
    return label + keyName(keyCode);
}

QString nativeShortcutLabel(quint16 keyCode, quint64 modifiers)
{
    QStringList parts;
    if (modifiers & ModifierFlag::control) {
        parts << QStringLiteral("Meta");
    }
    if (modifiers & ModifierFlag::option) {
        parts << QStringLiteral("Alt");
    }
    if (modifiers & ModifierFlag::shift) {
        parts << QStringLiteral("Shift");
    }
    if (modifiers & ModifierFlag::command) {
        parts << QStringLiteral("Ctrl");
    }
    const KeyInfo* info = keyInfo(keyCode);
    parts << (info ? QString::fromUtf16(info->nativeLabel) : QStringLiteral("?"));
    return parts.join(QLatin1Char('+'));
}

} // namespace vantalo

namespace vantalo {
QString inputKeyLabel(const Shortcut& shortcut)
{
    QStringList parts;
    for (const auto& [flag, name] :
         {std::pair(ModifierFlag::command, "Ctrl"), std::pair(ModifierFlag::option, "Alt"),
          std::pair(ModifierFlag::shift, "Shift"), std::pair(ModifierFlag::control, "Super")}) {
        if (shortcut.modifiers & flag) {
            parts << QString::fromLatin1(name);
        }
    }
    const KeyInfo* info = keyInfo(shortcut.keyCode);
    parts << (info ? QString::fromUtf16(info->nativeLabel) : QStringLiteral("?"));
    return parts.join(QStringLiteral(" + "));
}

QString displayShortcutLabel(const Shortcut& shortcut)
{
    static const bool compact = QSysInfo::productType() == QLatin1String("macos");
    return compact ? shortcutLabel(shortcut) : nativeShortcutLabel(shortcut);
}
} // namespace vantalo
