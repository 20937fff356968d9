#pragma once

#include "platform/Platform.h"

#include <xcb/xcb.h>

namespace vantalo {

// Whether the X server shows every application's windows, or only those of XWayland's clients
// (a Wayland desktop, whose own windows it cannot see).
enum class WindowList
{
    everyWindow,
    xwaylandOnly,
};

// The X server's window services: whether a compositing manager runs, input shapes, and where
// the windows are.
class X11WindowSystem final : public WindowSystem
{
public:
    X11WindowSystem(xcb_connection_t* connection, WindowList windows)
        : m_connection(connection), m_windows(windows)
    {
    }

    bool compositingManagerRunning() const override;
    void setInputRegion(QWindow* window, const QRegion& region) override;
    // From the window manager's stacking list, each client window with the frame it drew round
    // it; without a window manager, the root's mapped children that are not override-redirect.
    std::optional<QList<QRect>> windowFrames() const override;

private:
    xcb_connection_t* m_connection;
    WindowList m_windows;
};

} // namespace vantalo
