#include "SingleInstance.h"

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

bool SingleInstance::sendToRunningInstance(const QString& socketPath, const QByteArray& message)
{
    QLocalSocket socket;
    socket.connectToServer(socketPath);
    if (!socket.waitForConnected(kConnectTimeoutMs)) {
        return false;
    }
    socket.write(message + '\n');
    if (!socket.waitForBytesWritten(kConnectTimeoutMs)) {
        return false;
    }
    // The running instance answers once it has taken the request.
    return socket.waitForReadyRead(kConnectTimeoutMs) && socket.readLine().trimmed() == "ok";
}

bool SingleInstance::listen()
{
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server->listen(m_socketPath)) {
        // Nobody answered on it, so the socket is one left behind.
        QLocalServer::removeServer(m_socketPath);
        if (!m_server->listen(m_socketPath)) {
            return false;
        }
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
