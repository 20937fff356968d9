#pragma once

#include "capture/CaptureCollaborators.h"
#include "common/Console.h"
#include "hotkey/HotkeyRegistrar.h"
#include "platform/DesktopSession.h"
#include "recording/CaptureBackend.h"
#include "recording/InputSource.h"

#include <QList>
#include <QProcessEnvironment>
#include <QRect>
#include <QRegion>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

class QWindow;

namespace vantalo {

// The services that differ between desktops. Each is picked on its own for the running session
// (PlatformLoader.cpp), from what this build has:
//
//   service    X11 session        Wayland session (XWayland windows)   anything else
//   capture    xshm               portal (ScreenCast, PipeWire)         none
//   shortcut   xGrab              portal (GlobalShortcuts)              none
//   windows    x11                x11                                   none
//
// VANTALO_CAPTURE=xshm|portal|none in the environment overrides the capture, for tests and
// benchmarks.
enum class CaptureService
{
    xshm,
    portal,
    none,
};
enum class ShortcutService
{
    xGrab,
    portal,
    none,
};
enum class WindowService
{
    x11,
    none,
};

struct PlatformChoice
{
    CaptureService capture = CaptureService::none;
    ShortcutService shortcut = ShortcutService::none;
    WindowService windows = WindowService::none;
    QString noCaptureReason; // why nothing captures, when capture is none
    QString problem;         // a line to tell the user (an override not understood), or empty

    friend bool operator==(const PlatformChoice&, const PlatformChoice&) = default;
};

// What serves a session in which Qt runs on `qpaPlatform` ("xcb", "wayland", "offscreen", …).
PlatformChoice choosePlatform(const QString& qpaPlatform, DesktopSession session,
                              const QProcessEnvironment& environment);

// The window system the overlays are shown on.
class WindowSystem
{
public:
    virtual ~WindowSystem() = default;
    // Whether translucent windows are composited over what lies below them; without it, an
    // overlay must paint what it covers itself.
    virtual bool compositingManagerRunning() const = 0;
    // Lets `window` take mouse input in `region` (its own coordinates) only, whatever it shows.
    virtual void setInputRegion(QWindow* window, const QRegion& region) = 0;
    // The frames of the applications' windows on screen (global Qt coordinates), topmost first;
    // nothing where other applications' windows cannot be seen (a Wayland desktop).
    virtual std::optional<QList<QRect>> windowFrames() const = 0;
};

// What the platform keeps across launches through the application's settings: the token that
// lets a Wayland desktop share the screen again without asking. Called on the main thread.
struct PlatformStore
{
    std::function<QString()> restoreToken;
    std::function<void(const QString&)> storeRestoreToken;
};

// The services picked, made. The application builds its recorder on `capture` (no backend when
// nothing captures: `choice.noCaptureReason` says why).
struct Platform
{
    PlatformChoice choice;
    std::unique_ptr<CaptureBackend> capture;
    std::unique_ptr<HotkeyRegistrar> shortcut;
    // Shortcuts of their own for Pause / Resume and Record Last Region: X grabs any number of
    // keys; the portal binds Vantalo's one (none here).
    std::unique_ptr<HotkeyRegistrar> pauseShortcut;
    std::unique_ptr<HotkeyRegistrar> lastRegionShortcut;
    std::unique_ptr<WindowSystem> windows;
    std::unique_ptr<ScreenCapturePermission> permission;
    // Clicks and keys for recordings that show them; none where they cannot be seen.
    std::unique_ptr<InputSource> input;
};

// Picks and makes the services for the running session; call after the QGuiApplication exists.
Platform loadPlatform(PlatformStore store = {}, LinePrinter print = stdoutPrinter());

} // namespace vantalo
