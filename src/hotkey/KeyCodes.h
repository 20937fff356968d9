#pragma once

#include <Qt>
#include <QtGlobal>

#include <optional>
#include <span>

namespace vantalo {

// One key in the stored key-code numbering (US layout positions), with what it is called and what
// it is on each platform's side.
struct KeyInfo
{
    quint16 keyCode;
    const char16_t* label;       // in the compact label (⌘G); nullptr: not named there ("?")
    const char16_t* nativeLabel; // in the spelled-out label (Ctrl+G)
    int qtKey;                   // Qt::Key
    bool keypad;                 // Qt reports it with Qt::KeypadModifier
    quint32 keysym;              // X11 keysym (unshifted)
};

std::span<const KeyInfo> keyTable();
const KeyInfo* keyInfo(quint16 keyCode);
// The key whose unshifted X keysym this is (Latin capitals are folded to their key).
const KeyInfo* keyInfoForKeysym(quint32 keysym);
const KeyInfo* keyInfoForQtKey(int qtKey, bool keypad);

} // namespace vantalo

namespace vantalo {

// The stored key code of a key event's Qt key, or nothing for a key Vantalo cannot grab. Shifted
// symbols of a US layout (%, ?, ...) count as their unshifted key, since the shortcut names keys.
std::optional<quint16> keyCodeForQtKey(int qtKey, bool keypad);

// Qt's modifiers in the stored encoding, as Qt maps them on macOS: Ctrl → command,
// Meta → control, Alt → option, Shift → shift. Everything else is dropped.
quint64 storedModifiers(Qt::KeyboardModifiers modifiers);

} // namespace vantalo
