#pragma once

#include "Shortcut.h"

#include <functional>

namespace vantalo {

// A system-wide shortcut. Registering replaces the earlier shortcut; a registration the system
// refuses prints one line and calls `onPermissionDenied` before `registerHotkey` returns. The
// handler always runs on a later turn of the GUI event loop, never inside the platform's callback.
class HotkeyRegistrar
{
public:
    virtual ~HotkeyRegistrar() = default;

    virtual void registerHotkey(const Shortcut& shortcut, std::function<void()> handler) = 0;
    virtual void unregisterHotkey() = 0;

    std::function<void()> onPermissionDenied;
};

} // namespace vantalo
