#include "QtKeychainSecretStore.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QEventLoop>
#include <QLoggingCategory>
#include <QTimer>

#include <qt6keychain/keychain.h>

Q_LOGGING_CATEGORY(lcKeychain, "vantalo.keychain", QtInfoMsg)

namespace vantalo {

QtKeychainSecretStore::QtKeychainSecretStore(QString service, LinePrinter print,
                                             std::chrono::milliseconds timeLimit)
    : m_service(std::move(service)), m_print(std::move(print)), m_timeLimit(timeLimit)
{
}

QtKeychainSecretStore::Outcome
QtKeychainSecretStore::run(QKeychain::Job* job, const std::function<void(QKeychain::Job*)>& onSuccess,
                           QString* failure)
{
    // The job deletes itself once finished, also when it finishes after we stopped waiting.
    job->setAutoDelete(true);
    QEventLoop loop;
    Outcome outcome = Outcome::timedOut;
    QObject::connect(job, &QKeychain::Job::finished, &loop, [&](QKeychain::Job* finished) {
        switch (finished->error()) {
        case QKeychain::NoError:
            outcome = Outcome::succeeded;
            if (onSuccess) {
                onSuccess(finished);
            }
            break;
        case QKeychain::EntryNotFound:
            outcome = Outcome::notFound;
            break;
        default:
            outcome = Outcome::failed;
            qCDebug(lcKeychain) << "keychain job failed:" << finished->error() << finished->errorString();
            if (failure) {
                *failure = finished->errorString();
            }
            reportUnavailable(finished->errorString());
            break;
        }
        loop.quit();
    });
    QTimer::singleShot(m_timeLimit, &loop, &QEventLoop::quit);
    job->start();
    // A job that fails at once (no session bus) has already finished here.
    if (outcome == Outcome::timedOut) {
        loop.exec(QEventLoop::ExcludeUserInputEvents);
    }
    if (outcome == Outcome::timedOut) {
        reportUnavailable(QStringLiteral("no answer within %1 s").arg(double(m_timeLimit.count()) / 1000.0));
    }
    return outcome;
}

void QtKeychainSecretStore::reportUnavailable(const QString& reason)
{
    if (m_reported) {
        return;
    }
    m_reported = true;
    m_print(
        QStringLiteral("Keyring unavailable (%1): upload credentials cannot be read or saved").arg(reason));
}

std::optional<QByteArray> QtKeychainSecretStore::readSecret(const QString& account)
{
    auto* job = new QKeychain::ReadPasswordJob(m_service);
    job->setKey(account);
    QByteArray data;
    // Called only while we wait: a job that answers after the time limit finds the loop gone.
    const auto keep = [&data](QKeychain::Job* finished) {
        data = static_cast<QKeychain::ReadPasswordJob*>(finished)->binaryData();
    };
    if (run(job, keep) != Outcome::succeeded) {
        return std::nullopt;
    }
    // Earlier versions saved credentials as binary data, which the Secret Service holds as base64
    // text that other keyring tools show as it is: such an item is saved again as text.
    if (heldAsBase64(account)) {
        deleteSecret(account);
        addSecret(account, data);
    }
    return data;
}

bool QtKeychainSecretStore::heldAsBase64(const QString& account) const
{
    // Only the Secret Service answers this; elsewhere (the macOS Keychain, KWallet) the call
    // fails and nothing is rewritten.
    using Attributes = QMap<QString, QString>;
    static const QMetaType registered = qDBusRegisterMetaType<Attributes>();
    Q_UNUSED(registered);
    QDBusMessage search = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.secrets"), QStringLiteral("/org/freedesktop/secrets"),
        QStringLiteral("org.freedesktop.Secret.Service"), QStringLiteral("SearchItems"));
    search << QVariant::fromValue(Attributes{{QStringLiteral("user"), account},
                                             {QStringLiteral("server"), m_service},
                                             {QStringLiteral("type"), QStringLiteral("base64")}});
    const QDBusMessage reply =
        QDBusConnection::sessionBus().call(search, QDBus::Block, int(m_timeLimit.count()));
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() != 2) {
        return false;
    }
    return std::ranges::any_of(reply.arguments(), [](const QVariant& paths) {
        return !qdbus_cast<QList<QDBusObjectPath>>(paths).isEmpty();
    });
}

void QtKeychainSecretStore::deleteSecret(const QString& account)
{
    auto* job = new QKeychain::DeletePasswordJob(m_service);
    job->setKey(account);
    run(job);
}

std::expected<void, Failure> QtKeychainSecretStore::addSecret(const QString& account, const QByteArray& value)
{
    auto* job = new QKeychain::WritePasswordJob(m_service);
    job->setKey(account);
    // As text, so the keyring holds the credential as typed (QtKeychain keeps binary data as
    // base64); the credentials are UTF-8 already.
    job->setTextData(QString::fromUtf8(value));
    QString refusal;
    switch (run(job, {}, &refusal)) {
    case Outcome::succeeded:
        return {};
    case Outcome::timedOut:
        return std::unexpected(Failure{QStringLiteral("the keyring did not answer")});
    case Outcome::notFound:
    case Outcome::failed:
        break;
    }
    return std::unexpected(Failure{QStringLiteral("the keyring refused it (%1)").arg(refusal)});
}

} // namespace vantalo
