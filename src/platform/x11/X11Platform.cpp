#include "X11Platform.h"

#include "X11CaptureBackend.h"
#include "X11HotkeyManager.h"
#include "XcbReply.h"
#include "platform/portal/PortalCaptureBackend.h"
#include "platform/portal/PortalShortcut.h"
#include "recording/ScreenRecorder.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWindow>
#include <QtMath>

#include <xcb/shape.h>

#include <cstdlib>
#include <memory>
#include <vector>

namespace vantalo {

X11Platform::X11Platform(Capture capture, PlatformStore store) : m_capture(capture), m_store(std::move(store))
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
    if (m_capture == Capture::portal) {
        // XWayland gets keys only while one of its own windows has the focus.
        return std::make_unique<PortalShortcut>(std::move(print));
    }
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
    // Each screen has its own scale: a laptop at 2× beside a monitor at 1×.
    const auto pixelRatio = [](const QString& displayName) {
        for (const QScreen* screen : QGuiApplication::screens()) {
            if (screen->name() == displayName) {
                return screen->devicePixelRatio();
            }
        }
        return qGuiApp->devicePixelRatio();
    };
    if (m_capture == Capture::xshm) {
        return std::make_unique<ScreenRecorder>(std::make_unique<X11CaptureBackend>(), pixelRatio);
    }
    // The token arrives on the capture thread; the settings are written on the main thread.
    const auto store = m_store.storeRestoreToken;
    auto remember = [store](const QString& token) {
        if (store) {
            QMetaObject::invokeMethod(
                qApp, [store, token] { store(token); }, Qt::QueuedConnection);
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
    return std::make_unique<ScreenRecorder>(
        std::make_unique<PortalCaptureBackend>(m_store.restoreToken ? m_store.restoreToken() : QString(),
                                               std::move(remember), PortalTimeouts{}, std::move(screens)),
        pixelRatio);
}

void X11Platform::setInputRegion(QWindow* window, const QRegion& region)
{
    if (!m_connection || !window) {
        return;
    }
    // The input shape alone (SHAPE 1.1): the bounding shape, and so what is drawn, stays whole.
    const qreal scale = window->devicePixelRatio();
    std::vector<xcb_rectangle_t> rectangles;
    for (const QRect& r : region) {
        const QRect native(QPoint(qFloor(r.left() * scale), qFloor(r.top() * scale)),
                           QPoint(qCeil((r.right() + 1) * scale) - 1, qCeil((r.bottom() + 1) * scale) - 1));
        rectangles.push_back(
            {qint16(native.x()), qint16(native.y()), quint16(native.width()), quint16(native.height())});
    }
    xcb_shape_rectangles(m_connection, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT, XCB_CLIP_ORDERING_UNSORTED,
                         xcb_window_t(window->winId()), 0, 0, uint32_t(rectangles.size()), rectangles.data());
    xcb_flush(m_connection);
}

} // namespace vantalo
