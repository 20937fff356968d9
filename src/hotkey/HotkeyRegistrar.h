#pragma once

#include "Shortcut.h"

#include <QString>

#include <functional>
#include <optional>

namespace vantalo {

// A system-wide shortcut. Registering replaces the earlier shortcut; a registration the system
// refuses prints one line and calls `onPermissionDenied` (before `registerHotkey` returns, or when
// a desktop that answers later has answered). The handler always runs on a later turn of the GUI
// event loop, never inside the platform's callback.
class HotkeyRegistrar
{
public:
    virtual ~HotkeyRegistrar() = default;

    virtual void registerHotkey(const Shortcut& shortcut, std::function<void()> handler) = 0;
    virtual void unregisterHotkey() = 0;

    // What the user presses where the desktop, not Vantalo, decides the keys: the desktop's own
    // words for the bound keys ("Ctrl+G"), or an empty text when the desktop offers no global
    // shortcuts at all. Nothing where the registered shortcut is what works.
    virtual std::optional<QString> desktopTrigger() const { return std::nullopt; }

    std::function<void()> onPermissionDenied;
};

} // namespace vantalo
