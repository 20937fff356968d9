#include "SingleInstance.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>

namespace vantalo {

namespace {
constexpr int kConnectTimeoutMs = 1000;
}

SingleInstance::SingleInstance(QString socketPath, QObject* parent)
    : QObject(parent), m_socketPath(std::move(socketPath))
{
}

SingleInstance::~SingleInstance() = default;

QString SingleInstance::defaultSocketPath()
{
    QString dir = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (dir.isEmpty()) {
        dir = QDir::tempPath();
    }
    return QDir(dir).filePath(QStringLiteral("vantalo.socket"));
}

SingleInstance::Handover SingleInstance::sendToRunningInstance(const QString& socketPath,
                                                               const QByteArray& message,
                                                               std::chrono::milliseconds answerWithin)
{
    // The system accepts the connection for a listening instance however busy it is, so a
    // connection refused (or no socket) means nobody runs.
    QLocalSocket socket;
    socket.connectToServer(socketPath);
    if (!socket.waitForConnected(kConnectTimeoutMs)) {
        return Handover::noInstance;
    }
    socket.write(message + '\n');
    if (!socket.waitForBytesWritten(kConnectTimeoutMs)) {
        return Handover::noAnswer;
    }
    // The running instance answers once its event loop has taken the request.
    QDeadlineTimer deadline(answerWithin);
    while (!socket.canReadLine()) {
        if (deadline.hasExpired() || !socket.waitForReadyRead(static_cast<int>(deadline.remainingTime()))) {
            return Handover::noAnswer;
        }
    }
    return socket.readLine().trimmed() == "ok" ? Handover::delivered : Handover::noAnswer;
}

bool SingleInstance::listen()
{
    // Asked for the user's access alone, the server makes its socket aside and renames it into
    // place, which would replace a live instance's socket as readily as one left behind: so a
    // socket is asked first whether anybody still listens on it.
    QLocalSocket probe;
    probe.connectToServer(m_socketPath);
    if (probe.waitForConnected(kConnectTimeoutMs)) {
        return false;
    }
    QLocalServer::removeServer(m_socketPath);
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server->listen(m_socketPath)) {
        return false;
    }
    connect(m_server, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* socket = m_server->nextPendingConnection()) {
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
                if (!socket->canReadLine()) {
                    return;
                }
                const QByteArray message = socket->readLine().trimmed();
                socket->write("ok\n");
                socket->flush();
                Q_EMIT messageReceived(message);
            });
        }
    });
    return true;
}

} // namespace vantalo
