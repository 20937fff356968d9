#include "SingleInstance.h"

#include <QDateTime>
#include <QDeadlineTimer>
#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QLoggingCategory>
#include <QStandardPaths>

namespace vantalo {

Q_LOGGING_CATEGORY(lcInstance, "vantalo.instance", QtInfoMsg)

namespace {
constexpr int kConnectTimeoutMs = 1000;
// A request taken this close to its sender's deadline is dropped: the answer might come too late,
// and the sender would then have told the user it was not carried out.
constexpr qint64 kAnswerMarginMs = 1000;
} // namespace

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
    // With the time the sender waits until: a request the running instance only reaches later has
    // been given up, and is not carried out behind the user's back.
    const qint64 sentAt = QDateTime::currentMSecsSinceEpoch();
    const qint64 giveUpAt = sentAt + answerWithin.count();
    socket.write(message + ' ' + QByteArray::number(giveUpAt) + ' ' + QByteArray::number(sentAt) + '\n');
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
                const QList<QByteArray> words = socket->readLine().trimmed().split(' ');
                bool timed = false;
                const qint64 giveUpAt = words.value(1).toLongLong(&timed);
                const qint64 now = QDateTime::currentMSecsSinceEpoch();
                if (timed && now > giveUpAt - kAnswerMarginMs) {
                    qCDebug(lcInstance)
                        << "request" << words.constFirst() << "dropped: given up by its sender";
                    return;
                }
                bool sent = false;
                const qint64 sentAt = words.value(2).toLongLong(&sent);
                qCDebug(lcInstance, "request %s taken %lld ms after it was sent",
                        words.constFirst().constData(), sent ? now - sentAt : -1LL);
                socket->write("ok\n");
                socket->flush();
                Q_EMIT messageReceived(words.constFirst());
            });
        }
    });
    return true;
}

} // namespace vantalo
