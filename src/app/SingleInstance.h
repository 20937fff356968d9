#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

#include <chrono>

class QLocalServer;

namespace vantalo {

// One Vantalo per user: the running instance listens on a local socket in the user's runtime
// directory, and a second start hands its request over and exits.
class SingleInstance : public QObject
{
    Q_OBJECT
public:
    static inline const QByteArray toggleMessage = QByteArrayLiteral("toggle");
    // `vantalo --toggle --last-region`
    static inline const QByteArray toggleLastRegionMessage = QByteArrayLiteral("toggle-last-region");
    // `vantalo --pause`
    static inline const QByteArray pauseMessage = QByteArrayLiteral("pause");
    static inline const QByteArray activateMessage = QByteArrayLiteral("activate");

    explicit SingleInstance(QString socketPath, QObject* parent = nullptr);
    ~SingleInstance() override;

    // The socket in the user's runtime directory (readable by the user alone).
    static QString defaultSocketPath();

    enum class Handover
    {
        delivered,  // the running instance took the request
        noInstance, // nobody listens: this process is the one to run
        noAnswer,   // an instance listens but did not take the request in time
    };

    // Delivers `message` to a running instance. One that is busy (encoding, or on a loaded
    // machine) may take a while to answer, so it is given `answerWithin` before giving up; a
    // request it reaches only after that is dropped, never carried out late.
    static Handover sendToRunningInstance(const QString& socketPath, const QByteArray& message,
                                          std::chrono::milliseconds answerWithin = std::chrono::seconds(10));

    // Starts listening; a socket left behind by an instance that died is replaced, one that an
    // instance still listens on is not (false).
    bool listen();

Q_SIGNALS:
    void messageReceived(const QByteArray& message);

private:
    QString m_socketPath;
    QLocalServer* m_server = nullptr;
};

} // namespace vantalo
