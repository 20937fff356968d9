#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

class QLocalServer;

namespace vantalo {

// One Vantalo per user: the running instance listens on a local socket in the user's runtime
// directory, and a second start hands its request over and exits.
class SingleInstance : public QObject
{
    Q_OBJECT
public:
    static inline const QByteArray toggleMessage = QByteArrayLiteral("toggle");
    static inline const QByteArray activateMessage = QByteArrayLiteral("activate");

    explicit SingleInstance(QString socketPath, QObject* parent = nullptr);
    ~SingleInstance() override;

    // The socket in the user's runtime directory (readable by the user alone).
    static QString defaultSocketPath();

    // Delivers `message` to a running instance; false when none answers.
    static bool sendToRunningInstance(const QString& socketPath, const QByteArray& message);

    // Starts listening; a socket left behind by an instance that died is replaced.
    bool listen();

Q_SIGNALS:
    void messageReceived(const QByteArray& message);

private:
    QString m_socketPath;
    QLocalServer* m_server = nullptr;
};

} // namespace vantalo
