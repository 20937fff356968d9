#pragma once

#include "platform/NullCollaborators.h"
#include "platform/Platform.h"

#include <xcb/xcb.h>

namespace vantalo {

// An X11 session: everything an X server lets a client do is allowed, so the capture permission
// is always granted.
class X11Platform final : public Platform
{
public:
    enum class Capture
    {
        xshm,   // the X server's own screen
        portal, // a Wayland desktop's portals: ScreenCast, and GlobalShortcuts for the shortcut
                // (XWayland sees only X11 windows and gets keys only while one has the focus)
    };
    explicit X11Platform(Capture capture = Capture::xshm, PlatformStore store = {});

    QString name() const override { return QStringLiteral("x11"); }
    std::unique_ptr<HotkeyRegistrar> createHotkeyManager(LinePrinter print) override;
    std::unique_ptr<FrameRecorder> createScreenRecorder() override;
    ScreenCapturePermission& screenCapturePermission() override { return m_permission; }
    bool compositingManagerRunning() const override;
    void setInputRegion(QWindow* window, const QRegion& region) override;

private:
    Capture m_capture;
    PlatformStore m_store;
    GrantedCapturePermission m_permission;
    xcb_connection_t* m_connection = nullptr;
    xcb_window_t m_root = 0;
};

} // namespace vantalo
