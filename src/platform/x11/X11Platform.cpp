#include "X11Platform.h"

#include "X11CaptureBackend.h"
#include "X11HotkeyManager.h"
#include "recording/ScreenRecorder.h"

#include <QGuiApplication>

namespace vantalo {

X11Platform::X11Platform()
{
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    m_connection = x11 ? x11->connection() : nullptr;
    if (m_connection) {
        const xcb_setup_t* setup = xcb_get_setup(m_connection);
        m_root = xcb_setup_roots_iterator(setup).data->root;
    }
}

std::unique_ptr<HotkeyRegistrar> X11Platform::createHotkeyManager(LinePrinter print)
{
    if (!m_connection) {
        return std::make_unique<UnavailableHotkeyRegistrar>(std::move(print));
    }
    return std::make_unique<X11HotkeyManager>(m_connection, m_root, std::move(print));
}

std::unique_ptr<FrameRecorder> X11Platform::createScreenRecorder()
{
    return std::make_unique<ScreenRecorder>(std::make_unique<X11CaptureBackend>(),
                                            [] { return qGuiApp->devicePixelRatio(); });
}

} // namespace vantalo
