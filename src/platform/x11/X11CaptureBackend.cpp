#include "X11CaptureBackend.h"

#include <QGuiApplication>
#include <QLoggingCategory>
#include <QPainter>

#include "XcbReply.h"

#include <xcb/randr.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>
#include <xcb/xfixes.h>

#include <pthread.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <csignal>
#include <cstdlib>
#include <memory>

Q_LOGGING_CATEGORY(lcX11Capture, "vantalo.x11.capture", QtInfoMsg)

namespace vantalo {

namespace {

using Connection = std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)>;

std::expected<Connection, Failure> connect(const QByteArray& displayName)
{
    Connection connection(xcb_connect(displayName.isEmpty() ? nullptr : displayName.constData(), nullptr),
                          &xcb_disconnect);
    if (xcb_connection_has_error(connection.get())) {
        return std::unexpected(Failure{
            QStringLiteral("Cannot connect to the X display \"%1\"")
                .arg(QString::fromLocal8Bit(displayName.isEmpty() ? qgetenv("DISPLAY") : displayName))});
    }
    return connection;
}

xcb_screen_t* defaultScreen(xcb_connection_t* connection)
{
    return xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
}

Failure connectionLost(xcb_connection_t* connection)
{
    return Failure{QStringLiteral("The connection to the X server was lost (error %1)")
                       .arg(xcb_connection_has_error(connection))};
}

class X11CaptureStream final : public CaptureStream
{
public:
    // `grabbed` is the part of `rect` on the screen; the rest of each frame stays black.
    X11CaptureStream(Connection connection, const QRect& rect, const QRect& grabbed)
        : m_connection(std::move(connection)), m_rect(rect), m_grabbed(grabbed)
    {
        xcb_connection_t* c = m_connection.get();
        m_root = defaultScreen(c)->root;
        attachSharedMemory();
        const xcb_query_extension_reply_t* xfixes = xcb_get_extension_data(c, &xcb_xfixes_id);
        if (xfixes && xfixes->present) {
            // XFixes wants its version asked before any other request.
            auto version = xcbReply(xcb_xfixes_query_version_reply(
                c, xcb_xfixes_query_version(c, XCB_XFIXES_MAJOR_VERSION, XCB_XFIXES_MINOR_VERSION), nullptr));
            m_hasXFixes = version && version->major_version >= 1;
        }
    }

    ~X11CaptureStream() override { close(); }

    std::expected<std::optional<QImage>, Failure> grab() override
    {
        // A server that goes away turns the next write on its socket into SIGPIPE, which would end
        // the whole process. Blocked on the capturing thread, the write fails instead and the
        // connection reports the error (xcb writes nothing more after that).
        static thread_local const bool sigpipeBlocked = [] {
            sigset_t pipe;
            sigemptyset(&pipe);
            sigaddset(&pipe, SIGPIPE);
            return pthread_sigmask(SIG_BLOCK, &pipe, nullptr) == 0;
        }();
        Q_UNUSED(sigpipeBlocked);
        xcb_connection_t* c = m_connection.get();
        if (xcb_connection_has_error(c)) {
            return std::unexpected(connectionLost(c));
        }
        // Both requests go out before either answer is read: one round trip a frame.
        const auto cursorCookie = m_hasXFixes ? std::optional(xcb_xfixes_get_cursor_image(c)) : std::nullopt;
        std::optional<QImage> image = m_shmAddress ? grabShared() : grabPlain();
        if (xcb_connection_has_error(c)) {
            return std::unexpected(connectionLost(c));
        }
        if (image && m_grabbed != m_rect) {
            QImage whole(m_rect.size(), QImage::Format_RGB32);
            whole.fill(Qt::black);
            QPainter(&whole).drawImage(m_grabbed.topLeft() - m_rect.topLeft(), *image);
            image = std::move(whole);
        }
        if (cursorCookie) {
            auto cursor = xcbReply(xcb_xfixes_get_cursor_image_reply(c, *cursorCookie, nullptr));
            if (image && cursor) {
                paintCursor(*image, *cursor);
            }
        }
        return image;
    }

private:
    void attachSharedMemory()
    {
        xcb_connection_t* c = m_connection.get();
        const xcb_query_extension_reply_t* shm = xcb_get_extension_data(c, &xcb_shm_id);
        if (!shm || !shm->present) {
            qCDebug(lcX11Capture) << "no MIT-SHM: grabbing through the socket";
            return;
        }
        const size_t bytes = size_t(m_grabbed.width()) * size_t(m_grabbed.height()) * 4;
        const int id = shmget(IPC_PRIVATE, bytes, IPC_CREAT | 0600);
        if (id < 0) {
            return;
        }
        void* address = shmat(id, nullptr, 0);
        if (address == reinterpret_cast<void*>(-1)) {
            shmctl(id, IPC_RMID, nullptr);
            return;
        }
        const xcb_shm_seg_t segment = xcb_generate_id(c);
        auto error = xcbReply(xcb_request_check(c, xcb_shm_attach_checked(c, segment, id, 0)));
        // Marked for removal at once: the segment goes away with the last detach, even if we crash.
        shmctl(id, IPC_RMID, nullptr);
        if (error) {
            shmdt(address);
            qCDebug(lcX11Capture) << "the server could not attach the segment; grabbing through the socket";
            return;
        }
        m_segment = segment;
        m_shmAddress = static_cast<uchar*>(address);
    }

    std::optional<QImage> imageFrom(const uchar* data, int length, quint8 depth) const
    {
        const qsizetype stride = qsizetype(m_grabbed.width()) * 4;
        if ((depth != 24 && depth != 32) || length < stride * m_grabbed.height()) {
            return std::nullopt;
        }
        return QImage(data, m_grabbed.width(), m_grabbed.height(), stride, QImage::Format_RGB32).copy();
    }

    std::optional<QImage> grabShared()
    {
        xcb_connection_t* c = m_connection.get();
        auto image = xcbReply(xcb_shm_get_image_reply(
            c,
            xcb_shm_get_image(c, m_root, int16_t(m_grabbed.x()), int16_t(m_grabbed.y()), m_grabbed.width(),
                              m_grabbed.height(), ~0u, XCB_IMAGE_FORMAT_Z_PIXMAP, m_segment, 0),
            nullptr));
        if (!image) {
            return std::nullopt;
        }
        return imageFrom(m_shmAddress, int(image->size), image->depth);
    }

    std::optional<QImage> grabPlain()
    {
        xcb_connection_t* c = m_connection.get();
        auto image = xcbReply(xcb_get_image_reply(
            c,
            xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, m_root, int16_t(m_grabbed.x()),
                          int16_t(m_grabbed.y()), m_grabbed.width(), m_grabbed.height(), ~0u),
            nullptr));
        if (!image) {
            return std::nullopt;
        }
        return imageFrom(xcb_get_image_data(image.get()), xcb_get_image_data_length(image.get()),
                         image->depth);
    }

    void paintCursor(QImage& image, const xcb_xfixes_get_cursor_image_reply_t& cursor) const
    {
        const QPoint topLeft(cursor.x - cursor.xhot - m_rect.x(), cursor.y - cursor.yhot - m_rect.y());
        const QRect area(topLeft, QSize(cursor.width, cursor.height));
        if (!area.intersects(image.rect()) || cursor.width == 0 || cursor.height == 0) {
            return;
        }
        const QImage pointer(
            reinterpret_cast<const uchar*>(xcb_xfixes_get_cursor_image_cursor_image(&cursor)), cursor.width,
            cursor.height, cursor.width * 4, QImage::Format_ARGB32_Premultiplied);
        QPainter painter(&image);
        painter.drawImage(topLeft, pointer);
    }

    // One stop path, safe to call twice.
    void close()
    {
        if (m_shmAddress) {
            if (!xcb_connection_has_error(m_connection.get())) {
                xcb_shm_detach(m_connection.get(), m_segment);
                xcb_flush(m_connection.get());
            }
            shmdt(m_shmAddress);
            m_shmAddress = nullptr;
        }
    }

    Connection m_connection;
    QRect m_rect;
    QRect m_grabbed;
    xcb_window_t m_root = 0;
    xcb_shm_seg_t m_segment = 0;
    uchar* m_shmAddress = nullptr;
    bool m_hasXFixes = false;
};

} // namespace

X11CaptureBackend::X11CaptureBackend(QByteArray displayName) : m_displayName(std::move(displayName)) {}

void X11CaptureBackend::prepare()
{
    const auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (xcb_connection_t* c = x11 ? x11->connection() : nullptr) {
        // A round trip: every request before it has been carried out when its answer comes.
        std::free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
    }
}

std::expected<QList<CaptureDisplay>, Failure> X11CaptureBackend::displays()
{
    auto connection = connect(m_displayName);
    if (!connection) {
        return std::unexpected(connection.error());
    }
    xcb_connection_t* c = connection->get();
    const xcb_screen_t* screen = defaultScreen(c);

    QList<CaptureDisplay> displays;
    const xcb_query_extension_reply_t* randr = xcb_get_extension_data(c, &xcb_randr_id);
    if (randr && randr->present) {
        auto monitors =
            xcbReply(xcb_randr_get_monitors_reply(c, xcb_randr_get_monitors(c, screen->root, 1), nullptr));
        if (monitors) {
            for (auto it = xcb_randr_get_monitors_monitors_iterator(monitors.get()); it.rem;
                 xcb_randr_monitor_info_next(&it)) {
                const xcb_randr_monitor_info_t* monitor = it.data;
                auto name =
                    xcbReply(xcb_get_atom_name_reply(c, xcb_get_atom_name(c, monitor->name), nullptr));
                CaptureDisplay display{name ? QString::fromLatin1(xcb_get_atom_name_name(name.get()),
                                                                  xcb_get_atom_name_name_length(name.get()))
                                            : QString(),
                                       QRect(monitor->x, monitor->y, monitor->width, monitor->height)};
                // The primary display comes first, as the capture flow expects.
                if (monitor->primary) {
                    displays.prepend(display);
                } else {
                    displays.append(display);
                }
            }
        }
    }
    if (displays.isEmpty()) {
        displays.append(CaptureDisplay{QStringLiteral("screen"),
                                       QRect(0, 0, screen->width_in_pixels, screen->height_in_pixels)});
    }
    return displays;
}

std::expected<std::unique_ptr<CaptureStream>, Failure> X11CaptureBackend::openStream(const QRect& nativeRect)
{
    if (nativeRect.isEmpty()) {
        return std::unexpected(Failure{QStringLiteral("The region to capture is empty")});
    }
    auto connection = connect(m_displayName);
    if (!connection) {
        return std::unexpected(connection.error());
    }
    // A region that reaches past the screen (dragged off a display's edge) is recorded as far as
    // the screen goes.
    const xcb_screen_t* screen = defaultScreen(connection->get());
    const QRect grabbed = nativeRect & QRect(0, 0, screen->width_in_pixels, screen->height_in_pixels);
    if (grabbed.isEmpty()) {
        return std::unexpected(Failure{QStringLiteral("The region lies outside the screen")});
    }
    return std::make_unique<X11CaptureStream>(std::move(*connection), nativeRect, grabbed);
}

} // namespace vantalo
