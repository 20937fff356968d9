#include "PortalScreenCast.h"

#include "PortalRequest.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QEventLoop>

#include <unistd.h>

namespace vantalo {

namespace {

const QString kService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kInterface = QStringLiteral("org.freedesktop.portal.ScreenCast");
constexpr quint32 kMonitor = 1;
constexpr quint32 kCursorHidden = 1;
constexpr quint32 kCursorEmbedded = 2;
constexpr quint32 kPersistUntilRevoked = 2;

Failure portalFailure(const QString& what)
{
    return Failure{what};
}

// (ii) inside a variant, as QtDBus hands it over.
std::optional<std::pair<int, int>> intPair(const QVariant& value)
{
    if (!value.canConvert<QDBusArgument>()) {
        return std::nullopt;
    }
    const auto argument = value.value<QDBusArgument>();
    int first = 0;
    int second = 0;
    argument.beginStructure();
    argument >> first >> second;
    argument.endStructure();
    return std::pair(first, second);
}

QList<PortalStream> readStreams(const QVariant& value)
{
    QList<PortalStream> streams;
    if (!value.canConvert<QDBusArgument>()) {
        return streams;
    }
    const auto argument = value.value<QDBusArgument>();
    argument.beginArray();
    while (!argument.atEnd()) {
        PortalStream stream;
        QVariantMap properties;
        argument.beginStructure();
        argument >> stream.nodeId >> properties;
        argument.endStructure();
        if (const auto position = intPair(properties.value(QStringLiteral("position")))) {
            stream.placement.position = QPoint(position->first, position->second);
        }
        if (const auto size = intPair(properties.value(QStringLiteral("size")))) {
            stream.placement.size = QSize(size->first, size->second);
        }
        streams.append(stream);
    }
    argument.endArray();
    return streams;
}

} // namespace

PortalScreenCast::PortalScreenCast(QDBusConnection bus, PortalTimeouts timeouts)
    : m_bus(std::move(bus)), m_timeouts(timeouts)
{
}

std::expected<QVariantMap, Failure> PortalScreenCast::request(const QString& method,
                                                              const QVariantList& arguments,
                                                              QVariantMap options,
                                                              std::chrono::milliseconds timeout)
{
    std::optional<std::expected<QVariantMap, Failure>> answer;
    QEventLoop loop;
    {
        std::lock_guard lock(m_mutex);
        if (m_cancelled) {
            return std::unexpected(Failure{QStringLiteral("the screen-cast request was cancelled")});
        }
        m_waiting = &loop;
    }
    const QString path =
        portalRequest(Portal{m_bus, kInterface, QStringLiteral("the screen-cast portal")}, method, arguments,
                      std::move(options), timeout, QStringLiteral("Screen capture was not allowed"), &loop,
                      [&](std::expected<QVariantMap, Failure> result) {
                          answer = std::move(result);
                          loop.quit();
                      });
    if (!answer) {
        loop.exec(QEventLoop::ExcludeUserInputEvents);
    }
    {
        std::lock_guard lock(m_mutex);
        m_waiting = nullptr;
    }
    if (!answer) {
        // Cancelled: the desktop may still be showing its question; take it back.
        m_bus.call(QDBusMessage::createMethodCall(kService, path,
                                                  QStringLiteral("org.freedesktop.portal.Request"),
                                                  QStringLiteral("Close")),
                   QDBus::NoBlock);
        return std::unexpected(Failure{QStringLiteral("the screen-cast request was cancelled")});
    }
    return *answer;
}

std::expected<ScreenCastGrant, Failure> PortalScreenCast::start(const QString& restoreToken)
{
    const auto created =
        request(QStringLiteral("CreateSession"), {},
                {{QStringLiteral("session_handle_token"), portalToken()}}, m_timeouts.request);
    if (!created) {
        return std::unexpected(created.error());
    }
    ScreenCastGrant grant;
    grant.session = QDBusObjectPath(created->value(QStringLiteral("session_handle")).toString());

    // The pointer drawn into the frames where the desktop can, else left out.
    QDBusMessage get = QDBusMessage::createMethodCall(
        kService, kPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get.setArguments({kInterface, QStringLiteral("AvailableCursorModes")});
    const QDBusMessage modes = m_bus.call(get, QDBus::Block, int(m_timeouts.request.count()));
    const quint32 available =
        modes.arguments().isEmpty() ? 0 : modes.arguments().first().value<QDBusVariant>().variant().toUInt();
    QVariantMap sources{
        {QStringLiteral("types"), kMonitor},
        {QStringLiteral("multiple"), false},
        {QStringLiteral("cursor_mode"), (available & kCursorEmbedded) ? kCursorEmbedded : kCursorHidden},
        {QStringLiteral("persist_mode"), kPersistUntilRevoked}};
    if (!restoreToken.isEmpty()) {
        sources.insert(QStringLiteral("restore_token"), restoreToken);
    }
    const auto selected = request(QStringLiteral("SelectSources"), {QVariant::fromValue(grant.session)},
                                  sources, m_timeouts.request);
    if (!selected) {
        close(grant.session);
        return std::unexpected(selected.error());
    }
    // Start may show the permission dialog: the user gets time to answer it.
    const auto started = request(QStringLiteral("Start"), {QVariant::fromValue(grant.session), QString()}, {},
                                 m_timeouts.dialog);
    if (!started) {
        close(grant.session);
        return std::unexpected(started.error());
    }
    grant.streams = readStreams(started->value(QStringLiteral("streams")));
    grant.restoreToken = started->value(QStringLiteral("restore_token")).toString();
    if (grant.streams.isEmpty()) {
        close(grant.session);
        return std::unexpected(portalFailure(QStringLiteral("the screen-cast portal shared no monitor")));
    }
    return grant;
}

std::expected<int, Failure> PortalScreenCast::openPipeWireRemote(const QDBusObjectPath& session)
{
    QDBusMessage call =
        QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("OpenPipeWireRemote"));
    call.setArguments({QVariant::fromValue(session), QVariantMap{}});
    const QDBusMessage reply = m_bus.call(call, QDBus::Block, int(m_timeouts.request.count()));
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        return std::unexpected(
            portalFailure(QStringLiteral("the screen-cast portal gave no PipeWire connection (%1)")
                              .arg(reply.errorMessage())));
    }
    const auto descriptor = reply.arguments().first().value<QDBusUnixFileDescriptor>();
    const int fd = descriptor.isValid() ? ::dup(descriptor.fileDescriptor()) : -1;
    if (fd < 0) {
        return std::unexpected(
            portalFailure(QStringLiteral("the screen-cast portal gave no PipeWire connection")));
    }
    return fd;
}

void PortalScreenCast::cancel()
{
    std::lock_guard lock(m_mutex);
    m_cancelled = true;
    if (m_waiting) {
        // Runs on the waiting thread, inside its loop; dropped if the loop has ended by then.
        QMetaObject::invokeMethod(m_waiting, &QEventLoop::quit, Qt::QueuedConnection);
    }
}

void PortalScreenCast::close(const QDBusObjectPath& session)
{
    if (session.path().isEmpty()) {
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        kService, session.path(), QStringLiteral("org.freedesktop.portal.Session"), QStringLiteral("Close"));
    m_bus.call(call, QDBus::NoBlock);
}

} // namespace vantalo
