// The two stored shortcut values as bytes in the settings file: whatever they hold, the shortcut
// read is one that can be registered, and a stored pair is taken exactly or not at all.
#include "Check.h"
#include "hotkey/KeyCodes.h"
#include "hotkey/ShortcutLabel.h"
#include "settings/SettingsKeys.h"
#include "settings/ShortcutSettings.h"
#include "settings/UserDefaults.h"

#include <QFile>
#include <QScopeGuard>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdint>

using namespace vantalo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // Two values separated by the first newline; the file is written as an editor would.
    const QByteArray input(reinterpret_cast<const char*>(data), qsizetype(size));
    const qsizetype split = input.indexOf('\n');
    const QByteArray keyCode = split < 0 ? input : input.left(split);
    const QByteArray modifiers = split < 0 ? QByteArray() : input.mid(split + 1);
    if (keyCode.contains('\n') || modifiers.contains('\n')) {
        return 0;
    }
    // A new name each time: QSettings caches a file it has read by its name and time stamp.
    static QTemporaryDir dir;
    static int count = 0;
    const QString path = dir.filePath(QStringLiteral("settings-%1.ini").arg(++count));
    const auto remove = qScopeGuard([&path] { QFile::remove(path); });
    {
        QFile file(path);
        FUZZ_CHECK(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write("[General]\nhotkeyKeyCode=" + keyCode + "\nhotkeyModifiers=" + modifiers + "\n");
    }
    UserDefaults defaults(path);
    registerShortcutDefaults(defaults);
    const StoredShortcut stored = readStoredShortcut(defaults);
    FUZZ_CHECK(keyInfo(stored.shortcut.keyCode) != nullptr);
    FUZZ_CHECK(stored.shortcut.modifiers != 0 &&
               (stored.shortcut.modifiers & ~ModifierFlag::shortcutMask) == 0);
    FUZZ_CHECK(menuShortcut(defaults) == stored.shortcut);
    FUZZ_CHECK(!nativeShortcutLabel(stored.shortcut).isEmpty());
    if (stored.fellBack) {
        FUZZ_CHECK(stored.shortcut == Shortcut{});
    }
    // Plain digits that name a registrable pair are taken exactly.
    bool keyOk = false;
    bool modifiersOk = false;
    const qint64 key = keyCode.toLongLong(&keyOk);
    const qint64 bits = modifiers.toLongLong(&modifiersOk);
    const auto digits = [](const QByteArray& text) {
        return !text.isEmpty() &&
               std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    };
    if (digits(keyCode) && digits(modifiers) && keyOk && modifiersOk && key <= 0xffff &&
        keyInfo(quint16(key)) != nullptr && bits != 0 && (quint64(bits) & ~ModifierFlag::shortcutMask) == 0) {
        FUZZ_CHECK(!stored.fellBack && stored.shortcut == (Shortcut{quint16(key), quint64(bits)}));
    }
    return 0;
}
