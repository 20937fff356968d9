#include "X11Platform.h"

#include "X11CaptureBackend.h"
#include "X11HotkeyManager.h"
#include "XcbReply.h"
#include "recording/ScreenRecorder.h"

#include <QGuiApplication>

#include <cstdlib>
#include <memory>

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

bool X11Platform::compositingManagerRunning() const
{
    if (!m_connection) {
        return false;
    }
    // A compositing manager owns the selection _NET_WM_CM_S<screen>.
    const QByteArray name = QByteArrayLiteral("_NET_WM_CM_S0");
    const auto atom = xcbReply<xcb_intern_atom_reply_t>(xcb_intern_atom_reply(
        m_connection, xcb_intern_atom(m_connection, 0, name.size(), name.constData()), nullptr));
    if (!atom) {
        return false;
    }
    const auto owner = xcbReply<xcb_get_selection_owner_reply_t>(xcb_get_selection_owner_reply(
        m_connection, xcb_get_selection_owner(m_connection, atom->atom), nullptr));
    return owner && owner->owner != XCB_NONE;
}

std::unique_ptr<FrameRecorder> X11Platform::createScreenRecorder()
{
    return std::make_unique<ScreenRecorder>(std::make_unique<X11CaptureBackend>(),
                                            [] { return qGuiApp->devicePixelRatio(); });
}

} // namespace vantalo
