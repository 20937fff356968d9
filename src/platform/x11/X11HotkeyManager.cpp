#include "X11HotkeyManager.h"

#include "XcbReply.h"
#include "hotkey/HotkeyMatcher.h"
#include "hotkey/KeyCodes.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QTimer>

#include <xcb/xcb_keysyms.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

Q_LOGGING_CATEGORY(lcHotkey, "vantalo.hotkey", QtInfoMsg)

namespace vantalo {

namespace {
constexpr quint64 kCapsLockFlag = 0x10000;
constexpr xcb_keysym_t kNumLockKeysym = 0xff7f;
} // namespace

X11HotkeyManager::X11HotkeyManager(xcb_connection_t* connection, xcb_window_t root, LinePrinter print)
    : m_connection(connection), m_root(root), m_print(std::move(print)),
      m_keySymbols(xcb_key_symbols_alloc(connection))
{
    QCoreApplication::instance()->installNativeEventFilter(this);
}

X11HotkeyManager::~X11HotkeyManager()
{
    unregisterHotkey();
    if (QCoreApplication::instance()) {
        QCoreApplication::instance()->removeNativeEventFilter(this);
    }
    xcb_key_symbols_free(m_keySymbols);
}

quint16 X11HotkeyManager::x11Modifiers(quint64 flags)
{
    quint16 mods = 0;
    if (flags & ModifierFlag::shift) {
        mods |= XCB_MOD_MASK_SHIFT;
    }
    if (flags & ModifierFlag::command) {
        mods |= XCB_MOD_MASK_CONTROL;
    }
    if (flags & ModifierFlag::option) {
        mods |= XCB_MOD_MASK_1;
    }
    if (flags & ModifierFlag::control) {
        mods |= XCB_MOD_MASK_4;
    }
    return mods;
}

quint64 X11HotkeyManager::storedFlags(quint16 x11State)
{
    quint64 flags = 0;
    if (x11State & XCB_MOD_MASK_SHIFT) {
        flags |= ModifierFlag::shift;
    }
    if (x11State & XCB_MOD_MASK_CONTROL) {
        flags |= ModifierFlag::command;
    }
    if (x11State & XCB_MOD_MASK_1) {
        flags |= ModifierFlag::option;
    }
    if (x11State & XCB_MOD_MASK_4) {
        flags |= ModifierFlag::control;
    }
    if (x11State & XCB_MOD_MASK_LOCK) {
        flags |= kCapsLockFlag;
    }
    return flags;
}

quint16 X11HotkeyManager::numLockMask()
{
    const auto mapping = xcbReply<xcb_get_modifier_mapping_reply_t>(
        xcb_get_modifier_mapping_reply(m_connection, xcb_get_modifier_mapping(m_connection), nullptr));
    if (!mapping) {
        return 0;
    }
    const auto numLockCodes =
        xcbReply<xcb_keycode_t>(xcb_key_symbols_get_keycode(m_keySymbols, kNumLockKeysym));
    if (!numLockCodes) {
        return 0;
    }
    const xcb_keycode_t* codes = xcb_get_modifier_mapping_keycodes(mapping.get());
    const int perModifier = mapping->keycodes_per_modifier;
    for (int modifier = 0; modifier < 8; ++modifier) {
        for (int i = 0; i < perModifier; ++i) {
            const xcb_keycode_t code = codes[modifier * perModifier + i];
            for (const xcb_keycode_t* n = numLockCodes.get(); *n != XCB_NO_SYMBOL; ++n) {
                if (code != 0 && code == *n) {
                    return static_cast<quint16>(1u << modifier);
                }
            }
        }
    }
    return 0;
}

void X11HotkeyManager::registerHotkey(const Shortcut& shortcut, std::function<void()> handler)
{
    unregisterHotkey();
    m_handler = std::move(handler);
    m_shortcut = shortcut;

    const KeyInfo* key = keyInfo(shortcut.keyCode);
    const auto keycodes =
        xcbReply<xcb_keycode_t>(key ? xcb_key_symbols_get_keycode(m_keySymbols, key->keysym) : nullptr);
    if (!keycodes || keycodes.get()[0] == XCB_NO_SYMBOL ||
        (shortcut.modifiers & ~ModifierFlag::shortcutMask)) {
        fail();
        return;
    }
    const xcb_keycode_t keycode = keycodes.get()[0];
    const quint16 mods = x11Modifiers(shortcut.modifiers);
    const quint16 numLock = numLockMask();

    bool refused = false;
    for (quint16 lock : {quint16(0), quint16(XCB_MOD_MASK_LOCK)}) {
        for (quint16 num : {quint16(0), numLock}) {
            const quint16 variant = mods | lock | num;
            if (std::ranges::find(m_grabs, std::pair(keycode, variant)) != m_grabs.end()) {
                continue; // no Num Lock modifier on this server: the variants coincide
            }
            const xcb_void_cookie_t cookie = xcb_grab_key_checked(m_connection, 1, m_root, variant, keycode,
                                                                  XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
            const auto error = xcbReply<xcb_generic_error_t>(xcb_request_check(m_connection, cookie));
            if (error) {
                qCDebug(lcHotkey) << "grab refused, X error" << error->error_code;
                refused = true;
            } else {
                m_grabs.emplace_back(keycode, variant);
            }
        }
    }
    if (refused) {
        fail();
    }
}

void X11HotkeyManager::fail()
{
    // The shortcut and handler stay as registered; nothing listens until the next registration.
    for (const auto& [keycode, variant] : m_grabs) {
        xcb_ungrab_key(m_connection, keycode, m_root, variant);
    }
    m_grabs.clear();
    xcb_flush(m_connection);
    m_print(QStringLiteral("Failed to register global shortcut — another application may be using it"));
    if (onPermissionDenied) {
        onPermissionDenied();
    }
}

void X11HotkeyManager::unregisterHotkey()
{
    for (const auto& [keycode, variant] : m_grabs) {
        xcb_ungrab_key(m_connection, keycode, m_root, variant);
    }
    if (!m_grabs.empty()) {
        xcb_flush(m_connection);
    }
    m_grabs.clear();
    m_handler = nullptr;
}

bool X11HotkeyManager::nativeEventFilter(const QByteArray& eventType, void* message, qintptr*)
{
    if (m_grabs.empty() || eventType != "xcb_generic_event_t") {
        return false;
    }
    const auto* event = static_cast<const xcb_generic_event_t*>(message);
    const quint8 type = event->response_type & 0x7f;
    if (type != XCB_KEY_PRESS && type != XCB_KEY_RELEASE) {
        return false;
    }
    const auto* key = reinterpret_cast<const xcb_key_press_event_t*>(event);
    const KeyInfo* info = keyInfoForKeysym(xcb_key_symbols_get_keysym(m_keySymbols, key->detail, 0));
    if (!info) {
        return false;
    }
    const KeyEventType kind = type == XCB_KEY_PRESS ? KeyEventType::keyDown : KeyEventType::keyUp;
    if (!matchesHotkey(kind, info->keyCode, storedFlags(key->state), m_shortcut)) {
        // Releases of a grabbed key arrive too; they are simply not acted on.
        return false;
    }
    // Never run the handler inside the filter; the one in force when it runs is the one called.
    QTimer::singleShot(0, &m_deferred, [this] {
        if (m_handler) {
            m_handler();
        }
    });
    return true;
}

} // namespace vantalo
