#pragma once

#include <QProcessEnvironment>

namespace vantalo {

enum class DesktopSession
{
    x11,                 // an X server, and nothing else
    waylandWithXWayland, // Wayland, with XWayland for X11 windows
    waylandOnly,         // Wayland without XWayland
    none,                // no display at all
};

// What the session offers, from XDG_SESSION_TYPE, WAYLAND_DISPLAY and DISPLAY.
DesktopSession desktopSession(const QProcessEnvironment& environment);

} // namespace vantalo
