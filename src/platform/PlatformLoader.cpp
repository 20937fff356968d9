// The one place that knows which platform services this build has, and picks among them.
#include "Platform.h"

#include "platform/NullCollaborators.h"

#include <QGuiApplication>
#include <QScreen>

#if defined(VANTALO_HAS_X11)
#include "x11/X11CaptureBackend.h"
#include "x11/X11HotkeyManager.h"
#include "x11/X11InputSource.h"
#include "x11/X11WindowSystem.h"
#endif
#if defined(VANTALO_HAS_PORTAL)
#include "portal/PortalCaptureBackend.h"
#include "portal/PortalShortcut.h"
#endif

namespace vantalo {

namespace {

#if defined(VANTALO_HAS_X11)
constexpr bool kHasX11 = true;
#else
constexpr bool kHasX11 = false;
#endif
#if defined(VANTALO_HAS_PORTAL)
constexpr bool kHasPortal = true;
#else
constexpr bool kHasPortal = false;
#endif

const QString kCaptureVariable = QStringLiteral("VANTALO_CAPTURE");

#if defined(VANTALO_HAS_PORTAL)
std::unique_ptr<CaptureBackend> portalCapture(const PlatformStore& store)
{
    // The token arrives on the capture thread; the settings are written on the main thread.
    auto remember = [save = store.storeRestoreToken](const QString& token) {
        if (save) {
            QMetaObject::invokeMethod(
                qApp, [save, token] { save(token); }, Qt::QueuedConnection);
        }
    };
    // The screens as the windows see them, read on the GUI thread before each recording.
    auto screens = [] {
        QList<CaptureDisplay> result;
        for (const QScreen* screen : QGuiApplication::screens()) {
            result.append({screen->name(), screen->geometry()});
        }
        return result;
    };
    return std::make_unique<PortalCaptureBackend>(store.restoreToken ? store.restoreToken() : QString(),
                                                  std::move(remember), PortalTimeouts{}, std::move(screens));
}
#endif

} // namespace

PlatformChoice choosePlatform(const QString& qpaPlatform, DesktopSession session,
                              const QProcessEnvironment& environment)
{
    PlatformChoice choice;
    // Vantalo's windows are X11 windows, on an X server or on a Wayland desktop's XWayland. There,
    // XWayland sees only X11 windows and gets keys only while one of them has the focus, so the
    // picture and the shortcut come from the desktop's portals.
    if (qpaPlatform == QLatin1String("xcb")) {
        const bool wayland =
            session == DesktopSession::waylandWithXWayland || session == DesktopSession::waylandOnly;
        if (kHasX11) {
            choice.windows = WindowService::x11;
        }
        if (wayland && kHasPortal) {
            choice.capture = CaptureService::portal;
            choice.shortcut = ShortcutService::portal;
        } else if (!wayland && kHasX11) {
            choice.capture = CaptureService::xshm;
            choice.shortcut = ShortcutService::xGrab;
        } else {
            choice.noCaptureReason =
                QStringLiteral("This build of Vantalo cannot capture the screen in this session");
        }
    } else if (qpaPlatform.startsWith(QLatin1String("wayland"))) {
        choice.noCaptureReason = QStringLiteral(
            "Screen capture needs Vantalo's windows on XWayland: start it without QT_QPA_PLATFORM=wayland");
    } else {
        choice.noCaptureReason =
            QStringLiteral("Screen capture needs an X11 display (this session runs on \"%1\")")
                .arg(qpaPlatform);
    }

    const QString forced = environment.value(kCaptureVariable);
    if (forced.isEmpty()) {
        return choice;
    }
    if (forced == QLatin1String("xshm") && kHasX11) {
        choice.capture = CaptureService::xshm;
    } else if (forced == QLatin1String("portal") && kHasPortal) {
        choice.capture = CaptureService::portal;
    } else if (forced == QLatin1String("none")) {
        choice.capture = CaptureService::none;
        choice.noCaptureReason = QStringLiteral("Screen capture is off (%1=none)").arg(kCaptureVariable);
        return choice;
    } else {
        QStringList known;
        if (kHasX11) {
            known << QStringLiteral("xshm");
        }
        if (kHasPortal) {
            known << QStringLiteral("portal");
        }
        known << QStringLiteral("none");
        choice.problem = QStringLiteral("%1=%2 is not a capture this build has (%3): the session picks it")
                             .arg(kCaptureVariable, forced, known.join(QStringLiteral(", ")));
        return choice;
    }
    choice.noCaptureReason.clear();
    return choice;
}

Platform loadPlatform([[maybe_unused]] PlatformStore store, LinePrinter print)
{
    const QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    Platform platform;
    platform.choice =
        choosePlatform(QGuiApplication::platformName(), desktopSession(environment), environment);
    if (!platform.choice.problem.isEmpty()) {
        print(platform.choice.problem);
    }
#if defined(VANTALO_HAS_X11)
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    xcb_connection_t* connection = x11 ? x11->connection() : nullptr;
#endif

    switch (platform.choice.capture) {
    case CaptureService::xshm:
#if defined(VANTALO_HAS_X11)
        platform.capture = std::make_unique<X11CaptureBackend>();
#endif
        break;
    case CaptureService::portal:
#if defined(VANTALO_HAS_PORTAL)
        platform.capture = portalCapture(store);
#endif
        break;
    case CaptureService::none:
        break;
    }

    switch (platform.choice.shortcut) {
    case ShortcutService::xGrab:
#if defined(VANTALO_HAS_X11)
        if (connection) {
            const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
            platform.shortcut = std::make_unique<X11HotkeyManager>(connection, root, print);
            // Their own lines when the grab is refused (the coordinator's), not the main one's.
            const LinePrinter silent = [](const QString&) {};
            platform.pauseShortcut = std::make_unique<X11HotkeyManager>(connection, root, silent);
            platform.lastRegionShortcut = std::make_unique<X11HotkeyManager>(connection, root, silent);
        }
#endif
        break;
    case ShortcutService::portal:
#if defined(VANTALO_HAS_PORTAL)
        platform.shortcut = std::make_unique<PortalShortcut>(print);
#endif
        break;
    case ShortcutService::none:
        break;
    }
    if (!platform.shortcut) {
        platform.shortcut = std::make_unique<UnavailableHotkeyRegistrar>(print);
    }

#if defined(VANTALO_HAS_X11)
    if (platform.choice.windows == WindowService::x11 && connection) {
        platform.windows = std::make_unique<X11WindowSystem>(
            connection, platform.choice.capture == CaptureService::portal ? WindowList::xwaylandOnly
                                                                          : WindowList::everyWindow);
        // Under XWayland, the presses that reach X11 applications (all of them where the desktop
        // lets X11 applications read them).
        platform.input = std::make_unique<X11InputSource>();
    }
#endif
    if (!platform.windows) {
        platform.windows = std::make_unique<NullWindowSystem>();
    }
    platform.permission = std::make_unique<GrantedCapturePermission>();
    return platform;
}

} // namespace vantalo
