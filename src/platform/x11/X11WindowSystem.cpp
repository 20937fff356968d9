#include "X11WindowSystem.h"

#include "XcbReply.h"

#include <QWindow>
#include <QtMath>

#include <xcb/shape.h>

#include <vector>

namespace vantalo {

bool X11WindowSystem::compositingManagerRunning() const
{
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

void X11WindowSystem::setInputRegion(QWindow* window, const QRegion& region)
{
    if (!window) {
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
