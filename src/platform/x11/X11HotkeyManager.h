#pragma once

#include "common/Console.h"
#include "hotkey/HotkeyRegistrar.h"

#include <QAbstractNativeEventFilter>
#include <QObject>

#include <xcb/xcb.h>

#include <vector>

struct _XCBKeySymbols;

namespace vantalo {

// The shortcut as a passive key grab on the root window. Each shortcut is grabbed four times
// (with and without Caps Lock and Num Lock), since X matches the modifier state exactly.
class X11HotkeyManager final : public HotkeyRegistrar, private QAbstractNativeEventFilter
{
public:
    X11HotkeyManager(xcb_connection_t* connection, xcb_window_t root, LinePrinter print);
    ~X11HotkeyManager() override;

    void registerHotkey(const Shortcut& shortcut, std::function<void()> handler) override;
    void unregisterHotkey() override;

    // The X modifier state for the stored flags: command → Control, control → Super (Mod4),
    // option → Alt (Mod1), shift → Shift.
    static quint16 x11Modifiers(quint64 flags);
    // And back, with Caps Lock kept as its own bit so the matcher can ignore it.
    static quint64 storedFlags(quint16 x11State);

private:
    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;
    quint16 numLockMask();
    void fail();

    xcb_connection_t* m_connection;
    xcb_window_t m_root;
    LinePrinter m_print;
    _XCBKeySymbols* m_keySymbols;
    Shortcut m_shortcut;
    std::function<void()> m_handler;
    std::vector<std::pair<xcb_keycode_t, quint16>> m_grabs;
    // Deferred handler calls die with the manager.
    QObject m_deferred;
};

} // namespace vantalo
