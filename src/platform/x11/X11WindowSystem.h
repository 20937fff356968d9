#pragma once

#include "platform/Platform.h"

#include <xcb/xcb.h>

namespace vantalo {

// The X server's window services: whether a compositing manager runs, and input shapes.
class X11WindowSystem final : public WindowSystem
{
public:
    explicit X11WindowSystem(xcb_connection_t* connection) : m_connection(connection) {}

    bool compositingManagerRunning() const override;
    void setInputRegion(QWindow* window, const QRegion& region) override;

private:
    xcb_connection_t* m_connection;
};

} // namespace vantalo
