// The one place that knows which platform implementations this build has.
#include "Platform.h"

#include "null/NullPlatform.h"
#include "platform/DesktopSession.h"

#include <QGuiApplication>

#if defined(VANTALO_PLATFORM_X11)
#include "x11/X11Platform.h"
#endif

namespace vantalo {

std::unique_ptr<Platform> createPlatform(PlatformStore store)
{
    const QString session = QGuiApplication::platformName();
#if defined(VANTALO_PLATFORM_X11)
    if (session == QLatin1String("xcb")) {
        // XWayland sees only X11 windows: on a Wayland desktop the picture comes from its portal.
        const bool wayland = desktopSession(QProcessEnvironment::systemEnvironment()) != DesktopSession::x11;
        return std::make_unique<X11Platform>(
            wayland ? X11Platform::Capture::portal : X11Platform::Capture::xshm, std::move(store));
    }
#endif
    if (session.startsWith(QLatin1String("wayland"))) {
        return std::make_unique<NullPlatform>(QStringLiteral(
            "Screen capture is not supported in a Wayland session yet; log in to an X11 session"));
    }
    return std::make_unique<NullPlatform>(
        QStringLiteral("Screen capture needs an X11 display (this session runs on \"%1\")").arg(session));
}

} // namespace vantalo
