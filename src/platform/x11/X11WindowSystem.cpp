#include "X11WindowSystem.h"

#include "XcbReply.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWindow>
#include <QtMath>

#include <xcb/shape.h>

#include <cstring>
#include <vector>

namespace vantalo {

namespace {

xcb_atom_t atom(xcb_connection_t* c, const char* name)
{
    const auto reply = xcbReply(xcb_intern_atom_reply(c, xcb_intern_atom(c, 1, strlen(name), name), nullptr));
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

// A property of 32-bit items (windows, cardinals); empty when absent.
std::vector<uint32_t> property32(xcb_connection_t* c, xcb_window_t window, xcb_atom_t name, xcb_atom_t type)
{
    if (name == XCB_ATOM_NONE) {
        return {};
    }
    const auto reply =
        xcbReply(xcb_get_property_reply(c, xcb_get_property(c, 0, window, name, type, 0, 4096), nullptr));
    if (!reply || reply->format != 32) {
        return {};
    }
    const auto* items = static_cast<const uint32_t*>(xcb_get_property_value(reply.get()));
    return {items, items + xcb_get_property_value_length(reply.get()) / 4};
}

// The window's rectangle on the root, in pixels, if it is mapped.
std::optional<QRect> mappedRect(xcb_connection_t* c, xcb_window_t root, xcb_window_t window)
{
    const auto attributes =
        xcbReply(xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, window), nullptr));
    const auto geometry = xcbReply(xcb_get_geometry_reply(c, xcb_get_geometry(c, window), nullptr));
    const auto origin = xcbReply(
        xcb_translate_coordinates_reply(c, xcb_translate_coordinates(c, window, root, 0, 0), nullptr));
    if (!attributes || !geometry || !origin || attributes->map_state != XCB_MAP_STATE_VIEWABLE) {
        return std::nullopt;
    }
    return QRect(origin->dst_x, origin->dst_y, geometry->width, geometry->height);
}

} // namespace

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

std::optional<QList<QRect>> X11WindowSystem::windowFrames() const
{
    if (m_windows == WindowList::xwaylandOnly) {
        return std::nullopt;
    }
    xcb_connection_t* c = m_connection;
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
    std::vector<uint32_t> stacking =
        property32(c, root, atom(c, "_NET_CLIENT_LIST_STACKING"), XCB_ATOM_WINDOW);
    const bool managed = !stacking.empty();
    if (!managed) {
        const auto tree = xcbReply(xcb_query_tree_reply(c, xcb_query_tree(c, root), nullptr));
        if (tree) {
            const xcb_window_t* children = xcb_query_tree_children(tree.get());
            for (int k = 0; k < xcb_query_tree_children_length(tree.get()); ++k) {
                const auto attributes = xcbReply(
                    xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, children[k]), nullptr));
                if (attributes && !attributes->override_redirect) {
                    stacking.push_back(children[k]);
                }
            }
        }
    }
    const xcb_atom_t extentsAtom = managed ? atom(c, "_NET_FRAME_EXTENTS") : xcb_atom_t(XCB_ATOM_NONE);
    const qreal scale =
        QGuiApplication::primaryScreen() ? QGuiApplication::primaryScreen()->devicePixelRatio() : 1;
    QList<QRect> frames;
    // Both lists run from the bottom of the stack to the top.
    for (auto window = stacking.rbegin(); window != stacking.rend(); ++window) {
        std::optional<QRect> rect = mappedRect(c, root, *window);
        if (!rect) {
            continue;
        }
        // left, right, top, bottom: what the window manager drew round the client.
        const std::vector<uint32_t> extents = property32(c, *window, extentsAtom, XCB_ATOM_CARDINAL);
        if (extents.size() == 4) {
            rect = rect->adjusted(-int(extents[0]), -int(extents[2]), int(extents[1]), int(extents[3]));
        }
        frames.append(QRect(QPoint(qFloor(rect->x() / scale), qFloor(rect->y() / scale)),
                            QSize(qCeil(rect->width() / scale), qCeil(rect->height() / scale))));
    }
    return frames;
}

} // namespace vantalo
