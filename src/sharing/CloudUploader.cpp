#include "CloudUploader.h"

#include "HttpTransfer.h"
#include "S3Request.h"
#include "settings/KeychainStore.h"
#include "settings/SettingsKeys.h"
#include "settings/UserDefaults.h"

#include <QFutureWatcher>
#include <QtConcurrent>

namespace vantalo {

QString CloudUploader::Config::loadEndpoint(const UserDefaults& defaults)
{
    QString endpoint = qEnvironmentVariable(endpointVariable);
    if (endpoint.isEmpty()) {
        endpoint = defaults.stringForKey(SettingsKey::s3Endpoint).value_or(QString());
    }
    return endpoint.trimmed();
}

CloudUploader::Config CloudUploader::Config::load(const UserDefaults& defaults, KeychainStore& keychain)
{
    return Config{
        defaults.stringForKey(SettingsKey::s3BucketName).value_or(SettingsKey::defaultBucketName),
        defaults.stringForKey(SettingsKey::s3Region).value_or(SettingsKey::defaultRegion),
        defaults.stringForKey(SettingsKey::cdnDomain).value_or(SettingsKey::defaultCdnDomain),
        keychain.loadCredential(CredentialKey::accessKeyId).value_or(QString()),
        keychain.loadCredential(CredentialKey::secretAccessKey).value_or(QString()),
        loadEndpoint(defaults),
    };
}

CloudUploader::CloudUploader(Config config) : CloudUploader([config = std::move(config)] { return config; })
{
}

CloudUploader::CloudUploader(std::function<Config()> config)
    : m_config(std::move(config)), m_context(std::make_unique<QObject>()),
      m_http(std::make_unique<HttpClient>())
{
}

CloudUploader::~CloudUploader() = default;

void CloudUploader::upload(const QByteArray& data, const QString& filename, Progress progress,
                           Completion done)
{
    // Hashing and signing a large GIF takes a while: off the main thread, with one clock reading.
    using Built = std::expected<S3SignedRequest, Failure>;
    auto* watcher = new QFutureWatcher<Built>(m_context.get());
    QObject::connect(
        watcher, &QFutureWatcher<Built>::finished, m_context.get(),
        [this, watcher, data, progress = std::move(progress), done = std::move(done)] {
            watcher->deleteLater();
            const Built built = watcher->result();
            if (!built) {
                done(std::unexpected(built.error()));
                return;
            }
            if (!built->publicUrl.isValid() || built->publicUrl.host().isEmpty()) {
                done(std::unexpected(cloudUploaderFailure(CloudUploaderError::uploadFailed,
                                                          QStringLiteral("Invalid CDN URL"))));
                return;
            }
            const HttpRequest request{"PUT", built->url, built->headers, data, std::chrono::seconds(60)};
            m_http->send(request, progress,
                         [done, link = built->publicUrl, size = data.size()](const HttpOutcome& outcome) {
                             if (!outcome) {
                                 done(std::unexpected(outcome.error()));
                             } else if (outcome->status >= 200 && outcome->status <= 299) {
                                 done(UploadResult{link, size});
                             } else {
                                 done(std::unexpected(cloudUploaderFailure(
                                     CloudUploaderError::uploadFailed,
                                     QStringLiteral("HTTP ") + QString::number(outcome->status))));
                             }
                         });
        });
    watcher->setFuture(QtConcurrent::run([config = m_config(), filename, data] {
        return buildS3Request(config, config.endpoint, filename, data, QDateTime::currentDateTimeUtc());
    }));
}

} // namespace vantalo
