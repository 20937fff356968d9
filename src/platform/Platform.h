#pragma once

#include "common/Console.h"

#include <QRegion>
#include <QString>

#include <functional>
#include <memory>

class QWindow;

namespace vantalo {

class FrameRecorder;
class HotkeyRegistrar;
class ScreenCapturePermission;

// The services that differ between desktops: global shortcuts, screen capture and the permission
// to capture. One factory picks the implementation for the running session.
class Platform
{
public:
    virtual ~Platform() = default;

    virtual QString name() const = 0;
    virtual std::unique_ptr<HotkeyRegistrar> createHotkeyManager(LinePrinter print) = 0;
    virtual std::unique_ptr<FrameRecorder> createScreenRecorder() = 0;
    virtual ScreenCapturePermission& screenCapturePermission() = 0;
    // Whether translucent windows are composited over what lies below them; without it, an
    // overlay must paint what it covers itself.
    virtual bool compositingManagerRunning() const = 0;
    // Lets `window` take mouse input in `region` (its own coordinates) only, whatever it shows.
    virtual void setInputRegion(QWindow* window, const QRegion& region) = 0;
};

// What the platform keeps across launches through the application's settings: the token that
// lets a Wayland desktop share the screen again without asking. Called on the main thread.
struct PlatformStore
{
    std::function<QString()> restoreToken;
    std::function<void(const QString&)> storeRestoreToken;
};

// Picks the platform for the running session; call after the QGuiApplication exists. In a Wayland
// session the windows are XWayland's and capture goes through the desktop's ScreenCast portal.
std::unique_ptr<Platform> createPlatform(PlatformStore store = {});

} // namespace vantalo
