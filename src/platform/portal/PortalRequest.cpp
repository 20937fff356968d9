#include "PortalRequest.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QObject>
#include <QRandomGenerator>
#include <QTimer>

namespace vantalo {

namespace {

const QString kService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kRequest = QStringLiteral("org.freedesktop.portal.Request");

QString senderPart(const QDBusConnection& bus)
{
    QString sender = bus.baseService().mid(1);
    sender.replace(QLatin1Char('.'), QLatin1Char('_'));
    return sender;
}

// One request in flight: it waits for the Response, the call's error or the time limit,
// whichever comes first, answers once and goes.
class PendingRequest : public QObject
{
    Q_OBJECT
public:
    PendingRequest(Portal portal, QString method, QString path, QString cancelledText, PortalAnswer answer,
                   QObject* context)
        : QObject(context), m_portal(std::move(portal)), m_method(std::move(method)), m_path(std::move(path)),
          m_cancelledText(std::move(cancelledText)), m_answer(std::move(answer))
    {
    }
    ~PendingRequest() override
    {
        m_portal.bus.disconnect(kService, m_path, kRequest, QStringLiteral("Response"), this,
                                SLOT(onResponse(uint, QVariantMap)));
    }
    bool listen()
    {
        return m_portal.bus.connect(kService, m_path, kRequest, QStringLiteral("Response"), this,
                                    SLOT(onResponse(uint, QVariantMap)));
    }
    void send(QDBusMessage call, std::chrono::milliseconds timeout)
    {
        auto* watcher = new QDBusPendingCallWatcher(m_portal.bus.asyncCall(call, int(timeout.count())), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* call) {
            if (call->isError()) {
                finish(std::unexpected(Failure{QStringLiteral("%1 refused %2 (%3)")
                                                   .arg(m_portal.title, m_method, call->error().message())}));
            }
        });
        QTimer::singleShot(timeout, this, [this] {
            // Gone quiet: the desktop may still be showing something for this request.
            m_portal.bus.call(
                QDBusMessage::createMethodCall(kService, m_path, kRequest, QStringLiteral("Close")),
                QDBus::NoBlock);
            finish(std::unexpected(
                Failure{QStringLiteral("%1 did not answer %2").arg(m_portal.title, m_method)}));
        });
    }

public Q_SLOTS:
    void onResponse(uint code, const QVariantMap& results)
    {
        switch (code) {
        case 0:
            finish(results);
            break;
        case 1:
            finish(std::unexpected(Failure{m_cancelledText}));
            break;
        default:
            finish(std::unexpected(Failure{QStringLiteral("%1 failed at %2").arg(m_portal.title, m_method)}));
        }
    }

public:
    void finish(std::expected<QVariantMap, Failure> result)
    {
        if (!m_answer) {
            return;
        }
        const PortalAnswer answer = std::exchange(m_answer, nullptr);
        deleteLater();
        answer(std::move(result));
    }

private:
    Portal m_portal;
    QString m_method;
    QString m_path;
    QString m_cancelledText;
    PortalAnswer m_answer;
};

} // namespace

QString portalToken()
{
    return QStringLiteral("vantalo_%1").arg(QRandomGenerator::global()->generate(), 8, 16, QLatin1Char('0'));
}

QString portalRequest(const Portal& portal, const QString& method, const QVariantList& arguments,
                      QVariantMap options, std::chrono::milliseconds timeout, const QString& cancelledText,
                      QObject* context, PortalAnswer answer)
{
    // The answer comes as a signal on a request object whose path is known in advance: listen
    // there before calling, or a quick desktop answers before anyone listens.
    const QString token = portalToken();
    const QString path =
        QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2").arg(senderPart(portal.bus), token);
    auto* pending = new PendingRequest(portal, method, path, cancelledText, std::move(answer), context);
    if (!pending->listen()) {
        pending->finish(std::unexpected(Failure{portal.title + QStringLiteral(" cannot be reached")}));
        return path;
    }
    options.insert(QStringLiteral("handle_token"), token);
    QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, portal.interface, method);
    call.setArguments(arguments + QVariantList{options});
    pending->send(call, timeout);
    return path;
}

} // namespace vantalo

#include "PortalRequest.moc"
