#pragma once

#include "PortalRequest.h"
#include "common/Failure.h"
#include "recording/StreamMapping.h"

#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QEventLoop>
#include <QString>

#include <chrono>
#include <expected>
#include <mutex>

namespace vantalo {

// One monitor the desktop agreed to share: its PipeWire node and where it is.
struct PortalStream
{
    quint32 nodeId = 0;
    StreamPlacement placement;
};

// What a started screen-cast session gives: the session (to open its PipeWire remote and to
// close), the monitors shared, and the token that skips the permission dialog next time.
struct ScreenCastGrant
{
    QDBusObjectPath session;
    QList<PortalStream> streams;
    QString restoreToken;
};

// The desktop's ScreenCast portal (org.freedesktop.portal.ScreenCast) over D-Bus: one monitor,
// the pointer drawn in where the desktop offers that, and the permission kept (persist mode 2).
// Every request waits for its answer within a time limit, the one that may show the permission
// dialog longer. Synchronous: runs a local event loop while it waits.
class PortalScreenCast
{
public:
    // The dialog's time limit is Start's, which may show the permission dialog.
    explicit PortalScreenCast(QDBusConnection bus = QDBusConnection::sessionBus(),
                              PortalTimeouts timeouts = {});

    // Asks for a monitor, with the token of an earlier grant when there is one. Fails with
    // "Screen capture was not allowed" when the user cancels, else with what went wrong.
    std::expected<ScreenCastGrant, Failure> start(const QString& restoreToken);
    // A connection to the session's PipeWire streams (a file descriptor the caller owns).
    std::expected<int, Failure> openPipeWireRemote(const QDBusObjectPath& session);
    void close(const QDBusObjectPath& session);
    // From any thread: the request being waited for is closed and fails at once, and so does
    // every later one.
    void cancel();

private:
    std::expected<QVariantMap, Failure> request(const QString& method, const QVariantList& arguments,
                                                QVariantMap options, std::chrono::milliseconds timeout);

    QDBusConnection m_bus;
    PortalTimeouts m_timeouts;
    std::mutex m_mutex; // guards the two below, which `cancel` reads from another thread
    bool m_cancelled = false;
    QEventLoop* m_waiting = nullptr; // the loop of the request in flight
};

} // namespace vantalo
