#include "DesktopSession.h"

namespace vantalo {

DesktopSession desktopSession(const QProcessEnvironment& environment)
{
    const bool wayland = environment.value(QStringLiteral("XDG_SESSION_TYPE")) == QLatin1String("wayland") ||
                         !environment.value(QStringLiteral("WAYLAND_DISPLAY")).isEmpty();
    const bool x11 = !environment.value(QStringLiteral("DISPLAY")).isEmpty();
    if (wayland) {
        return x11 ? DesktopSession::waylandWithXWayland : DesktopSession::waylandOnly;
    }
    return x11 ? DesktopSession::x11 : DesktopSession::none;
}

} // namespace vantalo
